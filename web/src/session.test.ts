// The connection: who answers, what is lost and comes back, one run at a time, and how an update ends.

import { describe, expect, test } from 'vitest';

import { deviceAnswer, deviceQuestion, fakeCore, type Play } from './core/fakecore.ts';
import { mockLine, type MockLine } from './line/mock.ts';
import { LineError } from './line/transport.ts';
import { adviceOn, newSession, type Phase, type Session } from './session.ts';

const encoder = new TextEncoder();
const decoder = new TextDecoder();
const times = { look: 10, ask: 10, away: 200 };

function device(): MockLine {
    return mockLine((bytes) => (decoder.decode(bytes) === deviceQuestion ? encoder.encode(deviceAnswer) : null));
}

function saying(text: string): MockLine {
    return mockLine(() => encoder.encode(text));
}

async function until(session: Session, phase: Phase): Promise<void> {
    for (const end = Date.now() + 3000; session.state.phase !== phase;) {
        if (Date.now() > end) {
            throw new Error(`it is ${session.state.phase} and not ${phase}`);
        }
        await new Promise((resolve) => setTimeout(resolve, 2));
    }
}

function sessionWith(play?: Play): Session {
    return newSession(fakeCore(play), times);
}

describe('connecting', () => {
    test('tells who answers', async () => {
        const session = sessionWith();
        const phases: Phase[] = [];
        session.subscribe(() => phases.push(session.state.phase));
        await session.connect(device());
        expect([...new Set(phases)]).toEqual(['off', 'opening', 'asking', 'ready']);
        expect(session.state).toMatchObject({ lineName: 'Mock', isDemo: false, trouble: null, running: '' });
        expect(session.state.device?.serial_number).toBe(4660);
    });

    test('tells what the device did not tell, and only that', async () => {
        const core = fakeCore();
        let changed = {};
        const session = newSession(
            {
                ...core,
                async run(args, options) {
                    const finished = await core.run(args, options);
                    const output = JSON.stringify({ ...JSON.parse(finished.output), ...changed });
                    return { ...finished, output, messages: 'veskctl: a late answer\n' };
                },
            },
            times,
        );
        await session.connect(device());
        expect(session.state).toMatchObject({ phase: 'ready', notes: [] });
        for (const part of [{ dhcp: null }, { network: null }, { stored: { address: null } }]) {
            changed = part;
            await session.ask();
            expect(session.state.notes.length).toBe(1);
        }
        changed = {};
        await session.ask();
        expect(session.state.notes).toEqual([]);
    });

    test('waits for a line that is unplugged when it is chosen', async () => {
        const session = sessionWith();
        const line = device();
        line.unplug();
        await session.connect(line);
        expect(session.state).toMatchObject({ phase: 'lost', trouble: { fault: 'lost' } });
        line.plug();
        await until(session, 'ready');
        expect(session.state.trouble).toBeNull();
    });

    test('waits for the choice of a port', async () => {
        const session = sessionWith();
        await session.connect(Promise.resolve(device()));
        expect(session.state.phase).toBe('ready');
    });

    test.each([
        ['silence', mockLine(), 'silent'],
        ['other bytes', saying('login: '), 'stranger'],
        ['another type', saying('<F0000680199990000>'), 'stranger'],
        ['a refusal', saying('<F000068fffffffff64>'), 'refused'],
    ])('tells %s', async (_, line, fault) => {
        const session = sessionWith();
        await session.connect(line);
        expect(session.state.phase).toBe('trouble');
        expect(session.state.trouble?.fault).toBe(fault);
        expect(adviceOn(session.state.trouble?.fault ?? 'failed').steps.length).toBeGreaterThan(0);
    });

    test.each(['busy', 'denied'] as const)('tells a line that is %s', async (fault) => {
        const session = sessionWith();
        const line = device();
        line.refuse(new LineError(fault, 'no'));
        await session.connect(line);
        expect(session.state.trouble).toEqual({ fault, message: 'no' });
        line.refuse(null);
        await session.connect(line);
        expect(session.state.phase).toBe('ready');
    });

    test('a choice that fails is told', async () => {
        const session = sessionWith();
        await session.connect(Promise.reject(new LineError('none', 'nothing')));
        expect(session.state.trouble?.fault).toBe('none');
    });

    test('a choice that fails leaves the line as it is', async () => {
        const session = sessionWith();
        await session.connect(device());
        await session.connect(Promise.reject(new LineError('none', 'nothing')));
        expect(session.state.phase).toBe('ready');
    });

    test('a choice that fails beside a line is told by a notice', async () => {
        const session = sessionWith();
        await session.connect(device());
        await session.connect(Promise.reject(new LineError('denied', 'A policy forbids it.')));
        expect(session.state).toMatchObject({
            phase: 'ready',
            trouble: null,
            notice: {
                title: 'The browser does not permit serial ports here',
                text: 'A policy forbids it. Mock is used as before.',
            },
        });
        session.dismiss();
        expect(session.state.notice).toBeNull();
    });

    test('a line that could not be opened is tried again', async () => {
        const session = sessionWith();
        const line = device();
        line.refuse(new LineError('busy', 'no'));
        await session.connect(line);
        await session.tryAgain();
        expect(session.state.trouble?.fault).toBe('busy');
        line.refuse(null);
        await session.tryAgain();
        expect(session.state.phase).toBe('ready');
        await session.tryAgain(); // of a line that is open: nothing
        expect(session.state.phase).toBe('ready');
    });

    test('another line replaces the first', async () => {
        const session = sessionWith();
        const first = device();
        await session.connect(first);
        await session.connect(device());
        expect(session.state.phase).toBe('ready');
        await expect(first.read(0)).rejects.toMatchObject({ fault: 'closed' });
    });

    test('asks a silent device again', async () => {
        let isOn = false;
        const session = sessionWith();
        await session.connect(mockLine(() => (isOn ? encoder.encode(deviceAnswer) : null)));
        isOn = true;
        await session.ask();
        expect(session.state.phase).toBe('ready');
    });

    test('what stops a refresh leaves the device', async () => {
        const line = device();
        const session = sessionWith();
        await session.connect(line);
        const asked = session.ask();
        await Promise.resolve();
        session.cancel();
        await asked;
        expect(session.state).toMatchObject({ phase: 'ready', trouble: null });
        expect(session.state.device?.serial_number).toBe(4660);
    });

    test('what stops the first question says so', async () => {
        const session = sessionWith();
        const asked = session.connect(mockLine());
        await until(session, 'asking');
        await new Promise((resolve) => setTimeout(resolve, 5));
        session.cancel();
        await asked;
        expect(session.state).toMatchObject({ phase: 'trouble', trouble: { fault: 'silent' } });
    });

    test('something can be sent as soon as the line is open, whoever is there', async () => {
        const session = sessionWith(async () => ({ output: 'sent' }));
        expect(session.state.isOpen).toBe(false);
        const line = mockLine();
        await session.connect(line);
        expect(session.state).toMatchObject({ phase: 'trouble', isOpen: true });
        expect((await session.run(['send'], { what: '' })).output).toBe('sent');
        line.unplug();
        await until(session, 'lost');
        expect(session.state.isOpen).toBe(false);
    });

    test('ends', async () => {
        const session = sessionWith();
        await session.connect(device());
        await session.disconnect();
        expect(session.state.phase).toBe('off');
        await expect(session.run(['send'], { what: '' })).rejects.toMatchObject({ fault: 'closed' });
    });
});

describe('a cable that is pulled', () => {
    test('is noticed while nothing runs, and the device is asked when it is back', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        line.unplug();
        await until(session, 'lost');
        expect(session.state.device).not.toBeNull();
        await expect(session.run(['send'], { what: '' })).rejects.toMatchObject({ fault: 'lost' });
        line.plug();
        await until(session, 'ready');
    });

    test('the same device is no other one when it is back', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        const { deviceNumber } = session.state;
        line.unplug();
        await until(session, 'lost');
        line.plug();
        await until(session, 'ready');
        expect(session.state).toMatchObject({ notice: null, deviceNumber });
    });

    test('another device that is there instead is told', async () => {
        let last = '00';
        const session = sessionWith();
        const line = mockLine(() => encoder.encode(`${deviceAnswer.slice(0, 14)}${last}00>`));
        await session.connect(line);
        const { deviceNumber } = session.state;
        last = '01';
        await session.ask(); // it has got another number
        expect(session.state).toMatchObject({ notice: null, deviceNumber });
        last = '02';
        line.unplug();
        await until(session, 'lost');
        line.plug();
        await until(session, 'ready');
        expect(session.state.notice).toMatchObject({
            title: 'Another device answers',
            text: expect.stringContaining('is 4662; before it was 4661') as string,
        });
        expect(session.state.deviceNumber).toBe(deviceNumber + 1);
    });

    test('is looked for at once when asked to', async () => {
        const session = newSession(fakeCore(), { ...times, look: 1000000 });
        const line = device();
        await session.connect(line);
        line.unplug();
        await until(session, 'lost');
        await new Promise((resolve) => setTimeout(resolve, 10));
        line.plug();
        session.look();
        await until(session, 'ready');
    });

    test('ends what runs', async () => {
        const session = sessionWith(async ({ line }) => ({ output: String((await line.read(5000)).length) }));
        const line = device();
        await session.connect(line);
        const running = session.run(['send'], { what: 'Sending' });
        await new Promise((resolve) => setTimeout(resolve, 5));
        expect(session.state.running).toBe('Sending');
        line.unplug();
        expect(await running).toMatchObject({ status: 4 });
        line.plug();
        await until(session, 'ready');
        expect(session.state.running).toBe('');
    });

    test('while another program takes the port', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        line.refuse(new LineError('busy', 'taken'));
        line.unplug();
        await until(session, 'lost');
        line.plug();
        await new Promise((resolve) => setTimeout(resolve, 30));
        expect(session.state).toMatchObject({ phase: 'lost', trouble: { fault: 'busy' } });
        line.refuse(null);
        await until(session, 'ready');
    });

    test('is not waited for after the end', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        line.unplug();
        await until(session, 'lost');
        await session.disconnect();
        line.plug();
        await new Promise((resolve) => setTimeout(resolve, 30));
        expect(session.state.phase).toBe('off');
        await session.connect(line);
        expect(session.state.phase).toBe('ready');
    });
});

describe('what runs', () => {
    test('runs one after the other', async () => {
        const steps: string[] = [];
        const session = sessionWith(async ({ args }) => {
            steps.push(`begin ${args[2]}`);
            await new Promise((resolve) => setTimeout(resolve, 10));
            steps.push(`end ${args[2]}`);
            return {};
        });
        await session.connect(device());
        await Promise.all([session.run(['a'], { what: 'a' }), session.run(['b'], { what: 'b' })]);
        expect(steps).toEqual(['begin a', 'end a', 'begin b', 'end b']);
    });

    test('gets its own bytes, and none from before', async () => {
        const session = sessionWith(async ({ line }) => {
            await line.write(encoder.encode('ask'));
            return { output: decoder.decode(await line.read(1000)) };
        });
        const line = device();
        await session.connect(line);
        line.say(encoder.encode('early'));
        await new Promise((resolve) => setTimeout(resolve, 5));
        const running = session.run(['x'], { what: 'x' });
        await new Promise((resolve) => setTimeout(resolve, 5));
        line.say(encoder.encode('late'));
        expect((await running).output).toBe('late');
    });

    test('can be cancelled', async () => {
        const session = sessionWith(
            ({ options }) =>
                new Promise((resolve) => options.signal?.addEventListener('abort', () => resolve({ status: 130 }))),
        );
        await session.connect(device());
        const running = session.run(['x'], { what: 'x' });
        await new Promise((resolve) => setTimeout(resolve, 5));
        session.cancel();
        expect((await running).status).toBe(130);
    });
});

describe('traffic', () => {
    test('has what runs sent and received, and what came between', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        line.say(encoder.encode('hello'));
        await new Promise((resolve) => setTimeout(resolve, 150));
        const told = session.traffic.passages().map(({ direction, piece }) => `${direction} ${piece.text}`);
        expect(told).toEqual([`sent ${deviceQuestion}`, `received ${deviceAnswer}`, 'received hello']);
    });

    test('can be had as a transcript', async () => {
        const session = sessionWith();
        await session.connect(device());
        const begin = 'A session of the page, vesk 1.0.0, on Mock\n';
        expect(session.traffic.transcript()).toBe(`${begin}sent ${deviceQuestion}\nreceived ${deviceAnswer}\n`);
        session.traffic.clear();
        expect(session.traffic.transcript()).toBe(begin);
    });

    test('has what has happened to the line itself', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        session.traffic.clear();
        line.onDamage?.('Bytes were lost.');
        const passages = session.traffic.passages().map(({ piece }) => piece);
        expect(passages).toMatchObject([{ isFrame: false, meaning: 'Bytes were lost.', kind: 'damaged' }]);
        await session.disconnect();
        line.onDamage?.('Late.');
        expect(session.traffic.passages()).toHaveLength(1);
    });

    test('puts together frames that arrive in parts', async () => {
        const session = sessionWith();
        const line = device();
        await session.connect(line);
        session.traffic.clear();
        line.say(encoder.encode(deviceAnswer.slice(0, 8)));
        await new Promise((resolve) => setTimeout(resolve, 20));
        line.say(encoder.encode(deviceAnswer.slice(8)));
        await new Promise((resolve) => setTimeout(resolve, 20));
        expect(session.traffic.passages().map(({ piece }) => piece.text)).toEqual([deviceAnswer]);
    });
});

describe('an update', () => {
    const file = new Uint8Array(2000); // 3 blocks

    function event(object: object): string {
        return JSON.stringify(object);
    }

    function result(outcome: string, status: number, done = 3): string {
        const rest = { blocks: 3, done, seconds: 1, sent_again: 0, message: outcome, next: [] };
        return event({ event: 'result', outcome, status, ...rest });
    }

    function progress(done: number): string {
        const rest = { bytes: done * 1024, bytes_per_s: 1, seconds: 1, seconds_left: 1, sent_again: 0 };
        return event({ event: 'progress', blocks: 3, done, ...rest });
    }

    // Sends so many blocks and then ends with a result.
    function sends(blocks: number, end: string, status: number): Play {
        return async ({ options, line }) => {
            for (let i = 0; i < blocks; ++i) {
                if (i === 2) {
                    options.onOutput?.(event({ event: 'following', blocks: 3, done: 2, sent_again: 0 }));
                }
                await line.write(new Uint8Array(100));
                options.onOutput?.(progress(i + 1));
            }
            options.onOutput?.(end);
            return { status, output: end };
        };
    }

    test('that ends well is over when the device answers', async () => {
        const session = sessionWith(sends(3, result('restarted', 0), 0));
        const steps: string[] = [];
        await session.connect(device());
        session.subscribe(() => steps.push(`${session.state.update?.step} ${session.state.phase}`));
        await session.update('new', file, { isForced: false });
        expect([...new Set(steps)]).toEqual([
            'asking ready',
            'sending ready',
            'restarting ready',
            'settling ready',
            'settling waiting',
            'over ready',
        ]);
        expect(session.state.update).toMatchObject({ name: 'new', version: '1.11', blocks: 3 });
        expect(session.state.update?.result?.outcome).toBe('restarted');
    });

    test('after which the device is absent is over when that is certain', async () => {
        let isOn = true;
        const session = sessionWith(async (run) => {
            isOn = false;
            return sends(3, result('absent', 5), 5)(run);
        });
        await session.connect(mockLine(() => (isOn ? encoder.encode(deviceAnswer) : null)));
        await session.update('new', file, { isForced: false });
        expect(session.state).toMatchObject({ phase: 'trouble', trouble: { fault: 'silent' } });
        expect(session.state.update?.step).toBe('over');
    });

    test('that leaves the old program needs no wait', async () => {
        const session = sessionWith(sends(3, result('old program', 5), 5));
        const phases = new Set<Phase>();
        await session.connect(device());
        session.subscribe(() => phases.add(session.state.phase));
        await session.update('new', file, { isForced: false });
        expect([...phases]).toEqual(['ready']);
    });

    test('that is cancelled asks until the device hears again', async () => {
        let isBusy = false; // with the rest of a block
        const session = sessionWith(async (run) => {
            isBusy = true;
            setTimeout(() => (isBusy = false), 60);
            session.cancel();
            return sends(2, result('interrupted', 130, 1), 130)(run);
        });
        await session.connect(mockLine(() => (isBusy ? null : encoder.encode(deviceAnswer))));
        await session.update('new', file, { isForced: false });
        expect(session.state).toMatchObject({ phase: 'ready', update: { step: 'over' } });
    });

    test.each([
        [2, 'failed'],
        [3, 'unknown'],
    ])('without a result after %i of 3 blocks is %s', async (blocks, outcome) => {
        const session = sessionWith(async (run) => {
            await sends(blocks, progress(blocks), 4)(run);
            return { status: 4, messages: 'veskctl: it broke\n' };
        });
        await session.connect(device());
        await session.update('new', file, { isForced: false });
        expect(session.state.update?.result).toMatchObject({ outcome, message: 'It broke.', next: [] });
    });

    test('whose line is lost says so, and the device is asked when it is back', async () => {
        const line = device();
        const session = sessionWith(async (run) => {
            await run.line.write(new Uint8Array(1044));
            line.unplug();
            await run.line.read(1000);
            return {};
        });
        await session.connect(line);
        await session.update('new', file, { isForced: false });
        expect(session.state.update?.result).toMatchObject({ outcome: 'failed', message: 'Mock was unplugged.' });
        line.plug();
        await until(session, 'ready');
    });

    test('without a line fails', async () => {
        const session = sessionWith();
        await session.update('new', file, { isForced: false });
        expect(session.state.update).toMatchObject({ step: 'over', result: { outcome: 'failed' } });
        session.forgetUpdate();
        expect(session.state.update).toBeNull();
    });

    test('can be forced', async () => {
        let given: readonly string[] = [];
        const session = sessionWith(async (run) => {
            given = run.args;
            return sends(3, result('restarted', 0), 0)(run);
        });
        await session.connect(device());
        await session.update('new', file, { isForced: true });
        expect(given).toEqual(['--serial', 'Mock', 'update', '--progress', 'json', '--force', 'program']);
    });
});
