// The page's core and the tool at a desk do the same: on every frame and file that the project has, and on bad input.
// VESKCTL names the tool (build/release/tools/veskctl if not set).

import { execFile } from 'node:child_process';
import { readdirSync, readFileSync } from 'node:fs';
import { mkdir, mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { describe, expect, test, vi } from 'vitest';

import type { Finished } from './core.ts';
import { coreInNode } from './node.ts';

const root = fileURLToPath(new URL('../../..', import.meta.url));
const veskctl = resolve(process.env['VESKCTL'] ?? join(root, 'build/release/tools/veskctl'));
const core = await coreInNode();
vi.setConfig({ testTimeout: 60_000 }); // most of it is starting programs

type Files = Map<string, Uint8Array>;

/** What a run leaves. Files as hexadecimal digits, so that a difference can be read. */
interface Left {
    status: number;
    output: string;
    messages: string;
    files: Record<string, string>;
}

function left(finished: Finished): Left {
    const files = [...finished.files].sort(([a], [b]) => (a < b ? -1 : 1));
    return {
        status: finished.status,
        output: finished.output,
        messages: finished.messages,
        files: Object.fromEntries(files.map(([name, content]) => [name, Buffer.from(content).toString('hex')])),
    };
}

async function filesIn(folder: string): Promise<Files> {
    const names = await readdir(folder, { recursive: true, withFileTypes: true });
    const files: Files = new Map();
    for (const each of names.filter((entry) => entry.isFile())) {
        const path = join(each.parentPath ?? each.path, each.name);
        files.set(path.slice(folder.length + 1), await readFile(path));
    }
    return files;
}

async function atDesk(args: readonly string[], files: Files): Promise<Left> {
    const folder = await mkdtemp(join(tmpdir(), 'same-'));
    try {
        for (const [name, content] of files) {
            await mkdir(dirname(join(folder, name)), { recursive: true });
            await writeFile(join(folder, name), content);
        }
        const done = await new Promise<Omit<Finished, 'files'>>((take) => {
            const env = { PATH: process.env['PATH'] };
            const child = execFile(veskctl, args, { cwd: folder, env, maxBuffer: 1 << 28 }, (error, output, messages) => {
                take({ status: error === null ? 0 : Number(error.code), output, messages });
            });
            child.stdin?.end();
        });
        return left({ ...done, files: await filesIn(folder) });
    } finally {
        await rm(folder, { recursive: true });
    }
}

/** Runs both, and gives what they leave. */
async function both(args: readonly string[], files: Files = new Map()): Promise<Left> {
    const [desk, page] = await Promise.all([atDesk(args, files), core.run(args, { files, isTyped: true })]);
    expect(left(page), args.join(' ').slice(0, 200)).toEqual(desk);
    return desk;
}

function sourcesIn(folder: string, pattern: RegExp): string[] {
    return readdirSync(join(root, folder), { recursive: true, withFileTypes: true })
        .filter((entry) => entry.isFile() && pattern.test(entry.name))
        .map((entry) => readFileSync(join(entry.parentPath ?? entry.path, entry.name), 'latin1'));
}

/** Every frame that stands in a document, a transcript, a capture or a test. */
function goldenFrames(): string[] {
    const texts = [
        ...sourcesIn('docs', /\.(md|txt|pcapng|pcap)$/),
        ...sourcesIn('protocol', /yaml$/),
        ...sourcesIn('tests', /\.(txt|cpp|h|bats|py|ts)$/),
    ];
    return [...new Set(texts.flatMap((text) => text.match(/<[TF][0-9a-fA-F]{16}>/g) ?? []))].sort();
}

function bytes(digits: string): Uint8Array {
    return Buffer.from(digits.replaceAll(' ', ''), 'hex');
}

/** One whole file of each kind, as tests/tools/sav.bats makes them. */
function goldenFiles(): Files {
    const data = join(root, 'tests/data/first-start');
    const save = readFileSync(join(data, 'save0.sav'));
    const view = save.subarray(3812, 3812 + 3996);
    return new Map<string, Uint8Array>([
        ['save0.sav', save],
        ['workTime.sav', readFileSync(join(data, 'workTime.sav'))],
        [
            'UserPref.sav',
            bytes(
                '38762406 0000 d007 01 01 c0a80064 c0a80001 ffffff00 c2190281 c2190282 000000000000 00 00 00 00 00 00' +
                    '0001020304050607 01 32 00 00 00 00',
            ),
        ],
        ['DevInfo.sav', bytes('5c36cd4b 34120000 00000000 00320000 00000000')],
        ['view3.sav', view],
        ['page0_0.sav', Buffer.concat(Array<Uint8Array>(16).fill(view))],
        ['timeCon0.sav', Buffer.concat([bytes('ad041120'), Buffer.alloc(148)])],
    ]);
}

const kinds = ['UserPref', 'DevInfo', 'save', 'view', 'page', 'timeCon', 'workTime'];

/** Whole files, cut ones, long ones, and some with other bytes in between. */
function variants(name: string, whole: Uint8Array): Files {
    const spoilt = Uint8Array.from(whole, (byte, i) => (i % 7 === 5 ? byte ^ (i * 37) : byte));
    return new Map([
        [name, whole],
        [`short/${name}`, whole.subarray(0, Math.floor(whole.length / 3) + 1)],
        [`long/${name}`, Buffer.concat([whole, Buffer.from('more\n')])],
        [`spoilt/${name}`, spoilt],
        [`ff/${name}`, new Uint8Array(whole.length).fill(0xff)],
        [`empty/${name}`, new Uint8Array()],
    ]);
}

describe('frames', () => {
    const frames = goldenFrames();

    test('there are many, of all kinds', () => {
        expect(frames.length).toBeGreaterThan(100);
    });

    test('decode says the same of every one', async () => {
        expect((await both(['decode', ...frames])).status).toBe(0);
        expect((await both(['decode', '--json', ...frames])).status).toBe(0);
        await both(['--color', 'always', 'decode', ...frames]);
    });

    test('a Traffic says what decode says', async () => {
        const { output } = await both(['decode', ...frames]);
        const traffic = core.newTraffic();
        const pieces = [...traffic.feed(new TextEncoder().encode(frames.join(''))), ...traffic.flush()];
        expect(pieces.map(({ text, meaning }) => `${text}  ${meaning}`).join('\n')).toBe(output.trimEnd());
    });

    test('the command table is that of the manual', async () => {
        const { output } = await both(['send', '--help']);
        const lines = core.commands().map(({ code, words, usage, note }) => {
            const line = `  ${code.length === 2 ? `${code} ..` : code}  ${(words + usage).padEnd(46)}  ${note}`;
            return line.trimEnd();
        });
        expect(output).toContain(lines.join('\n'));
    });
});

describe.each([...goldenFiles()])('%s', (name, whole) => {
    const files = variants(name, whole);
    const names = [...files.keys()];

    test('dump, and make gives every byte back', async () => {
        await both(['sav', 'dump', ...names], files);
        const dumped = await both(['sav', 'dump', '--json', ...names], files);
        const lines = dumped.output.trimEnd().split('\n');
        for (const [i, line] of lines.entries()) {
            const made = await both(['sav', 'make', 'in.json', '-o', 'out.sav'], new Map([['in.json', Buffer.from(line)]]));
            expect(made.status, made.messages).toBe(0);
            expect(Object.values(dumped.files)).toContain(made.files['out.sav']);
            expect(i).toBeLessThan(names.length);
        }
    });

    test('check', async () => {
        expect((await both(['sav', 'check', name], files)).messages).toBe('');
        await both(['sav', 'check', ...names], files);
        await both(['sav', 'check', '--json', ...names], files);
        await both(['sav', 'check', '.', 'spoilt', 'short'], files);
    });

    test('diff', async () => {
        for (const [i, other] of names.entries()) {
            await both(['sav', 'diff', ...(i % 2 === 1 ? ['--json'] : []), name, other], files);
        }
        await both(['sav', 'diff', '--json', `long/${name}`, `spoilt/${name}`], files);
    });

    test('draw', async () => {
        for (const each of /^(save|view|page)/.test(name) ? names : [name]) {
            await both(['sav', 'draw', each, '-o', 'picture.svg'], files);
        }
        await both(['sav', 'draw', name, '-o', '-'], files);
    });
});

describe('files', () => {
    const files = goldenFiles();

    test.each(kinds)('the schema of %s', async (kind) => {
        expect((await both(['sav', 'schema', kind])).status).toBe(0);
    });

    test('a folder with all of them', async () => {
        await both(['sav', 'check', '.'], files);
        await both(['sav', 'check', '--json', '.'], files);
        await both(['sav', 'draw', 'page0_0.sav', '-o', 'page.svg'], files);
    });

    test.each([
        ['UserPref.sav', 'dhcpEnable=0', 'ipAddress=192.168.0.55'],
        ['save0.sav', 'outputTiming[3].hStart=128', 'program.layerAlpha[0]=255'],
        ['view3.sav', 'layers[0].windowX=960', 'layerAlpha[0]=0xff'],
        ['view3.sav', 'layers[0].windowX=wide'],
        ['view3.sav', 'layerz[0].windowX=1'],
        ['view3.sav', 'layers[99].windowX=1'],
        ['DevInfo.sav', 'mac=1'],
        ['missing.sav', 'a=1'],
        ['save0.sav', 'outputTiming[0].frequency=59.94'],
    ])('set %s %s', async (...args) => {
        await both(['sav', 'set', ...args], files);
        await both(['sav', 'set', '--json', ...args], files);
    });

    // Numbers with a fraction, of which the C++ libraries of both have a reading of their own.
    test.each([
        '0', '-0', '1.5', '-1.5e-3', '1E5', '.5', '5.', '1e400', '-1e400', '1e-400', '1e-310', '0e-999', '4.9e-324',
        '2.4e-324', '1.7976931348623157e308', '9007199254740993', '0x3ff8000000000000', '0x3ff8', '0X1', '', ' 1', '1 ',
        '+1', 'inf', 'nan', '-infinity', '1e', '1e+', 'e5', '.', '-', '--1', '0x1p3', '1,5', '1_0', '１', '0.1', '0.30000000000000004',
        '123456789012345678901234567890', '59.94',
    ])('a number %j', async (text) => {
        const real = 'customResolution.frequency';
        await both(['sav', 'set', 'save0.sav', `${real}=${text}`], files);
        await both(['timing', 'list', '--rate', text]);
    });

    test.each([
        '', '{', '[]', '{"kind":"view"}', '{"kind":"nothing","fields":{}}', '{"kind":"DevInfo","fields":{"identification":"x"}}',
        '\u00fc', '{"kind":"DevInfo","fields":{"identification":1e99}}', '{"kind":"\ud800"}',
    ])('make of %j', async (text) => {
        await both(['sav', 'make', 'in.json', '-o', 'out.sav'], new Map([['in.json', Buffer.from(text)]]));
    });
});

describe('timings', () => {
    test('the list, whole and in part', async () => {
        for (const more of [[], ['--json'], ['--modeline'], ['-q'], ['--color', 'always']]) {
            expect((await both(['timing', 'list', ...more])).status).toBe(0);
            await both(['timing', 'list', '--size', '1920x1080', '--rate', '60', ...more]);
            await both(['timing', 'list', '--size', 'x1080', '--class', 'interlaced', ...more]);
            await both(['timing', 'list', '--rate', '59.94', '--class', 'none', ...more]);
        }
    });

    test('each format', async () => {
        const { output } = await both(['timing', 'list', '--json']);
        const ids = output.trimEnd().split('\n').map((line) => String((JSON.parse(line) as { id: number }).id));
        expect(ids.length).toBeGreaterThan(100);
        await both(['timing', 'show', ...ids]);
        await both(['timing', 'show', '--json', ...ids]);
        await both(['timing', 'show', '--modeline', ...ids]);
        for (const id of ids.filter((_, i) => i % 10 === 0)) {
            await both(['timing', 'draw', id, '-o', 'format.svg']);
        }
    });

    test('the calculator', async () => {
        const modes: string[] = [];
        for (const [width, height] of [[640, 480], [800, 600], [1024, 768], [1840, 4870], [1920, 1080], [4096, 2160]]) {
            for (const rate of [23, 24, 25, 30, 48, 50, 59, 60, 75, 100, 120, 2500]) {
                modes.push(`${width}`, `${height}`, `${rate}`);
            }
        }
        await both(['timing', 'calc', ...modes]);
        await both(['timing', 'calc', '--json', ...modes]);
        await both(['timing', 'calc', '--modeline', ...modes]);
        await both(['timing', 'draw', '1920x1080@60', '-o', '-']);
        await both(['timing', 'draw', '2048x1080@50', '--standard', 'v1', '-o', '-']);
        await both(['timing', 'draw', '2048x1080@50', '--standard', 'v2', '-o', '-']);
    });

    test('the detection', async () => {
        for (const more of [[], ['--json'], ['--modeline']]) {
            await both(['timing', 'detect', '1920', '1080', '2200', '1125', '60', ...more]);
            await both(['timing', 'detect', '1920', '540', '2640', '563', '50', ...more]);
            await both(['timing', 'detect', '1921', '1079', '2205', '1120', '59', ...more]);
            await both(['timing', 'detect', '1', '1', '1', '1', '1', ...more]);
        }
    });
});

// Each with the same message and status.
describe('bad input', () => {
    test.each(
        [
            '',
            '--help',
            '--version',
            'sav',
            'sav --help',
            'timing --help',
            'network write --help',
            'update --help',
            'snd',
            'send',
            'decode --jsn',
            'decode x',
            'decode <T000068010000006z>',
            'decode <T0000680100000069',
            'decode --color blue x',
            '--timeout 0 decode x',
            '--timeout x decode x',
            'send read device type',
            'send nonsense',
            'send read divice type',
            'send f0',
            'send 123',
            'send write IP address 1.2.3.400',
            'send write IP address',
            'send <T1>',
            '--serial port --udp 1.2.3.4 info',
            'network write 1.2.3.4 255.255.255.0 1.2.4.1 02:76:65:73:6b:01',
            'network write 1.2.3.4 255.0.255.0 1.2.3.1 02:76:65:73:6b:01',
            'network write 1.2.3.4 255.255.255.0 1.2.3.1 03:76:65:73:6b:01',
            'network write 1.2.3.x 255.255.255.0 1.2.3.1 03:76:65:73:6b:01',
            'network write 1.2.3.4 255.255.255.0 1.2.3.1 037665736b01',
            '--serial port text write 09 00 \\q',
            '--serial port update missing',
            '--serial port update empty',
            '--serial port update text',
            '--serial port update --machine riscv text',
            'update text',
            'play missing',
            'sav dump missing.sav',
            'sav dump text',
            'sav dump --kind nothing text',
            'sav dump --kind view text',
            'sav dump folder',
            'sav check missing.sav',
            'sav check empty',
            'sav diff text missing',
            'sav draw text -o x.svg',
            'sav draw text',
            'sav make missing -o out',
            'sav make text -o folder',
            'sav schema viw',
            'timing list --rate fast',
            'timing list --rate -1',
            'timing list --size 19x',
            'timing list --size x',
            'timing list --size 1920',
            'timing list --class HD',
            'timing list --rate 61',
            'timing show 124',
            'timing show 1920x1080x61',
            'timing show',
            'timing calc 1920 1080',
            'timing calc 1920 1080 60.5',
            'timing calc 0 0 0',
            'timing detect 1 2 3 4',
            'timing draw 10',
            'timing draw 10 -o missing/x.svg',
            'timing draw nothing -o x.svg',
            'timing draw 10 -o folder',
        ].map((line) => [line]),
    )('%s', async (line) => {
        const files: Files = new Map([
            ['empty', new Uint8Array()],
            ['text', Buffer.from('nothing but text\n')],
            ['folder/file', Buffer.from('x')],
        ]);
        await both(line.split(' ').filter((word) => word !== ''), files);
    });
});
