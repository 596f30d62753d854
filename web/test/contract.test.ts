// The contract of a Transport over the way that the flows use: the page's own code for serial ports, the stand-in for
// Web Serial, the relay, and the daemon on a board.

import { fileURLToPath } from 'node:url';

import type { Browser, Page } from 'playwright-core';
import { afterAll, beforeAll, describe, expect, test } from 'vitest';
import { build } from 'vite';

import { cases } from '../src/line/contract.ts';
import { startBoard, root, type Board } from './board.ts';
import { serve, startBrowser, type Site } from './browser.ts';
import { givePorts, type Port, type Ports } from './ports.ts';

const folder = `${root}build/web/contract`;
let board: Board;
let browser: Browser;
let site: Site;
let page: Page;
let ports: Ports;
let port: Port;

beforeAll(async () => {
    const built = build({
        configFile: false,
        root: fileURLToPath(new URL('contract', import.meta.url)),
        logLevel: 'error',
        build: { outDir: folder, emptyOutDir: true, target: 'es2022', modulePreload: false },
    });
    [board, browser, site] = await Promise.all([startBoard(), startBrowser(), serve(folder), built]);
    page = await browser.newPage();
    ports = await givePorts(page);
    await page.exposeFunction('pullCable', (isPlugged: boolean) => (isPlugged ? port.plug() : port.unplug()));
    await page.goto(site.address);
}, 60000);

afterAll(async () => {
    site?.stop();
    await Promise.all([board?.stop(), browser?.close()]);
});

describe('a port of the browser as a line to the board', () => {
    for (const { name } of cases) {
        test(name, async () => {
            port = ports.add(board);
            port.isKnown = true;
            const failure = await page.evaluate(
                (each) =>
                    (window as unknown as { runCase(name: string): Promise<void> }).runCase(each).then(
                        () => '',
                        (error: unknown) => String(error),
                    ),
                name,
            );
            port.isKnown = false;
            expect(failure).toBe('');
        });
    }
});
