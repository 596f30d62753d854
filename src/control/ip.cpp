#include "control/ip.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "core/DelayCall.h"
#include "storage/UserPref.h"

uint8_t isSetIp;

namespace {

constexpr uint32_t kSaveDelayMs = 1000;
constexpr uint32_t kApplyDelayMs = 1500;

constexpr uint32_t kAddressLength = 4;

// State, main loop only: what init_ip() found or set_ip() was given.
char eth0_name[100];
uint8_t _ip[4];
uint8_t _mask[4] = {255, 255, 255, 0};
uint8_t _gateway[4];
uint8_t _dns[4];
uint8_t _dhcp = 1;
uint8_t _mac[6];

// The output of a command, line by line --------------------------------------------------------

struct CommandOutput {
    std::FILE *stream;
    char line[1024]; // the line read last; empty before the first line and after the last
};

[[nodiscard]] bool startCommand(CommandOutput *output, const char *command)
{
    output->line[0] = '\0';
    output->stream = popen(command, "r");
    if (output->stream == nullptr) {
        std::printf("execute command failed: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

// The exit status is dropped: the output has been checked on its own.
void endCommand(const CommandOutput &output)
{
    pclose(output.stream);
}

bool isWhiteSpace(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

const char *skipWhiteSpace(const char *text)
{
    while (isWhiteSpace(*text)) {
        ++text;
    }
    return text;
}

// Reads the next line, a long one in pieces. Returns false at the end of the output, where the line
// is empty.
bool nextLine(CommandOutput *output)
{
    char *const line = output->line;
    if (std::fgets(line, sizeof output->line, output->stream) == nullptr) {
        line[0] = '\0';
        return false;
    }
    const size_t length = std::strlen(line);
    if (length == sizeof output->line - 1 && line[length - 1] != '\n') {
        // A number cut in two would look like another number.
        char *end = line + length;
        while (end > line && !isWhiteSpace(end[-1])) {
            --end;
        }
        *end = '\0';
    }
    return true;
}

// A form is text that the tools print. A blank in it stands for one or more white-space characters.

// Returns the rest of `text` when it begins with `form`, else null.
const char *restAfter(const char *text, const char *form)
{
    for (; *form != '\0'; ++form) {
        if (*form == ' ' && isWhiteSpace(*text)) {
            text = skipWhiteSpace(text);
        } else if (*form == *text) {
            ++text;
        } else {
            return nullptr;
        }
    }
    return text;
}

// Returns the rest of `text` after the first `form` in it, or null when there is none.
const char *findForm(const char *text, const char *form)
{
    for (; *text != '\0'; ++text) {
        if (const char *const rest = restAfter(text, form)) {
            return rest;
        }
    }
    return nullptr;
}

// Reads on to the first line that contains `form`. Returns the rest of that line, or null when
// there is none.
const char *findInLines(CommandOutput *output, const char *form)
{
    while (nextLine(output)) {
        if (const char *const rest = findForm(output->line, form)) {
            return rest;
        }
    }
    return nullptr;
}

// Reads `count` (up to 6) numbers with `separator` between them. White space may stand before the
// first number and must follow the last one, unless the text ends there. Each number must be in the
// range of a byte. Returns false and leaves `out` as it is for anything else.
bool readNumbers(const char *text, int base, char separator, uint8_t *out, uint32_t count)
{
    uint8_t numbers[6];
    const char *const end = text + std::strlen(text);
    text = skipWhiteSpace(text);
    for (uint32_t i = 0; i < count; ++i) {
        if (i > 0 && *text++ != separator) {
            return false;
        }
        const auto [rest, error] = std::from_chars(text, end, numbers[i], base);
        if (error != std::errc()) {
            return false;
        }
        text = rest;
    }
    if (*text != '\0' && !isWhiteSpace(*text)) {
        return false;
    }
    std::memcpy(out, numbers, count);
    return true;
}

void printAddress(const char *what, const uint8_t *address)
{
    std::printf("get %s = %d.%d.%d.%d\n", what, address[0], address[1], address[2], address[3]);
}

// The steps of init_ip() -----------------------------------------------------------------------

// Takes the name from the interface's first line: the text before the first two spaces. Other white
// space does not end it.
bool readName(const char *line)
{
    const char *const end = std::strstr(line, "  ");
    if (end == nullptr) {
        std::puts("no find :");
        return false;
    }
    const auto length = static_cast<size_t>(end - line);
    const size_t kept = length < sizeof eth0_name ? length : sizeof eth0_name - 1;
    std::memcpy(eth0_name, line, kept);
    eth0_name[kept] = '\0';
    std::printf("len = %zu\n", length);
    std::printf("eth0 name:%s\n", eth0_name);
    return true;
}

// Takes the MAC address from the same line.
void readMac(const char *line)
{
    if (const char *const mac = findForm(line, "HWaddr ")) {
        readNumbers(mac, 16, ':', _mac, sizeof _mac); // dropped: on failure the old one stays
        std::printf("get mac = %x.%x.%x.%x.%x.%x\n", _mac[0], _mac[1], _mac[2], _mac[3], _mac[4],
                    _mac[5]);
    }
}

// Reads the address and the mask, which are on one line.
void readInterfaceAddress(CommandOutput *output)
{
    const char *const address = findInLines(output, "inet addr:");
    if (address == nullptr) {
        return;
    }
    // An address that cannot be read leaves the old one, and the message shows that.
    static_cast<void>(readAddress(address, _ip));
    printAddress("ip", _ip);
    const char *const mask = findForm(output->line, "Mask:");
    if (mask == nullptr || !readAddress(mask, _mask)) {
        std::puts("get mask error");
    }
    printAddress("mask", _mask);
}

bool readIfconfig()
{
    CommandOutput output;
    if (!startCommand(&output, "ifconfig")) {
        return false;
    }
    nextLine(&output); // no output is an empty line, which has no name
    const bool isFound = readName(output.line);
    if (isFound) {
        readMac(output.line);
        readInterfaceAddress(&output);
    }
    endCommand(output);
    return isFound;
}

// Returns whether a name is known. Asks the system for it if necessary.
bool learnName()
{
    CommandOutput output;
    if (eth0_name[0] == '\0' && startCommand(&output, "ifconfig")) {
        nextLine(&output); // as in readIfconfig()
        readName(output.line);
        endCommand(output);
    }
    return eth0_name[0] != '\0'; // still empty if the line began with two spaces
}

// Reads the address after `form` in the output of `command`.
bool readSystemAddress(const char *command, const char *form, const char *what, uint8_t *address)
{
    CommandOutput output;
    if (!startCommand(&output, command)) {
        return false;
    }
    if (const char *const found = findInLines(&output, form)) {
        // An address that cannot be read leaves the old one, and the message shows that.
        static_cast<void>(readAddress(found, address));
        printAddress(what, address);
    }
    endCommand(output);
    return true;
}

bool readDhcp()
{
    CommandOutput output;
    if (!startCommand(&output, "cat /etc/dhcpcd.conf")) {
        return false;
    }
    char section[sizeof "interface " + sizeof eth0_name];
    std::snprintf(section, sizeof section, "interface %s", eth0_name);
    _dhcp = findInLines(&output, section) != nullptr ? 0 : 1;
    std::printf("get dhcp = %d\n", _dhcp);
    endCommand(output);
    return true;
}

// Runs a command to its end and discards its output.
bool runCommand(const char *command)
{
    CommandOutput output;
    if (!startCommand(&output, command)) {
        return false;
    }
    while (nextLine(&output)) {
    }
    endCommand(output);
    return true;
}

// A failed write is not reported: the command was answered 1500 ms earlier.
void writeStaticConfiguration()
{
    int prefix = 0;
    for (uint32_t i = 0; i < 4 && _mask[i] == 255; ++i) {
        prefix += 8;
    }
    std::FILE *const file = std::fopen("/etc/dhcpcd.conf", "we");
    if (file == nullptr) {
        return;
    }
    std::fprintf(file, "interface %s\n", eth0_name);
    std::fprintf(file, "static ip_address=%d.%d.%d.%d/%d\n", _ip[0], _ip[1], _ip[2], _ip[3],
                 prefix);
    std::fprintf(file, "static routers=%d.%d.%d.%d\n", _gateway[0], _gateway[1], _gateway[2],
                 _gateway[3]);
    std::fprintf(file, "static domain_name_servers=%d.%d.%d.%d\n", _dns[0], _dns[1], _dns[2],
                 _dns[3]);
    std::fclose(file);
}

// Changes of the user preferences --------------------------------------------------------------

void savePreferences()
{
    saveUserPref(); // logs its own failure
}

// Every change arms the same two functions, which restarts their waits. The results are dropped:
// arming fails only when 32 other functions wait, and the daemon has fewer.
void scheduleSaveAndApply()
{
    AddDelayCallFunc(savePreferences, kSaveDelayMs);
    AddDelayCallFunc(ResetStaticIp, kApplyDelayMs);
}

} // namespace

bool readAddress(const char *text, uint8_t *address)
{
    return readNumbers(text, 10, '.', address, kAddressLength);
}

int32_t init_ip()
{
    if (!readIfconfig() ||
        !readSystemAddress("ip route show", "default via", "gateway", _gateway) ||
        !readSystemAddress("cat /etc/resolv.conf", "nameserver", "dns", _dns) || !readDhcp()) {
        return -1;
    }
    if (_dhcp != 0 && !runCommand("cp /etc/dhcpcd.conf /etc/dhcpcd.conf.dhcp")) {
        return -1;
    }
    return 0;
}

int32_t get_ip(uint8_t *dhcp, uint8_t *ip, uint8_t *gateway, uint8_t *mask, uint8_t *dns,
               uint8_t *mac)
{
    *dhcp = _dhcp;
    std::memcpy(ip, _ip, sizeof _ip);
    std::memcpy(gateway, _gateway, sizeof _gateway);
    std::memcpy(mask, _mask, sizeof _mask);
    std::memcpy(dns, _dns, sizeof _dns);
    std::memcpy(mac, _mac, sizeof _mac);
    return 0;
}

int32_t set_ip(const uint8_t *dhcp, const uint8_t *ip, const uint8_t *gateway, const uint8_t *mask,
               const uint8_t *dns)
{
    _dhcp = *dhcp;
    std::memcpy(_ip, ip, sizeof _ip);
    std::memcpy(_gateway, gateway, sizeof _gateway);
    std::memcpy(_mask, mask, sizeof _mask);
    std::memcpy(_dns, dns, sizeof _dns);
    if (_dhcp != 0) {
        runCommand("cp /etc/dhcpcd.conf.dhcp /etc/dhcpcd.conf"); // dropped: it logs its own failure
    } else if (learnName()) {
        writeStaticConfiguration();
    } else {
        // A section without a name would count as no section, which means DHCP.
        std::puts("no interface name: /etc/dhcpcd.conf is left as it is");
    }
    return 0;
}

void read_ip()
{
    if (isSetIp != 0) {
        return;
    }
    init_ip(); // dropped: it logs its own failure, and what it has read counts
    UserPref *const preferences = getUserPref();
    get_ip(&preferences->dhcpEnable, preferences->ipAddress, preferences->gateway,
           preferences->netMask, preferences->dns[0], preferences->mac); // always 0
}

void ResetStaticIp()
{
    const UserPref *const preferences = getUserPref();
    set_ip(&preferences->dhcpEnable, preferences->ipAddress, preferences->gateway,
           preferences->netMask, preferences->dns[0]); // always 0
}

void SetIpAddress(const uint8_t *ip)
{
    std::memcpy(getUserPref()->ipAddress, ip, kAddressLength);
    scheduleSaveAndApply();
}

void SetNetMask(const uint8_t *mask)
{
    std::memcpy(getUserPref()->netMask, mask, kAddressLength);
    scheduleSaveAndApply();
}

void SetDefGW(const uint8_t *gateway)
{
    std::memcpy(getUserPref()->gateway, gateway, kAddressLength);
    scheduleSaveAndApply();
}

void GetIpAddress(uint8_t *ip)
{
    std::memcpy(ip, getUserPref()->ipAddress, kAddressLength);
}

void GetNetMask(uint8_t *mask)
{
    std::memcpy(mask, getUserPref()->netMask, kAddressLength);
}

void GetDefGW(uint8_t *gateway)
{
    std::memcpy(gateway, getUserPref()->gateway, kAddressLength);
}

void enable_dhcp()
{
    getUserPref()->dhcpEnable = 1;
    scheduleSaveAndApply();
}

void disable_dhcp()
{
    getUserPref()->dhcpEnable = 0;
    scheduleSaveAndApply();
}

void setDhcp(uint8_t enable)
{
    if (enable == getUserPref()->dhcpEnable) {
        return;
    }
    if (enable != 0) {
        enable_dhcp();
    } else {
        disable_dhcp();
    }
    saveUserPref(); // logs its own failure
}

uint32_t getSystemVersion()
{
    CommandOutput output;
    if (!startCommand(&output, "cat /etc/issue")) {
        return 0xFFFFFFFF;
    }
    nextLine(&output); // no output is an empty line
    endCommand(output);
    if (output.line[0] != 'v') {
        return 0;
    }
    const char *const end = output.line + std::strlen(output.line);
    uint32_t major = 0;
    uint32_t minor = 0;
    const auto [dot, error] = std::from_chars(output.line + 1, end, major);
    if (error != std::errc() || *dot != '.' ||
        std::from_chars(dot + 1, end, minor).ec != std::errc()) {
        return 0;
    }
    return (major << 8) + (minor & 0xFF);
}
