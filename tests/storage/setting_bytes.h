#pragma once

// Records as bytes; link with `setting_bytes`. What a test expects of a record is an image of it,
// changed at the offsets that its file format names, so that a byte changed by mistake shows as
// well as one that is not.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/fakes/console.h"

using Bytes = std::string;

// The sizes of the user setting record and of a view, and where the two views stand.
inline constexpr size_t kUserSettingSize = 11832;
inline constexpr size_t kViewSize = 3996;
inline constexpr size_t kPreviewAt = 3812;
inline constexpr size_t kProgramAt = 7808;

Bytes contentOf(const std::string &path);
void put(const std::string &path, const Bytes &content);

template <typename Record> Bytes bytesOf(const Record *record)
{
    return {reinterpret_cast<const char *>(record), sizeof *record};
}

template <typename Record> void fill(Record *record, const Bytes &bytes)
{
    ASSERT_EQ(bytes.size(), sizeof *record);
    std::memcpy(record, bytes.data(), sizeof *record);
}

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

// Runs `action` and returns what it prints.
template <typename Action> std::string printedBy(Action action)
{
    Console console;
    action();
    console.end();
    EXPECT_EQ(console.err, "");
    return console.out;
}

// The rows of a table of timings, by format id; the cells by the name of their column.
using TimingTable = std::map<uint32_t, std::map<std::string, std::string>>;
TimingTable timingsOf(const std::string &path);
