// Several views of a thing, one at a time.

import type { ComponentChild, JSX } from 'preact';
import { useId, useRef } from 'preact/hooks';

export interface Tab<Id extends string> {
    id: Id;
    label: string;
    content: () => ComponentChild;
}

export interface TabsProps<Id extends string> {
    /** What the tabs are of. */
    label: string;
    tabs: readonly Tab<Id>[];
    chosen: Id;
    onChoose: (id: Id) => void;
}

/**
 * One of several views of a thing. Arrow keys, Home and End go from tab to tab. A view begins when it is first chosen, and
 * keeps what is typed in it; while it is hidden, nothing in it changes.
 */
export function Tabs<Id extends string>({ label, tabs, chosen, onChoose }: TabsProps<Id>) {
    const base = useId();
    const list = useRef<HTMLDivElement>(null);
    const drawn = useRef(new Map<Id, ComponentChild>());

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

    // The very same content is not drawn again, so a hidden view computes nothing for a change that nobody sees.
    const shown = tabs.find((tab) => tab.id === chosen);
    drawn.current.set(chosen, shown?.content());
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
                        aria-controls={`${base}-panel-${tab.id}`}
                        tabIndex={tab.id === chosen ? 0 : -1}
                        onClick={() => onChoose(tab.id)}
                    >
                        {tab.label}
                    </button>
                ))}
            </div>
            {tabs.map((tab) => (
                <div
                    key={tab.id}
                    role="tabpanel"
                    id={`${base}-panel-${tab.id}`}
                    aria-labelledby={`${base}-${tab.id}`}
                    tabIndex={-1}
                    hidden={tab.id !== chosen}
                >
                    {drawn.current.get(tab.id)}
                </div>
            ))}
        </div>
    );
}
