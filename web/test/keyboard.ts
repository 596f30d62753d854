// The keyboard, as somebody uses it who has no mouse.

import type { Page } from 'playwright-core';
import { expect } from 'vitest';

const mostSteps = 60; // the most stops that anything may be away

interface Stop {
    name: string;
    isSeen: boolean;
}

/** Where the focus is: what a screen reader says of it, and whether it can be seen. */
function stopOf(page: Page): Promise<Stop> {
    return page.evaluate(() => {
        const element = document.activeElement as HTMLElement | null;
        if (element === null || element === document.body) {
            return { name: '', isSeen: true };
        }
        const labels = element instanceof HTMLInputElement ? [...(element.labels ?? [])] : [];
        const label = element.getAttribute('aria-label') ?? labels[0]?.textContent ?? element.textContent ?? '';
        const { top, bottom, left, right } = element.getBoundingClientRect();
        const isInside = bottom > 0 && right > 0 && top < window.innerHeight && left < window.innerWidth;
        const style = getComputedStyle(element);
        const hasRing = style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2;
        return { name: label.trim(), isSeen: isInside && hasRing };
    });
}

/** Goes on with Tab (or another key) until the focus is there. Every stop on the way must be seen. */
export async function reach(page: Page, name: string, key = 'Tab'): Promise<void> {
    const way: string[] = [];
    for (let step = 0; step < mostSteps; ++step) {
        await page.keyboard.press(key);
        const stop = await stopOf(page);
        way.push(stop.name);
        expect(stop.isSeen, `the focus on "${stop.name}" is seen`).toBe(true);
        if (stop.name === name) {
            return;
        }
    }
    throw new Error(`${key} does not lead to "${name}" but to ${way.join(', ')}`);
}

/** What has the focus. */
export async function focused(page: Page): Promise<string> {
    return (await stopOf(page)).name;
}
