#include "command/update_paths.h"

#include "command/channel.h"
#include "command/frame.h"
#include "command/reply.h"
#include "command/update.h"
#include "core/memory.h"
#include "storage/fatfs.h"

namespace {

// State, main loop only.
uint32_t prevAddressMcu1K;      // number of UpdateMcu1K()'s last accepted block; never read
uint32_t prevAddressMcu1K_test; // the same for UpdateMcu1K_test(); never read
FileHandle *localSaveFile;      // the local save file, on the heap; nothing opens one
uint32_t localSaveIndex;        // never read

// Receives a block and keeps only what its header says.
void receiveAndForget(uint32_t *previous)
{
    uint8_t received[kUpdateBlockSize + 1];
    if (!receiveUpdateBlock(received)) {
        return;
    }
    if (updateBlockNumber() == 0) {
        getUpdateFileSize(received);
    }
    *previous = updateBlockNumber();
    SendAckOrNack(kAck);
}

} // namespace

void UpdateMcu1K()
{
    updateSoftChannel = commandFrom;
    receiveAndForget(&prevAddressMcu1K);
}

void UpdateMcu1K_test()
{
    receiveAndForget(&prevAddressMcu1K_test);
}

uint8_t GetCheckSum(const uint8_t *bytes, uint32_t count)
{
    return SumOfBytes(bytes, count % 256);
}

void closeSaveLocalFile()
{
    if (localSaveFile == nullptr) {
        return;
    }
    f_close(localSaveFile);
    mymem_free(static_cast<void *>(localSaveFile));
    localSaveFile = nullptr;
    localSaveIndex = 0;
}
