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

/**
 * A message as a sentence: the tool begins them in lower case, as what follows its name, and ends them open. What is
 * no plain word at its beginning, such as the name of a file, stays as it is.
 */
export function sentenceOf(text: string): string {
    const sentence = text.replace(/^[a-z][a-z'-]*(?=[\s,;:]|$)/, (word) => word.charAt(0).toUpperCase() + word.slice(1));
    return sentence === '' || /[.?!]$/.test(sentence) ? sentence : `${sentence}.`;
}

/** The tool's messages, a line each, without its name. */
function messagesOf({ messages }: Pick<Finished, 'messages'>): string[] {
    return messages
        .split('\n')
        .map((line) => line.replace(/^veskctl: /, '').trim())
        .filter((line) => line !== '');
}

/** The tool's messages for people on a page: sentences. */
export function sentencesOf(finished: Pick<Finished, 'messages'>): string[] {
    return messagesOf(finished).map(sentenceOf);
}

/** The same in one text, a line each. */
export function messageOf(finished: Pick<Finished, 'messages'>): string {
    return sentencesOf(finished).join('\n');
}

export interface FieldFault {
    /** What is wrong: a sentence. */
    fault: string;
    /** Which of the names it is about, or "". */
    field: string;
}

/** A complaint about an argument, `NAME: "x" is not ...`, without the name if it is one of these. */
export function argumentFaultIn(finished: Pick<Finished, 'messages'>, names: readonly string[]): FieldFault {
    const message = messagesOf(finished).join('\n');
    const field = names.find((name) => message.startsWith(`${name}: `)) ?? '';
    return { fault: sentenceOf(message.slice(field === '' ? 0 : field.length + 2)), field };
}

/** A complaint about a value of a settings file or an entry of it: without the name if it begins with one of these. */
export function valueFaultIn(finished: Pick<Finished, 'messages'>, names: readonly string[]): FieldFault {
    const found = argumentFaultIn(finished, names);
    const isAbout = (name: string) => found.fault.startsWith(`${name}[`) || found.fault.includes(`; ${name} `);
    return found.field === '' ? { ...found, field: names.find(isAbout) ?? '' } : found;
}

/** A name that is no option, whatever the file is called. */
export function argumentOf(name: string): string {
    return name.startsWith('-') ? `./${name}` : name;
}
