// What people do with a device: ask it, change it, update it, and lose it on the way. The device is the unmodified
// daemon on a board.

import { describe, expect } from 'vitest';

import { play } from './play.ts';
import { silence, type Port } from './ports.ts';
import { programForBoard, programForDevice } from './programs.ts';
import { flow, useBrowser, type Visit } from './visit.ts';

useBrowser();

async function chooseProgram({ page, press }: Visit, name: string, content: Buffer): Promise<void> {
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), press('Choose the file')]);
    await chooser.setFiles({ name, mimeType: 'application/octet-stream', buffer: content });
}

async function beginUpdate(visit: Visit, content: Buffer): Promise<void> {
    await visit.go('Update');
    await chooseProgram(visit, 'vesk_h264', content);
    await visit.sees('This is a program for the device');
    await visit.press('Update the device …');
    await visit.press('Update it');
}

function isBlock(bytes: Uint8Array): boolean {
    return bytes.length > 1024;
}

/** Damages one block so that its own sum is right: only the sum of the whole file shows it. */
function damaging(number: number): (bytes: Uint8Array) => Uint8Array | void {
    let seen = 0;
    return (bytes) => {
        if (!isBlock(bytes) || seen++ !== number) {
            return undefined;
        }
        const copy = Buffer.from(bytes);
        copy[500] = (copy.readUInt8(500) + 1) % 256;
        copy[copy.length - 1] = (copy.readUInt8(copy.length - 1) + 1) % 256;
        return copy;
    };
}

/** After the last block the page asks who is there: nobody hears it any more. */
function loseAfterBlocks(port: Port): void {
    let hasBlock = false;
    port.onWrite = (bytes) => {
        hasBlock ||= isBlock(bytes);
        if (hasBlock && !isBlock(bytes)) {
            port.lead(silence());
        }
    };
}

describe.concurrent('the console', () => {
    flow('sends each reading command by its name', async ({ connect, go, page, field, button, press }) => {
        await connect();
        const main = await go('Console');
        await main.locator('summary', { hasText: 'All commands' }).click();
        const rows = await main.getByRole('table', { name: 'All commands' }).getByRole('row').all();
        const commands: string[] = [];
        for (const row of rows.slice(1)) {
            const text = await row.innerText();
            if (!/changes the device|refused: not in this model/.test(text)) {
                commands.push(await row.getByRole('button').innerText());
            }
        }
        expect(commands).toContain('read device type');
        expect(commands.length).toBeGreaterThan(12);
        const refused: string[] = [];
        const input = field('Command');
        for (const command of commands) {
            await input.fill(command);
            await button('Send').and(page.locator(':enabled')).waitFor();
            await input.press('Enter');
            const result = main.getByText(/^(Done|Error): The device has/);
            if ((await result.innerText()).includes('refused')) {
                refused.push(command);
            }
            await press(/^Dismiss/);
        }
        expect(refused).toEqual(['read data']); // of which it has only the network record, number 20
        await page.getByText('<F00006801263300c2>').first().waitFor();
    });

    flow('shows that a command is refused', async ({ connect, go, field, press, sees }) => {
        await connect();
        await go('Console');
        await field('Command').fill('input source');
        await press('Send');
        await sees('The device has refused it');
        await sees(/<F000073ffffffff6f>/);
    });

    flow('takes raw bytes, and says what is wrong with them', async ({ connect, go, page, field, sees }) => {
        await connect();
        await go('Console');
        await page.getByRole('tab', { name: 'Raw' }).click();
        await field('Bytes').fill('6');
        await sees(/Nothing can be sent yet/);
        await field('Bytes').fill('68 01');
        await sees(/Will be sent/);
        await field('Bytes').press('Enter');
        await sees(/<F0000680126330/);
    });

    flow('asks before a command changes the device', async ({ connect, go, field, press, sees }) => {
        await connect();
        await go('Console');
        await field('Command').fill('write serial number');
        await field('serial number').fill('4660');
        await press('Send');
        await sees('This changes the device');
        await press('Send it');
        await sees('The device has answered');
        await field('Command').fill('read serial number');
        await press('Send');
        await sees(/<F00006a11123400c1>/);
        await go('Overview');
        await press('Refresh');
        await sees('4660 (0x1234)');
    });

    flow('shows the traffic, and saves it as a transcript that veskctl plays', async (visit) => {
        const { connect, go, page, field, press, save, sees } = visit;
        const { board } = await connect();
        const main = await go('Console');
        const table = main.getByRole('table', { name: 'What passes over the line' });
        await table.getByText('<F00006801263300c2>').first().waitFor();
        await field('Filter').fill('serial number');
        await table.getByText('<F00006801263300c2>').first().waitFor({ state: 'hidden' });
        await table.getByText(/serial number/).first().waitFor();
        await press('Pause');
        await sees('Paused: what comes meanwhile is shown afterwards.');
        await press('Go on');
        await page.getByRole('searchbox', { name: 'Filter' }).fill('');
        await page.getByRole('tab', { name: 'Raw' }).click();
        // The device is as before in the end, so that it can do the same again. What follows a write by itself is over
        // when a reading is answered.
        for (const command of ['write serial number 4660', 'input source', 'write serial number 0', 'read serial number']) {
            await field('Bytes').fill(command);
            await press('Send');
            if (command.startsWith('write')) {
                await press('Send it');
            }
            await page.getByText(/^(Done|Error): The device has/).waitFor();
            await press(/^Dismiss/);
        }
        const { name, bytes } = await save('Download as a transcript');
        expect(name).toBe('session.txt');
        const text = bytes.toString('latin1');
        expect(text).toMatch(/^#/);
        expect(text).toMatch(/^front> <T....6801000000..>$/m);
        expect(text).toMatch(/^front< <F....6801263300..>$/m);
        const steps = text.match(/^front[<>]/gm)?.length ?? 0;
        expect(steps).toBeGreaterThan(16);
        await go('Connect');
        await press('Disconnect');
        await sees('Not connected');
        const { status, output } = await play(board, bytes);
        expect(status, output).toBe(0);
        expect(output.match(/^ +ok +front[<>]/gm)?.length).toBe(steps);
    });
});

describe.concurrent('the network', () => {
    flow('says what is wrong before anything is written', async ({ connect, go, field, button, sees, press }) => {
        const { port } = await connect();
        await go('Network');
        await press('Read again');
        const written = port.written.length;
        await field('Address').fill('192.168.0.300');
        await sees(/300/);
        expect(await button('Write …').isDisabled()).toBe(true);
        await field('Address').fill('192.168.0.101');
        await field('Gateway').fill('10.0.0.1');
        await sees('These settings do not go together');
        expect(await button('Write …').isDisabled()).toBe(true);
        await press('Undo');
        expect(await field('Gateway').inputValue()).toBe('192.168.0.1');
        expect(port.written.length).toBe(written);
    });

    flow('writes new settings and reads them back', async ({ connect, go, page, field, press, sees }) => {
        await connect();
        await go('Network');
        await press('Read again');
        await field('Address').fill('192.168.0.123');
        await press('Write …');
        const dialog = page.getByRole('dialog');
        await dialog.getByText('192.168.0.123').waitFor();
        await dialog.getByText('192.168.0.100').waitFor();
        await press('Write them');
        await sees('Written, and read back as written');
        await go('Overview');
        await press('Refresh');
        await sees('192.168.0.123');
    });

    flow('keeps a MAC address for the next start when something else is written', async (visit) => {
        const { connect, go, has, page, field, button, press, sees } = visit;
        const { port } = await connect();
        const mac = '02:76:65:73:6b:77';
        const hasMac = (bytes: Uint8Array) => Buffer.from(bytes).includes(Buffer.from(mac.replaceAll(':', ''), 'hex'));
        await go('Network');
        await press('Read again');
        await field('MAC address').fill(mac);
        await press('Write …');
        await press('Write them');
        await sees('The MAC address is still 02:76:65:73:6b:01.');
        await has('MAC address', mac);
        await press('Read again');
        await field('Address').fill('192.168.0.125');
        await press('Undo');
        await has('Address', '192.168.0.100');
        await has('MAC address', mac);
        expect(await button('Undo').isDisabled()).toBe(true);
        await field('Address').fill('192.168.0.126');
        await press('Write …');
        await page.getByRole('dialog').getByText(mac).waitFor();
        await press('Write them');
        await sees('Written, and read back as written');
        expect(port.written.filter(hasMac).length).toBe(2);
    });

    flow('asks again before settings that do not go together are written', async (visit) => {
        const { connect, go, page, field, button, press } = visit;
        await connect();
        await go('Network');
        await press('Read again');
        const force = page.getByRole('checkbox', { name: 'Write them all the same' });
        await field('Gateway').fill('10.0.0.1');
        await force.check();
        expect(await button('Write …').isEnabled()).toBe(true);
        await press('Undo');
        await field('Gateway').fill('10.0.0.1');
        expect(await force.isChecked()).toBe(false);
        await force.check();
        await field('Gateway').fill('10.0.0.2');
        expect(await force.isChecked()).toBe(false);
        expect(await button('Write …').isDisabled()).toBe(true);
    });

    flow('is unplugged in mid-save, and shows what the device has', async ({ connect, go, field, has, press, sees }) => {
        const { port } = await connect();
        await go('Network');
        await press('Read again');
        await field('Address').fill('192.168.0.124');
        port.onWrite = (bytes) => {
            if (/<T....f020/.test(Buffer.from(bytes).toString('latin1'))) {
                port.unplug(); // nothing of it reaches the device
            }
        };
        await press('Write …');
        await press('Write them');
        await sees('USB 0403:6001 is unplugged');
        await sees(/could not be written|has not answered/);
        port.onWrite = null;
        port.plug();
        await sees(/Connected on USB 0403:6001/);
        await press('Read again');
        await has('Address', '192.168.0.100');
    });
});

// By itself: its time-outs are the device's, and a machine with several boards may be too slow for them.
describe('an update', () => {
    flow('ends well: the device restarts with the new program', async (visit) => {
        const { connect, go, sees, press, page } = visit;
        const { board } = await connect();
        await go('Update');
        await chooseProgram(visit, 'vesk_h264', programForBoard());
        await sees(/[Ii]t is for x86_64, and the device needs 32-bit ARM/);
        await page.getByRole('checkbox', { name: /^Send it all the same/ }).check();
        await press('Update the device …');
        await press('Update it');
        await sees(/The device runs the new program/);
        await sees(/Connected on USB 0403:6001/);
        await board.says('check _update.pkg sucess');
        await board.says('enter main', 2);
    });
});

describe.concurrent('an update that goes wrong', () => {
    flow('is cancelled: the device goes on with its old program', async (visit) => {
        const { connect, sees, press } = visit;
        const { board } = await connect();
        await beginUpdate(visit, programForDevice(4000 * 1024));
        await sees(/\d+ of 4001 blocks/);
        await press('Cancel the update');
        await sees('Cancelled. The device goes on with its old program');
        await sees(/Connected on USB 0403:6001/);
        expect(board.log).not.toContain('check _update.pkg sucess');
    });

    flow('is not begun with a wrong file', async (visit) => {
        const { connect, go, sees, button } = visit;
        const { port } = await connect();
        await go('Update');
        const written = port.written.length;
        await chooseProgram(visit, 'photo.jpg', Buffer.alloc(5000, 'no program '));
        await sees('This is no program for the device');
        await sees('Nothing has been sent.');
        expect(await button('Update the device …').isDisabled()).toBe(true);
        expect(port.written.length).toBe(written);
    });

    flow('is unplugged on the way: the device is found again with its old program', async (visit) => {
        const { connect, sees } = visit;
        const { board, port } = await connect();
        let blocks = 0;
        port.onWrite = (bytes) => {
            blocks += isBlock(bytes) ? 1 : 0;
            if (blocks === 20) {
                port.unplug();
            }
        };
        await beginUpdate(visit, programForDevice(200 * 1024));
        await sees('The update could not go on. The device goes on with its old program');
        await sees('USB 0403:6001 is unplugged');
        port.onWrite = null;
        port.plug();
        await sees(/Connected on USB 0403:6001/);
        expect(board.log).not.toContain('check _update.pkg sucess');
    });

    flow('arrives damaged: the device keeps its old program', async (visit) => {
        const { connect, sees } = visit;
        const { board, port } = await connect();
        port.onWrite = damaging(3);
        await beginUpdate(visit, programForDevice(30000));
        await sees('The device goes on with its old program');
        await board.says('check _update.pkg error');
    });

    flow('ends in silence: what has become of it is said when the wait is stopped', async (visit) => {
        const { connect, sees, press } = visit;
        const { board, port } = await connect();
        loseAfterBlocks(port);
        await beginUpdate(visit, programForDevice(30000));
        await sees('All blocks are sent. The device checks them and starts the new program.');
        await board.says('exit');
        await press('Stop waiting');
        await sees('Whether the device runs the new program is not known');
    });

    flow('leaves a device that is absent: it says so when the wait is over', async (visit) => {
        const { page, connect, sees, press } = visit;
        await page.clock.install();
        const { board, port } = await connect();
        loseAfterBlocks(port);
        await beginUpdate(visit, programForDevice(30000));
        await sees('All blocks are sent. The device checks them and starts the new program.');
        await board.says('exit');
        await page.clock.fastForward('00:31');
        await sees('Asking the device who it is');
        await press('Stop waiting');
        await sees('The device does not answer any more');
        await sees(/^Ask again in a minute/);
        port.onWrite = null;
        port.lead(await visit.board());
        await visit.go('Connect');
        await press('Ask again');
        await sees('The device answers');
    });
});

describe.concurrent('a device that is switched off', () => {
    flow('is silent, and answers when it is on again', async ({ connect, board, go, press, sees }) => {
        const { board: first, port } = await connect();
        await first.stop();
        port.lead(silence());
        await go('Overview');
        await press('Refresh');
        await sees(/No device on USB 0403:6001/);
        port.lead(await board());
        await go('Connect');
        await press('Ask again');
        await sees('The device answers');
    });
});
