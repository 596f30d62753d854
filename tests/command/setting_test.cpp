// Commands 0xF0 to 0xF3 from the frame's record to the answer, with every message, and the hooks
// that they call. The module's source is part of this file, with hooks that note their calls in the
// place of its empty ones.

#include "command/setting.h"

// The names in the table have no parentheses behind them and stay, the definitions go elsewhere.
// clang-format off
#define processLayerProperty(...)              emptyLayerProperty(__VA_ARGS__)
#define processInputProperty(...)              emptyInputProperty(__VA_ARGS__)
#define processTakeProperty(...)               emptyTakeProperty(__VA_ARGS__)
#define processBlackscreenProperty(...)        emptyBlackscreenProperty(__VA_ARGS__)
#define processLayerPropertyValueToString(...) emptyLayerPropertyValueToString(__VA_ARGS__)
#define processInputPropertyValueToString(...) emptyInputPropertyValueToString(__VA_ARGS__)
#define processBlackscreenValueToString(...)   emptyBlackscreenValueToString(__VA_ARGS__)
// clang-format on
void emptyLayerProperty(uint8_t, SplitState *, uint8_t);
void emptyInputProperty(uint8_t, SplitState *, uint8_t);
void emptyTakeProperty(uint8_t, SplitState *, uint8_t);
void emptyBlackscreenProperty(uint8_t, SplitState *, uint8_t);
void emptyLayerPropertyValueToString(uint8_t, char *, int32_t);
void emptyInputPropertyValueToString(uint8_t, char *, int32_t);
void emptyBlackscreenValueToString(uint8_t, char *, int32_t);

#include "command/setting.cpp"

#undef processLayerProperty
#undef processInputProperty
#undef processTakeProperty
#undef processBlackscreenProperty
#undef processLayerPropertyValueToString
#undef processInputPropertyValueToString
#undef processBlackscreenValueToString

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/file_selftest.h"
#include "command/reception.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge_pipes.h"

namespace {

// Link-time fakes of what the commands call ------------------------------------------------------

using Journal = std::vector<std::string>;

Journal journal; // every call, in order

void note(const std::string &call)
{
    journal.push_back(call + (sent.empty() ? "" : " behind the reply"));
}

std::string numbers(const NetworkRecord &record)
{
    std::array<uint8_t, sizeof record> bytes;
    std::memcpy(bytes.data(), &record, sizeof record);
    std::string list;
    for (const uint8_t byte : bytes) {
        list.append(" ").append(std::to_string(byte));
    }
    return list;
}

// What Command_Read_Network() finds; nothing: it fails.
std::function<void(NetworkRecord *record)> onReadNetwork;

void noteItem(const char *hook, uint8_t dat2, const SplitState &item, uint8_t sameDat2)
{
    note(std::string(hook) + " " + std::to_string(dat2) + " " + item.key + "=" +
         std::to_string(item.value) + " " + std::to_string(sameDat2));
}

std::string appended; // by the hooks that tell values

void appendValues(const char *hook, uint8_t dat2, char *out, int32_t zero)
{
    note(std::string(hook) + " " + std::to_string(dat2) + " " + out + " " + std::to_string(zero));
    std::strcat(out, appended.c_str());
}

// What the system's file operations do to the test file; null: what they always do.
std::function<bool(const char *mode)> refusesToOpen;
std::function<size_t(size_t count)> writesOnly;
std::function<void(uint8_t *bytes, size_t *count)> afterReading;

} // namespace

extern "C" {
// Command_Config_Network() and Command_Read_Network(), as the linker knows them.
void __wrap__Z22Command_Config_NetworkPK13NetworkRecord(const NetworkRecord *record);
void __wrap__Z20Command_Read_NetworkP13NetworkRecord(NetworkRecord *record);
std::FILE *__real_fopen64(const char *path, const char *mode);
std::FILE *__wrap_fopen64(const char *path, const char *mode);
size_t __real_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file);
size_t __wrap_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file);
size_t __real_fread(void *bytes, size_t size, size_t count, std::FILE *file);
size_t __wrap_fread(void *bytes, size_t size, size_t count, std::FILE *file);

void __wrap__Z22Command_Config_NetworkPK13NetworkRecord(const NetworkRecord *record)
{
    note("config" + numbers(*record));
}

void __wrap__Z20Command_Read_NetworkP13NetworkRecord(NetworkRecord *record)
{
    note("read");
    if (onReadNetwork) {
        onReadNetwork(record);
    }
}

std::FILE *__wrap_fopen64(const char *path, const char *mode)
{
    if (refusesToOpen && path == std::string_view("/userdata/test.bin") && refusesToOpen(mode)) {
        errno = EIO;
        return nullptr;
    }
    return __real_fopen64(path, mode);
}

size_t __wrap_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file)
{
    const bool isShort = writesOnly && bytes == buffer;
    return __real_fwrite(bytes, size, isShort ? writesOnly(count) : count, file);
}

size_t __wrap_fread(void *bytes, size_t size, size_t count, std::FILE *file)
{
    size_t done = __real_fread(bytes, size, count, file);
    if (afterReading && bytes == buffer) {
        afterReading(static_cast<uint8_t *>(bytes), &done);
    }
    return done;
}
}

void processLayerProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2)
{
    noteItem("layer", dat2, *item, sameDat2);
}

void processInputProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2)
{
    noteItem("input", dat2, *item, sameDat2);
}

void processTakeProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2)
{
    noteItem("take", dat2, *item, sameDat2);
}

void processBlackscreenProperty(uint8_t dat2, SplitState *item, uint8_t sameDat2)
{
    noteItem("blackscreen", dat2, *item, sameDat2);
}

void processLayerPropertyValueToString(uint8_t dat2, char *out, int32_t zero)
{
    appendValues("layer", dat2, out, zero);
}

void processInputPropertyValueToString(uint8_t dat2, char *out, int32_t zero)
{
    appendValues("input", dat2, out, zero);
}

void processBlackscreenValueToString(uint8_t dat2, char *out, int32_t zero)
{
    appendValues("blackscreen", dat2, out, zero);
}

namespace {

using Calls = std::vector<Sent>;

void arrive(std::string_view bytes)
{
    IsrReceiveBuffer(kChannelSerial, 0, bytesOf(bytes), lengthOf(bytes));
}

// Has what the pipe has no room for arrive while the command waits.
void arriveAll(const std::string &bytes)
{
    static constexpr size_t kAtOnce = 4000;
    arrive(std::string_view(bytes).substr(0, kAtOnce));
    fakeClock.onSleep = [bytes, done = std::min(kAtOnce, bytes.size())]() mutable {
        const size_t count = std::min(kAtOnce, bytes.size() - done);
        arrive(std::string_view(bytes).substr(done, count));
        done += count;
    };
}

std::string waiting()
{
    return contentOf(channel[0]->pipe);
}

std::string content(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(i * 5 + i / 256 + 3);
    }
    return bytes;
}

std::string withChecksum(const std::string &bytes)
{
    const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0u, [](unsigned all, char c) {
        return all + static_cast<unsigned char>(c);
    });
    return bytes + static_cast<char>(sum % 256);
}

// The first 18 of content().
constexpr char kContentConfigured[] = "config 3 8 13 18 23 28 33 38 43 48 53 58 63 68 73 78 83 88";

// Leaves something else than zeros where the variables of the next function called will be.
[[gnu::noinline]] void dirtyStack()
{
    volatile uint8_t bytes[2000];
    for (volatile uint8_t &byte : bytes) {
        byte = 0xEE;
    }
}

class Setting : public testing::Test {
protected:
    Setting()
    {
        fakeClock.setMs(1000);
        InitRs232CommandVariable();
        udp_receive_pipe_init();
        getFreeChannel(kChannelSerial, 0);
        commandFrom = 0;
        std::memset(buffer, 0xEE, sizeof buffer);
        mkdir("/userdata", 0755);
    }

    // Executes the command and returns what it printed and sent.
    static std::string execute(const Parameters &parameters)
    {
        commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                        parameters[4], parameters[5], parameters[6], 0x77};
        std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
        sent.clear();
        journal.clear();
        fakeClock.sleepsUs.clear();
        return transcriptOf([&] {
            dirtyStack();
            switch (parameters[2]) {
            case 0xF0:
                writeDataSetting();
                break;
            case 0xF1:
                readDataSetting();
                break;
            case 0xF2:
                writeStringValueSetting();
                break;
            default:
                readStringValueSetting();
                break;
            }
        });
    }

    // Command 0xF0 for `dat1` with a length word of `announced`.
    static Parameters data(uint8_t dat1, uint32_t announced)
    {
        return {0x5A,
                0xC3,
                0xF0,
                dat1,
                0x07,
                static_cast<uint8_t>(announced % 256),
                static_cast<uint8_t>(announced / 256)};
    }

    static Parameters text(uint8_t command, uint8_t dat1)
    {
        return {0x5A, 0xC3, command, dat1, 0x07, 0x11, 0x22};
    }

    static std::string ack(const Parameters &parameters)
    {
        return "> " + replyFrame(parameters) + "\n";
    }

    static std::string nak(const Parameters &parameters)
    {
        return "> " + refusal(parameters) + "\n";
    }
};

// 0xF0, write data -------------------------------------------------------------------------------

TEST_F(Setting, ConfiguresTheNetworkWithTheRecordThenAcknowledges)
{
    arrive(withChecksum(content(18)) + "next");
    // 5a + c3 + f0 + 20 + 07 + 13 = 247
    EXPECT_EQ(execute(data(0x20, 19)), "writeDataSetting\n> <F5ac3f02007130047>\n");
    EXPECT_EQ(journal, Journal{kContentConfigured});
    EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Setting, TakesOnlyTheRecordOfALongerBlock)
{
    for (const uint32_t length : {19u, 20u, 255u, 256u, 300u, 4000u}) {
        arriveAll(withChecksum(content(length)));
        const Parameters request = data(0x20, length + 1);
        EXPECT_EQ(execute(request), "writeDataSetting\n" + ack(request)) << length;
        EXPECT_EQ(journal, Journal{kContentConfigured}) << length;
        EXPECT_EQ(waiting(), "") << length;
    }
}

TEST_F(Setting, TakesABlockThatFillsTheBuffer)
{
    for (const uint32_t length : {4095u, 4096u}) {
        arriveAll(withChecksum(content(length)));
        const Parameters request = data(0x20, length + 1);
        EXPECT_EQ(execute(request), "writeDataSetting\n" + ack(request)) << length;
        EXPECT_EQ(journal, Journal{kContentConfigured}) << length;
        EXPECT_EQ(waiting(), "") << length;
        EXPECT_EQ(std::memcmp(buffer, content(length).data(), length), 0);
    }
}

TEST_F(Setting, RefusesABlockThatTheBufferCannotHoldUnread)
{
    arrive("payload");
    EXPECT_EQ(execute(data(0x20, 4098)), "writeDataSetting\n"
                                         "len > sizeof(buffer): 4097 > 4096\n" +
                                             nak(data(0x20, 4098)));
    EXPECT_EQ(execute(data(0x20, 65535)), "writeDataSetting\n"
                                          "len > sizeof(buffer): 65534 > 4096\n" +
                                              nak(data(0x20, 65535)));
    EXPECT_EQ(execute(data(0x21, 4098)), "writeDataSetting\n"
                                         "len > sizeof(buffer): 4097 > 4096\n" +
                                             nak(data(0x21, 4098)));
    EXPECT_EQ(journal, Journal());
    EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
    EXPECT_EQ(waiting(), "payload");
}

TEST_F(Setting, ReadsNothingAndStaysSilentForANetworkRecordWithoutData)
{
    arrive("payload");
    for (const uint32_t announced : {0u, 1u}) {
        EXPECT_EQ(execute(data(0x20, announced)), "writeDataSetting\n") << announced;
        EXPECT_EQ(journal, Journal());
        EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
        EXPECT_EQ(waiting(), "payload");
    }
}

TEST_F(Setting, ReadsAShortNetworkRecordAndStaysSilent)
{
    for (const uint32_t length : {1u, 16u, 17u}) {
        arrive(withChecksum(content(length)));
        EXPECT_EQ(execute(data(0x20, length + 1)), "writeDataSetting\n") << length;
        EXPECT_EQ(journal, Journal());
        EXPECT_EQ(waiting(), "");
    }
}

TEST_F(Setting, RefusesAShortNetworkRecordWithAWrongChecksum)
{
    arrive(content(18)); // its last byte is no checksum of the others
    EXPECT_EQ(execute(data(0x20, 18)), "writeDataSetting\n"
                                       "re checksum error\r\n"
                                       "writeDataSetting receiveBufferFromPC error\n" +
                                           nak(data(0x20, 18)));
}

TEST_F(Setting, RefusesAWrongChecksum)
{
    std::string block = withChecksum(content(18));
    block[3] = static_cast<char>(block[3] + 1);
    arrive(block + "next");
    EXPECT_EQ(execute(data(0x20, 19)), "writeDataSetting\n"
                                       "re checksum error\r\n"
                                       "writeDataSetting receiveBufferFromPC error\n" +
                                           nak(data(0x20, 19)));
    EXPECT_EQ(journal, Journal());
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Setting, RefusesABlockThatEndsEarlyAfterFiveThousandAndTwoPolls)
{
    for (const uint32_t come : {0u, 1u, 17u}) {
        arrive(content(come));
        EXPECT_EQ(execute(data(0x20, 19)), "writeDataSetting\n"
                                           "writeDataSetting receiveBufferFromPC error\n" +
                                               nak(data(0x20, 19)));
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(5002, 2000));
        EXPECT_EQ(journal, Journal());
    }
}

TEST_F(Setting, TakesABlockWithoutItsChecksumWhenTheTimeIsOver)
{
    arrive(content(18));
    EXPECT_EQ(execute(data(0x20, 19)), "writeDataSetting\n" + ack(data(0x20, 19)));
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(5002, 2000));
    EXPECT_EQ(journal, Journal{kContentConfigured});
}

TEST_F(Setting, ReadsTheBlockOfAnythingElseAndRefuses)
{
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        if (dat1 == 0x20) {
            continue;
        }
        const Parameters request = data(static_cast<uint8_t>(dat1), 19);
        arrive(withChecksum(content(18)));
        EXPECT_EQ(execute(request), "writeDataSetting\n" + nak(request));
        EXPECT_EQ(waiting(), "") << dat1;
        EXPECT_EQ(journal, Journal()) << dat1;
    }
}

TEST_F(Setting, RefusesAnythingElseWithoutData)
{
    for (const uint32_t announced : {0u, 1u}) {
        EXPECT_EQ(execute(data(0x21, announced)),
                  "writeDataSetting\n" + nak(data(0x21, announced)));
        EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
    }
}

// 0xF1, read data --------------------------------------------------------------------------------

TEST_F(Setting, SendsTheNetworkRecordBehindTheReply)
{
    onReadNetwork = [](NetworkRecord *record) {
        *record = {{192, 168, 0, 100},
                   {255, 255, 255, 0},
                   {192, 168, 0, 1},
                   {0x02, 0x76, 0x65, 0x73, 0x6B, 0x01}};
    };
    execute({1, 2, 0xF1, 0x20, 7, 8, 9});
    // c0 + a8 + 00 + 64 + ff + ff + ff + 00 + c0 + a8 + 00 + 01 + 02 + 76 + 65 + 73 + 6b + 01 = 7ee
    const std::string record("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00\xC0\xA8\x00\x01"
                             "\x02\x76\x65\x73\x6B\x01\xEE",
                             19);
    EXPECT_EQ(sent,
              (Calls{{"uart 0", replyFrame({1, 2, 0xF1, 0x20, 7, 19, 0})}, {"uart 0", record}}));
    EXPECT_EQ(journal, Journal{"read"}); // ahead of the reply
}

TEST_F(Setting, SendsZerosForWhatCannotBeReadOfTheNetwork)
{
    onReadNetwork = [](NetworkRecord *record) {
        std::memcpy(record->ip, "\xC0\xA8\x00\x64", 4);
        std::memcpy(record->mask, "\xFF\xFF\xFF\x00", 4);
    };
    execute({1, 2, 0xF1, 0x20, 0, 0, 0});
    // c0 + a8 + 00 + 64 + ff + ff + ff + 00 = 4c9
    const std::string record =
        std::string("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00", 8) + std::string(10, '\0') + "\xC9";
    EXPECT_EQ(sent,
              (Calls{{"uart 0", replyFrame({1, 2, 0xF1, 0x20, 0, 19, 0})}, {"uart 0", record}}));
}

TEST_F(Setting, SendsZerosForANetworkThatCannotBeRead)
{
    execute({1, 2, 0xF1, 0x20, 0, 0, 0});
    EXPECT_EQ(sent, (Calls{{"uart 0", replyFrame({1, 2, 0xF1, 0x20, 0, 19, 0})},
                           {"uart 0", std::string(19, '\0')}}));
}

TEST_F(Setting, RefusesToReadAnythingElse)
{
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        if (dat1 == 0x20) {
            continue;
        }
        const Parameters request = {1, 2, 0xF1, static_cast<uint8_t>(dat1), 7, 19, 0};
        EXPECT_EQ(execute(request), nak(request)) << dat1;
        EXPECT_EQ(journal, Journal()) << dat1;
    }
}

TEST_F(Setting, ReadsNoPayloadForAReadingCommand)
{
    arrive("[payload]");
    execute({1, 2, 0xF1, 0x20, 0, 0, 0});
    execute({1, 2, 0xF3, 0x09, 0, 0, 0});
    EXPECT_EQ(waiting(), "[payload]");
}

// 0xF2, write text -------------------------------------------------------------------------------

TEST_F(Setting, HandsEachItemOfATextToTheHook)
{
    arrive("[ a=1,b=2 ]next");
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, (Journal{"input 7 a=1 7", "input 7 b=2 7"}));
    EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Setting, HandsNothingToTheHookWhenTheFirstValueIsNoNumber)
{
    arrive("[a=x,b=2]");
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, Journal());
}

TEST_F(Setting, StopsAtTheFirstItemThatIsNone)
{
    arrive("[a=1,b,c=3]");
    execute(text(0xF2, 0x09));
    EXPECT_EQ(journal, (Journal{"input 7 a=1 7", "input 7 b,c=3 7"})); // the key is "b,c"
    arrive("[a=1,b=x,c=3]");
    execute(text(0xF2, 0x09));
    EXPECT_EQ(journal, Journal{"input 7 a=1 7"});
}

TEST_F(Setting, SelectsTheWritingHookByDat1)
{
    const std::array<std::pair<uint8_t, const char *>, 4> hooks = {
        {{0x00, "layer"}, {0x09, "input"}, {0x38, "take"}, {0x39, "blackscreen"}}};
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        const auto hook = std::find_if(hooks.begin(), hooks.end(),
                                       [&](const auto &entry) { return entry.first == dat1; });
        const Parameters request = text(0xF2, static_cast<uint8_t>(dat1));
        arrive("[k=-5]");
        if (hook == hooks.end()) {
            EXPECT_EQ(execute(request), nak(request)) << dat1;
            EXPECT_EQ(journal, Journal()) << dat1;
        } else {
            EXPECT_EQ(execute(request), ack(request)) << dat1;
            EXPECT_EQ(journal, Journal{std::string(hook->second) + " 7 k=-5 7"});
        }
        EXPECT_EQ(waiting(), "") << dat1;
    }
}

TEST_F(Setting, AcknowledgesATextWithoutItems)
{
    for (const char *payload : {"[]", "[ ]", "[abc]", "[=]", "[,]"}) {
        arrive(payload);
        EXPECT_EQ(execute(text(0xF2, 0x00)), ack(text(0xF2, 0x00))) << payload;
        EXPECT_EQ(journal, Journal()) << payload;
    }
}

TEST_F(Setting, RefusesAPayloadThatIsNoText)
{
    arrive("a=1]");
    EXPECT_EQ(execute(text(0xF2, 0x09)), nak(text(0xF2, 0x09)));
    EXPECT_EQ(fakeClock.sleepsUs.size(), 0u);
    EXPECT_EQ(waiting(), "=1]"); // only the character that tells
    EXPECT_EQ(journal, Journal());
}

TEST_F(Setting, RefusesATextThatDoesNotComeAfterFiveHundredAndTwoPolls)
{
    EXPECT_EQ(execute(text(0xF2, 0x09)), nak(text(0xF2, 0x09)));
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(502, 2000));
}

TEST_F(Setting, UsesATextThatIsNeverClosedWithoutItsLastCharacter)
{
    arrive("[a=1,b=23");
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, (Journal{"input 7 a=1 7", "input 7 b=2 7"}));
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(502, 2000));
}

TEST_F(Setting, FindsNoItemInATextOfABracketOnly)
{
    arrive("[old=1]");
    execute(text(0xF2, 0x0A)); // no kind of key: it is not even taken apart
    arrive("[");
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, Journal()); // nothing of the text before it
    arrive("[");
    EXPECT_EQ(execute(text(0xF2, 0x0A)), nak(text(0xF2, 0x0A)));
}

TEST_F(Setting, WaitsForTheRestOfAText)
{
    arrive("[a=");
    fakeClock.onSleep = [] {
        if (fakeClock.sleepsUs.size() == 100) {
            arrive("1]");
        }
    };
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(fakeClock.sleepsUs.size(), 100u);
    EXPECT_EQ(journal, Journal{"input 7 a=1 7"});
}

TEST_F(Setting, CutsATextAtAZeroByte)
{
    arrive(std::string_view("[a=1,\0b=2,c=3]", 14));
    execute(text(0xF2, 0x09));
    EXPECT_EQ(journal, Journal{"input 7 a=1 7"});
}

TEST_F(Setting, TakesBytesAboveAsciiInAKey)
{
    arrive("[\xE4\xFF=1]");
    execute(text(0xF2, 0x09));
    EXPECT_EQ(journal, Journal{"input 7 \xE4\xFF=1 7"});
}

char digitOf(size_t number)
{
    return static_cast<char>('0' + number % 10);
}

// A text of `length` characters, brackets included: blanks, and items of four characters each.
std::string longText(size_t length)
{
    const size_t items = (length - 1) / 4; // without the comma of the last
    std::string payload = "[" + std::string(length - 1 - 4 * items, ' ');
    for (size_t i = 0; i < items; ++i) {
        payload.append("k=").append(1, digitOf(i)).append(",");
    }
    payload.back() = ']';
    return payload;
}

Journal itemCalls(size_t count)
{
    Journal calls;
    for (size_t i = 0; i < count; ++i) {
        calls.push_back(std::string("input 7 k=").append(1, digitOf(i)).append(" 7"));
    }
    return calls;
}

TEST_F(Setting, TakesALongTextWholeUpToTheBuffersEnd)
{
    for (const size_t length : {4095u, 4096u, 4097u}) {
        ASSERT_EQ(longText(length).size(), length);
        arriveAll(longText(length));
        EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09))) << length;
        EXPECT_EQ(journal, itemCalls((length - 1) / 4)) << length;
        EXPECT_EQ(waiting(), "") << length;
    }
}

TEST_F(Setting, TakesTheFirst4096CharactersOfALongerText)
{
    // Three blanks behind the bracket: item i ends in character 6 + 4 i, the last one is 4095.
    arriveAll(longText(5000) + "next");
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, itemCalls(1023));
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Setting, TakesTheBeginningOfALongTextThatIsNeverClosed)
{
    std::string payload = longText(5000);
    payload.pop_back();
    arriveAll(payload);
    EXPECT_EQ(execute(text(0xF2, 0x09)), ack(text(0xF2, 0x09)));
    EXPECT_EQ(journal, itemCalls(1023));
}

// 0xF3, read text --------------------------------------------------------------------------------

TEST_F(Setting, SendsTheTextBehindTheReply)
{
    appended = "a=1,b=2";
    EXPECT_EQ(execute(text(0xF3, 0x09)),
              ack({0x5A, 0xC3, 0xF3, 0x09, 0x07, 0, 0}) + "> [a=1,b=2]\n");
    EXPECT_EQ(sent, (Calls{{"uart 0", replyFrame({0x5A, 0xC3, 0xF3, 0x09, 0x07, 0, 0})},
                           {"uart 0", "[a=1,b=2]"}})); // without a closing zero
    EXPECT_EQ(journal, Journal{"input 7 [ 0"});
}

TEST_F(Setting, SelectsTheReadingHookByDat1)
{
    const std::array<std::pair<uint8_t, const char *>, 3> hooks = {
        {{0x00, "layer"}, {0x09, "input"}, {0x39, "blackscreen"}}};
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        const auto hook = std::find_if(hooks.begin(), hooks.end(),
                                       [&](const auto &entry) { return entry.first == dat1; });
        const Parameters request = text(0xF3, static_cast<uint8_t>(dat1));
        const std::string answer = execute(request);
        if (hook == hooks.end()) {
            EXPECT_EQ(answer, nak(request)) << dat1;
            EXPECT_EQ(journal, Journal()) << dat1;
        } else {
            EXPECT_EQ(answer, ack({request[0], request[1], 0xF3, request[3], 7, 0, 0}) + "> []\n");
            EXPECT_EQ(journal, Journal{std::string(hook->second) + " 7 [ 0"});
        }
    }
}

TEST_F(Setting, WritesTakeButDoesNotReadIt)
{
    arrive("[a=1]");
    EXPECT_EQ(execute(text(0xF2, 0x38)), ack(text(0xF2, 0x38)));
    EXPECT_EQ(execute(text(0xF3, 0x38)), nak(text(0xF3, 0x38)));
}

TEST_F(Setting, StartsEachTextAnew)
{
    appended = "a=1";
    execute(text(0xF3, 0x09));
    appended = "";
    EXPECT_EQ(execute(text(0xF3, 0x09)), ack({0x5A, 0xC3, 0xF3, 0x09, 7, 0, 0}) + "> []\n");
}

TEST_F(Setting, SendsATextOf4095CharactersWithoutAWord)
{
    appended = std::string(4093, 'x');
    EXPECT_EQ(execute(text(0xF3, 0x09)),
              ack({0x5A, 0xC3, 0xF3, 0x09, 7, 0, 0}) + "> [" + appended + "]\n");
}

TEST_F(Setting, ReportsATextOf4096CharactersAndSendsItAllTheSame)
{
    appended = std::string(4094, 'x');
    EXPECT_EQ(execute(text(0xF3, 0x09)), "error: readStringValueSetting buffer len = 4096\r\n" +
                                             ack({0x5A, 0xC3, 0xF3, 0x09, 7, 0, 0}) + "> [" +
                                             appended + "]\n");
}

TEST_F(Setting, SendsATextThatFillsTheBufferWithoutItsClosingBracket)
{
    appended = std::string(4095, 'x');
    EXPECT_EQ(execute(text(0xF3, 0x09)), "error: readStringValueSetting buffer len = 4096\r\n" +
                                             ack({0x5A, 0xC3, 0xF3, 0x09, 7, 0, 0}) + "> [" +
                                             appended + "\n");
}

// What the commands are made of ------------------------------------------------------------------

TEST_F(Setting, SelectsTheHooksOfTheFourKinds)
{
    EXPECT_EQ(getStringToValueCallbackByDat1(0x00), &processLayerProperty);
    EXPECT_EQ(getStringToValueCallbackByDat1(0x09), &processInputProperty);
    EXPECT_EQ(getStringToValueCallbackByDat1(0x38), &processTakeProperty);
    EXPECT_EQ(getStringToValueCallbackByDat1(0x39), &processBlackscreenProperty);
    EXPECT_EQ(getStringToValueCallbackByDat1(0x20), nullptr);
    EXPECT_EQ(getValueToStringCallbackByDat1(0x00), &processLayerPropertyValueToString);
    EXPECT_EQ(getValueToStringCallbackByDat1(0x09), &processInputPropertyValueToString);
    EXPECT_EQ(getValueToStringCallbackByDat1(0x38), nullptr);
    EXPECT_EQ(getValueToStringCallbackByDat1(0x39), &processBlackscreenValueToString);
    EXPECT_EQ(getValueToStringCallbackByDat1(0x20), nullptr);
}

TEST_F(Setting, TakesATextApartForTheHookThatItReturns)
{
    char items[] = " a=1,b=2 ";
    EXPECT_EQ(processStrValue(0x09, 200, items), &processInputProperty);
    EXPECT_EQ(journal, (Journal{"input 200 a=1 200", "input 200 b=2 200"}));
    journal.clear();
    char broken[] = "a=x,b=2";
    EXPECT_EQ(processStrValue(0x09, 200, broken), &processInputProperty);
    EXPECT_EQ(journal, Journal());
}

TEST_F(Setting, LeavesATextAloneThatIsForNoHook)
{
    char items[] = "a=1,b=2";
    EXPECT_EQ(processStrValue(0x0A, 0, items), nullptr);
    processInputStr(0, items, nullptr);
    EXPECT_STREQ(items, "a=1,b=2");
    EXPECT_EQ(journal, Journal());
}

TEST_F(Setting, ShowsAHookTheWholeSplitState)
{
    char items[] = "a=1,b=2";
    static const char *rests[2];
    static size_t calls = 0;
    processInputStr(3, items,
                    [](uint8_t, SplitState *item, uint8_t) { rests[calls++ % 2] = item->rest; });
    EXPECT_EQ(calls, 2u);
    EXPECT_EQ(rests[0], items + 2);
    EXPECT_EQ(rests[1], items + 6);
}

TEST_F(Setting, BracketsWhatAHookAppends)
{
    char out[kBufferSize + 1] = "stale";
    appended = "a=1";
    EXPECT_EQ(processValueToString(0x00, 9, out), &processLayerPropertyValueToString);
    EXPECT_STREQ(out, "[a=1]");
    EXPECT_EQ(journal, Journal{"layer 9 [ 0"});
    EXPECT_EQ(processValueToString(0x38, 9, out), nullptr);
    EXPECT_STREQ(out, "[]");
}

TEST_F(Setting, HasHooksThatDoNothing)
{
    char key[] = "a";
    char rest[] = "1";
    SplitState item = {key, rest, 1};
    for (const StringToValue hook :
         {emptyLayerProperty, emptyInputProperty, emptyTakeProperty, emptyBlackscreenProperty}) {
        EXPECT_EQ(transcriptOf([&] { hook(1, &item, 1); }), "");
        EXPECT_EQ(item.key, key);
        EXPECT_EQ(item.rest, rest);
        EXPECT_EQ(item.value, 1);
    }
    char out[] = "[\0stale";
    for (const ValueToString hook :
         {emptyLayerPropertyValueToString, emptyInputPropertyValueToString,
          emptyBlackscreenValueToString}) {
        EXPECT_EQ(transcriptOf([&] { hook(1, out, 0); }), "");
        EXPECT_STREQ(out, "[");
    }
    EXPECT_EQ(transcriptOf(processTakeFunc), "");
}

// On the line ------------------------------------------------------------------------------------

TEST_F(Setting, ReadsThePayloadBehindTheFrameAndMirrorsNothingOfIt)
{
    arrive("x" + commandFrame({0, 0, 0xF0, 0x20, 0, 19, 0}) + withChecksum(content(18)) + "y" +
           commandFrame({0, 0, 0xF2, 0x09, 0, 0, 0}) + "[a=1]" + "z" +
           commandFrame({0, 0, 0x6A, 0x03, 0, 0, 0}));
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 0", replyFrame({0, 0, 0xF0, 0x20, 0, 19, 0})},
                           {"uart 0", replyFrame({0, 0, 0xF2, 0x09, 0, 0, 0})},
                           {"uart 0", replyFrame({0, 0, 0x6A, 0x03, 1, 10, 0})}}));
    EXPECT_EQ(contentOf(udp_send_pipe), "xyz");
}

TEST_F(Setting, ExecutesNoFrameWithinAPayload)
{
    const std::string frame = commandFrame({0, 0, 0x6A, 0x03, 0, 0, 0});
    arrive(commandFrame({0, 0, 0xF0, 0x20, 0, 20, 0}) + withChecksum(frame) +
           commandFrame({0, 0, 0xF2, 0x09, 0, 0, 0}) + "[" + frame + "]");
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 0", replyFrame({0, 0, 0xF0, 0x20, 0, 20, 0})},
                           {"uart 0", replyFrame({0, 0, 0xF2, 0x09, 0, 0, 0})}}));
    EXPECT_EQ(contentOf(udp_send_pipe), "");
}

TEST_F(Setting, TakesARefusedPayloadForOrdinaryInput)
{
    arrive(commandFrame({0, 0, 0xF0, 0x20, 0, 0x02, 0x10}) + "ab" + // 4098
           commandFrame({0, 0, 0x6A, 0x03, 0, 0, 0}));
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 0", refusal({0, 0, 0xF0, 0, 0, 0, 0})},
                           {"uart 0", replyFrame({0, 0, 0x6A, 0x03, 1, 10, 0})}}));
    EXPECT_EQ(contentOf(udp_send_pipe), "ab");
}

// The file test ----------------------------------------------------------------------------------

std::string testFile(int32_t count)
{
    return printedBy([&] { testSD_readWriteFile(count); });
}

std::string storedTestFile()
{
    std::ifstream stream("/userdata/test.bin", std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Byte i is i modulo 256.
std::string pattern(size_t count)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i % 256);
    }
    return bytes;
}

std::string testSuccess(const std::string &count)
{
    return "test file write success = " + count + "\r\n" + "test file read success = " + count +
           "\r\n" + "check test data success\r\n";
}

TEST_F(Setting, TestsTheFileStoreWithAFile)
{
    for (const int32_t count : {4096, 0, 1, 255, 256, 257, 4095}) {
        EXPECT_EQ(testFile(count), testSuccess(std::to_string(count)));
        EXPECT_EQ(storedTestFile(), pattern(static_cast<size_t>(count))) << count;
    }
}

TEST_F(Setting, TestsAWholeBufferForACountOutOfRange)
{
    for (const int32_t count : {-1, 4097, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(testFile(count), testSuccess("4096")) << count;
        EXPECT_EQ(storedTestFile(), pattern(4096)) << count;
    }
}

TEST_F(Setting, ReportsATestFileThatCannotBeMade)
{
    rmdir("/userdata");
    EXPECT_EQ(testFile(10), "open file /userdata/test.bin error\n"
                            "open test.bin error = 19\r\n");
}

TEST_F(Setting, ReportsATestFileThatCannotBeOpenedAgain)
{
    refusesToOpen = [](const char *mode) { return mode[0] == 'r'; };
    EXPECT_EQ(testFile(10), "test file write success = 10\r\n"
                            "open file /userdata/test.bin error\n"
                            "open test.bin error = 4\r\n");
}

TEST_F(Setting, ReportsAShortWriteOfTheTestFileAndStops)
{
    writesOnly = [](size_t) { return 7; };
    EXPECT_EQ(testFile(10), "write error = 0, btw = 7\r\n");
    EXPECT_EQ(storedTestFile(), pattern(7)); // closed all the same
}

TEST_F(Setting, ReportsAShortReadOfTheTestFileAndStops)
{
    afterReading = [](uint8_t *, size_t *count) { *count = 3; };
    EXPECT_EQ(testFile(10), "test file write success = 10\r\n"
                            "read error = 0, btw = 3\r\n");
}

TEST_F(Setting, ReportsTheFirstByteOfTheTestFileThatDiffers)
{
    afterReading = [](uint8_t *bytes, size_t *) {
        bytes[300] = 200;
        bytes[301] = 201;
    };
    EXPECT_EQ(testFile(1000), "test file write success = 1000\r\n"
                              "test file read success = 1000\r\n"
                              "buffer[300] = 200\r\n");
    afterReading = [](uint8_t *bytes, size_t *) { bytes[9] = 0; };
    EXPECT_EQ(testFile(10), "test file write success = 10\r\n"
                            "test file read success = 10\r\n"
                            "buffer[9] = 0\r\n");
}

TEST_F(Setting, LeavesNoTestFileOpen)
{
    const int before = open("/dev/null", O_RDONLY);
    close(before);
    testFile(10);
    writesOnly = [](size_t) { return 7; };
    testFile(10);
    writesOnly = nullptr;
    afterReading = [](uint8_t *, size_t *count) { *count = 3; };
    testFile(10);
    const int after = open("/dev/null", O_RDONLY);
    close(after);
    EXPECT_EQ(after, before);
}

} // namespace
