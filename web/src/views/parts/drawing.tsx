// A drawing of the core.

import { useEffect, useState } from 'preact/hooks';

import { classes } from './classes.ts';

export interface DrawingProps {
    /** The picture as SVG text. It is shown as an image, so that nothing in it can run. */
    svg: string;
    /** What it shows, for those who do not see it. */
    alt: string;
    /** As large as it was drawn; else as wide as there is room. */
    actualSize?: boolean;
}

/** A drawing of the core. */
export function Drawing({ svg, alt, actualSize }: DrawingProps) {
    const [address, setAddress] = useState('');
    useEffect(() => {
        const made = URL.createObjectURL(new Blob([svg], { type: 'image/svg+xml' }));
        setAddress(made);
        return () => URL.revokeObjectURL(made);
    }, [svg]);
    return address === '' ? null : <img class={classes('drawing', actualSize && 'actual')} src={address} alt={alt} />;
}
