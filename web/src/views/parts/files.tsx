// Files and texts that go in and out of the page.

import type { ComponentChildren } from 'preact';
import { useEffect, useId, useRef, useState } from 'preact/hooks';

import { classes } from './classes.ts';

/** A file from the computer. The page only ever has this copy of it. */
export interface OpenedFile {
    name: string;
    bytes: Uint8Array;
}

export interface FileDropProps {
    /** The text of the button, such as "Choose files". */
    label: string;
    hint: string;
    multiple?: boolean;
    disabled?: boolean;
    /** In one line, where it is no longer what the screen is about. */
    slim?: boolean;
    onFiles: (files: OpenedFile[]) => void;
    /** A file that could not be read, such as a directory; else nothing is said. */
    onFault?: (text: string) => void;
}

/** A place to drop files on, with a button for those who do not drag. */
export function FileDrop(props: FileDropProps) {
    const input = useRef<HTMLInputElement>(null);
    const hint = useId();
    const [over, setOver] = useState(false);
    const disabled = props.disabled ?? false;

    useEffect(() => {
        // A file that misses the place is not opened instead of the page.
        const keep = (event: DragEvent) => event.preventDefault();
        window.addEventListener('dragover', keep);
        window.addEventListener('drop', keep);
        return () => {
            window.removeEventListener('dragover', keep);
            window.removeEventListener('drop', keep);
        };
    }, []);

    async function take(list: FileList | null | undefined) {
        const chosen = [...(list ?? [])].slice(0, props.multiple ? undefined : 1);
        const files: OpenedFile[] = [];
        for (const file of chosen) {
            try {
                files.push({ name: file.name, bytes: new Uint8Array(await file.arrayBuffer()) });
            } catch {
                props.onFault?.(`${file.name} could not be read. A folder cannot be opened: choose the files in it.`);
            }
        }
        if (files.length > 0) {
            props.onFiles(files);
        }
    }

    return (
        <div
            class={classes('drop', props.slim && 'slim', over && 'over')}
            onDragOver={(event) => {
                event.preventDefault();
                setOver(!disabled);
            }}
            onDragLeave={() => setOver(false)}
            onDrop={(event) => {
                event.preventDefault();
                setOver(false);
                if (!disabled) {
                    void take(event.dataTransfer?.files);
                }
            }}
        >
            <button
                type="button"
                class="chief"
                disabled={disabled}
                aria-describedby={hint}
                onClick={() => input.current?.click()}
            >
                {props.label}
            </button>
            <p class="muted" id={hint}>
                {props.hint}
            </p>
            <input
                ref={input}
                type="file"
                hidden
                tabIndex={-1}
                aria-label={props.label}
                multiple={props.multiple ?? false}
                onChange={(event) => {
                    const element = event.currentTarget;
                    // The same file can be chosen again: it may have changed.
                    void take(element.files).then(() => (element.value = ''));
                }}
            />
        </div>
    );
}

/** Hands a file to the user. */
export function saveFile(name: string, content: Uint8Array | string, type = 'application/octet-stream'): void {
    const address = URL.createObjectURL(new Blob([content as BlobPart], { type }));
    const link = document.createElement('a');
    link.href = address;
    link.download = name;
    document.body.append(link);
    link.click();
    link.remove();
    // Not at once: the browser has only begun to read it.
    setTimeout(() => URL.revokeObjectURL(address), 60_000);
}

export interface DownloadProps {
    name: string;
    /** Or what makes it, when the button is pressed. */
    content: Uint8Array | string | (() => Uint8Array | string);
    type?: string;
    children: ComponentChildren;
}

/** A button that saves a file. */
export function Download({ name, content, type, children }: DownloadProps) {
    return (
        <button
            type="button"
            onClick={() => saveFile(name, typeof content === 'function' ? content() : content, type)}
        >
            {children}
        </button>
    );
}

export interface CopyProps {
    text: string;
    /** What is copied, for screen readers: "the modeline". */
    what: string;
}

/** A button that puts a text on the clipboard, and says whether it did. */
export function Copy({ text, what }: CopyProps) {
    const [state, setState] = useState<'idle' | 'done' | 'refused'>('idle');
    useEffect(() => {
        if (state !== 'idle') {
            const timer = setTimeout(() => setState('idle'), 2500);
            return () => clearTimeout(timer);
        }
        return undefined;
    }, [state]);
    useEffect(() => setState('idle'), [text]);
    const said = { idle: '', done: 'Copied', refused: 'The browser does not permit it: mark the text and copy it' }[state];
    return (
        <span class="buttons">
            <button
                type="button"
                aria-label={`Copy ${what}`}
                onClick={() => {
                    const written = navigator.clipboard?.writeText(text) ?? Promise.reject(new Error('no clipboard'));
                    written.then(
                        () => setState('done'),
                        () => setState('refused'),
                    );
                }}
            >
                Copy
            </button>
            <span role="status" class="muted small">
                {said}
            </span>
        </span>
    );
}
