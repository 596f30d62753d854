// The page's frame: what is connected, the way from screen to screen, and the screen.

import type { ComponentType } from 'preact';
import { useEffect, useRef, useState } from 'preact/hooks';

import type { Core } from './core/core.ts';
import { useSession } from './hooks.ts';
import { hasSerial } from './line/serial.ts';
import type { Session, State } from './session.ts';
import { isUnderWay } from './update.ts';
import { Connect } from './views/Connect.tsx';
import { Console } from './views/Console.tsx';
import { Files } from './views/Files.tsx';
import { Network } from './views/Network.tsx';
import { Overview } from './views/Overview.tsx';
import { Guarded, Notice, Status, ThemeSwitch } from './views/parts.tsx';
import { Timings } from './views/Timings.tsx';
import { Update } from './views/Update.tsx';

interface Screen {
    id: string;
    label: string;
    view: ComponentType<{ core: Core; session: Session }>;
}

const screens: readonly [Screen, ...Screen[]] = [
    { id: 'connect', label: 'Connect', view: Connect },
    { id: 'overview', label: 'Overview', view: Overview },
    { id: 'console', label: 'Console', view: Console },
    { id: 'network', label: 'Network', view: Network },
    { id: 'update', label: 'Update', view: Update },
    { id: 'files', label: 'Files', view: Files },
    { id: 'timings', label: 'Timings', view: Timings },
];

function screenOfAddress(): Screen {
    return screens.find(({ id }) => `#${id}` === window.location.hash) ?? screens[0];
}

/** The state of the connection in a few words. */
function StateLine({ state }: { state: State }) {
    const { device, lineName, isOpen } = state;
    const who = device === null ? '' : `, serial number ${device.serial_number ?? 'unknown'}`;
    switch (state.phase) {
        case 'off':
            return <Status tone="off">Not connected</Status>;
        case 'opening':
            return <Status tone="warning">Opening {lineName}</Status>;
        case 'asking':
            return <Status tone="warning">Asking who is on {lineName}</Status>;
        case 'ready':
            return (
                <Status tone="good">
                    Connected on {lineName}
                    {who}
                </Status>
            );
        case 'waiting':
            return <Status tone="warning">Waiting for the device on {lineName}</Status>;
        case 'lost':
            return <Status tone="error">{lineName} is unplugged</Status>;
        case 'trouble':
            return <Status tone="error">{isOpen ? `No device on ${lineName}` : 'Not connected'}</Status>;
    }
}

// An update that is under way ends with the page, and where the computer falls asleep.
function useGuard(isBusy: boolean): void {
    useEffect(() => {
        if (!isBusy) {
            return undefined;
        }
        const guard = (event: BeforeUnloadEvent) => event.preventDefault();
        window.addEventListener('beforeunload', guard);
        // Not every browser has it, and some refuse it to save power.
        const lock = navigator.wakeLock?.request('screen').catch(() => null);
        return () => {
            window.removeEventListener('beforeunload', guard);
            void lock?.then((held) => held?.release());
        };
    }, [isBusy]);
}

export function App({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [screen, setScreen] = useState(screenOfAddress);
    const main = useRef<HTMLElement>(null);
    const hasMoved = useRef(false);
    const visited = useRef(new Set<Screen>());
    visited.current.add(screen);

    useEffect(() => {
        const onMove = () => setScreen(screenOfAddress());
        // A link to what is shown already, too, goes to its beginning.
        window.addEventListener('hashchange', onMove);
        return () => window.removeEventListener('hashchange', onMove);
    }, []);

    useEffect(() => {
        document.title = `${screen.label} – vesk`;
        if (hasMoved.current) {
            main.current?.focus();
            window.scrollTo(0, 0);
        }
        hasMoved.current = true;
    }, [screen]);

    useEffect(() => {
        const look = () => session.look();
        if (!hasSerial()) {
            return undefined;
        }
        navigator.serial?.addEventListener('connect', look);
        return () => navigator.serial?.removeEventListener('connect', look);
    }, [session]);

    useGuard(isUnderWay(state.update));

    return (
        <div class="shell">
            {state.isDemo && (
                <aside class="demo-strip" aria-label="Demo device">
                    This is the demo device: it lives in this page, and nothing here reaches a real one.
                </aside>
            )}
            <header class="top">
                <a
                    class="skip"
                    href="#screen"
                    onClick={(event) => {
                        event.preventDefault(); // the address says which screen it is
                        main.current?.focus();
                    }}
                >
                    Skip to the screen
                </a>
                <span class="product">vesk</span>
                <div role="status">
                    <StateLine state={state} />
                </div>
                {state.running !== '' && <span class="muted small running">{state.running} …</span>}
                <span class="space" />
                <ThemeSwitch />
            </header>
            <nav class="nav" aria-label="Screens">
                <ul>
                    {screens.map(({ id, label }) => (
                        <li key={id}>
                            <a href={`#${id}`} {...(id === screen.id ? { 'aria-current': 'page' } : {})}>
                                {label}
                            </a>
                        </li>
                    ))}
                </ul>
            </nav>
            <main class="main" id="screen" ref={main} tabIndex={-1} aria-label={screen.label}>
                {state.notice !== null && (
                    <section class="screen beside">
                        <Notice tone="warning" title={state.notice.title} onDismiss={() => session.dismiss()}>
                            <p>{state.notice.text}</p>
                        </Notice>
                    </section>
                )}
                {/* A screen keeps what was typed and opened in it while one looks at another. */}
                {screens
                    .filter((each) => visited.current.has(each))
                    .map((each) => (
                        <div key={each.id} hidden={each !== screen}>
                            <Guarded>
                                <each.view core={core} session={session} />
                            </Guarded>
                        </div>
                    ))}
            </main>
        </div>
    );
}
