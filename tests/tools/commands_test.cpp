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
    EXPECT_EQ(frameFromText("input source"), "<T0000730000000073>");
    EXPECT_EQ(frameFromText("output format"), "<T0000740000000074>");
    EXPECT_EQ(frameFromText("layer setting"), "<T0000750000000075>");
    EXPECT_EQ(frameFromText("output setting"), "<T0000760000000076>");
    EXPECT_EQ(frameFromText("input setting"), "<T0000770000000077>");
    EXPECT_EQ(frameFromText("switch setting"), "<T0000780000000078>");
    EXPECT_EQ(frameFromText("test pattern"), "<T00007d000000007d>");
    EXPECT_EQ(frameFromText("HDMI output DE"), "<T0000860000000086>");
    EXPECT_EQ(frameFromText("time control"), "<T00008b000000008b>");
    EXPECT_EQ(frameFromText("work time"), "<T0000970000000097>");
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
}

TEST(Commands, ParametersFollowTheWords)
{
    EXPECT_EQ(frameFromText("input source 1"), "<T0000730100000074>");
    EXPECT_EQ(frameFromText("input source 01 ff 3 0A"), "<T00007301ff030a80>");
}

TEST(Commands, RefusesWordsThatItDoesNotKnow)
{
    EXPECT_EQ(complaintAbout("read"), "\"read\" is no command that I know");
    EXPECT_EQ(complaintAbout("make coffee"), "\"make coffee\" is no command that I know");
    EXPECT_EQ(complaintAbout("read device types"),
              "\"read device types\" is no command that I know");
    EXPECT_EQ(complaintAbout(" "), "no command given");
}

TEST(Commands, RefusesParametersThatDoNotFit)
{
    EXPECT_EQ(complaintAbout("read device type 01"), "\"read device type\" takes no parameters");
    EXPECT_EQ(complaintAbout("work time 1 2 3 4 5"), "\"work time\" takes at most 4 parameters");
    EXPECT_EQ(complaintAbout("work time 100"), "\"100\" is no hexadecimal byte");
    EXPECT_EQ(complaintAbout("work time xy"), "\"xy\" is no hexadecimal byte");
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
