// What the tests of screens without a device run: the page's core; or, if $VESKCTL_NATIVE is set, the native tool of
// that path in a temporary directory, which a debugger or a sanitizer can look into.

import { spawn } from 'node:child_process';
import { mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import type { Finished, RunOptions } from './core.ts';
import type { Runner } from './lines.ts';

async function runNative(program: string, args: readonly string[], options: RunOptions = {}): Promise<Finished> {
    const directory = await mkdtemp(join(tmpdir(), 'vesk-'));
    try {
        for (const [name, bytes] of options.files ?? []) {
            await writeFile(join(directory, name), bytes);
        }
        const child = spawn(program, args, { cwd: directory, stdio: ['ignore', 'pipe', 'pipe'] });
        const text = { output: '', messages: '' };
        child.stdout.setEncoding('utf8').on('data', (part: string) => (text.output += part));
        child.stderr.setEncoding('utf8').on('data', (part: string) => (text.messages += part));
        const status = await new Promise<number>((resolve, reject) => {
            child.on('error', reject);
            child.on('close', (code) => resolve(code ?? -1));
        });
        const files = new Map<string, Uint8Array>();
        for (const name of await readdir(directory)) {
            files.set(name, new Uint8Array(await readFile(join(directory, name))));
        }
        return { status, ...text, files };
    } finally {
        await rm(directory, { recursive: true });
    }
}

/** Whether they run that tool. Its messages are for who types command lines, and differ from what a page is told. */
export const isNative = Boolean(process.env['VESKCTL_NATIVE']);

export async function runner(): Promise<Runner> {
    const { coreInNode } = await import('./node.ts');
    const core = await coreInNode();
    const program = process.env['VESKCTL_NATIVE'];
    return program ? { facts: core.facts, run: (args, options) => runNative(program, args, options) } : core;
}
