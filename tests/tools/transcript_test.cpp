// Reading transcripts.

#include "tools/transcript.h"

#include <sstream>

#include <gtest/gtest.h>

#include "tests/tools/complaint.h"

namespace {

std::vector<Step> parse(const std::string &text)
{
    std::istringstream stream(text);
    return parseTranscript(stream, "file");
}

std::string complaintAbout(const std::string &text)
{
    return complaintOf([&] { parse(text); });
}

// clang-format off
TEST(Transcript, KnowsEveryStep)
{
    const std::string zero(1, '\0');
    const struct {
        const char *text;
        Step::Kind kind;
        Step::End end;
        std::string bytes;
    } rows[] = {
        {"== A title",         Step::kTitle,   Step::kNoEnd, "A title"},
        {"front> abc",         Step::kSend,    Step::kFront, "abc"},
        {"front< abc",         Step::kExpect,  Step::kFront, "abc"},
        {"front=",             Step::kNothing, Step::kFront, ""},
        {"front*",             Step::kDrop,    Step::kFront, ""},
        {"pc> abc",            Step::kSend,    Step::kPC,    "abc"},
        {"pc>",                Step::kSend,    Step::kPC,    ""},
        {"pc< abc",            Step::kExpect,  Step::kPC,    "abc"},
        {"pc=",                Step::kNothing, Step::kPC,    ""},
        {"pc*",                Step::kDrop,    Step::kPC,    ""},
        {"front>> 61 62 63",   Step::kSend,    Step::kFront, "abc"},
        {"front<< 61 62 63",   Step::kExpect,  Step::kFront, "abc"},
        {"pc>> 61",            Step::kSend,    Step::kPC,    "a"},
        {"pc<< 61",            Step::kExpect,  Step::kPC,    "a"},
        {"log< a line",        Step::kLog,     Step::kNoEnd, "a line"},
        {"wait 250",           Step::kWait,    Step::kNoEnd, "250"},
        // Text begins after one blank, ends before the last ones, and has escapes.
        {"front>  two blanks", Step::kSend,    Step::kFront, " two blanks"},
        {"front> blanks after \t ", Step::kSend, Step::kFront, "blanks after"},
        {"front> a blank\\x20", Step::kSend,   Step::kFront, "a blank "},
        {"front> # no comment", Step::kSend,   Step::kFront, "# no comment"},
        {"front> from another system\r\n", Step::kSend, Step::kFront, "from another system"},
        {"pc< \\x00\\xfF\\r\\n\\\\", Step::kExpect, Step::kPC, zero + "\xff\r\n\\"},
        // Bytes in digits may be repeated.
        {"front>>  00 fF  0d", Step::kSend,    Step::kFront, zero + "\xff\r"},
        {"front>> 01 00*1024 02*2", Step::kSend, Step::kFront,
         "\x01" + std::string(1024, '\0') + "\x02\x02"},
        {"front<< 61*1",       Step::kExpect,  Step::kFront, "a"},
    };
    for (const auto &row : rows) {
        const std::vector<Step> steps = parse(row.text);
        ASSERT_EQ(steps.size(), 1U) << row.text;
        EXPECT_EQ(steps[0].kind, row.kind) << row.text;
        EXPECT_EQ(steps[0].end, row.end) << row.text;
        EXPECT_EQ(steps[0].bytes, row.bytes) << row.text;
    }
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

TEST(Transcript, SaysWhichLineIsNoStep)
{
    const struct {
        const char *text;
        std::string complaint;
    } rows[] = {
        {"front>>",   "file:1: front>> needs something after it"},
        {"pc>> ",     "file:1: pc>> needs something after it"},
        {"front>",    "file:1: front> needs something after it"},
        {"pc< ",      "file:1: pc< needs something after it"},
        {"log<",      "file:1: log< needs something after it"},
        {"==",        "file:1: == needs something after it"},
        {"wait",      "file:1: wait needs something after it"},
        {"front= x",  "file:1: front= must be alone on its line"},
        {"pc* x",     "file:1: pc* must be alone on its line"},
        {"front> a\nback> b\n", "file:2: \"back>\" does not begin a step"},
        {"\n front> a\n", "file:2: \"\" does not begin a step"},
        {"front>a",   "file:1: \"front>a\" does not begin a step"},
        {"front> \\q", "file:1: \"\\q\" is not an escape; the escapes are \\xNN \\r \\n \\\\"},
        {"pc<< \\x00", "file:1: \"\\\\x00\" is not a byte such as 0a or 00*16"},
        {"# nothing\n", "file: it has no steps"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(complaintAbout(row.text), row.complaint) << row.text;
    }
    for (const std::string byte : {"0", "0g", "g0", "000", "0001", "00*", "00*x", "00*-1", "00*1*2",
                                   "00+2", "*2", "00*65537", "00*99999999999999999999"}) {
        EXPECT_EQ(complaintAbout("front>> 61 " + byte),
                  "file:1: \"" + byte + "\" is not a byte such as 0a or 00*16");
    }
    for (const std::string time : {"x", "1 s", "-1", "1.5", "99999999"}) {
        EXPECT_EQ(complaintAbout("wait " + time),
                  "file:1: \"" + time + "\" is not a number of milliseconds");
    }
}
// clang-format on

} // namespace
