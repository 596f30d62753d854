// How long it takes until the page can be used, for the README. It is no test of speed: nothing fails when it is slow.

import { test } from 'vitest';

import { root } from '../test/board.ts';
import { serve, startBrowser } from '../test/browser.ts';

const times = 9;

const conditions = [
    { name: 'from a server on this computer', bytesPerSecond: -1, delay: 0, slowdown: 1 },
    { name: 'over 10 Mbit/s and 40 ms', bytesPerSecond: 1.25e6, delay: 40, slowdown: 1 },
    { name: 'on a processor four times slower', bytesPerSecond: -1, delay: 0, slowdown: 4 },
];

function median(numbers: readonly number[]): number {
    return [...numbers].sort((a, b) => a - b)[Math.floor(numbers.length / 2)] ?? NaN;
}

for (const { name, bytesPerSecond, delay, slowdown } of conditions) {
    test(name, { timeout: 600_000 }, async () => {
        const [browser, site] = await Promise.all([startBrowser(), serve(`${root}build/web/page`)]);
        const found: number[] = [];
        for (let time = 0; time < times; ++time) {
            const context = await browser.newContext(); // with nothing in its cache
            const page = await context.newPage();
            const devtools = await context.newCDPSession(page);
            await devtools.send('Network.enable');
            await devtools.send('Network.emulateNetworkConditions', {
                offline: false,
                latency: delay,
                downloadThroughput: bytesPerSecond,
                uploadThroughput: bytesPerSecond,
            });
            await devtools.send('Emulation.setCPUThrottlingRate', { rate: slowdown });
            // Since the address was entered, until the first screen is painted.
            await page.addInitScript(() => {
                const firstUse = new Promise<number>((resolve) => {
                    const look = (): void => {
                        const isThere = document.querySelector('main button') !== null;
                        requestAnimationFrame(isThere ? resolve : look);
                    };
                    look();
                });
                Object.assign(window, { firstUse });
            });
            await page.goto(site.address);
            found.push(await page.evaluate(() => (window as unknown as { firstUse: Promise<number> }).firstUse));
            await context.close();
        }
        site.stop();
        await browser.close();
        const [least, most] = [Math.min(...found), Math.max(...found)].map(Math.round);
        console.log(`first use ${name}: ${Math.round(median(found))} ms (${least} to ${most}, ${times} times)`);
    });
}
