#pragma once

// The settings of a terminal or a serial device, which are as they were when the program has ended.

// Keeps the settings of a descriptor and puts them back at the end of its own life. SIGINT,
// SIGTERM, SIGHUP, SIGQUIT and SIGPIPE still end the program unless they are ignored, but first put
// back those of every KeptSettings. Requires: the descriptor stays open; at most a few exist at
// once.
class KeptSettings {
public:
    explicit KeptSettings(int descriptor);
    ~KeptSettings();
    KeptSettings(const KeptSettings &) = delete;
    KeptSettings &operator=(const KeptSettings &) = delete;

private:
    int place_; // -1: the descriptor has no such settings
};
