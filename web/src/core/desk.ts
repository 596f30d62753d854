// What a run of the tool has of the page's line: web/core/line.cpp calls it.

import type { CoreLine } from './core.ts';

/** As in web/core/line.h. */
export enum Arrival {
    nothing = 0,
    bytes = 1,
    end = 2,
    interruption = 3,
}

export interface Desk {
    readonly hasLine: boolean;
    /** Gives "", or why the line is lost. What is under way when the user interrupts goes on by itself. */
    send(bytes: Uint8Array): Promise<string>;
    arrival(forBytes: boolean, timeout: number): Promise<Arrival>;
    /** Up to `size` bytes that have arrived. */
    take(size: number): Uint8Array;
    /** Is over when no read is under way any more. */
    leave(): Promise<void>;
}

// No read takes longer, so that an interrupted run does not keep the line for long.
const SLICE = 100;

function textOf(error: unknown): string {
    const text = error instanceof Error ? error.message : String(error);
    return text.replace(/\.$/, '') || 'lost'; // "" is the good end; the tool goes on after it
}

export function newDesk(line: CoreLine | undefined, signal: AbortSignal | undefined): Desk {
    let arrived: Uint8Array = new Uint8Array();
    let isLost = false;
    let reading: Promise<void> | null = null;

    async function read(timeout: number): Promise<void> {
        try {
            arrived = await line!.read(timeout); // is empty before
        } catch {
            isLost = true;
        } finally {
            reading = null;
        }
    }

    /** Is over when `what` is, when the time is, or when the user interrupts. */
    async function until(what: Promise<void> | null, timeout: number): Promise<void> {
        let timer: ReturnType<typeof setTimeout> | undefined;
        let stop = () => {};
        const ends: Promise<void>[] = [
            new Promise((resolve) => {
                stop = resolve;
                signal?.addEventListener('abort', stop);
            }),
        ];
        if (what !== null) {
            ends.push(what);
        } else {
            ends.push(new Promise((resolve) => (timer = setTimeout(resolve, timeout))));
        }
        await Promise.race(ends);
        clearTimeout(timer);
        signal?.removeEventListener('abort', stop);
    }

    return {
        hasLine: line !== undefined,

        async send(bytes) {
            if (signal?.aborted) {
                return ''; // the tool hears of it when it next waits
            }
            let fault = '';
            const writing = line!.write(bytes).catch((error: unknown) => {
                isLost = true;
                fault = textOf(error);
            });
            await until(writing, 0);
            return fault;
        },

        async arrival(forBytes, timeout) {
            const end = performance.now() + timeout;
            let isFirst = true;
            for (;;) {
                if (signal?.aborted) {
                    return Arrival.interruption;
                }
                if (forBytes && arrived.length > 0) {
                    return Arrival.bytes;
                }
                if (forBytes && isLost) {
                    return Arrival.end;
                }
                const left = Math.ceil(end - performance.now());
                if (left <= 0 && !isFirst) {
                    return Arrival.nothing;
                }
                isFirst = false;
                if (forBytes) {
                    reading ??= read(Math.max(0, Math.min(left, SLICE)));
                }
                await until(reading, Math.max(0, left));
            }
        },

        take(size) {
            const taken = arrived.slice(0, size);
            arrived = arrived.slice(size);
            return taken;
        },

        async leave() {
            await reading;
        },
    };
}
