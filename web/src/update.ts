// An update of the device's program, as what `update --progress json` prints tells it.

import type { Core, Finished } from './core/core.ts';

/** docs/schema/update.schema.json. */
export type UpdateEvent = UpdateProgress | UpdateResult;

export interface UpdateProgress {
    event: 'progress';
    blocks: number;
    done: number;
    bytes: number;
    bytes_per_s: number;
    seconds: number;
    seconds_left: number;
    sent_again: number;
}

export type Outcome =
    | 'restarted'
    | 'old program'
    | 'absent'
    | 'unknown'
    | 'dry run'
    | 'no answer'
    | 'given up'
    | 'interrupted'
    | 'failed';

export interface UpdateResult {
    event: 'result';
    outcome: Outcome;
    status: number;
    blocks: number;
    done: number;
    seconds: number;
    sent_again: number;
    message: string;
    version?: string;
}

export interface UpdateState {
    name: string;
    /** The version that stands in the file, or "". */
    version: string;
    blocks: number;
    /** `restarting`: all blocks are with the device. `settling`: what has become of it is asked for. */
    step: 'asking' | 'sending' | 'restarting' | 'settling' | 'over';
    progress: UpdateProgress | null;
    result: UpdateResult | null;
    /** What went wrong on the way, such as a block that was sent again. */
    messages: readonly string[];
}

export interface Update {
    onEvent(event: UpdateEvent): void;
    onMessage(message: string): void;
    onSent(bytes: Uint8Array): void;
    onEnd(finished: Finished): void;
    /** It could not be begun. */
    onFailure(message: string): void;
    onSettled(): void;

    /** Whether the device may have got the last block. */
    isRestartLikely(): boolean;
}

/** Requires of a block's frame, block and sum together: they are longer than this, and nothing else is. */
const block = 1024;

export function newUpdate(core: Core, name: string, file: Uint8Array, tell: (state: UpdateState) => void): Update {
    const isProgram = core.faultOfProgram(file) === '';
    let state: UpdateState = {
        name,
        version: core.versionOf(file),
        blocks: isProgram ? core.blocksOf(file) : 0,
        step: 'asking',
        progress: null,
        result: null,
        messages: [],
    };
    let sent = 0; // blocks, repeated ones included
    let again = 0; // of these

    function set(change: Partial<UpdateState>): void {
        state = { ...state, ...change };
        tell(state);
    }

    function fail(message: string): void {
        const done = state.progress?.done ?? 0;
        const result = {
            outcome: 'failed',
            status: 4,
            blocks: state.blocks,
            done,
            seconds: 0,
            sent_again: again,
        } as const;
        set({ result: { event: 'result', ...result, message } });
    }

    tell(state);
    return {
        onEvent(event) {
            if (event.event === 'result') {
                set({ result: event, blocks: event.blocks });
                return;
            }
            again = event.sent_again;
            set({ progress: event, blocks: event.blocks });
        },
        onMessage(message) {
            if (message.includes('--force')) {
                return; // the user has just said so
            }
            set({ messages: [...state.messages, message] });
        },
        // veskctl prints nothing between the last block and the end.
        onSent(bytes) {
            if (bytes.length <= block) {
                return;
            }
            sent += 1;
            const isLast = state.blocks > 0 && sent - again >= state.blocks;
            if (isLast && state.step !== 'restarting') {
                set({ step: 'restarting' });
            } else if (!isLast && state.step === 'asking') {
                set({ step: 'sending' });
            }
        },
        onEnd(finished) {
            if (state.result === null) {
                fail(finished.messages.replace(/^veskctl: /gm, '').trim());
            }
            set({ step: 'settling' });
        },
        onFailure: fail,
        onSettled() {
            set({ step: 'over' });
        },
        isRestartLikely() {
            return ['restarted', 'absent', 'unknown'].includes(state.result?.outcome ?? '');
        },
    };
}
