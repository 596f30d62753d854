// A Transport for tests: a far end that answers by a script.

import { newInbox, type Inbox } from './inbox.ts';
import { LineError, type Transport } from './transport.ts';

export interface MockLine extends Transport {
    /** The far end says these bytes. */
    say(bytes: Uint8Array): void;

    /** All that was written since it was made. */
    heard(): Uint8Array;

    /** Each time it is opened from now on, or with null no longer, this is thrown. */
    refuse(error: LineError | null): void;

    unplug(): void;
    plug(): void;
}

/** What the far end says to each write, or null for silence. */
export type Script = (bytes: Uint8Array) => Uint8Array | null;

export function mockLine(script: Script = () => null, name = 'Mock'): MockLine {
    let inbox: Inbox | null = null;
    let isThere = true;
    let refusal: LineError | null = null;
    const written: number[] = [];

    const lost = () => new LineError('lost', 'Mock was unplugged.');
    const closed = () => new LineError('closed', 'Mock is closed.');

    return {
        name,
        isDemo: false,
        async open() {
            if (refusal !== null) {
                throw refusal;
            }
            if (!isThere) {
                throw lost();
            }
            inbox = newInbox();
        },
        async write(bytes) {
            if (inbox === null) {
                throw closed();
            }
            if (!isThere) {
                throw lost();
            }
            written.push(...bytes);
            const mine = inbox;
            const answer = script(bytes);
            if (answer !== null) {
                setTimeout(() => mine.push(answer), 1);
            }
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
        say(bytes) {
            inbox?.push(bytes);
        },
        heard() {
            return Uint8Array.from(written);
        },
        refuse(error) {
            refusal = error;
        },
        unplug() {
            isThere = false;
            inbox?.end(lost());
        },
        plug() {
            isThere = true;
        },
    };
}
