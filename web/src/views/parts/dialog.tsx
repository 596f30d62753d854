// A question above the page.

import type { ComponentChildren } from 'preact';
import { useEffect, useId, useRef } from 'preact/hooks';

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
