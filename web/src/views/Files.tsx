// The screen of settings files: what is in them, what the device makes of them, and new ones made from them.

import { useEffect, useState } from 'preact/hooks';
import type { Runner } from '../core/lines.ts';
import {
    differencesOf,
    drawingOf,
    faultOf,
    isFault,
    jsonOf,
    openSav,
    textOf,
    viewOf,
    type Change,
    type SavFile,
    type SavView,
} from '../files.ts';
import { FieldsOfFile, type Place } from './FieldsOfFile.tsx';
import {
    added,
    closed,
    edited,
    isUnsaved,
    noFiles,
    saved,
    takenBack,
    type OpenSav,
} from './openFiles.ts';
import {
    Busy,
    Check,
    Choice,
    Dialog,
    Download,
    Drawing,
    Field,
    FileDrop,
    Guarded,
    Notice,
    Panel,
    saveFile,
    Status,
    Table,
    Tabs,
    type OpenedFile,
} from './parts.tsx';
import { useResult } from './useResult.ts';

interface Refused {
    file: OpenedFile;
    fault: string;
}

type Part = 'fields' | 'changes' | 'check' | 'drawing' | 'compare';

/** Settings files of a device, opened from the computer. */
export function Files({ core }: { core: Runner }) {
    const [state, update] = useState(noFiles);
    const [refused, setRefused] = useState<readonly Refused[]>([]);
    const [unread, setUnread] = useState('');
    const [opening, setOpening] = useState(false);

    const unsaved = state.files.some(isUnsaved);
    useEffect(() => {
        if (!unsaved) {
            return undefined;
        }
        const warn = (event: BeforeUnloadEvent) => event.preventDefault();
        window.addEventListener('beforeunload', warn);
        return () => window.removeEventListener('beforeunload', warn);
    }, [unsaved]);

    async function open(files: readonly OpenedFile[], kind?: string): Promise<void> {
        setOpening(true);
        setUnread('');
        const names = new Set(files.map(({ name }) => name));
        setRefused((before) => before.filter(({ file }) => !names.has(file.name)));
        for (const file of files) {
            const result = await openSav(core, file.name, file.bytes, kind).catch(faultOf);
            if (isFault(result)) {
                setRefused((before) => [...before, { file, fault: result.fault }]);
            } else {
                update((before) => added(before, result));
            }
        }
        setOpening(false);
    }

    const chosen = state.files.find(({ id }) => id === state.chosen);
    return (
        <article class="screen">
            <header>
                <h1>Files</h1>
                <p>
                    Settings files of a device, such as <code>save0.sav</code>. They stay on this computer, and none is
                    changed: what you edit is saved as a new file.
                </p>
            </header>
            <FileDrop
                label="Open files"
                hint="or drop them here: .sav files, several at once, and .json files that were exported here"
                multiple
                slim={state.files.length > 0}
                disabled={opening}
                onFiles={(files) => void open(files)}
                onFault={setUnread}
            />
            {opening && <Busy>Reading…</Busy>}
            {unread !== '' && (
                <Notice tone="error" title={unread} onDismiss={() => setUnread('')} />
            )}
            {refused.map(({ file, fault }) => (
                <RefusedFile
                    key={file.name}
                    core={core}
                    name={file.name}
                    fault={fault}
                    onOpenAs={(kind) => void open([file], kind)}
                    onDismiss={() => setRefused((before) => before.filter((each) => each.file !== file))}
                />
            ))}
            {state.files.length > 0 && (
                <ListOfFiles
                    files={state.files}
                    chosen={state.chosen}
                    onChoose={(id) => update((before) => ({ ...before, chosen: id }))}
                    onClose={(id) => update((before) => closed(before, id))}
                />
            )}
            {chosen && (
                <Guarded key={chosen.id}>
                    <OneFile
                        core={core}
                        open={chosen}
                        all={state.files}
                        onEdited={(file) => update((before) => edited(before, chosen.id, file))}
                        onTakeBack={() => update((before) => takenBack(before, chosen.id))}
                        onSaved={() => update((before) => saved(before, chosen.id))}
                    />
                </Guarded>
            )}
        </article>
    );
}

interface RefusedFileProps {
    core: Runner;
    name: string;
    fault: string;
    onOpenAs: (kind: string) => void;
    onDismiss: () => void;
}

/** A file that could not be opened, and the way to open it all the same. */
function RefusedFile({ core, name, fault, onOpenAs, onDismiss }: RefusedFileProps) {
    const kinds = core.facts.savKinds;
    const [kind, setKind] = useState('');
    const chosen = kind === '' ? (kinds[0] ?? '') : kind;
    return (
        <Notice tone="error" title={`${name} was not opened`} onDismiss={onDismiss}>
            <p>{fault}</p>
            {!/\.json$/i.test(name) && (
                <>
                    <p>If it is a damaged settings file, say what it is:</p>
                    <div class="row">
                        <Choice
                            label={`Kind of ${name}`}
                            width="middle"
                            value={chosen}
                            options={kinds.map((each) => ({ value: each, label: each }))}
                            onChange={setKind}
                        />
                        <button type="button" disabled={chosen === ''} onClick={() => onOpenAs(chosen)}>
                            Open as this kind
                        </button>
                    </div>
                </>
            )}
        </Notice>
    );
}

interface ListOfFilesProps {
    files: readonly OpenSav[];
    chosen: number;
    onChoose: (id: number) => void;
    onClose: (id: number) => void;
}

function ListOfFiles({ files, chosen, onChoose, onClose }: ListOfFilesProps) {
    const [closing, setClosing] = useState<OpenSav | null>(null);

    function close(open: OpenSav): void {
        if (!isUnsaved(open)) {
            onClose(open.id);
        } else {
            setClosing(open);
        }
    }

    return (
        <>
            <Table
                caption="Open files"
                rows={files}
                keyOf={({ id }) => id}
                classOf={({ id }) => (id === chosen ? 'chosen' : '')}
                columns={[
                    {
                        head: 'File',
                        names: true,
                        cell: ({ id, file }) => (
                            <button
                                type="button"
                                class="plain"
                                aria-current={id === chosen ? 'true' : 'false'}
                                onClick={() => onChoose(id)}
                            >
                                {file.name}
                            </button>
                        ),
                    },
                    { head: 'Kind', cell: ({ file }) => file.kind },
                    { head: 'Bytes', right: true, cell: ({ file }) => file.bytes.length },
                    {
                        head: 'State',
                        cell: (open) =>
                            isUnsaved(open) ? (
                                <Status tone="warning">changed, not saved</Status>
                            ) : (
                                <Status tone="off">{open.past.length > 0 ? 'saved' : 'unchanged'}</Status>
                            ),
                    },
                    {
                        head: 'Close',
                        cell: (open) => (
                            <button
                                type="button"
                                class="plain"
                                aria-label={`Close ${open.file.name}`}
                                onClick={() => close(open)}
                            >
                                Close
                            </button>
                        ),
                    },
                ]}
            />
            <Dialog
                open={closing !== null}
                title={`Close ${closing?.file.name ?? ''} without saving?`}
                onClose={() => setClosing(null)}
                actions={
                    <>
                        <button type="button" onClick={() => setClosing(null)}>
                            Keep it open
                        </button>
                        <button
                            type="button"
                            class="danger"
                            onClick={() => {
                                if (closing) {
                                    onClose(closing.id);
                                }
                                setClosing(null);
                            }}
                        >
                            Close without saving
                        </button>
                    </>
                }
            >
                <p>Its changes are lost then. The file on the computer is as it was.</p>
            </Dialog>
        </>
    );
}

interface OneFileProps {
    core: Runner;
    open: OpenSav;
    all: readonly OpenSav[];
    onEdited: (file: SavFile) => void;
    onTakeBack: () => void;
    onSaved: () => void;
}

function OneFile({ core, open, all, onEdited, onTakeBack, onSaved }: OneFileProps) {
    const { file, original } = open;
    const [part, setPart] = useState<Part>('fields');
    const [place, setPlace] = useState<Place>({ chapter: '', words: '' });
    const [saving, setSaving] = useState(false);
    const [unexported, setUnexported] = useState('');
    const shown = useResult(async () => {
        const view = await viewOf(core, file);
        const changes = await differencesOf(core, original, file);
        return { view, changes: isFault(changes) ? [] : changes };
    }, [core, file, original]);

    async function exportJson(): Promise<void> {
        const result = await jsonOf(core, file).catch(faultOf);
        setUnexported(isFault(result) ? result.fault : '');
        if (!isFault(result)) {
            saveFile(`${file.name.replace(/\.sav$/, '')}.json`, result.json, 'application/json');
        }
    }

    return (
        <Panel
            title={file.name}
            actions={
                <>
                    <button type="button" disabled={open.past.length === 0} onClick={onTakeBack}>
                        Take back last change
                    </button>
                    <button type="button" onClick={() => void exportJson()}>
                        Export JSON
                    </button>
                    <button type="button" class="chief" onClick={() => setSaving(true)}>
                        Save as a new file…
                    </button>
                </>
            }
        >
            {unexported !== '' && (
                <Notice
                    tone="error"
                    title={`${file.name} was not exported`}
                    onDismiss={() => setUnexported('')}
                >
                    <p>{unexported}</p>
                </Notice>
            )}
            {shown ? (
                <div class="stack">
                    <Verdict file={file} view={shown.view} />
                    <Tabs
                        label={`Parts of ${file.name}`}
                        chosen={part}
                        onChoose={setPart}
                        tabs={[
                            {
                                id: 'fields',
                                label: 'Fields',
                                content: () => (
                                    <FieldsOfFile
                                        core={core}
                                        file={file}
                                        view={shown.view}
                                        changes={shown.changes}
                                        place={place}
                                        onMove={setPlace}
                                        onEdited={onEdited}
                                    />
                                ),
                            },
                            {
                                id: 'changes',
                                label: `Changes (${shown.changes.length})`,
                                content: () => (
                                    <Differences
                                        caption="What differs from the file that was opened"
                                        heads={['Opened', 'Now']}
                                        changes={shown.changes}
                                        empty="Nothing has been changed."
                                    />
                                ),
                            },
                            {
                                id: 'check',
                                label: `Check (${shown.view.check.faults.length})`,
                                content: () => <CheckOfFile view={shown.view} />,
                            },
                            {
                                id: 'drawing',
                                label: 'Drawing',
                                content: () => (
                                    <DrawingOfFile core={core} file={file} others={all.map((each) => each.file)} />
                                ),
                            },
                            {
                                id: 'compare',
                                label: 'Compare',
                                content: () => (
                                    <Comparison
                                        core={core}
                                        file={file}
                                        others={all.filter((each) => each.id !== open.id)}
                                    />
                                ),
                            },
                        ]}
                    />
                    <SaveDialog
                        open={saving}
                        file={file}
                        view={shown.view}
                        onClose={() => setSaving(false)}
                        onSaved={onSaved}
                    />
                </div>
            ) : (
                <Busy>Reading {file.name}…</Busy>
            )}
        </Panel>
    );
}

interface VerdictProps {
    file: SavFile;
    view: SavView;
}

/** What the device would do with the file, in a sentence. */
function Verdict({ file, view: { check } }: VerdictProps) {
    const faults = check.faults.length;
    const more = faults > 0 && (
        <p>{faults === 1 ? 'One thing is' : `${faults} things are`} wrong with it: see Check.</p>
    );
    if (check.verdict === 'taken') {
        const when = check.is_at_start ? ' at its next start' : ', but not at a start';
        return (
            <Notice tone={faults === 0 ? 'good' : 'warning'} title={`The device takes ${file.name}${when}`}>
                {more}
            </Notice>
        );
    }
    if (check.verdict === 'reset') {
        return (
            <Notice tone="error" title={`The device does not take ${file.name}: defaults replace it`}>
                {more}
            </Notice>
        );
    }
    return (
        <Notice tone="error" title={`The device does not take ${file.name}`}>
            {more}
        </Notice>
    );
}

function CheckOfFile({ view }: { view: SavView }) {
    return (
        <div class="stack">
            <p>
                The device’s own code has read the file here, as if it had just been started. It reads such a file as{' '}
                <code>{view.check.read_as}</code>, and expects {view.check.record_length} bytes.
            </p>
            <Table
                caption="What is wrong"
                tall
                rows={view.check.faults}
                keyOf={({ field, text }) => `${field ?? ''} ${text}`}
                empty="Nothing."
                columns={[
                    { head: 'Field', names: true, code: true, cell: ({ field }) => field ?? 'the whole file' },
                    { head: 'What', cell: ({ text }) => text },
                ]}
            />
            <h3>In full</h3>
            <pre class="code-box tall" tabIndex={0} role="group" aria-label="The check in full">
                {view.verdict}
            </pre>
        </div>
    );
}

interface DrawingOfFileProps {
    core: Runner;
    file: SavFile;
    others: readonly SavFile[];
}

function DrawingOfFile({ core, file, others }: DrawingOfFileProps) {
    const [actualSize, setActualSize] = useState(false);
    const result = useResult(() => drawingOf(core, file, others), [core, file, ...others]);
    if (!result) {
        return <Busy>Drawing…</Busy>;
    }
    if (isFault(result)) {
        return <Notice tone="info" title={result.fault} />;
    }
    return (
        <div class="stack">
            <p class="muted">
                The visible layers where they lie on the outputs. Views and pages take their sizes from a save0.sav that
                is open too.
            </p>
            <div class="drawing-frame" tabIndex={0} role="group" aria-label={`Drawing of ${file.name}`}>
                <Drawing svg={result.svg} alt={descriptionOf(result.svg, file.name)} actualSize={actualSize} />
            </div>
            <div class="buttons">
                <Check label="Actual size" checked={actualSize} onChange={setActualSize} />
                <Download name={`${file.name.replace(/\.sav$/, '')}.svg`} content={result.svg} type="image/svg+xml">
                    Save the drawing
                </Download>
            </div>
        </div>
    );
}

/** The drawing's own lines of text: what there is to read in it. */
function descriptionOf(svg: string, name: string): string {
    const texts = [...new DOMParser().parseFromString(svg, 'image/svg+xml').querySelectorAll('text')];
    const lines = texts.map((text) => text.textContent ?? '').filter((text) => text.length > 20);
    return `Drawing of ${name}: ${lines.slice(0, 6).join('; ')}`;
}

interface DifferencesProps {
    caption: string;
    heads: readonly [string, string];
    changes: readonly Change[];
    empty: string;
}

function Differences({ caption, heads, changes, empty }: DifferencesProps) {
    return (
        <Table
            caption={caption}
            tall
            rows={changes}
            keyOf={({ field }) => field}
            empty={empty}
            columns={[
                { head: 'Field', names: true, code: true, cell: ({ field }) => field },
                { head: heads[0], code: true, cell: ({ before }) => textOf(before) },
                { head: heads[1], code: true, cell: ({ after }) => textOf(after) },
            ]}
        />
    );
}

interface ComparisonProps {
    core: Runner;
    file: SavFile;
    others: readonly OpenSav[];
}

function Comparison({ core, file, others }: ComparisonProps) {
    const same = others.filter((other) => other.file.kind === file.kind);
    const [chosen, setChosen] = useState('');
    const other = same.find(({ id }) => String(id) === chosen) ?? same[0];
    const result = useResult(
        async () => (other ? await differencesOf(core, file, other.file) : []),
        [core, file, other?.file],
    );
    if (!other) {
        return (
            <Notice tone="info" title={`No other file of the kind ${file.kind} is open`}>
                <p>Open a second one to see what differs.</p>
            </Notice>
        );
    }
    return (
        <div class="stack">
            <Choice
                label="Compare with"
                value={String(other.id)}
                options={same.map(({ id, file: each }) => ({ value: String(id), label: `${each.name} (no. ${id})` }))}
                onChange={setChosen}
            />
            {result && isFault(result) && <Notice tone="error" title={result.fault} />}
            {result && !isFault(result) && (
                <Differences
                    caption={`What differs: ${result.length === 1 ? '1 value' : `${result.length} values`}`}
                    heads={[file.name, `${other.file.name} (no. ${other.id})`]}
                    changes={result}
                    empty="The files are the same."
                />
            )}
        </div>
    );
}

interface SaveDialogProps {
    open: boolean;
    file: SavFile;
    view: SavView;
    onClose: () => void;
    onSaved: () => void;
}

function SaveDialog({ open, file, view, onClose, onSaved }: SaveDialogProps) {
    const [name, setName] = useState(file.name);
    const fault = name.trim() === '' ? 'A file needs a name.' : /[\\/]/.test(name) ? 'A name has no folder in it.' : '';

    function save(): void {
        if (fault === '') {
            saveFile(name.trim(), file.bytes);
            onSaved();
            onClose();
        }
    }

    return (
        <Dialog
            open={open}
            title="Save as a new file"
            onClose={onClose}
            actions={
                <>
                    <button type="button" onClick={onClose}>
                        Cancel
                    </button>
                    <button type="button" class="chief" disabled={fault !== ''} onClick={save}>
                        Save
                    </button>
                </>
            }
        >
            <Field
                label="Name"
                value={name}
                onInput={setName}
                onEnter={save}
                fault={fault}
                hint={`The device reads such a file as ${view.check.read_as}.`}
            />
            <p class="muted">
                The browser puts it where downloads go. To use it, copy it to /userdata/ on the device and restart the
                device.
            </p>
        </Dialog>
    );
}
