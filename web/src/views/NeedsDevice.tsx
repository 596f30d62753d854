// What a screen says that needs a device while there is none.

import type { State } from '../session.ts';
import { Notice } from './parts.tsx';

export function NeedsDevice({ state }: { state: State }) {
    if (state.phase === 'ready') {
        return null;
    }
    if (state.phase === 'lost') {
        return (
            <Notice tone="warning" title={`${state.lineName} is unplugged`}>
                <p>Plug it in again. The page goes on by itself.</p>
            </Notice>
        );
    }
    if (state.phase === 'opening' || state.phase === 'asking' || state.phase === 'waiting') {
        return (
            <Notice tone="info" title="The device has not answered yet">
                <p>One moment.</p>
            </Notice>
        );
    }
    if (state.phase === 'trouble') {
        const where = (
            <p>
                <a href="#connect">Connect</a> says why, and what to do.
            </p>
        );
        return state.isOpen ? (
            <Notice tone="warning" title="No device answers">
                {where}
            </Notice>
        ) : (
            <Notice tone="warning" title="The port is not open">
                {where}
            </Notice>
        );
    }
    return (
        <Notice tone="info" title="No device is connected">
            <p>
                <a href="#connect">Connect to one, or to the demo device</a>.
            </p>
        </Notice>
    );
}
