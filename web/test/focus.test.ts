// Where the focus is after a dialog: never nowhere, as somebody without a mouse would begin again at the top.

import { readFileSync } from 'node:fs';

import { describe, expect } from 'vitest';

import { root } from './board.ts';
import { focused } from './keyboard.ts';
import { programForDevice } from './programs.ts';
import { flow, useBrowser, type Visit } from './visit.ts';

useBrowser();

async function give({ page, press }: Visit, label: string, name: string, buffer: Buffer): Promise<void> {
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press(label)]);
    await chooser.setFiles({ name, mimeType: 'application/octet-stream', buffer });
}

async function useDemo({ press, sees }: Visit): Promise<void> {
    await press('Try the demo device');
    await sees('The device answers');
}

/** Presses a button of a dialog, and waits until the dialog is closed. */
async function answer({ page, button }: Visit, name: string): Promise<void> {
    await button(name).press('Enter');
    await page.locator('dialog[open]').waitFor({ state: 'detached' });
}

describe.concurrent('the focus', () => {
    flow('goes to the screen after what cannot be used any more, and back to what can', async (visit) => {
        const { page, go, button, field, sees } = visit;
        const onScreen = page.locator('main:focus');
        await useDemo(visit);
        await go('Console');
        await field('Command').fill('write serial number');
        await field('serial number').fill('4660');
        await button('Send').press('Enter');
        await answer(visit, 'Cancel');
        expect(await focused(page)).toBe('Send');
        await button('Send').press('Enter');
        await answer(visit, 'Send it');
        await sees('The device has answered');
        await onScreen.waitFor();
        await go('Network');
        await field('Address').fill('192.168.0.77');
        await button('Write …').press('Enter');
        await answer(visit, 'Write them');
        await sees('Written, and read back as written');
        await onScreen.waitFor();
        await go('Overview');
        await button('Read the stored settings too').press('Enter');
        await answer(visit, 'Read them');
        await page.getByRole('region', { name: 'Its stored network settings' }).waitFor();
        await onScreen.waitFor();
    });

    flow('goes to what cancels an update, and to the screen when it is over', async (visit) => {
        const { page, go, button, sees } = visit;
        await useDemo(visit);
        await go('Update');
        await give(visit, 'Choose the file', 'vesk_h264', programForDevice(16000 * 1024));
        await sees('This is a program for the device');
        await button('Update the device …').press('Enter');
        await answer(visit, 'Update it');
        await sees(/\d+ of 16001 blocks/);
        expect(await focused(page)).toBe('Cancel the update');
        await page.keyboard.press('Enter');
        await sees('Cancelled. The device goes on with its old program');
        await page.locator('main:focus').waitFor();
    });

    flow('goes to the screen after a file is closed', async (visit) => {
        const { page, go, button, sees } = visit;
        const dialog = page.getByRole('dialog');
        await go('Files');
        await give(visit, 'Open files', 'save0.sav', readFileSync(`${root}tests/data/first-start/save0.sav`));
        await sees(/The device takes save0.sav/);
        await button(/^Change /).first().press('Enter');
        await dialog.getByRole('textbox').first().fill('1');
        await dialog.getByRole('button', { name: 'Change', exact: true }).press('Enter');
        await sees('changed, not saved');
        await button('Close save0.sav').press('Enter');
        await answer(visit, 'Keep it open');
        expect(await focused(page)).toBe('Close save0.sav');
        await button('Close save0.sav').press('Enter');
        await answer(visit, 'Close without saving');
        await page.locator('main:focus').waitFor();
    });
});
