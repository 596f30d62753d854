// The small parts that all screens are made of. They hold no knowledge of the device, and only what is shown as state.

export * from './parts/arrangement.tsx';
export * from './parts/dialog.tsx';
export * from './parts/drawing.tsx';
export * from './parts/fields.tsx';
export * from './parts/files.tsx';
export * from './parts/messages.tsx';
export * from './parts/table.tsx';
export * from './parts/tabs.tsx';
export * from './parts/theme_switch.tsx';
