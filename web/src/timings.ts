// Video timings apart from their screen: everything that is known of them comes from `veskctl timing`.

import { ExitStatus } from './core/core.ts';
import { argumentFaultIn, messageOf, objectsOf, type FieldFault, type Runner } from './core/lines.ts';
import type { Fault } from './files.ts';

// What the tool prints: docs/schema/timing-*.schema.json

export interface Axis {
    active: number;
    front_porch: number;
    sync: number;
    back_porch: number;
    total: number;
    start: number;
    sync_is_negative: boolean;
}

export interface Raster {
    horizontal: Axis;
    vertical: Axis;
    interlaced: boolean;
    frequency_hz: number;
    rate_hz: number;
    line_rate_hz: number;
    pixel_clock_hz: number;
}

export interface Format extends Raster {
    id: number;
    name: string;
    classes: string[];
    gs4911: number;
    list: string | null;
    quarter_of: number | null;
    detected_as: number;
}

export interface Standard extends Raster {
    /** "vertical.sync", "rate_hz"; null: there is nothing to compare with. */
    differences: string[] | null;
}

export interface Calculated {
    width: number;
    height: number;
    rate_hz: number;
    accepted: boolean;
    troubles: string[];
    device: Raster | null;
    standards: { v1: Standard | null; v2: Standard | null };
}

export interface Detected {
    id: number;
    one_field: boolean;
    same_timing: number[];
    format: Format | null;
}

// List and show

export interface Filter {
    /** "1920x1080", "1920x", "x1080", or "". */
    size: string;
    rate: string;
    /** One of the core's formatClasses, or "". */
    class: string;
}

const filterFields = ['SIZE', 'RATE'] as const;

/** The formats of that size, rate and class. There may be none. A fault is about SIZE, RATE or all. */
export async function listFormats(core: Runner, filter: Filter): Promise<Format[] | FieldFault> {
    const options = (['size', 'rate', 'class'] as const).flatMap((name) =>
        filter[name].trim() === '' ? [] : [`--${name}=${filter[name].trim()}`],
    );
    const finished = await core.run(['timing', 'list', '--json', ...options]);
    return finished.status === ExitStatus.done || finished.status === ExitStatus.refused
        ? objectsOf<Format>(finished)
        : argumentFaultIn(finished, filterFields);
}

/** "# about it" and "Modeline ..." by turns, as X.org reads them. */
export async function modelinesOf(core: Runner, id: number): Promise<string> {
    return (await core.run(['timing', 'show', '--modeline', String(id)])).output.trimEnd();
}

/** The tool's own words about a format. */
export async function wordsOn(core: Runner, id: number): Promise<string> {
    return (await core.run(['timing', 'show', String(id)])).output.trimEnd();
}

// Calculator and detection

export interface Calculation {
    result: Calculated;
    /** Those of the device, if it takes the mode, and of the standards. */
    modelines: string;
    /** Why the device refuses the mode, or "". */
    refusal: string;
}

export const modeFields = ['WIDTH', 'HEIGHT', 'RATE'] as const;
export const measuredFields = ['HDE', 'VDE', 'HTOTAL', 'VTOTAL', 'RATE'] as const;

/** An empty text is no argument at all to the tool, so it would complain of the next one's name. */
function emptyIn(texts: readonly string[], names: readonly string[]): FieldFault | undefined {
    const index = texts.findIndex((text) => text.trim() === '');
    const field = names[index];
    return field === undefined ? undefined : { fault: 'A number is needed here.', field };
}

/** The custom format's timing for WIDTH, HEIGHT and RATE, beside the public standards'. */
export async function calculate(
    core: Runner,
    mode: readonly string[],
): Promise<Calculation | FieldFault> {
    const missing = emptyIn(mode, modeFields);
    if (missing) {
        return missing;
    }
    const texts = mode.map((text) => text.trim());
    const finished = await core.run(['timing', 'calc', '--json', '--', ...texts]);
    const result = objectsOf<Calculated>(finished)[0];
    if (!result) {
        return argumentFaultIn(finished, modeFields);
    }
    const lines = await core.run(['timing', 'calc', '--modeline', '--', ...texts]);
    return { result, modelines: lines.output.trimEnd(), refusal: result.accepted ? '' : messageOf(lines) };
}

export interface ComparedRow {
    name: string;
    device: string;
    v1: string;
    v2: string;
    differs: { v1: boolean; v2: boolean };
}

const axisRows: readonly [keyof Axis, string][] = [
    ['active', 'active'],
    ['front_porch', 'front porch'],
    ['sync', 'sync'],
    ['back_porch', 'back porch'],
    ['total', 'total'],
    ['start', 'start'],
    ['sync_is_negative', 'sync is'],
];

/** A number with at most six digits after the point, and no zeros that say nothing. */
export function shortNumber(value: number): string {
    return String(Number(value.toFixed(6)));
}

export function megahertz(hertz: number): string {
    return shortNumber(hertz / 1e6);
}

export function kilohertz(hertz: number): string {
    return shortNumber(Number((hertz / 1e3).toFixed(3)));
}

export function polarity(axis: Axis): string {
    return axis.sync_is_negative ? 'negative' : 'positive';
}

/** The device's numbers and those of the standards, a row for each. */
export function comparison({ device, standards }: Calculated): ComparedRow[] {
    const row = (name: string, key: string, text: (raster: Raster) => string): ComparedRow => ({
        name,
        device: device ? text(device) : '\u2013',
        v1: standards.v1 ? text(standards.v1) : '\u2013',
        v2: standards.v2 ? text(standards.v2) : '\u2013',
        differs: {
            v1: standards.v1?.differences?.includes(key) ?? false,
            v2: standards.v2?.differences?.includes(key) ?? false,
        },
    });
    const rowsOfAxis = (letter: string, axis: 'horizontal' | 'vertical') =>
        axisRows.map(([key, name]) =>
            row(`${letter} ${name}`, `${axis}.${key}`, (raster) =>
                key === 'sync_is_negative' ? polarity(raster[axis]) : String(raster[axis][key]),
            ),
        );
    return [
        ...rowsOfAxis('H', 'horizontal'),
        ...rowsOfAxis('V', 'vertical'),
        row('pixel clock, MHz', 'pixel_clock_hz', (raster) => megahertz(raster.pixel_clock_hz)),
        row('line rate, kHz', 'line_rate_hz', (raster) => kilohertz(raster.line_rate_hz)),
        row('rate, Hz', 'rate_hz', (raster) => shortNumber(Number(raster.rate_hz.toFixed(3)))),
    ];
}

export interface Detection {
    result: Detected;
    /** The tool's own words about what it found, or about nothing being near. */
    words: string;
}

/** The format that the device reports for these numbers of an input. */
export async function detect(
    core: Runner,
    measured: readonly string[],
): Promise<Detection | FieldFault> {
    const missing = emptyIn(measured, measuredFields);
    if (missing) {
        return missing;
    }
    const texts = measured.map((text) => text.trim());
    const finished = await core.run(['timing', 'detect', '--json', '--', ...texts]);
    const result = objectsOf<Detected>(finished)[0];
    if (!result) {
        return argumentFaultIn(finished, measuredFields);
    }
    const words = await core.run(['timing', 'detect', '--', ...texts]);
    return { result, words: words.output.trimEnd() || messageOf(words) };
}

/** The lines of a text that are modelines, without what is said about them. */
export function modelinesIn(text: string): { about: string; modeline: string }[] {
    const lines = text.split('\n');
    return lines.flatMap((line, i) =>
        line.startsWith('Modeline ') ? [{ about: (lines[i - 1] ?? '').replace(/^# /, ''), modeline: line }] : [],
    );
}

// Drawing

/** Whose timing is drawn: the device's, or that of a version of the standard. */
export type Owner = 'device' | 'v1' | 'v2';

/** The picture of "12", "1920x1080x50" or "1920x1080@60". */
export async function drawTiming(core: Runner, timing: string, owner: Owner): Promise<{ svg: string } | Fault> {
    const finished = await core.run(['timing', 'draw', '--standard', owner, '-o', '-', '--', timing.trim()]);
    return finished.status === ExitStatus.done ? { svg: finished.output } : { fault: messageOf(finished) };
}
