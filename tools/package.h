#pragma once

// Makes the stream of blocks of a firmware update from a new executable. docs/protocol.md describes
// the stream.

#include <cstddef>
#include <string>
#include <string_view>

inline constexpr size_t kBlockSize = 1024;

// The header and the package, filled up with zeros to whole blocks. Throws UsageError when the
// package is empty or has more blocks than can be numbered.
std::string updateStream(std::string_view package);

// Block `number` of the stream and its checksum byte: 1025 bytes.
std::string blockWithChecksum(std::string_view stream, size_t number);
