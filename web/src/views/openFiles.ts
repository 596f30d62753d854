// The files that are open. Files on the computer never change: a change makes a new copy here, and the former copies are
// kept for taking it back.

import type { SavFile } from '../files.ts';

export interface OpenSav {
    id: number;
    /** As it was opened. */
    original: SavFile;
    /** As it is now. */
    file: SavFile;
    /** As it was before each change. */
    past: readonly SavFile[];
    /** What was saved last, or what was opened. */
    saved: SavFile;
}

export interface OpenFiles {
    files: readonly OpenSav[];
    chosen: number;
    nextId: number;
}

export const noFiles: OpenFiles = { files: [], chosen: 0, nextId: 1 };

/** Something would be lost if the file were closed now. */
export function isUnsaved({ file, saved }: OpenSav): boolean {
    return file !== saved;
}

export function added(state: OpenFiles, file: SavFile): OpenFiles {
    const open: OpenSav = { id: state.nextId, original: file, file, past: [], saved: file };
    return { files: [...state.files, open], chosen: open.id, nextId: state.nextId + 1 };
}

function replaced(state: OpenFiles, id: number, change: (open: OpenSav) => OpenSav): OpenFiles {
    return { ...state, files: state.files.map((open) => (open.id === id ? change(open) : open)) };
}

export function edited(state: OpenFiles, id: number, file: SavFile): OpenFiles {
    return replaced(state, id, (open) => ({ ...open, file, past: [...open.past, open.file] }));
}

export function takenBack(state: OpenFiles, id: number): OpenFiles {
    return replaced(state, id, (open) => ({ ...open, file: open.past.at(-1) ?? open.file, past: open.past.slice(0, -1) }));
}

export function saved(state: OpenFiles, id: number): OpenFiles {
    return replaced(state, id, (open) => ({ ...open, saved: open.file }));
}

export function closed(state: OpenFiles, id: number): OpenFiles {
    const files = state.files.filter((open) => open.id !== id);
    return { ...state, files, chosen: state.chosen === id ? (files.at(-1)?.id ?? 0) : state.chosen };
}
