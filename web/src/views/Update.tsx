// A new program for the device: the file, the way to the device, and what has become of it.

import { useEffect, useMemo, useRef, useState } from 'preact/hooks';

import type { Core } from '../core/core.ts';
import { useSession } from '../hooks.ts';
import { sentenceOf } from '../core/lines.ts';
import type { Session, State } from '../session.ts';
import { isUnderWay, type UpdateResult, type UpdateState } from '../update.ts';
import { NeedsDevice } from './NeedsDevice.tsx';
import {
    Busy,
    Check,
    Dialog,
    Facts,
    FileDrop,
    Notice,
    Panel,
    Progress,
    keepFocus,
    type OpenedFile,
} from './parts.tsx';

function sizeOf(bytes: number): string {
    return bytes < 1024 * 1024 ? `${(bytes / 1024).toFixed(1)} KiB` : `${(bytes / 1024 / 1024).toFixed(2)} MiB`;
}

function clock(seconds: number): string {
    const whole = Math.ceil(seconds);
    return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, '0')}`;
}

function Way({ update }: { update: UpdateState }) {
    const { progress, blocks, step } = update;
    const steps: readonly { of: UpdateState['step']; label: string }[] = [
        { of: 'asking', label: 'Ask the device' },
        { of: 'sending', label: 'Send the blocks' },
        { of: 'restarting', label: 'Wait for the new program' },
        { of: 'settling', label: 'Ask who answers' },
    ];
    const again = progress === null || progress.sent_again === 0 ? '' : `, ${progress.sent_again} sent again`;
    const text =
        progress === null
            ? ''
            : `${progress.done} of ${progress.blocks} blocks, ${(progress.bytes_per_s / 1024).toFixed(1)} KiB/s, ` +
              `${clock(progress.seconds_left)} left${again}`;
    return (
        <div class="stack">
            <ol class="way">
                {steps.map(({ of, label }) => (
                    <li key={of} {...(of === step ? { 'aria-current': 'step' as const } : {})}>
                        {label}
                    </li>
                ))}
            </ol>
            {step === 'asking' && <Busy>Asking whether the device answers</Busy>}
            {step === 'sending' && (
                <Progress
                    label="Sent"
                    value={progress?.done ?? 0}
                    most={progress?.blocks ?? Math.max(blocks, 1)}
                    text={text}
                />
            )}
            {step === 'restarting' && (
                <Busy>All blocks are sent. The device checks them and starts the new program.</Busy>
            )}
            {step === 'settling' && <Busy>Asking the device who it is</Busy>}
        </div>
    );
}

interface Verdict {
    tone: 'good' | 'warning' | 'error';
    title: string;
}

// What to do comes with the result.
function verdictOn(result: UpdateResult, isDemo: boolean): Verdict {
    const version = result.version === undefined ? '' : `, version ${result.version}`;
    switch (result.outcome) {
        case 'restarted':
            return isDemo
                ? { tone: 'good', title: 'The device has taken the update and restarted' }
                : { tone: 'good', title: `The device runs the new program${version}` };
        case 'old program':
            return { tone: 'error', title: 'The device goes on with its old program' };
        case 'absent':
            return { tone: 'error', title: 'The device does not answer any more' };
        case 'unknown':
            return { tone: 'warning', title: 'Whether the device runs the new program is not known' };
        case 'no answer':
            return { tone: 'error', title: 'Nobody answers, so nothing was sent' };
        case 'given up':
            return { tone: 'error', title: 'The device did not take a block. It goes on with its old program' };
        case 'interrupted':
            return { tone: 'warning', title: 'Cancelled. The device goes on with its old program' };
        default:
            return { tone: 'error', title: 'The update could not go on. The device goes on with its old program' };
    }
}

function Ended({ update, state, onClose }: { update: UpdateState; state: State; onClose: () => void }) {
    const { result } = update;
    if (result === null) {
        return null;
    }
    const verdict = verdictOn(result, state.isDemo);
    const answers =
        state.phase === 'ready' ? (state.device?.program_version ?? 'not told') : 'the device does not answer now';
    return (
        <Notice tone={verdict.tone} title={verdict.title} onDismiss={onClose}>
            {result.next.map((line) => (
                <p key={line}>{line}</p>
            ))}
            {state.isDemo && result.outcome === 'restarted' && (
                <p>The demo device goes on with its own program: it cannot run another one.</p>
            )}
            <Facts
                facts={[
                    ['Version in the file', update.version === '' ? 'not told' : update.version],
                    ['Version of the device now', answers],
                    ['Blocks', `${result.done} of ${result.blocks} accepted, ${result.sent_again} sent again`],
                    ['Time', result.seconds === 0 ? '–' : `${result.seconds.toFixed(1)} s`],
                ]}
            />
            <p class="small muted">In detail: {sentenceOf(result.message)}</p>
        </Notice>
    );
}

export function Update({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [file, setFile] = useState<OpenedFile | null>(null);
    const [fault, setFault] = useState('');
    const [isForced, setForced] = useState(false);
    const [isAsked, setAsked] = useState(false);
    const { update } = state;
    const isUpdating = isUnderWay(update);
    const canRun = state.phase === 'ready' && state.running === '' && !isUpdating;
    const place = useRef<HTMLElement>(null);
    const cancel = useRef<HTMLButtonElement>(null);

    const wasUpdating = useRef(isUpdating);

    // The button that cancels is gone when an update is over. Another screen may be shown then.
    useEffect(() => {
        if (wasUpdating.current && !isUpdating && place.current?.offsetParent != null) {
            keepFocus();
        }
        wasUpdating.current = isUpdating;
    }, [isUpdating]);

    const check = useMemo(() => {
        if (file === null) {
            return null;
        }
        const wrong = core.faultOfProgram(file.bytes);
        const version = core.versionOf(file.bytes);
        return { wrong, version, blocks: wrong === '' ? core.blocksOf(file.bytes) : 0 };
    }, [core, file]);
    const canSend =
        canRun && check !== null && file !== null && file.bytes.length > 0 && (check.wrong === '' || isForced);

    function open(files: readonly OpenedFile[]): void {
        setFile(files[0] ?? null);
        setFault('');
        setForced(false);
        if (!isUpdating) {
            session.forgetUpdate();
        }
    }

    function begin(): void {
        setAsked(false);
        if (file !== null) {
            void session.update(file.name, file.bytes, { isForced });
        }
    }

    return (
        <article class="screen" ref={place}>
            <header>
                <h1>Update</h1>
                <p>A new program for the device. It keeps the old one as a backup.</p>
            </header>
            <NeedsDevice state={state} />
            {isUnderWay(update) && (
                <Panel
                    title={`Updating with ${update.name}`}
                    actions={
                        <button type="button" class="danger" ref={cancel} onClick={() => session.cancel()}>
                            {update.step === 'settling' || update.step === 'restarting'
                                ? 'Stop waiting'
                                : 'Cancel the update'}
                        </button>
                    }
                >
                    <div class="stack">
                        <Way update={update} />
                        <p class="muted">
                            Leave this page open, the cable plugged in and the computer awake. Until the last block a
                            cancelled update changes nothing.
                        </p>
                    </div>
                </Panel>
            )}
            {update !== null && !isUpdating && (
                <Ended update={update} state={state} onClose={() => session.forgetUpdate()} />
            )}
            {update !== null && update.messages.length > 0 && (
                <details>
                    <summary>What happened on the way ({update.messages.length})</summary>
                    <pre class="code-box" tabIndex={0} aria-label="What happened on the way">
                        {update.messages.join('\n')}
                    </pre>
                </details>
            )}
            {!isUpdating && (
                <Panel title="The file">
                    <div class="stack">
                        <FileDrop
                            label="Choose the file"
                            hint={`or drop it here: the program vesk_h264 for the device, ${core.facts.programSizes}`}
                            onFiles={open}
                            onFault={setFault}
                        />
                        {fault !== '' && <Notice tone="error" title={fault} />}
                        {file !== null && check !== null && (
                            <Facts
                                facts={[
                                    ['File', file.name],
                                    ['Size', sizeOf(file.bytes.length)],
                                    ['Version in the file', check.version === '' ? 'not told' : check.version],
                                    ['Version of the device', state.device?.program_version ?? 'not known'],
                                    ['Blocks to send', check.blocks === 0 ? '–' : check.blocks],
                                ]}
                            />
                        )}
                        {check !== null && check.wrong !== '' && (
                            <Notice tone="error" title="This is no program for the device">
                                <p>{sentenceOf(check.wrong)}</p>
                                <p>Nothing has been sent.</p>
                                {file !== null && file.bytes.length > 0 && (
                                    <Check
                                        label="Send it all the same (the device may not start again)"
                                        checked={isForced}
                                        onChange={setForced}
                                    />
                                )}
                            </Notice>
                        )}
                        {check !== null && check.wrong === '' && (
                            <Notice tone="good" title="This is a program for the device" />
                        )}
                        <div class="buttons">
                            <button type="button" class="chief" disabled={!canSend} onClick={() => setAsked(true)}>
                                Update the device …
                            </button>
                        </div>
                    </div>
                </Panel>
            )}
            <Dialog
                open={isAsked}
                title="Replace the device’s program?"
                onClose={() => setAsked(false)}
                onClosed={() => cancel.current?.focus()}
                actions={
                    <>
                        <button type="button" onClick={() => setAsked(false)}>
                            Cancel
                        </button>
                        <button type="button" class={isForced ? 'danger' : 'chief'} onClick={begin}>
                            Update it
                        </button>
                    </>
                }
            >
                <p>
                    {file?.name} replaces version {state.device?.program_version ?? 'unknown'} of the device, which
                    restarts at the end. You can cancel before the last block.
                </p>
                {isForced && <p>The file is no program for the device: it may not start again afterwards.</p>}
            </Dialog>
        </article>
    );
}
