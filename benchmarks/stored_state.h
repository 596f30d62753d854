#pragma once

// The operations on the stored state that are measured, each beside the same transfers done with
// plain system calls: as many files, as many bytes, copied as often.

#include <cstdint>
#include <string_view>

struct StoredStateOperation {
    std::string_view name;
    void (*prepare)();             // makes the files of a device in use
    void (*daemon)(uint32_t turn); // what the daemon does, with the number of the turn
    void (*plain)(uint32_t turn);
};

// loadStoredState, switchView, savePage.
extern const StoredStateOperation kStoredStateOperations[3];

// Stores the settings of a device that has been used before. Without its files a start takes 30 ms
// longer, on purpose.
void storeSettings();

// Copies the 3996 bytes of a view in memory.
void copyPlainView();

// Ends the program with what the system says about its last error.
[[noreturn]] void stop(const char *what);
