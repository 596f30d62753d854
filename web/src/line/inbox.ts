// What has arrived on a line and was not read yet. It makes a Transport's read() out of bytes that come when they come.

import type { LineError } from './transport.ts';

export interface Inbox {
    push(bytes: Uint8Array): void;

    /** Ends it: what is in it can still be read, and after that read() throws `error`. The first end counts. */
    end(error: LineError): void;

    /** As Transport.read(). */
    read(timeout: number): Promise<Uint8Array>;
}

function joined(chunks: readonly Uint8Array[]): Uint8Array {
    const all = new Uint8Array(chunks.reduce((sum, chunk) => sum + chunk.length, 0));
    let at = 0;
    for (const chunk of chunks) {
        all.set(chunk, at);
        at += chunk.length;
    }
    return all;
}

export function newInbox(): Inbox {
    let chunks: Uint8Array[] = [];
    let error: LineError | null = null;
    let wake: (() => void) | null = null; // of the read that waits

    // Without a timer if nothing must be waited for: timers of a page in the background are slow.
    function waitForBytes(timeout: number): Promise<void> {
        return new Promise((resolve) => {
            const timer = setTimeout(done, timeout);
            wake = done;
            function done(): void {
                clearTimeout(timer);
                wake = null;
                resolve();
            }
        });
    }

    return {
        push(bytes) {
            if (bytes.length > 0) {
                chunks.push(bytes);
                wake?.();
            }
        },
        end(reason) {
            error ??= reason;
            wake?.();
        },
        async read(timeout) {
            if (chunks.length === 0 && error === null && timeout > 0) {
                await waitForBytes(timeout);
            }
            if (chunks.length === 0 && error !== null) {
                throw error;
            }
            const all = joined(chunks);
            chunks = [];
            return all;
        },
    };
}
