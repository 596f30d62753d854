// The bridge between the control PC and the front board's line, seen from both ends.

#include "tests/system/board.h"

#include <algorithm>
#include <numeric>

namespace {

class SystemBridge : public RunningDaemon {
protected:
    // Makes a PC known to the daemon.
    void introduce(ControlPc &caller)
    {
        caller.send("hello");
        ASSERT_EQ(front.read(5), "hello");
    }

    // Makes the main loop find these bytes of the line all at once; otherwise it takes what has
    // come so far each time it looks. It is held up meanwhile, as the line does not take its
    // answer. Returns when it can go on.
    void writeAtOnce(const std::string &bytes)
    {
        front.hold();
        daemon.forgetLines();
        front.write(kReadDeviceType);
        ASSERT_TRUE(daemon.prints("read device type"));
        pc.readUntilQuiet(); // a part of that frame may have come
        ASSERT_TRUE(daemon.receives(bytes.size(), [&] { front.write(bytes); }));
        front.release();
        EXPECT_EQ(front.read(19), kDeviceType);
    }

    void expectLifeAndNoPc()
    {
        for (int i = 0; i < 10; ++i) {
            expectAnswer("lost" + kReadDeviceType, kDeviceType);
        }
    }

    // The daemon answers before it mirrors: what is mirrored last may find the PC there again.
    void expectWelcome()
    {
        front.write("welcome");
        const auto isHeard = [](const auto &bytes) { return bytes.ends_with("welcome"); };
        EXPECT_PRED1(isHeard, pc.readUntil(isHeard));
    }

    ControlPc pc;
};

using Sizes = std::vector<size_t>;

// The sizes of the datagrams that bring `expected`.
Sizes datagramSizes(ControlPc &pc, const std::string &expected)
{
    Sizes sizes;
    size_t before = 0;
    const std::string bytes = pc.readUntil([&](const auto &all) {
        if (all.size() > before) {
            sizes.push_back(all.size() - std::exchange(before, all.size()));
        }
        return all.size() >= expected.size();
    });
    EXPECT_TRUE(bytes == expected) << expected.size();
    return sizes;
}

} // namespace

TEST_F(SystemBridge, TellsNobodyAnythingBeforeTheFirstDatagramNorLater)
{
    front.write("old bytes");
    // The second answer comes when the pass that took the old bytes is over.
    for (int i = 0; i < 2; ++i) {
        expectLife();
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
    const struct {
        std::string arrives, toFrontBoard, toPc;
    } kRows[] = {
        {"xx<T0000680100000069>yy<T00006a030000006d><T0000100000000010>zz",
         "<F00006801263300c2><F00006a03010a0078><F000010ffffffff0c>", "xxyyzz"},
        // One with a wrong end too, which is refused as the command before: the one of
        // writeAtOnce().
        {"xx<T0000680100000069}yy", "<F000068ffffffff64><F00006801263300c2>", "xxyy"},
        // But not one with a wrong checksum.
        {"xx<T0000680100000068>yy<T0000680100000067}zz",
         "<F000068ffffffff64><F000068ffffffff64><F000068ffffffff64>",
         "xx<T0000680100000068>yy<T0000680100000067}zz"},
    };
    introduce(pc);
    for (const auto &[arrives, toFrontBoard, toPc] : kRows) {
        writeAtOnce(arrives);
        EXPECT_EQ(front.read(toFrontBoard.size()), toFrontBoard);
        EXPECT_EQ(pc.read(toPc.size()), toPc);
        EXPECT_EQ(pc.readUntilQuiet(), "");
    }
}

TEST_F(SystemBridge, BringsDatagramsOfEverySizeToTheLine)
{
    for (const size_t size : Sizes{0, 1, 255, 256, 257, 5000, 0, 1}) {
        const std::string datagram = patternedBytes(size);
        pc.send(datagram);
        // The rest of a larger one is lost.
        const std::string expected = datagram.substr(0, 4047);
        EXPECT_TRUE(front.read(expected.size()) == expected) << size;
    }
    EXPECT_EQ(front.readUntilQuiet(), "");
}

TEST_F(SystemBridge, SendsThePcNoDatagramAbove1152Bytes)
{
    introduce(pc);
    for (const Sizes &sizes : {Sizes{1}, {1152}, {1152, 1}, {1152, 1152, 1}}) {
        const std::string bytes = patternedBytes(std::accumulate(sizes.begin(), sizes.end(), 0u));
        writeAtOnce(bytes);
        EXPECT_EQ(datagramSizes(pc, bytes), sizes);
    }
    EXPECT_EQ(pc.readUntilQuiet(), "");
}

TEST_F(SystemBridge, CarriesLongStreamsToThePcWithoutLoss)
{
    introduce(pc);
    const std::string stream = patternedBytes(40000);
    // No faster than the line could: the channel holds 4095 bytes.
    for (size_t at = 0; at < stream.size(); at += 2000) {
        front.write(stream.substr(at, 2000));
        const Sizes sizes = datagramSizes(pc, stream.substr(at, 2000));
        EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), 1152u);
    }
}

TEST_F(SystemBridge, DropsWhatOverflowsTheChannelAndSaysSo)
{
    introduce(pc);
    const std::string bytes = patternedBytes(4095 + 100);
    writeAtOnce(bytes);
    EXPECT_TRUE(pc.read(4095) == bytes.substr(0, 4095));
    EXPECT_EQ(pc.readUntilQuiet(), "");
    const Lines &lines = daemon.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "IsrReceiveBuffer error: type=0x2, port=0x0"),
              100);
    expectLife();
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
    second.send(""); // which is no datagram to follow
    EXPECT_EQ(second.readUntilQuiet(), "");
    front.write("still yours");
    EXPECT_EQ(pc.read(11), "still yours");
    EXPECT_EQ(second.readUntilQuiet(), "");
    EXPECT_EQ(otherProgram.readUntilQuiet(), "");
}

TEST_F(SystemBridge, ExecutesACommandOfThePcThatTheFrontBoardEchoes)
{
    pc.send(kReadDeviceType);
    EXPECT_EQ(front.read(19), kReadDeviceType);
    EXPECT_EQ(front.readUntilQuiet(), "") << "the daemon does not listen to the PC itself";
    expectLife();
}

TEST_F(SystemBridge, LivesOnWhileTheNetworkIsUnplugged)
{
    introduce(pc);
    plugNetwork(false);
    expectLifeAndNoPc();
    plugNetwork(true);
    // The network may take a moment.
    EXPECT_TRUE(eventually([&] {
        pc.send("back");
        return front.read(4, milliseconds(50)) == "back";
    }));
    expectWelcome();
}

TEST_F(SystemBridge, LivesOnWhenThePcsProgramEnds)
{
    {
        ControlPc gone;
        introduce(gone);
    }
    expectLifeAndNoPc();
    introduce(pc);
    expectWelcome();
}
