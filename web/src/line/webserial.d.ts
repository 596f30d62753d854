// The part of Web Serial that serial.ts uses. TypeScript's library does not have it yet.

interface SerialPortInfo {
    usbVendorId?: number;
    usbProductId?: number;
    bluetoothServiceClassId?: number | string;
}

interface SerialOptions {
    baudRate: number;
    dataBits?: 7 | 8;
    stopBits?: 1 | 2;
    parity?: 'none' | 'even' | 'odd';
    bufferSize?: number;
    flowControl?: 'none' | 'hardware';
}

interface SerialPort extends EventTarget {
    /** Whether it is plugged in. Browsers before 2024 do not tell. */
    readonly connected?: boolean;
    readonly readable: ReadableStream<Uint8Array> | null;
    readonly writable: WritableStream<Uint8Array> | null;
    getInfo(): SerialPortInfo;
    open(options: SerialOptions): Promise<void>;
    close(): Promise<void>;
}

/** Its events `connect` and `disconnect` have the port as their target. */
interface Serial extends EventTarget {
    getPorts(): Promise<SerialPort[]>;
    requestPort(): Promise<SerialPort>;
}

interface Navigator {
    readonly serial?: Serial;
}
