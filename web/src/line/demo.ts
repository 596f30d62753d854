// The demo device: the daemon itself, as WebAssembly (web/core/demo), at the far end of a virtual line.

import { startProgram, type DemoFiles, type DemoProgram } from './demo_program.ts';
import { LineError, type Transport } from './transport.ts';

/** A device that lives as long as the page. Closing its line does not switch it off, and it keeps its settings. */
export interface DemoDevice extends Transport {
    /** The daemon's messages, while they come. */
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

const BYTES_PER_SECOND = 11520; // 115200 bits/s with a start and a stop bit
const RESTART_MS = 2000; // what a board takes to start its program again
const PIECE = 512; // bytes that arrive at once
const AHEAD_MS = 20; // so much may be sent ahead of its time, as timers are not exact
const AT_ONCE = 2048; // of the 4095 bytes that the device can hold before it looks at them

const nothing = new Uint8Array(0);

async function loadModule(): Promise<WebAssembly.Module> {
    const url = new URL('../../../build/web/core/demo/vesk_demo.wasm', import.meta.url);
    const answer = await fetch(url);
    if (!answer.ok) {
        throw new Error(`the demo device could not be loaded: ${answer.status} ${url.pathname}`);
    }
    return WebAssembly.compile(await answer.arrayBuffer());
}

function joined(pieces: readonly Uint8Array[]): Uint8Array {
    const all = new Uint8Array(pieces.reduce((length, piece) => length + piece.length, 0));
    let at = 0;
    for (const piece of pieces) {
        all.set(piece, at);
        at += piece.length;
    }
    return all;
}

/** Is over when the device is in service. */
export async function demoDevice(options: DemoOptions = {}): Promise<DemoDevice> {
    const module = options.module ?? (await loadModule());
    const bytesPerSecond = options.bytesPerSecond ?? BYTES_PER_SECOND;

    // The device.
    let program: DemoProgram | null = null; // null while it restarts
    let files: DemoFiles = new Map(); // what its disk had when the program ended

    // The near end of the line.
    let state: 'open' | 'closed' | 'lost' = 'closed';
    let isPlugged = true;
    let arrived: Uint8Array[] = []; // from the device, not read yet
    let wakeReader: (() => void) | null = null;
    let writing: Promise<void> = Promise.resolve(); // the writes so far
    let freeAt = 0; // when the line has carried all that was written

    function log(line: string): void {
        device.onLog?.(line);
    }

    function fault(): LineError {
        return state === 'lost'
            ? new LineError('lost', 'the demo device was unplugged')
            : new LineError('closed', 'the line to the demo device is closed');
    }

    function leave(next: 'closed' | 'lost'): void {
        state = next;
        wakeReader?.();
    }

    function start(): Promise<void> {
        return new Promise((resolve, reject) => {
            startProgram(module, files, {
                send(bytes) {
                    if (state === 'open') {
                        arrived.push(bytes);
                        wakeReader?.();
                    }
                },
                say(line) {
                    log(line);
                    if (line === 'enter main') {
                        resolve();
                    }
                },
                // What a board does when its program ends. The program that starts is this WebAssembly again, also
                // after an update.
                ended(left, why) {
                    program = null;
                    files = left;
                    log(`demo: ${why}; it starts again in ${RESTART_MS / 1000} s`);
                    setTimeout(() => void start(), RESTART_MS);
                },
            }).then((started) => {
                program = started;
            }, reject);
        });
    }

    async function carry(bytes: Uint8Array): Promise<void> {
        let sinceWait = 0;
        for (let at = 0; at < bytes.length; at += PIECE) {
            if (state !== 'open') {
                throw fault();
            }
            const piece = bytes.subarray(at, at + PIECE);
            program?.receive(piece); // lost while the device restarts, as on a board
            const now = performance.now();
            freeAt = Math.max(freeAt, now) + (1000 * piece.length) / bytesPerSecond;
            sinceWait += piece.length;
            if (freeAt - now > AHEAD_MS || sinceWait >= AT_ONCE) {
                await new Promise((resolve) => setTimeout(resolve, freeAt - now));
                sinceWait = 0;
            }
        }
    }

    const device: DemoDevice = {
        name: 'Demo device',
        isDemo: true,
        onLog: null,

        async open() {
            if (!isPlugged) {
                throw new LineError('lost', 'the demo device is unplugged');
            }
            arrived = [];
            state = 'open';
        },

        write(bytes) {
            if (state !== 'open') {
                return Promise.reject(fault());
            }
            const copy = bytes.slice();
            const written = writing.then(() => carry(copy));
            writing = written.catch(() => undefined);
            return written;
        },

        async read(timeout) {
            if (arrived.length === 0 && state === 'open' && timeout > 0) {
                await new Promise<void>((resolve) => {
                    const timer = setTimeout(resolve, timeout);
                    wakeReader = () => {
                        clearTimeout(timer);
                        resolve();
                    };
                });
                wakeReader = null;
            }
            if (arrived.length > 0) {
                const bytes = joined(arrived);
                arrived = [];
                return bytes;
            }
            if (state !== 'open') {
                throw fault();
            }
            return nothing;
        },

        async close() {
            arrived = [];
            leave('closed');
        },

        unplug() {
            isPlugged = false;
            if (state === 'open') {
                leave('lost');
            }
        },

        plug() {
            isPlugged = true;
        },
    };
    await start();
    return device;
}
