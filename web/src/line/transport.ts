// A line to a device: a serial port of the browser, the demo device, or a mock in a test. Bytes only; what they mean is
// the core's business.

/** Why a line cannot be used. Each has a text for people in view of the one that failed: see `adviceOn` in advice.ts. */
export type LineFault =
    | 'unsupported' // this browser has no serial ports
    | 'none' // nothing was chosen
    | 'denied' // the browser or its user does not permit it
    | 'busy' // another program has it
    | 'lost' // it was unplugged
    | 'closed'; // it was closed on this side

export class LineError extends Error {
    constructor(
        readonly fault: LineFault,
        message: string,
    ) {
        super(message);
        this.name = 'LineError';
    }
}

/** The contract that src/line/contract.ts tests of every kind. */
export interface Transport {
    /** What the user chose, such as "USB 0403:6001" or "Demo device". */
    readonly name: string;

    readonly isDemo: boolean;

    /** Is called with a sentence for people when bytes got damaged or lost on the way, where the line can tell. */
    onDamage?: ((text: string) => void) | null;

    /** Opens it at 115200 bits/s, 8N1. Throws LineError. Requires: it is not open. */
    open(): Promise<void>;

    /** Is over when the bytes have been handed to the line. Throws LineError. */
    write(bytes: Uint8Array): Promise<void>;

    /**
     * What has arrived and was not read yet, in order and without loss. If there is nothing, waits up to `timeout`
     * milliseconds for the first bytes; empty if none came. Throws LineError as soon as the line is lost or closed,
     * after everything that had arrived was read. Requires: no other read is under way.
     */
    read(timeout: number): Promise<Uint8Array>;

    /** A read that is under way throws LineError 'closed'. It can be opened again. Never throws. */
    close(): Promise<void>;
}
