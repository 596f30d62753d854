// One run of the demo device's program: from the start of the WebAssembly to its end.

import createDemo, { type DemoModule } from '../../../build/web/demo/vesk_demo.mjs';

/** The content of the device's disk, by path. */
export type DemoFiles = Map<string, Uint8Array>;

export interface DemoProgram {
    /** Bytes that arrive at the device. At most 1024. */
    receive(bytes: Uint8Array): void;
}

/** What the program does to the world. */
export interface DemoEnds {
    /** Bytes that the device writes to its line. */
    send(bytes: Uint8Array): void;
    /** A line on the device's console. */
    say(line: string): void;
    /** It has ended, and left these files. */
    ended(files: DemoFiles, why: string): void;
}

/** What lasts from one run to the next. */
const kept = ['/etc', '/run', '/userdata', '/usr/bin'];

function layFiles(module: DemoModule, files: DemoFiles): void {
    for (const [path, content] of files) {
        module.FS.mkdirTree(path.slice(0, path.lastIndexOf('/')));
        module.FS.writeFile(path, content);
    }
}

function takeFiles(module: DemoModule): DemoFiles {
    const files: DemoFiles = new Map();
    const takeFolder = (folder: string) => {
        for (const name of module.FS.readdir(folder)) {
            const path = `${folder}/${name}`;
            if (name === '.' || name === '..') {
                continue;
            }
            if (module.FS.isDir(module.FS.stat(path).mode)) {
                takeFolder(path);
            } else {
                files.set(path, module.FS.readFile(path));
            }
        }
    };
    for (const folder of kept) {
        if (module.FS.analyzePath(folder).exists) {
            takeFolder(folder);
        }
    }
    return files;
}

/** Starts the program; it has run up to its first pause when this is over. */
export async function startProgram(
    compiled: WebAssembly.Module,
    files: DemoFiles,
    ends: DemoEnds,
): Promise<DemoProgram> {
    let pause: { timer: ReturnType<typeof setTimeout>; endsWithBytes: boolean; goOn: (isInput: number) => void } | null = null;
    let hasEnded = false;

    function end(why: string): void {
        if (!hasEnded) {
            hasEnded = true;
            ends.ended(takeFiles(module), why);
        }
    }

    function goOn(isInput: boolean): void {
        if (pause === null || hasEnded) {
            return;
        }
        const { timer, goOn: enterAgain } = pause;
        clearTimeout(timer);
        pause = null;
        try {
            enterAgain(isInput ? 1 : 0);
        } catch (error) {
            // The program's own end is an exception, too.
            if (!(error instanceof Object && 'name' in error && error.name === 'ExitStatus')) {
                end(`the program has failed: ${String(error)}`);
            }
        }
    }

    // By itself createDemo() never tells of an instance that cannot be made.
    let cannotStart: (error: unknown) => void = () => undefined;
    const failure = new Promise<never>((_, reject) => (cannotStart = reject));
    const starting = createDemo({
        print: ends.say,
        printErr: ends.say,
        send: ends.send,
        pause(milliseconds, endsWithBytes, enterAgain) {
            pause = { timer: setTimeout(() => goOn(false), milliseconds), endsWithBytes, goOn: enterAgain };
        },
        onExit: () => end('the program has ended'),
        instantiateWasm(imports, take) {
            WebAssembly.instantiate(compiled, imports).then((instance) => take(instance), cannotStart);
            return {};
        },
    });
    const module = await Promise.race([starting, failure]);
    layFiles(module, files);
    module.callMain([]);
    return {
        receive(bytes) {
            if (hasEnded) {
                return;
            }
            module.HEAPU8.set(bytes, module._demo_input());
            module._demo_arrived(bytes.length);
            if (pause?.endsWithBytes) {
                queueMicrotask(() => goOn(true));
            }
        },
    };
}
