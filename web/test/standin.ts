// Stands in for the browser's Web Serial in a page under test, after the standard of that name: the same results, errors,
// states and events. The bytes go through `veskPorts`, which ports.ts gives the page.

/** Runs in the page, so it uses nothing from outside of itself. */
export function standIn(): void {
    interface Answer {
        value?: unknown;
        error?: { name: string; message: string };
    }
    type Ask = (action: string, port: number, data: string) => Promise<Answer>;
    const outside = (window as unknown as { veskPorts: Ask }).veskPorts;

    async function ask(action: string, port = 0, data = ''): Promise<unknown> {
        const { value, error } = await outside(action, port, data);
        if (error !== undefined) {
            throw new DOMException(error.message, error.name);
        }
        return value;
    }

    class Port extends EventTarget {
        connected = true;
        onconnect: ((event: Event) => void) | null = null;
        ondisconnect: ((event: Event) => void) | null = null;
        private state: 'closed' | 'opening' | 'open' = 'closed';
        private isLost = false; // since it was opened
        private input: ReadableStream<Uint8Array> | null = null;
        private output: WritableStream<Uint8Array> | null = null;
        private chunk = 255;

        constructor(private readonly number: number) {
            super();
        }

        getInfo(): object {
            return { usbVendorId: 0x0403, usbProductId: 0x6001 + this.number };
        }

        async open(options: { baudRate: number; bufferSize?: number; dataBits?: number; parity?: string }): Promise<void> {
            if (typeof options?.baudRate !== 'number') {
                throw new TypeError("Failed to execute 'open' on 'SerialPort': required member baudRate is undefined.");
            }
            if (this.state !== 'closed') {
                throw new DOMException('The port is already open.', 'InvalidStateError');
            }
            if (options.baudRate <= 0 || options.bufferSize === 0 || ![undefined, 7, 8].includes(options.dataBits)) {
                throw new TypeError('Requested serial options are not possible.');
            }
            this.state = 'opening';
            try {
                await ask('open', this.number);
            } catch (error) {
                this.state = 'closed';
                throw error;
            }
            this.state = 'open';
            this.isLost = false;
            this.chunk = options.bufferSize ?? 255;
        }

        get readable(): ReadableStream<Uint8Array> | null {
            if (this.input === null && this.state === 'open' && !this.isLost) {
                this.input = new ReadableStream<Uint8Array>(
                    {
                        pull: async (controller) => {
                            try {
                                const text = String(await ask('read', this.number));
                                for (let at = 0; at < text.length; at += this.chunk) {
                                    const part = text.slice(at, at + this.chunk);
                                    controller.enqueue(Uint8Array.from(part, (each) => each.charCodeAt(0)));
                                }
                            } catch (error) {
                                this.isLost = true;
                                this.input = null;
                                controller.error(error);
                            }
                        },
                        cancel: () => {
                            this.input = null;
                        },
                    },
                    { highWaterMark: 0 },
                );
            }
            return this.input;
        }

        get writable(): WritableStream<Uint8Array> | null {
            if (this.output === null && this.state === 'open' && !this.isLost) {
                this.output = new WritableStream<Uint8Array>(
                    {
                        write: async (bytes) => {
                            try {
                                const text = Array.from(bytes, (byte) => String.fromCharCode(byte)).join('');
                                await ask('write', this.number, text);
                            } catch (error) {
                                this.isLost = true;
                                this.output = null;
                                throw error;
                            }
                        },
                        abort: () => {
                            this.output = null;
                        },
                        close: () => {
                            this.output = null;
                        },
                    },
                    { highWaterMark: this.chunk, size: (bytes) => bytes.length },
                );
            }
            return this.output;
        }

        async close(): Promise<void> {
            if (this.state !== 'open') {
                throw new DOMException('The port is already closed.', 'InvalidStateError');
            }
            if (this.input?.locked || this.output?.locked) {
                throw new TypeError('Cannot cancel a locked stream');
            }
            await this.input?.cancel();
            await this.output?.abort();
            this.state = 'closed';
            this.input = null;
            this.output = null;
            await ask('close', this.number);
        }

        async forget(): Promise<void> {
            ports.delete(this.number);
            await ask('forget', this.number);
        }

        setSignals(): Promise<void> {
            return Promise.resolve();
        }

        getSignals(): Promise<object> {
            return Promise.resolve({ clearToSend: false, dataCarrierDetect: false, dataSetReady: false, ringIndicator: false });
        }
    }

    const ports = new Map<number, Port>();

    async function portOf(number: number): Promise<Port> {
        let port = ports.get(number);
        if (port === undefined) {
            port = new Port(number);
            ports.set(number, port);
            port.connected = Boolean(await ask('is plugged', number));
        }
        return port;
    }

    class Serial extends EventTarget {
        onconnect: ((event: Event) => void) | null = null;
        ondisconnect: ((event: Event) => void) | null = null;

        async requestPort(): Promise<Port> {
            if (!navigator.userActivation.isActive) {
                throw new DOMException('Must be handling a user gesture to show a permission request.', 'SecurityError');
            }
            return portOf(Number(await ask('choose')));
        }

        async getPorts(): Promise<Port[]> {
            const known = await Promise.all(((await ask('known')) as number[]).map(portOf));
            return known.filter((port) => port.connected);
        }
    }

    const serial = new Serial();

    // The event bubbles from the port, if the page knows it, to navigator.serial.
    async function passEvents(): Promise<void> {
        for (;;) {
            const { kind, port: number } = (await ask('next event')) as { kind: string; port: number };
            const port = ports.get(number);
            if (port === undefined) {
                continue;
            }
            port.connected = kind === 'connect';
            port.dispatchEvent(new Event(kind));
            const event = new Event(kind);
            Object.defineProperty(event, 'target', { value: port });
            serial.dispatchEvent(event);
        }
    }

    Object.defineProperty(navigator, 'serial', { value: serial, configurable: true });
    void passEvents().catch(() => undefined);
}
