// veskctl at the end of a board's serial line, where the page was before: it plays what the page has recorded.

import { spawn } from 'node:child_process';
import { existsSync } from 'node:fs';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import { root } from './board.ts';
import type { FarEnd } from './ports.ts';

/** What is printed, and the exit status at its end. */
interface Played {
    status: number | null;
    output: string;
}

function veskctlPath(): string {
    const path = process.env['VESKCTL'] ?? `${root}build/release/tools/veskctl`;
    if (!existsSync(path)) {
        throw new Error(`${path} is missing: cmake --preset release && cmake --build --preset release builds it`);
    }
    return path;
}

async function run(program: string, args: readonly string[]): Promise<Played> {
    const process = spawn(program, args, { stdio: ['ignore', 'pipe', 'pipe'] });
    let output = '';
    for (const stream of [process.stdout, process.stderr]) {
        stream.setEncoding('latin1').on('data', (text: string) => (output += text));
    }
    const status = await new Promise<number | null>((resolve) => process.on('close', resolve));
    return { status, output };
}

/** Plays a transcript with the device at the far end. Requires: nobody else uses it any more. */
export async function play(end: FarEnd, transcript: Buffer): Promise<Played> {
    const folder = await mkdtemp(join(tmpdir(), 'play-'));
    const line = join(folder, 'line');
    // It makes the serial device that veskctl opens.
    const cable = spawn('socat', ['-d', '-d', `PTY,link=${line},raw,echo=0`, 'STDIO'], { stdio: ['pipe', 'pipe', 'pipe'] });
    const isOver = new Promise((resolve) => cable.on('close', resolve));
    end.onBytes = (bytes) => cable.stdin.write(bytes);
    cable.stdin.on('error', () => undefined); // veskctl has ended
    cable.stdout.on('data', (bytes: Buffer) => end.take(bytes));
    try {
        await new Promise<void>((resolve, reject) => {
            let said = '';
            cable.stderr.setEncoding('latin1').on('data', (text: string) => {
                said += text;
                if (said.includes('starting data transfer loop')) {
                    resolve();
                }
            });
            void isOver.then(() => reject(new Error(`socat made no line: ${said}`)));
        });
        await writeFile(join(folder, 'session.txt'), transcript);
        // A busy machine may take longer for an answer than usual.
        return await run(veskctlPath(), ['--serial', line, '--timeout', '60000', 'play', join(folder, 'session.txt')]);
    } finally {
        end.onBytes = null;
        cable.kill();
        await isOver;
        await rm(folder, { recursive: true });
    }
}
