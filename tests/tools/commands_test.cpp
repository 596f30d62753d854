// The vocabulary: words and digits to frames, frames to sentences.

#include "tools/commands.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/text.h"

namespace {

// What the user is told about `text`, or "accepted".
std::string complaintAbout(std::string_view text)
{
    try {
        frameFromText(text);
    } catch (const UsageError &error) {
        return error.what();
    }
    return "accepted";
}

TEST(Commands, KnowsTheRowsOfTheProtocol)
{
    EXPECT_EQ(frameFromText("print memory use"), "<T0000101100000021>");
    EXPECT_EQ(frameFromText("read device type"), "<T0000680100000069>");
    EXPECT_EQ(frameFromText("read protocol version"), "<T00006a030000006d>");
    EXPECT_EQ(frameFromText("read system version"), "<T00006a040000006e>");
    EXPECT_EQ(frameFromText("write serial number"), "<T00006a100000007a>");
    EXPECT_EQ(frameFromText("read serial number"), "<T00006a110000007b>");
    EXPECT_EQ(frameFromText("input source"), "<T0000730000000073>");
    EXPECT_EQ(frameFromText("output format"), "<T0000740000000074>");
    EXPECT_EQ(frameFromText("layer setting"), "<T0000750000000075>");
    EXPECT_EQ(frameFromText("output setting"), "<T0000760000000076>");
    EXPECT_EQ(frameFromText("input setting"), "<T0000770000000077>");
    EXPECT_EQ(frameFromText("switch setting"), "<T0000780000000078>");
    EXPECT_EQ(frameFromText("test pattern"), "<T00007d000000007d>");
    EXPECT_EQ(frameFromText("write net mask"), "<T0000840000000084>");
    EXPECT_EQ(frameFromText("read net mask"), "<T0000850000000085>");
    EXPECT_EQ(frameFromText("HDMI output DE"), "<T0000860000000086>");
    EXPECT_EQ(frameFromText("write IP address"), "<T0000880000000088>");
    EXPECT_EQ(frameFromText("read IP address"), "<T0000890000000089>");
    EXPECT_EQ(frameFromText("time control"), "<T00008b000000008b>");
    EXPECT_EQ(frameFromText("write gateway"), "<T00008c000000008c>");
    EXPECT_EQ(frameFromText("read gateway"), "<T00008d000000008d>");
    EXPECT_EQ(frameFromText("write DHCP"), "<T00008e0200000090>");
    EXPECT_EQ(frameFromText("read DHCP"), "<T00008e0300000091>");
    EXPECT_EQ(frameFromText("read MAC address, first half"), "<T00008e0500000093>");
    EXPECT_EQ(frameFromText("read MAC address, last half"), "<T00008e0700000095>");
    EXPECT_EQ(frameFromText("work time"), "<T0000970000000097>");
    EXPECT_EQ(frameFromText("update query"), "<T00009a10000000aa>");
    EXPECT_EQ(frameFromText("update wait"), "<T00009a16000000b0>");
    EXPECT_EQ(frameFromText("update acknowledge"), "<T00009a20000000ba>");
    EXPECT_EQ(frameFromText("update block"), "<T00009aa00000003a>");
    EXPECT_EQ(frameFromText("update block size"), "<T00009aa10000003b>");
    EXPECT_EQ(frameFromText("update version"), "<T00009ab10000004b>");
    EXPECT_EQ(frameFromText("write data"), "<T0000f000000000f0>");
    EXPECT_EQ(frameFromText("read data"), "<T0000f100000000f1>");
    EXPECT_EQ(frameFromText("write text"), "<T0000f200000000f2>");
    EXPECT_EQ(frameFromText("read text"), "<T0000f300000000f3>");
}

TEST(Commands, EveryRowIsReachedByItsOwnWords)
{
    for (const CommandRow &row : commandTable()) {
        const Rs232Command record = recordOf(frameFromText(row.name));
        EXPECT_EQ(record.command, row.command) << row.name;
        EXPECT_EQ(record.dat1, row.dat1 == kAnyDat1 ? 0 : row.dat1) << row.name;
    }
}

TEST(Commands, NoTwoRowsAreTheSame)
{
    std::set<std::pair<uint8_t, uint16_t>> codes;
    std::set<std::string> names;
    for (const CommandRow &row : commandTable()) {
        EXPECT_TRUE(codes.emplace(row.command, row.dat1).second) << row.name;
        EXPECT_TRUE(names.emplace(row.name).second) << row.name;
    }
}

TEST(Commands, NoNameCouldBeTakenForDigits)
{
    for (const CommandRow &row : commandTable()) {
        const std::string_view name = row.name;
        EXPECT_FALSE(std::all_of(name.begin(), name.end(), [](char c) {
            return c == ' ' || isHexDigit(c);
        })) << name;
    }
}

TEST(Commands, WordsCountInEitherCaseAndWithAnyBlanks)
{
    EXPECT_EQ(frameFromText("  Read\tDEVICE   type "), "<T0000680100000069>");
    EXPECT_EQ(frameFromText("hdmi output de"), "<T0000860000000086>");
    EXPECT_EQ(frameFromText("read MAC address last half"), "<T00008e0700000095>");
}

TEST(Commands, ParametersFollowTheWords)
{
    EXPECT_EQ(frameFromText("input source 1"), "<T0000730100000074>");
    EXPECT_EQ(frameFromText("input source 01 ff 3 0A"), "<T00007301ff030a80>");
}

TEST(Commands, ParametersOfASubCommandStandBehindIt)
{
    EXPECT_EQ(frameFromText("write serial number 12 34"), "<T00006a10123400c0>");
    EXPECT_EQ(frameFromText("write DHCP 1"), "<T00008e0201000091>");
    EXPECT_EQ(frameFromText("update block 7 34 12"), "<T00009aa007341287>");
    EXPECT_EQ(frameFromText("update block size 7"), "<T00009aa107000042>");
    EXPECT_EQ(frameFromText("write data 20 0 13"), "<T0000f02000130023>");
    EXPECT_EQ(frameFromText("write text 9 0"), "<T0000f209000000fb>");
}

TEST(Commands, AddressesAreWrittenWithDotsOrAsHexadecimalBytes)
{
    EXPECT_EQ(frameFromText("write IP address 192.168.0.55"), "<T000088c0a8003727>");
    EXPECT_EQ(frameFromText("write IP address c0 a8 00 37"), "<T000088c0a8003727>");
    EXPECT_EQ(frameFromText("write net mask 255.255.254.0"), "<T000084fffffe0080>");
    EXPECT_EQ(frameFromText("write gateway 192.168.0.1"), "<T00008cc0a80001f5>");
    EXPECT_EQ(frameFromText("write gateway 10 0 0 1"), "<T00008c100000019d>"); // 16.0.0.1
}

TEST(Commands, RefusesAddressesThatAreNone)
{
    EXPECT_EQ(complaintAbout("write IP address 192.168.0"),
              "\"192.168.0\" is not an address such as 192.168.0.100");
    EXPECT_EQ(complaintAbout("write IP address 192.168.0.256"),
              "\"192.168.0.256\" is not an address such as 192.168.0.100");
    EXPECT_EQ(complaintAbout("write IP address 192.168.0.1 1"),
              "\"192.168.0.1\" is not a hexadecimal byte");
    EXPECT_EQ(complaintAbout("write IP address 1 2 3 4 5"),
              "\"write IP address\" takes at most 4 parameters");
    EXPECT_EQ(complaintAbout("input source 1.2.3.4"), "\"1.2.3.4\" is not a hexadecimal byte");
    EXPECT_EQ(complaintAbout("read IP address 1.2.3.4"), "\"read IP address\" takes no parameters");
}

TEST(Commands, RefusesWordsThatItDoesNotKnow)
{
    EXPECT_EQ(complaintAbout("read"), "\"read\" is not a known command");
    EXPECT_EQ(complaintAbout("make coffee"), "\"make coffee\" is not a known command");
    EXPECT_EQ(complaintAbout("read device types"), "\"read device types\" is not a known command");
    EXPECT_EQ(complaintAbout(" "), "no command given");
}

TEST(Commands, RefusesParametersThatDoNotFit)
{
    EXPECT_EQ(complaintAbout("read device type 01"), "\"read device type\" takes no parameters");
    EXPECT_EQ(complaintAbout("work time 1 2 3 4 5"), "\"work time\" takes at most 4 parameters");
    EXPECT_EQ(complaintAbout("work time 100"), "\"100\" is not a hexadecimal byte");
    EXPECT_EQ(complaintAbout("work time xy"), "\"xy\" is not a hexadecimal byte");
}

TEST(Commands, TwoToTenDigitsAreTheCommandAndItsData)
{
    EXPECT_EQ(frameFromText("68"), "<T0000680000000068>");
    EXPECT_EQ(frameFromText("6801"), "<T0000680100000069>");
    EXPECT_EQ(frameFromText("680102"), "<T000068010200006b>");
    EXPECT_EQ(frameFromText("68010203"), "<T000068010203006e>");
    EXPECT_EQ(frameFromText("6801020304"), "<T0000680102030472>");
}

TEST(Commands, FourteenDigitsAreARecordWithoutChecksum)
{
    EXPECT_EQ(frameFromText("12346A03000000"), "<T12346a03000000b3>");
}

TEST(Commands, SixteenDigitsAreARecordWithTheChecksumAsGiven)
{
    EXPECT_EQ(frameFromText("0000680100000069"), "<T0000680100000069>");
    EXPECT_EQ(frameFromText("0000680100000000"), "<T0000680100000000>");
    EXPECT_EQ(frameFromText("00ab6A0300000018"), "<T00ab6A0300000018>");
}

TEST(Commands, BlanksBetweenBytesDoNotCount)
{
    EXPECT_EQ(frameFromText("68 01"), "<T0000680100000069>");
    EXPECT_EQ(frameFromText(" 00 05 68 01 00 00 00\t"), "<T000568010000006e>");
    EXPECT_EQ(frameFromText("<T 00 00 68 01 00 00 00 69 >"), "<T0000680100000069>");
}

TEST(Commands, RefusesOtherNumbersOfDigits)
{
    for (const char *text : {"6", "680", "680102030", "680102030405", "6801020304050",
                             "680102030405060", "00006801000000690", "000068010000006900"}) {
        EXPECT_NE(complaintAbout(text).find("hexadecimal digits: "), std::string::npos) << text;
    }
}

TEST(Commands, WholeFramesAreSentAsTheyAre)
{
    EXPECT_EQ(frameFromText("<T0000680100000069>"), "<T0000680100000069>");
    EXPECT_EQ(frameFromText("<T00006801000000FF}"), "<T00006801000000FF}");
    EXPECT_EQ(frameFromText("<Xzz00680100000069>"), "<Xzz00680100000069>");
    EXPECT_EQ(complaintAbout("<T000068010000069>"),
              "a frame has 19 characters, \"<T000068010000069>\" has 18");
    EXPECT_NE(complaintAbout("<T00006801000000690>"), "accepted");
}

TEST(Commands, DescribesCommands)
{
    EXPECT_EQ(describe("<T0000680100000069>"), "command, address 00, tag 00: read device type");
    EXPECT_EQ(describe("<T12ab10110000ff"
                       "dd>"),
              "command, address 12, tag ab: print memory use, data 11 00 00 ff");
    EXPECT_EQ(describe("<T00007301000000"
                       "74>"),
              "command, address 00, tag 00: input source, data 01 00 00 00");
    EXPECT_EQ(describe("<T000068020000006a>"),
              "command, address 00, tag 00: unknown command 68, data 02 00 00 00");
    EXPECT_EQ(describe("<T0000990102030"
                       "4a3>"),
              "command, address 00, tag 00: unknown command 99, data 01 02 03 04");
}

TEST(Commands, DescribesReplies)
{
    EXPECT_EQ(describe("<F00006801263300c2>"), "reply, address 00, tag 00: read device type: 2633");
    EXPECT_EQ(describe("<F00006A03010A0078>"),
              "reply, address 00, tag 00: read protocol version: 1.10");
    EXPECT_EQ(describe("<F0000101100000021>"), "reply, address 00, tag 00: print memory use");
}

TEST(Commands, DescribesAddressesWithDots)
{
    EXPECT_EQ(describe("<T000088c0a8003727>"),
              "command, address 00, tag 00: write IP address 192.168.0.55");
    EXPECT_EQ(describe("<T000084fffffe0080>"),
              "command, address 00, tag 00: write net mask 255.255.254.0");
    EXPECT_EQ(describe("<F000089c0a8001405>"),
              "reply, address 00, tag 00: read IP address: 192.168.0.20");
    EXPECT_EQ(describe("<F00008dc0a80001f6>"),
              "reply, address 00, tag 00: read gateway: 192.168.0.1");
    EXPECT_EQ(describe("<T0000890000000089>"), "command, address 00, tag 00: read IP address");
}

TEST(Commands, DescribesWhatRepliesMean)
{
    EXPECT_EQ(describe("<F00006a04020d007d>"),
              "reply, address 00, tag 00: read system version: 2.13");
    EXPECT_EQ(describe("<F00006a10123400c0>"),
              "reply, address 00, tag 00: write serial number: 1234");
    EXPECT_EQ(describe("<F00006a11123400c1>"),
              "reply, address 00, tag 00: read serial number: 1234");
    EXPECT_EQ(describe("<F00008e0301000092>"), "reply, address 00, tag 00: read DHCP: 1");
    EXPECT_EQ(describe("<F00008e0502766570>"),
              "reply, address 00, tag 00: read MAC address, first half: 02:76:65");
    EXPECT_EQ(describe("<F00008e07736b0174>"),
              "reply, address 00, tag 00: read MAC address, last half: 73:6b:01");
    EXPECT_EQ(describe("<F00009aa107040046>"),
              "reply, address 00, tag 00: update block size: 0x0400");
    EXPECT_EQ(describe("<F00009ab107010a5d>"), "reply, address 00, tag 00: update version: 1.10");
    EXPECT_EQ(describe("<F0000f12000130024>"),
              "reply, address 00, tag 00: read data, data 20 00 13 00");
}

TEST(Commands, KnowsWhatIsNeverAnswered)
{
    const auto isSilent = [](const char *text) {
        return isNeverAnswered(recordOf(frameFromText(text)));
    };
    for (const char *text : {"8e", "8e 01", "8e 04", "8e 06", "8e 08", "8e ff"}) {
        EXPECT_TRUE(isSilent(text)) << text;
    }
    for (const char *text : {"8e 02", "8e 03", "8e 05", "8e 07", "8d 04", "8f 04", "6a 01"}) {
        EXPECT_FALSE(isSilent(text)) << text;
    }
    EXPECT_EQ(describe("<T00008e0400000092>"),
              "command, address 00, tag 00: unknown command 8e, data 04 00 00 00, which is never "
              "answered");
}

TEST(Commands, DescribesRefusalsByTheirCode)
{
    EXPECT_EQ(describe("<F000168ffffffff65>"), "refusal, address 00, tag 01: read device type");
    EXPECT_EQ(describe("<F000000fffffffffc>"), "refusal, address 00, tag 00: command 00");
    // Four times ff in a command is no refusal.
    EXPECT_EQ(describe("<T000073ffffffff6f>"),
              "command, address 00, tag 00: input source, data ff ff ff ff");
}

TEST(Commands, SaysWhatIsWrongWithAChecksum)
{
    EXPECT_EQ(describe("<T0000680100000000>"), "command, address 00, tag 00: read device type; "
                                               "WRONG CHECKSUM 00, should be 69");
}

TEST(Commands, DescribesABurstOfFramesButNothingElse)
{
    EXPECT_EQ(describeAll("<T0000680100000069><F000000fffffffffc>"),
              "command, address 00, tag 00: read device type | "
              "refusal, address 00, tag 00: command 00");
    EXPECT_EQ(describeAll("x<T0000680100000069>"), "");
    EXPECT_EQ(describeAll("<T0000680100000069>x"), "");
    EXPECT_EQ(describeAll("<T0000680100000069><T"), "");
    EXPECT_EQ(describeAll(""), "");
}

TEST(Commands, ListsEveryRow)
{
    const std::string list = commandList();
    for (const CommandRow &row : commandTable()) {
        EXPECT_NE(list.find(row.name), std::string::npos) << row.name;
    }
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'),
              static_cast<ptrdiff_t>(commandTable().size()));
}

} // namespace
