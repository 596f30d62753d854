import { expect, test } from 'vitest';
import type { SavFile } from '../files.ts';
import { added, closed, edited, isUnsaved, noFiles, saved, takenBack } from './openFiles.ts';

function file(name: string, ...bytes: number[]): SavFile {
    return { name, kind: 'view', bytes: Uint8Array.from(bytes) };
}

test('the file that was opened last is shown, and after it is closed another one', () => {
    const two = added(added(noFiles, file('view0.sav')), file('view0.sav'));
    expect(two.files.map(({ id }) => id)).toEqual([1, 2]);
    expect(two.chosen).toBe(2);
    expect(closed(two, 2)).toMatchObject({ chosen: 1, files: [{ id: 1 }] });
    expect(closed(two, 1)).toMatchObject({ chosen: 2, files: [{ id: 2 }] });
    expect(closed(closed(two, 1), 2)).toMatchObject({ chosen: 0, files: [] });
});

test('changes are taken back one after another, and what was opened stays', () => {
    const opened = added(noFiles, file('view0.sav', 0));
    const changed = edited(edited(opened, 1, file('view0.sav', 1)), 1, file('view0.sav', 2));
    expect(changed.files[0]?.original.bytes).toEqual(Uint8Array.of(0));
    expect(changed.files[0]?.file.bytes).toEqual(Uint8Array.of(2));
    expect(takenBack(changed, 1).files[0]?.file.bytes).toEqual(Uint8Array.of(1));
    expect(takenBack(takenBack(takenBack(changed, 1), 1), 1).files[0]?.file.bytes).toEqual(Uint8Array.of(0));
});

test('a file is unsaved while it is not what was saved or opened', () => {
    const opened = added(noFiles, file('view0.sav', 0));
    const changed = edited(opened, 1, file('view0.sav', 1));
    const unsaved = (state: typeof opened) => state.files.map(isUnsaved);
    expect(unsaved(opened)).toEqual([false]);
    expect(unsaved(changed)).toEqual([true]);
    expect(unsaved(takenBack(changed, 1))).toEqual([false]);
    expect(unsaved(saved(changed, 1))).toEqual([false]);
    expect(unsaved(takenBack(saved(changed, 1), 1))).toEqual([true]);
});
