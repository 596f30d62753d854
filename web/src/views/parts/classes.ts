/** The value of a class attribute: those of the names that are there. */
export function classes(...names: (string | false | null | undefined)[]): string {
    return names.filter((name) => name).join(' ');
}
