// The first screen: what the page is, the choice of a line, and what to do if that fails.

import { useEffect, useState } from 'preact/hooks';

import type { Core } from '../core/core.ts';
import { useSession } from '../hooks.ts';
import type { DemoDevice } from '../line/demo.ts';
import { choosePort, hasSerial, knownPorts } from '../line/serial.ts';
import type { Transport } from '../line/transport.ts';
import { adviceOn, type Fault, type Session, type State } from '../session.ts';
import { isUnderWay } from '../update.ts';
import { Busy, Facts, Notice, Panel } from './parts.tsx';
import { Welcome } from './Welcome.tsx';

const mostLog = 200; // lines of the demo device

// It keeps its settings as long as the page.
let demo: DemoDevice | null = null;

async function theDemo(): Promise<DemoDevice> {
    const { demoDevice } = await import('../line/demo.ts');
    demo ??= await demoDevice();
    return demo;
}

/** What the browser has permitted before and is plugged in. */
function useKnownPorts(): readonly Transport[] {
    const [ports, set] = useState<readonly Transport[]>([]);
    useEffect(() => {
        if (!hasSerial()) {
            return undefined;
        }
        const look = () => knownPorts().then(set, () => set([]));
        void look();
        navigator.serial?.addEventListener('connect', look);
        navigator.serial?.addEventListener('disconnect', look);
        return () => {
            navigator.serial?.removeEventListener('connect', look);
            navigator.serial?.removeEventListener('disconnect', look);
        };
    }, []);
    return ports;
}

/** What has happened and what to do. */
function Trouble({ fault, message, session }: { fault: Fault; message: string; session: Session }) {
    const advice = adviceOn(fault);
    const canTry = session.state.lineName !== '' && (fault === 'busy' || fault === 'denied');
    const canAsk = fault === 'silent' || fault === 'stranger' || fault === 'refused';
    return (
        <Notice tone="error" title={advice.title}>
            <ol class="steps">
                {advice.steps.map((step) => (
                    <li key={step}>{step}</li>
                ))}
            </ol>
            {message !== '' && <p class="small muted">In detail: {message}</p>}
            {canTry && (
                <div class="buttons">
                    <button type="button" class="chief" onClick={() => void session.tryAgain()}>
                        Try again
                    </button>
                </div>
            )}
            {canAsk && (
                <div class="buttons">
                    <button type="button" class="chief" onClick={() => void session.ask()}>
                        Ask again
                    </button>
                </div>
            )}
        </Notice>
    );
}

function Answer({ state }: { state: State }) {
    const { device } = state;
    if (device === null) {
        return null;
    }
    return (
        <Notice tone="good" title="The device answers">
            <Facts
                facts={[
                    ['Device type', device.device_type ?? '–'],
                    ['Serial number', device.serial_number ?? '–'],
                    ['Program version', device.program_version ?? '–'],
                    ['Address', device.network?.address ?? '–'],
                ]}
            />
            <p>
                <a href="#overview">Everything it tells</a>, <a href="#console">send commands</a>,{' '}
                <a href="#network">change its network</a>, <a href="#update">update its program</a>.
            </p>
        </Notice>
    );
}

function DemoPanel({ session }: { session: Session }) {
    const [log, setLog] = useState<readonly string[]>([]);
    const state = useSession(session);
    useEffect(() => {
        if (demo === null) {
            return undefined;
        }
        demo.onLog = (line) => setLog((lines) => [...lines, line].slice(-mostLog));
        return () => {
            if (demo !== null) {
                demo.onLog = null;
            }
        };
    }, []);
    const isOut = state.phase === 'lost';
    return (
        <Panel
            title="The demo device"
            actions={
                <>
                    <button type="button" disabled={isOut} onClick={() => demo?.unplug()}>
                        Pull its cable
                    </button>
                    <button
                        type="button"
                        disabled={!isOut}
                        onClick={() => {
                            demo?.plug();
                            session.look();
                        }}
                    >
                        Plug it in
                    </button>
                </>
            }
        >
            <p>
                It is the device’s own program, in this page. It does all that a real one does on its line, restarts
                after an update included, and keeps its settings until you close the page.
            </p>
            <details>
                <summary>What it prints on its console</summary>
                <pre class="code-box tall" tabIndex={0} aria-label="What the demo device prints">
                    {log.length === 0 ? 'Nothing yet.' : log.join('\n')}
                </pre>
            </details>
        </Panel>
    );
}

export function Connect({ session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const known = useKnownPorts();
    const [isLoading, setLoading] = useState(false);
    const isThere = state.phase !== 'off' && !(state.phase === 'trouble' && !state.isOpen);
    const isUpdating = isUnderWay(state.update); // to leave the line would break it off
    const isBusy = state.phase === 'opening' || state.phase === 'asking' || state.phase === 'waiting';

    async function useDemo(): Promise<void> {
        setLoading(true);
        await session.connect(theDemo());
        setLoading(false);
    }

    return (
        <article class="screen">
            <header>
                <h1>Connect to a device</h1>
            </header>
            {!isThere && <Welcome />}
            <Panel
                title="The line"
                actions={
                    isThere && (
                        <button type="button" disabled={isUpdating} onClick={() => void session.disconnect()}>
                            Disconnect
                        </button>
                    )
                }
            >
                <div class="stack">
                    <div class="buttons">
                        <button
                            type="button"
                            class={isThere ? '' : 'chief'}
                            disabled={!hasSerial() || isUpdating}
                            onClick={() => void session.connect(choosePort())}
                        >
                            {isThere ? 'Choose another port' : 'Choose the port'}
                        </button>
                        {!isThere &&
                            known.map((line, index) => (
                                <button key={index} type="button" onClick={() => void session.connect(line)}>
                                    Use {line.name} again
                                </button>
                            ))}
                        {!state.isDemo && (
                            <button type="button" disabled={isLoading || isUpdating} onClick={() => void useDemo()}>
                                Try the demo device
                            </button>
                        )}
                    </div>
                    {!hasSerial() && state.phase === 'off' && (
                        <Trouble fault="unsupported" message="" session={session} />
                    )}
                    {isLoading && <Busy>Starting the demo device</Busy>}
                    {isBusy && (
                        <div class="row">
                            <Busy>
                                {state.phase === 'waiting'
                                    ? 'Waiting until the device answers'
                                    : `Asking who is on ${state.lineName}`}
                            </Busy>
                            {state.phase === 'waiting' && (
                                <button type="button" onClick={() => session.cancel()}>
                                    Stop waiting
                                </button>
                            )}
                        </div>
                    )}
                    {state.phase === 'ready' && <Answer state={state} />}
                    {state.trouble !== null && (
                        <Trouble fault={state.trouble.fault} message={state.trouble.message} session={session} />
                    )}
                </div>
            </Panel>
            {state.isDemo && <DemoPanel session={session} />}
        </article>
    );
}
