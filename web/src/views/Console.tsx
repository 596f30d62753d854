// Commands by name or raw, and what passes over the line.

import { useEffect, useMemo, useRef, useState } from 'preact/hooks';

import { ExitStatus, type Command, type Core, type Finished, type Parameter } from '../core/core.ts';
import { useSession, useTraffic } from '../hooks.ts';
import { argumentFaultIn, sentenceOf, sentencesOf, type FieldFault } from '../core/lines.ts';
import type { Session } from '../session.ts';
import type { Passage } from '../traffic.ts';
import { argsOf, textOf } from '../typed.ts';
import { isUnderWay } from '../update.ts';
import { NeedsDevice } from './NeedsDevice.tsx';
import { Check, Choice, Dialog, Download, Facts, Field, Notice, Panel, Table, Tabs } from './parts.tsx';

const mostRows = 300;
const mostHex = 128; // digits and blanks

interface Typed {
    /** What `send` takes. */
    text: string;
    /** What veskctl does with it. */
    args: readonly string[];
    /** Of the command by name, if it is one. */
    command: Command | null;
    /** What follows the command's frame, of a command that writes a text. */
    payload: string;
}

const nothingTyped: Typed = { text: '', args: [], command: null, payload: '' };

function hintOf(parameter: Parameter, isNeeded: boolean): string {
    return isNeeded ? parameter.hint : `${parameter.hint}; ${parameter.usual} if left empty`;
}

function takesText(command: Command): boolean {
    return command.subcommand !== '' && command.writes;
}

function ParameterFields(props: {
    command: Command;
    values: readonly string[];
    fault: FieldFault;
    onChange: (values: readonly string[]) => void;
}) {
    const { command, values, fault, onChange } = props;
    return (
        <>
            {command.parameters.map((parameter, index) => {
                const change = (value: string) =>
                    onChange(command.parameters.map((_, each) => (each === index ? value : (values[each] ?? ''))));
                if (parameter.choices.length > 0) {
                    return (
                        <Choice
                            key={parameter.name}
                            label={parameter.name}
                            value={values[index] ?? ''}
                            options={[
                                { value: '', label: 'choose' },
                                ...parameter.choices.map((each) => ({ value: each, label: each })),
                            ]}
                            onChange={change}
                            width="short"
                        />
                    );
                }
                return (
                    <Field
                        key={parameter.name}
                        label={parameter.name}
                        value={values[index] ?? ''}
                        hint={hintOf(parameter, command.writes)}
                        fault={fault.field === parameter.name ? fault.fault : ''}
                        onInput={change}
                        width="middle"
                        code
                    />
                );
            })}
        </>
    );
}

interface ByNameProps {
    core: Core;
    /** What is wrong with a parameter. */
    fault: FieldFault;
    onTyped: (typed: Typed) => void;
}

function ByName({ core, fault, onTyped }: ByNameProps) {
    const commands = useMemo(() => core.commands(), [core]);
    const [words, setWords] = useState('');
    const [values, setValues] = useState<readonly string[]>([]);
    const [payload, setPayload] = useState('');
    const command = commands.find((each) => each.words.toLowerCase() === words.trim().toLowerCase()) ?? null;

    useEffect(() => {
        if (command === null) {
            onTyped({ ...nothingTyped, text: words, args: ['send', words] });
            return;
        }
        const text = takesText(command) ? payload : '';
        onTyped({ text: textOf(command, values), args: argsOf(command, values, text), command, payload: text });
    }, [command, words, values, payload]);

    function choose(text: string): void {
        setWords(text);
        setValues([]);
    }

    return (
        <div class="stack">
            <div class="row fields">
                <Field
                    label="Command"
                    value={words}
                    suggestions={commands.map((each) => each.words)}
                    placeholder="read device type"
                    onInput={choose}
                    width="wide"
                />
                {command !== null && (
                    <ParameterFields command={command} values={values} fault={fault} onChange={setValues} />
                )}
                {command !== null && takesText(command) && (
                    <Field
                        label="text"
                        value={payload}
                        hint="items in brackets"
                        onInput={setPayload}
                        width="wide"
                        code
                    />
                )}
            </div>
            <details>
                <summary>All commands</summary>
                <Table
                    caption="All commands"
                    captionUnseen
                    tall
                    columns={[
                        {
                            head: 'Command',
                            names: true,
                            cell: (each: Command) => (
                                <button type="button" class="plain" onClick={() => choose(each.words)}>
                                    {each.words}
                                </button>
                            ),
                        },
                        { head: 'Parameters', code: true, cell: (each: Command) => each.usage },
                        { head: 'Code', code: true, cell: (each: Command) => each.code },
                        { head: 'Effect', cell: (each: Command) => (each.writes ? 'changes the device' : '') },
                        { head: 'Note', cell: (each: Command) => each.note },
                    ]}
                    rows={commands}
                    keyOf={(each) => each.words}
                />
            </details>
        </div>
    );
}

function Raw({ core, onTyped }: { core: Core; onTyped: (typed: Typed) => void }) {
    const [text, setText] = useState('');
    useEffect(() => onTyped({ ...nothingTyped, text, args: ['send', text] }), [text]);
    return (
        <div class="stack">
            <div class="row fields">
                <Field
                    label="Bytes"
                    value={text}
                    placeholder="68 01"
                    hint="hexadecimal digits, or a whole frame"
                    onInput={setText}
                    width="wide"
                    code
                />
            </div>
            <Facts facts={core.facts.commandForms.map(({ digits, about }) => [digits, about])} />
        </div>
    );
}

/** What will be sent, or why nothing can be. */
function Preview(props: { found: ReturnType<Core['frameOf']> | null; fault: FieldFault; payload: string }) {
    const { found, fault, payload } = props;
    if (found === null) {
        return <p class="muted">What will be sent appears here.</p>;
    }
    if ('error' in found) {
        return (
            <p class="muted" role="status">
                Nothing can be sent yet. {fault.field === '' && sentenceOf(found.error)}
            </p>
        );
    }
    return (
        <p role="status" class="preview">
            Will be sent: <code>{found.frame}</code> {found.meaning}
            {payload !== '' && (
                <>
                    ; then <code>{payload}</code>
                </>
            )}
        </p>
    );
}

function Result({ finished, onDismiss }: { finished: Finished; onDismiss: () => void }) {
    const said = [...finished.output.split('\n').filter((line) => line !== ''), ...sentencesOf(finished)];
    const titles: Record<number, string> = {
        [ExitStatus.done]: 'The device has answered',
        [ExitStatus.refused]: 'The device has refused it',
        [ExitStatus.usage]: 'This cannot be sent',
        [ExitStatus.noAnswer]: 'The device has not answered',
        [ExitStatus.interrupted]: 'Ended before the answer',
    };
    return (
        <Notice
            tone={finished.status === ExitStatus.done ? 'good' : 'error'}
            title={titles[finished.status] ?? 'It could not be sent'}
            onDismiss={onDismiss}
        >
            {said.map((line, index) => (
                <p key={index} class="code">
                    {line}
                </p>
            ))}
        </Notice>
    );
}

function timeOf(at: number): string {
    const date = new Date(at);
    const two = (number: number) => String(number).padStart(2, '0');
    const clock = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
    return `${clock}.${String(date.getMilliseconds()).padStart(3, '0')}`;
}

function cut(text: string): string {
    return text.length <= mostHex ? text : `${text.slice(0, mostHex)}…`;
}

function matches(passage: Passage, filter: string): boolean {
    const { text, meaning, hex, kind } = passage.piece;
    return [text, meaning, hex, kind].some((each) => each.toLowerCase().includes(filter.trim().toLowerCase()));
}

type Kind = 'all' | 'sent' | 'received' | 'refusal' | 'other';

function isOfKind({ direction, piece }: Passage, kind: Kind): boolean {
    switch (kind) {
        case 'all':
            return true;
        case 'sent':
        case 'received':
            return direction === kind;
        case 'refusal':
            return piece.kind === 'refusal' || piece.kind === 'damaged';
        case 'other':
            return !piece.isFrame;
    }
}

function Traffic({ session }: { session: Session }) {
    const [isPaused, setPaused] = useState(false);
    const [filter, setFilter] = useState('');
    const [kind, setKind] = useState<Kind>('all');
    const [hasHex, setHasHex] = useState(true);
    const frame = useRef<HTMLDivElement>(null);
    const isAtEnd = useRef(true);
    const passages = useTraffic(session, isPaused);
    const found = passages.filter((each) => isOfKind(each, kind) && matches(each, filter));
    const rows = found.slice(-mostRows);

    // The newest stays in view, unless one has gone up to look at something.
    const box = () => frame.current?.querySelector<HTMLElement>('.table-frame') ?? null;
    useEffect(() => {
        const element = box();
        const watch = () => {
            isAtEnd.current =
                element !== null && element.scrollHeight - element.scrollTop - element.clientHeight < 40;
        };
        element?.addEventListener('scroll', watch);
        return () => element?.removeEventListener('scroll', watch);
    }, []);
    useEffect(() => {
        const element = box();
        if (element !== null && isAtEnd.current) {
            element.scrollTop = element.scrollHeight;
        }
    }, [passages, filter, kind]);

    return (
        <Panel
            title="What passes over the line"
            actions={
                <>
                    <button type="button" aria-pressed={isPaused} onClick={() => setPaused(!isPaused)}>
                        {isPaused ? 'Go on' : 'Pause'}
                    </button>
                    <button
                        type="button"
                        onClick={() => {
                            setPaused(false);
                            session.traffic.clear();
                        }}
                    >
                        Clear
                    </button>
                    <Download name="session.txt" type="text/plain" content={() => session.traffic.transcript()}>
                        Download as a transcript
                    </Download>
                </>
            }
        >
            <div class="stack traffic" ref={frame}>
                <div class="row">
                    <Field label="Filter" type="search" value={filter} onInput={setFilter} width="middle" />
                    <Choice
                        label="Show"
                        value={kind}
                        options={[
                            { value: 'all', label: 'everything' },
                            { value: 'sent', label: 'what was sent' },
                            { value: 'received', label: 'what was received' },
                            { value: 'refusal', label: 'refusals and damaged frames' },
                            { value: 'other', label: 'bytes that are no frames' },
                        ]}
                        onChange={setKind}
                        width="middle"
                    />
                    <Check label="Bytes in hexadecimal" checked={hasHex} onChange={setHasHex} />
                    {isPaused && <span class="muted">Paused: what comes meanwhile is shown afterwards.</span>}
                </div>
                <Table
                    caption="What passes over the line"
                    captionUnseen
                    tall
                    columns={[
                        { head: 'Time', code: true, cell: (each: Passage) => timeOf(each.at) },
                        {
                            head: 'Direction',
                            cell: (each: Passage) =>
                                each.direction === 'sent' ? '→ to the device' : '← from the device',
                        },
                        {
                            head: 'What',
                            cell: ({ piece }: Passage) => (
                                <>
                                    <div>{piece.meaning !== '' ? piece.meaning : <code>{cut(piece.text)}</code>}</div>
                                    {piece.isFrame && <code class="muted small">{piece.text}</code>}
                                    {hasHex && piece.hex !== '' && <div class="muted small code">{cut(piece.hex)}</div>}
                                </>
                            ),
                        },
                    ]}
                    rows={rows}
                    keyOf={(each) => each.id}
                    classOf={({ piece }) => (piece.kind === 'refusal' || piece.kind === 'damaged' ? 'faulty' : '')}
                    empty={passages.length === 0 ? 'Nothing has passed yet.' : 'Nothing here fits the filter.'}
                />
                {found.length > rows.length && (
                    <p class="muted small">
                        The latest {rows.length} of {found.length}. The transcript has more: all since the line was chosen, or
                        since “Clear”.
                    </p>
                )}
            </div>
        </Panel>
    );
}

export function Console({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [mode, setMode] = useState<'name' | 'raw'>('name');
    const [byName, setByName] = useState<Typed>(nothingTyped);
    const [raw, setRaw] = useState<Typed>(nothingTyped);
    const typed = mode === 'name' ? byName : raw;
    const [isAsked, setAsked] = useState(false);
    const [finished, setFinished] = useState<Finished | null>(null);
    const found = useMemo(() => (typed.text.trim() === '' ? null : core.frameOf(typed.text)), [core, typed.text]);
    const frame = found === null || 'error' in found ? null : found;
    const { payload } = typed;
    const names = typed.command?.parameters.map(({ name }) => name) ?? [];
    const fault = argumentFaultIn({ messages: found !== null && 'error' in found ? found.error : '' }, names);
    const [isSending, setSending] = useState(false);
    // Whoever is there: that is what a console is for. After what runs already, unless that takes its time.
    const canSend = frame !== null && state.isOpen && !isSending && !isUnderWay(state.update);

    useEffect(() => setFinished(null), [state.deviceNumber]);

    async function send(): Promise<void> {
        setAsked(false);
        setSending(true);
        try {
            const done = await session.run(typed.args, { what: 'Waiting for the answer' });
            setFinished(done);
            if (frame?.writes === true && done.status === ExitStatus.done && session.state.phase === 'ready') {
                void session.ask(); // so that the other screens have it, too
            }
        } catch (error) {
            const messages = error instanceof Error ? error.message : String(error);
            setFinished({ status: ExitStatus.localFailure, output: '', messages, files: new Map() });
        } finally {
            setSending(false);
        }
    }

    function submit(): void {
        if (!canSend) {
            return;
        }
        if (frame.writes) {
            setAsked(true);
        } else {
            void send();
        }
    }

    return (
        <article class="screen">
            <header>
                <h1>Console</h1>
                <p>Commands to the device, and all that passes over its line.</p>
            </header>
            <NeedsDevice state={state} />
            <Panel title="Send a command" class="stack">
                <form
                    class="stack"
                    onSubmit={(event) => {
                        event.preventDefault();
                        submit();
                    }}
                >
                    <Tabs
                        label="How the command is written"
                        chosen={mode}
                        onChoose={setMode}
                        tabs={[
                            {
                                id: 'name',
                                label: 'By name',
                                content: () => <ByName core={core} fault={fault} onTyped={setByName} />,
                            },
                            { id: 'raw', label: 'Raw', content: () => <Raw core={core} onTyped={setRaw} /> },
                        ]}
                    />
                    <Preview found={found} fault={fault} payload={payload} />
                    {typed.command !== null &&
                        typed.command.hasPayload &&
                        typed.command.subcommand === '' &&
                        typed.command.writes && (
                            <Notice tone="warning" title="Data follow this command, and this screen sends none">
                                <p>
                                    The device will wait for them and then refuse. The screens{' '}
                                    <a href="#network">Network</a> and <a href="#update">Update</a> send command and
                                    data together.
                                </p>
                            </Notice>
                        )}
                    <div class="buttons">
                        <button type="submit" class="chief" disabled={!canSend}>
                            Send
                        </button>
                        {state.running !== '' && (
                            <button type="button" onClick={() => session.cancel()}>
                                Stop
                            </button>
                        )}
                    </div>
                </form>
                {finished !== null && <Result finished={finished} onDismiss={() => setFinished(null)} />}
            </Panel>
            <Traffic session={session} />
            <Dialog
                open={isAsked}
                title="This changes the device"
                onClose={() => setAsked(false)}
                actions={
                    <>
                        <button type="button" onClick={() => setAsked(false)}>
                            Cancel
                        </button>
                        <button type="button" class="chief" onClick={() => void send()}>
                            Send it
                        </button>
                    </>
                }
            >
                <p>
                    <code>{frame?.frame}</code>
                </p>
                <p>{frame?.meaning}</p>
                {payload !== '' && (
                    <p>
                        Then the text <code>{payload}</code>
                    </p>
                )}
            </Dialog>
        </article>
    );
}
