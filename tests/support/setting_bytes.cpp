#include "tests/support/setting_bytes.h"

#include <cstdio>
#include <sstream>

void put(const std::string &path, const Bytes &content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    writeFile(path, content);
}

std::map<std::string, Bytes> filesIn(const std::string &directory)
{
    std::map<std::string, Bytes> files;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        files[entry.path().filename()] = contentOf(entry.path());
    }
    return files;
}

std::string notOpened(const std::string &name)
{
    return "open file /userdata/" + name + " error\n";
}

std::string notSaved(const std::string &name)
{
    return notOpened(name) + "open file " + name + " fail\r\n";
}

std::string tooLong(const std::string &name, size_t size, size_t recordSize)
{
    return "read file " + name + " size error: fileSize=" + std::to_string(size) +
           ", readSize=" + std::to_string(recordSize) + "\r\n";
}

Bytes hex(const std::string &text)
{
    Bytes bytes;
    std::istringstream pairs(text);
    for (std::string pair; pairs >> pair;) {
        bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    return bytes;
}

Bytes littleEndian(uint32_t value, size_t size)
{
    Bytes bytes;
    for (size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(value >> 8 * i);
    }
    return bytes;
}

Bytes with(Bytes bytes, size_t offset, const Bytes &others)
{
    for (size_t i = 0; i < others.size(); ++i) {
        bytes.at(offset + i) = others[i];
    }
    return bytes;
}

Bytes bitFlipped(Bytes bytes, size_t offset, uint32_t bit)
{
    char &byte = bytes.at(offset + bit / 8);
    byte = static_cast<char>(byte ^ 1 << bit % 8);
    return bytes;
}

Bytes steppedBytes(size_t size, uint32_t first)
{
    Bytes bytes;
    for (uint32_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(first + i * 7 + i / 256);
    }
    return bytes;
}

Bytes ownBytes(size_t size, uint32_t seed)
{
    Bytes bytes;
    uint32_t state = seed;
    for (size_t i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

Bytes resetOver(const Bytes &record, const std::string &directory)
{
    Bytes reset = contentOf(directory + "/save0.sav");
    const Bytes overOthers = contentOf(directory + "/save0-over-a5.sav");
    for (size_t i = 0; i < kUserSettingSize; ++i) {
        const bool inPreview = i >= kPreviewAt && i < kPreviewAt + kViewSize;
        if (reset.at(i) != overOthers.at(i)) {
            reset[i] = record.at(inPreview ? i - kPreviewAt + kProgramAt : i);
        }
    }
    return reset;
}

testing::AssertionResult areBytes(const Bytes &actual, const Bytes &expected)
{
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure()
               << actual.size() << " bytes instead of " << expected.size();
    }
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    constexpr size_t kShown = 8;
    std::string differences;
    size_t count = 0;
    for (size_t i = 0; i < actual.size(); ++i) {
        if (actual[i] == expected[i] || ++count > kShown) {
            continue;
        }
        char line[80];
        std::snprintf(line, sizeof line, "offset %zu is 0x%02x instead of 0x%02x\n", i,
                      static_cast<unsigned>(static_cast<uint8_t>(actual[i])),
                      static_cast<unsigned>(static_cast<uint8_t>(expected[i])));
        differences += line;
    }
    return testing::AssertionFailure() << count << " bytes differ:\n" << differences;
}

Image &Image::repeat(size_t at, size_t count, uint8_t value)
{
    for (size_t i = 0; i < count; ++i) {
        bytes.at(at + i) = static_cast<char>(value);
    }
    return *this;
}

Image &Image::set(size_t at, std::initializer_list<uint32_t> values, size_t width)
{
    for (const uint32_t value : values) {
        bytes = with(std::move(bytes), at, littleEndian(value, width));
        at += width;
    }
    return *this;
}
