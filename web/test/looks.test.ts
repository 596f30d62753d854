// How the screens look and whether everybody can use them: axe-core and a picture of each, light and dark, with and
// without a device; what is loaded, and how soon the page can be used.

import { mkdirSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { brotliCompressSync, gzipSync } from 'node:zlib';

import type { AxeResults } from 'axe-core';
import type { Page } from 'playwright-core';
import { describe, expect } from 'vitest';

import { root } from './board.ts';
import { programForDevice } from './programs.ts';
import { flow, screens, useBrowser } from './visit.ts';

useBrowser();

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const pictures = `${root}build/web/screenshots`;
mkdirSync(pictures, { recursive: true });

const everything = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'];

async function faultsOf(page: Page, runOnly: readonly string[]): Promise<string[]> {
    const results = await page.evaluate(
        (only) => (window as unknown as { axe: { run(options: object): Promise<AxeResults> } }).axe.run({ runOnly: only }),
        runOnly,
    );
    return results.violations.flatMap(({ id, nodes }) =>
        nodes.map((node) => `${id}: ${node.target.join(' ')} ${node.failureSummary ?? ''}`),
    );
}

/** Of a page that is wider than the window. */
async function overhang(page: Page): Promise<number> {
    return page.evaluate(() => document.documentElement.scrollWidth - document.documentElement.clientWidth);
}

// One after the other: the checks take all of a processor.
describe('each screen', () => {
    for (const kind of ['a device', 'no device'] as const) {
        flow(`can be used by everybody, light and dark, with ${kind}`, async (visit) => {
            const { page, connect, go, press, field, sees } = visit;
            await page.addInitScript(axe);
            await page.reload();
            if (kind === 'a device') {
                await connect();
            }
            for (const screen of screens) {
                await go(screen);
                if (kind === 'a device' && screen === 'Console') {
                    await field('Command').fill('read device type');
                    await press('Send');
                    await sees('The device has answered');
                }
                if (kind === 'a device' && screen === 'Update') {
                    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press('Choose the file')]);
                    const buffer = programForDevice(30000);
                    await chooser.setFiles({ name: 'vesk_h264', mimeType: 'application/octet-stream', buffer });
                    await sees('This is a program for the device');
                }
                if (kind === 'a device' && screen === 'Files') {
                    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press('Open files')]);
                    await chooser.setFiles(`${root}tests/data/first-start/save0.sav`);
                    await sees(/The device takes save0.sav/);
                }
                if (screen === 'Timings') {
                    await page.getByRole('button', { name: /^Show format/ }).first().waitFor();
                }
                for (const colorScheme of ['light', 'dark'] as const) {
                    await page.emulateMedia({ colorScheme });
                    expect(await faultsOf(page, colorScheme === 'light' ? everything : ['color-contrast'])).toEqual([]);
                    const name = `${screen.toLowerCase()}${kind === 'a device' ? '' : '-alone'}-${colorScheme}.png`;
                    await page.screenshot({ path: `${pictures}/${name}`, fullPage: true });
                }
                expect(await overhang(page)).toBe(0);
            }
        });
    }

    flow('fits a tablet', async ({ page, go, connect }) => {
        await connect();
        for (const screen of screens) {
            await go(screen);
            expect(await overhang(page)).toBe(0);
            await page.screenshot({ path: `${pictures}/${screen.toLowerCase()}-tablet.png`, fullPage: true });
        }
    }, { viewport: { width: 820, height: 1180 }, hasTouch: true });
});

describe('what is loaded', () => {
    flow('is small, from this site only, and soon there', async ({ page, requests, address }) => {
        const timing = await page.evaluate(() => performance.now());
        const paths = [...new Set(requests)].map((each) => each.slice(address.length));
        const sizes = paths.map((path) => {
            const content = readFileSync(`${root}build/web/page/${path === '' ? 'index.html' : path}`);
            return { path, whole: content.length, gzip: gzipSync(content).length, brotli: brotliCompressSync(content).length };
        });
        const sum = (of: 'whole' | 'gzip' | 'brotli') => sizes.reduce((left, each) => left + each[of], 0);
        console.log(`loaded: ${sum('whole')} bytes, ${sum('gzip')} with gzip, ${sum('brotli')} with brotli; `
            + `first use after ${Math.round(timing)} ms`);
        expect(sum('brotli')).toBeLessThan(600000);
        // A strict policy stands in the page itself, too, as a file server says none.
        const policy = await page.locator('meta[http-equiv="Content-Security-Policy"]').getAttribute('content');
        expect(policy).toContain("default-src 'none'");
        expect(policy).not.toContain("'unsafe-inline'");
        expect(policy).not.toContain("'unsafe-eval'");
    });
});
