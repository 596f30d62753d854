// The demo device answers as docs/protocol.md says. The frames are from there or were made by hand.

import { describe, expect, test } from 'vitest';

import { newDemo } from './demo_bench.ts';
import type { DemoDevice } from './demo.ts';

interface Bench {
    device: DemoDevice;
    /** Its console so far. */
    log: string[];
}

async function newBench(): Promise<Bench> {
    const device = await newDemo();
    const log: string[] = [];
    device.onLog = (line) => log.push(line);
    await device.open();
    return { device, log };
}

function bytesOf(text: string): Uint8Array {
    return Uint8Array.from(text, (character) => character.charCodeAt(0));
}

function bytesOfHex(text: string): Uint8Array {
    return Uint8Array.from(text.split(' '), (digits) => parseInt(digits, 16));
}

async function say(device: DemoDevice, ...parts: (string | Uint8Array)[]): Promise<void> {
    for (const part of parts) {
        await device.write(typeof part === 'string' ? bytesOf(part) : part);
    }
}

/** What comes up to the number of characters given, or until nothing has come for `timeout` ms. */
async function hear(device: DemoDevice, length: number, timeout = 5000): Promise<string> {
    let text = '';
    while (text.length < length) {
        const bytes = await device.read(timeout);
        if (bytes.length === 0) {
            break;
        }
        text += String.fromCharCode(...bytes);
    }
    return text;
}

async function ask(device: DemoDevice, ...parts: (string | Uint8Array)[]): Promise<string> {
    await say(device, ...parts);
    return hear(device, 19);
}

const readType = '<T0000680100000069>';
const deviceType = '<F00006801263300c2>';

// The stream of an update ------------------------------------------------------------------------

const blockLength = 1024;
const headerLength = 128;

function sumOf(bytes: Uint8Array): number {
    return bytes.reduce((sum, byte) => sum + byte, 0);
}

function streamOf(program: Uint8Array): Uint8Array {
    const stream = new Uint8Array(Math.ceil((headerLength + program.length) / blockLength) * blockLength);
    stream.set(program, headerLength);
    const view = new DataView(stream.buffer);
    view.setUint32(48, program.length);
    view.setUint16(80, sumOf(program) % 65536); // the filling is zeros
    return stream;
}

function hexOf(byte: number): string {
    return (byte % 256).toString(16).padStart(2, '0');
}

/** The frame of a block, and what acknowledges it. */
function blockFrame(number: number): { command: string; ack: string } {
    const values = [0x9a, 0xa0, 0x07, number % 256, Math.floor(number / 256)];
    const sum = hexOf(values.reduce((left, right) => left + right));
    const body = `0000${values.map(hexOf).join('')}${sum}>`;
    return { command: `<T${body}`, ack: `<F${body}` };
}

async function sendBlock(device: DemoDevice, stream: Uint8Array, number: number): Promise<void> {
    const block = stream.subarray(number * blockLength, (number + 1) * blockLength);
    const { command, ack } = blockFrame(number);
    expect(await ask(device, command, block, Uint8Array.of(sumOf(block) % 256))).toBe(ack);
}

function someProgram(length: number): Uint8Array {
    return Uint8Array.from({ length }, (_, index) => (index * 7 + (index >> 8)) % 256);
}

/** 10.0.0.7/16 via 10.0.0.1, MAC 02:00:00:00:00:22. */
function someRecord(): Uint8Array {
    const record = bytesOfHex('0a 00 00 07 ff ff 00 00 0a 00 00 01 02 00 00 00 00 22');
    return Uint8Array.of(...record, sumOf(record) % 256);
}

async function untilItAnswers(device: DemoDevice): Promise<void> {
    const end = Date.now() + 8000;
    for (let answer = ''; answer !== deviceType; ) {
        expect(Date.now()).toBeLessThan(end);
        await say(device, readType);
        answer = await hear(device, 19, 250);
    }
}

// The cases --------------------------------------------------------------------------------------

const answers = [
    { what: 'device type', question: readType, answer: deviceType },
    { what: 'protocol version', question: '<T00006a030000006d>', answer: '<F00006a03010a0078>' },
    { what: 'system version', question: '<T00006a040000006e>', answer: '<F00006a04020d007d>' },
    { what: 'serial number', question: '<T00006a110000007b>', answer: '<F00006a110000007b>' },
    { what: 'stored address before 89', question: '<T0000850000000085>', answer: '<F000085ffffff0082>' },
    { what: 'address', question: '<T0000890000000089>', answer: '<F000089c0a8006455>' },
    { what: 'DHCP', question: '<T00008e0300000091>', answer: '<F00008e0301000092>' },
    { what: 'block size', question: '<T00009aa107000042>', answer: '<F00009aa107040046>' },
    { what: 'version', question: '<T00009ab107000052>', answer: '<F00009ab107010a5d>' },
    { what: 'unknown command', question: '<T0000110000000011>', answer: '<F000011ffffffff0d>' },
    { what: 'command that is not supported', question: '<T0000730000000073>', answer: '<F000073ffffffff6f>' },
    { what: 'wrong checksum', question: '<T0000680100000068>', answer: '<F000068ffffffff64>' },
    { what: 'lower and upper case', question: '<T00006A110000007B>', answer: '<F00006a110000007b>' },
    { what: 'no such data', question: '<T0000f12100000012>', answer: '<F0000f1ffffffffed>' },
];

describe.concurrent('the demo device', () => {
    for (const { what, question, answer } of answers) {
        test(`answers as documented: ${what}`, async () => {
            const { device } = await newBench();
            expect(await ask(device, question)).toBe(answer);
        });
    }

    test('is silent where the protocol has no answer', async () => {
        const { device } = await newBench();
        expect(await say(device, '<T00008e0400000092>').then(() => hear(device, 19, 300))).toBe('');
    });

    test('takes a text and gives one', async () => {
        const { device } = await newBench();
        expect(await ask(device, '<T0000f209000000fb>', '[a=1,b=2]')).toBe('<F0000f209000000fb>');
        await say(device, '<T0000f309000000fc>');
        expect(await hear(device, 21)).toBe('<F0000f309000000fc>[]');
    });

    test('keeps its settings when its line is closed or pulled', async () => {
        const { device } = await newBench();
        expect(await ask(device, '<T00006a10123400c0>')).toBe('<F00006a10123400c0>');
        await device.close();
        await device.open();
        device.unplug();
        await device.close();
        device.plug();
        await device.open();
        expect(await ask(device, '<T00006a110000007b>')).toBe('<F00006a11123400c1>');
    });

    test('writes network settings to its system, and reads them back', async () => {
        const { device, log } = await newBench();
        const record = someRecord();
        expect(await ask(device, '<T0000f02000130023>', record)).toBe('<F0000f02000130023>');
        await say(device, '<T0000f12000000011>');
        const answer = await hear(device, 38);
        expect(answer.slice(0, 19)).toBe('<F0000f12000130024>');
        const read = bytesOf(answer.slice(19));
        expect(read.subarray(0, 12)).toEqual(record.subarray(0, 12));
        // The MAC address counts from the next start.
        expect(read.subarray(12, 18)).toEqual(bytesOfHex('02 76 65 73 6b 01'));
        expect(log).not.toContainEqual(expect.stringContaining('no such tool'));
    });

    test('refuses a network record with a wrong sum', async () => {
        const { device } = await newBench();
        const record = bytesOfHex('c0 a8 00 64 ff ff ff 00 c0 a8 00 01 02 76 65 73 6b 01 ff');
        expect(await ask(device, '<T0000f02000130023>', record)).toBe('<F0000f0ffffffffec>');
    });

    test('writes the static section of the DHCP client a while after a change', async () => {
        const { device } = await newBench();
        expect(await ask(device, '<T0000890000000089>')).toBe('<F000089c0a8006455>');
        expect(await ask(device, '<T00008e0200000090>')).toBe('<F00008e0200000090>');
        await new Promise((resolve) => setTimeout(resolve, 1800));
        // Read from the file again: DHCP is off.
        expect(await ask(device, '<T0000890000000089>')).toBe('<F000089c0a8006455>');
        expect(await ask(device, '<T00008e0300000091>')).toBe('<F00008e0300000091>');
    });

    test('installs an update, restarts, and keeps its settings', { timeout: 20000 }, async () => {
        const { device, log } = await newBench();
        const record = someRecord();
        expect(await ask(device, '<T00006a10123400c0>')).toBe('<F00006a10123400c0>');
        expect(await ask(device, '<T0000f02000130023>', record)).toBe('<F0000f02000130023>');
        const stream = streamOf(someProgram(5000));
        for (let number = 0; number * blockLength < stream.length; ++number) {
            await sendBlock(device, stream, number);
        }
        await say(device, readType);
        expect(await hear(device, 19, 500)).toBe('');
        expect(log).toContain('check _update.pkg sucess');
        expect(log).toContain('exit');
        await untilItAnswers(device);
        expect(log).toContainEqual(expect.stringContaining('the program that runs is the demo\'s own'));
        expect(await ask(device, '<T00006a110000007b>')).toBe('<F00006a11123400c1>');
        await say(device, '<T0000f12000000011>');
        expect(bytesOf((await hear(device, 38)).slice(19))).toEqual(record);
    });

    test('goes on after an update with a wrong sum', async () => {
        const { device, log } = await newBench();
        const stream = streamOf(someProgram(1500));
        stream[1100] = (stream[1100] ?? 0) + 1;
        await sendBlock(device, stream, 0);
        await sendBlock(device, stream, 1);
        expect(await ask(device, readType)).toBe(deviceType);
        expect(log).toContain('check _update.pkg error');
    });

    test('waits 3 s for the rest of a block, and goes on with its old program', { timeout: 10000 }, async () => {
        const { device, log } = await newBench();
        const stream = streamOf(someProgram(5000));
        await sendBlock(device, stream, 0);
        await say(device, blockFrame(1).command, stream.subarray(blockLength, blockLength + 500));
        const begin = performance.now();
        expect(await hear(device, 19, 6000)).toBe('<F00009affffffff96>');
        const waited = performance.now() - begin;
        expect(waited).toBeGreaterThan(2500);
        expect(waited).toBeLessThan(4500);
        expect(await ask(device, readType)).toBe(deviceType);
        expect(log).toContain('<F:receive  500 data from pc fail>');
        expect(log).not.toContain('exit');
    });
});
