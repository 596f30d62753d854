// The vocabulary: words and digits to frames, frames to sentences.

#include "tools/commands.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/tools/complaint.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/parameters.h"
#include "tools/text.h"

namespace {

struct Row {
    const char *text;
    const char *result;
};

// clang-format off
TEST(Commands, MakesFramesOfWordsAndDigits)
{
    constexpr Row kRows[] = {
        {"print memory use",             "<T0000101100000021>"},
        {"read device type",             "<T0000680100000069>"},
        {"read protocol version",        "<T00006a030000006d>"},
        {"read system version",          "<T00006a040000006e>"},
        {"write serial number 0",        "<T00006a100000007a>"},
        {"read serial number",           "<T00006a110000007b>"},
        {"input source",                 "<T0000730000000073>"},
        {"output format",                "<T0000740000000074>"},
        {"layer setting",                "<T0000750000000075>"},
        {"output setting",               "<T0000760000000076>"},
        {"input setting",                "<T0000770000000077>"},
        {"switch setting",               "<T0000780000000078>"},
        {"test pattern",                 "<T00007d000000007d>"},
        {"write net mask 0.0.0.0",       "<T0000840000000084>"},
        {"read net mask",                "<T0000850000000085>"},
        {"HDMI output DE",               "<T0000860000000086>"},
        {"write IP address 0.0.0.0",     "<T0000880000000088>"},
        {"read IP address",              "<T0000890000000089>"},
        {"time control",                 "<T00008b000000008b>"},
        {"write gateway 0.0.0.0",        "<T00008c000000008c>"},
        {"read gateway",                 "<T00008d000000008d>"},
        {"write DHCP 0",                 "<T00008e0200000090>"},
        {"write DHCP off",               "<T00008e0200000090>"},
        {"write DHCP on",                "<T00008e0201000091>"},
        {"write DHCP ON",                "<T00008e0201000091>"},
        {"write DHCP 01",                "<T00008e0201000091>"},
        {"read DHCP",                    "<T00008e0300000091>"},
        {"read MAC address, first half", "<T00008e0500000093>"},
        {"read MAC address, last half",  "<T00008e0700000095>"},
        {"work time",                    "<T0000970000000097>"},
        {"update query",                 "<T00009a10000000aa>"},
        {"update wait",                  "<T00009a16000000b0>"},
        {"update acknowledge",           "<T00009a20000000ba>"},
        {"update block 07 0",            "<T00009aa007000041>"},
        {"update block size",            "<T00009aa107000042>"}, // the usual program
        {"update version",               "<T00009ab107000052>"},
        {"write data 20 00 0x1001",      "<T0000f02000011021>"},
        {"read data",                    "<T0000f100000000f1>"},
        {"write text 00 00",             "<T0000f200000000f2>"},
        {"read text",                    "<T0000f300000000f3>"},
        // Words count in either case and with any blanks.
        {"  Read\tDEVICE   type ",       "<T0000680100000069>"},
        {"hdmi output de",               "<T0000860000000086>"},
        {"read MAC address last half",   "<T00008e0700000095>"},
        // Parameters follow the words; those of a sub-command stand after it.
        {"input source 01",              "<T0000730100000074>"},
        {"input source 01 ff 03 0A",     "<T00007301ff030a80>"},
        {"write serial number 0x1234",   "<T00006a10123400c0>"},
        {"write serial number 4660",     "<T00006a10123400c0>"},
        {"write serial number 65535",    "<T00006a10ffff0078>"},
        {"write DHCP 1",                 "<T00008e0201000091>"},
        {"update block 07 0x1234",       "<T00009aa007341287>"}, // the low byte first
        {"update block size 07",         "<T00009aa107000042>"},
        {"write data 20 00 19",          "<T0000f02000130023>"},
        {"write text 09 00",             "<T0000f209000000fb>"},
        // Addresses have dots.
        {"write IP address 192.168.0.55", "<T000088c0a8003727>"},
        {"write net mask 255.255.254.0", "<T000084fffffe0080>"},
        {"write gateway 192.168.0.1",    "<T00008cc0a80001f5>"},
        // 2 to 10 digits are the command and its data,
        {"68",                           "<T0000680000000068>"},
        {"6801",                         "<T0000680100000069>"},
        {"680102",                       "<T000068010200006b>"},
        {"68010203",                     "<T000068010203006e>"},
        {"6801020304",                   "<T0000680102030472>"},
        {"84fffffe00",                   "<T000084fffffe0080>"}, // all of them if it writes
        // 14 a record, 16 a record with the checksum as given. Blanks between bytes do not count.
        {"12346A03000000",               "<T12346a03000000b3>"},
        {"0000680100000069",             "<T0000680100000069>"},
        {"0000680100000000",             "<T0000680100000000>"},
        {"00ab6A0300000018",             "<T00ab6A0300000018>"},
        {"68 01",                        "<T0000680100000069>"},
        {" 00 05 68 01 00 00 00\t",      "<T000568010000006e>"},
        // Whole frames are sent as they are.
        {"<T 00 00 68 01 00 00 00 69 >", "<T0000680100000069>"},
        {"<T0000680100000069>",          "<T0000680100000069>"},
        {"<T00006801000000FF}",          "<T00006801000000FF}"},
        {"<Xzz00680100000069>",          "<Xzz00680100000069>"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(frameFromText(row.text), row.result) << row.text;
    }
}

TEST(Commands, SaysWhatIsNoCommand)
{
    constexpr Row kRows[] = {
        {"make coffee",                 "\"make coffee\" is not a known command"},
        {"read device types",
         "\"read device types\" is not a known command (did you mean \"read device type\"?)"},
        {"raed ip adress",
         "\"raed ip adress\" is not a known command (did you mean \"read ip address\"?)"},
        {"wirte DHCP on",
         "\"wirte DHCP on\" is not a known command (did you mean \"write dhcp\"?)"},
        {"update", "\"update\" is not a known command; possible are: update query, update wait, "
                   "update acknowledge, update block, update block size, update version"},
        {" ",                           "no command given"},
        {"read device type 01",
         "\"read device type\" takes no parameters, and 1 were given"},
        {"work time 1 2 3 4 5",
         "\"work time\" takes 4 parameters, [DAT1] [DAT2] [DAT3] [DAT4], and 5 were given"},
        {"work time 100",               "\"100\" is not a hexadecimal byte such as 0a"},
        {"work time 1",                 "\"1\" is not a hexadecimal byte such as 0a"},
        {"work time xy",                "\"xy\" is not a hexadecimal byte such as 0a"},
        {"write IP address 192.168.0",  "\"192.168.0\" is not an address such as 192.168.0.100"},
        {"write IP address 192.168.0.256",
         "\"192.168.0.256\" is not an address such as 192.168.0.100"},
        {"write IP address",
         "\"write IP address\" changes the device, so it needs all its parameters: "
         "write IP address A.B.C.D"},
        {"write IP address 192.168.0.1 1",
         "\"write IP address\" takes one parameter, A.B.C.D, and 2 were given"},
        {"write IP address c0",         "\"c0\" is not an address such as 192.168.0.100"},
        {"write net mask 255.0.255.0",
         "\"255.0.255.0\" is not a mask: its ones must come before its zeros, as in "
         "255.255.255.0"},
        {"write DHCP 2",                "\"2\" is none of on, off, 1 and 0"},
        {"write DHCP maybe",            "\"maybe\" is none of on, off, 1 and 0"},
        {"write serial number 65536",
         "\"65536\" is not a serial number from 0 to 65535, decimal or with 0x in front"},
        {"write serial number 12ab",
         "\"12ab\" is not a serial number from 0 to 65535, decimal or with 0x in front"},
        {"write serial number -1",
         "\"-1\" is not a serial number from 0 to 65535, decimal or with 0x in front"},
        {"write serial number 0x",
         "\"0x\" is not a serial number from 0 to 65535, decimal or with 0x in front"},
        {"update block 08 0",           "the program is always 07"},
        {"input source 1.2.3.4",        "\"1.2.3.4\" is not a hexadecimal byte such as 0a"},
        {"84",  "\"write net mask\" changes the device, so it needs all its ten digits: "
                "command and dat1 to dat4"},
        {"<T000068010000069>",          "a frame has 19 characters, \"<T000068010000069>\" has 18"},
        {"<T00006801000000690>",      "a frame has 19 characters, \"<T00006801000000690>\" has 20"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(complaintOf([&] { frameFromText(row.text); }), row.result) << row.text;
    }
    EXPECT_EQ(complaintOf([] { frameFromText("6"); }),
              "1 hexadecimal digit: 2 to 10 in pairs are the command and its data, 14 a record, "
              "16 a record with its checksum");
    for (const char *text : {"680", "680102030", "680102030405", "6801020304050", "680102030405060",
                              "00006801000000690", "000068010000006900"}) {
        EXPECT_NE(complaintOf([&] { frameFromText(text); }).find("hexadecimal digits: "),
                  std::string::npos)
            << text;
    }
}

TEST(Commands, DescribesFrames)
{
    constexpr Row kRows[] = {
        {"<T12ab10110000ffdd>", "command, address 12, tag ab: print memory use, data 11 00 00 ff"},
        // Refusals are told by their code.
        {"<F000168ffffffff65>", "refusal, address 00, tag 01: read device type"},
        {"<F00006affffffff66>", "refusal, address 00, tag 00: command 6a"},
        {"<F000000fffffffffc>", "refusal, address 00, tag 00: command 00"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(describe(row.text), row.result) << row.text;
    }
    constexpr Row kSentences[] = {
        {"<T0000680100000069>", "read device type"},
        {"<T0000730100000074>", "input source, data 01 00 00 00"},
        {"<T000068020000006a>", "unknown command 68, data 02 00 00 00"},
        {"<T00009901020304a3>", "unknown command 99, data 01 02 03 04"},
        {"<T00008e0400000092>", "unknown command 8e, data 04 00 00 00, "
                                "which is never answered"},
        {"<T0000680100000000>", "read device type; "
                                "WRONG CHECKSUM 00, should be 69"},
        // Addresses have dots.
        {"<T000088c0a8003727>", "write IP address 192.168.0.55"},
        {"<T000084fffffe0080>", "write net mask 255.255.254.0"},
        {"<F000089c0a8001405>", "read IP address: 192.168.0.20"},
        {"<F00008dc0a80001f6>", "read gateway: 192.168.0.1"},
        {"<T0000890000000089>", "read IP address"},
        // Replies are told with what they mean.
        {"<F00006801263300c2>", "read device type: 2633"},
        {"<F00006A03010A0078>", "read protocol version: 1.10"},
        {"<F0000101100000021>", "print memory use"},
        {"<F00006a04020d007d>", "read system version: 2.13"},
        {"<F00006a10123400c0>", "write serial number: 4660 (0x1234)"},
        {"<F00006a11123400c1>", "read serial number: 4660 (0x1234)"},
        {"<F00008e0301000092>", "read DHCP: on"},
        {"<F00008e0502766570>", "read MAC address, first half: 02:76:65"},
        {"<F00008e07736b0174>", "read MAC address, last half: 73:6b:01"},
        {"<F00009aa107040046>", "update block size: 0x0400"},
        {"<F00009ab107010a5d>", "update version: 1.10"},
        {"<F0000f12000130024>", "read data, data 20 00 13 00"},
        // Four times ff in a command is no refusal.
        {"<T000073ffffffff6f>", "input source, data ff ff ff ff"},
    };
    for (const Row &row : kSentences) {
        const std::string kind = row.text[1] == 'F' ? "reply" : "command";
        EXPECT_EQ(describe(row.text), kind + ", address 00, tag 00: " + row.result) << row.text;
    }
}

TEST(Commands, DescribesABurstOfFramesButNothingElse)
{
    constexpr Row kRows[] = {
        {"<T0000680100000069><F000000fffffffffc>",
         "command, address 00, tag 00: read device type | "
         "refusal, address 00, tag 00: command 00"},
        {"x<T0000680100000069>", ""}, {"<T0000680100000069>x", ""},
        {"<T0000680100000069><T", ""}, {"", ""},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(describeAll(row.text), row.result) << row.text;
    }
}

// Of ff ff ff ff a frame that arrives intact is a refusal or data by its command: the addresses are
// never refused, and those that write answer what was written.
TEST(Commands, TakesNoAnswerForARefusalBecauseOfItsValue)
{
    constexpr struct {
        const char *command;
        const char *reply;
        bool isRefused;
        const char *sentence;
    } kRows[] = {
        {"68 01",                       "<F000068ffffffff64>", true,  "read device type"},
        {"68 01",                       "<F000068fffffffe63>", false,
         "unknown command 68, data ff ff ff fe"},
        {"68 01",                       "<F00006801263300c2>", false, "read device type: 2633"},
        {"99",                          "<F000099ffffffff95>", true,  "command 99"},
        {"read net mask",               "<F000085ffffffff81>", false,
         "read net mask: 255.255.255.255"},
        {"read IP address",             "<F000089ffffffff85>", false,
         "read IP address: 255.255.255.255"},
        {"read gateway",                "<F00008dffffffff89>", false,
         "read gateway: 255.255.255.255"},
        {"write net mask 255.255.255.255", "<F000084ffffffff80>", false,
         "write net mask: 255.255.255.255"},
        {"write net mask 255.255.255.0", "<F000084ffffffff80>", true, "write net mask"},
        {"write IP address 10.0.0.1",   "<F000088ffffffff84>", true,  "write IP address"},
        {"write gateway 10.0.0.1",      "<F00008cffffffff88>", true,  "write gateway"},
        // A command that was sent with a wrong checksum.
        {"<T0000850000000000>",         "<F000085ffffffff81>", true,  "read net mask"},
    };
    for (const auto &row : kRows) {
        const Rs232Command command = recordOf(frameFromText(row.command));
        EXPECT_EQ(isRefusalOf(command, recordOf(row.reply)), row.isRefused) << row.command;
        EXPECT_EQ(describeReply(command, row.reply),
                  std::string(row.isRefused ? "refusal" : "reply") + ", address 00, tag 00: " +
                      row.sentence)
            << row.command;
    }
    // Without the command, data is the likelier.
    EXPECT_EQ(describe("<F000085ffffffff81>"), "reply, address 00, tag 00: read net mask: "
                                               "255.255.255.255, or the refusal of a damaged frame");
}
// clang-format on

TEST(Commands, KnowsWhatIsNeverAnswered)
{
    const auto isSilent = [](const char *text) {
        return isNeverAnswered(recordOf(frameFromText(text)));
    };
    for (const char *text : {"8e", "8e 01", "8e 04", "8e 06", "8e 08", "8e ff"}) {
        EXPECT_TRUE(isSilent(text)) << text;
    }
    for (const char *text :
         {"8e 02 00 00 00", "8e 03", "8e 05", "8e 07", "8d 04", "8f 04", "6a 01"}) {
        EXPECT_FALSE(isSilent(text)) << text;
    }
}

// A value that each parameter of the row may have.
std::string valuesFor(const CommandRow &row, size_t count = 4)
{
    std::string text;
    for (size_t i = 0; i < std::min(count, row.parameters.size()); ++i) {
        const Field &field = row.parameters[i];
        const bool isAddress = field.type == FieldType::kIpv4 || field.type == FieldType::kMask;
        text += isAddress                         ? " 255.0.0.0"
                : field.type == FieldType::kOnOff ? " on"
                : field.least == 7                ? " 07"
                : field.length == 1               ? " 20"
                                                  : " 19";
    }
    return text;
}

TEST(Commands, WhatWritesNeedsAllItsParametersAndNoMore)
{
    size_t writing = 0;
    for (const CommandRow &row : commandTable()) {
        const std::string name = row.name;
        const size_t most = row.parameters.size();
        EXPECT_THROW(frameFromText(name + valuesFor(row) + " 1"), UsageError) << name;
        if (row.writes) {
            ++writing;
            for (size_t count = 0; count < most; ++count) {
                EXPECT_THROW(frameFromText(name + valuesFor(row, count)), UsageError) << name;
            }
            // The same in digits: command, sub-command and data.
            const std::string digits = frameFromText(name + valuesFor(row)).substr(6, 10);
            EXPECT_EQ(frameFromText(digits).substr(6, 10), digits);
            for (size_t count = row.dat1 == kAnyDat1 ? 2 : 4; count < 10; count += 2) {
                EXPECT_THROW(frameFromText(digits.substr(0, count)), UsageError) << name;
            }
        }
    }
    EXPECT_EQ(writing, 8U); // 6A 10, 84, 88, 8C, 8E 02, 9A A0, F0, F2
}

TEST(Commands, EveryRowIsListedAndReachedByItsOwnWordsWhichAreNoDigits)
{
    const std::string list = commandList();
    std::set<std::pair<uint8_t, uint16_t>> codes;
    std::set<std::string> names;
    for (const CommandRow &row : commandTable()) {
        const std::string name = row.name;
        const Rs232Command record = recordOf(frameFromText(name + valuesFor(row)));
        EXPECT_EQ(record.command, row.command) << name;
        if (row.dat1 != kAnyDat1) {
            EXPECT_EQ(record.dat1, row.dat1) << name;
        }
        EXPECT_TRUE(codes.emplace(row.command, row.dat1).second) << name;
        EXPECT_TRUE(names.emplace(name).second) << name;
        EXPECT_FALSE(std::all_of(name.begin(), name.end(), [](char c) {
            return c == ' ' || isHexDigit(c);
        })) << name;
        EXPECT_NE(list.find(name), std::string::npos) << name;
    }
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'),
              static_cast<ptrdiff_t>(commandTable().size()));
}

const Field &parameterOf(const std::string &name)
{
    return rowOf(recordOf(frameFromText(name)))->parameters[0];
}

TEST(Commands, TellsWhatToTypeForAParameter)
{
    const struct {
        const char *command;
        const char *hint;
        std::vector<std::string> choices;
        const char *usual;
    } rows[] = {
        {"update version", "two hexadecimal digits", {}, "07"},
        {"write serial number 1", "0 to 65535", {}, "0"},
        {"write DHCP on", "on or off", {"on", "off"}, "off"},
        {"write IP address 1.2.3.4", "such as 192.168.0.100", {}, "0.0.0.0"},
        {"write net mask 255.0.0.0", "such as 255.255.255.0", {}, "0.0.0.0"},
    };
    for (const auto &row : rows) {
        const Field &field = parameterOf(row.command);
        EXPECT_EQ(hintOn(field), row.hint) << row.command;
        EXPECT_EQ(choicesOf(field), row.choices) << row.command;
        EXPECT_EQ(usualText(field), row.usual) << row.command;
    }
}

TEST(Commands, AReadingOneIsTheSameWithItsUsualParameters)
{
    for (const CommandRow &row : commandTable()) {
        if (!row.writes) {
            std::string whole = row.name;
            for (const Field &field : row.parameters) {
                whole += " " + usualText(field);
            }
            EXPECT_EQ(frameFromText(whole), frameFromText(row.name)) << row.name;
        }
    }
}

TEST(Commands, TakesEachFormThatItNames)
{
    const std::map<std::string, std::vector<const char *>> texts = {
        {"2 to 10 digits", {"68", "68 01", "68 01 02 03 04"}},
        {"14 digits", {"00 00 68 01 00 00 00"}},
        {"16 digits", {"00 00 68 01 00 00 00 ff"}},
        {"<...>", {"<T0000680100000069>", "<nothing-but-words>"}},
    };
    EXPECT_EQ(commandForms().size(), texts.size());
    for (const auto &[digits, about] : commandForms()) {
        EXPECT_STRNE(about, "");
        for (const char *const text : texts.at(digits)) {
            EXPECT_EQ(frameFromText(text).size(), 19U) << text;
        }
    }
}

TEST(Commands, KnowsTheTypeThatTheDeviceTells)
{
    const Field &type = rowOf(recordOf(frameFromText("read device type")))->answer[0];
    EXPECT_EQ(type.least, 0x2633U);
    EXPECT_EQ(type.most, 0x2633U);
}

TEST(Commands, WritesSerialNumbersInBothWays)
{
    EXPECT_EQ(serialNumberText(0), "0 (0x0000)");
    EXPECT_EQ(serialNumberText(4660), "4660 (0x1234)");
    EXPECT_EQ(serialNumberText(65535), "65535 (0xffff)");
}

} // namespace
