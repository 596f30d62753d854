#include "tests/simulation/protocol.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "tests/simulation/loop.h"
#include "tests/simulation/mirror.h"
#include "tests/simulation/records.h"
#include "tests/simulation/world.h"

namespace {

constexpr size_t kFrame = 19;
constexpr char kRefusal[] = "\xff\xff\xff\xff";
constexpr size_t kBetweenThreads = 4095;
constexpr size_t kBlock = 1024;
constexpr size_t kNetworkRecord = 18;

// Where UserPref.sav has what commands change.
constexpr size_t kDhcp = 9, kIp = 10, kGateway = 14, kMask = 18, kDns = 22, kMac = 30;
constexpr size_t kSerial = 4; // in DevInfo.sav

constexpr Time kSaveDelay = 1000 * kMillisecond;
constexpr Time kApplyDelay = 1500 * kMillisecond;
constexpr Time kUsualTimeOut = kSecond;

constexpr char kInstallBegins[] = "cp -f /usr/bin/vesk_h264 ";

uint8_t sumOf(const std::string &bytes, size_t count)
{
    uint8_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(bytes[i]));
    }
    return sum;
}

uint8_t digit(char character)
{
    const int c = std::tolower(static_cast<unsigned char>(character));
    return static_cast<uint8_t>(c >= '0' && c <= '9'   ? c - '0'
                                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                       : 0);
}

// A frame of the device with these seven bytes.
std::string frameOf(std::string seven)
{
    seven += static_cast<char>(sumOf(seven, 7));
    std::string text = "<F";
    for (const char byte : seven) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", static_cast<uint8_t>(byte));
        text += hex;
    }
    return text + ">";
}

bool isValid(const std::string &frame)
{
    return sumOf(frame, 7) == static_cast<uint8_t>(frame[7]);
}

// How long the device waits for the payload of a command, or 0 when there is none.
Time payloadTime(const std::string &frame)
{
    const auto at = [&](size_t i) { return static_cast<uint8_t>(frame[i]); };
    const uint32_t length = at(6) * 256u + at(5);
    if (!isValid(frame)) {
        return 0;
    }
    return at(2) == 0xF0   ? (length >= 2 && length <= 4097 ? 10 * kSecond : 0)
           : at(2) == 0xF2 ? kSecond
           : at(2) == 0x9A && at(3) == 0xA0 && at(4) == 7 ? 3 * kSecond
                                                          : 0;
}

// What a command may hold the loop up for: a payload, "up to a tenth longer", and its own waits.
Time allowanceFor(const std::string &frame)
{
    return payloadTime(frame) * 11 / 10 +
           (static_cast<uint8_t>(frame[2]) == 0xF0 ? kSecond / 2 : 0) + 20 * kMillisecond;
}

// What tools print: lines, and in a line the text after a form. A blank of the form is any white
// space.

bool isSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        lines.push_back(text.substr(at, end - at));
        at = end;
    }
    return lines;
}

bool findAfter(const std::string &line, const std::string &form, std::string *rest)
{
    for (size_t start = 0; start < line.size(); ++start) {
        size_t at = start;
        bool fits = true;
        for (const char c : form) {
            const size_t before = at;
            if (c == ' ') {
                while (at < line.size() && isSpace(line[at])) {
                    ++at;
                }
            } else if (at < line.size() && line[at] == c) {
                ++at;
            }
            fits = fits && at > before;
        }
        if (fits) {
            *rest = line.substr(at);
            return true;
        }
    }
    return false;
}

// Numbers of a byte each, with nothing but white space around them.
bool numbers(const std::string &text, int base, char separator, size_t count, std::string *out)
{
    std::string bytes;
    size_t at = 0;
    while (at < text.size() && isSpace(text[at])) {
        ++at;
    }
    for (size_t i = 0; i < count; ++i) {
        if (i > 0 && (at >= text.size() || text[at++] != separator)) {
            return false;
        }
        uint32_t value = 0;
        const size_t begin = at;
        for (; at < text.size() &&
               (base == 16 ? std::isxdigit(static_cast<unsigned char>(text[at]))
                           : std::isdigit(static_cast<unsigned char>(text[at]))) != 0;
             ++at) {
            value = std::min<uint32_t>(1000, value * static_cast<uint32_t>(base) + digit(text[at]));
        }
        if (at == begin || value > 255) {
            return false;
        }
        bytes += static_cast<char>(value);
    }
    if (at < text.size() && !isSpace(text[at])) {
        return false;
    }
    *out = bytes;
    return true;
}

} // namespace

// Start -------------------------------------------------------------------------------------------

void Protocol::boot()
{
    const uint64_t answered = answered_;
    *this = Protocol();
    answered_ = answered;
    lastFrame_.assign(8, '\0');
    const auto pref = world->disk.get(kUserPrefFile);
    const auto info = world->disk.get(kDevInfoFile);
    pref_ = loaded(kUserPrefFile, pref ? pref->content : "");
    info_ = loaded(kDevInfoFile, info ? info->content : "");
    headSince_ = world->threads.now();
}

void Protocol::callFailed(Call call, const std::string &object)
{
    hasFailures_ = true;
    updateIsInDoubt_ = updateIsInDoubt_ || object == kPackageFile || call == Call::memory;
    const bool isReading = call == Call::open || call == Call::read || call == Call::stat;
    if (isReading &&
        world->model->loop->passes() == 0) { // a record that cannot be read is as a missing one
        if (object == kUserPrefFile) {
            pref_ = loaded(kUserPrefFile, "");
            world->model->records->changed(Records::kUserPref, pref_);
        } else if (object == kDevInfoFile) {
            info_ = loaded(kDevInfoFile, "");
            world->model->records->changed(Records::kDevInfo, info_);
        }
    }
    if (call == Call::write && object == "/dev/ttyS0") { // the rest of the PC's bytes goes with it
        for (Words &words : words_) {
            words.endMayBeLost = true;
        }
    }
}

// Reading the line --------------------------------------------------------------------------------

void Protocol::lineRead(const std::string &bytes)
{
    world->noteRead(bytes);
    for (const char byte : bytes) {
        if (!requests_.empty() && !requests_.back().isWhole) {
            requests_.back().isWhole = takePayloadByte(requests_.back(), byte);
        } else {
            takeByte(byte);
        }
    }
}

void Protocol::takeByte(char byte)
{
    world->model->mirror->add(byte);
    if (byte == '<') {
        partial_ = "<";
    } else if (partial_ == "<" && byte != 'T') {
        partial_.clear();
    } else if (!partial_.empty()) {
        partial_ += byte;
        if (partial_.size() == kFrame) {
            frameIsWhole();
        }
    }
}

void Protocol::frameIsWhole()
{
    std::string frame;
    for (size_t i = 2; i < 18; i += 2) {
        frame += static_cast<char>(digit(partial_[i]) * 16 + digit(partial_[i + 1]));
    }
    if (requests_.empty()) {
        headSince_ = world->threads.now();
        headExcused_ = world->model->loop->excused();
    }
    requests_.push_back({frame, lastFrame_, partial_[18] != '>', world->threads.now(), "",
                         payloadTime(frame) == 0, world->wall() - world->threads.now()});
    world->model->loop->allowance += allowanceFor(frame);
    if (isValid(frame)) {
        world->model->mirror->executed(kFrame);
    }
    lastFrame_ = frame;
    partial_.clear();
}

bool Protocol::takePayloadByte(Request &request, char byte)
{
    request.payload += byte;
    switch (request[2]) {
    case 0xF2:
        return request.payload[0] != '[' || byte == ']';
    case 0xF0:
        return request.payload.size() == request.length();
    default:
        return request.payload.size() == kBlock + 1;
    }
}

// Answering ---------------------------------------------------------------------------------------

void Protocol::reply(const Request &request, uint8_t d1, uint8_t d2, uint8_t d3, uint8_t d4)
{
    std::string seven = request.frame.substr(0, 3);
    for (const uint8_t d : {d1, d2, d3, d4}) {
        seven += static_cast<char>(d);
    }
    answers_.push_back({frameOf(seven)});
}

void Protocol::ack(const Request &request)
{
    answers_.push_back({frameOf(request.frame.substr(0, 7))});
}

void Protocol::nak(const std::string &frame)
{
    answers_.push_back({frameOf(frame.substr(0, 3) + kRefusal)});
}

void Protocol::replyAddress(const Request &request, size_t at)
{
    answers_.push_back({frameOf(request.frame.substr(0, 3) + pref_.substr(at, 4)), !isPrefKnown_});
}

void Protocol::change(size_t at, const std::string &bytes)
{
    pref_.replace(at, bytes.size(), bytes);
    world->model->records->changed(Records::kUserPref, pref_);
    toBeSaved_ = pref_;
    if (apply_.isOverdue(kApplyDelay)) {
        takenIsKnown_ = false; // what was due may be applied before this command or never
    }
    // A clock that is set between reading and answer: the command is executed before that or after.
    const Time now = world->threads.now();
    const Time clock = std::max(requests_.front().clock, world->wall() - now);
    takenIsKnown_ =
        takenIsKnown_ && clock == requests_.front().clock && clock == world->wall() - now;
    save_ = apply_ = {true, now + clock, 0};
}

bool Protocol::isSilent(const Request &request) const
{
    if (request.endIsWrong || !isValid(request.frame)) {
        return false;
    }
    if (request[2] == 0x8E) {
        return request[3] != 2 && request[3] != 3 && request[3] != 5 && request[3] != 7;
    }
    if (request[2] != 0xF0 || request[3] != 0x20 || request.length() > kNetworkRecord ||
        !request.isWhole) {
        return false;
    }
    const size_t length = request.length();
    return length < 2 || request.payload.size() == length - 1 ||
           (request.payload.size() == length &&
            sumOf(request.payload, length - 1) == static_cast<uint8_t>(request.payload.back()));
}

void Protocol::answer(const Request &request)
{
    if (isValid(request.frame)) {
        execute(request);
    } else {
        nak(request.frame);
    }
}

void Protocol::execute(const Request &request)
{
    const uint8_t d1 = request[3];
    const uint8_t d2 = request[4];
    switch (request[2]) {
    case 0x10:
        return d1 == 0x11 ? ack(request) : nak(request.frame);
    case 0x68:
        return d1 == 0x01 ? reply(request, 0x01, 0x26, 0x33, 0) : nak(request.frame);
    case 0x6A:
        if (d1 == 0x03) {
            return reply(request, 0x03, 1, 10, 0);
        }
        if (d1 == 0x04) {
            const uint32_t version = systemVersion();
            return reply(request, 0x04, static_cast<uint8_t>(version >> 8),
                         static_cast<uint8_t>(version), 0);
        }
        if (d1 == 0x10) {
            info_.replace(kSerial, 4,
                          std::string{static_cast<char>(request[5]), static_cast<char>(d2), 0, 0});
            world->model->records->changed(Records::kDevInfo, info_);
            world->model->records->settled(Records::kDevInfo, info_);
            return ack(request);
        }
        if (d1 == 0x11) {
            return reply(request, 0x11, static_cast<uint8_t>(info_[kSerial + 1]),
                         static_cast<uint8_t>(info_[kSerial]), 0);
        }
        return nak(request.frame);
    case 0x84:
        change(kMask, request.frame.substr(3, 4));
        return replyAddress(request, kMask);
    case 0x85:
        return replyAddress(request, kMask);
    case 0x88:
        change(kIp, request.frame.substr(3, 4));
        isSetIp_ = true;
        return replyAddress(request, kIp);
    case 0x89:
        if (!isSetIp_) {
            takeSystemNetwork();
        }
        return replyAddress(request, kIp);
    case 0x8C:
        change(kGateway, request.frame.substr(3, 4));
        return replyAddress(request, kGateway);
    case 0x8D:
        return replyAddress(request, kGateway);
    case 0x8E:
        if (d1 == 2) {
            if (d2 != static_cast<uint8_t>(pref_[kDhcp])) {
                change(kDhcp, std::string(1, d2 != 0 ? 1 : 0));
                if (isPrefKnown_) {
                    world->model->records->settled(Records::kUserPref, pref_);
                }
            }
            return ack(request);
        }
        if (d1 == 3) {
            reply(request, 3, static_cast<uint8_t>(pref_[kDhcp]), 0, 0);
        } else if (d1 == 5 || d1 == 7) {
            const size_t at = d1 == 5 ? kMac : kMac + 3;
            reply(request, d1, static_cast<uint8_t>(pref_[at]), static_cast<uint8_t>(pref_[at + 1]),
                  static_cast<uint8_t>(pref_[at + 2]));
        }
        if (!answers_.empty()) {
            answers_.back().isAnyData = !isPrefKnown_;
        }
        return;
    case 0x9A:
        return executeUpdate(request);
    case 0xF0:
        return writeData(request);
    case 0xF1:
        return readData(request);
    case 0xF2: {
        const bool isText = !request.payload.empty() && request.payload[0] == '[';
        return isText && (d1 == 0 || d1 == 9 || d1 == 0x38 || d1 == 0x39) ? ack(request)
                                                                          : nak(request.frame);
    }
    case 0xF3:
        if (d1 == 0 || d1 == 9 || d1 == 0x39) {
            reply(request, d1, d2, 0, 0);
            answers_.push_back({"[]"});
            return;
        }
        return nak(request.frame);
    default:
        return nak(request.frame);
    }
}

void Protocol::executeUpdate(const Request &request)
{
    const uint8_t d1 = request[3];
    const uint8_t d2 = request[4];
    const std::string &block = request.payload;
    switch (d1) {
    case 0x10:
        return reply(request, 0x10, 0, 0, 0);
    case 0x16:
    case 0x20:
        return ack(request);
    case 0xA1:
        return reply(request, d1, d2, 4, 0);
    case 0xB1:
        return d2 == 7 ? reply(request, d1, d2, 1, 10) : ack(request);
    case 0xA0:
        if (d2 != 7 || block.size() < kBlock ||
            (block.size() > kBlock &&
             sumOf(block, kBlock) != static_cast<uint8_t>(block[kBlock]))) {
            return nak(request.frame);
        }
        updateIsInDoubt_ = updateIsInDoubt_ && (request.length() != 0 || hasFailures_);
        update_.block(request.length(), block.substr(0, kBlock));
        if (update_.isToInstall()) {
            world->model->records->install(update_.stored());
        }
        return ack(request);
    default:
        return nak(request.frame);
    }
}

void Protocol::writeData(const Request &request)
{
    const size_t length = request.length();
    const size_t came = request.payload.size();
    const bool isRight =
        length < 2 ||
        (length <= 4097 && (came == length - 1 ||
                            (came == length && sumOf(request.payload, length - 1) ==
                                                   static_cast<uint8_t>(request.payload.back()))));
    if (!isRight || request[3] != 0x20) {
        return nak(request.frame);
    }
    if (length > kNetworkRecord) {
        ack(request);
    }
}

void Protocol::readData(const Request &request)
{
    if (request[3] != 0x20) {
        return nak(request.frame);
    }
    reply(request, 0x20, request[4], 19, 0);
    const SystemNetwork &network = world->tools.network;
    std::string record(kNetworkRecord, '\0');
    const auto put = [&](size_t at, const uint8_t *bytes, size_t count) {
        record.replace(at, count, reinterpret_cast<const char *>(bytes), count);
    };
    const auto run = std::find_if(runs_.rbegin(), runs_.rend(), [](const Tools::Run &r) {
        return r.command.rfind("ip route |", 0) == 0;
    });
    if (network.isUp) {
        put(0, network.ip, 4);
        put(4, network.mask, 4);
        if (run != runs_.rend() && run->isStarted) {
            const auto lines = linesOf(run->output);
            const std::string line = lines.empty() ? "" : lines[0];
            if (std::count(line.begin(), line.end(), '.') < 4) {
                std::string route(4, '\0');
                if (numbers(line, 10, '.', 4, &route)) {
                    record.replace(8, 4, route);
                }
                put(12, network.mac, 6);
            }
        }
    }
    record += static_cast<char>(sumOf(record, record.size()));
    answers_.push_back({record, hasFailures_});
}

uint32_t Protocol::systemVersion() const
{
    if (runs_.empty() || !runs_.back().isStarted) {
        return 0xFFFF;
    }
    const std::string &text = runs_.back().output;
    uint64_t parts[2] = {0, 0};
    size_t at = 1;
    for (uint64_t &part : parts) {
        const size_t begin = at;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
            part = std::min<uint64_t>(part * 10 + digit(text[at]), 1ull << 40);
        }
        if (at == begin || part > 0xFFFFFFFF ||
            (&part == parts && (at >= text.size() || text[at] != '.'))) {
            return 0;
        }
        ++at;
    }
    return text[0] == 'v' ? static_cast<uint32_t>((parts[0] << 8) + (parts[1] & 0xFF)) : 0;
}

// What 89 takes over: everything up to the first tool that cannot be started. An interface without
// a name ends it too.
void Protocol::takeSystemNetwork()
{
    size_t at = runs_.size();
    while (at > 0 && runs_[at - 1].command != "ifconfig") {
        --at;
    }
    if (at == 0) {
        world->fail("answers", "89 is answered without a look at the system");
    }
    const auto next = [&](const char *command) -> const Tools::Run * {
        if (at >= runs_.size() || runs_[at].command != command) {
            world->fail("answers", std::string("89 is answered without: ") + command);
        }
        return runs_[at++].isStarted ? &runs_[at - 1] : nullptr;
    };
    const auto address = [&](const Tools::Run &run, const char *form, std::string *out) {
        for (const std::string &line : linesOf(run.output)) {
            std::string rest;
            if (findAfter(line, form, &rest)) {
                numbers(rest, 10, '.', 4, out);
                return;
            }
        }
    };
    // Tools that fail leave what was applied last, which happens at a time that is not known
    // exactly.
    const bool isKnown = takenIsKnown_ && !apply_.isOverdue(kApplyDelay);
    --at;
    const auto takeAll = [&] {
        const Tools::Run *run = next("ifconfig");
        const auto lines = run == nullptr ? std::vector<std::string>() : linesOf(run->output);
        const size_t nameEnds = lines.empty() ? std::string::npos : lines[0].find("  ");
        if (nameEnds == std::string::npos) {
            return;
        }
        const std::string name = lines[0].substr(0, nameEnds);
        std::string rest;
        if (findAfter(lines[0], "HWaddr ", &rest)) {
            numbers(rest, 16, ':', 6, &taken_.mac);
        }
        for (size_t i = 1; i < lines.size(); ++i) {
            if (findAfter(lines[i], "inet addr:", &rest)) {
                numbers(rest, 10, '.', 4, &taken_.ip);
                if (findAfter(lines[i], "Mask:", &rest)) {
                    numbers(rest, 10, '.', 4, &taken_.mask);
                }
                break;
            }
        }
        if ((run = next("ip route show")) == nullptr) {
            return;
        }
        address(*run, "default via", &taken_.gateway);
        if ((run = next("cat /etc/resolv.conf")) == nullptr) {
            return;
        }
        address(*run, "nameserver", &taken_.dns);
        if ((run = next("cat /etc/dhcpcd.conf")) == nullptr) {
            return;
        }
        taken_.dhcp = true;
        for (const std::string &line : linesOf(run->output)) {
            taken_.dhcp = taken_.dhcp && !findAfter(line, "interface " + name, &rest);
        }
    };
    takeAll();
    pref_[kDhcp] = taken_.dhcp ? 1 : 0;
    pref_.replace(kIp, 4, taken_.ip)
        .replace(kGateway, 4, taken_.gateway)
        .replace(kMask, 4, taken_.mask);
    pref_.replace(kDns, 4, taken_.dns).replace(kMac, 6, taken_.mac);
    world->model->records->changed(Records::kUserPref, pref_);
    if (!isKnown) {
        isPrefKnown_ = false;
        world->model->records->unknown(Records::kUserPref);
    }
}

void Protocol::done()
{
    requests_.pop_front();
    ++answered_;
    headSince_ = world->threads.now();
    headExcused_ = world->model->loop->excused();
}

void Protocol::lineWritten(const std::string &bytes)
{
    world->note("to the line: %s", inWords(bytes).c_str());
    if (answers_.empty() && takePcBytes(bytes)) {
        return;
    }
    while (answers_.empty() && !requests_.empty() && isSilent(requests_.front())) {
        done();
    }
    if (answers_.empty()) {
        if (requests_.empty()) {
            world->fail("answers", "nobody asked for: " + inWords(bytes));
        }
        Request &request = requests_.front();
        const Time waited = world->threads.now() - request.readAt;
        if (!request.isWhole && waited < payloadTime(request.frame)) {
            world->fail("answers", "the payload is given up after " +
                                       std::to_string(waited / kMillisecond) + " ms");
        }
        if (request.endIsWrong) { // refuses the frame before; then comes the answer to this one
            request.endIsWrong = false;
            if (bytes != frameOf(request.before.substr(0, 3) + kRefusal)) {
                world->fail("answers", "the wrong end is not refused, but: " + inWords(bytes));
            }
            return;
        }
        request.isWhole = true;
        answer(request);
    }
    const Answer &expected = answers_.front();
    const bool isRefusal = bytes == frameOf(requests_.front().frame.substr(0, 3) + kRefusal);
    if (expected.text != bytes && hasFailures_ && isRefusal && requests_.front()[2] == 0x9A) {
        update_.abandon(); // the package cannot be written
    } else if (expected.isAnyData ? bytes.size() != expected.text.size() : bytes != expected.text) {
        world->fail("answers", "expected " + inWords(expected.text) + ", not " + inWords(bytes));
    }
    answers_.pop_front();
    if (answers_.empty()) {
        runs_.clear();
        hasFailures_ = false;
        done();
    }
}

// Tools -------------------------------------------------------------------------------------------

void Protocol::toolStarts(const std::string &command)
{
    if (command.rfind(kInstallBegins, 0) != 0) {
        return;
    }
    if (updateIsInDoubt_) {
        const auto package = world->disk.get(kPackageFile);
        world->model->records->install(package ? package->content : "");
    } else if (!update_.isToInstall()) {
        world->fail("program", "a package is installed that is not whole and right");
    }
}

void Protocol::toolRan(const Tools::Run &run)
{
    runs_.push_back(run);
}

void Protocol::daemonEnded(int status)
{
    if (status == 0 && !update_.isToInstall() && !updateIsInDoubt_) {
        world->fail("program", "the daemon ends without an update");
    }
}

void Protocol::diskChanges()
{
    Records &records = *world->model->records;
    records.mayBecome(Records::kUserPref, pref_);
    records.mayBecome(Records::kDevInfo, info_);
    for (const Request &request : requests_) {
        if (isSilent(request)) {
            continue;
        }
        if (!isValid(request.frame)) {
            return;
        }
        if (request[2] == 0x6A && request[3] == 0x10) {
            std::string next = info_;
            next.replace(
                kSerial, 4,
                std::string{static_cast<char>(request[5]), static_cast<char>(request[4]), 0, 0});
            records.mayBecome(Records::kDevInfo, next);
        } else if (request[2] == 0x8E && request[3] == 2) {
            std::string next = pref_;
            next[kDhcp] = request[4] != 0 ? 1 : 0;
            records.mayBecome(Records::kUserPref, next);
        }
        return;
    }
}

// The PC's bytes ----------------------------------------------------------------------------------

void Protocol::datagramReceived(PcAddress, const std::string &bytes)
{
    world->note("the daemon gets a datagram: %s", inWords(bytes).c_str());
    if (bytes.empty()) {
        return;
    }
    size_t waiting = 0;
    for (const Words &words : words_) {
        waiting += words.bytes.size();
    }
    if (words_.empty()) {
        said_ = {{0, 0}};
        wordsSince_ = world->threads.now();
        wordsExcused_ = world->model->loop->excused();
    }
    words_.push_back({bytes, waiting - said_.begin()->second + bytes.size() > kBetweenThreads});
}

// Where a datagram is over, or may have lost its end, the next one can follow.
void Protocol::addNextWords()
{
    for (auto i = said_.begin(); i != said_.end(); ++i) {
        const auto [word, at] = *i;
        if (word < words_.size() &&
            (at == words_[word].bytes.size() || words_[word].endMayBeLost)) {
            said_.insert({word + 1, 0});
        }
    }
}

bool Protocol::takePcBytes(const std::string &bytes)
{
    if (words_.empty()) {
        return false;
    }
    const auto before = said_;
    for (const char byte : bytes) {
        addNextWords();
        std::set<std::pair<size_t, size_t>> after;
        for (const auto &[word, at] : said_) {
            if (word < words_.size() && at < words_[word].bytes.size() &&
                words_[word].bytes[at] == byte) {
                after.insert({word, at + 1});
            }
        }
        said_ = std::move(after);
    }
    if (said_.empty()) {
        said_ = before;
        return false;
    }
    forgetWords();
    wordsSince_ = world->threads.now();
    wordsExcused_ = world->model->loop->excused();
    return true;
}

// Drops the datagrams that are over for sure.
void Protocol::forgetWords()
{
    addNextWords();
    if (said_.begin()->second == words_[said_.begin()->first].bytes.size()) {
        said_.erase(said_.begin());
    }
    const size_t over = said_.begin()->first;
    std::set<std::pair<size_t, size_t>> rest;
    for (const auto &[word, at] : said_) {
        rest.insert({word - over, at});
    }
    said_ = std::move(rest);
    words_.erase(words_.begin(), words_.begin() + static_cast<ptrdiff_t>(over));
}

// Time --------------------------------------------------------------------------------------------

// By the device's tick: the low 32 bits of the wall clock's milliseconds. From the upper half to
// the lower one the tick has wrapped, and any other step back is no time at all.
Time Protocol::Delayed::waited() const
{
    const auto tick = [](Time time) { return static_cast<uint32_t>(time / kMillisecond); };
    const uint32_t start = tick(since);
    const uint32_t now = tick(world->wall());
    const bool hasWrapped = start >= 0x80000000 && now < 0x7FFFFFFF;
    return now >= start || hasWrapped ? static_cast<uint32_t>(now - start) * kMillisecond : 0;
}

bool Protocol::Delayed::isOverdue(Time delay) const
{
    return isDue && waited() >= delay - kMillisecond;
}

bool Protocol::Delayed::hasHappened(Time delay)
{
    constexpr Time kSlack = 5 * kMillisecond;
    // In one pass it happens at the latest, so it has happened when the next one begins.
    if (isDue && waited() >= delay + kSlack && ++passes >= 2) {
        isDue = false;
        return true;
    }
    return false;
}

void Protocol::passBegins()
{
    if (update_.isToInstall() && !updateIsInDoubt_) {
        world->fail("program", "a package that is whole and right is not installed");
    }
    if (save_.hasHappened(kSaveDelay)) {
        if (isPrefKnown_) {
            world->model->records->settled(Records::kUserPref, toBeSaved_);
        }
    }
    if (apply_.hasHappened(kApplyDelay)) {
        takenIsKnown_ = true;
        taken_.dhcp = pref_[kDhcp] != 0;
        taken_.ip = pref_.substr(kIp, 4);
        taken_.gateway = pref_.substr(kGateway, 4);
        taken_.mask = pref_.substr(kMask, 4);
        taken_.dns = pref_.substr(kDns, 4);
    }
    world->model->loop->allowance = 0;
    for (const Request &request : requests_) {
        world->model->loop->allowance += allowanceFor(request.frame);
    }
    checkTime();
}

void Protocol::checkTime()
{
    const Time now = world->threads.now();
    const Time excused = world->model->loop->excused();
    if (!requests_.empty()) {
        Request &request = requests_.front();
        const Time waited = now - headSince_ - (excused - headExcused_);
        const bool isLate = waited > kUsualTimeOut + allowanceFor(request.frame);
        if (isLate && !request.isWhole) {
            request.isWhole = true; // given up, and silent if that is the answer
        }
        if (isLate && answers_.empty() && isSilent(request)) {
            done();
        } else if (isLate) {
            world->fail("answers",
                        "no answer in time to " + inWords(frameOf(request.frame.substr(0, 7))));
        }
    }
    if (!words_.empty() && now - wordsSince_ - (excused - wordsExcused_) >
                               kUsualTimeOut + world->model->loop->allowance) {
        addNextWords();
        if (said_.rbegin()->first < words_.size()) {
            world->fail("the PC's bytes",
                        "not on the line in time: " +
                            inWords(words_.front().bytes.substr(said_.begin()->second)));
        }
        words_.clear();
    }
}

void Protocol::timePasses()
{
    if (world->isRunning) {
        checkTime();
    }
}

bool Protocol::isDone() const
{
    return words_.empty() && answers_.empty() &&
           std::all_of(requests_.begin(), requests_.end(),
                       [&](const Request &r) { return isSilent(r); });
}

void Protocol::quiet()
{
    if (world->isRunning && !isDone()) {
        world->fail("answers", "the device is not done");
    }
}
