// What needs no device: settings files, timings and the demo device.

import { readFileSync } from 'node:fs';

import { describe, expect } from 'vitest';

import { root } from './board.ts';
import { programForDevice } from './programs.ts';
import { flow, screens, useBrowser, type Visit } from './visit.ts';

useBrowser();

const settings = `${root}tests/data/first-start/save0.sav`;

async function openFile({ page, press }: Visit, label: string, name: string, content: Buffer): Promise<void> {
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press(label)]);
    await chooser.setFiles({ name, mimeType: 'application/octet-stream', buffer: content });
}

describe.concurrent('files', () => {
    flow('saves a file as it was opened, byte for byte', async (visit) => {
        const { go, press, sees, page } = visit;
        const content = readFileSync(settings);
        await go('Files');
        await openFile(visit, 'Open files', 'save0.sav', content);
        await sees(/The device takes save0.sav/);
        await press('Save as a new file…');
        const [download] = await Promise.all([page.waitForEvent('download'), press('Save')]);
        expect(download.suggestedFilename()).toBe('save0.sav');
        expect(Buffer.compare(readFileSync(await download.path()), content)).toBe(0);
    });

    flow('changes one field, and takes it back', async (visit) => {
        const { go, press, sees, page } = visit;
        const content = readFileSync(settings);
        await go('Files');
        await openFile(visit, 'Open files', 'save0.sav', content);
        await sees(/The device takes save0.sav/);
        const change = page.getByRole('main').getByRole('button', { name: /^Change / }).first();
        const name = (await change.getAttribute('aria-label'))?.replace('Change ', '') ?? '';
        await change.click();
        const dialog = page.getByRole('dialog');
        const value = dialog.getByRole('textbox').first();
        const before = await value.inputValue();
        await value.fill(before === '1' ? '2' : '1');
        await dialog.getByRole('button', { name: 'Change', exact: true }).click();
        await sees('changed, not saved');
        await page.getByRole('tab', { name: 'Changes (1)' }).click();
        await sees(name);
        await press('Take back last change');
        await page.getByRole('tab', { name: 'Changes (0)' }).waitFor();
        await press('Save as a new file…');
        const [download] = await Promise.all([page.waitForEvent('download'), press('Save')]);
        expect(Buffer.compare(readFileSync(await download.path()), content)).toBe(0);
    });

    flow('goes by way of JSON, and comes back byte for byte', async (visit) => {
        const { go, press, sees, save, page } = visit;
        const content = readFileSync(settings);
        await go('Files');
        await openFile(visit, 'Open files', 'save0.sav', content);
        await sees(/The device takes save0.sav/);
        const json = await save('Export JSON');
        expect(json.name).toBe('save0.json');
        JSON.parse(json.bytes.toString());
        await press('Close save0.sav');
        await openFile(visit, 'Open files', json.name, json.bytes);
        await sees(/The device takes save0.sav/);
        await press('Save as a new file…');
        const [download] = await Promise.all([page.waitForEvent('download'), press('Save')]);
        expect(Buffer.compare(readFileSync(await download.path()), content)).toBe(0);
    });

    flow('says what is wrong with a file that is none', async (visit) => {
        const { go, sees } = visit;
        await go('Files');
        await openFile(visit, 'Open files', 'holiday.png', Buffer.from('no settings'));
        await sees('holiday.png was not opened');
    });
});

describe.concurrent('timings', () => {
    flow('finds a format, and shows all its numbers', async ({ go, page, field, sees }) => {
        await go('Timings');
        await field('Size').fill('1920x1080');
        await page.getByRole('button', { name: /^Show format/ }).first().click();
        await page.getByRole('heading', { name: /^Format \d+/ }).waitFor();
        await sees(/Modeline/);
    });

    flow('calculates a custom timing', async ({ go, page, field, sees }) => {
        await go('Timings');
        await page.getByRole('tab', { name: 'Calculator' }).click();
        await field(/^Width/).fill('1280');
        await field(/^Height/).fill('720');
        await sees(/^1280 × 720 at 60 Hz/);
    });

    flow('keep what was typed, and the place, while another tab is shown', async ({ go, page, field, has }) => {
        const { keyboard } = page;
        const tab = (name: string) => page.getByRole('tab', { name });
        const landing = page.getByRole('heading', { name: /^Format \d+/ });
        await go('Timings');
        await field('Size').fill('1280x720');
        await page.getByRole('button', { name: /^Show format/ }).first().click();
        await landing.waitFor();
        await page.locator('.landing:focus').waitFor(); // it is below the list
        await tab('Calculator').click();
        await field(/^Width/).fill('1234');
        await keyboard.press('Shift+Tab');
        await tab('Calculator').focus();
        await keyboard.press('ArrowLeft');
        await landing.waitFor();
        await has('Size', '1280x720');
        await page.waitForTimeout(300); // the focus must not go later either
        expect(await tab('Formats').evaluate((each) => each === document.activeElement)).toBe(true);
        await keyboard.press('ArrowRight');
        await field(/^Width/).waitFor();
        expect(await field(/^Width/).inputValue()).toBe('1234');
        await tab('Detection').click();
        await page.getByRole('button', { name: /^Show format/ }).click();
        await page.locator('.landing:focus').waitFor();
        await has('Size', '1280x720');
    });
});

async function useDemo({ press, sees }: Visit): Promise<void> {
    await press('Try the demo device');
    await sees('The device answers');
}

describe.concurrent('the demo device', () => {
    flow('says on every screen that it is one', async (visit) => {
        await useDemo(visit);
        for (const screen of screens) {
            await visit.go(screen);
            await visit.sees(/This is the demo device/);
        }
    });

    flow('keeps what is typed by name and raw, and sends what is shown', async (visit) => {
        const { go, page, field, has, press, sees } = visit;
        await useDemo(visit);
        await go('Console');
        await field('Command').fill('read serial number');
        await sees(/^Will be sent: <T00006a11/);
        await page.getByRole('tab', { name: 'Raw' }).click();
        await sees('What will be sent appears here.');
        await field('Bytes').fill('68 01');
        await sees(/^Will be sent: <T00006801/);
        await page.getByRole('tab', { name: 'By name' }).click();
        await has('Command', 'read serial number');
        await sees(/^Will be sent: <T00006a11/);
        await press('Send');
        await sees(/<F00006a11/);
        await page.getByRole('tab', { name: 'Raw' }).click();
        await has('Bytes', '68 01');
    });

    flow('takes network settings, and keeps them when its cable is pulled', async (visit) => {
        const { go, field, has, press, sees } = visit;
        await useDemo(visit);
        await go('Network');
        await field('Address').fill('192.168.0.77');
        await press('Write …');
        await press('Write them');
        await sees('Written, and read back as written');
        await go('Connect');
        await press('Pull its cable');
        await sees('Demo device is unplugged');
        await press('Plug it in');
        await sees(/Connected on Demo device/);
        await go('Network');
        await press('Read again');
        await has('Address', '192.168.0.77');
    });

    flow('takes an update, restarts, and says what it prints', async (visit) => {
        const { go, press, sees, watch, page } = visit;
        await useDemo(visit);
        await go('Update');
        await openFile(visit, 'Choose the file', 'vesk_h264', programForDevice(30000));
        await sees('This is a program for the device');
        await press('Update the device …');
        const hasProgress = await watch(/\d+ of 30 blocks/);
        await press('Update it');
        await hasProgress();
        await sees('The device has taken the update and restarted');
        await sees('The demo device goes on with its own program: it cannot run another one.');
        await go('Connect');
        await page.getByText('What it prints on its console').click();
        await sees(/check _update.pkg sucess/);
        await sees(/the program that runs is the demo's own, as before/);
    });

    flow('names the file before an update, however long its name is', async (visit) => {
        const { go, press, sees, page } = visit;
        await useDemo(visit);
        await go('Update');
        const name = `vesk_h264${'_of_the_second_floor'.repeat(10)}`;
        await openFile(visit, 'Choose the file', name, programForDevice(30000));
        await sees('This is a program for the device');
        await press('Update the device …');
        const dialog = page.getByRole('dialog');
        await dialog.getByText(name).waitFor();
        expect(await dialog.evaluate((each) => each.scrollWidth - each.clientWidth)).toBe(0);
        await press('Cancel');
    });

    flow('can be sent a file that is no program, but not one that is empty', async (visit) => {
        const { go, sees, page } = visit;
        await useDemo(visit);
        await go('Update');
        const force = page.getByRole('checkbox', { name: /^Send it all the same/ });
        await openFile(visit, 'Choose the file', 'photo.jpg', Buffer.alloc(5000, 'no program '));
        await sees('This is no program for the device');
        expect(await force.isVisible()).toBe(true);
        await openFile(visit, 'Choose the file', 'empty', Buffer.alloc(0));
        await sees('0.0 KiB');
        await sees('This is no program for the device');
        expect(await force.isVisible()).toBe(false);
    });
});
