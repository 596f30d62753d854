import { expect, test } from 'vitest';

import type { Command, Parameter } from './core/core.ts';
import { textOf } from './typed.ts';

function parameter(name: string, usual: number, length = 1): Parameter {
    return { name, type: 'u8', length, least: 0, most: 255, usual, unit: '' };
}

function command(writes: boolean, ...parameters: Parameter[]): Command {
    return { words: 'read text', code: 'f3', writes, hasPayload: true, note: '', usage: '', parameters };
}

test('values follow the words', () => {
    expect(textOf(command(false, parameter('a', 0), parameter('b', 0)), ['09', ' 01 '])).toBe('read text 09 01');
});

test('what is empty at the end is left out', () => {
    expect(textOf(command(false, parameter('a', 0), parameter('b', 7)), ['09', ''])).toBe('read text 09');
    expect(textOf(command(false, parameter('a', 0)), [])).toBe('read text');
});

test('what is empty before a value gets its usual value', () => {
    expect(textOf(command(false, parameter('a', 10), parameter('b', 0)), ['', '01'])).toBe('read text 0a 01');
    expect(textOf(command(false, parameter('a', 300, 2), parameter('b', 0)), ['', '01'])).toBe('read text 300 01');
});

test('a command that writes gets nothing that nobody has typed', () => {
    expect(textOf(command(true, parameter('a', 10), parameter('b', 0)), ['', '01'])).toBe('read text 01');
});
