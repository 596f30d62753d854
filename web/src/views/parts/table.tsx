// A table that screen readers can follow.

import type { ComponentChild } from 'preact';

import { classes } from './classes.ts';

export interface Column<Row> {
    head: string;
    cell: (row: Row) => ComponentChild;
    /** The column that names its row. */
    names?: boolean;
    right?: boolean;
    /** In the font of bytes and addresses. */
    code?: boolean;
    /** Class of one cell. */
    classOf?: (row: Row) => string;
}

export interface TableProps<Row> {
    /** What the table is; also the name of the part that scrolls. */
    caption: string;
    /** The caption is for screen readers only, as a heading above says the same. */
    captionUnseen?: boolean;
    columns: readonly Column<Row>[];
    rows: readonly Row[];
    keyOf: (row: Row) => string | number;
    classOf?: (row: Row) => string;
    /** What stands there if there are no rows. */
    empty?: string;
    /** Scrolls by itself when it is long. */
    tall?: boolean;
}

/** A table in a frame that scrolls, with the keyboard too. */
export function Table<Row>(props: TableProps<Row>) {
    const cellClass = (column: Column<Row>, row: Row) =>
        classes(column.right && 'right', column.code && 'code', column.classOf?.(row));
    return (
        <div class={classes('table-frame', props.tall && 'tall')} role="group" aria-label={props.caption} tabIndex={0}>
            <table>
                <caption class={props.captionUnseen ? 'unseen' : ''}>{props.caption}</caption>
                <thead>
                    <tr>
                        {props.columns.map((column) => (
                            <th key={column.head} scope="col" class={column.right ? 'right' : ''}>
                                {column.head}
                            </th>
                        ))}
                    </tr>
                </thead>
                <tbody>
                    {props.rows.map((row) => (
                        <tr key={props.keyOf(row)} class={props.classOf?.(row) ?? ''}>
                            {props.columns.map((column) =>
                                column.names ? (
                                    <th key={column.head} scope="row" class={cellClass(column, row)}>
                                        {column.cell(row)}
                                    </th>
                                ) : (
                                    <td key={column.head} class={cellClass(column, row)}>
                                        {column.cell(row)}
                                    </td>
                                ),
                            )}
                        </tr>
                    ))}
                    {props.rows.length === 0 && (
                        <tr>
                            <td class="empty" colSpan={props.columns.length}>
                                {props.empty ?? 'Nothing here.'}
                            </td>
                        </tr>
                    )}
                </tbody>
            </table>
        </div>
    );
}
