// Reading transcripts.

#include "tools/transcript.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/errors.h"

namespace {

std::vector<Step> parse(const std::string &text)
{
    std::istringstream stream(text);
    return parseTranscript(stream, "file");
}

// What is wrong with `text`, or "nothing".
std::string complaintAbout(const std::string &text)
{
    try {
        parse(text);
    } catch (const UsageError &error) {
        return error.what();
    }
    return "nothing";
}

void expectStep(const std::string &line, Step::Kind kind, Step::End end, const std::string &bytes)
{
    const std::vector<Step> steps = parse(line);
    ASSERT_EQ(steps.size(), 1U) << line;
    EXPECT_EQ(steps[0].kind, kind) << line;
    EXPECT_EQ(steps[0].end, end) << line;
    EXPECT_EQ(steps[0].bytes, bytes) << line;
}

TEST(Transcript, KnowsEveryStep)
{
    expectStep("== A title", Step::kTitle, Step::kNoEnd, "A title");
    expectStep("front> abc", Step::kSend, Step::kFront, "abc");
    expectStep("front< abc", Step::kExpect, Step::kFront, "abc");
    expectStep("front=", Step::kNothing, Step::kFront, "");
    expectStep("front*", Step::kDrop, Step::kFront, "");
    expectStep("pc> abc", Step::kSend, Step::kPC, "abc");
    expectStep("pc>", Step::kSend, Step::kPC, "");
    expectStep("pc< abc", Step::kExpect, Step::kPC, "abc");
    expectStep("pc=", Step::kNothing, Step::kPC, "");
    expectStep("pc*", Step::kDrop, Step::kPC, "");
    expectStep("front>> 61 62 63", Step::kSend, Step::kFront, "abc");
    expectStep("front<< 61 62 63", Step::kExpect, Step::kFront, "abc");
    expectStep("pc>> 61", Step::kSend, Step::kPC, "a");
    expectStep("pc<< 61", Step::kExpect, Step::kPC, "a");
    expectStep("log< a line", Step::kLog, Step::kNoEnd, "a line");
    EXPECT_EQ(parse("wait 250")[0].kind, Step::kWait);
    EXPECT_EQ(parse("wait 250")[0].time, Milliseconds{250});
}

TEST(Transcript, CommentsAndBlankLinesDoNotCount)
{
    const std::vector<Step> steps = parse("# a comment\n\n   \nfront> a\n#front> b\npc=\n");
    ASSERT_EQ(steps.size(), 2U);
    EXPECT_EQ(steps[0].line, 4U);
    EXPECT_EQ(steps[1].line, 6U);
    EXPECT_EQ(steps[0].text, "front> a");
}

TEST(Transcript, TextBeginsBehindOneBlankAndEndsBeforeTheLastOnes)
{
    expectStep("front>  two blanks", Step::kSend, Step::kFront, " two blanks");
    expectStep("front> blanks after \t ", Step::kSend, Step::kFront, "blanks after");
    expectStep("front> a blank\\x20", Step::kSend, Step::kFront, "a blank ");
    expectStep("front> # no comment", Step::kSend, Step::kFront, "# no comment");
    expectStep("front> from another system\r\n", Step::kSend, Step::kFront, "from another system");
}

TEST(Transcript, TextHasEscapes)
{
    expectStep("pc< \\x00\\xfF\\r\\n\\\\", Step::kExpect, Step::kPC,
               std::string("\0\xff\r\n\\", 5));
}

TEST(Transcript, BytesInDigitsMayBeRepeated)
{
    expectStep("front>>  00 fF  0d", Step::kSend, Step::kFront, std::string("\0\xff\r", 3));
    expectStep("front>> 01 00*1024 02*2", Step::kSend, Step::kFront,
               "\x01" + std::string(1024, '\0') + "\x02\x02");
    expectStep("front<< 61*1", Step::kExpect, Step::kFront, "a");
}

TEST(Transcript, SaysWhichBytesAreNone)
{
    for (const char *byte : {"0", "0g", "g0", "000", "0001", "00*", "00*x", "00*-1", "00*1*2",
                             "00+2", "*2", "00*65537", "00*99999999999999999999", "\\x00"}) {
        EXPECT_EQ(complaintAbout(std::string("front>> 61 ") + byte),
                  "file:1: \"" + std::string(byte[0] == '\\' ? "\\" : "") + byte +
                      "\" is not a byte such as 0a or 00*16");
    }
    EXPECT_EQ(complaintAbout("front>>"), "file:1: front>> needs something after it");
    EXPECT_EQ(complaintAbout("pc>> "), "file:1: pc>> needs something after it");
}

TEST(Transcript, SaysWhichLineIsNoStep)
{
    EXPECT_EQ(complaintAbout("front> a\nback> b\n"), "file:2: \"back>\" does not begin a step");
    EXPECT_EQ(complaintAbout("\n front> a\n"), "file:2: \"\" does not begin a step");
    EXPECT_EQ(complaintAbout("front>a"), "file:1: \"front>a\" does not begin a step");
    EXPECT_EQ(complaintAbout("front> \\q"),
              "file:1: \"\\q\" is not an escape; the escapes are \\xNN \\r \\n \\\\");
}

TEST(Transcript, SaysWhichLineHasTooLittleOrTooMuch)
{
    EXPECT_EQ(complaintAbout("front>"), "file:1: front> needs something after it");
    EXPECT_EQ(complaintAbout("pc< "), "file:1: pc< needs something after it");
    EXPECT_EQ(complaintAbout("log<"), "file:1: log< needs something after it");
    EXPECT_EQ(complaintAbout("=="), "file:1: == needs something after it");
    EXPECT_EQ(complaintAbout("front= x"), "file:1: front= must be alone on its line");
    EXPECT_EQ(complaintAbout("pc* x"), "file:1: pc* must be alone on its line");
    EXPECT_EQ(complaintAbout("wait"), "file:1: wait needs something after it");
    for (const char *text : {"wait x", "wait 1 s", "wait -1", "wait 1.5", "wait 99999999"}) {
        EXPECT_NE(complaintAbout(text).find("is not a number of milliseconds"), std::string::npos)
            << text;
    }
}

TEST(Transcript, WithoutAStepIsNone)
{
    EXPECT_EQ(complaintAbout("# nothing\n"), "file: it has no steps");
}

} // namespace
