// What to do when the device cannot be talked to, for people.

import type { LineFault } from './line/transport.ts';

export type Fault =
    | LineFault
    | 'silent' // the line is open, and nobody answers
    | 'stranger' // somebody is there who is no such device
    | 'refused' // the device refuses to say what it is
    | 'failed'; // something else in this page

export interface Advice {
    /** What has happened. */
    title: string;

    /** What to do, the likeliest first. */
    steps: readonly string[];
}

/** The browsers that have serial ports. */
export const browsers = 'Chrome or Edge (97 or later) or Firefox (151 or later)';

const advice: Readonly<Record<Fault, Advice>> = {
    unsupported: {
        title: 'This browser cannot use serial ports',
        steps: [
            `Open this page in ${browsers}, on a computer.`,
            'If this is such a browser: serial ports work only where the page comes from https, from localhost or from ' +
                'a file server on this computer.',
            'The demo device, Files and Timings work in every browser of 2022 or later.',
        ],
    },
    none: {
        title: 'No port was chosen',
        steps: [
            'Press “Choose the port” again and pick the port in the browser’s list.',
            'If the list is empty: plug the adapter in, and install its driver if the computer does not know it.',
            'If there are several and you do not know which: unplug the adapter and see which one goes away.',
        ],
    },
    denied: {
        title: 'The browser does not permit serial ports here',
        steps: [
            'Press the symbol to the left of the address and allow serial ports for this page.',
            'Then reload the page and choose the port again.',
            'On a company’s computer its administrator may have switched serial ports off.',
        ],
    },
    busy: {
        title: 'The port cannot be opened',
        steps: [
            'Close the other program that uses it: a terminal, veskctl, or this page in another tab. Then try again.',
            'On Linux your user must be allowed to use it: add it to the group dialout, and log in again.',
            'If nothing else uses it: unplug the adapter, plug it in again, and try again.',
        ],
    },
    lost: {
        title: 'The port is gone: it was unplugged',
        steps: [
            'Plug it in again. This page notices and goes on by itself.',
            'If it does not within a few seconds, choose the port again: some adapters come back as a new one.',
        ],
    },
    closed: {
        title: 'The port is closed',
        steps: ['Choose the port again.'],
    },
    silent: {
        title: 'Nobody answers on this port',
        steps: [
            'Is the device on? It needs some seconds after it was switched on.',
            'Is this the right port, and is the cable in the device’s front board connector?',
            'Are transmit and receive swapped? Try a crossed cable, or one that is not crossed.',
            'Then press “Ask again”.',
        ],
    },
    stranger: {
        title: 'Something is there, but it does not answer as this device does',
        steps: [
            'Is this the right port? Another device may be on it: choose the port again.',
            'If it is the right one, the line may be disturbed: look at the cable, then press “Ask again”.',
            'The Console shows what arrives.',
        ],
    },
    refused: {
        title: 'The device refuses to say what it is',
        steps: [
            'It may be another model: look at its label.',
            'If it is the right one, the line may be disturbed: look at the cable, then press “Ask again”.',
        ],
    },
    failed: {
        title: 'Something in this page has failed',
        steps: ['Reload the page and try again.', 'If it happens again, report what it says here.'],
    },
};

export function adviceOn(fault: Fault): Advice {
    return advice[fault];
}

/** After a device was away, one with another serial number answers. */
export function anotherDevice(is: string, was: string): { title: string; text: string } {
    return {
        title: 'Another device answers',
        text: `Its serial number is ${is}; before it was ${was}. What the screens had of that one is gone.`,
    };
}
