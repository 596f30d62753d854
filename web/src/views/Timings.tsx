// The screen of video timings: the device's formats, its custom timing, and what it makes of an input.

import { useEffect, useRef, useState } from 'preact/hooks';
import type { Runner } from '../core/lines.ts';
import { isFault } from '../files.ts';
import {
    calculate,
    comparison,
    detect,
    drawTiming,
    measuredFields,
    modeFields,
    listFormats,
    megahertz,
    modelinesIn,
    modelinesOf,
    polarity,
    shortNumber,
    wordsOn,
    type Format,
    type Owner,
} from '../timings.ts';
import { Busy, Choice, Copy, Download, Drawing, Field, Guarded, Notice, Panel, Table, Tabs } from './parts.tsx';
import { useResult, useSettled } from './useResult.ts';

type Part = 'formats' | 'calculator' | 'detection';

/** Video timings: the device's own table and code, without a device. */
export function Timings({ core }: { core: Runner }) {
    const [part, setPart] = useState<Part>('formats');
    const [chosen, setChosen] = useState<Format | null>(null);
    const [choices, setChoices] = useState(0); // how often one was chosen

    function show(format: Format): void {
        setChosen(format);
        setChoices((before) => before + 1);
        setPart('formats');
    }

    return (
        <article class="screen">
            <header>
                <h1>Timings</h1>
                <p>The video formats that the device knows, and what it computes. No device is needed.</p>
            </header>
            <Tabs
                label="Timings"
                chosen={part}
                onChoose={setPart}
                tabs={[
                    {
                        id: 'formats',
                        label: 'Formats',
                        content: () => (
                            <Guarded key="formats">
                                <Formats core={core} chosen={chosen} choices={choices} onChoose={show} />
                            </Guarded>
                        ),
                    },
                    {
                        id: 'calculator',
                        label: 'Calculator',
                        content: () => (
                            <Guarded key="calculator">
                                <Calculator core={core} />
                            </Guarded>
                        ),
                    },
                    {
                        id: 'detection',
                        label: 'Detection',
                        content: () => (
                            <Guarded key="detection">
                                <DetectionPart core={core} onShow={show} />
                            </Guarded>
                        ),
                    },
                ]}
            />
        </article>
    );
}

const noFault = { fault: '', field: '' };

interface FormatsProps {
    core: Runner;
    chosen: Format | null;
    /** Is another number each time that one is chosen. */
    choices: number;
    onChoose: (format: Format) => void;
}

function Formats({ core, chosen, choices, onChoose }: FormatsProps) {
    const [size, setSize] = useState('');
    const [rate, setRate] = useState('');
    const [name, setName] = useState('');
    const classes = core.facts.formatClasses;
    const wanted = useSettled(`${size}\n${rate}\n${name}`);
    const formats = useResult(() => {
        const [ofSize = '', ofRate = '', ofClass = ''] = wanted.split('\n');
        return listFormats(core, { size: ofSize, rate: ofRate, class: ofClass });
    }, [core, wanted]);

    const { fault, field } = formats && isFault(formats) ? formats : noFault;
    const rows = formats && !isFault(formats) ? formats : [];
    return (
        <div class="stack">
            <div class="row fields" role="search" aria-label="Formats">
                <Field
                    label="Size"
                    width="middle"
                    value={size}
                    onInput={setSize}
                    fault={field === 'SIZE' ? fault : ''}
                    placeholder="1920x1080"
                    hint="1920x and x1080 are sizes too"
                />
                <Field
                    label="Rate"
                    unit="Hz"
                    width="short"
                    value={rate}
                    onInput={setRate}
                    fault={field === 'RATE' ? fault : ''}
                    placeholder="59.94"
                    inputMode="decimal"
                />
                <Choice
                    label="Class"
                    width="middle"
                    value={name}
                    options={[{ value: '', label: 'all' }, ...classes.map((each) => ({ value: each, label: each }))]}
                    onChange={setName}
                />
            </div>
            {fault !== '' && field === '' && <Notice tone="error" title={fault} />}
            {!formats && <Busy>Listing…</Busy>}
            {formats && fault === '' && (
                <Table
                    caption={`Formats (${rows.length})`}
                    tall
                    rows={rows}
                    keyOf={({ id }) => id}
                    classOf={({ id }) => (id === chosen?.id ? 'chosen' : '')}
                    empty="No format is like this."
                    columns={[
                        { head: 'Id', right: true, cell: ({ id }) => id },
                        {
                            head: 'Name',
                            names: true,
                            cell: (format) => (
                                <button
                                    type="button"
                                    class="plain"
                                    aria-label={`Show format ${format.id}, ${format.name}`}
                                    onClick={() => onChoose(format)}
                                >
                                    {format.name}
                                </button>
                            ),
                        },
                        {
                            head: 'Active',
                            right: true,
                            cell: ({ horizontal, vertical }) => `${horizontal.active} × ${vertical.active}`,
                        },
                        {
                            head: 'Total',
                            right: true,
                            cell: ({ horizontal, vertical }) => `${horizontal.total} × ${vertical.total}`,
                        },
                        { head: 'Clock, MHz', right: true, cell: (format) => megahertz(format.pixel_clock_hz) },
                        { head: 'Hz', right: true, cell: (format) => format.frequency_hz },
                        {
                            head: 'Hz by the clock',
                            right: true,
                            cell: (format) => shortNumber(Number(format.rate_hz.toFixed(3))),
                        },
                        {
                            head: 'Syncs (H, V)',
                            cell: ({ horizontal, vertical }) => `${polarity(horizontal)}, ${polarity(vertical)}`,
                        },
                        { head: 'Class', cell: (format) => format.classes.join(', ') },
                    ]}
                />
            )}
            {chosen ? (
                <OneFormat key={chosen.id} core={core} format={chosen} choices={choices} />
            ) : (
                <p class="muted">Choose a format to see all its numbers, its drawing and its modeline.</p>
            )}
        </div>
    );
}

function OneFormat({ core, format, choices }: { core: Runner; format: Format; choices: number }) {
    const place = useRef<HTMLDivElement>(null);
    const shown = useResult(
        async () => ({
            words: await wordsOn(core, format.id),
            modelines: await modelinesOf(core, format.id),
        }),
        [core, format.id],
    );
    useEffect(() => {
        // It is below the list: whoever has chosen it goes there, with the keyboard and the screen reader too.
        place.current?.focus({ preventScroll: true });
        place.current?.scrollIntoView({ block: 'start' });
    }, [choices]);
    return (
        <div ref={place} tabIndex={-1} class="landing">
            <Panel title={`Format ${format.id}: ${format.name}`}>
                <div class="stack">
                    {shown ? (
                        <>
                            <pre class="code-box" tabIndex={0} role="group" aria-label="All numbers of the format">
                                {shown.words}
                            </pre>
                            <Modelines text={shown.modelines} />
                        </>
                    ) : (
                        <Busy>Reading…</Busy>
                    )}
                    <TimingDrawing
                        core={core}
                        timing={String(format.id)}
                        owner="device"
                        alt={`The raster of format ${format.id}, ${format.name}: sync, porches and picture of a line and of a frame, to scale. The numbers stand in the text above.`}
                    />
                </div>
            </Panel>
        </div>
    );
}

/** Modelines with a button each, for xrandr and X.org. */
function Modelines({ text }: { text: string }) {
    return (
        <div class="stack">
            {modelinesIn(text).map(({ about, modeline }) => (
                <div key={about} class="stack tight">
                    <span class="muted small">Modeline of {about}</span>
                    <div class="modeline">
                        <pre class="code-box" tabIndex={0} role="group" aria-label={`Modeline of ${about}`}>
                            {modeline}
                        </pre>
                        <Copy text={modeline} what={`the modeline of ${about}`} />
                    </div>
                </div>
            ))}
        </div>
    );
}

interface TimingDrawingProps {
    core: Runner;
    timing: string;
    owner: Owner;
    alt: string;
}

function TimingDrawing({ core, timing, owner, alt }: TimingDrawingProps) {
    const result = useResult(() => drawTiming(core, timing, owner), [core, timing, owner]);
    if (!result) {
        return <Busy>Drawing…</Busy>;
    }
    if (isFault(result)) {
        return (
            <Notice tone="info" title="There is no drawing">
                <p>{result.fault}</p>
            </Notice>
        );
    }
    return (
        <div class="stack">
            <div class="drawing-frame" tabIndex={0} role="group" aria-label="Drawing">
                <Drawing svg={result.svg} alt={alt} />
            </div>
            <div class="buttons">
                <Download name={`${timing.replace('@', '-')}.svg`} content={result.svg} type="image/svg+xml">
                    Save the drawing
                </Download>
            </div>
        </div>
    );
}

const owners: readonly { value: Owner; label: string }[] = [
    { value: 'device', label: 'the device' },
    { value: 'v1', label: 'CVT-RB version 1' },
    { value: 'v2', label: 'CVT-RB version 2' },
];

interface NumbersProps<Name extends string> {
    names: readonly Name[];
    labels: Record<Name, readonly [name: string, unit: string]>;
    texts: readonly string[];
    /** What is wrong, with the field of that name or with all of them. */
    fault: { fault: string; field: string };
    onInput: (texts: readonly string[]) => void;
}

/** A row of numbers, and what is wrong with them. */
function Numbers<Name extends string>({ names, labels, texts, fault, onInput }: NumbersProps<Name>) {
    return (
        <>
            <div class="row fields">
                {names.map((name, i) => (
                    <Field
                        key={name}
                        label={labels[name][0]}
                        unit={labels[name][1]}
                        width="short"
                        inputMode="numeric"
                        value={texts[i] ?? ''}
                        fault={fault.field === name ? fault.fault : ''}
                        onInput={(text) => onInput(texts.map((each, k) => (k === i ? text : each)))}
                    />
                ))}
            </div>
            {fault.fault !== '' && fault.field === '' && <Notice tone="error" title={fault.fault} />}
        </>
    );
}

function Calculator({ core }: { core: Runner }) {
    const [texts, setTexts] = useState<readonly string[]>(['1920', '1080', '60']);
    const [owner, setOwner] = useState<Owner>('device');
    const wanted = useSettled(texts);
    const result = useResult(() => calculate(core, wanted), [core, wanted]);
    const fault = result && isFault(result) ? result : noFault;
    const isRefused = result !== undefined && !isFault(result) && result.refusal !== '';
    // A mode that the device refuses has no timing of the device's.
    const drawable = isRefused ? owners.filter(({ value }) => value !== 'device') : owners;
    const drawn = isRefused && owner === 'device' ? 'v1' : owner;
    const labels = { WIDTH: ['Width', 'pixels'], HEIGHT: ['Height', 'lines'], RATE: ['Rate', 'whole Hz'] } as const;
    return (
        <Panel title="Custom timing">
            <div class="stack">
                <p>
                    What the device makes of a size and a rate for the custom format, beside VESA’s Coordinated Video
                    Timings with reduced blanking (CVT-RB). What differs from the device’s has a *.
                </p>
                <Numbers names={modeFields} labels={labels} texts={texts} fault={fault} onInput={setTexts} />
                {result && !isFault(result) && (
                    <>
                        {isRefused ? (
                            <Notice tone="error" title={result.refusal}>
                                <p>Choose a smaller size or a lower rate.</p>
                            </Notice>
                        ) : result.result.troubles.length > 0 ? (
                            <Notice tone="warning" title="The device takes this mode, but not as it is meant">
                                {result.result.troubles.map((trouble) => (
                                    <p key={trouble}>{trouble}</p>
                                ))}
                            </Notice>
                        ) : (
                            <Notice tone="good" title="The device takes this mode." />
                        )}
                        <Table
                            caption={`${result.result.width} × ${result.result.height} at ${result.result.rate_hz} Hz`}
                            rows={comparison(result.result)}
                            keyOf={({ name }) => name}
                            columns={[
                                { head: 'Number', names: true, cell: ({ name }) => name },
                                { head: 'Device', right: true, cell: ({ device }) => device },
                                ...(['v1', 'v2'] as const).map((version) => ({
                                    head: version === 'v1' ? 'CVT-RB version 1' : 'CVT-RB version 2',
                                    right: true,
                                    cell: (row: ReturnType<typeof comparison>[number]) => (
                                        <>
                                            {row[version]}
                                            {row.differs[version] && ' *'}
                                        </>
                                    ),
                                    classOf: (row: ReturnType<typeof comparison>[number]) =>
                                        row.differs[version] ? 'differs' : '',
                                })),
                            ]}
                        />
                        <Modelines text={result.modelines} />
                        <Choice label="Draw that of" width="middle" value={drawn} options={drawable} onChange={setOwner} />
                        <TimingDrawing
                            core={core}
                            timing={`${result.result.width}x${result.result.height}@${result.result.rate_hz}`}
                            owner={drawn}
                            alt={`The raster of ${result.result.width} × ${result.result.height} at ${result.result.rate_hz} Hz, to scale. The numbers stand in the table above.`}
                        />
                    </>
                )}
            </div>
        </Panel>
    );
}

function DetectionPart({ core, onShow }: { core: Runner; onShow: (format: Format) => void }) {
    const [texts, setTexts] = useState<readonly string[]>(['1920', '1080', '2200', '1125', '60']);
    const wanted = useSettled(texts);
    const result = useResult(() => detect(core, wanted), [core, wanted]);
    const fault = result && isFault(result) ? result : noFault;
    const labels = {
        HDE: ['H active', 'pixels'],
        VDE: ['V active', 'lines'],
        HTOTAL: ['H total', 'pixels'],
        VTOTAL: ['V total', 'lines'],
        RATE: ['Rate', 'whole Hz'],
    } as const;
    const format = result && !isFault(result) ? result.result.format : null;
    return (
        <Panel title="What the device makes of an input">
            <div class="stack">
                <p>
                    Enter what was measured at an input, and see which format the device reports. Of an interlaced signal
                    enter the numbers of one field.
                </p>
                <Numbers names={measuredFields} labels={labels} texts={texts} fault={fault} onInput={setTexts} />
                {result && !isFault(result) && (
                    <>
                        {format ? (
                            <Notice tone="good" title={`Reported as format ${format.id}, ${format.name}`}>
                                <div class="buttons">
                                    <button type="button" onClick={() => onShow(format)}>
                                        Show format {format.id}
                                    </button>
                                </div>
                            </Notice>
                        ) : (
                            <Notice tone="warning" title={`No format is near: reported as ${result.result.id}`}>
                                <p>Check the numbers. Of an interlaced signal, those of one field are needed.</p>
                            </Notice>
                        )}
                        <pre class="code-box" tabIndex={0} role="group" aria-label="What was found">
                            {result.words}
                        </pre>
                    </>
                )}
            </div>
        </Panel>
    );
}
