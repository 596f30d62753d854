#include "command/update.h"

#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "command/channel.h"
#include "command/payload.h"
#include "command/reply.h"
#include "control/power.h"
#include "core/memory.h"
#include "core/systick.h"
#include "storage/fatfs.h"

uint8_t updateSoftChannel;

namespace {

constexpr int32_t kBlockTries = 1500;
constexpr uint32_t kUpdateModeMs = 5000;

// The stream is a header, of which only these two fields are used, and then the package.
constexpr uint32_t kHeaderSize = 128;
constexpr uint32_t kSizeAt = 48; // 4 bytes, big-endian
constexpr uint32_t kSumAt = 80;  // 2 bytes, big-endian

constexpr char kPackage[] = "_update.pkg";
constexpr char kInstall[] = "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                            "cp -f /userdata/_update.pkg /usr/bin/vesk_h264 && "
                            "chmod +x /usr/bin/vesk_h264 && sync && sync";

constexpr mode_t kPermissions = 07777;
constexpr uint8_t kThisProgram = 7; // dat2: the target of the update
constexpr uint8_t kVersion[] = {1, 10};

// State, main loop only.
uint32_t startTime_Update; // tick of the last 0x9A command; 0 outside update mode
uint32_t fpgaFileSize;     // length of the stream as announced by block 0
uint32_t fpgaFileChecksum; // sum of the stored file as announced by block 0
FileHandle my_FIL;         // "_update.pkg", open from block 0 to the last block
uint32_t prevAddress;      // number of the last accepted block

uint8_t block[kUpdateBlockSize + 1]; // the block being received, and its checksum

void refuseFirstBlock(const char *why)
{
    std::puts(why);
    SendAckOrNack(kNak);
}

// Begins a transfer with block 0 and drops what is left of an earlier one. False when refused.
bool storeFirstBlock()
{
    prevAddress = 0;
    getUpdateFileSize(block);
    fpgaFileSize += kHeaderSize;
    std::puts("open file _update.pkg");
    f_close(&my_FIL);    // may be open from an abandoned transfer
    sd_unlink(kPackage); // may not exist
    if (sd_open(&my_FIL, kPackage, kCreateAlways | kWrite) != kFileOk) {
        refuseFirstBlock("<F:open file error>\r");
        return false;
    }
    constexpr uint32_t kLength = kUpdateBlockSize - kHeaderSize;
    uint32_t written = 0;
    if (f_write(&my_FIL, block + kHeaderSize, kLength, &written) != kFileOk || written != kLength) {
        refuseFirstBlock("<F:write file error>\r");
        f_close(&my_FIL); // later blocks must not be appended
        return false;
    }
    SendAckOrNack(kAck);
    return true;
}

// Appends a later block, unless it repeats the previous one.
void storeNextBlock(uint32_t number)
{
    if (number != prevAddress) {
        // The results are dropped: the sum at the end shows whether bytes are missing.
        uint32_t written;
        f_write(&my_FIL, block, kUpdateBlockSize, &written);
        prevAddress = number;
    }
    SendAckOrNack(kAck);
}

// Gives the package the permissions of a program: `cp` passes them on when it makes the new
// executable, which can then run as soon as its content is there. Forces it to the disk, as the
// copy is made from it. The results are dropped: without either, the command does what it can.
void makePackageExecutable()
{
    FileHandle package = nullptr;
    if (sd_open(&package, kPackage, kRead) != kFileOk) {
        return;
    }
    const int file = fileno(package);
    struct stat status {};
    if (fstat(file, &status) == 0) {
        const mode_t readers = status.st_mode & (S_IRUSR | S_IRGRP | S_IROTH);
        fchmod(file, (status.st_mode & kPermissions) | readers >> 2);
    }
    fsync(file);
    f_close(&package);
}

void finishTransfer()
{
    f_close(&my_FIL);
    if (checkUpdateFileOk() == 0) {
        std::puts("check _update.pkg error");
        return;
    }
    std::puts("check _update.pkg sucess");
    makePackageExecutable();
    // The process ends even if the copy failed: the restart is the sender's only sign that the
    // update is over, and the shell has printed the reason.
    cpUpdateFile();
    Power_Off();
    Reboot();
}

} // namespace

void SoftwareUpdate()
{
    startTime_Update = GetSysTick();
    const uint8_t dat1 = commandToLED.dat1;
    const uint8_t dat2 = commandToLED.dat2;
    switch (dat1) {
    case 0x10: // query
        SendReply(dat1, 0, 0, 0);
        break;
    case 0x16:
        SendAckOrNack(kAck);
        SysDelayMs(10);
        break;
    case 0x20:
        SendAckOrNack(kAck);
        break;
    case 0xA0: // a block
        if (dat2 == kThisProgram) {
            UpdateMcu1KToSDCARD();
        } else {
            SendAckOrNack(kNak);
        }
        break;
    case 0xA1: // block size, high byte first
        SendReply(dat1, dat2, kUpdateBlockSize / 256, kUpdateBlockSize % 256);
        break;
    case 0xB1: // version
        if (dat2 == kThisProgram) {
            SendReply(dat1, dat2, kVersion[0], kVersion[1]);
        } else {
            SendAckOrNack(kAck);
        }
        break;
    default:
        SendAckOrNack(kNak);
        break;
    }
}

int32_t isUpdateProgram()
{
    if (startTime_Update == 0) {
        return 0;
    }
    if (isSysTickTimeout(static_cast<int32_t>(startTime_Update), kUpdateModeMs) != 0) {
        startTime_Update = 0;
        return 0;
    }
    return 1;
}

uint32_t updateBlockNumber()
{
    return commandToLED.dat4 * 256u + commandToLED.dat3;
}

bool receiveUpdateBlock(uint8_t (&received)[kUpdateBlockSize + 1])
{
    const uint32_t count = receiveBufferFromPC(received, kUpdateBlockSize, kBlockTries);
    if (count != kUpdateBlockSize) {
        std::printf("<F:receive  %u data from pc fail>\n", count);
        SendAckOrNack(kNak);
        return false;
    }
    return true;
}

void getUpdateFileSize(const uint8_t *firstBlock)
{
    fpgaFileSize = 0;
    for (uint32_t i = 0; i < 4; ++i) {
        fpgaFileSize = fpgaFileSize << 8 | firstBlock[kSizeAt + i];
    }
    fpgaFileChecksum = firstBlock[kSumAt] * 256u + firstBlock[kSumAt + 1];
    std::printf("file size = %d\n", static_cast<int32_t>(fpgaFileSize));
}

void UpdateMcu1KToSDCARD()
{
    updateSoftChannel = commandFrom;
    if (!receiveUpdateBlock(block)) {
        return;
    }
    const uint32_t number = updateBlockNumber();
    if (number > 0) {
        storeNextBlock(number);
    } else if (!storeFirstBlock()) {
        return;
    }
    const bool isOpen = my_FIL != nullptr;
    if (isOpen && (number + 1) * kUpdateBlockSize >= fpgaFileSize) {
        finishTransfer();
    }
}

int32_t checkUpdateFileOk()
{
    const uint32_t size = sd_getFileSize(kPackage);
    // On a full disk the file may be empty, and must not become the executable.
    auto *const content = size > 0 ? static_cast<uint8_t *>(mymem_malloc(size)) : nullptr;
    uint32_t sum = 0;
    if (content != nullptr) {
        std::memset(content, 0, size); // makes the sum definite if the file cannot be read in full
        sd_readFile(kPackage, content, size);
        for (uint32_t i = 0; i < size; ++i) {
            sum = (sum + content[i]) & 0xFFFF;
        }
        mymem_free(content);
    }
    if (content == nullptr || sum != fpgaFileChecksum) {
        std::printf("check sum error: 0x%x != 0x%x\n", sum, fpgaFileChecksum);
        return 0;
    }
    // Blocks that are left out can leave the sum right. fpgaFileSize has wrapped if the header's
    // size was near 2^32, and is then taken as it is.
    if (uint64_t{size} + kHeaderSize < fpgaFileSize) {
        std::printf("check size error: %u < %u\n", size, fpgaFileSize - kHeaderSize);
        return 0;
    }
    return 1;
}

int32_t cpUpdateFile()
{
    std::FILE *const shell = popen(kInstall, "r");
    if (shell == nullptr) {
        std::puts("popen error!");
        return -1;
    }
    char line[100];
    while (std::fgets(line, sizeof line, shell) != nullptr) {
        std::fputs(line, stdout);
    }
    return pclose(shell);
}

void Reboot()
{
    std::puts("exit");
    std::fflush(stdout);
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        close(descriptor);
    }
    // Not exit(), which would run its clean-up while the receive threads still run.
    _exit(0);
}
