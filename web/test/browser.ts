// A browser for the flows, and the page in it, served as it will be: static files with a strict policy.

import { readFileSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import { createServer, type Server } from 'node:http';
import { extname, join, normalize } from 'node:path';
import { fileURLToPath } from 'node:url';

import { chromium, type Browser } from 'playwright-core';

// What the page says of itself, and what only a server can say.
const page = readFileSync(fileURLToPath(new URL('../index.html', import.meta.url)), 'utf8');
const policyOfPage = /http-equiv="Content-Security-Policy"\s+content="([^"]+)"/.exec(page)?.[1] ?? '';
const policy = `${policyOfPage}; frame-ancestors 'none'`;

const types: Record<string, string> = {
    '.html': 'text/html; charset=utf-8',
    '.js': 'text/javascript',
    '.css': 'text/css',
    '.svg': 'image/svg+xml',
    '.wasm': 'application/wasm',
};

export interface Site {
    address: string;
    stop(): void;
}

/** A folder of static files on a port of this computer. */
export async function serve(folder: string): Promise<Site> {
    if (policyOfPage === '') {
        throw new Error('index.html has no Content-Security-Policy');
    }
    const server: Server = createServer((request, response) => {
        const path = normalize(new URL(request.url ?? '/', 'http://page').pathname);
        const file = join(folder, path.endsWith('/') ? `${path}index.html` : path);
        readFile(file).then(
            (content) => {
                response.setHeader('Content-Type', types[extname(file)] ?? 'application/octet-stream');
                response.setHeader('Content-Security-Policy', policy);
                response.end(content);
            },
            () => response.writeHead(404).end(),
        );
    });
    await new Promise<void>((resolve) => server.listen(0, '127.0.0.1', resolve));
    const address = server.address();
    if (address === null || typeof address === 'string') {
        throw new Error('the server has no port');
    }
    return { address: `http://127.0.0.1:${address.port}/`, stop: () => server.close() };
}

/** Debian's browser. It can reach nothing but this computer. */
export function startBrowser(): Promise<Browser> {
    return chromium.launch({
        executablePath: process.env['VESK_BROWSER'] ?? '/usr/bin/chromium',
        args: [
            '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1',
            '--disable-background-networking',
            ...(process.getuid?.() === 0 ? ['--no-sandbox'] : []),
        ],
    });
}
