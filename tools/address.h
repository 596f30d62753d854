#pragma once

// IPv4 and MAC addresses: as bytes in commands and records, and as the text that people write.

#include <string>
#include <string_view>

// 4 bytes from "192.168.0.100". Throws UsageError for anything else.
std::string bytesOfAddress(std::string_view text);

// The same of a net mask. Throws UsageError if it is not contiguous, too.
std::string bytesOfMask(std::string_view text);

// Whether the ones of a mask's 4 bytes come before its zeros.
bool isContiguous(std::string_view mask);

// 6 bytes from "02:76:65:73:6b:01", digits in either case. Throws UsageError for anything else.
std::string bytesOfMac(std::string_view text);

// The text of 4 bytes, and of 6 bytes.
std::string addressText(std::string_view bytes);
std::string macText(std::string_view bytes);
