#include "tools/package.h"

#include <cstdint>
#include <numeric>

#include <fmt/format.h>

#include "tools/errors.h"

namespace {

constexpr size_t kHeaderSize = 128;
constexpr size_t kSizeAt = 48;
constexpr size_t kSumAt = 80;
constexpr size_t kMostBlocks = 65536; // a block's number has 16 bits

uint32_t sumOf(std::string_view bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), uint32_t{0}, [](uint32_t sum, char byte) {
        return sum + static_cast<unsigned char>(byte);
    });
}

void storeBigEndian(std::string &stream, size_t at, size_t bytes, uint32_t value)
{
    for (size_t i = bytes; i > 0; --i, value >>= 8) {
        stream[at + i - 1] = static_cast<char>(value & 0xFF);
    }
}

} // namespace

std::string updateStream(std::string_view package)
{
    if (package.empty()) {
        throw UsageError("an empty file is not an executable");
    }
    const size_t blocks = (kHeaderSize + package.size() + kBlockSize - 1) / kBlockSize;
    if (blocks > kMostBlocks) {
        throw UsageError(fmt::format("the file is too large: it has {} blocks of {} bytes, and at "
                                     "most {} can be sent",
                                     blocks, kBlockSize, kMostBlocks));
    }
    std::string stream(kHeaderSize, '\0');
    stream += package;
    stream.resize(blocks * kBlockSize);
    storeBigEndian(stream, kSizeAt, 4, static_cast<uint32_t>(package.size()));
    // The device adds up the stored file, which includes the filling of the last block.
    storeBigEndian(stream, kSumAt, 2, sumOf(std::string_view(stream).substr(kHeaderSize)));
    return stream;
}

std::string blockWithChecksum(std::string_view stream, size_t number)
{
    std::string block(stream.substr(number * kBlockSize, kBlockSize));
    block += static_cast<char>(sumOf(block) & 0xFF);
    return block;
}
