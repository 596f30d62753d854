// The demo device under node, for tests.

import { readFile } from 'node:fs/promises';

import { demoDevice, type DemoDevice } from './demo.ts';

const file = new URL('../../../build/web/demo/vesk_demo.wasm', import.meta.url);
const module = readFile(file).then((bytes) => WebAssembly.compile(bytes));

/** A device of its own, fresh from the factory. */
export async function newDemo(): Promise<DemoDevice> {
    return demoDevice({ module: await module });
}
