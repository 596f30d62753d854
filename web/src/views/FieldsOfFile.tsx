// The fields of a settings file by chapter, with what the check says of each, and a dialog to change them.

import { useState } from 'preact/hooks';
import type { Runner } from '../core/lines.ts';
import {
    assignmentsOf,
    faultOf,
    found,
    isFault,
    isOf,
    setValues,
    type Assignment,
    type Change,
    type Group,
    type RecordTable,
    type Row,
    type SavFile,
    type SavView,
} from '../files.ts';
import { Choice, Dialog, Field, Notice, Table, type Column } from './parts.tsx';

/** Where in the file one is. */
export interface Place {
    /** Its title; "" is the first one. */
    chapter: string;
    /** What is looked for, in all chapters. */
    words: string;
}

export interface FieldsOfFileProps {
    core: Runner;
    file: SavFile;
    view: SavView;
    /** What was changed since the file was opened. */
    changes: readonly Change[];
    place: Place;
    onMove: (place: Place) => void;
    onEdited: (file: SavFile) => void;
}

/** What is being changed: one row, or the entries of a group. */
type Editing = { row: Row } | { table: RecordTable; group: Group };

function nameOfGroup({ first, last }: Group): string {
    return first === last ? `[${first}]` : `[${first}] to [${last}]`;
}

export function FieldsOfFile({ core, file, view, changes, place, onMove, onEdited }: FieldsOfFileProps) {
    const { words } = place;
    const [editing, setEditing] = useState<Editing | null>(null);

    const chosen = view.chapters.find((chapter) => chapter.title === place.chapter) ?? view.chapters[0];
    const chapters = words.trim() === '' ? (chosen ? [chosen] : []) : found(view.chapters, words.trim());

    const faultsOf = (name: string) =>
        view.check.faults.filter(({ field }) => isOf(field, name)).map(({ field, text }) => ({ field, text }));
    const isChanged = (name: string) => changes.some(({ field }) => isOf(field, name));
    const namesOf = (table: RecordTable, { first, last }: Group) =>
        Array.from({ length: last - first + 1 }, (_, i) => `${table.name}[${first + i}]`);

    const said = (names: readonly string[]) =>
        names.flatMap(faultsOf).map(({ field, text }) => (
            <span key={field} class="fault">
                {names.length === 1 && names[0] === field ? text : `${field ?? ''} ${text}`}
            </span>
        ));
    const look = (names: readonly string[]) =>
        names.some((name) => faultsOf(name).length > 0) ? 'faulty' : names.some(isChanged) ? 'changed' : '';

    return (
        <div class="stack">
            <div class="row fields">
                <Choice
                    label="Chapter"
                    width="wide"
                    value={chosen?.title ?? ''}
                    disabled={words.trim() !== ''}
                    options={view.chapters.map((chapter) => ({ value: chapter.title, label: chapter.title }))}
                    onChange={(chapter) => onMove({ chapter, words })}
                />
                <Field
                    label="Find a field"
                    type="search"
                    width="wide"
                    value={words}
                    onInput={(text) => onMove({ ...place, words: text })}
                    hint="Part of a name; looks in all chapters"
                />
            </div>
            {chapters.length === 0 && <p class="empty">No field has such a name.</p>}
            {chapters.map((chapter) => (
                <div key={chapter.title} class="stack">
                    {words.trim() !== '' && <h3>{chapter.title}</h3>}
                    {chapter.rows.length > 0 && (
                        <Table
                            caption={`Fields of ${chapter.title}`}
                            captionUnseen
                            tall
                            rows={chapter.rows}
                            keyOf={({ name }) => name}
                            classOf={({ name }) => look([name])}
                            columns={[
                                { head: 'Field', names: true, code: true, cell: ({ name }) => name },
                                { head: 'Value', code: true, cell: ({ text }) => text },
                                { head: 'Unit or range', cell: ({ unit }) => unit },
                                { head: 'Check', cell: ({ name }) => said([name]) },
                                {
                                    head: 'Change',
                                    cell: (row) => (
                                        <button
                                            type="button"
                                            class="plain"
                                            aria-label={`Change ${row.name}`}
                                            onClick={() => setEditing({ row })}
                                        >
                                            Change
                                        </button>
                                    ),
                                },
                            ]}
                        />
                    )}
                    {chapter.tables.map((table) => (
                        <Table
                            key={table.name}
                            caption={table.name}
                            tall
                            rows={table.groups}
                            keyOf={({ first }) => first}
                            classOf={(group) => look(namesOf(table, group))}
                            columns={[
                                {
                                    head: 'Entry',
                                    names: true,
                                    code: true,
                                    cell: nameOfGroup,
                                },
                                ...(table.groups.some((group) => said(namesOf(table, group)).length > 0)
                                    ? [{ head: 'Check', cell: (group: Group) => said(namesOf(table, group)) }]
                                    : []),
                                {
                                    head: 'Change',
                                    cell: (group) => (
                                        <button
                                            type="button"
                                            class="plain"
                                            aria-label={`Change ${table.name}${nameOfGroup(group)}`}
                                            onClick={() => setEditing({ table, group })}
                                        >
                                            Change
                                        </button>
                                    ),
                                },
                                ...table.columns.map(
                                    ({ name, unit }, i): Column<Group> => ({
                                        head: unit === '' || unit === name ? name : `${name} (${unit})`,
                                        right: true,
                                        code: true,
                                        cell: ({ cells }) => cells[i],
                                    }),
                                ),
                            ]}
                        />
                    ))}
                </div>
            ))}
            {view.rest !== '' && (
                <Notice tone="warning" title={`${view.rest.length / 2} bytes of the file are no value`}>
                    <p class="code">{view.rest.slice(0, 200)}</p>
                </Notice>
            )}
            {editing && (
                <EditDialog
                    core={core}
                    file={file}
                    editing={editing}
                    onClose={() => setEditing(null)}
                    onEdited={(changed) => {
                        setEditing(null);
                        onEdited(changed);
                    }}
                />
            )}
        </div>
    );
}

interface EditDialogProps {
    core: Runner;
    file: SavFile;
    editing: Editing;
    onClose: () => void;
    onEdited: (file: SavFile) => void;
}

function EditDialog({ core, file, editing, onClose, onEdited }: EditDialogProps) {
    const isRow = 'row' in editing;
    const fields = isRow
        ? [{ name: editing.row.name, unit: editing.row.unit, text: editing.row.text }]
        : editing.table.columns.map(({ name, unit }, i) => ({ name, unit, text: editing.group.cells[i] ?? '' }));
    const [texts, setTexts] = useState(() => fields.map(({ text }) => text));
    const [entry, setEntry] = useState('all');
    const [fault, setFault] = useState({ fault: '', field: '' });
    const [writing, setWriting] = useState(false);

    function assignments(): Assignment[] {
        if (isRow) {
            return texts[0] === editing.row.text ? [] : [{ name: editing.row.name, text: texts[0] ?? '' }];
        }
        const { table, group } = editing;
        const one = entry === 'all' ? group : { ...group, first: Number(entry), last: Number(entry) };
        return assignmentsOf(table, one, texts);
    }

    async function apply(): Promise<void> {
        const wanted = assignments();
        if (wanted.length === 0) {
            onClose();
            return;
        }
        setWriting(true);
        const result = await setValues(core, file, wanted).catch(faultOf);
        setWriting(false);
        if (isFault(result)) {
            setFault({ field: '', ...result });
        } else {
            onEdited(result);
        }
    }

    const isAt = (name: string) => fault.field === name || (!isRow && fault.field.endsWith(`].${name}`));
    const placed = fault.fault !== '' && fields.some(({ name }) => isAt(name));
    return (
        <Dialog
            open
            wide={fields.length > 4}
            title={isRow ? `Change ${editing.row.name}` : `Change ${editing.table.name}${nameOfGroup(editing.group)}`}
            onClose={onClose}
            actions={
                <>
                    <button type="button" onClick={onClose}>
                        Cancel
                    </button>
                    <button type="button" class="chief" disabled={writing} onClick={() => void apply()}>
                        Change
                    </button>
                </>
            }
        >
            {!isRow && editing.group.first !== editing.group.last && (
                <Choice
                    label="Which of them"
                    width="middle"
                    value={entry}
                    options={[
                        { value: 'all', label: `all: ${nameOfGroup(editing.group)}` },
                        ...Array.from({ length: editing.group.last - editing.group.first + 1 }, (_, i) => {
                            const number = String(editing.group.first + i);
                            return { value: number, label: `only [${number}]` };
                        }),
                    ]}
                    onChange={setEntry}
                />
            )}
            {fault.fault !== '' && !placed && <Notice tone="error" title={fault.fault} />}
            <div class="columns narrow">
                {fields.map(({ name, unit }, i) => (
                    <Field
                        key={name}
                        label={name}
                        unit={unit === name ? '' : unit}
                        code
                        value={texts[i] ?? ''}
                        fault={isAt(name) ? fault.fault : ''}
                        onInput={(text) => setTexts(texts.map((each, k) => (k === i ? text : each)))}
                        onEnter={() => void apply()}
                    />
                ))}
            </div>
            <p class="muted small">
                A number is decimal, or hexadecimal with 0x. Bytes of unknown meaning are two digits each. Several values
                have blanks or commas between them. The file on the computer is not changed.
            </p>
        </Dialog>
    );
}
