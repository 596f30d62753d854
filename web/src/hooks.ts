// What the screens share: the session's state, and values that change while one watches.

import { useEffect, useState } from 'preact/hooks';

import type { Session, State } from './session.ts';
import type { Passage } from './traffic.ts';

/** The session's state; the component is drawn again after each change. */
export function useSession(session: Session): State {
    const [, draw] = useState<State>(session.state);
    useEffect(() => {
        const update = () => draw(session.state);
        update();
        return session.subscribe(update);
    }, [session]);
    return session.state;
}

/** What has passed over the line, drawn at most once a frame of the screen; while `isPaused` what it was then. */
export function useTraffic(session: Session, isPaused: boolean): readonly Passage[] {
    const [passages, set] = useState(session.traffic.passages());
    useEffect(() => {
        if (isPaused) {
            return undefined;
        }
        let frame = 0;
        const draw = () => {
            frame = 0;
            set(session.traffic.passages());
        };
        draw();
        const end = session.traffic.subscribe(() => {
            frame ||= requestAnimationFrame(draw);
        });
        return () => {
            cancelAnimationFrame(frame);
            end();
        };
    }, [session, isPaused]);
    return passages;
}
