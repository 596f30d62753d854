// The core as a page has it: runs, files and lines.

import { expect, test } from 'vitest';

import { coreInNode } from './node.ts';

const core = await coreInNode();

test('a run has a status, its output and its messages', async () => {
    const lines: string[] = [];
    const done = await core.run(['decode', '<T0000680100000069>'], { onOutput: (line) => lines.push(line) });
    expect(done).toMatchObject({ status: 0, messages: '' });
    expect(lines).toEqual([done.output.trimEnd()]);
    const bad = await core.run(['decode', 'nothing']);
    expect(bad.status).toBe(2);
    expect(bad.messages).toMatch(/^veskctl: /);
});
