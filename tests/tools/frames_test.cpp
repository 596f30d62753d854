// Finding frames in a stream of bytes.

#include "tools/frames.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr char kCommand[] = "<T0000680100000069>";
constexpr char kReply[] = "<F00006801263300c2>";

// The pieces of `parts`, fed one after the other: frames in brackets, other bytes in braces.
std::string found(const std::vector<std::string> &parts)
{
    FrameFinder finder;
    std::vector<Piece> pieces;
    for (const std::string &part : parts) {
        const std::vector<Piece> more = finder.feed(part);
        pieces.insert(pieces.end(), more.begin(), more.end());
    }
    const std::vector<Piece> rest = finder.flush();
    pieces.insert(pieces.end(), rest.begin(), rest.end());
    EXPECT_FALSE(finder.holdsBack());
    std::string text;
    for (const Piece &piece : pieces) {
        text += (piece.isFrame ? "[" : "{") + piece.text + (piece.isFrame ? "]" : "}");
    }
    return text;
}

std::string frame(const std::string &text)
{
    return "[" + text + "]";
}

TEST(Frames, FindsAWholeFrame)
{
    EXPECT_EQ(found({kCommand}), frame(kCommand));
    EXPECT_EQ(found({kReply}), frame(kReply));
    EXPECT_EQ(found({"<T00AB6A0300000018>"}), "[<T00AB6A0300000018>]");
    EXPECT_EQ(found({"<T0000680100000000>"}), "[<T0000680100000000>]"); // a wrong checksum
}

TEST(Frames, FindsItSplitAtEveryPlace)
{
    const std::string text = std::string("ab<") + kCommand + "cd" + kReply + "\n";
    const std::string expected = "{ab<}" + frame(kCommand) + "{cd}" + frame(kReply) + "{\n}";
    for (size_t first = 0; first <= text.size(); ++first) {
        for (size_t second = first; second <= text.size(); ++second) {
            EXPECT_EQ(found({text.substr(0, first), text.substr(first, second - first),
                             text.substr(second)}),
                      expected)
                << first << " " << second;
        }
    }
}

TEST(Frames, FindsJoinedFrames)
{
    EXPECT_EQ(found({std::string(kCommand) + kReply + kCommand}),
              frame(kCommand) + frame(kReply) + frame(kCommand));
}

TEST(Frames, HandsAFrameOutWithItsLastCharacter)
{
    FrameFinder finder;
    const std::string_view text = kCommand;
    EXPECT_TRUE(finder.feed(text.substr(0, 18)).empty());
    EXPECT_TRUE(finder.holdsBack());
    ASSERT_EQ(finder.feed(text.substr(18)).size(), 1U);
    EXPECT_FALSE(finder.holdsBack());
}

TEST(Frames, BytesBetweenFramesComeByTheLine)
{
    FrameFinder finder;
    EXPECT_TRUE(finder.feed("one").empty());
    const std::vector<Piece> pieces = finder.feed(" line\nand");
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].text, "one line\n");
    EXPECT_FALSE(pieces[0].isFrame);
    EXPECT_TRUE(finder.holdsBack());
}

TEST(Frames, NeverHoldsBackLongLines)
{
    FrameFinder finder;
    size_t handedOut = 0;
    for (const Piece &piece : finder.feed(std::string(10000, 'x'))) {
        handedOut += piece.text.size();
    }
    EXPECT_GT(handedOut, 9000U);
}

TEST(Frames, ALessThanBeginsAnew)
{
    EXPECT_EQ(found({std::string("<T00006801") + kCommand}), "{<T00006801}" + frame(kCommand));
    EXPECT_EQ(found({std::string("<<T") + kCommand}), "{<<T}" + frame(kCommand));
}

TEST(Frames, WhatIsNoFrameIsBytes)
{
    for (const char *text : {"<X0000680100000069>",  // another header
                             "<T000068010000069>",   // a digit too few
                             "<T00006801000000690>", // a digit too many
                             "<T0000680100000069}",  // another end
                             "<T00006801000000x9>",  // no digit
                             "<T0000", "<", ">", ""}) {
        EXPECT_EQ(found({text}), *text == '\0' ? "" : "{" + std::string(text) + "}");
        EXPECT_FALSE(isFrame(text)) << text;
    }
    EXPECT_TRUE(isFrame(kCommand));
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
