// What the tool prints, as the page needs it. Nothing else in the page reads its messages.

import type { Core, Finished } from './core.ts';

/** What a screen without a device needs of the core. */
export type Runner = Pick<Core, 'run' | 'facts'>;

/** The objects of an output of `--json`: one a line. The schemas in docs/schema say what they are. */
export function objectsOf<T>({ output }: Pick<Finished, 'output'>): T[] {
    return output
        .split('\n')
        .filter((line) => line !== '')
        .map((line) => JSON.parse(line) as T);
}

/** A message as a sentence: the tool begins them in lower case, as what follows its name, and ends them open. */
export function sentenceOf(text: string): string {
    const sentence = text.charAt(0).toUpperCase() + text.slice(1);
    return sentence === '' || /[.?!]$/.test(sentence) ? sentence : `${sentence}.`;
}

/** The tool's messages, a line each, without its name. */
function messagesOf({ messages }: Pick<Finished, 'messages'>): string[] {
    return messages
        .split('\n')
        .map((line) => line.replace(/^veskctl: /, '').trim())
        .filter((line) => line !== '');
}

/** The tool's messages for people on a page. */
export function messageOf(finished: Pick<Finished, 'messages'>): string {
    return messagesOf(finished).join('\n');
}

/** The same as sentences. */
export function sentencesOf(finished: Pick<Finished, 'messages'>): string[] {
    return messagesOf(finished).map(sentenceOf);
}

export interface FieldFault {
    /** What is wrong. */
    fault: string;
    /** Which of the names it is about, or "". */
    field: string;
}

/** A complaint about an argument, `NAME: "x" is not ...`, apart from the argument's name. */
export function argumentFaultIn(finished: Pick<Finished, 'messages'>, names: readonly string[]): FieldFault {
    const message = messageOf(finished);
    const field = names.find((name) => message.startsWith(`${name}: `)) ?? '';
    return { fault: field === '' ? message : message.slice(field.length + 2), field };
}

/** A complaint about a value of a settings file or an entry of it, as it stands, and which of the names it is about. */
export function valueFaultIn(finished: Pick<Finished, 'messages'>, names: readonly string[]): FieldFault {
    const fault = messageOf(finished);
    const isAbout = (name: string) =>
        fault.startsWith(`${name}: `) || fault.startsWith(`${name}[`) || fault.includes(`; ${name} `);
    return { fault, field: names.find(isAbout) ?? '' };
}

/** A name that is no option, whatever the file is called. */
export function argumentOf(name: string): string {
    return name.startsWith('-') ? `./${name}` : name;
}
