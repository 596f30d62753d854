// The core as a page has it: runs with files and a line, and what is asked at once.

import { readFileSync } from 'node:fs';
import { resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { describe, expect, test } from 'vitest';

import { ExitStatus, type CoreLine } from './core.ts';
import { coreInNode } from './node.ts';

const core = await coreInNode();
const encoder = new TextEncoder();
const decoder = new TextDecoder('latin1');

function frame(direction: 'T' | 'F', record: string): string {
    const sum = Buffer.from(record, 'hex').reduce((total, byte) => total + byte, 0) & 0xff;
    return `<${direction}${record}${sum.toString(16).padStart(2, '0')}>`;
}

interface FakeLine extends CoreLine {
    sent: string[];
    reads: number;
    /** A read is under way. */
    isRead: boolean;
}

/** Answers from a table: what is sent, its checksum byte aside, and what comes then, in pieces. */
function fakeLine(answerTo: (sent: string) => (string | Error)[] | Error): FakeLine {
    const arrived: (string | Error)[] = [];
    let wake = () => {};
    const line: FakeLine = {
        sent: [],
        reads: 0,
        isRead: false,
        async write(bytes) {
            await Promise.resolve();
            const text = decoder.decode(bytes);
            line.sent.push(text);
            const answer = answerTo(text);
            if (answer instanceof Error) {
                throw answer;
            }
            arrived.push(...answer);
            wake();
        },
        async read(timeout) {
            expect(line.isRead, 'two reads at once').toBe(false);
            line.isRead = true;
            ++line.reads;
            try {
                if (arrived.length === 0) {
                    await new Promise<void>((resolve) => {
                        wake = resolve;
                        setTimeout(resolve, timeout);
                    });
                }
                const first = arrived.shift();
                if (first instanceof Error) {
                    throw first;
                }
                return Buffer.from(first ?? '', 'latin1');
            } finally {
                line.isRead = false;
            }
        },
    };
    return line;
}

const deviceType = frame('T', '00006801000000');
const deviceAnswer = frame('F', '00006801263300');
const network = String.fromCharCode(192, 168, 0, 100, 255, 255, 255, 0, 192, 168, 0, 1, 2, 0x76, 0x65, 0x73, 0x6b, 1);

function withSum(record: string): string {
    return record + String.fromCharCode([...record].reduce((sum, each) => sum + each.charCodeAt(0), 0) & 0xff);
}

/** A device that knows few commands. */
function device(sent: string): string[] {
    if (sent.startsWith('<T0000f020')) {
        return [sent.slice(0, 19).replace('<T', '<F')];
    }
    if (sent.startsWith('<T0000f1200000')) {
        return [frame('F', '0000f120001300'), withSum(network)];
    }
    if (sent === deviceType) {
        return [deviceAnswer.slice(0, 7), deviceAnswer.slice(7)];
    }
    return sent.startsWith('<T') ? [frame('F', `${sent.slice(2, 8)}ffffffff`)] : [];
}

describe('a run', () => {
    test('has a status, its output and its messages, whole and by line', async () => {
        const lines: string[] = [];
        const messages: string[] = [];
        const options = { onOutput: (line: string) => lines.push(line), onMessage: (line: string) => messages.push(line) };
        const done = await core.run(['decode', deviceType, 'x', deviceAnswer], options);
        expect(done.status).toBe(ExitStatus.usage);
        expect(lines).toHaveLength(2);
        expect(`${lines.join('\n')}\n`).toBe(done.output);
        expect(`${messages.join('\n')}\n`).toBe(done.messages);
        expect(done.messages).toMatch(/^veskctl: /);
    });

    test('knows nothing of the one before it', async () => {
        const files = new Map([['a/b.json', encoder.encode('[]')]]);
        expect([...(await core.run(['--json', 'timing', 'draw', '10', '-o', 'a/x.svg'], { files })).files.keys()].sort()).toEqual([
            'a/b.json',
            'a/x.svg',
        ]);
        const next = await core.run(['decode', deviceType]);
        expect(next.files.size).toBe(0);
        expect(next.output).not.toContain('{');
    });

    test('may be one of several at once', async () => {
        const runs = await Promise.all([1, 2, 3].map(() => core.run(['--serial', 'port', 'send', '68', '01'], { line: fakeLine(device) })));
        expect(runs.map(({ status }) => status)).toEqual([0, 0, 0]);
    });

    test.each(['console', 'monitor', 'play x', 'serial ports', 'sav edit x'])('of %s says that it needs a desk', async (line) => {
        const files = new Map([['x', encoder.encode('front> x\n')]]);
        const done = await core.run(['--serial', 'port', ...line.split(' ')], { line: fakeLine(device), files });
        expect(done.status).toBe(ExitStatus.usage);
        expect(done.messages).toMatch(/^veskctl: `.*` runs at a desk only, not in a page\n$/);
    });

    test('cannot be the control PC', async () => {
        const done = await core.run(['--udp', '192.168.0.100', 'info']);
        expect(done).toMatchObject({ status: ExitStatus.usage, output: '' });
        expect(done.messages).toContain('browsers send no UDP');
    });

    test('without a line says so', async () => {
        const done = await core.run(['--serial', 'port', 'info']);
        expect(done).toMatchObject({ status: ExitStatus.localFailure, messages: 'veskctl: cannot open port: no port has been chosen\n' });
    });
});

describe('over a line', () => {
    test('send: the answer may come in pieces', async () => {
        const line = fakeLine(device);
        const done = await core.run(['--serial', 'port', 'send', 'read', 'device', 'type'], { line });
        expect(done).toMatchObject({ status: ExitStatus.done, messages: '' });
        expect(done.output).toBe(`${deviceAnswer}  reply, address 00, tag 00: read device type: 2633\n`);
        expect(line.sent).toEqual([deviceType]);
    });

    test('send: refused', async () => {
        const done = await core.run(['--serial', 'port', 'send', 'read', 'serial', 'number'], { line: fakeLine(device) });
        expect(done.status).toBe(ExitStatus.refused);
        expect(done.output).toContain('refusal');
    });

    test('send: silence, and the retries', async () => {
        const line = fakeLine(() => []);
        const begin = performance.now();
        const done = await core.run(['--serial', 'port', '--timeout', '150', '--retries', '2', 'send', '68', '01'], { line });
        expect(done.status).toBe(ExitStatus.noAnswer);
        expect(done.messages).toBe(
            'veskctl: no answer within 150 ms, sent again\n'.repeat(2) +
                'veskctl: no answer within 150 ms; is the device on, and is this its line?\n',
        );
        expect(line.sent).toEqual([deviceType, deviceType, deviceType]);
        expect(performance.now() - begin).toBeGreaterThan(440);
    });

    test('what came before the question is thrown away, and other bytes are told of', async () => {
        const line = fakeLine(() => ['noise\n', deviceAnswer]);
        await line.write(encoder.encode('earlier'));
        const done = await core.run(['--serial', 'port', 'send', '68', '01'], { line });
        expect(done).toMatchObject({ status: ExitStatus.done, messages: 'veskctl: skipped: noise\\n\n' });
    });

    test('network read', async () => {
        const done = await core.run(['--serial', 'port', '--json', 'network', 'read'], { line: fakeLine(device) });
        expect(done).toMatchObject({ status: ExitStatus.done, messages: '' });
        expect((JSON.parse(done.output) as { network: object }).network).toEqual({
            address: '192.168.0.100',
            mask: '255.255.255.0',
            gateway: '192.168.0.1',
            mac: '02:76:65:73:6b:01',
        });
    });

    test('network write sends the record, and reads it back', async () => {
        const line = fakeLine(device);
        const settings = ['192.168.0.100', '255.255.255.0', '192.168.0.1', '02:76:65:73:6b:01'];
        const done = await core.run(['--serial', 'port', 'network', 'write', ...settings], { line });
        expect(done).toMatchObject({ status: ExitStatus.done, messages: '' });
        expect(line.sent[0]!.slice(19)).toBe(withSum(network));
        const other = await core.run(['--serial', 'port', 'network', 'write', '192.168.0.99', ...settings.slice(1)], { line });
        expect(other.status).toBe(ExitStatus.refused);
        expect(other.messages).toContain('the address is 192.168.0.100 and not 192.168.0.99');
    });

    test('text read and write, ping, info', async () => {
        const texts = fakeLine((sent) => [`${sent.slice(0, 17).replace('<T', '<F')}${sent.slice(17, 19)}`, '[a=', '1]']);
        const read = await core.run(['--serial', 'port', 'text', 'read', '09', '00'], { line: texts });
        expect(read.output).toContain('\n[a=1]\n');
        const written = await core.run(['--serial', 'port', 'text', 'write', '09', '00', '[b=2]'], { line: texts });
        expect(written.status).toBe(ExitStatus.done);
        expect(texts.sent.at(-1)!.slice(19)).toBe('[b=2]');

        const echo = (sent: string) => [sent.replace('<T', '<F')];
        const ping = await core.run(['--serial', 'port', 'ping', '-c', '3', '-i', '0.05'], { line: fakeLine(echo) });
        expect(ping).toMatchObject({ status: ExitStatus.done, messages: '' });
        expect(ping.output.match(/answer from port/g)).toHaveLength(3);

        const info = await core.run(['--serial', 'port', '--json', 'info'], { line: fakeLine(device) });
        expect((JSON.parse(info.output) as { device_type: string }).device_type).toBe('2633');
    });

    test('the line is lost in the middle of an answer', async () => {
        const line = fakeLine(() => [deviceAnswer.slice(0, 9), new Error('unplugged')]);
        const done = await core.run(['--serial', 'port', 'send', '68', '01'], { line });
        expect(done.status).toBe(ExitStatus.localFailure);
        expect(done.messages).toBe(
            'veskctl: port was closed: the cable or its adapter was unplugged, or the far end has ended; ' +
                'plug it in and begin again\n',
        );
    });

    test('the line is lost before a question', async () => {
        const line = fakeLine(() => new Error('the device has been lost'));
        const done = await core.run(['--serial', 'port', 'send', '68', '01'], { line });
        expect(done.status).toBe(ExitStatus.localFailure);
        expect(done.messages).toBe('veskctl: cannot send to port: the device has been lost\n');
    });

    test('--verbose and --record', async () => {
        const done = await core.run(['--serial', 'port', '-v', '--record', 'heard.txt', 'send', '68', '01'], { line: fakeLine(device) });
        expect(done.messages).toContain(deviceAnswer);
        const transcript = decoder.decode(done.files.get('heard.txt')!);
        expect(transcript).toContain(`front> ${deviceType}\n`);
        expect(transcript).toContain(`front< ${deviceAnswer.slice(7)}\n`);
    });
});

describe('interrupted', () => {
    test('while a question waits: without a word, and the line is free', async () => {
        const stop = new AbortController();
        const line = fakeLine(() => []);
        setTimeout(() => stop.abort(), 150);
        const begin = performance.now();
        const done = await core.run(['--serial', 'port', '--timeout', '60000', 'send', '68', '01'], { line, signal: stop.signal });
        expect(done).toMatchObject({ status: ExitStatus.interrupted, output: '', messages: '' });
        expect(performance.now() - begin).toBeLessThan(3000);
        expect(line.isRead).toBe(false);
    });

    test('before it begins', async () => {
        const done = await core.run(['--serial', 'port', 'send', '68', '01'], { line: fakeLine(device), signal: AbortSignal.abort() });
        expect(done.status).toBe(ExitStatus.interrupted);
    });

    test('a ping: its summary', async () => {
        const stop = new AbortController();
        const line = fakeLine((sent) => [sent.replace('<T', '<F')]);
        setTimeout(() => stop.abort(), 300);
        const done = await core.run(['--serial', 'port', 'ping', '-i', '60'], { line, signal: stop.signal });
        expect(done.status).toBe(ExitStatus.done);
        expect(done.output).toContain('1 sent, 1 answered, 0% lost');
    });

    test('an update: how far it was', async () => {
        const stop = new AbortController();
        let blocks = 0;
        const line = fakeLine((sent) => {
            if (sent.slice(6, 10) === '9aa0' && ++blocks === 3) {
                stop.abort();
            }
            return [sent.slice(0, 19).replace('<T', '<F')];
        });
        const done = await core.run(['--serial', 'port', 'update', '--force', '--progress', 'json', 'new'], {
            line,
            signal: stop.signal,
            files: new Map([['new', new Uint8Array(10_000)]]),
        });
        expect(done.status).toBe(ExitStatus.interrupted);
        expect(done.output).toMatch(/interrupted after 2 of 10 blocks/);
    });
});

describe('an update', () => {
    test('ends with its progress as JSON: here the device goes on with its old program', async () => {
        const line = fakeLine((sent) => [sent.slice(0, 19).replace('<T', '<F')]);
        const objects: { event?: string }[] = [];
        const done = await core.run(['--serial', 'port', 'update', '--force', '--progress', 'json', 'new'], {
            line,
            files: new Map([['new', new Uint8Array(10_000)]]),
            onOutput: (each) => objects.push(JSON.parse(each) as object),
        });
        expect(done.status).toBe(ExitStatus.notFinished);
        expect(objects.length).toBeGreaterThan(1);
        expect(objects.at(-1)).toMatchObject({
            outcome: 'old program',
            next: ['Make room in /userdata on the device; its output says more.', 'Then begin again.'],
        });
        expect(objects.filter(({ event }) => event === 'following')).toEqual([
            { event: 'following', blocks: 10, done: 9, sent_again: 0 },
        ]);
        expect(done.messages).toBe('');
        expect(line.sent.filter((sent) => sent.length === 19 + 1025)).toHaveLength(10);
    });

    test('a block is refused once and sent again; the device is lost in the end', async () => {
        let blocks = 0;
        const line = fakeLine((sent) => {
            if (sent.slice(6, 10) !== '9aa0') {
                return [sent.replace('<T', '<F')];
            }
            ++blocks;
            return blocks === 2 ? [frame('F', `${sent.slice(2, 8)}ffffffff`)] : blocks < 5 ? [sent.slice(0, 19).replace('<T', '<F')] : new Error('gone');
        });
        const done = await core.run(['--serial', 'port', 'update', '--force', 'new'], {
            line,
            files: new Map([['new', new Uint8Array(10_000)]]),
        });
        expect(done.messages).toContain('block 1 of 10: refused, sent again');
        expect(done.messages).toContain('cannot send to port: gone; 3 of 10 blocks were accepted');
        expect(done.status).toBe(ExitStatus.localFailure);
    });
});

describe('at once', () => {
    test('the version', async () => {
        expect((await core.run(['--version'])).output).toBe(`veskctl ${core.version}\n`);
    });

    test('the commands', () => {
        const commands = core.commands();
        expect(commands.find(({ words }) => words === 'read device type')).toMatchObject({ code: '68 01', writes: false, parameters: [] });
        expect(commands.find(({ words }) => words === 'write IP address')).toMatchObject({
            writes: true,
            usage: ' A.B.C.D',
            parameters: [{ name: 'ip', hint: 'such as 192.168.0.100', choices: [] }],
        });
        const parametersOf = (of: string) => commands.find(({ words }) => words === of)?.parameters;
        expect(parametersOf('write DHCP')).toMatchObject([{ choices: ['on', 'off'] }]);
        expect(parametersOf('write serial number')).toMatchObject([{ hint: '0 to 65535' }]);
        expect(parametersOf('update version')).toEqual([
            { name: 'program', hint: 'two hexadecimal digits', choices: [], usual: '07' },
        ]);
        const subcommands = commands.filter(({ subcommand }) => subcommand !== '');
        expect(subcommands.map(({ words, subcommand }) => `${words}: ${subcommand}`)).toEqual([
            'write text: text write',
            'read text: text read',
        ]);
    });

    test('what the tool knows', async () => {
        const protocol = readFileSync(new URL('../../../protocol/vesk.yaml', import.meta.url), 'utf8');
        const value = /name: device type,.*value: \[0x(..), 0x(..)\]/.exec(protocol);
        expect(core.facts.deviceType).toBe(`${value?.[1]}${value?.[2]}`);
        expect(core.facts.programSizes).toBe('1 KiB to 16 MiB');
        expect(core.facts.commandForms.map(({ digits }) => digits)).toEqual(['2 to 10 digits', '14 digits', '16 digits', '<...>']);
        expect(core.serialNumberText(4660)).toBe('4660 (0x1234)');
        expect(core.serialNumberText(65535)).toBe('65535 (0xffff)');
        for (const kind of core.facts.savKinds) {
            expect((await core.run(['sav', 'schema', kind])).status).toBe(ExitStatus.done);
        }
        for (const each of core.facts.formatClasses) {
            expect((await core.run(['timing', 'list', '--class', each])).output).not.toBe('');
        }
    });

    // Whoever reads a page has typed no command line.
    test.each([
        ['network', 'write', '1.2.3.4', '255.255.255.0', '1.2.4.1', '02:76:65:73:6b:01'],
        ['--serial', 'port', 'update', 'text'],
        ['--serial', 'port', 'update', 'desk'],
        ['sav', 'dump', 'text'],
        ['sav', 'viw'],
        ['timing', 'list', '--size', '19x', '--rate', 'fast'],
        ['timing', 'list', '--size', 'x'],
        ['timing', 'show', '124'],
        ['timing', 'draw', '4096x2160@120', '-o', '-'],
    ])('a message of %s %s %s names no option', async (...args) => {
        const root = fileURLToPath(new URL('../../..', import.meta.url));
        const files = new Map([
            ['text', encoder.encode('nothing but text')],
            ['desk', new Uint8Array(readFileSync(resolve(process.env['VESKCTL'] ?? `${root}build/release/tools/veskctl`)))],
        ]);
        const { messages } = await core.run(args, { files });
        expect(messages).not.toBe('');
        expect(messages).not.toMatch(/ --|^veskctl: --|`|nothing was written/);
        expect(messages).not.toBe((await core.run(args, { files, isTyped: true })).messages);
    });

    test('a frame', () => {
        expect(core.frameOf('read device type')).toEqual({
            frame: deviceType,
            meaning: 'command, address 00, tag 00: read device type',
            writes: false,
        });
        expect(core.frameOf('write IP address 192.168.0.55')).toMatchObject({ writes: true });
        expect(core.frameOf('read divice type')).toEqual({
            error: '"read divice type" is not a known command (did you mean "read device type"?)',
        });
        expect(core.frameOf('write serial number 70000')).toEqual({
            error: 'serial number: "70000" is not a serial number from 0 to 65535, decimal or with 0x in front',
        });
        expect(core.frameOf('write text 09')).toEqual({
            error: '"write text" changes the device, so it needs all its parameters: keys, which',
        });
        expect(core.frameOf('<0123456789abcdefg>')).toEqual({ frame: '<0123456789abcdefg>', meaning: '', writes: false });
        expect(core.frameOf('\u00e4')).toHaveProperty('error');
    });

    test('the faults of network settings', () => {
        const good = { address: '192.168.0.100', mask: '255.255.255.0', gateway: '192.168.0.1', mac: '02:76:65:73:6b:01' };
        const none = { address: '', mask: '', gateway: '', mac: '', together: '' };
        expect(core.faultsOf(good)).toEqual(none);
        expect(core.faultsOf({ ...good, gateway: '192.168.1.1' }).together).toContain('is not in the net of');
        expect(core.faultsOf({ ...good, mac: '03:76:65:73:6b:01' }).together).toContain('is the MAC address of a group');
        expect(core.faultsOf({ address: '1', mask: '255.0.255.0', gateway: '', mac: 'x"\u00e4\ud800' })).toMatchObject({
            address: '"1" is not an address such as 192.168.0.100',
            mask: expect.stringContaining('"255.0.255.0" is not a mask') as string,
            gateway: '"" is not an address such as 192.168.0.100',
            mac: expect.stringContaining('is not a MAC address') as string,
            together: '',
        });
    });

    test('the faults of a program', () => {
        expect(core.faultOfProgram(new Uint8Array())).toBe('the file is empty');
        expect(core.faultOfProgram(encoder.encode('text'))).toBe('it is no executable (ELF) file');
        const root = fileURLToPath(new URL('../../..', import.meta.url));
        const desk = readFileSync(resolve(process.env['VESKCTL'] ?? `${root}build/release/tools/veskctl`));
        expect(core.faultOfProgram(desk)).toMatch(/^it is for x86_64, and the device needs 32-bit ARM/);
        expect(core.faultOfProgram(new Uint8Array(20 << 20).fill(0x7f, 0, 1))).toBe('it is no executable (ELF) file');
        expect(core.blocksOf(new Uint8Array(896))).toBe(1); // with a header of 128 bytes
        expect(core.blocksOf(new Uint8Array(897))).toBe(2);
        expect(core.versionOf(encoder.encode('no version'))).toBe('');
    });

    test('the traffic: frames, damaged ones, other bytes, and what is held back', () => {
        const traffic = core.newTraffic();
        const other = core.newTraffic();
        expect(other.feed(encoder.encode('<T00'))).toEqual([]);
        expect(traffic.feed(encoder.encode(deviceType.slice(0, 5)))).toEqual([]);
        expect(traffic.feed(encoder.encode(`${deviceType.slice(5)}\xff\n${deviceAnswer.replace('c2>', 'c3>')}ab`))).toMatchObject([
            { isFrame: true, text: deviceType, kind: 'command', hex: Buffer.from(deviceType).toString('hex').replace(/..(?=.)/g, '$& ') },
            { isFrame: false, text: '\\xc3\\xbf\\n', kind: 'other', hex: 'c3 bf 0a', meaning: '' },
            { isFrame: true, kind: 'damaged', meaning: expect.stringContaining('WRONG CHECKSUM') as string },
        ]);
        expect(traffic.flush()).toMatchObject([{ text: 'ab' }]);
        expect(traffic.flush()).toEqual([]);
        expect(other.flush()).toMatchObject([{ text: '<T00' }]);
        expect(traffic.feed(encoder.encode(frame('F', '000068ffffffff') + deviceAnswer)).map(({ kind }) => kind)).toEqual(['refusal', 'reply']);
    });
});
