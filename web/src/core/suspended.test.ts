// Which functions of the module wait for the page, and whether Asyncify has rewritten each of them. One that is missing
// from the list in web/core/CMakeLists.txt works until it has to wait, and then traps.

import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

import { describe, expect, test } from 'vitest';

const folder = fileURLToPath(new URL('../../../build/web/core/', import.meta.url));

/** The list's patterns, in which * is any text. */
const patterns = readFileSync(`${folder}suspended.txt`, 'utf8').split('\n').filter((line) => line !== '');

/** The module's functions, by number: imported ones first. */
const names = readFileSync(`${folder}vesk_core.mjs.symbols`, 'utf8')
    .split('\n')
    .filter((line) => line !== '')
    .map((line) =>
        line.slice(line.indexOf(':') + 1).replace(/\\([0-9a-f]{2})/g, (_, digits) => String.fromCharCode(parseInt(digits, 16))),
    );

function matches(pattern: string, name: string): boolean {
    const parts = pattern.split('*').map((part) => part.replace(/[.+?^${}()|[\]\\]/g, '\\$&'));
    return new RegExp(`^${parts.join('.*')}$`, 's').test(name);
}

// Calls in a try block go by way of invoke_…(number of the function in the table, arguments…).
const isInvoke = names.map((name) => /^(legalfunc\$)?invoke_/.test(name));

/** Who calls each function: directly, or in a try block. Who calls through a pointer is not known. */
function callers(): Map<number, Set<number>> {
    const lines = execFileSync('wasm-dis', [`${folder}vesk_core.wasm`], { encoding: 'utf8', maxBuffer: 1 << 28 }).split('\n');
    const imported = lines.filter((line) => /^ \(import .*\(func /.test(line)).length;
    const elements = lines.find((line) => line.startsWith(' (elem ')) ?? '';
    const first = Number(/i32\.const (\d+)/.exec(elements)?.[1]);
    const table = [...elements.matchAll(/\$(\d+)/g)].map((each) => imported + Number(each[1]));
    const found = new Map<number, Set<number>>();
    const add = (callee: number | undefined, caller: number) => {
        if (callee !== undefined) {
            found.set(callee, (found.get(callee) ?? new Set()).add(caller));
        }
    };

    let caller = 0;
    let constants = new Map<string, number[]>(); // that a local of this function may have
    let invoked: string[] = []; // locals with a number in the table
    const end = () => {
        for (const local of invoked) {
            constants.get(local)?.forEach((number) => add(table[number - first], caller));
        }
        constants = new Map();
        invoked = [];
    };
    lines.forEach((line, index) => {
        const head = /^ \(func \$(\d+)/.exec(line);
        if (head !== null) {
            end();
            caller = imported + Number(head[1]);
            return;
        }
        const next = lines[index + 1] ?? '';
        const constant = /^ *\(i32\.const (\d+)\)/.exec(next)?.[1];
        const local = /\(local\.(?:set|tee) (\$\d+)$/.exec(line)?.[1];
        if (local !== undefined && constant !== undefined) {
            constants.set(local, [...(constants.get(local) ?? []), Number(constant)]);
        }
        const call = /\(call \$(fimport\$)?(\d+)/.exec(line);
        if (call === null) {
            return;
        }
        const callee = Number(call[2]) + (call[1] === undefined ? imported : 0);
        add(callee, caller);
        if (isInvoke[callee]) {
            if (constant !== undefined) {
                add(table[Number(constant) - first], caller);
            } else {
                invoked.push(/\(local\.get (\$\d+)\)/.exec(next)?.[1] ?? '');
            }
        }
    });
    end();
    return found;
}

/** What may be on the stack while `begin` waits. */
function suspended(begin: readonly string[]): string[] {
    const of = callers();
    const reached = new Set(begin.map((name) => names.indexOf(name)));
    reached.forEach((each) => of.get(each)?.forEach((caller) => reached.add(caller))); // those that are added, too
    return [...reached].map((each) => names[each] ?? '').filter((name) => !begin.includes(name));
}

describe('the list of functions that can be suspended', () => {
    test('has every function that waits for the line', () => {
        const waiting = suspended(['sendToLine', 'awaitArrival']);
        // What is there for sure, so that the search itself is known to work.
        expect(waiting.filter((name) => /^(awaitLine|ask|Line::receive)\(/.test(name)).length).toBe(4);
        expect(waiting.filter((name) => !patterns.some((pattern) => matches(pattern, name)))).toEqual([]);
    });

    test('has nothing that no function is called', () => {
        expect(patterns.filter((pattern) => !names.some((name) => matches(pattern, name)))).toEqual([]);
    });
});
