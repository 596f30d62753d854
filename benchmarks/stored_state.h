#pragma once

// The measured operations on the stored state. Each has a counterpart that does the same transfers
// with plain system calls: the same number of files, bytes and copies.

#include <cstdint>
#include <string_view>

struct StoredStateOperation {
    std::string_view name;
    void (*prepare)();             // makes the files of a device in use
    void (*daemon)(uint32_t turn); // what the daemon does, with the number of the turn
    void (*plain)(uint32_t turn);
};

// loadStoredState; loadBesidePages, the same with all views and pages stored; switchView; savePage.
extern const StoredStateOperation kStoredStateOperations[4];

// Stores the settings of a device that has been used before. Without its files a start takes 30 ms
// longer, on purpose.
void storeSettings();

// Copies the 3996 bytes of a view in memory.
void copyPlainView();

// Prints the system's last error and ends the program.
[[noreturn]] void stop(const char *what);
