// Settings files apart from their screen: everything that is known of them comes from `veskctl sav`.

import { ExitStatus } from './core/core.ts';
import { argumentOf, messageOf, objectsOf, valueFaultIn, type FieldFault, type Runner } from './core/lines.ts';

/** A file as it is on the page. */
export interface SavFile {
    name: string;
    /** As `sav dump` names it: "save", "view". */
    kind: string;
    bytes: Uint8Array;
}

/** What went wrong, in the tool's words. */
export interface Fault {
    fault: string;
}

export function isFault(result: object): result is Fault {
    return 'fault' in result;
}

/** Of a core that has failed itself. */
export function faultOf(error: unknown): Fault {
    return { fault: error instanceof Error ? error.message : String(error) };
}

// What the tool prints: docs/schema/sav-*.schema.json

export type Scalar = number | string | null;
export type Value = Scalar | Value[] | { [name: string]: Value };

export interface Dump {
    file: string;
    kind: string;
    length: number;
    fields: { [name: string]: Value };
    /** Bytes that are no value, as hexadecimal digits. */
    rest: string;
}

export interface Check {
    record_length: number;
    read_as: string;
    is_at_start: boolean;
    verdict: 'taken' | 'reset' | 'refused' | 'missing';
    faults: { field: string | null; text: string }[];
}

export interface Change {
    field: string;
    before: Scalar;
    after: Scalar;
}

interface SchemaNode {
    $ref?: string;
    type?: string | string[];
    items?: SchemaNode;
    description?: string;
    title?: string;
    properties?: { [name: string]: SchemaNode };
}

export interface Schema {
    properties: { fields: SchemaNode };
    definitions: { [name: string]: SchemaNode };
}

// What the screen shows

/** A value, or an array of values. */
export interface Row {
    /** As `sav set` takes it. */
    name: string;
    text: string;
    /** Unit or range, or "". */
    unit: string;
}

/** Entries of a table that follow each other and are the same. */
export interface Group {
    first: number;
    last: number;
    cells: string[];
}

/** An array of records. */
export interface RecordTable {
    name: string;
    columns: { name: string; unit: string }[];
    groups: Group[];
}

/** The fields of a file are shown by the chapters of docs/files.md. */
export interface Chapter {
    title: string;
    rows: Row[];
    tables: RecordTable[];
}

export interface SavView {
    length: number;
    /** Bytes that are no value. */
    rest: string;
    chapters: Chapter[];
    check: Check;
    /** What the tool says of the file, for people. */
    verdict: string;
}

/** What stands for a value that a short file does not have. */
export const noValue = '\u2013';

// Reading

function arguments_(subcommand: string, file: SavFile): string[] {
    return ['sav', subcommand, '--kind', file.kind, argumentOf(file.name)];
}

function filesOf(...files: SavFile[]): Map<string, Uint8Array> {
    return new Map(files.map((file) => [file.name, file.bytes]));
}

/**
 * The file with the kind that its name or its identification says, or the one given. A text of `dump --json` (NAME.json)
 * becomes the file that it means.
 */
export async function openSav(core: Runner, name: string, bytes: Uint8Array, kind?: string): Promise<SavFile | Fault> {
    if (/\.json$/i.test(name)) {
        return madeOfJson(core, name, bytes);
    }
    const finished = await core.run(['sav', 'dump', '--json', ...(kind ? ['--kind', kind] : []), argumentOf(name)], {
        files: new Map([[name, bytes]]),
    });
    const dump = objectsOf<Dump>(finished)[0];
    if (finished.status !== ExitStatus.done || !dump) {
        return { fault: messageOf(finished) };
    }
    return { name, kind: dump.kind, bytes };
}

async function madeOfJson(core: Runner, name: string, bytes: Uint8Array): Promise<SavFile | Fault> {
    const made = 'made.sav';
    const finished = await core.run(['sav', 'make', argumentOf(name), '-o', made], {
        files: new Map([[name, bytes]]),
    });
    const file = finished.files.get(made);
    if (finished.status !== ExitStatus.done || !file) {
        return { fault: messageOf(finished) };
    }
    // The tool has just read it as JSON with these keys, of which "file" may be missing.
    const text = JSON.parse(new TextDecoder().decode(bytes)) as { file?: string; kind: string };
    const last = (text.file ?? '').split(/[\\/]/).pop() ?? '';
    return { name: last !== '' ? last : name.replace(/json$/i, 'sav'), kind: text.kind, bytes: file };
}

const schemas = new WeakMap<Runner, Map<string, Schema>>();

async function schemaOf(core: Runner, kind: string): Promise<Schema> {
    const known = schemas.get(core) ?? new Map<string, Schema>();
    schemas.set(core, known);
    const schema = known.get(kind) ?? (JSON.parse((await core.run(['sav', 'schema', kind])).output) as Schema);
    known.set(kind, schema);
    return schema;
}

/** Everything that the screen shows of a file. Requires: openSav() or setValues() has made it. */
export async function viewOf(core: Runner, file: SavFile): Promise<SavView> {
    const files = filesOf(file);
    const schema = await schemaOf(core, file.kind);
    const dump = objectsOf<Dump>(await core.run([...arguments_('dump', file), '--json'], { files }))[0];
    const check = objectsOf<Check>(await core.run([...arguments_('check', file), '--json'], { files }))[0];
    const verdict = await core.run(arguments_('check', file), { files });
    if (!dump || !check) {
        throw new Error(`${file.name} cannot be read any more. ${messageOf(verdict)}`);
    }
    return {
        length: dump.length,
        rest: dump.rest,
        chapters: chaptersOf(dump, schema),
        check,
        verdict: verdict.output.trimEnd(),
    };
}

// Chapters

function recordOf(schema: Schema, node: SchemaNode): SchemaNode | undefined {
    const name = (node.$ref ?? node.items?.$ref)?.split('/').pop();
    return name === undefined ? undefined : schema.definitions[name];
}

function hasTables(schema: Schema, record: SchemaNode): boolean {
    return Object.values(record.properties ?? {}).some((field) => field.items && recordOf(schema, field));
}

/** A value or an array of values in the tool's own writing. */
export function textOf(value: Value | undefined): string {
    if (Array.isArray(value)) {
        return value.map(textOf).join(' ');
    }
    return value === null || value === undefined ? noValue : String(value);
}

/** The values of an entry of a table, in the order of its bytes, and their names in it. */
function cellsOf(schema: Schema, record: SchemaNode, prefix: string): { path: string[]; name: string; unit: string }[] {
    return Object.entries(record.properties ?? {}).flatMap(([name, field]) => {
        const inner = recordOf(schema, field);
        if (!inner) {
            return [{ path: [name], name: prefix + name, unit: field.description ?? '' }];
        }
        return cellsOf(schema, inner, `${prefix}${name}.`).map((cell) => ({ ...cell, path: [name, ...cell.path] }));
    });
}

function at(value: Value, path: readonly string[]): Value {
    return path.reduce<Value>((inner, name) => (inner as { [name: string]: Value })[name] ?? null, value);
}

function tableOf(schema: Schema, record: SchemaNode, name: string, entries: readonly Value[]): RecordTable {
    const cells = cellsOf(schema, record, '');
    const groups: Group[] = [];
    entries.forEach((entry, index) => {
        const texts = cells.map((cell) => textOf(at(entry, cell.path)));
        const last = groups.at(-1);
        if (last && last.cells.every((text, i) => text === texts[i])) {
            last.last = index;
        } else {
            groups.push({ first: index, last: index, cells: texts });
        }
    });
    return { name, columns: cells.map((cell) => ({ name: cell.name, unit: cell.unit })), groups };
}

/** The fields by chapter, as `sav dump` prints them for people. */
export function chaptersOf(dump: Dump, schema: Schema): Chapter[] {
    const chapters = new Map<string, Chapter>();

    function chapter(heading: string, record: SchemaNode): Chapter {
        const title = heading + (record.title ?? dump.kind);
        const there = chapters.get(title) ?? { title, rows: [], tables: [] };
        chapters.set(title, there);
        return there;
    }

    function add(record: SchemaNode, values: Value, prefix: string, heading: string): void {
        for (const [name, field] of Object.entries(record.properties ?? {})) {
            const value = at(values, [name]);
            const full = prefix + name;
            const inner = recordOf(schema, field);
            if (!inner) {
                chapter(heading, record).rows.push({ name: full, text: textOf(value), unit: field.description ?? '' });
            } else if (hasTables(schema, inner)) {
                // A view: with chapters of its own, which need its name.
                const below = (entry: string) => (inner.title === record.title ? heading : `${entry}: `);
                if (Array.isArray(value)) {
                    value.forEach((each, i) => add(inner, each, `${full}[${i}].`, below(`${full}[${i}]`)));
                } else {
                    add(inner, value, `${full}.`, below(full));
                }
            } else if (Array.isArray(value)) {
                chapter(heading, inner).tables.push(tableOf(schema, inner, full, value));
            } else {
                add(inner, value, `${full}.`, heading);
            }
        }
    }

    const top = recordOf(schema, schema.properties.fields);
    if (top) {
        add(top, dump.fields, '', '');
    }
    return [...chapters.values()];
}

/** The rows and tables whose names have all the words, in whatever case; all of them for "". */
export function found(chapters: readonly Chapter[], words: string): Chapter[] {
    const wanted = words.toLowerCase().split(/\s+/);
    const has = (...texts: string[]) => wanted.every((word) => texts.some((text) => text.toLowerCase().includes(word)));
    return chapters
        .map(({ title, rows, tables }) => ({
            title,
            rows: rows.filter((row) => has(row.name, row.unit)),
            tables: tables.filter((table) => has(table.name, ...table.columns.map((column) => column.name))),
        }))
        .filter(({ rows, tables }) => rows.length + tables.length > 0);
}

/** Whether the name of a value, such as one that `sav check` complains of, is of a row or an entry, or is itself it. */
export function isOf(value: string | null, name: string): boolean {
    return value !== null && (value === name || value.startsWith(`${name}[`) || value.startsWith(`${name}.`));
}

// Changing

export interface Assignment {
    name: string;
    text: string;
}

/** A new file with the values, or the value that is wrong and why. The given file stays as it is. */
export async function setValues(
    core: Runner,
    file: SavFile,
    assignments: readonly Assignment[],
): Promise<SavFile | FieldFault> {
    const texts = assignments.map(({ name, text }) => `${name}=${text}`);
    const finished = await core.run([...arguments_('set', file), ...texts], { files: filesOf(file) });
    const bytes = finished.files.get(file.name);
    if (finished.status !== ExitStatus.done || !bytes) {
        return valueFaultIn(
            finished,
            assignments.map(({ name }) => name),
        );
    }
    return { ...file, bytes };
}

/** The assignments of an entry's values to all entries of a group, of those that differ from the group's. */
export function assignmentsOf(table: RecordTable, group: Group, texts: readonly string[]): Assignment[] {
    const assignments: Assignment[] = [];
    for (let entry = group.first; entry <= group.last; ++entry) {
        table.columns.forEach(({ name }, i) => {
            const text = texts[i];
            if (text !== undefined && text !== group.cells[i]) {
                assignments.push({ name: `${table.name}[${entry}].${name}`, text });
            }
        });
    }
    return assignments;
}

/** The values that differ. Requires: the files are of one kind. */
export async function differencesOf(core: Runner, before: SavFile, after: SavFile): Promise<Change[] | Fault> {
    const names = ['before.sav', 'after.sav'] as const;
    const finished = await core.run(['sav', 'diff', '--json', '--kind', before.kind, ...names], {
        files: new Map([
            [names[0], before.bytes],
            [names[1], after.bytes],
        ]),
    });
    if (finished.status !== ExitStatus.done && finished.status !== ExitStatus.refused) {
        return { fault: messageOf(finished) };
    }
    return objectsOf<Change>(finished);
}

// Leaving

/** The text of `sav dump --json`, of which openSav() makes the file again. */
export async function jsonOf(core: Runner, file: SavFile): Promise<{ json: string } | Fault> {
    const finished = await core.run([...arguments_('dump', file), '--json'], { files: filesOf(file) });
    return finished.status === ExitStatus.done ? { json: finished.output } : { fault: messageOf(finished) };
}

/** The picture as SVG. One of the other files may have the sizes of views and pages. */
export async function drawingOf(
    core: Runner,
    file: SavFile,
    others: readonly SavFile[],
): Promise<{ svg: string } | Fault> {
    const finished = await core.run([...arguments_('draw', file), '-o', '-'], { files: filesOf(...others, file) });
    return finished.status === ExitStatus.done ? { svg: finished.output } : { fault: messageOf(finished) };
}
