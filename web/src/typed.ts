// A command and its parameters as the text that `send` takes.

import type { Command, Parameter } from './core/core.ts';

export function isSwitch(parameter: Parameter): boolean {
    return parameter.type === 'on/off';
}

/** Those whose frame is followed by a text: veskctl has subcommands of their own for them. */
export function isTextCommand(command: Command): boolean {
    return command.words === 'read text' || command.words === 'write text';
}

/** What the device is sent if nothing is typed. */
export function usualText(parameter: Parameter): string {
    if (parameter.length === 1) {
        return parameter.usual.toString(16).padStart(2, '0');
    }
    return String(parameter.usual);
}

/** Parameters that are left empty get their usual value where others follow, and none at the end. */
export function textOf(command: Command, values: readonly string[]): string {
    const given = command.parameters.map((_, index) => (values[index] ?? '').trim());
    while (given.length > 0 && given[given.length - 1] === '') {
        given.pop();
    }
    const words = given.map((value, index) => {
        const parameter = command.parameters[index];
        return value === '' && parameter !== undefined && !command.writes ? usualText(parameter) : value;
    });
    return [command.words, ...words].filter((word) => word !== '').join(' ');
}
