// What the system's tools print, and what the daemon takes from it. An input is a byte of flags (1:
// DHCP is asked for, 2: no tool can be started) and the outputs, with FF between them, of:
// ifconfig, ip route show, resolv.conf, dhcpcd.conf, /etc/issue, and the route for the network
// record.

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>

#include "control/ip.h"
#include "control/network_record.h"
#include "storage/UserPref.h"
#include "tests/fuzz/world.h"

namespace {

using Address = std::array<uint8_t, 4>;

std::string outputs[6];

std::string_view toolOutput(const char *name)
{
    const std::string_view command = name;
    return command == "ifconfig"               ? outputs[0]
           : command == "ip route show"        ? outputs[1]
           : command == "cat /etc/resolv.conf" ? outputs[2]
           : command == "cat /etc/dhcpcd.conf" ? outputs[3]
           : command == "cat /etc/issue"       ? outputs[4]
           : command.starts_with("ip route |") ? outputs[5]
                                               : std::string_view();
}

bool isBlank(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// Whether an output is plain enough for the readings below: no zero byte, no line that is read in
// pieces.
bool isPlain(std::string_view output)
{
    size_t line = 0;
    for (const char byte : output) {
        line = byte == '\n' ? 0 : line + 1;
        if (byte == '\0' || line > 1000) {
            return false;
        }
    }
    return true;
}

// With every run of white space as one blank.
std::string collapsed(std::string_view text)
{
    std::string result;
    for (const char byte : text) {
        if (!isBlank(byte)) {
            result += byte;
        } else if (result.empty() || result.back() != ' ') {
            result += ' ';
        }
    }
    return result;
}

// The first line that has `form`, without blanks that repeat; nothing if there is none.
bool lineWith(std::string_view output, const std::string &form, std::string &line)
{
    while (!output.empty()) {
        const size_t end = std::min(output.find('\n'), output.size() - 1);
        line = collapsed(output.substr(0, end + 1));
        if (line.find(form) != std::string::npos) {
            return true;
        }
        output.remove_prefix(end + 1);
    }
    return false;
}

template <size_t count>
void takeNumbers(const std::string &line, const std::string &form, int base, char separator,
                 std::array<uint8_t, count> &out)
{
    const size_t found = line.find(form);
    if (found == std::string::npos) {
        return;
    }
    size_t at = found + form.size();
    at += at < line.size() && line[at] == ' ' ? 1 : 0;
    std::array<uint8_t, count> numbers{};
    for (size_t i = 0; i < count; ++i) {
        if (i > 0 && (at >= line.size() || line[at++] != separator)) {
            return;
        }
        size_t end = at;
        unsigned number = 0;
        while (end < line.size() &&
               (base == 16 ? std::isxdigit(static_cast<unsigned char>(line[end])) != 0
                           : line[end] >= '0' && line[end] <= '9')) {
            number = std::min(
                1000U, number * static_cast<unsigned>(base) +
                           static_cast<unsigned>(std::stoi(line.substr(end, 1), nullptr, base)));
            ++end;
        }
        if (end == at || number > 255) {
            return;
        }
        numbers[i] = static_cast<uint8_t>(number);
        at = end;
    }
    if (at == line.size() || line[at] == ' ') {
        out = numbers;
    }
}

struct Found {
    uint8_t dhcp = 1;
    Address ip{};
    Address mask{255, 255, 255, 0};
    Address gateway{};
    Address dns{};
    std::array<uint8_t, 6> mac{};
    std::string name;
};

Found read()
{
    Found found;
    const std::string first = outputs[0].substr(0, outputs[0].find('\n'));
    const size_t end = first.find("  ");
    if (end == std::string::npos) {
        return found;
    }
    found.name = first.substr(0, std::min<size_t>(end, 99));
    takeNumbers(collapsed(first), "HWaddr ", 16, ':', found.mac);
    const size_t second = std::min(outputs[0].size(), first.size() + 1);
    std::string line;
    if (lineWith(std::string_view(outputs[0]).substr(second), "inet addr:", line)) {
        takeNumbers(line, "inet addr:", 10, '.', found.ip);
        takeNumbers(line, "Mask:", 10, '.', found.mask);
    }
    if (lineWith(outputs[1], "default via", line)) {
        takeNumbers(line, "default via", 10, '.', found.gateway);
    }
    if (lineWith(outputs[2], "nameserver", line)) {
        takeNumbers(line, "nameserver", 10, '.', found.dns);
    }
    found.dhcp = lineWith(outputs[3], "interface " + found.name, line) ? 0 : 1;
    return found;
}

template <size_t count> bool is(const uint8_t *bytes, const std::array<uint8_t, count> &expected)
{
    return std::memcmp(bytes, expected.data(), count) == 0;
}

std::string dotted(const uint8_t *bytes)
{
    return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.' +
           std::to_string(bytes[2]) + '.' + std::to_string(bytes[3]);
}

uint32_t versionOf(const std::string &line)
{
    uint32_t parts[2];
    size_t at = 1;
    for (size_t i = 0; i < 2; ++i) {
        const size_t first = at;
        uint64_t number = 0;
        while (at < line.size() && line[at] >= '0' && line[at] <= '9') {
            number = std::min<uint64_t>(uint64_t{1} << 40,
                                        number * 10 + static_cast<uint64_t>(line[at++] - '0'));
        }
        if (line.empty() || line[0] != 'v' || at == first || number > UINT32_MAX ||
            (i == 0 && (at >= line.size() || line[at++] != '.'))) {
            return 0;
        }
        parts[i] = static_cast<uint32_t>(number);
    }
    return parts[0] * 256 + parts[1] % 256;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    Input input(bytes, count);
    const uint8_t flags = input.byte();
    bool arePlain = (flags & 2) == 0;
    for (std::string &output : outputs) {
        output.clear();
        while (input.left() > 0) {
            const uint8_t byte = input.byte();
            if (byte == 0xFF) {
                break;
            }
            output += static_cast<char>(byte);
        }
        arePlain = arePlain && isPlain(output);
    }
    World run;
    run.toolOutput = toolOutput;
    run.faults = (flags & 2) != 0 ? World::kNoTools : 0;
    std::string written;
    run.written = &written;

    UserPref &preferences = *getUserPref();
    read_ip();
    const uint32_t version = getSystemVersion();
    Address route{1, 2, 3, 4};
    const int32_t hasRoute = get_local_route(route.data(), 4);
    MUST_HOLD(preferences.dhcpEnable <= 1);
    std::string name;
    if (arePlain) {
        const Found found = read();
        name = found.name;
        MUST_HOLD(is(preferences.ipAddress, found.ip));
        MUST_HOLD(is(preferences.netMask, found.mask));
        MUST_HOLD(is(preferences.gateway, found.gateway));
        MUST_HOLD(is(preferences.dns[0], found.dns));
        MUST_HOLD(is(preferences.mac, found.mac));
        // A name with other white space than blanks is a form that the reading above does not know.
        const bool isSimple =
            std::all_of(name.begin(), name.end(), [](char c) { return c == ' ' || !isBlank(c); });
        MUST_HOLD(!isSimple || name.starts_with(' ') || preferences.dhcpEnable == found.dhcp);
        MUST_HOLD(version == versionOf(outputs[4]));
        Address expected{1, 2, 3, 4};
        std::string line = outputs[5].substr(0, outputs[5].find('\n'));
        line.resize(std::min<size_t>(line.size(), 99));
        if (line.size() < 90 && hasRoute == 0) {
            takeNumbers(collapsed(line), "", 10, '.', expected);
            MUST_HOLD(route == expected);
        }
    } else if ((flags & 2) != 0) {
        MUST_HOLD(version == 0xFFFFFFFF && hasRoute == -1);
    }

    preferences.dhcpEnable = flags & 1;
    written.clear();
    ResetStaticIp();
    if ((flags & 3) == 0 && arePlain && !name.empty()) {
        int prefix = 0;
        for (size_t i = 0; i < 4 && preferences.netMask[i] == 255; ++i) {
            prefix += 8;
        }
        const std::string expected =
            "interface " + name + "\nstatic ip_address=" + dotted(preferences.ipAddress) + '/' +
            std::to_string(prefix) + "\nstatic routers=" + dotted(preferences.gateway) +
            "\nstatic domain_name_servers=" + dotted(preferences.dns[0]) + "\n";
        MUST_BE(written, expected);
    } else if ((flags & 1) != 0) {
        MUST_BE(written, "");
    }
    return 0;
}
