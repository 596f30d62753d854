// The small parts that all screens are made of. They hold no knowledge of the device, and only what is shown as state.

import { Fragment, type ComponentChild, type ComponentChildren, type JSX } from 'preact';
import { useEffect, useErrorBoundary, useId, useRef, useState } from 'preact/hooks';
import { setTheme, storedTheme, type Theme } from '../theme.ts';

function classes(...names: (string | false | null | undefined)[]): string {
    return names.filter((name) => name).join(' ');
}

/** The ids of what describes a control, for aria-describedby. */
function describedBy(...ids: (string | false)[]): { 'aria-describedby'?: string } {
    const there = ids.filter((id) => id);
    return there.length > 0 ? { 'aria-describedby': there.join(' ') } : {};
}

// Arrangement

export interface PanelProps {
    title: string;
    /** Buttons beside the title. */
    actions?: ComponentChildren;
    class?: string;
    children: ComponentChildren;
}

/** A part of a screen with a heading; screen readers list it as a region. */
export function Panel({ title, actions, class: extra, children }: PanelProps) {
    const id = useId();
    return (
        <section class={classes('panel', extra)} aria-labelledby={id}>
            <header>
                <h2 id={id}>{title}</h2>
                {actions && <div class="buttons">{actions}</div>}
            </header>
            {children}
        </section>
    );
}

export interface FactsProps {
    facts: readonly (readonly [name: string, value: ComponentChild])[];
}

/** Names and values beside each other. */
export function Facts({ facts }: FactsProps) {
    return (
        <dl class="facts">
            {facts.map(([name, value]) => (
                <Fragment key={name}>
                    <dt>{name}</dt>
                    <dd>{value}</dd>
                </Fragment>
            ))}
        </dl>
    );
}

// Fields

export interface FieldProps {
    label: string;
    value: string;
    onInput: (value: string) => void;
    /** What is wrong with the value, or "": it is read out with the field. */
    fault?: string;
    hint?: string;
    unit?: string;
    type?: 'text' | 'number' | 'search' | 'password';
    inputMode?: 'text' | 'numeric' | 'decimal';
    placeholder?: string;
    /** Texts to choose from while typing. */
    suggestions?: readonly string[];
    disabled?: boolean;
    /** For values such as addresses and bytes. */
    code?: boolean;
    width?: 'short' | 'middle' | 'wide';
    /** On Enter, where there is no form around the field. */
    onEnter?: () => void;
}

/** A text field with its label. */
export function Field(props: FieldProps) {
    const id = useId();
    const fault = props.fault ?? '';
    const hint = props.hint ?? '';
    const { onEnter, suggestions } = props;
    return (
        <div class={classes('field', props.width)}>
            <label for={id}>
                {props.label}
                {props.unit && <span class="unit"> ({props.unit})</span>}
            </label>
            <input
                id={id}
                type={props.type ?? 'text'}
                inputMode={props.inputMode ?? 'text'}
                class={props.code ? 'code' : ''}
                value={props.value}
                placeholder={props.placeholder ?? ''}
                disabled={props.disabled ?? false}
                autocomplete="off"
                spellcheck={false}
                aria-invalid={fault !== ''}
                {...describedBy(fault !== '' && `${id}-fault`, hint !== '' && `${id}-hint`)}
                {...(suggestions ? { list: `${id}-list` } : {})}
                onInput={(event) => props.onInput(event.currentTarget.value)}
                onKeyDown={(event) => {
                    if (onEnter && event.key === 'Enter' && !event.isComposing) {
                        event.preventDefault();
                        onEnter();
                    }
                }}
            />
            {suggestions && (
                <datalist id={`${id}-list`}>
                    {suggestions.map((text) => (
                        <option key={text} value={text} />
                    ))}
                </datalist>
            )}
            {fault !== '' && (
                <span class="fault" id={`${id}-fault`}>
                    {fault}
                </span>
            )}
            {hint !== '' && (
                <span class="hint" id={`${id}-hint`}>
                    {hint}
                </span>
            )}
        </div>
    );
}

export interface ChoiceProps<Value extends string> {
    label: string;
    value: Value;
    options: readonly { value: Value; label: string }[];
    onChange: (value: Value) => void;
    hint?: string;
    fault?: string;
    disabled?: boolean;
    width?: 'short' | 'middle' | 'wide';
}

/** One of several texts. */
export function Choice<Value extends string>(props: ChoiceProps<Value>) {
    const id = useId();
    const fault = props.fault ?? '';
    const hint = props.hint ?? '';
    return (
        <div class={classes('field', props.width)}>
            <label for={id}>{props.label}</label>
            <select
                id={id}
                value={props.value}
                disabled={props.disabled ?? false}
                aria-invalid={fault !== ''}
                {...describedBy(fault !== '' && `${id}-fault`, hint !== '' && `${id}-hint`)}
                onChange={(event) => props.onChange(event.currentTarget.value as Value)}
            >
                {props.options.map(({ value, label }) => (
                    <option key={value} value={value}>
                        {label}
                    </option>
                ))}
            </select>
            {fault !== '' && (
                <span class="fault" id={`${id}-fault`}>
                    {fault}
                </span>
            )}
            {hint !== '' && (
                <span class="hint" id={`${id}-hint`}>
                    {hint}
                </span>
            )}
        </div>
    );
}

export interface CheckProps {
    label: string;
    checked: boolean;
    onChange: (checked: boolean) => void;
    disabled?: boolean;
}

/** Yes or no. */
export function Check({ label, checked, onChange, disabled }: CheckProps) {
    return (
        <label class="check">
            <input
                type="checkbox"
                checked={checked}
                disabled={disabled ?? false}
                onChange={(event) => onChange(event.currentTarget.checked)}
            />
            {label}
        </label>
    );
}

// Tables

export interface Column<Row> {
    head: string;
    cell: (row: Row) => ComponentChild;
    /** The column that names its row. */
    names?: boolean;
    right?: boolean;
    /** In the font of bytes and addresses. */
    code?: boolean;
    /** Class of one cell. */
    classOf?: (row: Row) => string;
}

export interface TableProps<Row> {
    /** What the table is; also the name of the part that scrolls. */
    caption: string;
    /** The caption is for screen readers only, as a heading above says the same. */
    captionUnseen?: boolean;
    columns: readonly Column<Row>[];
    rows: readonly Row[];
    keyOf: (row: Row) => string | number;
    classOf?: (row: Row) => string;
    /** What stands there if there are no rows. */
    empty?: string;
    /** Scrolls by itself when it is long. */
    tall?: boolean;
}

/** A table in a frame that scrolls, with the keyboard too. */
export function Table<Row>(props: TableProps<Row>) {
    const cellClass = (column: Column<Row>, row: Row) =>
        classes(column.right && 'right', column.code && 'code', column.classOf?.(row));
    return (
        <div class={classes('table-frame', props.tall && 'tall')} role="group" aria-label={props.caption} tabIndex={0}>
            <table>
                <caption class={props.captionUnseen ? 'unseen' : ''}>{props.caption}</caption>
                <thead>
                    <tr>
                        {props.columns.map((column) => (
                            <th key={column.head} scope="col" class={column.right ? 'right' : ''}>
                                {column.head}
                            </th>
                        ))}
                    </tr>
                </thead>
                <tbody>
                    {props.rows.map((row) => (
                        <tr key={props.keyOf(row)} class={props.classOf?.(row) ?? ''}>
                            {props.columns.map((column) =>
                                column.names ? (
                                    <th key={column.head} scope="row" class={cellClass(column, row)}>
                                        {column.cell(row)}
                                    </th>
                                ) : (
                                    <td key={column.head} class={cellClass(column, row)}>
                                        {column.cell(row)}
                                    </td>
                                ),
                            )}
                        </tr>
                    ))}
                    {props.rows.length === 0 && (
                        <tr>
                            <td class="empty" colSpan={props.columns.length}>
                                {props.empty ?? 'Nothing here.'}
                            </td>
                        </tr>
                    )}
                </tbody>
            </table>
        </div>
    );
}

// Messages

export type Tone = 'good' | 'warning' | 'error' | 'info';

const marks: Record<Tone, string> = { good: '\u2713', warning: '\u26A0\uFE0E', error: '\u2715', info: 'i' };
const tones: Record<Tone, string> = { good: 'Done: ', warning: 'Warning: ', error: 'Error: ', info: '' };

export interface NoticeProps {
    tone: Tone;
    /** What happened. */
    title: string;
    /** What to do. */
    children?: ComponentChildren;
    onDismiss?: () => void;
}

/** What happened and what to do. An error is read out at once, anything else when there is a pause. */
export function Notice({ tone, title, children, onDismiss }: NoticeProps) {
    return (
        <div class={`notice ${tone}`} role={tone === 'error' ? 'alert' : 'status'}>
            <span class="mark" aria-hidden="true">
                {marks[tone]}
            </span>
            <div class="body">
                <strong>
                    <span class="unseen">{tones[tone]}</span>
                    {title}
                </strong>
                {children}
            </div>
            {onDismiss && (
                <button type="button" class="plain" aria-label={`Dismiss: ${title}`} onClick={onDismiss}>
                    {'\u2715'}
                </button>
            )}
        </div>
    );
}

/** Shows what is in it, or that it has failed: the rest of the page goes on. */
export function Guarded({ children }: { children: ComponentChildren }) {
    const [error, reset] = useErrorBoundary() as [unknown, () => void];
    if (error === undefined) {
        return <>{children}</>;
    }
    return (
        <Notice tone="error" title="Something in this page has failed">
            <p>{error instanceof Error ? error.message : String(error)}</p>
            <div class="buttons">
                <button type="button" onClick={reset}>
                    Try again
                </button>
            </div>
        </Notice>
    );
}

export interface StatusProps {
    /** 'off': nothing to say about it, such as "not connected". */
    tone: 'good' | 'warning' | 'error' | 'off';
    children: ComponentChildren;
}

/** A state in a word or two. Its mark differs in shape, not only in colour. */
export function Status({ tone, children }: StatusProps) {
    return <span class={`status ${tone}`}>{children}</span>;
}

/** Something is under way and its end is not known. */
export function Busy({ children }: { children: ComponentChildren }) {
    return (
        <div class="busy" role="status">
            {children}
        </div>
    );
}

export interface ProgressProps {
    label: string;
    value: number;
    most: number;
    /** Rate and time left, in words. */
    text?: string;
}

/** How far something is. */
export function Progress({ label, value, most, text }: ProgressProps) {
    const id = useId();
    return (
        <div class="progress">
            <span id={id}>{label}</span>
            <progress value={value} max={most} aria-labelledby={id} />
            {text && <span class="text">{text}</span>}
        </div>
    );
}

// Dialogs

export interface DialogProps {
    open: boolean;
    title: string;
    /** After Escape too. The dialog is closed by `open` being false, not by itself. */
    onClose: () => void;
    children: ComponentChildren;
    /** The buttons at the end. */
    actions?: ComponentChildren;
    wide?: boolean;
}

/** A question or a form above the page. The focus stays in it and goes back afterwards. */
export function Dialog({ open, title, onClose, children, actions, wide }: DialogProps) {
    const element = useRef<HTMLDialogElement>(null);
    const id = useId();
    useEffect(() => {
        const dialog = element.current;
        if (open && dialog && !dialog.open) {
            dialog.showModal();
            // Whoever types replaces what stands there.
            if (document.activeElement instanceof HTMLInputElement && document.activeElement.type === 'text') {
                document.activeElement.select();
            }
        } else if (!open && dialog?.open) {
            dialog.close();
        }
    }, [open]);
    useEffect(() => {
        const dialog = element.current;
        // Also when it is taken away while it is open: only then does the focus go back.
        return () => dialog?.close();
    }, []);
    return (
        <dialog
            ref={element}
            class={wide ? 'wide' : ''}
            aria-labelledby={id}
            onCancel={(event) => {
                event.preventDefault();
                onClose();
            }}
            onClose={() => {
                // The browser may close it in spite of the above, when Escape is pressed twice.
                if (open) {
                    onClose();
                }
            }}
        >
            {open && (
                <div class="inside">
                    <h2 id={id}>{title}</h2>
                    {children}
                    {actions && <div class="buttons">{actions}</div>}
                </div>
            )}
        </dialog>
    );
}

// Files

/** A file from the computer. The page only ever has this copy of it. */
export interface OpenedFile {
    name: string;
    bytes: Uint8Array;
}

export interface FileDropProps {
    /** The text of the button, such as "Choose files". */
    label: string;
    hint: string;
    /** As in HTML: ".sav". */
    accept?: string;
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
                accept={props.accept ?? ''}
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
    class?: string;
    disabled?: boolean;
    children: ComponentChildren;
}

/** A button that saves a file. */
export function Download({ name, content, type, class: look, disabled, children }: DownloadProps) {
    return (
        <button
            type="button"
            class={look ?? ''}
            disabled={disabled ?? false}
            onClick={() => saveFile(name, typeof content === 'function' ? content() : content, type)}
        >
            {children}
        </button>
    );
}

export interface CopyProps {
    text: string;
    /** What the button says: "Copy". */
    label?: string;
    /** What is copied, for screen readers: "the modeline". */
    what?: string;
}

/** A button that puts a text on the clipboard, and says whether it did. */
export function Copy({ text, label, what }: CopyProps) {
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
                {...(what ? { 'aria-label': `${label ?? 'Copy'} ${what}` } : {})}
                onClick={() => {
                    const written = navigator.clipboard?.writeText(text) ?? Promise.reject(new Error('no clipboard'));
                    written.then(
                        () => setState('done'),
                        () => setState('refused'),
                    );
                }}
            >
                {label ?? 'Copy'}
            </button>
            <span role="status" class="muted small">
                {said}
            </span>
        </span>
    );
}

// Pictures

export interface DrawingProps {
    /** The picture as SVG text. It is shown as an image, so that nothing in it can run. */
    svg: string;
    /** What it shows, for those who do not see it. */
    alt: string;
    /** As large as it was drawn; else as wide as there is room. */
    actualSize?: boolean;
}

/** A drawing of the core. */
export function Drawing({ svg, alt, actualSize }: DrawingProps) {
    const [address, setAddress] = useState('');
    useEffect(() => {
        const made = URL.createObjectURL(new Blob([svg], { type: 'image/svg+xml' }));
        setAddress(made);
        return () => URL.revokeObjectURL(made);
    }, [svg]);
    return address === '' ? null : <img class={classes('drawing', actualSize && 'actual')} src={address} alt={alt} />;
}

// Tabs

export interface Tab<Id extends string> {
    id: Id;
    label: string;
    content: () => ComponentChildren;
}

export interface TabsProps<Id extends string> {
    /** What the tabs are of. */
    label: string;
    tabs: readonly Tab<Id>[];
    chosen: Id;
    onChoose: (id: Id) => void;
}

/** One of several views of a thing. Arrow keys, Home and End go from tab to tab. */
export function Tabs<Id extends string>({ label, tabs, chosen, onChoose }: TabsProps<Id>) {
    const base = useId();
    const list = useRef<HTMLDivElement>(null);

    function onKeyDown(event: JSX.TargetedKeyboardEvent<HTMLDivElement>) {
        const now = tabs.findIndex((tab) => tab.id === chosen);
        const steps: Record<string, number> = {
            ArrowRight: (now + 1) % tabs.length,
            ArrowLeft: (now + tabs.length - 1) % tabs.length,
            Home: 0,
            End: tabs.length - 1,
        };
        const next = steps[event.key];
        const tab = next === undefined ? undefined : tabs[next];
        if (next !== undefined && tab) {
            event.preventDefault();
            onChoose(tab.id);
            list.current?.querySelectorAll<HTMLElement>('[role=tab]')[next]?.focus();
        }
    }

    const shown = tabs.find((tab) => tab.id === chosen);
    return (
        <div class="tabs">
            <div role="tablist" aria-label={label} ref={list} onKeyDown={onKeyDown}>
                {tabs.map((tab) => (
                    <button
                        key={tab.id}
                        type="button"
                        role="tab"
                        id={`${base}-${tab.id}`}
                        aria-selected={tab.id === chosen}
                        aria-controls={`${base}-panel`}
                        tabIndex={tab.id === chosen ? 0 : -1}
                        onClick={() => onChoose(tab.id)}
                    >
                        {tab.label}
                    </button>
                ))}
            </div>
            <div role="tabpanel" id={`${base}-panel`} aria-labelledby={`${base}-${chosen}`} tabIndex={-1}>
                {shown?.content()}
            </div>
        </div>
    );
}

// The theme

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
