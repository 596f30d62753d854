// Light or dark: as the system has it, or as the user wants it. It is the only thing that the page keeps.

export type Theme = 'system' | 'light' | 'dark';

const key = 'vesk-theme';

/** What the user has chosen; 'system' if nothing, or if the browser keeps nothing for pages. */
export function storedTheme(): Theme {
    try {
        const theme = localStorage.getItem(key);
        return theme === 'light' || theme === 'dark' ? theme : 'system';
    } catch {
        return 'system';
    }
}

/** Shows the theme (see style.css), and keeps it where the browser permits that. */
export function setTheme(theme: Theme): void {
    showTheme(theme);
    try {
        if (theme === 'system') {
            localStorage.removeItem(key);
        } else {
            localStorage.setItem(key, theme);
        }
    } catch {
        // The choice then holds until the page is left.
    }
}

/** For the start of the page: showTheme(storedTheme()). */
export function showTheme(theme: Theme): void {
    if (theme === 'system') {
        delete document.documentElement.dataset['theme'];
    } else {
        document.documentElement.dataset['theme'] = theme;
    }
}
