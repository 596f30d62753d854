// Finding frames in a stream of bytes.

#include "tools/frames.h"

#include <gtest/gtest.h>

namespace {

constexpr char kCommand[] = "<T0000680100000069>";
constexpr char kReply[] = "<F00006801263300c2>";

std::string textOf(const std::vector<Piece> &pieces)
{
    std::string text;
    for (const Piece &piece : pieces) {
        text += (piece.isFrame ? "[" : "{") + piece.text + (piece.isFrame ? "]" : "}");
    }
    return text;
}

// The pieces of `parts`, fed one after the other: frames in brackets, other bytes in braces.
std::string found(const std::vector<std::string> &parts)
{
    FrameFinder finder;
    std::string text;
    for (const std::string &part : parts) {
        text += textOf(finder.feed(part));
    }
    text += textOf(finder.flush());
    EXPECT_FALSE(finder.holdsBack());
    return text;
}

TEST(Frames, FindsFramesAndTheBytesBetweenThem)
{
    const std::string command = kCommand;
    const std::string reply = kReply;
    const struct {
        std::string text;
        std::string pieces;
    } rows[] = {
        {command, "[" + command + "]"},
        {reply, "[" + reply + "]"},
        {"<T00AB6A0300000018>", "[<T00AB6A0300000018>]"},
        {"<T0000680100000000>", "[<T0000680100000000>]"}, // a wrong checksum
        {command + reply + command, "[" + command + "][" + reply + "][" + command + "]"},
        {"<T00006801" + command, "{<T00006801}[" + command + "]"}, // a "<" begins anew
        {"<<T" + command, "{<<T}[" + command + "]"},
        {"", ""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(found({row.text}), row.pieces) << row.text;
    }
    for (const std::string text : {"<X0000680100000069>",  // another header
                                   "<T000068010000069>",   // a digit too few
                                   "<T00006801000000690>", // a digit too many
                                   "<T0000680100000069}",  // another end
                                   "<T00006801000000x9>",  // no digit
                                   "<T0000", "<", ">"}) {
        EXPECT_EQ(found({text}), "{" + text + "}");
        EXPECT_FALSE(isFrame(text)) << text;
    }
    EXPECT_FALSE(isFrame(""));
    EXPECT_TRUE(isFrame(kCommand));
}

TEST(Frames, FindsThemSplitAtEveryPlace)
{
    const std::string text = std::string("ab<") + kCommand + "cd" + kReply + "\n";
    const std::string expected = std::string("{ab<}[") + kCommand + "]{cd}[" + kReply + "]{\n}";
    for (size_t first = 0; first <= text.size(); ++first) {
        for (size_t second = first; second <= text.size(); ++second) {
            EXPECT_EQ(found({text.substr(0, first), text.substr(first, second - first),
                             text.substr(second)}),
                      expected)
                << first << " " << second;
        }
    }
}

TEST(Frames, HandsOutAFrameWithItsLastCharacterAndOtherBytesByTheLine)
{
    FrameFinder finder;
    const std::string_view text = kCommand;
    EXPECT_EQ(textOf(finder.feed(text.substr(0, 18))), "");
    EXPECT_TRUE(finder.holdsBack());
    EXPECT_EQ(textOf(finder.feed(text.substr(18))), std::string("[") + kCommand + "]");
    EXPECT_FALSE(finder.holdsBack());
    EXPECT_EQ(textOf(finder.feed("one")), "");
    EXPECT_EQ(textOf(finder.feed(" line\nand")), "{one line\n}");
    EXPECT_TRUE(finder.holdsBack());
}

TEST(Frames, NeverHoldsBackLongLines)
{
    FrameFinder finder;
    EXPECT_GT(textOf(finder.feed(std::string(10000, 'x'))).size(), 9000U);
}

TEST(Frames, KnowsTheReplyToACommand)
{
    const Rs232Command command = recordOf("<T000568010000006e>");
    EXPECT_TRUE(isReplyTo(command, "<F00056801263300c7>"));
    EXPECT_TRUE(isReplyTo(command, "<F000568ffffffff69>"));
    EXPECT_FALSE(isReplyTo(command, "<T000568010000006e>")) << "a command";
    EXPECT_FALSE(isReplyTo(command, "<F00066801263300c8>")) << "another tag";
    EXPECT_FALSE(isReplyTo(command, "<F01056801263300c8>")) << "another address";
    EXPECT_FALSE(isReplyTo(command, "<F00056a03010a007d>")) << "another command";
    EXPECT_FALSE(isReplyTo(command, "<F00056801263300c6>")) << "a wrong checksum";
}

TEST(Frames, ARefusalIsFourTimesFF)
{
    EXPECT_TRUE(isRefusal(recordOf("<F000568ffffffff69>")));
    EXPECT_FALSE(isRefusal(recordOf("<F000568fffffffe68>")));
    EXPECT_FALSE(isRefusal(recordOf(kReply)));
}

} // namespace
