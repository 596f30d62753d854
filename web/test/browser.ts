// A browser for the flows, and the page in it, served as it will be: static files with a strict policy.

import { readFile } from 'node:fs/promises';
import { createServer, type Server } from 'node:http';
import { extname, join, normalize } from 'node:path';

import { chromium, type Browser } from 'playwright-core';

/** What index.html has; here the server says it too, with what only a server can say. */
export const policy =
    "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; img-src 'self' blob: data:; " +
    "connect-src 'self'; worker-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

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
