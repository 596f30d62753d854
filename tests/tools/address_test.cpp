// Addresses as people write them.

#include "tools/address.h"

#include <gtest/gtest.h>

#include "tools/errors.h"

namespace {

TEST(Address, IsFourNumbersWithDots)
{
    EXPECT_EQ(bytesOfAddress("192.168.0.100"), std::string("\xC0\xA8\x00\x64", 4));
    EXPECT_EQ(bytesOfAddress("0.0.0.0"), std::string(4, '\0'));
    EXPECT_EQ(bytesOfAddress("255.255.255.255"), std::string(4, '\xFF'));
}

TEST(Address, IsNothingElse)
{
    for (const char *text :
         {"", "1", "1.2.3", "1.2.3.", ".1.2.3", "1..2.3", "1.2.3.4.", "1.2.3.4.5", "1.2.3.256",
          "256.2.3.4", "1.2.3.x", "1.2.3.0x4", "1.2.3.-4", "1.2.3.+4", " 1.2.3.4", "1.2.3.4 ",
          "1.2.3.0004", "a.b.c.d", "010.1.2.3"}) {
        EXPECT_THROW(bytesOfAddress(text), UsageError) << text;
    }
}

TEST(Address, OfAMaskIsContiguous)
{
    for (const char *text : {"0.0.0.0", "128.0.0.0", "255.255.254.0", "255.255.255.255"}) {
        EXPECT_EQ(bytesOfMask(text), bytesOfAddress(text)) << text;
    }
    for (const char *text : {"255.0.255.0", "0.0.0.255", "255.255.255.1", "127.0.0.0", "24"}) {
        EXPECT_THROW(bytesOfMask(text), UsageError) << text;
    }
}

TEST(Address, OfMacIsSixBytesWithColons)
{
    EXPECT_EQ(bytesOfMac("02:76:65:73:6b:01"), "\x02vesk\x01");
    EXPECT_EQ(bytesOfMac("0:FF:fF:a:0A:10"), std::string("\x00\xFF\xFF\x0A\x0A\x10", 6));
}

TEST(Address, OfMacIsNothingElse)
{
    for (const char *text :
         {"", "02:76:65:73:6b", "02:76:65:73:6b:", "02:76:65:73:6b:01:02", "02-76-65-73-6b-01",
          "02:76:65:73:6b:1g", "02:76:65:73:6b:100", "0276:65:73:6b:01", "02766573 6b01"}) {
        EXPECT_THROW(bytesOfMac(text), UsageError) << text;
    }
}

TEST(Address, IsWrittenAsItIsRead)
{
    EXPECT_EQ(addressText(std::string("\xC0\xA8\x00\x64", 4)), "192.168.0.100");
    EXPECT_EQ(macText("\x02vesk\x01"), "02:76:65:73:6b:01");
    EXPECT_EQ(macText(bytesOfMac("0:FF:fF:a:0A:10")), "00:ff:ff:0a:0a:10");
}

} // namespace
