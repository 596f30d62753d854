// A serial port of the browser (Web Serial) as a Transport.

import { newInbox, type Inbox } from './inbox.ts';
import { LineError, type Transport } from './transport.ts';

const options: SerialOptions = {
    baudRate: 115200,
    dataBits: 8,
    stopBits: 1,
    parity: 'none',
    flowControl: 'none',
    bufferSize: 65536, // of the browser; its usual 255 bytes overflow while the page is busy
};

// What can happen to the bytes on the way; the port goes on afterwards.
const damages: Readonly<Record<string, string>> = {
    BufferOverrunError: 'Bytes were lost: they came faster than the browser took them.',
    BreakError: 'The line was interrupted for longer than a byte.',
    FramingError: 'A byte came damaged: its end was missing.',
    ParityError: 'A byte came damaged: its parity was wrong.',
};

const longestFlush = 1000; // ms, for what was written before close()

/** The browser's serial ports. Throws LineError 'unsupported' where it has none. */
export function serialOfBrowser(): Serial {
    const serial = typeof navigator === 'undefined' ? undefined : navigator.serial;
    if (serial === undefined) {
        throw new LineError('unsupported', 'This browser has no serial ports.');
    }
    return serial;
}

export function hasSerial(): boolean {
    return typeof navigator !== 'undefined' && navigator.serial !== undefined;
}

function nameOf(error: unknown): string {
    return error instanceof Error || error instanceof DOMException ? error.name : '';
}

function textOf(error: unknown): string {
    return error instanceof Error || error instanceof DOMException ? error.message : String(error);
}

function hexOf(number: number): string {
    return number.toString(16).padStart(4, '0');
}

export function nameOfPort(port: SerialPort): string {
    const { usbVendorId, usbProductId, bluetoothServiceClassId } = port.getInfo();
    if (usbVendorId !== undefined) {
        return `USB ${hexOf(usbVendorId)}:${hexOf(usbProductId ?? 0)}`;
    }
    return bluetoothServiceClassId === undefined ? 'Serial port' : 'Bluetooth';
}

function isSameKind(left: SerialPort, right: SerialPort): boolean {
    return nameOfPort(left) === nameOfPort(right);
}

function isForbidden(error: unknown): boolean {
    return nameOf(error) === 'SecurityError' || nameOf(error) === 'NotAllowedError';
}

/** Lets the user choose a port. Throws LineError, or what else has failed. Requires: the user has just clicked or pressed a key. */
export async function choosePort(serial: Serial = serialOfBrowser()): Promise<Transport> {
    try {
        return serialLine(await serial.requestPort(), serial);
    } catch (error) {
        if (nameOf(error) === 'NotFoundError') {
            throw new LineError('none', '');
        }
        if (isForbidden(error)) {
            throw new LineError('denied', `The browser does not permit it: ${textOf(error)}`);
        }
        throw error;
    }
}

/** The ports that the user has chosen before and that are plugged in. */
export async function knownPorts(serial: Serial = serialOfBrowser()): Promise<Transport[]> {
    const ports = await serial.getPorts();
    return ports.filter((port) => port.connected !== false).map((port) => serialLine(port, serial));
}

export function serialLine(chosen: SerialPort, serial: Serial): Transport {
    let port = chosen;
    let others: SerialPort[] = []; // ports that were there while this one was
    let isUnplugged = false; // while it was open, for browsers whose ports do not tell
    let isWriting = false;
    let inbox: Inbox | null = null; // while it is open
    let writer: WritableStreamDefaultWriter<Uint8Array> | null = null;
    let reader: ReadableStreamDefaultReader<Uint8Array> | null = null;
    let reading: Promise<void> = Promise.resolve();

    function lost(): LineError {
        return new LineError('lost', `${nameOfPort(port)} was unplugged.`);
    }

    function closed(): LineError {
        return new LineError('closed', `${nameOfPort(port)} is closed.`);
    }

    function isThere(): boolean {
        return port.connected ?? !isUnplugged;
    }

    function onUnplugged(): void {
        isUnplugged = true;
        inbox?.end(lost());
    }

    // Some browsers give a port that comes back a new object.
    async function findAgain(): Promise<void> {
        const ports = await serial.getPorts();
        const found = ports.filter(
            (each) => each !== port && each.connected !== false && !others.includes(each) && isSameKind(each, port),
        );
        if (found[0] !== undefined && found.length === 1) {
            port = found[0];
            isUnplugged = false;
        }
    }

    async function receive(into: Inbox): Promise<void> {
        // A damaged byte or an overflow ends the stream, and the port then has a new one.
        while (port.readable !== null) {
            reader = port.readable.getReader();
            try {
                for (;;) {
                    const { value, done } = await reader.read();
                    if (done) {
                        return; // close() has ended it
                    }
                    into.push(value);
                }
            } catch (error) {
                if (nameOf(error) === 'NetworkError') {
                    break;
                }
                line.onDamage?.(damages[nameOf(error)] ?? `What arrived was lost: ${textOf(error)}`);
            } finally {
                reader.releaseLock();
                reader = null;
            }
        }
        into.end(lost());
    }

    const line: Transport = {
        get name() {
            return nameOfPort(port);
        },

        isDemo: false,

        onDamage: null,

        async open() {
            if (!isThere()) {
                await findAgain();
            }
            try {
                await port.open(options);
            } catch (error) {
                if (!isThere()) {
                    throw lost();
                }
                if (isForbidden(error)) {
                    throw new LineError('denied', `The browser does not permit it: ${textOf(error)}`);
                }
                throw new LineError('busy', `${nameOfPort(port)} cannot be opened: ${textOf(error)}`);
            }
            isUnplugged = false;
            port.addEventListener('disconnect', onUnplugged);
            others = (await serial.getPorts()).filter((each) => each !== port);
            inbox = newInbox();
            writer = port.writable?.getWriter() ?? null;
            reading = receive(inbox);
        },

        async write(bytes) {
            if (writer === null || inbox === null) {
                throw closed();
            }
            const mine = inbox;
            isWriting = true;
            try {
                await writer.write(bytes);
            } catch {
                if (inbox !== mine) {
                    throw closed();
                }
                mine.end(lost());
                throw lost();
            } finally {
                isWriting = false;
            }
        },

        async read(timeout) {
            if (inbox === null) {
                throw closed();
            }
            return inbox.read(timeout);
        },

        async close() {
            if (inbox === null) {
                return;
            }
            const lastWriter = writer;
            port.removeEventListener('disconnect', onUnplugged);
            inbox.end(closed());
            inbox = null;
            writer = null;
            try {
                if (isWriting) {
                    await lastWriter?.abort();
                } else {
                    const late = new Promise((resolve) => setTimeout(resolve, longestFlush));
                    await Promise.race([lastWriter?.close(), late]);
                }
            } catch {
                // Of a lost port.
            }
            try {
                lastWriter?.releaseLock();
                await reader?.cancel();
                await reading;
                await port.close();
            } catch {
                // Of a lost port.
            }
        },
    };
    return line;
}
