// The contract of a Transport, over the mock, a serial port and the demo device.

import { describe, test } from 'vitest';

import { answersTo, cases, type Bench } from './contract.ts';
import { newDemo } from './demo_bench.ts';
import { FakePort, FakeSerial } from './fakeserial.ts';
import { mockLine } from './mock.ts';
import { serialLine } from './serial.ts';

function overMock(): Bench {
    const line = mockLine(answersTo);
    return { line, unplug: () => line.unplug(), plug: () => line.plug() };
}

function overSerial(): Bench {
    const port = new FakePort(answersTo);
    return {
        line: serialLine(port, new FakeSerial([port])),
        unplug: () => port.unplug(),
        plug: () => port.plug(),
    };
}

async function overDemo(): Promise<Bench> {
    const line = await newDemo();
    return { line, unplug: () => line.unplug(), plug: () => line.plug() };
}

const makers = { 'the mock': overMock, 'a serial port': overSerial, 'the demo device': overDemo };

for (const [name, make] of Object.entries(makers)) {
    describe.concurrent(`${name} as a line`, () => {
        for (const each of cases) {
            test(each.name, async () => {
                const bench = await make();
                await each.run(bench);
                await bench.line.close();
            });
        }
    });
}
