// Commands of the front board and the daemon's answers, character by character.

#include "tests/system/board.h"

#include <algorithm>

namespace {

class SystemCommand : public RunningDaemon {
protected:
    // What the daemon says after its start.
    Lines news()
    {
        const Lines &all = daemon.lines();
        const auto from =
            std::find(all.begin(), all.end(), "getFreeChannel from=0, type=2, port=0");
        return {from == all.end() ? from : from + 1, all.end()};
    }

    // To be called last, when a further answer would show.
    void TearDown() override
    {
        EXPECT_EQ(front.readUntilQuiet(), "");
    }
};

} // namespace

TEST_F(SystemCommand, AnswersAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name, *asked, *answered;
    } kRows[] = {
        {"device type",        "<T0000680100000069>",         "<F00006801263300c2>"},
        {"protocol version",   "<T00006a030000006d>",         "<F00006a03010a0078>"},
        {"acknowledgement",    "<T010210110102032a>",         "<F010210110102032a>"},
        {"unknown",            "<T0102101200000025>",         "<F010210ffffffff0f>"},
        {"address and tag",    "<T01026a0300000070>",         "<F01026a03010a007b>"},
        {"high address",       "<Tff00680100000068>",         "<Fff006801263300c1>"},
        {"parameters unread",  "<T7fff6a0312345687>",         "<F7fff6a03010a00f6>"},
        {"begins anew",        "<T00006801<T0000680100000069>", "<F00006801263300c2>"},
        {"begins at once",     "<<T0000680100000069>",        "<F00006801263300c2>"},
        {"begins three times", "<<T<T<T0000680100000069>",    "<F00006801263300c2>"},
        {"upper case",         "<TABCD6A03000000E5>",         "<Fabcd6a03010a00f0>"},
        {"mixed case",         "<TaBcD6A03000000e5>",         "<Fabcd6a03010a00f0>"},
        {"wrong digits are 0", "<T0g:068010-zz~069>",         "<F00006801263300c2>"},
    };
    // clang-format on
    for (const auto &[name, asked, answered] : kRows) {
        SCOPED_TRACE(name);
        expectAnswer(asked, answered);
    }
}

TEST_F(SystemCommand, ExecutesEveryFrameOfABurst)
{
    expectAnswer("<T0000680100000069><T00016a030000006e>",
                 "<F00006801263300c2><F00016a03010a0079>");
    std::string commands;
    std::string replies;
    for (uint8_t tag = 0; tag < 200; ++tag) {
        commands += command({0, tag, 0x6A, 0x03, 0, 0, 0});
        replies += reply({0, tag, 0x6A, 0x03, 1, 10, 0});
    }
    expectAnswer(commands, replies);
}

// The PC shows when a character has been taken: it gets them as long as the frame is not complete.
TEST_F(SystemCommand, PutsAFrameTogetherThatComesCharacterByCharacter)
{
    ControlPc pc;
    pc.send("?");
    EXPECT_EQ(front.read(1), "?");
    for (size_t i = 0; i < 18; ++i) {
        front.write(kReadDeviceType.substr(i, 1));
        EXPECT_EQ(pc.receive(), kReadDeviceType.substr(i, 1));
    }
    expectAnswer(">", kDeviceType);
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemCommand, PassesOverWhatIsNoFrame)
{
    expectAnswer("xx<T0000680100000069>yy", "<F00006801263300c2>");
    expectAnswer("T0000680100000069><F0000680100000069><t0000680100000069>\r\n"
                 "<T0000680100000069>\r\n",
                 "<F00006801263300c2>");
    expectAnswer(std::string(3, '\0') + "\xFF\x03\x11\x13\x7F<T0000680100000069>",
                 "<F00006801263300c2>");
    EXPECT_EQ(news(), Lines(3, "read device type"));
}

TEST_F(SystemCommand, RefusesAWrongEndAndExecutesTheFrameAllTheSame)
{
    // Refused before it is decoded, so with the address, tag and command of the one before: none.
    expectAnswer("<T0000680100000069}", "<F000000fffffffffc><F00006801263300c2>");
    EXPECT_TRUE(daemon.prints("read device type"));
    EXPECT_EQ(news(), (Lines{"error end:<T0000680100000069}\r", "read device type"}));

    expectAnswer("<T01026a0300000070>", "<F01026a03010a007b>");
    expectAnswer("<T0000680100000069 ", "<F01026affffffff69><F00006801263300c2>");
}

TEST_F(SystemCommand, RefusesAWrongChecksumAndDoesNotExecuteTheFrame)
{
    expectAnswer("<T0000680100000068>", "<F000068ffffffff64>");
    EXPECT_TRUE(daemon.prints("error checksum:<T0000680100000068>:19\r"));
    EXPECT_EQ(news(), (Lines{"checksum=105\r", "error checksum:<T0000680100000068>:19\r"}));

    expectAnswer("<T0102680100000069><T00016a030000006e>",
                 "<F010268ffffffff67><F00016a03010a0079>");
}
