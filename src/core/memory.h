#pragma once

// Memory for the daemon's long-lived buffers, taken straight from the process heap. Any thread.
// (core/memman.h manages a fixed region instead.)

#include <cstdint>

// Returns `size` bytes of uninitialised heap memory, or null. The caller owns it until
// mymem_free().
[[nodiscard]] void *mymem_malloc(uint32_t size);

// Gives heap memory back; null is allowed. Returns 0.
int32_t mymem_free(void *memory);

// Prints nothing. It is the hook for the statistics of a memory pool; the heap keeps none.
void mymem_print_info();

// Waiting for a later model -----------------------------------------------------------------------

// Does nothing: the heap needs no initialisation.
void mymem_init();
