// What people fill in.

import { useId } from 'preact/hooks';

import { classes } from './classes.ts';

/** The ids of what describes a control, for aria-describedby. */
function describedBy(...ids: (string | false)[]): { 'aria-describedby'?: string } {
    const there = ids.filter((id) => id);
    return there.length > 0 ? { 'aria-describedby': there.join(' ') } : {};
}

/** What stands below a control: what is wrong with it, and what it is for. */
function Below({ id, fault, hint }: { id: string; fault: string; hint: string }) {
    return (
        <>
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
        </>
    );
}

export interface FieldProps {
    label: string;
    value: string;
    onInput: (value: string) => void;
    /** What is wrong with the value, or "": it is read out with the field. */
    fault?: string;
    hint?: string;
    unit?: string;
    type?: 'text' | 'search';
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
            <Below id={id} fault={fault} hint={hint} />
        </div>
    );
}

export interface ChoiceProps<Value extends string> {
    label: string;
    value: Value;
    options: readonly { value: Value; label: string }[];
    onChange: (value: Value) => void;
    disabled?: boolean;
    width?: 'short' | 'middle' | 'wide';
}

/** One of several texts. */
export function Choice<Value extends string>(props: ChoiceProps<Value>) {
    const id = useId();
    return (
        <div class={classes('field', props.width)}>
            <label for={id}>{props.label}</label>
            <select
                id={id}
                value={props.value}
                disabled={props.disabled ?? false}
                onChange={(event) => props.onChange(event.currentTarget.value as Value)}
            >
                {props.options.map(({ value, label }) => (
                    <option key={value} value={value}>
                        {label}
                    </option>
                ))}
            </select>
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
