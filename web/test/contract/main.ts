// A page that runs the contract's cases over the browser's serial port. The test calls `runCase`.

import { cases } from '../../src/line/contract.ts';
import { knownPorts } from '../../src/line/serial.ts';

interface Window {
    pullCable(isPlugged: boolean): Promise<void>;
    runCase(name: string): Promise<void>;
}

const page = window as unknown as Window;

page.runCase = async (name) => {
    const [line] = await knownPorts();
    const found = cases.find((each) => each.name === name);
    if (line === undefined || found === undefined) {
        throw new Error('no port, or no such case');
    }
    await found.run({ line, unplug: () => page.pullCable(false), plug: () => page.pullCable(true) });
    await line.close();
};
