// A command and its parameters as the text that `send` takes.

import type { Command } from './core/core.ts';

/**
 * The words for the parameters. Of a command that reads, those that are left empty get their usual value where others
 * follow, or all of them with `isWhole`.
 */
export function wordsOf(command: Command, values: readonly string[], isWhole = false): string[] {
    const given = command.parameters.map((_, index) => (values[index] ?? '').trim());
    while (!isWhole && given.length > 0 && given[given.length - 1] === '') {
        given.pop();
    }
    return given
        .map((value, index) => (value === '' && !command.writes ? (command.parameters[index]?.usual ?? '') : value))
        .filter((word) => word !== '');
}

export function textOf(command: Command, values: readonly string[]): string {
    return [command.words, ...wordsOf(command, values)].join(' ');
}

/** veskctl's arguments: commands that a text follows have a subcommand of their own. */
export function argsOf(command: Command, values: readonly string[], payload: string): string[] {
    if (command.subcommand === '') {
        return ['send', textOf(command, values)];
    }
    const words = wordsOf(command, values, true);
    return [...command.subcommand.split(' '), ...words, ...(command.writes ? [payload] : [])];
}
