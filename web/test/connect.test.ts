// From the first look at the page to a device that answers, and what it says when none does.

import { describe, expect } from 'vitest';

import { parrot, silence } from './ports.ts';
import { flow, screens, useBrowser } from './visit.ts';

useBrowser();

describe.concurrent('connect', () => {
    flow('says what it is, and shows each screen without a device', async ({ page, go, sees }) => {
        await sees('What this is');
        for (const screen of screens) {
            await go(screen);
            await page.getByRole('heading', { level: 1 }).filter({ visible: true }).waitFor();
            for (let tries = 0; tries < 200 && !(await page.title()).includes(screen); ++tries) {
                await page.waitForTimeout(50); // the title follows the screen
            }
            expect(await page.title()).toContain(screen);
        }
    });

    flow('chooses a port, and the device answers', async ({ connect, sees, go, page, press }) => {
        const { board } = await connect();
        await sees(/Connected on USB 0403:6001, serial number \d+/);
        await board.says('read device type');
        const main = await go('Overview');
        for (const text of ['2633', '2.13', '1.10', '192.168.0.100', '255.255.255.0', '192.168.0.1', '02:76:65:73:6b:01']) {
            await main.getByText(text, { exact: true }).first().waitFor();
        }
        await go('Connect');
        await press('Disconnect');
        await page.getByText('Not connected').first().waitFor();
    });

    flow('is told that no port was chosen', async ({ ports, press, sees }) => {
        ports.choice = 'cancel';
        await press('Choose the port');
        await sees('No port was chosen');
    });

    flow('is told that the browser does not permit it', async ({ ports, press, sees }) => {
        ports.choice = 'forbid';
        await press('Choose the port');
        await sees('The browser does not permit serial ports here');
    });

    flow('is told that the port is busy, and takes it when it is free', async (visit) => {
        const { ports, board, button, go, press, sees } = visit;
        const port = ports.add(await board());
        port.isBusy = true;
        ports.choice = port;
        await press('Choose the port');
        await sees('The port cannot be opened');
        await sees('Not connected');
        expect(await button('Disconnect').isVisible()).toBe(false);
        await go('Overview');
        await sees('The port is not open');
        await go('Connect');
        await press('Try again');
        await sees('The port cannot be opened');
        port.isBusy = false;
        await press('Try again');
        await sees('The device answers');
        expect(await button('Disconnect').isVisible()).toBe(true);
    });

    flow('is told that nobody answers, and asks again', async ({ ports, board, press, sees }) => {
        const port = ports.add(silence());
        ports.choice = port;
        await press('Choose the port');
        await sees('Nobody answers on this port');
        port.lead(await board());
        await press('Ask again');
        await sees('The device answers');
    });

    flow('is told that it is another device', async ({ ports, press, sees }) => {
        ports.choice = ports.add(parrot('$GPGGA,115739.00,4158.8441,N,09147.4416,W*76\r\n'));
        await press('Choose the port');
        await sees('Something is there, but it does not answer as this device does');
    });

    flow('finds the device again when its cable is back', async ({ connect, sees, page }) => {
        const { port } = await connect();
        port.unplug();
        await sees('USB 0403:6001 is unplugged');
        port.plug();
        await sees(/Connected on USB 0403:6001/);
        await page.getByText('The device answers').first().waitFor();
    });

    flow('is told that another device answers when the cable is back', async ({ connect, board, go, press, sees, has }) => {
        const { port } = await connect();
        const other = await board();
        await new Promise<void>((resolve) => {
            other.onBytes = () => resolve();
            other.take(Buffer.from('<T00006a10123400c0>')); // write serial number 4660
        });
        await go('Network');
        await has('Address', '192.168.0.100');
        port.unplug();
        await sees('USB 0403:6001 is unplugged');
        port.lead(other);
        port.plug();
        await sees('Another device answers');
        await sees(/Its serial number is 4660 \(0x1234\); before it was 0/);
        await press('Dismiss: Another device answers');
        await sees(/Connected on USB 0403:6001, serial number 4660/);
    });

    flow('uses a port again that was chosen before', async ({ connect, press, sees, page }) => {
        await connect();
        await page.reload();
        await press('Use USB 0403:6001 again');
        await sees('The device answers');
    });

    flow('chooses a port that has just gone, and is connected when it is there again', async (visit) => {
        const { ports, board, press, sees } = visit;
        const port = ports.add(await board());
        ports.choice = port;
        port.unplug();
        await press('Choose the port');
        await sees('The port is gone: it was unplugged');
        port.plug();
        await sees('The device answers');
    });

    flow('chooses another port while the one before is gone', async ({ connect, ports, press, sees, button }) => {
        const { board, port } = await connect();
        port.unplug();
        await sees(/some adapters come back as a new one/);
        const other = ports.add(board); // the same adapter, as the browser sees it now
        ports.choice = other;
        await press('Choose another port');
        await sees(/Connected on USB 0403:6002/);
        await sees('The device answers');
        expect(await button('Ask again').isVisible()).toBe(false);
    });

    flow('is told what to do in a browser without serial ports', async ({ page, sees, button }) => {
        await page.addInitScript(() => Object.defineProperty(navigator, 'serial', { value: undefined }));
        await page.reload();
        await sees('This browser cannot use serial ports');
        expect(await button('Choose the port').isDisabled()).toBe(true);
        expect(await button('Try the demo device').isEnabled()).toBe(true);
    });
});
