#pragma once

// Records and their files as bytes; link with `setting_bytes`. A test expects an image of the whole
// record, changed at the offsets of its file format, so that a byte changed by mistake shows too.

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <map>
#include <optional>

#include "tests/support/console.h"
#include "tests/support/files.h"
#include "tests/support/outcome.h"

using Bytes = std::string;

// The sizes of the user setting record and of a view, and where the two views stand.
inline constexpr size_t kUserSettingSize = 11832;
inline constexpr size_t kViewSize = 3996;
inline constexpr size_t kPreviewAt = 3812;
inline constexpr size_t kProgramAt = 7808;

inline constexpr char kDirectory[] = "/userdata"; // of the settings

// Writes a file, in a directory that may be new.
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

// Alike, or the first offsets that differ.
testing::AssertionResult areBytes(const Bytes &actual, const Bytes &expected);

// What the file store says of a file that it cannot open, that it cannot make, and of one that is
// longer than its record.
std::string notOpened(const std::string &name);
std::string notSaved(const std::string &name);
std::string tooLong(const std::string &name, size_t size, size_t recordSize);

// One load of a record from its file.
struct Load {
    const char *name;
    Bytes before; // the record
    std::optional<Bytes> file;
    std::string prints;
    Bytes after;
    std::optional<Bytes> saved; // the file's new content; none: it stays as it was
};

template <typename Operation, typename Record>
void expectLoad(Operation load, Record *record, const std::string &file, const Load &row)
{
    SCOPED_TRACE(row.name);
    std::filesystem::remove(kDirectory / std::filesystem::path(file));
    if (row.file) {
        put(std::string(kDirectory) + '/' + file, *row.file);
    }
    auto files = filesIn();
    fill(record, row.before);
    EXPECT_EQ(printedBy(load), row.prints);
    EXPECT_TRUE(areBytes(bytesOf(record), row.after));
    if (row.saved) {
        files[file] = *row.saved;
    }
    EXPECT_EQ(filesIn(), files);
}

// The bytes that pairs of hexadecimal digits stand for; blanks between them do not count.
Bytes hex(const std::string &text);

// The lowest `size` bytes of a value.
Bytes littleEndian(uint32_t value, size_t size);

inline Bytes oneByte(uint32_t value)
{
    return littleEndian(value, 1);
}

// `bytes` with others in the place of those at `offset`, none after the end.
Bytes with(Bytes bytes, size_t offset, const Bytes &others);

// `bytes` with one bit changed in the word at `offset`.
Bytes bitFlipped(Bytes bytes, size_t offset, uint32_t bit);

// Bytes of which no two neighbours are equal, from `first` on.
Bytes steppedBytes(size_t size, uint32_t first);

// Bytes without a pattern, the same ones for the same seed.
Bytes ownBytes(size_t size, uint32_t seed);

// What a reset makes of the user setting record, by the two images of a first start in `directory`:
// the bytes in which they differ have no default. The preview gets those of the program view.
Bytes resetOver(const Bytes &record, const std::string &directory);

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
