#pragma once

// Records and their files as bytes; link with `setting_bytes`. What a test expects of a record is
// an image of it, changed at the offsets that its file format names, so that a byte changed by
// mistake shows as well as one that is not.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

using Bytes = std::string;

// The sizes of the user setting record and of a view, and where the two views stand.
inline constexpr size_t kUserSettingSize = 11832;
inline constexpr size_t kViewSize = 3996;
inline constexpr size_t kPreviewAt = 3812;
inline constexpr size_t kProgramAt = 7808;

inline constexpr char kDirectory[] = "/userdata"; // of the settings

// Reads a file, "" if it is not there; writes one, in a directory that may be new.
Bytes contentOf(const std::string &path);
void put(const std::string &path, const Bytes &content);

// Name and content of every file in `directory`.
std::map<std::string, Bytes> filesIn(const std::string &directory = kDirectory);

// Every case begins with an empty settings directory.
class SettingsDirectory : public testing::Environment {
public:
    void SetUp() override
    {
        std::filesystem::create_directory(kDirectory);
    }
};

template <typename Record> Bytes bytesOf(const Record *record)
{
    return {reinterpret_cast<const char *>(record), sizeof *record};
}

template <typename Record> void fill(Record *record, const Bytes &bytes)
{
    ASSERT_EQ(bytes.size(), sizeof *record);
    std::memcpy(record, bytes.data(), sizeof *record);
}

// The bytes that pairs of hexadecimal digits stand for; blanks between them do not count.
Bytes hex(const std::string &text);

// The lowest `size` bytes of a value.
Bytes littleEndian(uint32_t value, size_t size);

inline Bytes oneByte(uint32_t value)
{
    return littleEndian(value, 1);
}

inline Bytes twoBytes(uint32_t value)
{
    return littleEndian(value, 2);
}

// `bytes` with others in the place of those at `offset`, none behind the end.
Bytes with(Bytes bytes, size_t offset, const Bytes &others);

// Bytes of which no two neighbours are equal, from `first` on.
Bytes steppedBytes(size_t size, uint32_t first);

// Bytes without a pattern, the same ones for the same seed.
Bytes ownBytes(size_t size, uint32_t seed);

// Alike, or the first offsets that differ.
testing::AssertionResult areBytes(const Bytes &actual, const Bytes &expected);

// A record's expected bytes. Values are little-endian and stand one after the other from `at` on.
class Image {
public:
    explicit Image(Bytes start) : bytes(std::move(start)) {}

    Image &u8(size_t at, std::initializer_list<uint32_t> values)
    {
        return set(at, values, 1);
    }
    Image &u16(size_t at, std::initializer_list<uint32_t> values)
    {
        return set(at, values, 2);
    }
    Image &u32(size_t at, std::initializer_list<uint32_t> values)
    {
        return set(at, values, 4);
    }
    Image &repeat(size_t at, size_t count, uint8_t value);

    Bytes bytes;

private:
    Image &set(size_t at, std::initializer_list<uint32_t> values, size_t width);
};

// The rows of a table of timings, by format id; the cells by the name of their column.
using TimingTable = std::map<uint32_t, std::map<std::string, std::string>>;
TimingTable timingsOf(const std::string &path);
