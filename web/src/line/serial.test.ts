// What a serial port of the browser has beyond the contract: who may open it, and who it is when it comes back.

import { describe, expect, test } from 'vitest';

import { answer, answersTo, question } from './contract.ts';
import { FakePort, FakeSerial } from './fakeserial.ts';
import { choosePort, knownPorts, serialLine, serialOfBrowser } from './serial.ts';
import { LineError } from './transport.ts';

async function faultOf(promise: Promise<unknown>): Promise<string> {
    try {
        await promise;
    } catch (error) {
        return error instanceof LineError ? error.fault : String(error);
    }
    return '';
}

function onePort(): { port: FakePort; serial: FakeSerial } {
    const port = new FakePort(answersTo);
    return { port, serial: new FakeSerial([port]) };
}

describe('choosing', () => {
    test('a browser without serial ports', () => {
        expect(() => serialOfBrowser()).toThrow(LineError);
    });

    test('nothing chosen', async () => {
        expect(await faultOf(choosePort(onePort().serial))).toBe('none');
    });

    test('not permitted', async () => {
        const { serial } = onePort();
        serial.refusal = new DOMException('A policy forbids it.', 'SecurityError');
        expect(await faultOf(choosePort(serial))).toBe('denied');
    });

    test('what else fails is not taken for a missing permission', async () => {
        const { serial } = onePort();
        serial.refusal = new DOMException('The browser broke.', 'UnknownError');
        expect(await faultOf(choosePort(serial))).toBe('UnknownError: The browser broke.');
    });

    test('a port by its name', async () => {
        const { port, serial } = onePort();
        serial.choice = port;
        expect((await choosePort(serial)).name).toBe('USB 0403:6001');
        serial.choice = new FakePort(answersTo, {});
        expect((await choosePort(serial)).name).toBe('Serial port');
    });

    test('those of last time that are plugged in', async () => {
        const { port, serial } = onePort();
        expect((await knownPorts(serial)).map((line) => line.name)).toEqual(['USB 0403:6001']);
        port.unplug();
        expect(await knownPorts(serial)).toEqual([]);
    });
});

describe('opening', () => {
    test("at the device's rate", async () => {
        const { port, serial } = onePort();
        await serialLine(port, serial).open();
        expect(port.openedWith).toMatchObject({ baudRate: 115200, dataBits: 8, stopBits: 1, parity: 'none' });
    });

    test('while another program has it', async () => {
        const { port, serial } = onePort();
        const line = serialLine(port, serial);
        port.isTaken = true;
        expect(await faultOf(line.open())).toBe('busy');
        port.isTaken = false;
        await line.open();
    });

    test('while another part of this page has it', async () => {
        const { port, serial } = onePort();
        await serialLine(port, serial).open();
        expect(await faultOf(serialLine(port, serial).open())).toBe('busy');
    });
});

test.each([
    ['FramingError', 'A byte came damaged: its end was missing.'],
    ['BufferOverrunError', 'Bytes were lost: they came faster than the browser took them.'],
    ['OtherError', 'What arrived was lost: A byte is damaged.'],
])('a %s is told', async (name, told) => {
    const { port, serial } = onePort();
    const line = serialLine(port, serial);
    const said: string[] = [];
    line.onDamage = (text) => said.push(text);
    await line.open();
    port.damage(name);
    await new Promise((resolve) => setTimeout(resolve, 10));
    expect(said).toEqual([told]);
    await line.close();
});

test('a line that is closed listens to nothing', async () => {
    const { port, serial } = onePort();
    const line = serialLine(port, serial);
    expect(port.listeners).toBe(0);
    await line.open();
    expect(port.listeners).toBe(1);
    await line.close();
    await line.open();
    port.unplug();
    await line.close();
    expect(port.listeners).toBe(0);
});

test('bytes after a damaged one still come', async () => {
    const { port, serial } = onePort();
    const line = serialLine(port, serial);
    await line.open();
    port.damage();
    await new Promise((resolve) => setTimeout(resolve, 10));
    await line.write(question(1));
    let got = new Uint8Array();
    while (got.length < 19) {
        got = Uint8Array.from([...got, ...(await line.read(1000))]);
    }
    expect(got).toEqual(answer(1));
    await line.close();
});

describe('a port that comes back as another object', () => {
    async function lostLine(serial: FakeSerial, port: FakePort): Promise<ReturnType<typeof serialLine>> {
        const line = serialLine(port, serial);
        await line.open();
        port.unplug();
        await line.close();
        return line;
    }

    test('is found', async () => {
        const { port, serial } = onePort();
        const line = await lostLine(serial, port);
        expect(await faultOf(line.open())).toBe('lost');
        serial.ports.push(new FakePort(answersTo));
        await line.open();
        await line.write(question(1));
        expect((await line.read(1000)).length).toBeGreaterThan(0);
    });

    test('is not mistaken for its twin that was there before', async () => {
        const { port, serial } = onePort();
        serial.ports.push(new FakePort(answersTo));
        const line = await lostLine(serial, port);
        expect(await faultOf(line.open())).toBe('lost');
    });

    test('is not mistaken for another kind', async () => {
        const { port, serial } = onePort();
        const line = await lostLine(serial, port);
        serial.ports.push(new FakePort(answersTo, { usbVendorId: 0x10c4, usbProductId: 0xea60 }));
        expect(await faultOf(line.open())).toBe('lost');
    });
});
