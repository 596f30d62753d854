#include "core/memory.h"

#include <cstdlib>

void *mymem_malloc(uint32_t size)
{
    return std::malloc(size);
}

int32_t mymem_free(void *memory)
{
    std::free(memory);
    return 0;
}

void mymem_print_info() {}

// Waiting for a later model -----------------------------------------------------------------------

void mymem_init() {}
