// Commands 0xF0 to 0xF3, the hooks that they call, and the file test that shares their buffer.

#include "command/setting.h"

#include <cstdarg>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "command/file_selftest.h"
#include "tests/support/arrival.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/replace.h"

namespace {

using Journal = std::vector<std::string>;

Journal journal; // every call of a hook or of the network record's operations

void note(const std::string &call)
{
    journal.push_back(call + (sent.empty() ? "" : " after the reply"));
}

void noteHook(std::string hook, uint8_t dat2, const std::string &text, int32_t last)
{
    note(hook + " " + std::to_string(dat2) + " " + text + " " + std::to_string(last));
}

std::string appended; // by the hooks that tell values

} // namespace

// The module's source is part of this file. Its hooks get other names where they are defined, but
// not in its table, which therefore leads to these ones.
// clang-format off
#define WRITES(hook, name) \
    void hook(uint8_t dat2, SplitState *item, uint8_t same) \
    { noteHook(name, dat2, item->key + ("=" + std::to_string(item->value)), same); }
#define READS(hook, name) \
    void hook(uint8_t dat2, char *out, int32_t zero) \
    { noteHook(name, dat2, out, zero); std::strcat(out, appended.c_str()); }
WRITES(processLayerProperty, "layer")
WRITES(processInputProperty, "input")
WRITES(processTakeProperty, "take")
WRITES(processBlackscreenProperty, "black")
READS(processLayerPropertyValueToString, "layer")
READS(processInputPropertyValueToString, "input")
READS(processBlackscreenValueToString, "black")
#define processLayerProperty(...)              static emptyLayerProperty(__VA_ARGS__)
#define processInputProperty(...)              static emptyInputProperty(__VA_ARGS__)
#define processTakeProperty(...)               static emptyTakeProperty(__VA_ARGS__)
#define processBlackscreenProperty(...)        static emptyBlackscreenProperty(__VA_ARGS__)
#define processLayerPropertyValueToString(...) static emptyLayerPropertyValueToString(__VA_ARGS__)
#define processInputPropertyValueToString(...) static emptyInputPropertyValueToString(__VA_ARGS__)
#define processBlackscreenValueToString(...)   static emptyBlackscreenValueToString(__VA_ARGS__)
// clang-format on
#include "command/setting.cpp"

namespace {

std::string network; // what Command_Read_Network() finds of the record, its first bytes

// What the system's file operations do to the test file.
bool isReadingRefused;
size_t writesAtMost = SIZE_MAX;
std::function<void(uint8_t *bytes, size_t *count)> afterReading;

} // namespace

// Command_Config_Network() and Command_Read_Network().
REPLACE(void, _Z22Command_Config_NetworkPK13NetworkRecord, (const NetworkRecord *record))
{
    note("config " + hex(reinterpret_cast<const uint8_t *>(record), sizeof *record));
}

REPLACE(void, _Z20Command_Read_NetworkP13NetworkRecord, (NetworkRecord * record))
{
    note("read");
    std::memcpy(record, network.data(), network.size());
}

REPLACE(int, open64, (const char *path, int flags, ...))
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (isReadingRefused && path == std::string_view("/userdata/test.bin") &&
        (flags & O_ACCMODE) == O_RDONLY) {
        errno = EIO;
        return -1;
    }
    return REAL(open64)(path, flags, mode);
}

REPLACE(size_t, fwrite, (const void *bytes, size_t size, size_t count, std::FILE *file))
{
    return REAL(fwrite)(bytes, size, bytes == buffer ? std::min(count, writesAtMost) : count, file);
}

REPLACE(size_t, fread, (void *bytes, size_t size, size_t count, std::FILE *file))
{
    size_t done = REAL(fread)(bytes, size, count, file);
    if (afterReading && bytes == buffer) {
        afterReading(static_cast<uint8_t *>(bytes), &done);
    }
    return done;
}

namespace {

// Leaves no zeros where the variables of the next function called will be.
[[gnu::noinline]] void dirtyStack()
{
    volatile uint8_t bytes[2000];
    std::fill(std::begin(bytes), std::end(bytes), uint8_t{0xEE});
}

class Setting : public testing::Test {
protected:
    Setting()
    {
        fakeClock.setMs(1000);
        openLine();
        std::memset(buffer, 0xEE, sizeof buffer);
        mkdir("/userdata", 0755);
    }
};

// What the command prints and sends.
std::string execute(const Parameters &parameters)
{
    constexpr void (*kCommands[])() = {writeDataSetting, readDataSetting, writeStringValueSetting,
                                       readStringValueSetting};
    request(parameters);
    sent.clear();
    journal.clear();
    return transcriptOf([&] {
        dirtyStack();
        kCommands[parameters[2] - 0xF0]();
    });
}

std::string line(const std::string &frame)
{
    return "> " + frame + "\n";
}

enum Answer { kAcks, kNaks, kSilent };

std::string answerTo(const Parameters &parameters, Answer answer)
{
    const std::string frame = answer == kAcks ? replyFrame(parameters) : refusal(parameters);
    return answer == kSilent ? "" : line(frame);
}

// A command whose payload arrives, its answer and what comes before that.
struct Row {
    const char *name;
    Parameters parameters;
    Arrivals arrivals;
    Answer answer;
    Journal calls;
    size_t sleeps = 0;
    std::string left = "", prints = "";
};

void expectRow(const Row &row)
{
    SCOPED_TRACE(testing::Message() << row.name << ": " << hex(row.parameters.data(), 7));
    arrive(row.arrivals);
    const std::string begin = row.parameters[2] == 0xF0 ? "writeDataSetting\n" : "";
    EXPECT_EQ(execute(row.parameters), begin + row.prints + answerTo(row.parameters, row.answer));
    EXPECT_EQ(journal, row.calls);
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(row.sleeps, 2000));
    EXPECT_EQ(waiting(), row.left);
    takeAll();
}

// 0xF0, write data -------------------------------------------------------------------------------

// Command 0xF0 for `dat1` with a length word of `announced`.
Parameters data(uint32_t dat1, uint32_t announced)
{
    return numbered({0x5A, 0xC3, 0xF0, static_cast<uint8_t>(dat1), 7}, announced);
}

std::string content(size_t length)
{
    return countingBytes(length, 251);
}

const Journal kConfigured = {"config 000102030405060708090a0b0c0d0e0f1011"}; // content(18)

constexpr char kTooLong[] = "len > sizeof(buffer): 4097 > 4096\n";
constexpr char kTooLongByFar[] = "len > sizeof(buffer): 65534 > 4096\n";
constexpr char kMissing[] = "writeDataSetting receiveBufferFromPC error\n";
constexpr char kWrongSum[] = "re checksum error\r\nwriteDataSetting receiveBufferFromPC error\n";

// clang-format off
TEST_F(Setting, WritesOrRefusesABlock)
{
    const std::string block = withChecksum(content(18));
    const std::string wrong = "x" + block.substr(1);
    const Arrivals left = {{0, "left"}};
    const Row rows[] = {
        {"a record", data(0x20, 19), {{0, block + "z"}}, kAcks, kConfigured, 0, "z"},
        {"one byte too many",        data(0x20, 4098), left, kNaks, {}, 0, "left", kTooLong},
        {"the most",                 data(0x20, 65535), left, kNaks, {}, 0, "left", kTooLongByFar},
        {"too many for no record",   data(0x21, 4098), left, kNaks, {}, 0, "left", kTooLong},
        {"nothing at all",           data(0x20, 0), left, kSilent, {}, 0, "left"},
        {"a checksum of nothing",    data(0x20, 1), left, kSilent, {}, 0, "left"},
        {"nothing for no record",    data(0x21, 0), left, kNaks, {}, 0, "left"},
        {"a checksum for no record", data(0x21, 1), left, kNaks, {}, 0, "left"},
        {"a record of one byte",     data(0x20, 2), {{0, withChecksum(content(1))}}, kSilent, {}},
        {"a record of 16 bytes",     data(0x20, 17), {{0, withChecksum(content(16))}}, kSilent, {}},
        {"a record of 17 bytes",     data(0x20, 18), {{0, withChecksum(content(17))}}, kSilent, {}},
        {"17 bytes, a wrong sum", data(0x20, 18), {{0, content(18)}}, kNaks, {}, 0, "", kWrongSum},
        {"a wrong sum",    data(0x20, 19), {{0, wrong + "z"}}, kNaks, {}, 0, "z", kWrongSum},
        {"nothing comes",  data(0x20, 19), {}, kNaks, {}, 5002, "", kMissing},
        {"17 bytes come",  data(0x20, 19), {{0, content(17)}}, kNaks, {}, 5002, "", kMissing},
        // A block that lacks only its checksum counts as whole.
        {"18 bytes come",  data(0x20, 19), {{0, content(18)}}, kAcks, kConfigured, 5002},
    };
    for (const Row &row : rows) {
        expectRow(row);
    }
}
// clang-format on

TEST_F(Setting, TakesOnlyTheRecordOfABlockUpToTheBuffersSize)
{
    for (const uint32_t length : {19u, 20u, 255u, 256u, 300u, 3999u, 4095u, 4096u}) {
        const Arrivals arrivals = perSleep(4000, withChecksum(content(length)), 0);
        const size_t sleeps = length < 4000 ? 0 : 1;
        expectRow({"long", data(0x20, length + 1), arrivals, kAcks, kConfigured, sleeps});
        EXPECT_EQ(std::memcmp(buffer, content(length).data(), length), 0) << length;
    }
}

TEST_F(Setting, ReadsTheBlockOfAnythingElseAndRefuses)
{
    for (uint32_t dat1 = 0; dat1 < 256; ++dat1) {
        if (dat1 != 0x20) {
            expectRow({"", data(dat1, 19), {{0, withChecksum(content(18))}}, kNaks, {}});
        }
    }
}

TEST_F(Setting, SendsTheNetworkRecordAfterTheReplyWithZerosForWhatIsUnknown)
{
    const std::string part("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00", 8);          // 4c9
    const std::string rest("\xC0\xA8\x00\x01\x02\x76\x65\x73\x6B\x01", 10); // 325
    const std::map<std::string, std::string> rows = {
        {part + rest, part + rest + "\xEE"},
        {part, part + std::string(10, '\0') + "\xC9"},
        {"", std::string(19, '\0')},
    };
    arrive("[payload]");
    for (const auto &[found, sends] : rows) {
        SCOPED_TRACE(hex(found));
        network = found;
        EXPECT_EQ(execute({1, 2, 0xF1, 0x20, 7, 8, 9}),
                  line(replyFrame({1, 2, 0xF1, 0x20, 7, 19, 0})) + line(sends));
        EXPECT_EQ(journal, Journal{"read"}); // before the reply
    }
    EXPECT_EQ(waiting(), "[payload]"); // it is for no reading command
}

TEST_F(Setting, RefusesToReadAnythingElse)
{
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        if (dat1 != 0x20) {
            const Parameters asked = {1, 2, 0xF1, static_cast<uint8_t>(dat1), 7, 19, 0};
            EXPECT_EQ(execute(asked), answerTo(asked, kNaks)) << dat1;
            EXPECT_EQ(journal, Journal()) << dat1;
        }
    }
}

// 0xF2, write text -------------------------------------------------------------------------------

Parameters text(uint8_t command, uint32_t dat1)
{
    return {0x5A, 0xC3, command, static_cast<uint8_t>(dat1), 7, 0x11, 0x22};
}

// clang-format off
TEST_F(Setting, HandsEachItemOfATextToTheHook)
{
    const Parameters input = text(0xF2, 0x09);
    const Parameters none = text(0xF2, 0x0A);
    const std::string one = "input 7 a=1 7";
    const Journal both = {one, "input 7 b=2 7"};
    const std::string zero(1, '\0');
    const Row rows[] = {
        {"two items",              input, {{0, "[ a=1,b=2 ]next"}}, kAcks, both, 0, "next"},
        {"no number at first",     input, {{0, "[a=x,b=2]"}}, kAcks, {}},
        {"no number later",        input, {{0, "[a=1,b=x,c=3]"}}, kAcks, {one}},
        {"nothing in it",          text(0xF2, 0x00), {{0, "[]"}}, kAcks, {}},
        // One character is lost.
        {"no bracket",             input, {{0, "a=1]"}}, kNaks, {}, 0, "=1]"},
        {"nothing comes",          input, {}, kNaks, {}, 502},
        {"never closed",           input, {{0, "[a=1,b=23"}}, kAcks, both, 502},
        {"for no hook",            none, {{0, "[old=1]"}}, kNaks, {}}, // not even taken apart
        // Nothing of the text before it.
        {"a bracket only",         input, {{0, "["}}, kAcks, {}, 502},
        {"a bracket for no hook",  none, {{0, "["}}, kNaks, {}, 502},
        {"the rest is late",       input, {{0, "[a="}, {100, "1]"}}, kAcks, {one}, 100},
        {"a zero byte ends it",    input, {{0, "[a=1," + zero + "b=2]"}}, kAcks, {one}},
        {"above ASCII",            input, {{0, "[\xE4\xFF=1]"}}, kAcks, {"input 7 \xE4\xFF=1 7"}},
    };
    for (const Row &row : rows) {
        expectRow(row);
    }
}
// clang-format on

// A text of `length` characters, brackets included: blanks, and items of four characters each.
std::string longText(size_t length)
{
    const size_t items = (length - 1) / 4; // without the comma of the last
    std::string payload = "[" + std::string(length - 1 - 4 * items, ' ');
    for (size_t i = 0; i < items; ++i) {
        payload += "k=" + std::to_string(i % 10) + ",";
    }
    payload.back() = ']';
    return payload;
}

Journal itemCalls(size_t count)
{
    Journal calls;
    for (size_t i = 0; i < count; ++i) {
        calls.push_back("input 7 k=" + std::to_string(i % 10) + " 7");
    }
    return calls;
}

TEST_F(Setting, TakesALongTextUpToTheBuffersEnd)
{
    const auto expectText = [](const std::string &bytes, size_t items, size_t sleeps,
                               const std::string &left = "") {
        const Arrivals arrivals = perSleep(4000, bytes + left, 0);
        expectRow({"long", text(0xF2, 9), arrivals, kAcks, itemCalls(items), sleeps, left});
    };
    for (const size_t length : {4095u, 4096u, 4097u}) {
        expectText(longText(length), (length - 1) / 4, 1);
    }
    // Three blanks after the bracket: item i ends in character 6 + 4 i, the last one is 4095.
    expectText(longText(5000), 1023, 1, "next");
    expectText(longText(5000).substr(0, 4999), 1023, 502); // never closed
}

const std::map<uint32_t, std::string> kHooks = {
    {0x00, "layer"}, {0x09, "input"}, {0x38, "take"}, {0x39, "black"}};

TEST_F(Setting, SelectsTheWritingHookByDat1)
{
    for (uint32_t dat1 = 0; dat1 < 256; ++dat1) {
        const bool isKnown = kHooks.contains(dat1);
        const Journal calls = isKnown ? Journal{kHooks.at(dat1) + " 7 k=-5 7"} : Journal{};
        expectRow({"", text(0xF2, dat1), {{0, "[k=-5]"}}, isKnown ? kAcks : kNaks, calls});
    }
}

TEST_F(Setting, SelectsTheReadingHookByDat1ButNoneForTake)
{
    for (uint32_t dat1 = 0; dat1 < 256; ++dat1) {
        SCOPED_TRACE(dat1);
        const bool isKnown = kHooks.contains(dat1) && dat1 != 0x38;
        const Parameters asked = text(0xF3, dat1);
        const std::string known = line(replyFrame(numbered(asked, 0))) + line("[]");
        EXPECT_EQ(execute(asked), isKnown ? known : answerTo(asked, kNaks));
        EXPECT_EQ(journal, isKnown ? Journal{kHooks.at(dat1) + " 7 [ 0"} : Journal{});
    }
}

TEST_F(Setting, SendsTheTextAfterTheReplyAndReportsOneOf4096Characters)
{
    const char *const error = "error: readStringValueSetting buffer len = 4096\r\n";
    const std::string many(4093, 'x');
    const struct {
        std::string appended, prints, sends; // without a closing zero
    } rows[] = {{"a=1,b=2", "", "[a=1,b=2]"},
                {"", "", "[]"}, // each text begins anew
                {many, "", "[" + many + "]"},
                {many + "y", error, "[" + many + "y]"},
                {many + "yz", error, "[" + many + "yz"}}; // no room for the closing bracket
    arrive("[payload]");
    for (const auto &row : rows) {
        appended = row.appended;
        EXPECT_EQ(execute(text(0xF3, 0x09)),
                  row.prints + line(replyFrame({0x5A, 0xC3, 0xF3, 9, 7, 0, 0})) + line(row.sends));
    }
    EXPECT_EQ(waiting(), "[payload]");
}

TEST_F(Setting, ReturnsTheHookThatItCalls)
{
    char items[] = "a=1,b=2";
    static std::vector<const char *> rests;
    const auto noteRest = [](uint8_t, SplitState *item, uint8_t) { rests.push_back(item->rest); };
    processInputStr(3, items, noteRest);
    EXPECT_EQ(rests, (std::vector<const char *>{items + 2, items + 6}));
    char others[] = "a=1,b=2";
    processInputStr(0, others, nullptr);
    EXPECT_EQ(processStrValue(0x0A, 0, others), nullptr);
    EXPECT_STREQ(others, "a=1,b=2");
    EXPECT_EQ(processStrValue(0x09, 200, others), &processInputProperty);
    EXPECT_EQ(journal, (Journal{"input 200 a=1 200", "input 200 b=2 200"}));

    char out[kBufferSize + 1] = "stale";
    EXPECT_EQ(processValueToString(0x38, 9, out), nullptr);
    EXPECT_STREQ(out, "[]");
    EXPECT_EQ(processValueToString(0x00, 9, out), &processLayerPropertyValueToString);
    EXPECT_EQ(journal.back(), "layer 9 [ 0");
    EXPECT_EQ(journal.size(), 3u);
}

TEST_F(Setting, HasHooksThatDoNothing)
{
    char key[] = "a";
    SplitState item = {key, key, 1};
    char out[] = "[\0stale";
    EXPECT_EQ(transcriptOf([&] {
                  emptyLayerProperty(1, &item, 1);
                  emptyInputProperty(1, &item, 1);
                  emptyTakeProperty(1, &item, 1);
                  emptyBlackscreenProperty(1, &item, 1);
                  emptyLayerPropertyValueToString(1, out, 0);
                  emptyInputPropertyValueToString(1, out, 0);
                  emptyBlackscreenValueToString(1, out, 0);
                  processTakeFunc();
              }),
              "");
    EXPECT_TRUE(item.key == key && item.rest == key && item.value == 1);
    EXPECT_STREQ(key, "a");
    EXPECT_STREQ(out, "[");
}

TEST_F(Setting, ReadsThePayloadAfterTheFrameAndMirrorsNothingOfIt)
{
    const auto write = [](uint32_t announced) {
        return commandFrame(numbered({0, 0, 0xF0, 0x20}, announced));
    };
    const auto written = [](uint8_t announced) {
        return "writeDataSetting\n" + line(replyFrame({0, 0, 0xF0, 0x20, 0, announced, 0}));
    };
    const std::string writeText = commandFrame({0, 0, 0xF2, 9, 0, 0, 0});
    const std::string textDone = line(replyFrame({0, 0, 0xF2, 9, 0, 0, 0}));
    const std::string version = commandFrame({0, 0, 0x6A, 3, 0, 0, 0});
    const std::string versionDone = line(replyFrame({0, 0, 0x6A, 3, 1, 10, 0}));
    const struct {
        const char *name;
        std::string arrives, transcript, mirrored;
    } rows[] = {
        {"between frames",
         "x" + write(19) + withChecksum(content(18)) + "y" + writeText + "[a=1]z" + version,
         written(19) + textDone + versionDone, "xyz"},
        {"a frame within a payload is not executed",
         write(20) + withChecksum(version) + writeText + "[" + version + "]",
         written(20) + textDone, "xyz"},
        {"a refused payload is ordinary input", write(4098) + "ab" + version,
         "writeDataSetting\n" + (kTooLong + line(refusal({0, 0, 0xF0}))) + versionDone, "xyzab"},
    };
    for (const auto &row : rows) {
        arrive(row.arrives);
        EXPECT_EQ(transcriptOf(TaskCommand), row.transcript) << row.name;
        EXPECT_EQ(contentOf(udp_send_pipe), row.mirrored) << row.name;
    }
}

// The file test ----------------------------------------------------------------------------------

constexpr char kTestFile[] = "/userdata/test.bin";

std::string testFile(int32_t count)
{
    return printedBy([&] { testSD_readWriteFile(count); });
}

std::string wrote(size_t count)
{
    return "test file write success = " + std::to_string(count) + "\r\n";
}

std::string wroteAndRead(size_t count)
{
    return wrote(count) + "test file read success = " + std::to_string(count) + "\r\n";
}

TEST_F(Setting, TestsTheFileStoreWithAFileOfAtMostAWholeBuffer)
{
    for (const int32_t count : {4096, 0, 1, 255, 256, 257, 4095, -1, 4097, INT32_MIN, INT32_MAX}) {
        const size_t size = count < 0 || count > 4096 ? 4096 : static_cast<size_t>(count);
        EXPECT_EQ(testFile(count), wroteAndRead(size) + "check test data success\r\n");
        EXPECT_EQ(contentOf(kTestFile), countingBytes(size)) << count;
    }
}

TEST_F(Setting, ReportsATestFileThatCannotBeOpened)
{
    const std::string error = "open file /userdata/test.bin error\nopen test.bin error = ";
    isReadingRefused = true;
    EXPECT_EQ(testFile(10), wrote(10) + error + "4\r\n");
    unlink(kTestFile);
    rmdir("/userdata");
    EXPECT_EQ(testFile(10), error + "19\r\n");
}

TEST_F(Setting, ReportsAShortWriteOrReadOfTheTestFileAndClosesIt)
{
    const auto files = entriesOf("/proc/self/fd");
    writesAtMost = 7;
    EXPECT_EQ(testFile(10), "write error = 0, btw = 7\r\n");
    EXPECT_EQ(contentOf(kTestFile), countingBytes(7));
    writesAtMost = SIZE_MAX;
    afterReading = [](uint8_t *, size_t *count) { *count = 3; };
    EXPECT_EQ(testFile(10), wrote(10) + "read error = 0, btw = 3\r\n");
    afterReading = nullptr;
    testFile(10);
    EXPECT_EQ(entriesOf("/proc/self/fd"), files);
}

TEST_F(Setting, ReportsTheFirstByteOfTheTestFileThatDiffers)
{
    afterReading = [](uint8_t *bytes, size_t *) { bytes[300] = bytes[301] = 200; };
    EXPECT_EQ(testFile(1000), wroteAndRead(1000) + "buffer[300] = 200\r\n");
    afterReading = [](uint8_t *bytes, size_t *) { bytes[9] = 0; };
    EXPECT_EQ(testFile(10), wroteAndRead(10) + "buffer[9] = 0\r\n");
}

} // namespace
