#include "tests/simulation/update.h"

namespace {

constexpr uint32_t kBlock = 1024;
constexpr uint32_t kHeader = 128;

uint32_t bigEndian(const std::string &bytes, size_t at, size_t count)
{
    uint32_t value = 0;
    for (size_t i = at; i < at + count; ++i) {
        value = value << 8 | static_cast<uint8_t>(bytes[i]);
    }
    return value;
}

} // namespace

void UpdateModel::block(uint32_t number, const std::string &bytes)
{
    isToInstall_ = false;
    if (number == 0) {
        announced_ = bigEndian(bytes, 48, 4) + kHeader;
        sum_ = bigEndian(bytes, 80, 2);
        stored_ = bytes.substr(kHeader);
        isOpen_ = true;
        before_ = 0;
    } else if (number != before_) {
        before_ = number;
        if (isOpen_) {
            stored_ += bytes;
        }
    }
    if (!isOpen_ || (number + 1) * kBlock < announced_) {
        return;
    }
    isOpen_ = false;
    uint32_t sum = 0;
    for (const char byte : stored_) {
        sum += static_cast<uint8_t>(byte);
    }
    // Blocks that were left out can leave the sum right. The announced length may have wrapped.
    isToInstall_ = (sum & 0xFFFF) == sum_ && stored_.size() + kHeader >= announced_;
}
