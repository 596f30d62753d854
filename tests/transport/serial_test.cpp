// Serial lines: every system call in order with its arguments, every message, and the two set-up
// families with all that they accept and refuse; most of it on a scripted line, the rest on a
// pseudo-terminal. serial_retired.cpp is part of this file, so that its tables are in sight.

#include "transport/serial.h"

#include "transport/bench_routines.cpp"
#include "transport/serial_retired.cpp"

#include <limits>
#include <type_traits>

#include <poll.h>

#include "tests/support/bytes.h"
#include "tests/support/serial_line.h"
#include "tests/support/terminal.h"

namespace {

constexpr unsigned char kBases[] = {0x00, 0xFF};

const Journal kOpening = {"open /dev/ttyS4", "fcntl F_SETFL 0", "fcntl F_SETFL 0"};
const Journal kSetting = {"tcgetattr", "tcflush TCIFLUSH", "tcsetattr TCSANOW"};
const std::string kOpened = "Open /dev/ttyS4 ......\nfcntl = 0 !\nserial_open file ID= 777 !\n";
const std::string kSet = "serial_set success !\n";

Journal operator+(Journal first, const Journal &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Journal times(int count, const Journal &calls)
{
    Journal journal;
    for (int i = 0; i < count; ++i) {
        journal = std::move(journal) + calls;
    }
    return journal;
}

// `count` full chunks, then `last`.
Journal chunks(int count, const Journal &last = {})
{
    return times(count, {"write 256", "usleep 80000"}) + last;
}

std::string readAll(int fd, size_t length)
{
    std::string text(length, '\0');
    for (size_t at = 0; at < length;) {
        pollfd wait{fd, POLLIN, 0};
        EXPECT_EQ(poll(&wait, 1, -1), 1);
        const ssize_t got = ::read(fd, &text[at], length - at);
        EXPECT_GT(got, 0);
        at = got > 0 ? at + static_cast<size_t>(got) : length;
    }
    return text;
}

// Opening ----------------------------------------------------------------------------------------

TEST(Serial, OpeningMakesTheLineBlockingAgainTwiceAndLogsIt)
{
    const auto open = [] { return serial_open("/dev/ttyS4"); };
    const std::string start = "Open /dev/ttyS4 ......\n";
    EXPECT_EQ(outcomeOf(open), Outcome(kLine, kOpened, "", kOpening));
    EXPECT_EQ(line.openFlags, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    line.fcntlResults = {0, -1}; // the second result is printed and does not matter
    EXPECT_EQ(outcomeOf(open),
              Outcome(kLine, start + "fcntl = -1 !\nserial_open file ID= 777 !\n", "", kOpening));
    line.fcntlResults = {-1};
    EXPECT_EQ(outcomeOf(open), Outcome(-1, start + "fcntl failed !\n", "",
                                       {"open /dev/ttyS4", "fcntl F_SETFL 0", "close"}));
    line.descriptor = -1;
    EXPECT_EQ(outcomeOf(open),
              Outcome(-1, "Can't Open Serial Port /dev/ttyS4 !\n", "", {"open /dev/ttyS4"}));
}

TEST(Serial, DescriptorZeroIsALineLikeAnyOther)
{
    const int saved = dup(STDIN_FILENO);
    Terminal terminal;
    line.descriptor = dup2(terminal.openSlave(), STDIN_FILENO);
    EXPECT_EQ(outcomeOf([] { return serial_open("/dev/ttyS0"); }).out,
              "Open /dev/ttyS0 ......\nfcntl = 0 !\nserial_open file ID= 0 !\n");
    dup2(saved, STDIN_FILENO);
}

TEST(Serial, OpenedTerminalBlocksAndIsForReadingAndWriting)
{
    const Terminal terminal;
    const Outcome opening = outcomeOf([&] { return serial_open(terminal.path.c_str()); });
    const auto fd = static_cast<int32_t>(opening.result);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_RDWR);
    EXPECT_EQ(opening.out, "Open " + terminal.path + " ......\nfcntl = 0 !\nserial_open file ID= " +
                               std::to_string(fd) + " !\n");
    EXPECT_EQ(serial_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL), -1);
    EXPECT_EQ(serial_close(fd), -1);
    EXPECT_EQ(outcomeOf([] { return serial_close(kLine); }), Outcome(0, "", "", {"close"}));
}

// Setting up -------------------------------------------------------------------------------------

struct NamedRate {
    int32_t baud;
    speed_t code; // the kernel's number, not the macro that the module uses
};
const NamedRate kAccepted[] = {
    {2400, 0x000B},  {4800, 0x000C},   {9600, 0x000D},   {19200, 0x000E},   {38400, 0x000F},
    {57600, 0x1001}, {115200, 0x1002}, {460800, 0x1004}, {1500000, 0x100A},
};

// A setting on a line with every flag set. Nothing of it is kept; a read then returns at once.
void expectSet(const NamedRate &rate, int32_t bits, char parity, int32_t stop, tcflag_t control,
               tcflag_t input)
{
    line.attributes = recordOf(0xFF);
    EXPECT_EQ(outcomeOf([=] { return serial_set(kLine, rate.baud, bits, parity, stop); }),
              Outcome(0, kSet, "", kSetting));
    EXPECT_EQ(textOf(line.attributes),
              textOf(rawRecord(input, CLOCAL | CREAD | control, rate.code)))
        << rate.baud << ' ' << bits << parity << stop;
}

TEST(Serial, SetsNineRatesSevenOrEightBitsParityByUpperCaseLetterAndStopBits)
{
    for (const NamedRate &rate : kAccepted) {
        expectSet(rate, 8, 'N', 1, CS8, 0);
    }
    const NamedRate rate = {9600, 0x000D};
    expectSet(rate, 7, 'N', 1, CS7, 0);
    expectSet(rate, 8, 'N', 2, CS8 | CSTOPB, 0);
    expectSet(rate, 8, 'O', 1, CS8 | PARENB | PARODD, INPCK | ISTRIP);
    expectSet(rate, 8, 'E', 1, CS8 | PARENB, INPCK | ISTRIP);
    expectSet(rate, 7, 'E', 2, CS7 | PARENB | CSTOPB, INPCK | ISTRIP);
}

// One message, and the line is not touched.
void expectRefused(int32_t baud, int32_t bits, char parity, int32_t stop,
                   const std::string &message)
{
    EXPECT_EQ(outcomeOf([=] { return serial_set(kLine, baud, bits, parity, stop); }),
              Outcome(-1, "Don't exist " + message + " !\n", "", {"tcgetattr"}));
}

TEST(Serial, RefusesAnyOtherValue)
{
    for (const int32_t baud : {1200, 300, 0, 9601, -1, 110, 230400, 921600, 1499999, 1500001,
                               std::numeric_limits<int32_t>::min()}) {
        expectRefused(baud, 8, 'N', 1, "baudRate " + std::to_string(baud));
    }
    for (const int32_t bits : {5, 6, 9, 0, -1}) {
        expectRefused(9600, bits, 'N', 1, "dataSize " + std::to_string(bits));
    }
    for (const char letter : {'n', 'o', 'e', 'S', 'M', '0', '%'}) {
        expectRefused(9600, 8, letter, 1, "parity " + std::string(1, letter));
    }
    for (const int32_t stop : {0, 3, -1}) {
        expectRefused(9600, 8, 'N', stop, "stopBit " + std::to_string(stop));
    }
}

TEST(Serial, ChecksRateThenDataSizeThenParityThenStopBits)
{
    expectRefused(1, 1, 'x', 9, "baudRate 1");
    expectRefused(9600, 1, 'x', 9, "dataSize 1");
    expectRefused(9600, 8, 'x', 9, "parity x");
    expectRefused(9600, 8, 'N', 9, "stopBit 9");
}

TEST(Serial, SettingUpFailsWhenTheAttributesCannotBeReadOrApplied)
{
    line.setattrError = EINVAL;
    EXPECT_EQ(outcomeOf([] { return serial_set(kLine, 115200, 8, 'N', 1); }),
              Outcome(-1, "", errorLine("Set new terminal description error !", EINVAL), kSetting));
    line.getattrError = EIO; // before every other check
    const std::string message = "Can't get old terminal description !";
    EXPECT_EQ(outcomeOf([] { return serial_set(kLine, 1, 1, 'x', 9); }),
              Outcome(-1, "", errorLine(message, EIO), {"tcgetattr"}));
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(outcomeOf([=] { return serial_set(file, 115200, 8, 'N', 1); }),
              Outcome(-1, "", errorLine(message, ENOTTY), {}));
    EXPECT_EQ(outcomeOf([] { return serial_set(-1, 115200, 8, 'N', 1); }),
              Outcome(-1, "", errorLine(message, EBADF), {}));
}

// On a terminal ----------------------------------------------------------------------------------

TEST(Serial, ConfiguredTerminalReturns0AtOnceAndCarriesEveryByteUnchangedBothWays)
{
    Terminal terminal;
    const int fd = terminal.openSlave();
    EXPECT_EQ(outcomeOf([=] { return serial_set(fd, 115200, 8, 'N', 1); }).result, 0);
    char byte = 'x';
    EXPECT_EQ(serial_read(fd, &byte, 1), 0);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0); // which is not why
    const std::string all = countingBytes(256);
    EXPECT_EQ(serial_write(fd, bytesOf(all), 256), 256);
    EXPECT_EQ(readAll(terminal.master, 256), all);
    ASSERT_EQ(::write(terminal.master, all.data(), all.size()), 256);
    EXPECT_EQ(readAll(fd, 256), all);
    pollfd wait{terminal.master, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 0); // nothing was echoed
}

// Reading and writing ----------------------------------------------------------------------------

TEST(Serial, ReadingIsOneReadWithItsResultAsItIs)
{
    const struct {
        std::optional<std::string> arrival;
        int32_t result;
        std::string buffer;
    } rows[] = {
        {"abcdefghij", 10, "abcdefghij"},
        {"abc", 3, "abc......."},
        {"", 0, ".........."},
        {std::nullopt, -1, ".........."},
    };
    for (const auto &row : rows) {
        std::string buffer(10, '.');
        line.arrivals = {row.arrival};
        EXPECT_EQ(outcomeOf([&] { return serial_read(kLine, buffer.data(), 10); }),
                  Outcome(row.result, "", "", {"read 10"}));
        EXPECT_EQ(buffer, row.buffer);
    }
    char byte = 'x';
    EXPECT_EQ(outcomeOf([&] { return serial_read(kLine, &byte, 0); }),
              Outcome(0, "Read byte number error !\n", "", {}));
    EXPECT_EQ(byte, 'x');
}

TEST(Serial, WritesChunksOf256WithAPauseOf80MsAfterEachFullOne)
{
    const struct {
        const char *name;
        uint32_t length;
        std::deque<ssize_t> taken; // by each write(); by default all
        uint32_t result;
        Journal journal;
    } rows[] = {
        // clang-format off
        {"one byte",                   1, {},     1,    {"write 1"}},
        {"one less than a chunk",    255, {},   255,    {"write 255"}},
        {"one write and one pause",  256, {},   256,    chunks(1)},
        {"two writes and one pause", 257, {},   257,    chunks(1, {"write 1"})},
        {"two chunks",               512, {},   512,    chunks(2)},
        {"a full pipe",             4095, {},  4095,    chunks(15, {"write 255"})},
        {"short writes",   10, {4, 1, 5},        10,    {"write 10", "write 6", "write 5"}},
        {"a full chunk taken in part",
                          300, {100, 200},      300,    chunks(1, {"write 200"})},
        {"chunks after a short write are as large as the rest allows",
                          600, {1, 256, 256, 87}, 600,  chunks(3, {"write 87"})},
        {"a failure",             600, {-1},      0,    {"write 256"}},
        {"a later failure", 600, {256, 256, -1}, 512,   chunks(2, {"write 88"})},
        {"a line that takes nothing", 3, {0},     0,    {"write 3"}},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const std::string bytes = countingBytes(row.length, 251);
        line.writeResults = row.taken;
        EXPECT_EQ(outcomeOf([&] { return serial_write(kLine, bytesOf(bytes), row.length); }),
                  Outcome(row.result, "", "", row.journal));
        EXPECT_EQ(std::exchange(line.sent, {}), bytes.substr(0, row.result));
    }
    line.error = EINTR; // is a failure too
    line.writeResults = {-1};
    EXPECT_EQ(outcomeOf([] { return serial_write(kLine, bytesOf("abc"), 3); }),
              Outcome(0, "", "", {"write 3"}));
    EXPECT_EQ(outcomeOf([] { return serial_write(kLine, bytesOf(""), 0); }),
              Outcome(0, "Write byte number error !\n", "", {}));
}

// The self-test ----------------------------------------------------------------------------------

TEST(Serial, SelfTestReturns1WhenTheLineCannotBeOpenedOrSetUp)
{
    line.setattrError = EIO;
    EXPECT_EQ(outcomeOf(serial_test),
              Outcome(1, kOpened, errorLine("Set new terminal description error !", EIO),
                      kOpening + kSetting));
    line.descriptor = -1;
    EXPECT_EQ(outcomeOf(serial_test),
              Outcome(1, "Can't Open Serial Port /dev/ttyS4 !\n", "", {"open /dev/ttyS4"}));
}

TEST(Serial, SelfTestSends5000DigitsAndThenPrintsWhatComesEveryMillisecond)
{
    line.attributes = recordOf(0xFF);
    line.arrivals = {
        std::string(8192, 'x'), // a full read: nothing after it may be printed
        "hello",                // and nothing of it is left for the next one
        std::nullopt,
        "",
        "%s%n", // data is no format
    };
    EXPECT_EQ(outcomeOfLoop(serial_test, 19 + 5), // 5000 is 19 * 256 + 136
              Outcome(0,
                      kOpened + kSet + "len =  8192 ,szBuffer = " + std::string(8192, 'x') +
                          " \nlen =  5 ,szBuffer = hello \nlen =  4 ,szBuffer = %s%n \n",
                      "",
                      kOpening + kSetting + chunks(19, {"write 136"}) +
                          times(5, {"read 8192", "usleep 1000"})));
    std::string digits;
    for (int i = 0; i < 500; ++i) {
        digits += "0123456789";
    }
    EXPECT_EQ(line.sent, digits);
    EXPECT_EQ(textOf(line.attributes), textOf(rawRecord(0, CLOCAL | CREAD | CS8, B115200)));
}

// The older family: single fields ----------------------------------------------------------------

TEST(Serial, SetBaudrateSetsBothSpeedsAndNothingElse)
{
    for (const unsigned char base : kBases) {
        for (const NamedRate &rate : kAccepted) {
            termios record = recordOf(base);
            set_baudrate(&record, rate.code);
            termios expected = recordOf(base);
            expected.c_cflag = (expected.c_cflag & ~static_cast<tcflag_t>(CBAUD)) | rate.code;
            expected.c_ispeed = expected.c_ospeed = rate.code;
            expected.c_iflag = record.c_iflag; // one of its flags is the C library's
            EXPECT_EQ(textOf(record), textOf(expected)) << rate.baud;
        }
    }
}

// What `change` does to the control flags of a record with no flags and of one with all.
template <typename Change> void expectControl(tcflag_t set, tcflag_t cleared, Change change)
{
    for (const unsigned char base : kBases) {
        termios record = recordOf(base);
        change(&record);
        termios expected = recordOf(base);
        expected.c_cflag = (expected.c_cflag & ~cleared) | set;
        EXPECT_EQ(textOf(record), textOf(expected));
    }
}

TEST(Serial, SetDataBitKnowsFiveToSevenAndTakesEightForTheRest)
{
    for (const int32_t bits : {5, 6, 7, 8, 4, 9, -1}) {
        SCOPED_TRACE(bits);
        const tcflag_t size = bits == 5 ? CS5 : bits == 6 ? CS6 : bits == 7 ? CS7 : CS8;
        expectControl(size, CSIZE, [bits](termios *record) { set_data_bit(record, bits); });
    }
}

TEST(Serial, SetParityTurnsItOffForAnyLetterButUpperCaseOAndE)
{
    for (const char letter : {'O', 'E', 'N', 'n', 'o', 'e', 'S', '0', '\0'}) {
        SCOPED_TRACE(letter);
        const tcflag_t set = letter == 'O' ? PARENB | PARODD : letter == 'E' ? PARENB : 0;
        const tcflag_t cleared = letter == 'O' ? 0 : letter == 'E' ? PARODD : PARENB;
        expectControl(set, cleared, [letter](termios *record) { set_parity(record, letter); });
    }
}

TEST(Serial, SetStopbitKnowsTheTextTwoAndTakesOneForTheRest)
{
    for (const std::string text : {"1", "2", "", "22", "2 ", " 2", "12"}) {
        SCOPED_TRACE(text);
        expectControl(text == "2" ? CSTOPB : 0, CSTOPB,
                      [&text](termios *record) { set_stopbit(record, text.c_str()); });
    }
}

// The older family: speed ------------------------------------------------------------------------

// Rates and the kernel's codes, index by index.
const uint32_t kTableRates[9] = {115200, 57600, 38400, 19200, 9600, 4800, 2400, 1200, 300};
const uint32_t kTableCodes[9] = {0x1002, 0x1001, 0xF, 0xE, 0xD, 0xC, 0xB, 0x9, 0x7};

TEST(Serial, SetSpeedAppliesTheCodeOfTheTableBetweenTwoFlushes)
{
    static_assert(std::is_same_v<decltype(name_arr), const uint32_t[9]>);
    static_assert(std::is_same_v<decltype(speed_arr), const uint32_t[9]>);
    for (size_t i = 0; i < 9; ++i) {
        SCOPED_TRACE(kTableRates[i]);
        EXPECT_EQ(name_arr[i], kTableRates[i]);
        EXPECT_EQ(speed_arr[i], kTableCodes[i]);
        termios expected = rawRecord(ICRNL, CS7 | PARENB | HUPCL, B50);
        expected.c_lflag = ECHO;
        expected.c_cc[VTIME] = 7;
        line.attributes = expected;
        EXPECT_EQ(
            outcomeOf([i] { return set_speed(kLine, kTableRates[i]), 0; }),
            Outcome(0, "", "",
                    {"tcgetattr", "tcflush TCIOFLUSH", "tcsetattr TCSANOW", "tcflush TCIOFLUSH"}));
        expected.c_cflag = CS7 | PARENB | HUPCL | kTableCodes[i];
        expected.c_ispeed = expected.c_ospeed = kTableCodes[i];
        EXPECT_EQ(textOf(line.attributes), textOf(expected));
    }
}

TEST(Serial, SetSpeedIgnoresAnyOtherRateSilently)
{
    for (const uint32_t baud : {0u, 1u, 600u, 9601u, 230400u, 460800u, 1500000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(outcomeOf([=] { return set_speed(kLine, baud), 0; }),
                  Outcome(0, "", "", {"tcgetattr"}))
            << baud;
    }
}

TEST(Serial, SetSpeedReportsWhenItCannotApplyAndStops)
{
    line.setattrError = EIO;
    EXPECT_EQ(outcomeOf([] { return set_speed(kLine, 9600), 0; }),
              Outcome(0, "", errorLine("tcsetattr fd", EIO),
                      {"tcgetattr", "tcflush TCIOFLUSH", "tcsetattr TCSANOW"}));
}

// The older family: the complete set-up ----------------------------------------------------------

TEST(Serial, CompleteSetUpTakesEveryParityLetterInEitherCase)
{
    const struct {
        int32_t bits;
        char parity;
        int32_t stop;
        tcflag_t set, cleared; // control flags besides CSIZE and CSTOPB
        bool inputChecked;
    } rows[] = {
        // clang-format off
        {8, 'N', 1, CS8,                   PARENB, true}, // unlike the lower-case letter
        {8, 'n', 1, CS8,                   PARENB, false},
        {8, 'O', 1, CS8 | PARENB | PARODD, 0,      true},
        {8, 'o', 1, CS8 | PARENB | PARODD, 0,      true},
        {8, 'E', 1, CS8 | PARENB,          PARODD, true},
        {8, 'e', 1, CS8 | PARENB,          PARODD, true},
        {8, 'S', 1, CS8,                   PARENB, true},
        {8, 's', 1, CS8,                   PARENB, true},
        {8, 'S', 2, CS8 | CSTOPB,          PARENB, true}, // cleared, then set again
        {7, 'n', 1, CS7,                   PARENB, false},
        {7, 'n', 2, CS7 | CSTOPB,          PARENB, false},
        {8, 'n', 2, CS8 | CSTOPB,          PARENB, false},
        // clang-format on
    };
    for (const unsigned char base : kBases) {
        for (const auto &row : rows) {
            SCOPED_TRACE(std::to_string(row.bits) + row.parity + std::to_string(row.stop));
            line.attributes = recordOf(base);
            EXPECT_EQ(outcomeOf([&] { return set_Parity(kLine, row.bits, row.parity, row.stop); }),
                      Outcome(0, "", "", {"tcgetattr", "tcsetattr TCSANOW"}));
            termios expected = recordOf(base);
            expected.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | CSIZE | CSTOPB) & ~row.cleared;
            expected.c_cflag |= CLOCAL | CREAD | row.set;
            expected.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL | INPCK);
            expected.c_iflag |= row.inputChecked ? INPCK : 0;
            expected.c_oflag = 0;
            expected.c_lflag = 0;
            expected.c_cc[VTIME] = 30; // 3 s
            expected.c_cc[VMIN] = 0;
            EXPECT_EQ(textOf(line.attributes), textOf(expected));
        }
    }
}

void expectCompleteSetUpRefused(int32_t bits, char parity, int32_t stop, const std::string &message)
{
    EXPECT_EQ(outcomeOf([=] { return set_Parity(kLine, bits, parity, stop); }),
              Outcome(-1, "", message, {"tcgetattr"}));
}

TEST(Serial, CompleteSetUpRefusesOtherSizesThenParityLettersThenStopBits)
{
    for (const int32_t other : {5, 6, 9, 0, -1}) {
        expectCompleteSetUpRefused(other, 'X', 9, "Unsupported data size\n");
        expectCompleteSetUpRefused(8, 'N', other, "Unsupported stop bits\n");
    }
    for (const char letter : {'M', 'm', 'X', '0', ' ', '\0'}) {
        expectCompleteSetUpRefused(8, letter, 9, "Unsupported parity\n");
    }
}

TEST(Serial, CompleteSetUpFailsWhenTheAttributesCannotBeReadOrApplied)
{
    line.setattrError = EIO;
    EXPECT_EQ(outcomeOf([] { return set_Parity(kLine, 8, 'N', 1); }),
              Outcome(-1, "", errorLine("SetupSerial 3", EIO), {"tcgetattr", "tcsetattr TCSANOW"}));
    line.getattrError = ENOTTY;
    expectCompleteSetUpRefused(1, 'X', 9, errorLine("SetupSerial 1", ENOTTY));
}

TEST(Serial, PortAttributesAre115200AndOneStopBitWhateverIsAskedFor)
{
    const Journal calls = {"tcgetattr",         "tcflush TCIOFLUSH", "tcsetattr TCSANOW",
                           "tcflush TCIOFLUSH", "tcgetattr",         "tcsetattr TCSANOW"};
    EXPECT_EQ(outcomeOf([] { return set_port_attr(kLine, 300, 7, "2", 'E'); }),
              Outcome(0, "", "", calls));
    termios expected = rawRecord(INPCK, CLOCAL | CREAD | CS7 | PARENB, B115200);
    expected.c_cc[VTIME] = 30;
    EXPECT_EQ(textOf(line.attributes), textOf(expected));
    // A refusal makes no difference, and comes after the speed is set.
    line.attributes = recordOf(0);
    EXPECT_EQ(outcomeOf([] { return set_port_attr(kLine, 115200, 9, "1", 'N'); }),
              Outcome(0, "", "Unsupported data size\n", {calls.begin(), calls.end() - 1}));
    EXPECT_EQ(cfgetospeed(&line.attributes), static_cast<speed_t>(B115200));
}

} // namespace
