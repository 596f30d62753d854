// The screen's logic over the page's core (see core/runner.ts). Expected values are those of docs/video-formats.md.

import { describe, expect, test } from 'vitest';
import { isNative, runner } from './core/runner.ts';
import { isFault } from './files.ts';
import {
    calculate,
    comparison,
    detect,
    drawTiming,
    kilohertz,
    listFormats,
    megahertz,
    modelinesIn,
    modelinesOf,
    wordsOn,
    type Calculation,
    type Detection,
    type Format,
} from './timings.ts';

const core = await runner();

function good<T extends object>(result: T | { fault: string }): T {
    if (isFault(result)) {
        throw new Error(result.fault);
    }
    return result as T;
}

async function idsOf(size: string, rate: string, name: string): Promise<number[]> {
    return good<Format[]>(await listFormats(core, { size, rate, class: name })).map(({ id }) => id);
}

describe('list', () => {
    test('has all formats without a filter', async () => {
        expect(await idsOf('', '', '')).toEqual([...Array(124).keys()]);
    });

    test('filters by size, rate and class', async () => {
        expect(await idsOf('1920x1080', ' 60 ', 'none')).toEqual([10, 11, 52, 66]);
        expect(await idsOf('', '', 'interlaced')).toEqual([36, 37, 38, 39, 63, 71, 72]);
    });

    test('may be empty', async () => {
        expect(await idsOf('1x1', '', '')).toEqual([]);
    });

    test.skipIf(isNative)('says what is wrong with a filter', async () => {
        expect(await listFormats(core, { size: 'wide', rate: '', class: '' })).toEqual({
            fault: '"wide" is not WIDTHxHEIGHT, WIDTHx or xHEIGHT.',
            field: 'SIZE',
        });
        expect(await listFormats(core, { size: '1920x', rate: 'fast', class: '' })).toEqual({
            fault: '"fast" is not a number of Hz.',
            field: 'RATE',
        });
        expect(await listFormats(core, { size: '19 20x', rate: '', class: '' })).toEqual({
            fault: 'The width: "19 20" is not a whole number from 1 to 2147483647.',
            field: 'SIZE',
        });
    });

    test('the classes are those of the document', async () => {
        expect(core.facts.formatClasses).toEqual(['interlaced', 'SD', '4K2K', '8K1K', 'none']);
    });
});

describe('show', () => {
    test('has the words and the modeline', async () => {
        expect(await wordsOn(core, 12)).toContain('clock 148.5 MHz; 50 Hz');
        expect(modelinesIn(await modelinesOf(core, 12))).toEqual([
            {
                about: 'format 12: 50 Hz, 56.25 kHz',
                modeline:
                    'Modeline "1920x1080x50"  148.50  1920 2448 2492 2640  1080 1084 1089 1125 +hsync +vsync',
            },
        ]);
    });

    test('draws', async () => {
        expect(good(await drawTiming(core, '12', 'device'))).toMatchObject({
            svg: expect.stringContaining('<title>Format 12: 1920x1080x50</title>') as string,
        });
    });
});

describe('calculator', () => {
    test('has the device beside the standards, and marks what differs', async () => {
        const { result, modelines, refusal } = good<Calculation>(await calculate(core, ['1920', '1080', '60']));
        const rows = new Map(comparison(result).map((row) => [row.name, row]));
        expect(rows.get('H total')).toEqual({
            name: 'H total',
            device: '2080',
            v1: '2080',
            v2: '2000',
            differs: { v1: false, v2: true },
        });
        expect(rows.get('V sync is')).toMatchObject({ device: 'positive', v1: 'negative', v2: 'negative' });
        expect(rows.get('pixel clock, MHz')).toMatchObject({ device: '138.6528', v1: '138.5', v2: '133.32' });
        expect(rows.get('line rate, kHz')).toMatchObject({ device: '66.66', v1: '66.587', v2: '66.66' });
        expect(rows.get('rate, Hz')).toMatchObject({ device: '60', v1: '59.934', v2: '60' });
        expect(rows.size).toBe(17);
        expect(modelinesIn(modelines)).toHaveLength(3);
        expect(refusal).toBe('');
    });

    test.skipIf(isNative)('says why the device refuses a mode', async () => {
        const { result, refusal } = good<Calculation>(await calculate(core, ['4096', '2160', '70']));
        expect(result.accepted).toBe(false);
        expect(refusal).toBe('The device refuses 4096x2160@70: its clock is 664 MHz, and the limit is 600.');
        expect(comparison(result)[0]).toMatchObject({ device: '\u2013', v1: '4096' });
        expect(await drawTiming(core, '4096x2160@70', 'device')).toEqual({ fault: refusal });
        expect(await drawTiming(core, '4096x2160@70', 'v1')).toHaveProperty('svg');
    });

    test('says which number is wrong', async () => {
        expect(await calculate(core, ['1920', 'x', '60'])).toEqual({
            fault: '"x" is not a whole number from 1 to 2147483647.',
            field: 'HEIGHT',
        });
        expect(await calculate(core, ['1920', '1080', '-5'])).toMatchObject({ field: 'RATE' });
        expect(await calculate(core, ['1920', '1080', ' '])).toMatchObject({ field: 'RATE' });
    });
});

describe('detection', () => {
    test('finds an interlaced format by one field', async () => {
        const { result, words } = good<Detection>(await detect(core, ['1920', '540', '2640', '562', '50']));
        expect(result).toMatchObject({ id: 39, one_field: true, same_timing: [12, 113] });
        expect(words).toContain('found by the numbers of one field');
    });

    test('says that nothing is near', async () => {
        const { result, words } = good<Detection>(await detect(core, ['1', '2', '3', '4', '5']));
        expect(result).toMatchObject({ id: 126, format: null });
        expect(words).not.toBe('');
    });

    test('says which number is wrong', async () => {
        expect(await detect(core, ['1920', '1080', '2200', 'many', '60'])).toMatchObject({ field: 'VTOTAL' });
    });
});

test('numbers have no zeros that say nothing', () => {
    expect(megahertz(148500000)).toBe('148.5');
    expect(kilohertz(66586.538462)).toBe('66.587');
});
