// The screen's logic over the page's core (see core/runner.ts). Expected values are those of docs/files.md, and of the files of a first start
// in tests/data, which are derived from that document.

import { readFileSync } from 'node:fs';
import { describe, expect, test } from 'vitest';
import { isNative, runner } from './core/runner.ts';
import {
    assignmentsOf,
    differencesOf,
    drawingOf,
    found,
    isFault,
    isOf,
    jsonOf,
    noValue,
    openSav,
    setValues,
    viewOf,
    type SavFile,
} from './files.ts';

const core = await runner();

function fixture(name: string): Uint8Array {
    return new Uint8Array(readFileSync(new URL(`../../tests/data/first-start/${name}`, import.meta.url)));
}

async function opened(name: string, bytes = fixture(name), kind?: string): Promise<SavFile> {
    const file = await openSav(core, name, bytes, kind);
    if (isFault(file)) {
        throw new Error(file.fault);
    }
    return file;
}

async function changed(file: SavFile, ...values: [name: string, text: string][]): Promise<SavFile> {
    const result = await setValues(
        core,
        file,
        values.map(([name, text]) => ({ name, text })),
    );
    if (isFault(result)) {
        throw new Error(result.fault);
    }
    return result;
}

async function rowsOf(file: SavFile, chapter: string) {
    const view = await viewOf(core, file);
    return view.chapters.find(({ title }) => title === chapter)?.rows ?? [];
}

describe('opening', () => {
    test('the kind is that of the name', async () => {
        expect((await opened('save0.sav')).kind).toBe('save');
        expect((await opened('workTime.sav')).kind).toBe('workTime');
    });

    test('the kind is that of the identification under another name', async () => {
        expect((await opened('--old settings.bak', fixture('workTime.sav'))).kind).toBe('workTime');
    });

    test.skipIf(isNative)('a file of no known kind is refused in words that suit a page, and can be opened as one', async () => {
        const file = await openSav(core, 'notes.txt', new Uint8Array([1, 2, 3]));
        expect(file).toEqual({
            fault:
                'notes.txt is not known as a settings file: neither its name nor its identification is that of one.',
        });
        expect(await opened('notes.txt', new Uint8Array([1, 2, 3]), 'DevInfo')).toMatchObject({ kind: 'DevInfo' });
    });

    test('the kinds are those of the documents', async () => {
        expect(core.facts.savKinds).toEqual(['UserPref', 'DevInfo', 'save', 'view', 'page', 'timeCon', 'workTime']);
    });
});

describe('fields', () => {
    test('have names, values and units by chapter', async () => {
        expect(await rowsOf(await opened('workTime.sav'), 'workTime.sav')).toEqual([
            { name: 'currentAddress', text: '0', unit: 'address in the list' },
            { name: 'addresses', text: '0 0', unit: 'address in the list' },
            { name: 'counters', text: '0 0', unit: '' },
            { name: 'identification', text: '0x20150321', unit: '0x20150321' },
        ]);
    });

    test('of a user setting have the chapters of the document', async () => {
        const { chapters } = await viewOf(core, await opened('save0.sav'));
        expect(chapters.map(({ title }) => title)).toEqual([
            'save0.sav',
            'Timings of inputs and outputs',
            'Inputs',
            'Outputs',
            'preview: view0.sav to view15.sav',
            'program: view0.sav to view15.sav',
        ]);
    });

    test('entries that are the same stand in one line', async () => {
        const { chapters } = await viewOf(core, await opened('save0.sav'));
        const table = chapters[1]?.tables.find(({ name }) => name === 'inputTiming');
        expect(table?.columns.slice(0, 3)).toEqual([
            { name: 'format', unit: 'format' },
            { name: 'syncPolarity', unit: '' },
            { name: 'hTotal', unit: 'pixels' },
        ]);
        // 24 inputs have format 76, of 4400 pixels a line; the last two are 0.
        expect(table?.groups.map(({ first, last }) => [first, last])).toEqual([
            [0, 23],
            [24, 25],
        ]);
        expect(table?.groups[0]?.cells.slice(0, 3)).toEqual(['76', '0', '4400']);
    });

    test('names are those that values are set by, in a page of views too', async () => {
        const page = await opened('page0_0.sav', new Uint8Array(16 * 3996));
        const { chapters } = await viewOf(core, page);
        const rs1 = chapters.flatMap(({ tables }) => tables).find(({ name }) => name === 'views[15].rs1.second[0].halves');
        const names = chapters.flatMap(({ rows }) => rows.map(({ name }) => name));
        expect(chapters.at(-1)?.title).toBe('views[15]: view0.sav to view15.sav');
        expect(names).toContain('views[3].other.settingWord4');
        expect(rs1?.columns.map(({ name }) => name)).toContain('byte11');
        const text = await changed(
            page,
            ['views[15].rs1.second[0].halves[1].byte11', '7'],
            ['views[3].other.settingWord4', '1664'],
        );
        // 1664 is 0x0680; the block stands at 2704 in a view.
        expect([...text.bytes.slice(3 * 3996 + 2704 + 4, 3 * 3996 + 2704 + 6)]).toEqual([0x80, 0x06]);
    });

    test('a value that a short file does not have is a dash', async () => {
        const short = await opened('workTime.sav', fixture('workTime.sav').slice(0, 6));
        const view = await viewOf(core, short);
        expect(view.chapters[0]?.rows.map(({ text }) => text)).toEqual([
            '0',
            `${noValue} ${noValue}`,
            `${noValue} ${noValue}`,
            noValue,
        ]);
        expect(view.rest).toBe('0000');
        expect(view.check).toMatchObject({ verdict: 'reset', record_length: 24 });
        expect(view.verdict).toContain('6 bytes instead of 24');
    });

    test('what the check complains of is found by name', async () => {
        const { check } = await viewOf(core, await opened('save0-over-a5.sav'));
        expect(check.verdict).toBe('taken');
        expect(check.faults.filter(({ field }) => isOf(field, 'inputEnable'))).toHaveLength(2);
        expect(check.faults.filter(({ field }) => isOf(field, 'inputTiming[25]'))).toHaveLength(1);
        expect(check.faults.filter(({ field }) => isOf(field, 'inputTiming[2]'))).toHaveLength(0);
    });

    test('are found by parts of their names', async () => {
        const { chapters } = await viewOf(core, await opened('save0.sav'));
        expect(found(chapters, '')).toEqual(chapters);
        expect(found(chapters, 'pagenumber').flatMap(({ rows }) => rows.map(({ name }) => name))).toEqual([
            'pageNumber',
        ]);
        expect(found(chapters, 'program layers').flatMap(({ tables }) => tables.map(({ name }) => name))).toEqual([
            'program.layers',
        ]);
        expect(found(chapters, 'nothing has this name')).toEqual([]);
    });
});

describe('changing', () => {
    test('makes a new file of the same length and leaves the given one alone', async () => {
        const before = await opened('save0.sav');
        const after = await changed(before, ['outputTiming[3].hStart', '128'], ['program.layerAlpha[0]', '0xff']);
        expect(before.bytes).toEqual(fixture('save0.sav'));
        const expected = fixture('save0.sav');
        expected[1724 + 3 * 28 + 6] = 128; // was 192
        expected[7808 + 2608] = 255;
        expect(after.bytes).toEqual(expected);
        expect(await differencesOf(core, before, after)).toEqual([
            { field: 'outputTiming[3].hStart', before: 192, after: 128 },
            { field: 'program.layerAlpha[0]', before: 0, after: 255 },
        ]);
        expect(await differencesOf(core, before, before)).toEqual([]);
    });

    test('a wrong value is refused with its name', async () => {
        const file = await opened('save0.sav');
        expect(
            await setValues(core, file, [
                { name: 'userMode', text: '1' },
                { name: 'inputEnable', text: '2,x' },
            ]),
        ).toMatchObject({ field: 'inputEnable' });
        expect(await setValues(core, file, [{ name: 'pageNumber', text: '300' }])).toEqual({
            fault: '"300" is not a number from 0 to 255.',
            field: 'pageNumber',
        });
    });

    test('a group of entries takes what differs, each of them', async () => {
        const file = await opened('save0.sav');
        const table = (await viewOf(core, file)).chapters[1]?.tables.find(({ name }) => name === 'outputTiming');
        const group = table?.groups[0];
        if (!table || !group) {
            throw new Error('no outputTiming');
        }
        const texts = [...group.cells];
        texts[table.columns.findIndex(({ name }) => name === 'hTotal')] = '2640';
        expect(assignmentsOf(table, { ...group, first: 1, last: 2 }, texts)).toEqual([
            { name: 'outputTiming[1].hTotal', text: '2640' },
            { name: 'outputTiming[2].hTotal', text: '2640' },
        ]);
    });
});

async function exported(file: SavFile): Promise<string> {
    const result = await jsonOf(core, file);
    if (isFault(result)) {
        throw new Error(result.fault);
    }
    return result.json;
}

describe('leaving', () => {
    test('what cannot be exported says why', async () => {
        expect(await jsonOf(core, { name: 'x.sav', kind: 'nothing', bytes: new Uint8Array(4) })).toMatchObject({
            fault: expect.stringContaining('nothing') as string,
        });
    });

    test.each(['save0.sav', 'workTime.sav', 'save0-over-a5.sav'])('%s comes back from its JSON', async (name) => {
        const file = await opened(name);
        const text = new TextEncoder().encode(await exported(file));
        expect(await openSav(core, 'from elsewhere.json', text)).toEqual(file);
    });

    test('a cut file comes back from its JSON as it was', async () => {
        const file = await opened('save0.sav', fixture('save0.sav').slice(0, 1001));
        const text = new TextEncoder().encode(await exported(file));
        expect(await openSav(core, 'cut.json', text)).toEqual(file);
    });

    test('a text that is no file is refused with the place', async () => {
        const text = new TextEncoder().encode('{"kind": "view",\n "fields": 7x}');
        expect(await openSav(core, 'broken.json', text)).toMatchObject({
            fault: expect.stringContaining('line 2') as string,
        });
    });

    test('a drawing is a picture; a view takes its sizes from the user setting beside it', async () => {
        const save = await changed(await opened('save0.sav'), ['outputTiming[0].hActive', '1280']);
        const view = await opened('view0.sav', save.bytes.slice(7808, 7808 + 3996));
        const alone = await drawingOf(core, view, []);
        const beside = await drawingOf(core, view, [view, save]);
        expect(alone).toMatchObject({ svg: expect.stringMatching(/^<\?xml|^<svg/) as string });
        expect(beside).toMatchObject({ svg: expect.stringContaining('1280\u00D71080') as string });
        expect(beside).not.toEqual(alone);
    });

    test('a file without a picture says so', async () => {
        expect(await drawingOf(core, await opened('workTime.sav'), [])).toEqual({
            fault: 'workTime.sav has no picture: it is not a view, page or user setting.',
        });
    });
});
