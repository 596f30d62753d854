// Web Serial for tests: a port with a far end that answers by a script, and a browser that has it.

import type { Script } from './mock.ts';

export class FakePort extends EventTarget implements SerialPort {
    connected = true;
    readable: ReadableStream<Uint8Array> | null = null;
    writable: WritableStream<Uint8Array> | null = null;

    /** Another program has it. */
    isTaken = false;

    openedWith: SerialOptions | null = null;

    listeners = 0;

    private isOpen = false;
    private source: ReadableStreamDefaultController<Uint8Array> | null = null;
    private sink: WritableStreamDefaultController | null = null;

    constructor(
        private readonly script: Script,
        private readonly info: SerialPortInfo = { usbVendorId: 0x0403, usbProductId: 0x6001 },
    ) {
        super();
    }

    getInfo(): SerialPortInfo {
        return this.info;
    }

    async open(options: SerialOptions): Promise<void> {
        if (this.isOpen) {
            throw new DOMException('The port is already open.', 'InvalidStateError');
        }
        if (!this.connected || this.isTaken) {
            throw new DOMException('Failed to open serial port.', 'NetworkError');
        }
        this.isOpen = true;
        this.openedWith = options;
        this.makeReadable();
        this.writable = new WritableStream<Uint8Array>({
            start: (controller) => {
                this.sink = controller;
            },
            write: async (bytes) => {
                this.answer(this.script(bytes) ?? new Uint8Array());
            },
        });
    }

    async close(): Promise<void> {
        if (this.readable?.locked === true || this.writable?.locked === true) {
            throw new TypeError('A stream is locked.');
        }
        this.isOpen = false;
        this.readable = null;
        this.writable = null;
    }

    say(bytes: Uint8Array): void {
        this.source?.enqueue(bytes);
    }

    unplug(): void {
        const error = new DOMException('The device has been lost.', 'NetworkError');
        this.connected = false;
        this.readable = null;
        this.source?.error(error);
        this.source = null;
        this.sink?.error(error);
        this.sink = null;
        this.dispatchEvent(new Event('disconnect'));
    }

    plug(): void {
        this.connected = true;
        this.isOpen = false;
        this.dispatchEvent(new Event('connect'));
    }

    /** As a browser does after a damaged byte: the stream fails and the port has a new one. */
    damage(name = 'FramingError'): void {
        const last = this.source;
        this.makeReadable();
        last?.error(new DOMException('A byte is damaged.', name));
    }

    override addEventListener(...args: Parameters<EventTarget['addEventListener']>): void {
        this.listeners += 1;
        super.addEventListener(...args);
    }

    override removeEventListener(...args: Parameters<EventTarget['removeEventListener']>): void {
        this.listeners -= 1;
        super.removeEventListener(...args);
    }

    private makeReadable(): void {
        this.readable = new ReadableStream<Uint8Array>({
            start: (controller) => {
                this.source = controller;
            },
            cancel: () => {
                this.source = null;
            },
        });
    }

    // In two parts, as lines do.
    private answer(bytes: Uint8Array): void {
        for (const part of [bytes.slice(0, 7), bytes.slice(7)].filter((each) => each.length > 0)) {
            setTimeout(() => this.source?.enqueue(part), 1);
        }
    }
}

export class FakeSerial extends EventTarget implements Serial {
    /** What the user chooses; null: nothing. */
    choice: SerialPort | null = null;

    /** What the browser says instead of asking the user. */
    refusal: DOMException | null = null;

    constructor(readonly ports: SerialPort[]) {
        super();
    }

    async getPorts(): Promise<SerialPort[]> {
        return this.ports;
    }

    async requestPort(): Promise<SerialPort> {
        if (this.refusal !== null) {
            throw this.refusal;
        }
        if (this.choice === null) {
            throw new DOMException('No port selected by the user.', 'NotFoundError');
        }
        return this.choice;
    }
}
