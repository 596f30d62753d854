// Whether everybody can use each screen, as it begins and as it is later: dialogs, tabs, faults and notices, in light and
// dark; and how much is loaded.

import { readFileSync } from 'node:fs';
import { gzipSync } from 'node:zlib';

import { describe, expect } from 'vitest';

import { root } from './board.ts';
import { checkLooks, checkTablet } from './looks.ts';
import { silence } from './ports.ts';
import { programForDevice } from './programs.ts';
import { flow, screens, useBrowser, type Visit } from './visit.ts';

useBrowser();

const settings = readFileSync(`${root}tests/data/first-start/save0.sav`);

/** The first view of the settings, with some layers to be drawn. */
function someView(): Buffer {
    const view = Buffer.from(settings.subarray(3812, 3812 + 3996));
    const windows = [
        [0, 0, 1920, 1080],
        [240, 135, 960, 540],
        [1320, 640, 480, 270],
    ] as const;
    windows.forEach((window, layer) => {
        view[16 + 26 * layer + 1] = 1; // state
        window.forEach((number, each) => view.writeUInt16LE(number, 16 + 26 * layer + 12 + 2 * each));
        view[2608 + layer] = 255; // alpha
    });
    return view;
}

/** A page has 16 views. */
function aPage(): Buffer {
    return Buffer.concat(Array.from({ length: 16 }, someView));
}

async function give({ page, press }: Visit, label: string, ...files: [name: string, content: Buffer][]): Promise<void> {
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press(label)]);
    await chooser.setFiles(files.map(([name, buffer]) => ({ name, mimeType: 'application/octet-stream', buffer })));
}

// One after the other: the checks take all of a processor.
describe('each screen', () => {
    flow('can be used by everybody without a device', async ({ page, go, ports, press, sees }) => {
        for (const screen of screens) {
            await go(screen);
            if (screen === 'Timings') {
                await page.getByRole('button', { name: /^Show format/ }).first().waitFor();
            }
            await checkLooks(page, `${screen.toLowerCase()}-alone`);
        }
        await go('Connect');
        for (const choice of ['cancel', 'forbid'] as const) {
            ports.choice = choice;
            await press('Choose the port');
            await sees(choice === 'cancel' ? 'No port was chosen' : 'The browser does not permit serial ports here');
            await checkLooks(page, `connect-${choice}`, 'main');
        }
    });

    flow('can be used by everybody with a device', async (visit) => {
        const { page, connect, go, press, field, sees } = visit;
        const dialog = page.getByRole('dialog');
        const { board, port } = await connect();
        await checkLooks(page, 'connect');

        await go('Overview');
        await checkLooks(page, 'overview');
        await press('Read the stored settings too');
        await dialog.waitFor();
        await checkLooks(page, 'overview-dialog', 'dialog[open]');
        await press('Read them');
        await page.getByRole('region', { name: 'Its stored network settings' }).waitFor();
        await checkLooks(page, 'overview-stored', 'main');

        await go('Console');
        await field('Command').fill('read device type');
        await press('Send');
        await sees('The device has answered');
        await checkLooks(page, 'console');
        await page.locator('summary', { hasText: 'All commands' }).click();
        await field('Command').fill('write serial number');
        await field('serial number').fill('70000');
        await page.locator('[aria-invalid=true]').waitFor();
        expect(await field('serial number').getAttribute('aria-invalid')).toBe('true');
        await checkLooks(page, 'console-fault', 'main');
        await field('serial number').fill('4660');
        await checkLooks(page, 'console-commands', 'main');
        await press('Send');
        await dialog.waitFor();
        await checkLooks(page, 'console-dialog', 'dialog[open]');
        await press('Cancel');
        await page.getByRole('tab', { name: 'Raw' }).click();
        await field('Bytes').fill('73 00');
        await press('Send');
        await sees('The device has refused it');
        await field('Bytes').fill('6');
        await sees(/Nothing can be sent yet/);
        await checkLooks(page, 'console-refused', 'main');

        await go('Network');
        await checkLooks(page, 'network');
        await field('Address').fill('192.168.0.300');
        await checkLooks(page, 'network-fault', 'main');
        await field('Address').fill('192.168.0.101');
        await field('Gateway').fill('10.0.0.1');
        await sees('These settings do not go together');
        await checkLooks(page, 'network-together', 'main');
        await field('Gateway').fill('192.168.0.1');
        await press('Write …');
        await dialog.waitFor();
        await checkLooks(page, 'network-dialog', 'dialog[open]');
        await press('Write them');
        await sees('Written, and read back as written');
        await checkLooks(page, 'network-written', 'main');

        await go('Update');
        await give(visit, 'Choose the file', ['photo.jpg', Buffer.alloc(5000, 'no program ')]);
        await sees('This is no program for the device');
        await checkLooks(page, 'update-wrong', 'main');
        await give(visit, 'Choose the file', ['vesk_h264', programForDevice(16000 * 1024)]);
        await sees('This is a program for the device');
        await checkLooks(page, 'update');
        await press('Update the device …');
        await dialog.waitFor();
        await checkLooks(page, 'update-dialog', 'dialog[open]');
        await press('Update it');
        await sees(/\d+ of 16001 blocks/);
        await checkLooks(page, 'update-sending');
        await press('Cancel the update');
        await sees('Cancelled. The device goes on with its old program');
        await checkLooks(page, 'update-cancelled', 'main');
        await sees(/Connected on/);

        port.unplug();
        await sees(/is unplugged/);
        await checkLooks(page, 'update-unplugged');
        await go('Connect');
        await sees('The port is gone: it was unplugged');
        await checkLooks(page, 'connect-unplugged');
        port.lead(silence());
        await board.stop();
    });

    flow('can be used by everybody with the demo device', async (visit) => {
        const { page, go, press, sees } = visit;
        await press('Try the demo device');
        await sees('The device answers');
        await page.getByText('What it prints on its console').click();
        await checkLooks(page, 'demo');
        await press('Pull its cable');
        await sees('Demo device is unplugged');
        await checkLooks(page, 'demo-unplugged');
        await go('Overview');
        await checkLooks(page, 'demo-overview-unplugged', 'main');
    });

    flow('can be used by everybody with files', async (visit) => {
        const { page, go, press, sees } = visit;
        const dialog = page.getByRole('dialog');
        await go('Files');
        await give(visit, 'Open files', ['holiday.png', Buffer.from('no settings')]);
        await sees('holiday.png was not opened');
        await checkLooks(page, 'files-refused', 'main');
        await press(/^Dismiss/);
        await give(visit, 'Open files', ['view0.sav', someView()], ['page0_0.sav', aPage()], ['save0.sav', settings]);
        await sees(/The device takes save0.sav/);
        await checkLooks(page, 'files');
        await page.getByRole('button', { name: /^Change / }).first().click();
        await dialog.waitFor();
        await dialog.getByRole('textbox').first().fill('much');
        await dialog.getByRole('button', { name: 'Change', exact: true }).click();
        await dialog.locator('.fault, .notice').first().waitFor();
        await checkLooks(page, 'files-change', 'dialog[open]');
        await dialog.getByRole('textbox').first().fill('1');
        await dialog.getByRole('button', { name: 'Change', exact: true }).click();
        await sees('changed, not saved');
        for (const tab of ['Changes', 'Check', 'Drawing', 'Compare']) {
            await page.getByRole('tab', { name: new RegExp(`^${tab}`) }).click();
            await page.getByText('Drawing…').waitFor({ state: 'hidden' });
            await checkLooks(page, `files-${tab.toLowerCase()}`, 'main');
        }
        await press('Save as a new file…');
        await dialog.waitFor();
        await checkLooks(page, 'files-save', 'dialog[open]');
        await press('Cancel');
        await press('Close save0.sav');
        await dialog.waitFor();
        await checkLooks(page, 'files-close', 'dialog[open]');
        await press('Keep it open');
        for (const name of ['view0.sav', 'page0_0.sav']) {
            await press(name);
            await sees(new RegExp(`The device takes ${name}`));
            await page.getByRole('tab', { name: 'Drawing' }).click();
            // All of it is seen, without a push to anywhere.
            const frame = page.getByRole('group', { name: `Drawing of ${name}` });
            await frame.getByRole('img').waitFor();
            expect(await frame.evaluate((each) => each.scrollHeight - each.clientHeight)).toBe(0);
            await checkLooks(page, `files-drawing-of-${name.slice(0, 4)}`, 'main');
        }
    });

    flow('can be used by everybody with timings', async (visit) => {
        const { page, go, field, sees } = visit;
        await go('Timings');
        await field('Size').fill('1920x1080');
        await page.getByRole('group', { name: 'Formats (26)' }).waitFor();
        await page.getByRole('button', { name: /^Show format/ }).first().click();
        await page.getByRole('heading', { name: 'Format 10: 1920x1080x60' }).waitFor();
        await page.locator('img.drawing').filter({ visible: true }).waitFor();
        await checkLooks(page, 'timings-format', 'main');
        await field('Size').fill('wide');
        await page.locator('.fault').first().waitFor();
        await checkLooks(page, 'timings-fault', '[role=search]');
        await page.getByRole('tab', { name: 'Calculator' }).click();
        await sees(/^1920 × 1080 at 60 Hz/);
        await page.locator('img.drawing').filter({ visible: true }).waitFor();
        await checkLooks(page, 'timings-calculator', 'main');
        await page.getByRole('tab', { name: 'Detection' }).click();
        await sees(/Reported as format/);
        await checkLooks(page, 'timings-detection', 'main');
    });

    flow('fits a tablet', async ({ page, go, connect }) => {
        await connect();
        for (const screen of screens) {
            await go(screen);
            if (screen === 'Timings') {
                await page.getByRole('button', { name: /^Show format/ }).first().waitFor();
                // All columns are there without a push to the side.
                const frame = page.getByRole('group', { name: /^Formats/ });
                expect(await frame.evaluate((each) => each.scrollWidth - each.clientWidth)).toBe(0);
            }
            await checkTablet(page, screen.toLowerCase());
        }
    }, { viewport: { width: 820, height: 1180 }, hasTouch: true });
});

const most = 600_000; // bytes on their way, compressed as every file server can

describe('what is loaded', () => {
    flow('is small, and from this site only', async ({ page, requests, address, press, sees }) => {
        const sizeOf = (paths: readonly string[]): number =>
            paths.reduce((sum, path) => {
                const content = readFileSync(`${root}build/web/page/${path === '' ? 'index.html' : path}`);
                return sum + gzipSync(content).length;
            }, 0);
        const paths = () => [...new Set(requests)].filter((each) => each.startsWith(address)).map((each) => each.slice(address.length));
        const first = sizeOf(paths());
        await press('Try the demo device');
        await sees('The device answers');
        const withDemo = sizeOf(paths());
        console.log(`loaded at first: ${first} bytes with gzip; with the demo device: ${withDemo}`);
        expect(first).toBeLessThan(most);
        expect(withDemo).toBeGreaterThan(first); // it is only loaded where it is wanted
        expect(withDemo).toBeLessThan(most);
        // A strict policy stands in the page itself, too, as a file server says none.
        const policy = await page.locator('meta[http-equiv="Content-Security-Policy"]').getAttribute('content');
        expect(policy).toContain("default-src 'none'");
        expect(policy).not.toContain("'unsafe-inline'");
        expect(policy).not.toContain("'unsafe-eval'");
    });
});
