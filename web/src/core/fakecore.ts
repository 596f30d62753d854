// A Core for tests of what stands above it. It knows as little of the device as it can: `info` is one question, and the
// last byte of the answer's data makes another device.

import { ExitStatus, type Core, type CoreLine, type Finished, type Piece, type RunOptions } from './core.ts';

const decoder = new TextDecoder();

export const deviceQuestion = '<T0000680100000069>';
export const deviceAnswer = '<F00006801263300c2>';

export const deviceInfo = {
    device_type: '2633',
    protocol_version: '1.10',
    system_version: '2.13',
    serial_number: 4660,
    program_version: '1.10',
    block_size: 1024,
    dhcp: false,
    network: { address: '192.168.0.100', mask: '255.255.255.0', gateway: '192.168.0.1', mac: '02:76:65:73:6b:01' },
};

export interface FakeRun {
    args: readonly string[];
    options: RunOptions;
    line: CoreLine;
}

/** What a run of another subcommand than `info` does; it may throw LineError as a line does. */
export type Play = (run: FakeRun) => Promise<Partial<Finished>>;

function pieceOf(text: string): Piece {
    const isFrame = /^<[TF].{16}>$/.test(text);
    return { isFrame, text, hex: '', meaning: isFrame ? `frame ${text}` : '', kind: isFrame ? 'command' : 'other' };
}

async function info(line: CoreLine, signal: AbortSignal | undefined): Promise<Partial<Finished>> {
    await line.write(new TextEncoder().encode(deviceQuestion));
    const answer = decoder.decode(await line.read(30));
    if (signal?.aborted === true) {
        return { status: ExitStatus.interrupted };
    }
    if (answer === '<F000068fffffffff64>') {
        return { status: ExitStatus.refused, messages: 'veskctl: device type: refused\n' };
    }
    if (!answer.startsWith('<F0000680126') && !answer.startsWith('<F0000680199')) {
        return { status: ExitStatus.noAnswer, messages: 'veskctl: device type: no answer\n' };
    }
    const device = {
        ...deviceInfo,
        device_type: answer.startsWith('<F0000680126') ? '2633' : '9999',
        serial_number: deviceInfo.serial_number + Number(answer.slice(14, 16)),
    };
    return { status: ExitStatus.done, output: `${JSON.stringify(device)}\n` };
}

export function fakeCore(play: Play = async () => ({})): Core {
    return {
        version: '1.0.0',
        facts: { deviceType: '2633', programSizes: '', savKinds: [], formatClasses: [], networkWrite: '', commandForms: [] },
        serialNumberText: String,
        async run(args, options = {}) {
            const { line } = options;
            if (line === undefined) {
                throw new Error('no line');
            }
            let part: Partial<Finished>;
            try {
                part = args.includes('info') ? await info(line, options.signal) : await play({ args, options, line });
            } catch (error) {
                part = { status: ExitStatus.localFailure, messages: `veskctl: ${(error as Error).message}\n` };
            }
            return { status: 0, output: '', messages: '', files: new Map(), ...part };
        },
        commands: () => [],
        frameOf: () => ({ error: 'none' }),
        faultsOf: () => ({ address: '', mask: '', gateway: '', mac: '', together: '' }),
        faultOfProgram: () => '',
        blocksOf: (file) => Math.ceil((file.length + 128) / 1024),
        versionOf: () => '1.11',
        newRecorder(about) {
            let text = `${about}\n`;
            return {
                take(direction, bytes) {
                    text += `${direction} ${decoder.decode(bytes)}\n`;
                },
                text: () => text,
            };
        },
        newTraffic() {
            let held = '';
            return {
                feed(bytes) {
                    held += decoder.decode(bytes);
                    const found = held.match(/<[TF].{16}>/g) ?? [];
                    held = found.length > 0 ? '' : held;
                    return found.map(pieceOf);
                },
                flush() {
                    const rest = held;
                    held = '';
                    return rest === '' ? [] : [pieceOf(rest)];
                },
            };
        },
    };
}
