// What the core says, for a component that shows it.

import { useEffect, useState } from 'preact/hooks';

/**
 * The result of `make`, or undefined until it is there; made anew when one of `inputs` changes. The former result stands
 * meanwhile, so that a screen does not flicker. What fails is thrown at the component.
 */
export function useResult<T>(make: () => Promise<T>, inputs: readonly unknown[]): T | undefined {
    const [state, setState] = useState<{ result?: T; error?: Error }>({});
    useEffect(() => {
        let wanted = true;
        make().then(
            (result) => wanted && setState({ result }),
            (error: unknown) => wanted && setState({ error: error instanceof Error ? error : new Error(String(error)) }),
        );
        return () => {
            wanted = false;
        };
    }, inputs);
    if (state.error) {
        throw state.error;
    }
    return state.result;
}

/** The value, once it has not changed for a moment: while somebody types, nothing is computed. */
export function useSettled<T>(value: T, milliseconds = 150): T {
    const [settled, setSettled] = useState(value);
    useEffect(() => {
        const timer = setTimeout(() => setSettled(() => value), milliseconds);
        return () => clearTimeout(timer);
    }, [value, milliseconds]);
    return settled;
}
