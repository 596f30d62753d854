// A visit to the page: a fresh browser window with serial ports, and what must hold in each visit.

import { readFile } from 'node:fs/promises';

import type { Browser, BrowserContextOptions, Download, Locator, Page } from 'playwright-core';
import { afterAll, beforeAll, test } from 'vitest';

import { root, startBoard, type Board } from './board.ts';
import { serve, startBrowser, type Site } from './browser.ts';
import { givePorts, type Ports } from './ports.ts';

export type ScreenName = 'Connect' | 'Overview' | 'Console' | 'Network' | 'Update' | 'Files' | 'Timings';

export const screens: readonly ScreenName[] = ['Connect', 'Overview', 'Console', 'Network', 'Update', 'Files', 'Timings'];

const longest = Number(process.env['VESK_LONGEST'] ?? 90000); // ms, for anything: the machine may be busy

export interface Visit {
    readonly page: Page;
    readonly ports: Ports;
    readonly address: string;

    /** What the page has asked for, by address. */
    readonly requests: readonly string[];

    /** Goes to a screen by its link. The other screens stay on the page, hidden. */
    go(screen: ScreenName): Promise<Locator>;

    button(name: string | RegExp): Locator;
    field(name: string | RegExp): Locator;

    /** Waits until a text is seen. */
    sees(text: string | RegExp): Promise<void>;

    /**
     * Begins to watch for a text that may be there for a moment only. What it gives waits until the text has been seen,
     * even if it is gone again.
     */
    watch(text: RegExp): Promise<() => Promise<void>>;

    /** Waits until a field has a value. */
    has(field: string, value: string): Promise<void>;

    press(name: string | RegExp): Promise<void>;

    /** Presses a button that saves a file, and gives what is saved. */
    save(name: string | RegExp): Promise<{ name: string; bytes: Buffer }>;

    /** A board at the end of a cable that the user chooses. Is over when the page says that the device answers. */
    connect(): Promise<Connected>;

    /** The board is stopped when the visit is over. */
    board(): Promise<Board>;
}

export interface Connected {
    board: Board;
    port: ReturnType<Ports['add']>;
}

let browser: Browser;
let site: Site;

/** For the file with the flows: they share a browser and a server. */
export function useBrowser(): void {
    beforeAll(async () => {
        [browser, site] = await Promise.all([startBrowser(), serve(`${root}build/web/page`)]);
    }, 60000);
    afterAll(async () => {
        site?.stop();
        await browser?.close();
    });
}

async function bytesOf(download: Download): Promise<Buffer> {
    return readFile(await download.path());
}

/** Runs `steps` in a window of its own. Throws what the page did that no page may do. */
export async function visit(steps: (visit: Visit) => Promise<void>, options: BrowserContextOptions = {}): Promise<void> {
    const context = await browser.newContext({ viewport: { width: 1280, height: 720 }, ...options });
    context.setDefaultTimeout(longest);
    const boards: Board[] = [];
    const faults: string[] = [];
    const requests: string[] = [];
    context.on('request', (request) => {
        requests.push(request.url());
        if (!request.url().startsWith(site.address) && !/^(blob|data):/.test(request.url())) {
            faults.push(`a request to ${request.url()}`);
        }
    });
    context.on('response', (response) => {
        if (response.status() >= 400) {
            faults.push(`${response.status()} for ${response.url()}`);
        }
    });
    context.on('console', (message) => {
        if (message.type() === 'error' || message.type() === 'warning') {
            faults.push(`the console says: ${message.text()}`);
        }
    });
    context.on('weberror', (error) => faults.push(`an error that nobody caught: ${String(error.error())}`));
    try {
        const page = await context.newPage();
        const ports = await givePorts(page);
        const main = page.getByRole('main');
        const open: Visit = {
            page,
            ports,
            address: site.address,
            requests,
            async go(screen) {
                await page.getByRole('navigation').getByRole('link', { name: screen, exact: true }).click();
                await page.getByRole('main', { name: screen }).waitFor();
                return main.locator(':scope > div').filter({ visible: true });
            },
            button: (name) => page.getByRole('button', typeof name === 'string' ? { name, exact: true } : { name }),
            field: (name) => {
                const options = { name, exact: typeof name === 'string' };
                return main
                    .getByRole('textbox', options)
                    .or(main.getByRole('searchbox', options))
                    .or(main.getByRole('combobox', options));
            },
            sees: (text) => page.getByText(text).filter({ visible: true }).first().waitFor(),
            async watch(text) {
                const watched = await page.evaluateHandle(({ source }) => {
                    const seen = new Promise<void>((resolve) => {
                        const look = () => new RegExp(source).test(document.body.textContent ?? '') && resolve();
                        new MutationObserver(look).observe(document.body, {
                            childList: true,
                            subtree: true,
                            characterData: true,
                        });
                        look();
                    });
                    return { seen };
                }, text);
                return () => watched.evaluate(({ seen }) => seen);
            },
            async has(field, value) {
                const element = open.field(field);
                const end = Date.now() + longest;
                while ((await element.inputValue()) !== value) {
                    if (Date.now() > end) {
                        throw new Error(`${field} is not ${value} but ${await element.inputValue()}`);
                    }
                    await page.waitForTimeout(50);
                }
            },
            press: (name) => open.button(name).click(),
            async save(name) {
                const [download] = await Promise.all([page.waitForEvent('download'), open.press(name)]);
                return { name: download.suggestedFilename(), bytes: await bytesOf(download) };
            },
            async board() {
                const board = await startBoard();
                boards.push(board);
                return board;
            },
            async connect() {
                const board = await open.board();
                const port = ports.add(board);
                ports.choice = port;
                await open.press('Choose the port');
                // A machine may be so busy that an answer takes longer than people would wait.
                const answers = page.getByText('The device answers');
                const again = open.button('Ask again');
                await answers.or(again).first().waitFor();
                while (await again.isVisible()) {
                    await again.click();
                    await again.waitFor({ state: 'hidden' });
                    await answers.or(again).first().waitFor();
                }
                return { board, port };
            },
        };
        await page.goto(site.address);
        await page.getByRole('main', { name: 'Connect' }).waitFor();
        await steps(open);
    } catch (error) {
        const seen = await context.pages()[0]?.innerText('body').catch(() => '');
        const said = boards.flatMap((board) => ['The daemon says:', ...board.log.slice(-20)]);
        throw new Error([String(error), ...faults, 'The page says:', seen, ...said].join('\n'), { cause: error });
    } finally {
        await context.close();
        await Promise.all(boards.map((board) => board.stop()));
    }
    if (faults.length > 0) {
        throw new Error(faults.join('\n'));
    }
}

/** A flow of its own. Each step has its limit; the flow itself may take as long as it has steps. */
export function flow(name: string, steps: (visit: Visit) => Promise<void>, options: BrowserContextOptions = {}): void {
    test(name, { timeout: 20 * longest }, () => visit(steps, options));
}
