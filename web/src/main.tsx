// Starts the page.

import './style.css';
import './screens.css';

import { render } from 'preact';

import { App } from './app.tsx';
import { loadCore } from './core/wasm.ts';
import { newSession } from './session.ts';
import { showTheme, storedTheme } from './theme.ts';

showTheme(storedTheme());

const place = document.getElementById('page');

async function start(root: HTMLElement): Promise<void> {
    const core = await loadCore();
    root.replaceChildren();
    render(<App core={core} session={newSession(core)} />, root);
}

if (place !== null) {
    start(place).catch((error: unknown) => {
        place.textContent = `This page could not be started: ${String(error)}. It needs a browser of 2022 or later.`;
    });
}
