// What scripts/web builds from web/core/.

declare module '*/vesk_core.mjs' {
    import type { Desk } from './desk.ts';

    /** Of Emscripten's file system, what is used here. */
    interface Files {
        mkdirTree(path: string): void;
        chdir(path: string): void;
        readdir(path: string): string[];
        stat(path: string): { mode: number };
        isDir(mode: number): boolean;
        isFile(mode: number): boolean;
        readFile(path: string): Uint8Array;
        writeFile(path: string, content: Uint8Array): void;
        init(input: () => number | null, output: (byte: number) => void, error: (byte: number) => void): void;
    }

    interface CoreModule {
        FS: Files;
        HEAPU8: Uint8Array;
        desk: Desk;
        _malloc(size: number): number;
        _free(at: number): void;
        UTF8ToString(at: number): string;
        ccall(name: string, result: 'number', types: 'number'[], values: number[], how: { async: true }): Promise<number>;
        ccall(name: string, result: 'number', types: 'number'[], values: number[]): number;
    }

    interface CoreSettings {
        desk: Desk;
        stdin: () => number | null;
        stdout: (byte: number | null) => void;
        stderr: (byte: number | null) => void;
        instantiateWasm(
            imports: WebAssembly.Imports,
            take: (instance: WebAssembly.Instance, module: WebAssembly.Module) => void,
        ): object;
    }

    export type { CoreModule, CoreSettings };
    export default function createCore(settings: CoreSettings): Promise<CoreModule>;
}
