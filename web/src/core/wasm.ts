// The core: one compiled module, of which each run gets a fresh instance.

import createCore, { type CoreModule } from '../../../build/web/core/vesk_core.mjs';
import type { Command, Core, Facts, Finished, NetworkSettings, Piece, RunOptions } from './core.ts';
import { newDesk, type Desk } from './desk.ts';

const HOME = '/home/web_user'; // the working directory of a run, which Emscripten makes

const encoder = new TextEncoder();

/** Texts, each ended by a NUL. */
function bytesOf(texts: readonly string[]): Uint8Array {
    return encoder.encode(texts.map((each) => `${each.replaceAll('\0', '\ufffd')}\0`).join(''));
}

/** Copies bytes to where the module sees them. */
function put(module: CoreModule, bytes: Uint8Array): number {
    const at = module._malloc(bytes.length + 1); // never nothing, which may be 0
    module.HEAPU8.set(bytes, at);
    return at;
}

/** Collects the bytes of a stream, and tells of each whole line. */
function newStream(onLine: ((line: string) => void) | undefined) {
    const bytes: number[] = [];
    let begin = 0; // of the line that has not ended
    const text = (from: number) => new TextDecoder().decode(Uint8Array.from(bytes.slice(from)));
    return {
        take(byte: number | null) {
            if (byte === null) {
                return;
            }
            bytes.push(byte & 0xff);
            if (byte === 10) {
                const line = onLine && text(begin).slice(0, -1);
                begin = bytes.length;
                onLine?.(line ?? '');
            }
        },
        /** Everything, after the last line was told of even if it has no end. */
        end(): string {
            if (begin < bytes.length) {
                onLine?.(text(begin));
            }
            return text(0);
        },
    };
}

function putFiles(module: CoreModule, files: ReadonlyMap<string, Uint8Array> | undefined): void {
    module.FS.chdir(HOME);
    for (const [name, content] of files ?? []) {
        const slash = name.lastIndexOf('/');
        if (slash > 0) {
            module.FS.mkdirTree(`${HOME}/${name.slice(0, slash)}`);
        }
        module.FS.writeFile(`${HOME}/${name}`, content);
    }
}

function takeFiles(module: CoreModule, folder = ''): Map<string, Uint8Array> {
    const files = new Map<string, Uint8Array>();
    for (const name of module.FS.readdir(`${HOME}/${folder}`)) {
        const path = folder + name;
        const { mode } = module.FS.stat(`${HOME}/${path}`);
        if (name === '.' || name === '..') {
            continue;
        }
        if (module.FS.isDir(mode)) {
            for (const [each, content] of takeFiles(module, `${path}/`)) {
                files.set(each, content);
            }
        } else if (module.FS.isFile(mode)) {
            files.set(path, module.FS.readFile(`${HOME}/${path}`));
        }
    }
    return files;
}

async function fetchFromPage(): Promise<ArrayBuffer> {
    const response = await fetch(new URL('../../../build/web/core/vesk_core.wasm', import.meta.url));
    if (!response.ok) {
        throw new Error(`the page is not complete: ${response.url} cannot be loaded (${response.status})`);
    }
    return response.arrayBuffer();
}

/** Loads the module, by default from beside the page. Throws Error if it cannot. */
export async function loadCore(fetchWasm: () => Promise<BufferSource> = fetchFromPage): Promise<Core> {
    const compiled = await WebAssembly.compile(await fetchWasm());

    function newInstance(
        desk: Desk,
        stdout: (byte: number | null) => void,
        stderr: (byte: number | null) => void,
    ): Promise<CoreModule> {
        return new Promise((resolve, reject) => {
            createCore({
                desk,
                stdin: () => null,
                stdout,
                stderr,
                instantiateWasm(imports, take) {
                    WebAssembly.instantiate(compiled, imports).then((instance) => take(instance, compiled), reject);
                    return {};
                },
            }).then(resolve, reject);
        });
    }

    async function run(args: readonly string[], options: RunOptions = {}): Promise<Finished> {
        const output = newStream(options.onOutput);
        const messages = newStream(options.onMessage);
        const desk = newDesk(options.line, options.signal);
        const module = await newInstance(desk, output.take, messages.take);
        putFiles(module, options.files);
        const given = bytesOf(args);
        try {
            const values = [put(module, given), given.length, options.isTyped === true ? 1 : 0];
            const types = values.map(() => 'number' as const);
            const status = await module.ccall('runTool', 'number', types, values, { async: true });
            return { status, output: output.end(), messages: messages.end(), files: takeFiles(module) };
        } finally {
            await desk.leave();
        }
    }

    // The questions that are answered at once have an instance of their own.
    const asked = await newInstance(newDesk(undefined, undefined), () => {}, () => {});

    function ask(name: string, bytes: Uint8Array, ...first: number[]): number {
        const at = put(asked, bytes);
        try {
            const values = [...first, at, bytes.length];
            return asked.ccall(name, 'number', values.map(() => 'number' as const), values);
        } finally {
            asked._free(at);
        }
    }

    function answer(name: string, bytes: Uint8Array = new Uint8Array(), ...first: number[]): string {
        return asked.UTF8ToString(ask(name, bytes, ...first));
    }

    function answerTo(name: string, number: number): string {
        return asked.UTF8ToString(asked.ccall(name, 'number', ['number'], [number]));
    }

    return {
        version: asked.UTF8ToString(asked.ccall('toolVersion', 'number', [], [])),
        facts: JSON.parse(answer('listFacts')) as Facts,
        run,
        serialNumberText: (number) => answerTo('textOfSerialNumber', number),
        commands: () => JSON.parse(answer('listCommands')) as Command[],
        frameOf: (text) => JSON.parse(answer('frameOf', encoder.encode(text))) as ReturnType<Core['frameOf']>,
        faultsOf: ({ address, mask, gateway, mac }) =>
            JSON.parse(answer('faultsOf', bytesOf([address, mask, gateway, mac]))) as NetworkSettings & { together: string },
        faultOfProgram: (file) => answer('faultOfFile', file),
        blocksOf: (file) => ask('blocksOf', file),
        versionOf: (file) => answer('versionOf', file),
        newRecorder(about) {
            ask('startRecord', encoder.encode(about));
            return {
                take: (direction, bytes) => void ask('takeRecord', bytes, direction === 'sent' ? 1 : 0),
                text: () => new TextDecoder().decode(asked.FS.readFile('/session.txt')),
            };
        },
        newTraffic() {
            const finder = asked.ccall('newFinder', 'number', [], []);
            return {
                feed: (bytes) => JSON.parse(answer('feedFinder', bytes, finder)) as Piece[],
                flush: () => JSON.parse(answer('flushFinder', undefined, finder)) as Piece[],
            };
        },
    };
}
