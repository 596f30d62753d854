// Commands by name or raw, and what passes over the line.

import { useEffect, useMemo, useRef, useState } from 'preact/hooks';

import { ExitStatus, type Command, type Core, type Finished, type Parameter } from '../core/core.ts';
import { useSession, useTraffic } from '../hooks.ts';
import { sentenceOf, sentencesOf, type Session } from '../session.ts';
import type { Passage } from '../traffic.ts';
import { isTextCommand, isSwitch, textOf, usualText } from '../typed.ts';
import { NeedsDevice } from './NeedsDevice.tsx';
import { Check, Choice, Dialog, Download, Field, Notice, Panel, Table, Tabs } from './parts.tsx';

const mostRows = 300;
const mostHex = 128; // digits and blanks

interface Typed {
    /** What `send` takes. */
    text: string;
    /** Of the command by name, if it is one. */
    command: Command | null;
    /** What follows the command's frame, of a command that writes a text. */
    payload: string;
}

function hintOf(parameter: Parameter, isNeeded: boolean): string {
    const unit = parameter.unit === '' ? '' : ` ${parameter.unit}`;
    const left = isNeeded ? '' : `; ${usualText(parameter)} if left empty`;
    if (parameter.type === 'ipv4' || parameter.type === 'mask') {
        return `such as ${parameter.type === 'mask' ? '255.255.255.0' : '192.168.0.100'}`;
    }
    if (parameter.length === 1) {
        return `two hexadecimal digits${left}`;
    }
    return `${parameter.least} to ${parameter.most}${unit}${left}`;
}

function ParameterFields(props: {
    command: Command;
    values: readonly string[];
    onChange: (values: readonly string[]) => void;
}) {
    const { command, values, onChange } = props;
    return (
        <>
            {command.parameters.map((parameter, index) => {
                const change = (value: string) =>
                    onChange(command.parameters.map((_, each) => (each === index ? value : (values[each] ?? ''))));
                if (isSwitch(parameter)) {
                    return (
                        <Choice
                            key={parameter.name}
                            label={parameter.name}
                            value={values[index] ?? ''}
                            options={[
                                { value: '', label: 'choose' },
                                { value: 'on', label: 'on' },
                                { value: 'off', label: 'off' },
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
                        onInput={change}
                        width="middle"
                        code
                    />
                );
            })}
        </>
    );
}

function ByName({ core, onTyped }: { core: Core; onTyped: (typed: Typed) => void }) {
    const commands = useMemo(() => core.commands(), [core]);
    const [words, setWords] = useState('');
    const [values, setValues] = useState<readonly string[]>([]);
    const [payload, setPayload] = useState('');
    const command = commands.find((each) => each.words.toLowerCase() === words.trim().toLowerCase()) ?? null;

    useEffect(() => {
        onTyped({ text: command === null ? words : textOf(command, values), command, payload });
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
                {command !== null && <ParameterFields command={command} values={values} onChange={setValues} />}
                {command !== null && isTextCommand(command) && command.writes && (
                    <Field
                        label="text"
                        value={payload}
                        placeholder="[a=1,b=2]"
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

function Raw({ onTyped }: { onTyped: (typed: Typed) => void }) {
    const [text, setText] = useState('');
    useEffect(() => onTyped({ text, command: null, payload: '' }), [text]);
    return (
        <Field
            label="Bytes"
            value={text}
            placeholder="68 01"
            hint={
                'Hexadecimal digits: 2 to 10 are command and data, 14 begin with address and tag, 16 end with the checksum. ' +
                'Or a whole frame from < to >, sent as it is.'
            }
            onInput={setText}
            width="wide"
            code
        />
    );
}

/** What will be sent, or why nothing can be. */
function Preview({ found, payload }: { found: ReturnType<Core['frameOf']> | null; payload: string }) {
    if (found === null) {
        return <p class="muted">Choose a command, and here stands what will be sent.</p>;
    }
    if ('error' in found) {
        return (
            <p class="muted" role="status">
                Nothing can be sent yet. {sentenceOf(found.error)}
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
    const said = [...finished.output.split('\n').filter((line) => line !== ''), ...sentencesOf(finished.messages)];
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
                    <button type="button" onClick={() => session.traffic.clear()}>
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
                                    <div>{piece.isFrame ? piece.meaning : <code>{cut(piece.text)}</code>}</div>
                                    {piece.isFrame && <code class="muted small">{piece.text}</code>}
                                    {hasHex && <div class="muted small code">{cut(piece.hex)}</div>}
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
                        The latest {rows.length} of {found.length}. The transcript has all.
                    </p>
                )}
            </div>
        </Panel>
    );
}

export function Console({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [mode, setMode] = useState<'name' | 'raw'>('name');
    const [typed, setTyped] = useState<Typed>({ text: '', command: null, payload: '' });
    const [isAsked, setAsked] = useState(false);
    const [finished, setFinished] = useState<Finished | null>(null);
    const found = useMemo(() => (typed.text.trim() === '' ? null : core.frameOf(typed.text)), [core, typed.text]);
    const frame = found === null || 'error' in found ? null : found;
    const isText = typed.command !== null && isTextCommand(typed.command);
    const payload = isText && typed.command?.writes === true ? typed.payload : '';
    const canSend = frame !== null && state.phase === 'ready' && state.running === '';

    async function send(): Promise<void> {
        setAsked(false);
        const { command, text } = typed;
        const words = text
            .slice(command?.words.length ?? 0)
            .split(' ')
            .filter((word) => word !== '');
        const args =
            command === null || !isText
                ? ['send', text]
                : command.writes
                  ? ['text', 'write', words[0] ?? '00', words[1] ?? '00', payload]
                  : ['text', 'read', words[0] ?? '00', words[1] ?? '00'];
        try {
            setFinished(await session.run(args, { what: 'Waiting for the answer' }));
        } catch (error) {
            setFinished({ status: ExitStatus.localFailure, output: '', messages: String(error), files: new Map() });
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
                                content: () => <ByName core={core} onTyped={setTyped} />,
                            },
                            { id: 'raw', label: 'Raw', content: () => <Raw onTyped={setTyped} /> },
                        ]}
                    />
                    <Preview found={found} payload={payload} />
                    {typed.command !== null &&
                        typed.command.hasPayload &&
                        !isTextCommand(typed.command) &&
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
