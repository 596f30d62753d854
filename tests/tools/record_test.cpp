// What a line carries, written as a transcript.

#include "tools/record.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "tests/tools/far_end.h"
#include "tools/errors.h"
#include "tools/transcript.h"

namespace {

constexpr char kFile[] = "/tmp/recorded";

std::string recorded()
{
    std::ifstream file(kFile);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Record, WritesTextAsItIsAndOtherBytesAsDigits)
{
    EXPECT_EQ(stepOf("front", '>', "a b\r\n "), "front> a b\\r\\n\\x20");
    EXPECT_EQ(stepOf("pc", '<', std::string("\0\0\0\x01z", 5)), "pc<< 00*3 01 7a");
    EXPECT_EQ(stepOf("pc", '>', ""), "pc> ");
}

TEST(Record, IsATranscriptOfWhatTheLineHasCarried)
{
    FarEnd far;
    const auto recorder = std::make_shared<Recorder>(kFile, "about", false);
    far.line.setTap([recorder](Passing passing, std::string_view bytes) {
        recorder->take("front", passing, bytes);
    });
    far.arrive("late");
    far.line.discardInput();
    far.line.send("<T0000680100000069>");
    far.arrive("<F00006801263300c2>\x01");
    far.line.receive(Milliseconds{1000});
    EXPECT_EQ(recorded(), "# about\nfront*\nfront> <T0000680100000069>\n"
                          "front< <F00006801263300c2>\nfront<< 01\n");
    std::istringstream stream(recorded());
    EXPECT_EQ(parseTranscript(stream, "it").size(), 4U);
}

TEST(Record, WaitsAsLongAsNothingCame)
{
    Recorder recorder(kFile, "about", false);
    recorder.take("front", Passing::kSent, "a");
    std::this_thread::sleep_for(kQuiet);
    recorder.take("front", Passing::kSent, "b");
    EXPECT_NE(recorded().find("front> a\nwait 1"), std::string::npos);
}

TEST(Record, SaysThatTheFileCannotBeWritten)
{
    EXPECT_THROW(Recorder("/nowhere/file", "about", false), LocalError);
    EXPECT_THROW(Recorder("/dev/full", "about", false), LocalError);
}

} // namespace
