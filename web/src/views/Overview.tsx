// Everything that the device tells about itself.

import type { ComponentChildren } from 'preact';
import { useState } from 'preact/hooks';

import type { Core } from '../core/core.ts';
import { useSession } from '../hooks.ts';
import type { DeviceInfo, Session } from '../session.ts';
import { NeedsDevice } from './NeedsDevice.tsx';
import { Busy, Dialog, Facts, Notice, Panel } from './parts.tsx';

type Value = string | number | boolean | null | undefined;

function shown(value: Value, more = ''): ComponentChildren {
    if (value === null || value === undefined) {
        return <span class="muted">not told</span>;
    }
    return typeof value === 'boolean' ? (value ? 'on' : 'off') : `${value}${more}`;
}

type Fact = readonly [name: string, value: ComponentChildren];

function networkFacts(
    of: { [Name in 'address' | 'mask' | 'gateway' | 'mac']: string | null } | null | undefined,
    ...more: readonly Fact[]
) {
    return (
        <Facts
            facts={[
                ['Address', shown(of?.address)],
                ['Net mask', shown(of?.mask)],
                ['Gateway', shown(of?.gateway)],
                ['MAC address', shown(of?.mac)],
                ...more,
            ]}
        />
    );
}

function Told({ core, device }: { core: Core; device: DeviceInfo }) {
    const number = device.serial_number;
    return (
        <div class="columns">
            <Panel title="The device">
                <Facts
                    facts={[
                        ['Device type', shown(device.device_type)],
                        ['Serial number', shown(number === null ? null : core.serialNumberText(number))],
                        ['Program version', shown(device.program_version)],
                        ['System version', shown(device.system_version)],
                        ['Protocol version', shown(device.protocol_version)],
                        ['Update block', shown(device.block_size, ' bytes')],
                    ]}
                />
            </Panel>
            <Panel title="Its network now">{networkFacts(device.network, ['DHCP', shown(device.dhcp)])}</Panel>
            {device.stored !== undefined && (
                <Panel title="Its stored network settings">{networkFacts(device.stored)}</Panel>
            )}
        </div>
    );
}

export function Overview({ core, session }: { core: Core; session: Session }) {
    const state = useSession(session);
    const [isAsked, setAsked] = useState(false);
    const isBusy = state.running !== '';

    function readStored(): void {
        setAsked(false);
        void session.ask(true);
    }

    return (
        <article class="screen">
            <header>
                <h1>Overview</h1>
                <div class="buttons">
                    <button
                        type="button"
                        class="chief"
                        disabled={state.phase !== 'ready' || isBusy}
                        onClick={() => void session.ask()}
                    >
                        Refresh
                    </button>
                    <button type="button" disabled={state.phase !== 'ready' || isBusy} onClick={() => setAsked(true)}>
                        Read the stored settings too
                    </button>
                </div>
                <p>Everything that the device tells about itself.</p>
            </header>
            <NeedsDevice state={state} />
            {isBusy && <Busy>{state.running}</Busy>}
            {state.notes.length > 0 && (
                <Notice tone="warning" title="The device did not tell everything">
                    <ul>
                        {state.notes.map((note) => (
                            <li key={note}>{note}</li>
                        ))}
                    </ul>
                </Notice>
            )}
            {state.device !== null && <Told core={core} device={state.device} />}
            <Dialog
                open={isAsked}
                title="Read the stored settings?"
                onClose={() => setAsked(false)}
                actions={
                    <>
                        <button type="button" onClick={() => setAsked(false)}>
                            Cancel
                        </button>
                        <button type="button" class="chief" onClick={readStored}>
                            Read them
                        </button>
                    </>
                }
            >
                <p>
                    These are the settings that commands such as “write IP address” change. Before the device tells
                    them, it takes over what its system has at this moment.
                </p>
                <p>
                    So read them only while its network cable is plugged in and it has its address. Otherwise it
                    stores 127.0.0.1.
                </p>
            </Dialog>
        </article>
    );
}
