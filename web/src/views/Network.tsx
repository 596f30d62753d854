// The settings of the device's network interface: what they are, what they are to become, and what they became.

import { useEffect, useState } from 'preact/hooks';

import { ExitStatus, type Core, type NetworkSettings } from '../core/core.ts';
import { useSession } from '../hooks.ts';
import { objectsOf, sentenceOf, sentencesOf } from '../core/lines.ts';
import type { Session } from '../session.ts';
import { NeedsDevice } from './NeedsDevice.tsx';
import { Busy, Check, Dialog, Field, Notice, Panel, Table } from './parts.tsx';

type Name = keyof NetworkSettings;

const fields: readonly { name: Name; label: string; hint?: string }[] = [
    { name: 'address', label: 'Address' },
    { name: 'mask', label: 'Net mask' },
    { name: 'gateway', label: 'Gateway', hint: 'the router, in the same net' },
    { name: 'mac', label: 'MAC address' },
];

interface Change {
    name: Name;
    label: string;
    before: string;
    after: string;
}

function changesOf(before: NetworkSettings | null, after: NetworkSettings): Change[] {
    return fields
        .map(({ name, label }) => ({ name, label, before: before?.[name] ?? '', after: after[name].trim() }))
        .filter((change) => change.before.toLowerCase() !== change.after.toLowerCase());
}

function trimmed(settings: NetworkSettings): NetworkSettings {
    return {
        address: settings.address.trim(),
        mask: settings.mask.trim(),
        gateway: settings.gateway.trim(),
        mac: settings.mac.trim(),
    };
}

function Changes({ changes }: { changes: readonly Change[] }) {
    return (
        <Table
            caption="What changes"
            columns={[
                { head: 'Setting', names: true, cell: (change: Change) => change.label },
                { head: 'Now', code: true, cell: (change: Change) => change.before },
                { head: 'Then', code: true, cell: (change: Change) => change.after },
            ]}
            rows={changes}
            keyOf={(change) => change.name}
            empty="Nothing: these are the settings that it has."
        />
    );
}

interface Report {
    tone: 'good' | 'warning' | 'error';
    title: string;
    lines: readonly string[];
}

/** `about` says what the device does with settings. */
function reportOn(
    status: number,
    messages: string,
    wanted: NetworkSettings,
    got: NetworkSettings | null,
    about: string,
): Report {
    const lines = sentencesOf({ messages });
    if (status === ExitStatus.done && got !== null) {
        const isLater = got.mac.toLowerCase() !== wanted.mac.toLowerCase();
        const later = [`The MAC address is still ${got.mac}.`, about];
        return {
            tone: 'good',
            title: 'Written, and read back as written',
            lines: [...lines, ...(isLater ? later : [])],
        };
    }
    if (got !== null) {
        return { tone: 'warning', title: 'Written, but read back otherwise', lines };
    }
    switch (status) {
        case ExitStatus.refused:
            return { tone: 'error', title: 'The device has refused the settings', lines };
        case ExitStatus.noAnswer:
            return {
                tone: 'error',
                title: 'The device has not answered: read the settings to see which it has',
                lines,
            };
        case ExitStatus.interrupted:
            return {
                tone: 'warning',
                title: 'Ended before the answer: read the settings to see which it has',
                lines,
            };
        case ExitStatus.usage:
            return { tone: 'error', title: 'These settings cannot be sent', lines };
        default:
            return { tone: 'error', title: 'The settings could not be written', lines };
    }
}

const empty: NetworkSettings = { address: '', mask: '', gateway: '', mac: '' };

export function Network({ core, session }: { core: Core; session: Session }) {
    // Another device has other settings.
    return <Settings key={useSession(session).deviceNumber} core={core} session={session} />;
}

function Settings({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [now, setNow] = useState<NetworkSettings | null>(null);
    const [keptMac, setKeptMac] = useState(''); // was written, and is for the device's next start
    const [form, setForm] = useState<NetworkSettings>(empty);
    const [isForced, setForced] = useState(false);
    const [isAsked, setAsked] = useState(false);
    const [report, setReport] = useState<Report | null>(null);
    const [isTalking, setTalking] = useState(false); // what is typed meanwhile would be lost
    const told = state.device?.network ?? null;
    const canRun = state.phase === 'ready' && state.running === '';

    // Every write has all settings in it: to write the present MAC address would take back the one that is kept.
    const toStay = (settings: NetworkSettings) => ({ ...settings, mac: keptMac === '' ? settings.mac : keptMac });
    const isTyped = now !== null && changesOf(toStay(now), form).length > 0;

    // What the device told when it was connected, or later. What is typed stays, unless nothing was.
    useEffect(() => {
        if (told !== null) {
            if (!isTyped) {
                setForm(toStay(told));
            }
            setNow(told);
            if (told.mac.toLowerCase() === keptMac.toLowerCase()) {
                setKeptMac('');
            }
        }
    }, [told]);

    // What is to be written all the same is what was seen to be wrong, and nothing else.
    function change(settings: NetworkSettings): void {
        setForm(settings);
        setForced(false);
    }

    const faults = core.faultsOf(trimmed(form));
    const isFaulty = fields.some(({ name }) => faults[name] !== '');
    const changes = changesOf(now, form);
    const canWrite =
        canRun && now !== null && !isFaulty && (faults.together === '' || isForced) && changes.length > 0;

    async function talk(args: readonly string[], what: string): Promise<[number, string, NetworkSettings | null]> {
        setTalking(true);
        try {
            const finished = await session.run([...args, '--json'], { what });
            const object = objectsOf<{ network?: NetworkSettings }>(finished)[0];
            return [finished.status, finished.messages, object?.network ?? null];
        } catch (error) {
            return [ExitStatus.localFailure, error instanceof Error ? error.message : String(error), null];
        } finally {
            setTalking(false);
        }
    }

    async function read(): Promise<void> {
        setReport(null);
        const [, messages, got] = await talk(['network', 'read'], 'Reading the network settings');
        if (got === null) {
            setReport({ tone: 'error', title: 'The settings could not be read', lines: sentencesOf({ messages }) });
            return;
        }
        setNow(got);
        change(toStay(got));
    }

    async function write(): Promise<void> {
        setAsked(false);
        setReport(null);
        const wanted = trimmed(form);
        const values = [wanted.address, wanted.mask, wanted.gateway, wanted.mac];
        const args = ['network', 'write', ...values, ...(isForced ? ['--force'] : [])];
        const [status, messages, got] = await talk(args, 'Writing the network settings');
        setReport(reportOn(status, messages, wanted, got, core.facts.networkWrite));
        if (got !== null) {
            setNow(got);
            setKeptMac(got.mac.toLowerCase() === wanted.mac.toLowerCase() ? '' : wanted.mac);
            change({ ...got, mac: wanted.mac });
            void session.ask(); // so that the other screens have them, too
        }
    }

    return (
        <article class="screen">
            <header>
                <h1>Network</h1>
                <p>What the device’s network interface has now, and what it is to have.</p>
            </header>
            <NeedsDevice state={state} />
            {report !== null && (
                <Notice tone={report.tone} title={report.title} onDismiss={() => setReport(null)}>
                    {report.lines.map((line) => (
                        <p key={line}>{line}</p>
                    ))}
                </Notice>
            )}
            {now === null && state.phase === 'ready' && report === null && (
                <Notice tone="warning" title="The device has not told its network settings">
                    <p>Press “Read again”. Nothing can be written before it is known what there is.</p>
                </Notice>
            )}
            <div class="columns">
                <Panel
                    title="Settings"
                    actions={
                        <button type="button" disabled={!canRun} onClick={() => void read()}>
                            Read again
                        </button>
                    }
                >
                    <form
                        class="stack"
                        onSubmit={(event) => {
                            event.preventDefault();
                            setAsked(canWrite);
                        }}
                    >
                        <div class="form-grid">
                            {fields.map(({ name, label, hint }) => (
                                <Field
                                    key={name}
                                    label={label}
                                    value={form[name]}
                                    hint={hint ?? ''}
                                    fault={form[name] === '' && now === null ? '' : sentenceOf(faults[name])}
                                    onInput={(value) => change({ ...form, [name]: value })}
                                    disabled={now === null || isTalking}
                                    code
                                />
                            ))}
                        </div>
                        {!isFaulty && faults.together !== '' && (
                            <Notice tone="warning" title="These settings do not go together">
                                <p>{sentenceOf(faults.together)}</p>
                                <Check label="Write them all the same" checked={isForced} onChange={setForced} />
                            </Notice>
                        )}
                        <div class="buttons">
                            <button type="submit" class="chief" disabled={!canWrite}>
                                Write …
                            </button>
                            <button
                                type="button"
                                disabled={!isTyped}
                                onClick={() => change(now === null ? empty : toStay(now))}
                            >
                                Undo
                            </button>
                        </div>
                    </form>
                </Panel>
                <Panel title="Before it is written">
                    <div class="stack">
                        {now !== null && <Changes changes={changes} />}
                        <p class="muted">{core.facts.networkWrite}</p>
                    </div>
                </Panel>
            </div>
            {state.running !== '' && <Busy>{state.running}</Busy>}
            <Dialog
                open={isAsked}
                title="Write these settings to the device?"
                onClose={() => setAsked(false)}
                actions={
                    <>
                        <button type="button" onClick={() => setAsked(false)}>
                            Cancel
                        </button>
                        <button type="button" class="chief" onClick={() => void write()}>
                            Write them
                        </button>
                    </>
                }
            >
                <Changes changes={changes} />
                <p>Whoever talks to the device over the network must use the new address afterwards.</p>
            </Dialog>
        </article>
    );
}
