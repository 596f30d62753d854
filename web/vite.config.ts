import { defineConfig } from 'vite';

// Relative addresses, so that the folder works wherever it is put.
export default defineConfig({
    base: './',
    build: { outDir: '../build/web/page', emptyOutDir: true, target: 'es2022', assetsInlineLimit: 0 },
    esbuild: { jsx: 'automatic', jsxImportSource: 'preact' },
    test: { environment: 'node' },
} as Parameters<typeof defineConfig>[0]);
