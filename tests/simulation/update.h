#pragma once

// A firmware update, by docs/protocol.md.

#include <cstdint>
#include <string>

class UpdateModel {
public:
    // A block came whole.
    void block(uint32_t number, const std::string &bytes);
    // The last block has come, and the package must be installed now.
    bool isToInstall() const
    {
        return isToInstall_;
    }
    bool isOpen() const
    {
        return isOpen_;
    }
    const std::string &stored() const
    {
        return stored_;
    }
    void abandon()
    {
        isOpen_ = false;
    }

private:
    bool isOpen_ = false;
    bool isToInstall_ = false;
    uint32_t before_ = 0;    // number of the block before
    uint32_t announced_ = 0; // length of the stream
    uint32_t sum_ = 0;
    std::string stored_;
};
