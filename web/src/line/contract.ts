// What every Transport must do: one table of cases, run over each of them with a far end that answers questions for the
// device type as the device does.

import { LineError, type LineFault, type Transport } from './transport.ts';

/** A line that is not open yet, and its far end. */
export interface Bench {
    line: Transport;
    unplug(): void | Promise<void>;
    plug(): void | Promise<void>;
}

export interface Case {
    name: string;
    run(bench: Bench): Promise<void>;
}

const encoder = new TextEncoder();
const decoder = new TextDecoder();

function hexOf(number: number): string {
    return (number & 0xff).toString(16).padStart(2, '0');
}

/** "read device type" with a tag. */
export function question(tag: number): Uint8Array {
    return encoder.encode(`<T00${hexOf(tag)}6801000000${hexOf(0x69 + tag)}>`);
}

/** What the device answers. */
export function answer(tag: number): Uint8Array {
    return encoder.encode(`<F00${hexOf(tag)}6801263300${hexOf(0xc2 + tag)}>`);
}

/** The answers to all questions in a piece of bytes. */
export function answersTo(bytes: Uint8Array): Uint8Array {
    const tags = [...decoder.decode(bytes).matchAll(/<T00(..)6801000000..>/g)].map((found) =>
        parseInt(found[1] ?? '', 16),
    );
    return joined(tags.map(answer));
}

function joined(parts: readonly Uint8Array[]): Uint8Array {
    return Uint8Array.from(parts.flatMap((part) => [...part]));
}

const longest = 5000; // ms, for an answer

function check(isRight: boolean, what: string): void {
    if (!isRight) {
        throw new Error(what);
    }
}

function checkSame(got: Uint8Array, wanted: Uint8Array): void {
    check(
        decoder.decode(got) === decoder.decode(wanted),
        `"${decoder.decode(got)}" is not "${decoder.decode(wanted)}"`,
    );
}

async function readAll(line: Transport, length: number): Promise<Uint8Array> {
    const parts: Uint8Array[] = [];
    let got = 0;
    while (got < length) {
        const part = await line.read(longest);
        check(part.length > 0, `only ${got} of ${length} bytes came`);
        parts.push(part);
        got += part.length;
    }
    return joined(parts);
}

async function asks(line: Transport, tag: number): Promise<void> {
    await line.write(question(tag));
    checkSame(await readAll(line, answer(tag).length), answer(tag));
}

async function checkFault(wanted: LineFault, action: () => Promise<unknown>): Promise<void> {
    let caught: unknown = null;
    try {
        await action();
    } catch (error) {
        caught = error;
    }
    check(caught instanceof LineError, `no LineError but ${String(caught)}`);
    const fault = (caught as LineError).fault;
    check(fault === wanted, `the fault is "${fault}" and not "${wanted}"`);
    check((caught as LineError).message !== '', 'the error has no message');
}

// Until the line has noticed that it was unplugged.
async function readToEnd(line: Transport): Promise<void> {
    const end = Date.now() + longest;
    while (Date.now() < end) {
        await line.read(100);
    }
}

function pause(milliseconds: number): Promise<void> {
    return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

function numbers(count: number): number[] {
    return [...Array(count).keys()];
}

export const cases: readonly Case[] = [
    {
        name: 'has a name',
        async run({ line }) {
            check(line.name !== '', 'the name is empty');
        },
    },
    {
        name: 'cannot be used before it is open',
        async run({ line }) {
            await checkFault('closed', () => line.read(0));
            await checkFault('closed', () => line.write(question(1)));
        },
    },
    {
        name: 'carries a question and its answer',
        async run({ line }) {
            await line.open();
            await asks(line, 1);
        },
    },
    {
        name: 'gives nothing when nothing came in time, and not before',
        async run({ line }) {
            await line.open();
            const begin = performance.now();
            check((await line.read(150)).length === 0, 'something came');
            check(performance.now() - begin >= 140, 'it did not wait');
        },
    },
    {
        name: 'does not wait for 0 ms',
        async run({ line }) {
            await line.open();
            check((await line.read(0)).length === 0, 'something came');
        },
    },
    {
        name: 'wakes a read that waits',
        async run({ line }) {
            await line.open();
            const reading = readAll(line, answer(2).length);
            await pause(30);
            await line.write(question(2));
            checkSame(await reading, answer(2));
        },
    },
    {
        name: 'loses nothing to a read that ended without bytes',
        async run({ line }) {
            await line.open();
            for (const tag of numbers(5)) {
                check((await line.read(5)).length === 0, 'something came');
                await asks(line, tag);
            }
        },
    },
    {
        name: 'keeps what comes while nobody reads',
        async run({ line }) {
            await line.open();
            await line.write(question(3));
            await pause(300);
            await line.write(question(4));
            await pause(300);
            checkSame(await line.read(0), joined([answer(3), answer(4)]));
        },
    },
    {
        name: 'keeps the order of many answers to one write',
        async run({ line }) {
            await line.open();
            await line.write(joined(numbers(100).map(question)));
            checkSame(await readAll(line, 1900), joined(numbers(100).map(answer)));
        },
    },
    {
        name: 'keeps the order of many writes',
        async run({ line }) {
            await line.open();
            const writing = Promise.all(numbers(50).map((tag) => line.write(question(tag))));
            checkSame(await readAll(line, 950), joined(numbers(50).map(answer)));
            await writing;
        },
    },
    {
        name: 'tells a read that waits that the line is lost',
        async run({ line, unplug }) {
            await line.open();
            const reading = checkFault('lost', () => line.read(longest));
            await pause(20);
            await unplug();
            await reading;
            await checkFault('lost', () => line.read(0));
        },
    },
    {
        name: 'tells a later read that the line was lost between two',
        async run({ line, unplug }) {
            await line.open();
            await asks(line, 5);
            await unplug();
            await checkFault('lost', () => readToEnd(line));
        },
    },
    {
        name: 'gives what had arrived before it was lost',
        async run({ line, unplug }) {
            await line.open();
            await line.write(question(6));
            await pause(300);
            await unplug();
            checkSame(await line.read(longest), answer(6));
            await checkFault('lost', () => readToEnd(line));
        },
    },
    {
        name: 'tells a write that the line is lost',
        async run({ line, unplug }) {
            await line.open();
            await unplug();
            await checkFault('lost', () => readToEnd(line));
            await checkFault('lost', () => line.write(question(7)));
        },
    },
    {
        name: 'cannot be opened while it is unplugged, and works when it is back',
        async run({ line, unplug, plug }) {
            await line.open();
            await unplug();
            await checkFault('lost', () => readToEnd(line));
            await line.close();
            await checkFault('lost', () => line.open());
            await plug();
            await line.open();
            await asks(line, 8);
        },
    },
    {
        name: 'ends a read when it is closed',
        async run({ line }) {
            await line.open();
            const reading = checkFault('closed', () => line.read(longest));
            await pause(20);
            await line.close();
            await reading;
            await checkFault('closed', () => line.read(0));
            await checkFault('closed', () => line.write(question(9)));
        },
    },
    {
        name: 'can be closed at any time',
        async run({ line, unplug, plug }) {
            await line.close();
            await line.open();
            await line.close();
            await line.close();
            await line.open();
            await unplug();
            await line.close();
            await plug();
        },
    },
    {
        name: 'can be opened again and again',
        async run({ line }) {
            for (const tag of numbers(3)) {
                await line.open();
                await asks(line, tag);
                await line.close();
            }
        },
    },
    {
        name: 'gives nothing that came before it was opened again',
        async run({ line }) {
            await line.open();
            await line.write(question(10));
            await pause(300);
            await line.close();
            await line.open();
            check((await line.read(100)).length === 0, 'something was left');
            await asks(line, 11);
        },
    },
];
