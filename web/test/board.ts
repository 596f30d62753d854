// A simulated board with the unmodified daemon, whose serial line ends in this program.

import { spawn } from 'node:child_process';
import { existsSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

import type { FarEnd } from './ports.ts';

export const root = fileURLToPath(new URL('../..', import.meta.url));

export interface Board extends FarEnd {
    /** The daemon's messages so far. */
    readonly log: readonly string[];

    /**
     * Waits until a message is there so many times. A minute at most: the machine may be busy, and the messages come
     * later than the bytes of the line.
     */
    says(text: string, times?: number): Promise<void>;

    stop(): Promise<void>;
}

/** The daemon that scripts/run and scripts/test build. */
export function daemonPath(): string {
    const path = process.env['VESK_DAEMON'] ?? `${root}build/release/vesk_h264`;
    if (!existsSync(path)) {
        throw new Error(`${path} is missing: cmake --preset release && cmake --build --preset release builds it`);
    }
    return path;
}

const question = '<T0000680100000069>'; // an answer is as long

/** Is over when the daemon answers. */
export async function startBoard(): Promise<Board> {
    const log: string[] = [];
    const watchers = new Set<() => void>();
    const process = spawn(
        `${root}testbench/board`,
        [`${root}testbench/desk`, '--serial', daemonPath(), `${root}web/test/relay`],
        { cwd: root, stdio: ['pipe', 'pipe', 'pipe'] },
    );
    const ended = new Promise<void>((resolve) => process.on('close', () => resolve()));
    let rest = '';
    process.stderr.setEncoding('latin1').on('data', (text: string) => {
        const lines = (rest + text).split('\n');
        rest = lines.pop() ?? '';
        log.push(...lines);
        watchers.forEach((watch) => watch());
    });
    process.stdin.on('error', () => undefined); // the board has been stopped

    const board: Board = {
        log,
        take(bytes) {
            process.stdin.write(bytes);
        },
        onBytes: null,
        says(text, times = 1) {
            return new Promise((resolve, reject) => {
                const late = setTimeout(() => {
                    watchers.delete(watch);
                    reject(new Error(`the daemon does not say "${text}" but:\n${log.join('\n')}\n${rest}`));
                }, 60000);
                function watch(): void {
                    if (log.filter((line) => line === text).length >= times) {
                        clearTimeout(late);
                        watchers.delete(watch);
                        resolve();
                    }
                }
                watchers.add(watch);
                watch();
            });
        },
        async stop() {
            process.kill();
            await ended;
        },
    };
    process.stdout.on('data', (bytes: Buffer) => board.onBytes?.(bytes));
    await board.says('enter main');
    await new Promise<void>((resolve) => {
        let heard = 0;
        board.onBytes = (bytes) => {
            heard += bytes.length;
            if (heard === question.length) {
                resolve();
            }
        };
        board.take(Buffer.from(question));
    });
    board.onBytes = null;
    return board;
}
