// What a run has of a line: above all that an interrupted one does not wait for it.

import { expect, test } from 'vitest';

import type { CoreLine } from './core.ts';
import { Arrival, newDesk } from './desk.ts';

function lineWith(write: CoreLine['write']): CoreLine {
    return { write, read: () => new Promise(() => undefined) };
}

test('what is sent has been written', async () => {
    let isWritten = false;
    const desk = newDesk(
        lineWith(async () => {
            await new Promise((resolve) => setTimeout(resolve, 5));
            isWritten = true;
        }),
        undefined,
    );
    expect(await desk.send(new Uint8Array(1))).toBe('');
    expect(isWritten).toBe(true);
});

test('why it could not be sent', async () => {
    const fails = (text: string) => newDesk(lineWith(() => Promise.reject(new Error(text))), undefined);
    expect(await fails('gone').send(new Uint8Array(1))).toBe('gone');
    expect(await fails('The adapter is gone.').send(new Uint8Array(1))).toBe('The adapter is gone');
    expect(await fails('').send(new Uint8Array(1))).toBe('lost');
});

test('who interrupts waits for no write that hangs', async () => {
    const stop = new AbortController();
    const desk = newDesk(lineWith(() => new Promise(() => undefined)), stop.signal);
    setTimeout(() => stop.abort(), 5);
    expect(await desk.send(new Uint8Array(1))).toBe('');
    expect(await desk.arrival(true, 60000)).toBe(Arrival.interruption);
});

test('a write that fails after the interruption troubles nobody', async () => {
    const stop = new AbortController();
    const failing = new Promise<void>((_, reject) => setTimeout(() => reject(new Error('gone')), 10));
    const desk = newDesk(lineWith(() => failing), stop.signal);
    setTimeout(() => stop.abort(), 2);
    expect(await desk.send(new Uint8Array(1))).toBe('');
    await new Promise((resolve) => setTimeout(resolve, 20));
});

test('after an interruption nothing more is written', async () => {
    let writes = 0;
    const desk = newDesk(
        lineWith(async () => {
            writes += 1;
        }),
        AbortSignal.abort(),
    );
    expect(await desk.send(new Uint8Array(1))).toBe('');
    expect(writes).toBe(0);
});
