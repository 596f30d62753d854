// The bridge between the control PC and the front board's line, seen from both ends.

#include "tests/system/board.h"

#include <algorithm>

namespace {

class SystemBridge : public RunningDaemon {
protected:
    // Makes a PC known to the daemon.
    void introduce(ControlPc &caller)
    {
        caller.send("hello");
        ASSERT_EQ(front.read(5), "hello");
    }

    // Lets the daemon find these bytes of the front board all at once. Else it finds what the line
    // has brought so far whenever it looks, and the PC gets the beginning of a frame whose end is
    // not there yet. Behind every 256 bytes to the line the main loop rests 80 ms, so it is kept
    // busy with a datagram.
    void writeAtOnce(const std::string &bytes)
    {
        const std::string toLine = patternedBytes(512);
        pc.send(toLine);
        ASSERT_EQ(front.read(256), toLine.substr(0, 256));
        front.write(bytes);
        ASSERT_EQ(front.read(256), toLine.substr(256));
    }

    // The daemon answers before it mirrors: what is mirrored last may find the PC there again.
    void forgetTheRest()
    {
        front.readUntilQuiet();
        pc.readUntilQuiet();
    }

    ControlPc pc;
};

using Sizes = std::vector<size_t>;

// The sizes of the datagrams that bring `count` bytes.
Sizes datagramSizes(ControlPc &pc, size_t count, std::string *bytes)
{
    Sizes sizes;
    while (bytes->size() < count) {
        const auto datagram = pc.receive();
        if (!datagram) {
            break;
        }
        sizes.push_back(datagram->size());
        *bytes += *datagram;
    }
    return sizes;
}

} // namespace

TEST_F(SystemBridge, TellsNobodyAnythingBeforeTheFirstDatagramNorLater)
{
    front.write("old bytes");
    // The second answer comes when the pass that took the old bytes is over.
    for (int i = 0; i < 2; ++i) {
        front.write("<T0000680100000069>");
        EXPECT_EQ(front.read(19), "<F00006801263300c2>");
    }
    EXPECT_EQ(pc.readUntilQuiet(), "");
    introduce(pc);
    EXPECT_EQ(pc.readUntilQuiet(), "");
    front.write("fresh bytes");
    EXPECT_EQ(pc.read(11), "fresh bytes");
}

TEST_F(SystemBridge, CarriesADialogue)
{
    for (int i = 0; i < 20; ++i) {
        const std::string question = "<T" + std::to_string(i) + ">";
        const std::string answer = "<F" + std::to_string(i) + " front board>\r\n";
        pc.send(question);
        EXPECT_EQ(front.read(question.size()), question);
        front.write(answer);
        EXPECT_EQ(pc.read(answer.size()), answer);
    }
}

TEST_F(SystemBridge, KeepsExecutedFramesFromThePc)
{
    introduce(pc);
    writeAtOnce("xx<T0000680100000069>yy<T00006a030000006d><T0000100000000010>zz");
    EXPECT_EQ(front.read(57), "<F00006801263300c2><F00006a03010a0078><F000010ffffffff0c>");
    EXPECT_EQ(pc.read(6), "xxyyzz");
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemBridge, KeepsAFrameWithAWrongEndFromThePcToo)
{
    introduce(pc);
    writeAtOnce("xx<T0000680100000069}yy");
    EXPECT_EQ(front.read(38), "<F000000fffffffffc><F00006801263300c2>");
    EXPECT_EQ(pc.read(4), "xxyy");
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemBridge, ShowsThePcFramesWithAWrongChecksum)
{
    introduce(pc);
    const std::string bytes = "xx<T0000680100000068>yy<T0000680100000067}zz";
    writeAtOnce(bytes);
    EXPECT_EQ(front.read(57), "<F000068ffffffff64><F000068ffffffff64><F000068ffffffff64>");
    EXPECT_EQ(pc.read(bytes.size()), bytes);
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemBridge, BringsDatagramsOfEverySizeToTheLine)
{
    for (const size_t size : Sizes{0, 1, 255, 256, 257, 1152, 1153, 4047, 5000, 0, 1}) {
        const std::string datagram = patternedBytes(size);
        pc.send(datagram);
        // The rest of a larger one is lost.
        const std::string expected = datagram.substr(0, 4047);
        EXPECT_TRUE(front.read(expected.size()) == expected) << size;
    }
    EXPECT_EQ(front.readUntilQuiet(), "");
}

TEST_F(SystemBridge, GivesTheLineABreakBehindEvery256Bytes)
{
    const auto start = std::chrono::steady_clock::now();
    const std::string datagram = patternedBytes(1025);
    pc.send(datagram);
    EXPECT_TRUE(front.read(1025) == datagram);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4 * milliseconds(80));
}

TEST_F(SystemBridge, KeepsTheOrderOfDatagrams)
{
    std::string expected;
    for (size_t i = 0; i < 30; ++i) {
        std::string datagram = std::to_string(i);
        datagram += patternedBytes(i);
        pc.send(datagram);
        expected += datagram;
    }
    EXPECT_EQ(front.read(expected.size()), expected);
    EXPECT_EQ(front.readUntilQuiet(), "");
}

TEST_F(SystemBridge, SendsThePcNoDatagramAbove1152Bytes)
{
    introduce(pc);
    const struct {
        size_t length;
        Sizes datagrams;
    } kCases[] = {{1, {1}}, {1152, {1152}}, {1153, {1152, 1}}, {2305, {1152, 1152, 1}}};
    for (const auto &[length, datagrams] : kCases) {
        const std::string sent = patternedBytes(length);
        writeAtOnce(sent);
        std::string received;
        EXPECT_EQ(datagramSizes(pc, length, &received), datagrams);
        EXPECT_TRUE(received == sent) << length;
    }
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemBridge, CarriesLongStreamsToThePcWithoutLoss)
{
    introduce(pc);
    const std::string sent = patternedBytes(40000);
    // No faster than the line could: the channel holds 4095 bytes.
    for (size_t at = 0; at < sent.size(); at += 2000) {
        front.write(sent.substr(at, 2000));
        std::string received;
        const Sizes sizes = datagramSizes(pc, 2000, &received);
        EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), 1152u);
        EXPECT_TRUE(received == sent.substr(at, 2000)) << at;
    }
}

TEST_F(SystemBridge, DropsWhatOverflowsTheChannelAndSaysSo)
{
    introduce(pc);
    const std::string fromLine = patternedBytes(4095 + 100);
    const std::string toLine = patternedBytes(2048); // keeps the main loop busy for 640 ms
    pc.send(toLine);
    EXPECT_TRUE(front.read(256) == toLine.substr(0, 256));
    front.write(fromLine);
    EXPECT_TRUE(daemon.prints("IsrReceiveBuffer error: type=0x2, port=0x0", 100));
    EXPECT_TRUE(front.read(2048 - 256) == toLine.substr(256));
    EXPECT_TRUE(pc.read(4095) == fromLine.substr(0, 4095));
    EXPECT_EQ(pc.readUntilQuiet().size(), 0u);
    EXPECT_TRUE(daemon.prints("IsrReceiveBuffer error: type=0x2, port=0x0", 100));

    front.write("<T0000680100000069>");
    EXPECT_EQ(front.read(19), "<F00006801263300c2>");
}

TEST_F(SystemBridge, FollowsWhoeverSentTheLatestDatagram)
{
    ControlPc second("192.168.0.11");
    ControlPc otherProgram;
    introduce(pc);
    front.write("one");
    EXPECT_EQ(pc.read(3), "one");
    introduce(second);
    front.write("two");
    EXPECT_EQ(second.read(3), "two");
    introduce(otherProgram);
    front.write("three");
    EXPECT_EQ(otherProgram.read(5), "three");
    introduce(pc);
    front.write("four");
    EXPECT_EQ(pc.read(4), "four");
    EXPECT_EQ(second.readUntilQuiet(), "");
    EXPECT_EQ(otherProgram.readUntilQuiet(), "");
}

TEST_F(SystemBridge, TakesNoNoticeOfEmptyDatagrams)
{
    ControlPc second("192.168.0.11");
    introduce(pc);
    second.send("");
    EXPECT_EQ(second.readUntilQuiet(), "");
    front.write("still yours");
    EXPECT_EQ(pc.read(11), "still yours");
    EXPECT_EQ(second.readUntilQuiet(), "");
}

TEST_F(SystemBridge, ExecutesACommandOfThePcThatTheFrontBoardEchoes)
{
    const std::string frame = "<T0000680100000069>";
    pc.send(frame);
    EXPECT_EQ(front.read(19), frame);
    EXPECT_EQ(front.readUntilQuiet(), "") << "the daemon does not listen to the PC itself";
    front.write(frame);
    EXPECT_EQ(front.read(19), "<F00006801263300c2>");
}

TEST_F(SystemBridge, LivesOnWhileTheNetworkIsUnplugged)
{
    introduce(pc);
    plugNetwork(false);
    for (int i = 0; i < 10; ++i) {
        front.write("lost<T0000680100000069>");
        EXPECT_EQ(front.read(19), "<F00006801263300c2>");
    }
    plugNetwork(true);
    // The network may take a moment.
    std::string arrived;
    for (int tries = 0; tries < 50 && arrived.empty(); ++tries) {
        pc.send("back");
        arrived = front.read(4, milliseconds(200));
    }
    EXPECT_EQ(arrived, "back");
    forgetTheRest();
    front.write("welcome");
    EXPECT_EQ(pc.read(7), "welcome");
}

TEST_F(SystemBridge, LivesOnWhenThePcsProgramEnds)
{
    {
        ControlPc gone;
        introduce(gone);
    }
    for (int i = 0; i < 10; ++i) {
        front.write("lost<T0000680100000069>");
        EXPECT_EQ(front.read(19), "<F00006801263300c2>");
    }
    introduce(pc);
    forgetTheRest();
    front.write("welcome");
    EXPECT_EQ(pc.read(7), "welcome");
}
