// What has happened, what is under way, and how it stands.

import type { ComponentChildren } from 'preact';
import { useErrorBoundary, useId } from 'preact/hooks';

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
