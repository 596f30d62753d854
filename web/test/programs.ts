// Programs to update a device with.

import { readFileSync } from 'node:fs';

import { daemonPath } from './board.ts';

/** The daemon that the simulated board runs. It is for this computer and not for a device, which the page says. */
export function programForBoard(): Buffer {
    return readFileSync(daemonPath());
}

/** What passes for a program for a device: a head for 32-bit ARM and one part, which begins at its first byte. */
export function programForDevice(bytes: number): Buffer {
    const program = Buffer.alloc(bytes, 'vesk ');
    program.set([0x7f, 0x45, 0x4c, 0x46, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0]);
    const head = [2, 40]; // an executable, for ARM
    head.forEach((value, index) => program.writeUInt16LE(value, 16 + 2 * index));
    const words = [1, 0x10000, 52, 0, 0]; // version, where it begins, the parts' list, no sections, flags
    words.forEach((value, index) => program.writeUInt32LE(value, 20 + 4 * index));
    const lengths = [52, 32, 1, 0, 0, 0]; // of this head, of a part's; one part, no sections
    lengths.forEach((value, index) => program.writeUInt16LE(value, 40 + 2 * index));
    const part = [1, 0, 0x10000, 0x10000, bytes, bytes, 5, 0x1000]; // loaded from the file's start, to be run
    part.forEach((value, index) => program.writeUInt32LE(value, 52 + 4 * index));
    return program;
}
