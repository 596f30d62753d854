#include "control/ip_helpers.h"

#include "command/update.h"

int32_t cmpBuf(const uint8_t *a, const uint8_t *b, uint32_t length)
{
    for (uint32_t i = 0; i < length; ++i) {
        if (a[i] != b[i]) {
            return a[i] - b[i];
        }
    }
    return 0;
}

int32_t isInUpdate()
{
    return isUpdateProgram();
}
