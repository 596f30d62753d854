// A question above the page.

import type { ComponentChildren } from 'preact';
import { useEffect, useId, useRef } from 'preact/hooks';

export interface DialogProps {
    open: boolean;
    title: string;
    /** After Escape too. The dialog is closed by `open` being false, not by itself. */
    onClose: () => void;
    /** Once it is closed: for a focus that is to go to something new. */
    onClosed?: () => void;
    children: ComponentChildren;
    /** The buttons at the end. */
    actions?: ComponentChildren;
    wide?: boolean;
}

/** If what had the focus is gone or can be used no more, the focus goes to the screen: else it would be nowhere. */
export function keepFocus(): void {
    const now = document.activeElement;
    if (now === null || now === document.body || now.matches(':disabled')) {
        document.querySelector('main')?.focus({ preventScroll: true });
    }
}

/** A question or a form above the page. The focus stays in it and goes back afterwards, or else to the screen. */
export function Dialog({ open, title, onClose, onClosed, children, actions, wide }: DialogProps) {
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
            onClosed?.();
            keepFocus();
        }
    }, [open]);
    useEffect(() => {
        const dialog = element.current;
        // Also when it is taken away while it is open: only then does the focus go back.
        return () => {
            if (dialog?.open) {
                dialog.close();
                requestAnimationFrame(keepFocus); // what is around the dialog goes away with it
            }
        };
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
