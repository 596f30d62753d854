import { expect, test } from 'vitest';

import type { Command, Parameter } from './core/core.ts';
import { argsOf, textOf } from './typed.ts';

function parameter(name: string, usual: string): Parameter {
    return { name, hint: '', choices: [], usual };
}

function command(writes: boolean, ...parameters: Parameter[]): Command {
    const rest = { code: 'f3', hasPayload: true, subcommand: '', note: '', usage: '' };
    return { words: 'read text', writes, parameters, ...rest };
}

test('values follow the words', () => {
    expect(textOf(command(false, parameter('a', '00'), parameter('b', '00')), ['09', ' 01 '])).toBe('read text 09 01');
});

test('what is empty at the end is left out', () => {
    expect(textOf(command(false, parameter('a', '00'), parameter('b', '07')), ['09', ''])).toBe('read text 09');
    expect(textOf(command(false, parameter('a', '00')), [])).toBe('read text');
});

test('what is empty before a value gets its usual value', () => {
    expect(textOf(command(false, parameter('a', '0a'), parameter('b', '00')), ['', '01'])).toBe('read text 0a 01');
    expect(textOf(command(false, parameter('a', '300'), parameter('b', '00')), ['', '01'])).toBe('read text 300 01');
});

test('a command that writes gets nothing that nobody has typed', () => {
    expect(textOf(command(true, parameter('a', '0a'), parameter('b', '00')), ['', '01'])).toBe('read text 01');
});

test('a command that a text follows has its own subcommand, with all that is read', () => {
    const [a, b] = [parameter('a', '00'), parameter('b', '00')];
    expect(argsOf(command(false, a, b), ['09'], '')).toEqual(['send', 'read text 09']);
    expect(argsOf({ ...command(false, a, b), subcommand: 'text read' }, ['09'], '')).toEqual(['text', 'read', '09', '00']);
    expect(argsOf({ ...command(true, a, b), subcommand: 'text write' }, ['09', '00'], '[a=1]')).toEqual([
        'text',
        'write',
        '09',
        '00',
        '[a=1]',
    ]);
});
