// A package as the stream that the update carries. The numbers are worked out by hand: the stream
// is 128 bytes longer than the package and ends with a whole block.

#include "tools/package.h"

#include <gtest/gtest.h>

#include "tools/errors.h"

namespace {

TEST(Package, HasAsManyBlocksAsHeaderAndPackageFill)
{
    constexpr size_t kRows[][2] = {{1, 1},    {895, 1},  {896, 1},   {897, 2},
                                   {1000, 2}, {1023, 2}, {1024, 2},  {1025, 2},
                                   {1920, 2}, {1921, 3}, {65536, 65}};
    for (const auto &[size, blocks] : kRows) {
        const std::string stream = updateStream(std::string(size, 'x'));
        EXPECT_EQ(stream.size(), blocks * 1024) << size;
    }
}

TEST(Package, OfOneByteIsAHeaderTheByteAndZeros)
{
    std::string expected(1024, '\0');
    expected[51] = 1;    // size 00 00 00 01
    expected[81] = 'A';  // sum 00 41
    expected[128] = 'A'; // the package
    EXPECT_EQ(updateStream("A"), expected);
}

TEST(Package, HasItsSizeAndSumBigEndianInTheHeader)
{
    const std::string package(1000, '\xAB');
    const std::string stream = updateStream(package);
    EXPECT_EQ(stream.substr(48, 4), std::string("\x00\x00\x03\xE8", 4)); // 1000
    EXPECT_EQ(stream.substr(80, 2), "\x9B\xF8"); // 1000 * 171 = 171000 = 2 * 65536 + 0x9BF8
    EXPECT_EQ(stream.substr(128, 1000), package);
}

TEST(Package, HasASizeOfFourBytesAndASumOfTwo)
{
    const std::string stream = updateStream(std::string(0x012346, '\0'));
    EXPECT_EQ(stream.substr(48, 4), std::string("\x00\x01\x23\x46", 4));
    // 65536 times 1 is 0 again.
    EXPECT_EQ(updateStream(std::string(65536, '\x01')).substr(80, 2), std::string(2, '\0'));
    // 257 times 255 is 65535.
    EXPECT_EQ(updateStream(std::string(257, '\xFF')).substr(80, 2), "\xFF\xFF");
}

TEST(Package, HasZerosInTheRestOfTheHeaderAndAfterTheEnd)
{
    const std::string stream = updateStream(std::string(897, '\xFF'));
    EXPECT_EQ(stream.substr(0, 48), std::string(48, '\0'));
    EXPECT_EQ(stream.substr(52, 28), std::string(28, '\0'));
    EXPECT_EQ(stream.substr(82, 46), std::string(46, '\0'));
    EXPECT_EQ(stream.substr(128 + 897), std::string(2048 - 128 - 897, '\0'));
}

TEST(Package, BlocksAreFollowedByTheSumOfTheirBytes)
{
    const std::string stream = std::string(1024, '\x01') + std::string(1024, '\x03');
    // 1024 is 4 * 256; three times that, too, is 0 modulo 256.
    EXPECT_EQ(blockWithChecksum(stream, 0), std::string(1024, '\x01') + '\0');
    EXPECT_EQ(blockWithChecksum(stream, 1), std::string(1024, '\x03') + '\0');
    // 01 of the size, 41 of the sum, 41 of the package.
    EXPECT_EQ(blockWithChecksum(updateStream("A"), 0), updateStream("A") + "\x83");
    // 255 of -1, and one zero, are 1.
    EXPECT_EQ(blockWithChecksum(std::string(255, '\xFF') + std::string(769, '\0'), 0).back(),
              '\x01');
}

TEST(Package, RefusesWhatCannotBeSent)
{
    EXPECT_THROW(updateStream(""), UsageError);
    // 65536 blocks less the header are the most.
    const std::string most(65536UL * 1024 - 128, '\0');
    EXPECT_EQ(updateStream(most).size(), 65536UL * 1024);
    EXPECT_THROW(updateStream(most + '\0'), UsageError);
}

} // namespace
