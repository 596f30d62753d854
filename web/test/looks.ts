// Whether everybody can use what is on the page now: axe-core's rules in light and dark, nothing that hangs over, and a
// picture of it for people to look at.

import { mkdirSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';

import type { AxeResults } from 'axe-core';
import type { Page } from 'playwright-core';
import { expect } from 'vitest';

import { root } from './board.ts';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

// Level AA of WCAG 2.2 and below, and what axe-core advises besides, which has nothing to do with colours.
const rules = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa'];
const advised = ['best-practice'];

/** Where the pictures go; there are none unless somebody wants to see them (scripts/web pictures). */
const pictures = process.env['VESK_PICTURES'] ?? '';

interface Checked {
    violations: string[];
    passes: number;
}

interface WithAxe {
    axe?: { run(context: object, options: object): Promise<AxeResults> };
}

async function check(page: Page, part: string, runOnly: readonly string[]): Promise<Checked> {
    if (!(await page.evaluate(() => 'axe' in window))) {
        await page.evaluate(axe);
    }
    const results = await page.evaluate(
        ([selector, only]) =>
            (window as unknown as Required<WithAxe>).axe.run(
                { include: [[selector]] },
                { runOnly: only, resultTypes: ['violations'], preload: false },
            ),
        [part, runOnly] as const,
    );
    return {
        violations: results.violations.flatMap(({ id, nodes }) =>
            nodes.map((node) => `${id}: ${node.target.join(' ')} ${node.failureSummary ?? ''}`),
        ),
        passes: results.passes.length,
    };
}

/** How far the page is wider than the window. */
async function overhang(page: Page): Promise<number> {
    return page.evaluate(() => document.documentElement.scrollWidth - document.documentElement.clientWidth);
}

/** In light and dark. `part` is the part of the page that is new; `name` is the picture's, without its end. */
export async function checkLooks(page: Page, name: string, part = 'html'): Promise<void> {
    for (const colorScheme of ['light', 'dark'] as const) {
        await page.emulateMedia({ colorScheme });
        const { violations, passes } = await check(page, part, colorScheme === 'light' ? [...rules, ...advised] : rules);
        expect(violations, `${name}, ${colorScheme}`).toEqual([]);
        expect(passes, name).toBeGreaterThan(0);
        await takePicture(page, `${name}-${colorScheme}`);
    }
    expect(await overhang(page), name).toBe(0);
}

export async function takePicture(page: Page, name: string): Promise<void> {
    if (pictures !== '') {
        const folder = `${root}build/web/${pictures}`;
        mkdirSync(folder, { recursive: true });
        // A dialog stands in the middle of the window, and not of the whole page.
        const fullPage = (await page.locator('dialog[open]').count()) === 0;
        await page.screenshot({ path: `${folder}/${name}.png`, fullPage });
    }
}

/** On a tablet, whose pictures are light only. */
export async function checkTablet(page: Page, name: string): Promise<void> {
    expect(await overhang(page), name).toBe(0);
    await takePicture(page, `${name}-tablet`);
}
