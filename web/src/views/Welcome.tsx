// What the page is and what it needs, for somebody who has never seen it.

import { browsers } from '../advice.ts';
import { Panel } from './parts.tsx';

export function Welcome() {
    return (
        <Panel title="What this is" class="welcome">
            <ol>
                <li>
                    This page talks to a vesk_h264 device. It shows what the device tells of itself, changes its settings
                    and updates its program.
                </li>
                <li>
                    It needs {browsers}, and a serial adapter to the device. Files and timings need none.
                </li>
                <li>
                    Nothing is installed, and nothing leaves this computer. If you have no device here, try the demo
                    device.
                </li>
            </ol>
        </Panel>
    );
}
