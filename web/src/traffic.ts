// What has passed over the line, as frames in words and for a transcript.

import type { Core, Piece } from './core/core.ts';

export type Direction = 'sent' | 'received';

export interface Passage {
    /** Never given twice. */
    id: number;
    /** Milliseconds, as Date.now() has them. */
    at: number;
    direction: Direction;
    piece: Piece;
}

export interface TrafficLog {
    /** The latest ones, the oldest first. Another array after each change. */
    passages(): readonly Passage[];

    take(direction: Direction, bytes: Uint8Array): void;

    /** For use when the line is quiet. */
    flush(): void;

    /** What has happened to the line itself, as a sentence. A transcript has no place for it. */
    note(text: string): void;

    /** What passed since the latest clear(), for `veskctl play`. */
    transcript(): string;

    /** `about` is what the next transcript says of itself; without it the same as before. */
    clear(about?: string): void;
    subscribe(listener: () => void): () => void;
}

export const mostPassages = 2000;

/** What a transcript has room for: more than twice a usual update. */
const mostRecorded = 16 * 1024 * 1024;

export function newTrafficLog(core: Core, now: () => number = Date.now): TrafficLog {
    const listeners = new Set<() => void>();
    const sent = core.newTraffic();
    const received = core.newTraffic();
    let passages: readonly Passage[] = [];
    let next = 0;
    let about = 'A session of the page';
    let recorder = core.newRecorder(about);
    let recorded = 0; // bytes
    let began = 0; // when the bytes that `received` holds back have come

    function add(direction: Direction, at: number, pieces: readonly Piece[]): void {
        if (pieces.length > 0) {
            const added = pieces.map((piece) => ({ id: next++, at, direction, piece }));
            passages = [...passages, ...added].slice(-mostPassages);
            listeners.forEach((listener) => listener());
        }
    }

    function flush(): void {
        add('received', began || now(), received.flush());
        began = 0;
    }

    return {
        passages: () => passages,
        take(direction, bytes) {
            recorded += bytes.length;
            if (recorded <= mostRecorded) {
                recorder.take(direction, bytes);
            }
            if (direction === 'sent') {
                flush(); // frames often arrive in parts, but not across a command
                add('sent', now(), [...sent.feed(bytes), ...sent.flush()]);
                return;
            }
            began ||= now();
            const pieces = received.feed(bytes);
            if (pieces.length > 0) {
                add('received', began, pieces);
                began = now();
            }
        },
        flush,
        note(text) {
            flush();
            add('received', now(), [{ isFrame: false, text: '', hex: '', meaning: text, kind: 'damaged' }]);
        },
        transcript() {
            return recorded <= mostRecorded ? recorder.text() : `${recorder.text()}# What followed was too much.\n`;
        },
        clear(next) {
            about = next ?? about;
            recorder = core.newRecorder(about);
            recorded = 0;
            passages = [];
            listeners.forEach((listener) => listener());
        },
        subscribe(listener) {
            listeners.add(listener);
            return () => listeners.delete(listener);
        },
    };
}
