#pragma once

// What the lines carry, written for Wireshark: tools/wireshark/ has the dissector.

#include "tools/line.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>

// A pcapng file. Each line is an interface of it, of link type USER0 for the front board's and
// USER1 for the control PC's. Each chunk of bytes is a packet, as it is, with the time and the
// direction: outbound is what was sent to the device, inbound what came from it.
class Capture {
public:
    // `about` becomes the file's comment. Throws LocalError if the file cannot be written.
    Capture(const std::string &path, const std::string &about);

    // `side` is `front` or `pc`, and becomes the name of the interface. Throws LocalError.
    void take(std::string_view side, Passing passing, std::string_view bytes);

private:
    void write(const std::string &block);

    struct Close {
        void operator()(std::FILE *file) const
        {
            std::fclose(file);
        }
    };

    std::string path_;
    std::unique_ptr<std::FILE, Close> file_;
    std::map<std::string, uint32_t, std::less<>> interfaces_; // their numbers, by side
};
