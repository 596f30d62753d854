// All of the page by the keyboard alone.

import { describe, expect } from 'vitest';

import { root } from './board.ts';
import { focused, reach } from './keyboard.ts';
import { flow, screens, useBrowser } from './visit.ts';

useBrowser();

describe('somebody without a mouse', () => {
    flow('connects, goes through the screens, changes a field, sends a command and closes a dialog', async (visit) => {
        const { page, sees } = visit;
        const { keyboard } = page;
        // From now on a dialog of files is caught. waitForEvent() alone may ask for that after Enter has opened one.
        page.on('filechooser', () => undefined);
        const go = async (screen: string): Promise<void> => {
            await reach(page, screen, 'Shift+Tab'); // the way there is before the screen
            await keyboard.press('Enter');
            await page.getByRole('main', { name: screen }).waitFor();
            await page.locator('main:focus').waitFor();
        };

        await keyboard.press('Tab');
        expect(await focused(page)).toBe('Skip to the screen');
        await keyboard.press('Enter');
        await reach(page, 'Try the demo device');
        await keyboard.press('Enter');
        await sees('The device answers');
        await reach(page, 'Skip to the screen', 'Shift+Tab');
        await keyboard.press('Enter');
        for (const screen of screens.slice(1)) {
            await go(screen);
        }

        await go('Console');
        await reach(page, 'Command');
        await keyboard.type('write serial number');
        await reach(page, 'serial number');
        await keyboard.type('4660');
        await keyboard.press('Enter');
        const dialog = page.getByRole('dialog');
        await dialog.waitFor();
        await keyboard.press('Escape');
        await dialog.waitFor({ state: 'hidden' });
        expect(await focused(page)).toBe('serial number');
        await keyboard.press('Enter');
        await dialog.waitFor();
        await reach(page, 'Send it');
        await keyboard.press('Enter');
        await sees('The device has answered');
        await reach(page, 'By name', 'Shift+Tab');
        await keyboard.press('ArrowRight');
        expect(await focused(page)).toBe('Raw');
        await page.getByRole('textbox', { name: 'Bytes' }).waitFor();

        await go('Network');
        await reach(page, 'Address');
        await keyboard.press('ControlOrMeta+a');
        await keyboard.type('192.168.0.77');
        await keyboard.press('Enter');
        await dialog.waitFor();
        await reach(page, 'Write them');
        await keyboard.press('Enter');
        await sees('Written, and read back as written');

        await go('Files');
        await reach(page, 'Open files');
        const [chooser] = await Promise.all([page.waitForEvent('filechooser'), keyboard.press('Enter')]);
        await chooser.setFiles(`${root}tests/data/first-start/save0.sav`);
        await sees(/The device takes save0.sav/);
        await reach(page, 'Save as a new file…');
        await keyboard.press('Enter');
        await dialog.waitFor();
        await keyboard.press('Escape');
        await dialog.waitFor({ state: 'hidden' });
        expect(await focused(page)).toBe('Save as a new file…');
    });
});
