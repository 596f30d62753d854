// The demo device: the daemon itself, as WebAssembly (web/core/demo), at the far end of a virtual line.

import type { Transport } from './transport.ts';

/** A device that lives as long as the page. Closing its line does not switch it off, and it keeps its settings. */
export interface DemoDevice extends Transport {
    /** The daemon's messages, while they come. */
    onLog: ((line: string) => void) | null;

    /** As if its cable were pulled: the line is lost, and cannot be opened until plug(). */
    unplug(): void;
    plug(): void;
}
