#include "control/ip.h"

#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "command/update.h"
#include "core/DelayCall.h"
#include "core/systick.h"
#include "storage/UserPref.h"

uint8_t isSetIp;

namespace {

constexpr uint32_t kSaveDelayMs = 1000;
constexpr uint32_t kApplyDelayMs = 1500;
constexpr uint32_t kVendorSettleMs = 300;

constexpr char kInterface[] = "eth0"; // of the network record
constexpr char kVendorDevice[] = "/dev/vendor_storage";
constexpr char kScriptFile[] = "/etc/init.d/S50_Network_Conf.sh";

// State, main loop only: what init_ip() found or set_ip() was given.
char eth0_name[100];
uint8_t _ip[4];
uint8_t _mask[4] = {255, 255, 255, 0};
uint8_t _gateway[4];
uint8_t _dns[4];
uint8_t _dhcp = 1;
uint8_t _mac[6];

// The vendor storage device as the last request left it open, or -1.
int vendorDevice = -1;

// The output of a command, line by line --------------------------------------------------------

struct CommandOutput {
    std::FILE *pipe;
    char line[1024]; // the last line read
};

bool startCommand(CommandOutput *output, const char *command)
{
    output->line[0] = '\0';
    output->pipe = popen(command, "r");
    if (output->pipe == nullptr) {
        std::printf("execute command failed: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

// Reads the next line, a long one in pieces; false at the end, where the last line stays.
bool nextLine(CommandOutput *output)
{
    if (std::fgets(output->line, sizeof output->line, output->pipe) == nullptr) {
        return false;
    }
    const size_t length = std::strlen(output->line);
    if (length == sizeof output->line - 1 && output->line[length - 1] != '\n') {
        // A number cut in two would look like another number.
        char *const lastBlank = std::strrchr(output->line, ' ');
        (lastBlank != nullptr ? lastBlank : output->line)[0] = '\0';
    }
    return true;
}

// What stands behind the first `word` in `text`; null when it is not there.
const char *behind(const char *text, const char *word)
{
    const char *const found = std::strstr(text, word);
    return found != nullptr ? found + std::strlen(word) : nullptr;
}

// Goes on to the first line that holds `word` and returns what stands behind it; null when there is
// none.
const char *findInLines(CommandOutput *output, const char *word)
{
    while (nextLine(output)) {
        if (const char *const found = behind(output->line, word)) {
            return found;
        }
    }
    return nullptr;
}

// All four numbers or none. The widths bound them; a longer one shows by the digit behind it.
bool readAddress(const char *text, uint8_t *address)
{
    int numbers[4];
    int end = 0;
    if (std::sscanf(text, "%3d.%3d.%3d.%3d%n", &numbers[0], &numbers[1], &numbers[2], &numbers[3],
                    &end) != 4 ||
        std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
        return false;
    }
    for (const int number : numbers) {
        if (number < 0 || number > 255) {
            return false;
        }
    }
    for (uint32_t i = 0; i < 4; ++i) {
        address[i] = static_cast<uint8_t>(numbers[i]);
    }
    return true;
}

bool readMac(const char *text, uint8_t *mac)
{
    unsigned bytes[6];
    int end = 0;
    if (std::sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                    &bytes[4], &bytes[5], &end) != 6 ||
        std::isxdigit(static_cast<unsigned char>(text[end])) != 0) {
        return false;
    }
    for (const unsigned byte : bytes) {
        if (byte > 255) {
            return false;
        }
    }
    for (uint32_t i = 0; i < 6; ++i) {
        mac[i] = static_cast<uint8_t>(bytes[i]);
    }
    return true;
}

void printAddress(const char *what, const uint8_t *address)
{
    std::printf("get %s = %d.%d.%d.%d\n", what, address[0], address[1], address[2], address[3]);
}

// The steps of init_ip() -----------------------------------------------------------------------

// Name and MAC address, from the first line of the interface.
bool readInterface(const char *line)
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
    if (const char *const mac = behind(line, "HWaddr ")) {
        readMac(mac, _mac);
        std::printf("get mac = %x.%x.%x.%x.%x.%x\n", _mac[0], _mac[1], _mac[2], _mac[3], _mac[4],
                    _mac[5]);
    }
    return true;
}

// Address and mask, which stand in one line.
void readInterfaceAddress(CommandOutput *output)
{
    const char *const address = findInLines(output, "inet addr:");
    if (address == nullptr) {
        return;
    }
    readAddress(address, _ip);
    printAddress("ip", _ip);
    const char *const mask = behind(output->line, "Mask:");
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
    nextLine(&output);
    const bool isFound = readInterface(output.line);
    if (isFound) {
        readInterfaceAddress(&output);
    }
    pclose(output.pipe);
    return isFound;
}

// An address behind `word` in the output of `command`.
bool readSystemAddress(const char *command, const char *word, const char *what, uint8_t *address)
{
    CommandOutput output;
    if (!startCommand(&output, command)) {
        return false;
    }
    if (const char *const found = findInLines(&output, word)) {
        readAddress(found, address);
        printAddress(what, address);
    }
    pclose(output.pipe);
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
    pclose(output.pipe);
    return true;
}

// Runs a command to its end, for what it does and not for what it prints.
bool runCommand(const char *command)
{
    CommandOutput output;
    if (!startCommand(&output, command)) {
        return false;
    }
    while (nextLine(&output)) {
    }
    pclose(output.pipe);
    return true;
}

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
    saveUserPref();
}

// One function each, so that a change restarts the waits of the one before it.
void scheduleSaveAndApply()
{
    AddDelayCallFunc(savePreferences, kSaveDelayMs);
    AddDelayCallFunc(ResetStaticIp, kApplyDelayMs);
}

// The running system ---------------------------------------------------------------------------

// The numbers of a dotted text as bytes; false when `out` has no room for all of them.
bool bytesOfDotted(char *text, uint8_t *out, uint32_t size)
{
    uint32_t count = 0;
    char *place = nullptr;
    for (const char *number = strtok_r(text, ".", &place); number != nullptr;
         number = strtok_r(nullptr, ".", &place)) {
        if (count == size) {
            return false;
        }
        out[count++] = static_cast<uint8_t>(std::strtol(number, nullptr, 10));
    }
    return true;
}

// Asks the kernel about an interface; false after the message for what failed, if it has one.
bool askInterface(const char *name, unsigned long request, ifreq *answer, const char *noSocket,
                  const char *noAnswer)
{
    const int asker = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (asker < 0) {
        std::puts(noSocket);
        return false;
    }
    *answer = {};
    std::strncpy(answer->ifr_name, name, sizeof answer->ifr_name - 1);
    const int result = ioctl(asker, request, answer);
    close(asker);
    if (result < 0) {
        if (noAnswer != nullptr) {
            std::puts(noAnswer);
        }
        return false;
    }
    return true;
}

// An address of the kernel's answer as bytes.
int32_t bytesOfAddress(const sockaddr &answer, uint8_t *out, uint32_t size)
{
    sockaddr_in address;
    static_assert(sizeof address == sizeof answer);
    std::memcpy(&address, &answer, sizeof address);
    return bytesOfDotted(inet_ntoa(address.sin_addr), out, size) ? 0 : -1;
}

bool isGiven(const void *name, const void *out)
{
    if (name == nullptr || out == nullptr) {
        std::puts("param null");
        return false;
    }
    return true;
}

// Vendor storage -------------------------------------------------------------------------------

bool openVendorStorage()
{
    // Some requests leave the device open.
    if (vendorDevice >= 0) {
        close(vendorDevice);
    }
    vendorDevice = open(kVendorDevice, O_RDWR | O_CLOEXEC);
    if (vendorDevice < 0) {
        std::puts("vendor_storage open fail");
        return false;
    }
    return true;
}

// The network record ---------------------------------------------------------------------------

// Whatever becomes of the command: it has its own messages.
void runInShell(const char *command)
{
    [[maybe_unused]] const int status = std::system(command);
}

void printHeading(const char *function, int line)
{
    std::printf("[%s:%d] Will Config eth0\n", function, line);
}

void printAddresses(const char *function, int line, const NetworkRecord &record)
{
    const uint8_t *const ip = record.ip;
    const uint8_t *const mask = record.mask;
    std::printf("[%s:%d] ip:%d.%d.%d.%d netmask:%d.%d.%d.%d\n", function, line, ip[0], ip[1], ip[2],
                ip[3], mask[0], mask[1], mask[2], mask[3]);
}

void printRoute(const char *function, int line, const NetworkRecord &record)
{
    const uint8_t *const route = record.route;
    const uint8_t *const mac = record.mac;
    std::printf("[%s:%d] route:%d.%d.%d.%d mac:%02x.%02x.%02x.%02x.%02x.%02x\n", function, line,
                route[0], route[1], route[2], route[3], mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
}

} // namespace

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
    if (_dhcp == 0) {
        writeStaticConfiguration();
    } else {
        runCommand("cp /etc/dhcpcd.conf.dhcp /etc/dhcpcd.conf");
    }
    return 0;
}

void read_ip()
{
    if (isSetIp != 0) {
        return;
    }
    init_ip();
    UserPref *const preferences = getUserPref();
    get_ip(&preferences->dhcpEnable, preferences->ipAddress, preferences->gateway,
           preferences->netMask, preferences->dns[0], preferences->mac);
}

void ResetStaticIp()
{
    const UserPref *const preferences = getUserPref();
    set_ip(&preferences->dhcpEnable, preferences->ipAddress, preferences->gateway,
           preferences->netMask, preferences->dns[0]);
}

void SetIpAddress(const uint8_t *ip)
{
    std::memcpy(getUserPref()->ipAddress, ip, 4);
    scheduleSaveAndApply();
}

void SetNetMask(const uint8_t *mask)
{
    std::memcpy(getUserPref()->netMask, mask, 4);
    scheduleSaveAndApply();
}

void SetDefGW(const uint8_t *gateway)
{
    std::memcpy(getUserPref()->gateway, gateway, 4);
    scheduleSaveAndApply();
}

void GetIpAddress(uint8_t *ip)
{
    std::memcpy(ip, getUserPref()->ipAddress, 4);
}

void GetNetMask(uint8_t *mask)
{
    std::memcpy(mask, getUserPref()->netMask, 4);
}

void GetDefGW(uint8_t *gateway)
{
    std::memcpy(gateway, getUserPref()->gateway, 4);
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

uint32_t getSystemVersion()
{
    CommandOutput output;
    if (!startCommand(&output, "cat /etc/issue")) {
        return 0xFFFFFFFF;
    }
    nextLine(&output);
    pclose(output.pipe);
    int major;
    int minor;
    if (std::sscanf(output.line, "v%9d.%9d", &major, &minor) != 2) {
        return 0;
    }
    return (static_cast<uint32_t>(major) << 8) + (static_cast<uint32_t>(minor) & 0xFF);
}

int32_t get_local_ip(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name, out) ||
        !askInterface(name, SIOCGIFADDR, &answer, "socket create fail", nullptr)) {
        return -1;
    }
    return bytesOfAddress(answer.ifr_addr, out, size);
}

int32_t get_local_netmask(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name, out) ||
        !askInterface(name, SIOCGIFNETMASK, &answer, "create socket fail", "mac ioctl error")) {
        return -1;
    }
    return bytesOfAddress(answer.ifr_netmask, out, size);
}

int32_t get_local_route(uint8_t *out, uint32_t size)
{
    if (!isGiven(out, out)) {
        return -1;
    }
    std::FILE *const shell = popen("ip route | grep default | awk '{print $3}'", "r");
    if (shell == nullptr) {
        std::puts("popen error !");
        return -1;
    }
    char line[100];
    const bool isFound = std::fgets(line, sizeof line, shell) != nullptr;
    pclose(shell);
    if (!isFound) {
        return 0;
    }
    line[std::strcspn(line, "\n")] = '\0';
    return bytesOfDotted(line, out, size) ? 0 : -1;
}

int32_t get_local_mac(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name, out) || size < sizeof _mac ||
        !askInterface(name, SIOCGIFHWADDR, &answer, "create socket fali", "mac ioctl error")) {
        return -1;
    }
    std::memcpy(out, answer.ifr_hwaddr.sa_data, sizeof _mac);
    return 0;
}

int32_t vendor_storage_read(uint16_t id)
{
    if (!openVendorStorage()) {
        return -1;
    }
    VendorStorageRequest request{};
    request.tag = kVendorStorageTag;
    request.id = id;
    request.length = 50;
    const int result = ioctl(vendorDevice, kVendorStorageRead, &request);
    if (result != 0) {
        std::printf("vendor read error %d\n", result);
        return -1;
    }
    close(vendorDevice);
    vendorDevice = -1;
    return 0;
}

int32_t vendor_storage_write(uint16_t id, const uint8_t *data, uint16_t length)
{
    if (!openVendorStorage()) {
        return -1;
    }
    VendorStorageRequest request{};
    request.tag = kVendorStorageTag;
    request.id = id;
    request.length = id == 1 || id == 5 ? length : 6;
    const bool fits = request.length <= sizeof request.data;
    if (fits) {
        std::memcpy(request.data, data, request.length);
    }
    if (!fits || ioctl(vendorDevice, kVendorStorageWrite, &request) != 0) {
        std::puts("vendor write error");
        return -1;
    }
    return 0;
}

void Command_Config_Network_String(char *text, const NetworkRecord *record)
{
    if (text == nullptr || record == nullptr) {
        return;
    }
    const uint8_t *const ip = record->ip;
    const uint8_t *const mask = record->mask;
    const uint8_t *const route = record->route;
    std::snprintf(text, kNetworkScriptSize,
                  "#!/bin/sh\n"
                  "/etc/init.d/S41dhcpcd stop\n"
                  "sleep 1\n"
                  "ifconfig eth0 %d.%d.%d.%d netmask %d.%d.%d.%d\n"
                  "ip route add default via %d.%d.%d.%d dev eth0\n",
                  ip[0], ip[1], ip[2], ip[3], mask[0], mask[1], mask[2], mask[3], route[0],
                  route[1], route[2], route[3]);
}

void Command_Config_Network(const NetworkRecord *record)
{
    if (record == nullptr) {
        return;
    }
    vendor_storage_write(kVendorItemMac, record->mac, sizeof record->mac);
    SysDelayMs(kVendorSettleMs);
    vendor_storage_read(kVendorItemMac); // for its message
    std::FILE *const script = std::fopen(kScriptFile, "wb+e");
    if (script == nullptr) {
        return;
    }
    printHeading(__func__, __LINE__);
    printAddresses(__func__, __LINE__, *record);
    printRoute(__func__, __LINE__, *record);
    char text[kNetworkScriptSize] = {};
    Command_Config_Network_String(text, record);
    std::fwrite(text, 1, std::strlen(text), script);
    std::fclose(script);
    runInShell("sync");
    runInShell("chmod 755 /etc/init.d/S50_Network_Conf.sh");
    runInShell(kScriptFile);
}

void Command_Read_Network(NetworkRecord *record)
{
    printHeading(__func__, __LINE__);
    if (get_local_ip(kInterface, record->ip, sizeof record->ip) != 0 ||
        get_local_netmask(kInterface, record->mask, sizeof record->mask) != 0 ||
        get_local_route(record->route, sizeof record->route) != 0 ||
        get_local_mac(kInterface, record->mac, sizeof record->mac) != 0) {
        std::puts("Command_Read_Network fail");
        return;
    }
    printAddresses(__func__, __LINE__, *record);
    printRoute(__func__, __LINE__, *record);
}

int32_t cmpBuf(const uint8_t *a, const uint8_t *b, uint32_t length)
{
    for (uint32_t i = 0; i < length; ++i) {
        if (a[i] != b[i]) {
            return a[i] - b[i];
        }
    }
    return 0;
}

int32_t isInUpdate()
{
    return isUpdateProgram();
}
