// An update of the device's program, as what `update --progress json` prints tells it.

import { ExitStatus, type Core, type Finished } from './core/core.ts';
import { messageOf } from './core/lines.ts';

/** docs/schema/update.schema.json. */
export type UpdateEvent = UpdateProgress | UpdateFollowing | UpdateResult;

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

/** The last block goes out: from here on the device may have it. */
export interface UpdateFollowing {
    event: 'following';
    blocks: number;
    done: number;
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
    /** What to do, a sentence each. */
    next: readonly string[];
    version?: string;
}

export interface UpdateState {
    name: string;
    /** The version that stands in the file, or "". */
    version: string;
    blocks: number;
    /** `restarting`: the last block is on its way, or all are there. `settling`: the device is asked who it is. */
    step: 'asking' | 'sending' | 'restarting' | 'settling' | 'over';
    progress: UpdateProgress | null;
    result: UpdateResult | null;
    /** What went wrong on the way, such as a block that was sent again. */
    messages: readonly string[];
}

/** Until it is known what has become of it. The line is needed so long, and nothing else can be sent. */
export function isUnderWay(update: UpdateState | null): update is UpdateState {
    return update !== null && update.step !== 'over';
}

export interface Update {
    onEvent(event: UpdateEvent): void;
    onMessage(message: string): void;
    onEnd(finished: Finished): void;
    /** It could not be begun, or the core has failed. */
    onFailure(message: string): void;
    onSettled(): void;

    /** Whether the device may have got the last block. */
    mayHaveAll(): boolean;

    /** Whether the device has answered at the end, or was silent from the beginning. */
    isCertain(): boolean;
}

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
    let isFollowed = false;

    function set(change: Partial<UpdateState>): void {
        state = { ...state, ...change };
        tell(state);
    }

    // Without a result of the tool.
    function fail(message: string): void {
        set({
            result: {
                event: 'result',
                outcome: isFollowed ? 'unknown' : 'failed',
                status: ExitStatus.localFailure,
                blocks: state.blocks,
                done: state.progress?.done ?? 0,
                seconds: state.progress?.seconds ?? 0,
                sent_again: state.progress?.sent_again ?? 0,
                message,
                next: [],
            },
        });
    }

    tell(state);
    return {
        onEvent(event) {
            switch (event.event) {
                case 'progress':
                    set({ progress: event, blocks: event.blocks, step: isFollowed ? 'restarting' : 'sending' });
                    break;
                case 'following':
                    isFollowed = true;
                    set({ blocks: event.blocks, step: 'restarting' });
                    break;
                case 'result':
                    set({ result: event, blocks: event.blocks });
                    break;
            }
        },
        onMessage(message) {
            set({ messages: [...state.messages, message] });
        },
        onEnd(finished) {
            if (state.result === null) {
                fail(messageOf(finished));
            }
            set({ step: 'settling' });
        },
        onFailure: fail,
        onSettled() {
            set({ step: 'over' });
        },
        mayHaveAll: () => isFollowed,
        isCertain: () => ['old program', 'no answer', 'dry run'].includes(state.result?.outcome ?? ''),
    };
}
