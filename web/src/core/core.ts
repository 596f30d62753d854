// The device's own code and its tool, as WebAssembly (web/core): everything that the page knows of frames, records,
// files, timings and updates comes from here. `run` is `veskctl` with arguments; each run is a fresh program with files
// of its own, which end with it.

/** What `run` needs of a line; a Transport (../line/transport.ts) is one. */
export interface CoreLine {
    write(bytes: Uint8Array): Promise<void>;
    read(timeout: number): Promise<Uint8Array>;
}

export interface RunOptions {
    /** For subcommands that talk to a device; their arguments then begin with `--serial port`. */
    line?: CoreLine;
    /** Files in the program's working directory, by name. */
    files?: ReadonlyMap<string, Uint8Array>;
    /** Whole lines of standard output and standard error, while they come. */
    onOutput?: (line: string) => void;
    onMessage?: (line: string) => void;
    /** What Ctrl-C is at a desk: the program ends with its own last words. */
    signal?: AbortSignal;
    /** Its messages may name options and subcommands, as for somebody who has typed `args`. */
    isTyped?: boolean;
}

export interface Finished {
    /** veskctl's exit status: see ExitStatus. */
    status: number;
    output: string;
    messages: string;
    /** All files of the working directory, new ones too. */
    files: Map<string, Uint8Array>;
}

export enum ExitStatus {
    done = 0,
    refused = 1,
    usage = 2,
    noAnswer = 3,
    localFailure = 4,
    notFinished = 5,
    interrupted = 130,
}

/** A parameter of a command, from the command table. */
export interface Parameter {
    name: string;
    /** What can be typed, such as "two hexadecimal digits". */
    hint: string;
    /** The only words that can be typed; if there are none, anything that fits. */
    choices: string[];
    /** What a command that reads is sent with if nothing is typed. */
    usual: string;
}

export interface Command {
    /** The words to type. */
    words: string;
    /** "68 01": code and, where it is a sub-command, dat1. */
    code: string;
    writes: boolean;
    hasPayload: boolean;
    /** The subcommand of its own that it has for a text that follows it, such as "text read"; or "". */
    subcommand: string;
    note: string;
    parameters: Parameter[];
    /** As in the manual: " A.B.C.D". */
    usage: string;
}

/** A part of what a line carries: one frame with what it says, or bytes between frames as escaped text. */
export interface Piece {
    isFrame: boolean;
    /** The frame's 19 characters, or the escaped bytes. */
    text: string;
    /** The bytes as hexadecimal digits with blanks. */
    hex: string;
    /** A frame as a sentence; of other bytes "". */
    meaning: string;
    /** "command", "reply", "refusal", "damaged" or "other". */
    kind: string;
}

/** Finds frames in one direction of a line. */
export interface Traffic {
    feed(bytes: Uint8Array): Piece[];
    /** What is held back. For use when the line is quiet. */
    flush(): Piece[];
}

/** Writes what a line carries as a transcript that `veskctl play` plays. */
export interface Recorder {
    take(direction: 'sent' | 'received', bytes: Uint8Array): void;
    /** What it has so far. */
    text(): string;
}

export interface NetworkSettings {
    address: string;
    mask: string;
    gateway: string;
    mac: string;
}

/** What the tool knows that no run of it prints by itself. */
export interface Facts {
    /** What a device of this kind tells as its type. */
    deviceType: string;
    /** How large a program for it is: "1 KiB to 16 MiB". */
    programSizes: string;
    /** The kinds of settings files, as `sav --kind` takes them. */
    savKinds: string[];
    /** The classes of video formats, as `timing list --class` takes them. */
    formatClasses: string[];
    /** What a device does with network settings that are written. */
    networkWrite: string;
    /** What else than words `send` takes. */
    commandForms: { digits: string; about: string }[];
}

export interface Core {
    /** The version of the tool, such as "1.0.0". */
    readonly version: string;

    readonly facts: Facts;

    run(args: readonly string[], options?: RunOptions): Promise<Finished>;

    commands(): Command[];

    /** The frame that `send` would send for a text, or why there is none: `NAME: ...` if it is a parameter's fault. */
    frameOf(text: string): { frame: string; meaning: string; writes: boolean } | { error: string };

    /** As people write it: "4660 (0x1234)". */
    serialNumberText(number: number): string;

    /** Of each setting what is wrong with it, and of all together; "" where nothing is. */
    faultsOf(settings: NetworkSettings): NetworkSettings & { together: string };

    /** What `update` would say of a file before it sends anything: "" if it is a program for the device. */
    faultOfProgram(file: Uint8Array): string;

    /** How many blocks an update has. Requires: faultOfProgram() finds nothing. */
    blocksOf(file: Uint8Array): number;

    /** The version that stands in a program, or "". */
    versionOf(file: Uint8Array): string;

    newTraffic(): Traffic;

    /** `about` is written as a comment. Requires: no earlier one is used any more. */
    newRecorder(about: string): Recorder;
}
