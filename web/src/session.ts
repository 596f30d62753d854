// The connection to a device: which line it is, who answers on it, and what runs on it now. All screens share one.

import { adviceOn, anotherDevice, type Fault } from './advice.ts';
import { ExitStatus, type Core, type Finished, type NetworkSettings } from './core/core.ts';
import { objectsOf, sentencesOf } from './core/lines.ts';
import { newInbox, type Inbox } from './line/inbox.ts';
import { LineError, type Transport } from './line/transport.ts';
import { newTrafficLog, type TrafficLog } from './traffic.ts';
import { newUpdate, type UpdateEvent, type UpdateState } from './update.ts';

export { adviceOn, type Advice, type Fault } from './advice.ts';

/** What `info --json` prints (docs/schema/info.schema.json). Null: the device did not tell. */
export interface DeviceInfo {
    device_type: string | null;
    protocol_version: string | null;
    system_version: string | null;
    serial_number: number | null;
    program_version: string | null;
    block_size: number | null;
    dhcp: boolean | null;
    network: NetworkSettings | null;
    stored?: { [Name in keyof NetworkSettings]: string | null };
}

export type Phase =
    | 'off' // no line
    | 'opening'
    | 'asking' // who is there
    | 'ready' // the device answers
    | 'waiting' // for a device that restarts or was away
    | 'lost' // waits for the line to come back
    | 'trouble'; // see `trouble`

export interface State {
    phase: Phase;
    lineName: string;
    isDemo: boolean;
    /** Whether something can be sent, whoever is there. */
    isOpen: boolean;
    /** Changes with the line and with the device on it: what a screen keeps of the former one, it drops then. */
    deviceNumber: number;
    /** What it told last; kept while it is away. */
    device: DeviceInfo | null;
    /** What it did not tell, and why. */
    notes: readonly string[];
    trouble: { fault: Fault; message: string } | null;
    /** What has happened beside, until it is dismissed. */
    notice: { title: string; text: string } | null;
    /** What runs on the line now, for people, or "". */
    running: string;
    /** The latest update, under way or over. */
    update: UpdateState | null;
}

export interface RunOptions {
    /** What runs, for people, such as "Reading the network settings". */
    what: string;
    files?: ReadonlyMap<string, Uint8Array>;
    onOutput?: (line: string) => void;
    onMessage?: (line: string) => void;
}

export interface UpdateOptions {
    /** Send a file that is no program for the device. */
    isForced: boolean;
}

export interface Session {
    readonly state: State;
    readonly traffic: TrafficLog;

    /** Calls `listener` after each change of `state`. Returns what ends that. */
    subscribe(listener: () => void): () => void;

    /** Opens a line and asks who is there. A choice that fails leaves a line that is open as it is. */
    connect(choice: Transport | Promise<Transport>): Promise<void>;

    /** Ends what runs, and closes the line. */
    disconnect(): Promise<void>;

    /** Looks at once whether a line that was lost is back. */
    look(): void;

    /** Tries at once to open the line that could not be opened. */
    tryAgain(): Promise<void>;

    /** Forgets `state.notice`. */
    dismiss(): void;

    /** Asks again who is there; with `isStored` also for the stored network settings. */
    ask(isStored?: boolean): Promise<void>;

    /**
     * veskctl with arguments, on the line; after what runs already. Throws LineError if there is no line. Of a line
     * that is lost meanwhile the result tells.
     */
    run(args: readonly string[], options: RunOptions): Promise<Finished>;

    /** Sends a program to the device, and stays until it is known what has become of it. See `state.update`. */
    update(name: string, file: Uint8Array, options: UpdateOptions): Promise<void>;

    /** Forgets the latest update. Requires: it is over. */
    forgetUpdate(): void;

    /** Ctrl-C for what runs. A device that is waited for is waited for no longer. */
    cancel(): void;
}

/** Times in ms; shorter ones are for tests. */
export interface Times {
    /** From one look for a lost line to the next. */
    look: number;
    /** From one question to the next while the device is away. */
    ask: number;
    /** The device is given up when it has not answered for so long. */
    away: number;
}

function isWhole(device: DeviceInfo): boolean {
    return [device, device.network ?? {}, device.stored ?? {}].every((part) => !Object.values(part).includes(null));
}

const usualTimes: Times = { look: 1000, ask: 500, away: 60000 };
const quiet = 100; // ms without a byte: what has come is all of it
const idle = 3600000; // ms, of a read that only listens

function troubleOf(error: unknown): { fault: Fault; message: string } {
    if (error instanceof LineError) {
        return { fault: error.fault, message: error.message };
    }
    return { fault: 'failed', message: error instanceof Error ? error.message : String(error) };
}

// A line while the user has it.
interface Life {
    line: Transport;
    isOpen: boolean;
    inbox: Inbox | null; // of what runs
    error: LineError | null; // why it is not open any more
    received: number; // bytes
    serialNumber: number | null; // of the device that answered last
    listening: Promise<void>; // is over when nothing uses the line any more
}

// What the device has said to the question who it is.
interface Answer {
    change: Partial<State> & { phase: Phase };
    isStopped: boolean; // the user did not wait for it
}

const nothing: Omit<State, 'deviceNumber'> = {
    phase: 'off',
    lineName: '',
    isDemo: false,
    isOpen: false,
    device: null,
    notes: [],
    trouble: null,
    notice: null,
    running: '',
    update: null,
};

export function newSession(core: Core, times: Times = usualTimes): Session {
    const listeners = new Set<() => void>();
    const traffic = newTrafficLog(core);
    let state: State = { ...nothing, deviceNumber: 0 };
    let life: Life | null = null;
    let unopened: Transport | null = null; // the line that could not be opened
    let last: Promise<unknown> = Promise.resolve(); // the end of all runs so far
    let running: AbortController | null = null;
    let isGivenUp = false; // the device that is waited for
    let wake: (() => void) | null = null; // from pause()

    function set(change: Partial<State>): void {
        state = { ...state, ...change };
        listeners.forEach((listener) => listener());
    }

    function pause(milliseconds: number): Promise<void> {
        return new Promise((resolve) => {
            const timer = setTimeout(done, milliseconds);
            wake = done;
            function done(): void {
                clearTimeout(timer);
                wake = null;
                resolve();
            }
        });
    }

    // Reads all the time, so that nothing gets lost and a cable that is pulled is noticed between runs, too.
    async function listen(mine: Life): Promise<void> {
        try {
            for (let wait = idle; ;) {
                const bytes = await mine.line.read(wait);
                if (bytes.length === 0) {
                    traffic.flush();
                    wait = idle;
                    continue;
                }
                wait = quiet;
                mine.received += bytes.length;
                traffic.take('received', bytes);
                mine.inbox?.push(bytes);
            }
        } catch (error) {
            traffic.flush();
            mine.isOpen = false;
            mine.error = error instanceof LineError ? error : new LineError('lost', String(error));
            mine.inbox?.end(mine.error);
        }
        if (mine === life) {
            set({ isOpen: false });
        }
        if (mine === life && mine.error.fault !== 'closed') {
            await comeBack(mine);
        }
    }

    async function comeBack(mine: Life): Promise<void> {
        set({ phase: 'lost', trouble: { fault: 'lost', message: mine.error?.message ?? '' } });
        await last;
        await mine.line.close();
        while (mine === life) {
            try {
                await mine.line.open();
                break;
            } catch (error) {
                const trouble = troubleOf(error);
                if (mine === life && trouble.fault !== state.trouble?.fault) {
                    set({ trouble });
                }
                await pause(times.look);
            }
        }
        if (mine !== life) {
            await mine.line.close();
            return;
        }
        start(mine);
        isGivenUp = false;
        await settle();
    }

    function start(mine: Life): void {
        mine.isOpen = true;
        mine.error = null;
        set({ isOpen: true });
        mine.listening = listen(mine);
    }

    // The one place that decides when a restart is over: when the device answers who it is. After a line was lost the
    // same holds, as the device may have been without power, too. If the wait is given up, it is asked only once.
    async function settle(): Promise<void> {
        const mine = life;
        const end = Date.now() + times.away;
        set({ phase: 'waiting', trouble: null });
        for (;;) {
            const found = await question(false);
            if (mine === null || mine !== life || !mine.isOpen) {
                return;
            }
            if (found.change.phase === 'ready' || isGivenUp || Date.now() >= end) {
                accept(mine, found);
                return;
            }
            await pause(times.ask);
        }
    }

    // After a device was away, another one may answer.
    function accept(mine: Life, { change }: Answer): void {
        const before = mine.serialNumber;
        const now = change.device?.serial_number ?? null;
        if (state.phase !== 'ready' && before !== null && now !== null && now !== before) {
            set({
                deviceNumber: state.deviceNumber + 1,
                update: state.update?.step === 'over' ? null : state.update,
                notice: anotherDevice(core.serialNumberText(now), core.serialNumberText(before)),
            });
        }
        mine.serialNumber = now ?? before;
        set(change);
    }

    // Who is there, as a change of the state.
    async function question(isStored: boolean): Promise<Answer> {
        const mine = life;
        const before = mine?.received ?? 0;
        let finished: Finished;
        let device: DeviceInfo | undefined;
        try {
            finished = await run(['info', '--json', ...(isStored ? ['--stored'] : [])], {
                what: 'Asking the device',
            });
            device = objectsOf<DeviceInfo>(finished)[0];
        } catch (error) {
            return { change: { phase: 'trouble', trouble: troubleOf(error) }, isStopped: false };
        }
        const notes = sentencesOf(finished);
        const message = notes.join(' ');
        const { deviceType } = core.facts;
        if (device?.device_type === deviceType) {
            // It may have told all in the end, such as after an answer that came late.
            const untold = isWhole(device) ? [] : notes;
            return { change: { phase: 'ready', trouble: null, device, notes: untold }, isStopped: false };
        }
        if (device !== undefined && device.device_type !== null) {
            return trouble('stranger', `It says that its type is ${device.device_type}, not ${deviceType}.`);
        }
        if (finished.status === ExitStatus.interrupted) {
            return { ...trouble('silent', 'The wait for an answer was ended here.'), isStopped: true };
        }
        if (finished.status === ExitStatus.refused) {
            return trouble('refused', message);
        }
        if (finished.status === ExitStatus.noAnswer) {
            return trouble(mine !== null && mine.received > before ? 'stranger' : 'silent', message);
        }
        return trouble('failed', message);

        function trouble(fault: Fault, text: string): Answer {
            const change = { phase: 'trouble', trouble: { fault, message: text }, device: null, notes: [] } as const;
            return { change, isStopped: false };
        }
    }

    async function connect(choice: Transport | Promise<Transport>): Promise<void> {
        let line: Transport;
        try {
            line = await choice;
        } catch (error) {
            const trouble = troubleOf(error);
            if (life === null) {
                unopened = null;
                set({ ...nothing, phase: 'trouble', trouble });
            } else {
                const text = `${trouble.message} ${state.lineName} is used as before.`.trim();
                set({ notice: { title: adviceOn(trouble.fault).title, text } });
            }
            return;
        }
        await disconnect();
        const mine: Life = {
            line,
            isOpen: false,
            inbox: null,
            error: null,
            received: 0,
            serialNumber: null,
            listening: Promise.resolve(),
        };
        life = mine;
        traffic.clear(`A session of the page, vesk ${core.version}, on ${line.name}`);
        line.onDamage = (text) => {
            if (mine === life) {
                traffic.note(text);
            }
        };
        set({
            ...nothing,
            phase: 'opening',
            lineName: line.name,
            isDemo: line.isDemo,
            deviceNumber: state.deviceNumber + 1,
        });
        try {
            await line.open();
        } catch (error) {
            const trouble = troubleOf(error);
            if (mine === life && trouble.fault === 'lost') {
                mine.error = new LineError('lost', trouble.message);
                void comeBack(mine);
            } else if (mine === life) {
                life = null;
                unopened = line;
                set({ phase: 'trouble', trouble });
            }
            return;
        }
        if (mine !== life) {
            await line.close();
            return;
        }
        start(mine);
        await ask();
    }

    async function disconnect(): Promise<void> {
        const mine = life;
        life = null;
        unopened = null;
        isGivenUp = true;
        running?.abort();
        wake?.();
        await mine?.line.close(); // first, as it ends a write that hangs
        await last;
        await mine?.listening;
        if (life === null) {
            set({ ...nothing, deviceNumber: state.deviceNumber + 1 });
        }
    }

    async function ask(isStored = false): Promise<void> {
        const mine = life;
        const wasReady = state.phase === 'ready';
        if (!wasReady) {
            set({ phase: 'asking', trouble: null });
        }
        const found = await question(isStored);
        // Of a line that was lost meanwhile comeBack() tells. Who stops a refresh has the device all the same.
        if (mine !== null && mine === life && mine.isOpen && !(wasReady && found.isStopped)) {
            accept(mine, found);
        }
    }

    function run(args: readonly string[], options: RunOptions): Promise<Finished> {
        const finished = last.then(() => runNow(args, options));
        last = finished.catch(() => undefined);
        return finished;
    }

    async function runNow(args: readonly string[], options: RunOptions): Promise<Finished> {
        const mine = life;
        if (mine === null || !mine.isOpen) {
            throw mine?.error ?? new LineError('closed', 'There is no line.');
        }
        const inbox = newInbox();
        mine.inbox = inbox;
        running = new AbortController();
        set({ running: options.what });
        try {
            return await core.run(['--serial', mine.line.name, ...args], {
                ...options,
                signal: running.signal,
                line: {
                    read: (timeout) => inbox.read(timeout),
                    async write(bytes) {
                        // First, as the answer may be here before the line has told that all is sent.
                        traffic.take('sent', bytes);
                        await mine.line.write(bytes);
                    },
                },
            });
        } finally {
            mine.inbox = null;
            running = null;
            set({ running: '' });
        }
    }

    async function update(name: string, file: Uint8Array, options: UpdateOptions): Promise<void> {
        const mine = life;
        isGivenUp = false;
        const steps = newUpdate(core, name, file, (each) => {
            if (mine === life) {
                set({ update: each });
            }
        });
        const args = ['update', '--progress', 'json', ...(options.isForced ? ['--force'] : []), 'program'];
        try {
            const finished = await run(args, {
                what: 'Updating the device',
                files: new Map([['program', file]]),
                onOutput: (output) => objectsOf<UpdateEvent>({ output }).forEach(steps.onEvent),
                onMessage: (messages) => sentencesOf({ messages }).forEach(steps.onMessage),
            });
            steps.onEnd(finished);
        } catch (error) {
            steps.onFailure(troubleOf(error).message);
        }
        if (mine !== null && mine === life && mine.isOpen) {
            if (steps.isCertain()) {
                await ask();
            } else {
                // Who cancels the sending wants to know all the same who is there then.
                isGivenUp &&= steps.mayHaveAll();
                await settle();
            }
        }
        steps.onSettled();
    }

    return {
        get state() {
            return state;
        },
        traffic,
        subscribe(listener) {
            listeners.add(listener);
            return () => listeners.delete(listener);
        },
        connect,
        disconnect,
        look: () => wake?.(),
        async tryAgain() {
            wake?.();
            if (unopened !== null) {
                await connect(unopened);
            }
        },
        dismiss: () => set({ notice: null }),
        ask,
        run,
        update,
        forgetUpdate: () => set({ update: null }),
        cancel() {
            isGivenUp = true;
            running?.abort();
            wake?.();
        },
    };
}
