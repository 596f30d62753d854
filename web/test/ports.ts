// Serial ports for a page under test: what the computer has, who is at the far ends, and what the user chooses. The page
// sees them through a stand-in for Web Serial (standin.ts), which asks here through one function.

import type { Page } from 'playwright-core';

import { standIn } from './standin.ts';

/** What is at the other end of a cable. */
export interface FarEnd {
    /** Bytes from the page. */
    take(bytes: Uint8Array): void;

    /** Is called with bytes for the page. */
    onBytes: ((bytes: Uint8Array) => void) | null;
}

/** A far end that says nothing. */
export function silence(): FarEnd {
    return { take: () => undefined, onBytes: null };
}

/** A far end that answers everything with the same. */
export function parrot(text: string): FarEnd {
    const end: FarEnd = {
        take: () => end.onBytes?.(Buffer.from(text, 'latin1')),
        onBytes: null,
    };
    return end;
}

export interface Port {
    /** Another program has it. */
    isBusy: boolean;

    /** The user has let the page use it before. */
    isKnown: boolean;

    /** All that the page has written. */
    readonly written: Uint8Array[];

    /** Pulls the cable, and plugs it in again. */
    unplug(): void;
    plug(): void;

    /** Leads the cable to another far end. */
    lead(end: FarEnd): void;

    /** Is called for each write of the page, before it reaches the far end. Bytes that it returns go there instead. */
    onWrite: ((bytes: Uint8Array) => Uint8Array | void) | null;
}

export interface Ports {
    /** What the user does when the page asks for a port. */
    choice: 'cancel' | 'forbid' | Port;

    add(end: FarEnd): Port;
}

interface Answer {
    value?: unknown;
    error?: { name: string; message: string };
}

class Cable implements Port {
    isBusy = false;
    isKnown = false; // to the page
    isPlugged = true;
    isOpen = false;
    readonly written: Uint8Array[] = [];
    onWrite: ((bytes: Uint8Array) => Uint8Array | void) | null = null;
    private waiting: Buffer[] = [];
    private wake: (() => void) | null = null;

    constructor(
        private end: FarEnd,
        private readonly tell: (event: string) => void,
    ) {
        this.lead(end);
    }

    lead(end: FarEnd): void {
        this.end.onBytes = null;
        this.end = end;
        end.onBytes = (bytes) => {
            if (this.isOpen && this.isPlugged) {
                this.waiting.push(Buffer.from(bytes));
                this.wake?.();
            }
        };
    }

    unplug(): void {
        this.isPlugged = false;
        this.wake?.();
        this.tell('disconnect');
    }

    plug(): void {
        this.isPlugged = true;
        this.isOpen = false;
        this.tell('connect');
    }

    open(): Answer {
        if (this.isBusy || !this.isPlugged) {
            return { error: { name: 'NetworkError', message: 'Failed to open serial port.' } };
        }
        this.isOpen = true;
        this.waiting = [];
        return {};
    }

    write(text: string): Answer {
        if (!this.isPlugged || !this.isOpen) {
            return { error: { name: 'NetworkError', message: 'The device has been lost.' } };
        }
        const bytes = Buffer.from(text, 'latin1');
        this.written.push(bytes);
        const instead = this.onWrite?.(bytes);
        if (this.isPlugged) {
            this.end.take(instead ?? bytes);
        }
        return {};
    }

    // Waits for bytes, or for the end of the line.
    async read(): Promise<Answer> {
        while (this.waiting.length === 0 && this.isPlugged && this.isOpen) {
            await new Promise<void>((resolve) => (this.wake = resolve));
        }
        if (this.waiting.length > 0) {
            const bytes = Buffer.concat(this.waiting);
            this.waiting = [];
            return { value: bytes.toString('latin1') };
        }
        return this.isOpen
            ? { error: { name: 'NetworkError', message: 'The device has been lost.' } }
            : { value: '' };
    }

    close(): Answer {
        this.isOpen = false;
        this.wake?.();
        return {};
    }
}

/** Gives a page serial ports. Call it before the page is loaded. */
export async function givePorts(page: Page): Promise<Ports> {
    const cables: Cable[] = [];
    const events: { kind: string; port: number }[] = [];
    let wake: (() => void) | null = null;

    const ports: Ports = {
        choice: 'cancel',
        add(end) {
            const number = cables.length;
            const cable = new Cable(end, (kind) => {
                events.push({ kind, port: number });
                wake?.();
            });
            cables.push(cable);
            return cable;
        },
    };

    async function nextEvent(): Promise<Answer> {
        while (events.length === 0) {
            await new Promise<void>((resolve) => (wake = resolve));
        }
        return { value: events.shift() };
    }

    function choose(): Answer {
        const { choice } = ports;
        if (choice === 'cancel') {
            return { error: { name: 'NotFoundError', message: 'No port selected by the user.' } };
        }
        if (choice === 'forbid') {
            const message = 'Access to the feature "serial" is disallowed by permissions policy.';
            return { error: { name: 'SecurityError', message } };
        }
        const cable = choice as Cable;
        cable.isKnown = true;
        return { value: cables.indexOf(cable) };
    }

    await page.exposeFunction(
        'veskPorts',
        async (action: string, number: number, data: string): Promise<Answer> => {
            switch (action) {
                case 'next event':
                    return nextEvent();
                case 'choose':
                    return choose();
                case 'known':
                    return { value: cables.flatMap((cable, index) => (cable.isKnown ? [index] : [])) };
            }
            const cable = cables[number];
            if (cable === undefined) {
                return { error: { name: 'NotFoundError', message: `no port ${number}` } };
            }
            switch (action) {
                case 'is plugged':
                    return { value: cable.isPlugged };
                case 'open':
                    return cable.open();
                case 'write':
                    return cable.write(data);
                case 'read':
                    return cable.read();
                case 'close':
                    return cable.close();
                case 'forget':
                    cable.isKnown = false;
                    return cable.close();
                default:
                    return { error: { name: 'TypeError', message: action } };
            }
        },
    );
    await page.addInitScript(standIn);
    return ports;
}
