// The demo device: the daemon itself, as WebAssembly (web/core/demo), at the far end of a virtual line.

import { startProgram, type DemoFiles, type DemoProgram } from './demo_program.ts';
import { newInbox, type Inbox } from './inbox.ts';
import { LineError, type Transport } from './transport.ts';

/** A device that lives as long as the page. Closing its line does not switch it off, and it keeps its settings. */
export interface DemoDevice extends Transport {
    /** The daemon's messages, while they come. A new listener first hears the last of those before it. */
    onLog: ((line: string) => void) | null;

    /** As if its cable were pulled: the line is lost, and cannot be opened until plug(). */
    unplug(): void;
    plug(): void;
}

export interface DemoOptions {
    /** The compiled web/core/demo. If not given, it is loaded from where the page is. */
    module?: WebAssembly.Module;

    /** How fast the line carries bytes to the device. */
    bytesPerSecond?: number;
}

const usualRate = 11520; // bytes a second: 115200 bits/s with a start and a stop bit
const restartTime = 2000; // ms: what a board takes to start its program again
const mostSaid = 100; // lines kept for a new listener
const pieceLength = 512; // bytes that arrive at once
const ahead = 20; // ms: so much may be sent ahead of its time, as timers are not exact
const atOnce = 2048; // bytes, of the 4095 bytes that the device can hold before it looks at them

async function loadModule(): Promise<WebAssembly.Module> {
    const url = new URL('../../../build/web/demo/vesk_demo.wasm', import.meta.url);
    const answer = await fetch(url);
    if (!answer.ok) {
        throw new Error(`the demo device could not be loaded: ${answer.status} ${url.pathname}`);
    }
    return WebAssembly.compile(await answer.arrayBuffer());
}

/** Is over when the device is in service. */
export async function demoDevice(options: DemoOptions = {}): Promise<DemoDevice> {
    const module = options.module ?? (await loadModule());
    const bytesPerSecond = options.bytesPerSecond ?? usualRate;

    // The device.
    let program: DemoProgram | null = null; // null while it restarts
    let files: DemoFiles = new Map(); // what its disk had when the program ended

    // The near end of the line.
    let isPlugged = true;
    let inbox: Inbox | null = null; // while it is open
    let pulled: Inbox | null = null; // the one that was open when the cable was pulled
    let writing: Promise<void> = Promise.resolve(); // the writes so far
    let freeAt = 0; // when the line has carried all that was written

    let listener: ((line: string) => void) | null = null;
    let said: string[] = []; // the last lines

    const lost = () => new LineError('lost', 'The demo device is unplugged.');
    const closed = () => new LineError('closed', 'The line to the demo device is closed.');

    function log(line: string): void {
        said = [...said, line].slice(-mostSaid);
        listener?.(line);
    }

    async function start(): Promise<void> {
        let isInService: () => void;
        const inService = new Promise<void>((resolve) => (isInService = resolve));
        program = await startProgram(module, files, {
            send: (bytes) => inbox?.push(bytes),
            say(line) {
                log(line);
                if (line === 'enter main') {
                    isInService();
                }
            },
            // What a board does when its program ends. The program that starts is this WebAssembly again, also after
            // an update.
            ended(left, why) {
                program = null;
                files = left;
                log(`demo: ${why}; it starts again in ${restartTime / 1000} s`);
                setTimeout(() => start().catch((error: unknown) => log(`demo: ${String(error)}`)), restartTime);
            },
        });
        await inService;
    }

    async function carry(bytes: Uint8Array, opened: Inbox): Promise<void> {
        let sinceWait = 0;
        for (let at = 0; at < bytes.length; at += pieceLength) {
            if (opened === pulled) {
                throw lost();
            }
            if (opened !== inbox) {
                throw closed();
            }
            const piece = bytes.subarray(at, at + pieceLength);
            program?.receive(piece); // lost while the device restarts, as on a board
            const now = performance.now();
            freeAt = Math.max(freeAt, now) + (1000 * piece.length) / bytesPerSecond;
            sinceWait += piece.length;
            if (freeAt - now > ahead || sinceWait >= atOnce) {
                await new Promise((resolve) => setTimeout(resolve, freeAt - now));
                sinceWait = 0;
            }
        }
    }

    const device: DemoDevice = {
        name: 'Demo device',
        isDemo: true,

        get onLog() {
            return listener;
        },
        set onLog(next) {
            listener = next;
            said.forEach((line) => next?.(line));
        },

        async open() {
            if (!isPlugged) {
                throw lost();
            }
            inbox = newInbox();
        },

        async write(bytes) {
            const opened = inbox;
            if (opened === null) {
                throw closed();
            }
            const copy = bytes.slice();
            const written = writing.then(() => carry(copy, opened));
            writing = written.catch(() => undefined);
            return written;
        },

        async read(timeout) {
            if (inbox === null) {
                throw closed();
            }
            return inbox.read(timeout);
        },

        async close() {
            inbox?.end(closed());
            inbox = null;
        },

        unplug() {
            isPlugged = false;
            pulled = inbox;
            inbox?.end(lost());
        },

        plug() {
            isPlugged = true;
        },
    };
    await start();
    return device;
}
