// Light or dark.

import { useState } from 'preact/hooks';

import { setTheme, storedTheme, type Theme } from '../../theme.ts';

/** The switch between light and dark. */
export function ThemeSwitch() {
    const [theme, setShown] = useState<Theme>(storedTheme);
    return (
        <label class="row theme">
            <span class="unseen">Colours</span>
            <select
                value={theme}
                onChange={(event) => {
                    const chosen = event.currentTarget.value as Theme;
                    setTheme(chosen);
                    setShown(chosen);
                }}
            >
                <option value="system">Colours: as the system</option>
                <option value="light">Colours: light</option>
                <option value="dark">Colours: dark</option>
            </select>
        </label>
    );
}
