// What emscripten makes of web/core/demo. The types of what is used of it.

declare module '*/vesk_demo.mjs' {
    export interface DemoModule {
        readonly HEAPU8: Uint8Array;
        readonly FS: {
            mkdirTree(path: string): void;
            writeFile(path: string, content: Uint8Array): void;
            readFile(path: string): Uint8Array;
            readdir(path: string): string[];
            stat(path: string): { mode: number };
            isDir(mode: number): boolean;
            analyzePath(path: string): { exists: boolean };
        };
        callMain(args: string[]): void;
        /** Where up to 1024 bytes for the device are put, and then how many. */
        _demo_input(): number;
        _demo_arrived(length: number): void;
    }

    export default function createDemo(options: {
        print(line: string): void;
        printErr(line: string): void;
        send(bytes: Uint8Array): void;
        pause(milliseconds: number, endsWithBytes: boolean, goOn: (isInput: number) => void): void;
        onExit(status: number): void;
        instantiateWasm(imports: WebAssembly.Imports, take: (instance: WebAssembly.Instance) => void): object;
    }): Promise<DemoModule>;
}
