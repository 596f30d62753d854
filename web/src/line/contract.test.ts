// The contract of a Transport, over the mock and over a serial port.

import { describe, test } from 'vitest';

import { answersTo, cases, type Bench } from './contract.ts';
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

const makers = { 'the mock': overMock, 'a serial port': overSerial };

for (const [name, make] of Object.entries(makers)) {
    describe.concurrent(`${name} as a line`, () => {
        for (const each of cases) {
            test(each.name, async () => {
                const bench = make();
                await each.run(bench);
                await bench.line.close();
            });
        }
    });
}
