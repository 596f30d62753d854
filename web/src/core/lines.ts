// What the tool prints, as the page needs it.

import type { Core, Finished } from './core.ts';

/** What a screen without a device needs of the core. */
export type Runner = Pick<Core, 'run'>;

/** The objects of an output of `--json`: one a line. The schemas in docs/schema say what they are. */
export function objectsOf<T>(finished: Finished): T[] {
    return finished.output
        .split('\n')
        .filter((line) => line !== '')
        .map((line) => JSON.parse(line) as T);
}

/** The tool's messages for people on a page: without its name, and without what is for a command line only. */
export function messageOf(finished: Finished): string {
    const lines = finished.messages.trimEnd().split('\n');
    return lines
        .map((line) =>
            line
                .replace(/^veskctl: /, '')
                .replace(/; see `veskctl .*$/, '')
                .replace(/; --kind says what it is$/, ''),
        )
        .join('\n');
}

/** The words that an option or argument takes: the tool names them when it gets another one at the end of `args`. */
export async function choicesOf(core: Runner, args: readonly string[]): Promise<string[]> {
    const { messages } = await core.run([...args, '?']);
    return /not in \{([^}]*)\}/.exec(messages)?.[1]?.split(',') ?? [];
}

/** A name that is no option, whatever the file is called. */
export function argumentOf(name: string): string {
    return name.startsWith('-') ? `./${name}` : name;
}
