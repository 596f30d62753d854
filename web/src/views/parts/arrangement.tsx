// What a screen is laid out with.

import { Fragment, type ComponentChild, type ComponentChildren } from 'preact';
import { useId } from 'preact/hooks';

import { classes } from './classes.ts';

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
