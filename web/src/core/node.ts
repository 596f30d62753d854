// The core for tests under node.

import { readFile } from 'node:fs/promises';

import type { Core } from './core.ts';
import { loadCore } from './wasm.ts';

export function coreInNode(): Promise<Core> {
    return loadCore(() => readFile(new URL('../../../build/web/core/vesk_core.wasm', import.meta.url)));
}
