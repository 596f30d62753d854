#include "control/network_record.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "control/ip.h"
#include "core/record.h"
#include "core/systick.h"

// Proves the layouts in the header.
RECORD_FIELD(NetworkRecord, 0, uint8_t, 4, ip)
RECORD_FIELD(NetworkRecord, 4, uint8_t, 4, mask)
RECORD_FIELD(NetworkRecord, 8, uint8_t, 4, route)
RECORD_FIELD(NetworkRecord, 12, uint8_t, 6, mac)
RECORD_SIZE(NetworkRecord, 18)
static_assert(std::has_unique_object_representations_v<NetworkRecord>, "hidden padding");

RECORD_FIELD(VendorStorageRequest, 0, uint32_t, 1, tag)
RECORD_FIELD(VendorStorageRequest, 4, uint16_t, 1, id)
RECORD_FIELD(VendorStorageRequest, 6, uint16_t, 1, length)
RECORD_FIELD(VendorStorageRequest, 8, uint8_t, 92, data)
RECORD_SIZE(VendorStorageRequest, 100)
static_assert(std::has_unique_object_representations_v<VendorStorageRequest>, "hidden padding");

namespace {

constexpr char kInterface[] = "eth0";
constexpr char kScriptFile[] = "/etc/init.d/S50_Network_Conf.sh";
constexpr char kVendorDevice[] = "/dev/vendor_storage";
constexpr uint16_t kVendorReadLength = 50;
constexpr uint32_t kVendorSettleMs = 300;
constexpr uint16_t kMacLength = sizeof NetworkRecord::mac;

// State, main loop only: the vendor storage device if the last request left it open, else -1.
int vendorDevice = -1;

// The running system ---------------------------------------------------------------------------

// Asks the kernel about an interface. On failure prints the message for the step that failed and
// returns false. A null `noAnswer` prints nothing.
[[nodiscard]] bool askInterface(const char *name, unsigned long request, ifreq *answer,
                                const char *noSocket, const char *noAnswer)
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

int32_t copyAddress(const sockaddr &answer, uint8_t *out, uint32_t size)
{
    sockaddr_in address;
    static_assert(sizeof address == sizeof answer);
    std::memcpy(&address, &answer, sizeof address);
    if (size < sizeof address.sin_addr) {
        return -1;
    }
    std::memcpy(out, &address.sin_addr, sizeof address.sin_addr); // network order is dotted order
    return 0;
}

bool isGiven(const void *parameter)
{
    if (parameter == nullptr) {
        std::puts("param null");
    }
    return parameter != nullptr;
}

// Vendor storage -------------------------------------------------------------------------------

[[nodiscard]] bool openVendorStorage()
{
    // The last request may have left the device open.
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

// Runs a command to its end. The result is dropped: the command prints its own messages, and 0xF0
// is acknowledged in any case.
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

int32_t get_local_ip(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name) || !isGiven(out) ||
        !askInterface(name, SIOCGIFADDR, &answer, "socket create fail", nullptr)) {
        return -1;
    }
    return copyAddress(answer.ifr_addr, out, size);
}

int32_t get_local_netmask(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name) || !isGiven(out) ||
        !askInterface(name, SIOCGIFNETMASK, &answer, "create socket fail", "mac ioctl error")) {
        return -1;
    }
    return copyAddress(answer.ifr_netmask, out, size);
}

int32_t get_local_route(uint8_t *out, uint32_t size)
{
    if (!isGiven(out)) {
        return -1;
    }
    std::FILE *const shell = popen("ip route | grep default | awk '{print $3}'", "r");
    if (shell == nullptr) {
        std::puts("popen error !");
        return -1;
    }
    char line[100];
    uint8_t route[4];
    const bool isFound = std::fgets(line, sizeof line, shell) != nullptr;
    pclose(shell); // dropped: the output is checked on its own
    if (!isFound) {
        return 0;
    }
    const auto dots = static_cast<uint32_t>(std::count(line, line + std::strlen(line), '.'));
    if (dots >= size) {
        return -1; // more numbers than `out` holds
    }
    if (readAddress(line, route)) {
        std::memcpy(out, route, sizeof route);
    }
    return 0;
}

int32_t get_local_mac(const char *name, uint8_t *out, uint32_t size)
{
    ifreq answer;
    if (!isGiven(name) || !isGiven(out) || size < kMacLength ||
        !askInterface(name, SIOCGIFHWADDR, &answer, "create socket fali", "mac ioctl error")) {
        return -1;
    }
    std::memcpy(out, answer.ifr_hwaddr.sa_data, kMacLength);
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
    request.length = kVendorReadLength;
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
    request.length = id == 1 || id == 5 ? length : kMacLength;
    const bool fits = request.length <= sizeof request.data;
    if (fits) {
        std::copy_n(data, request.length, request.data);
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
    // The results are dropped: both print their own messages, and the interface is configured
    // without vendor storage as well.
    vendor_storage_write(kVendorItemMac, record->mac, sizeof record->mac);
    SysDelayMs(kVendorSettleMs);
    vendor_storage_read(kVendorItemMac);
    std::FILE *const script = std::fopen(kScriptFile, "wb+e");
    if (script == nullptr) {
        return;
    }
    printHeading(__func__, __LINE__);
    printAddresses(__func__, __LINE__, *record);
    printRoute(__func__, __LINE__, *record);
    char text[kNetworkScriptSize] = {};
    Command_Config_Network_String(text, record);
    // The results are dropped: a script that was not written in full shows its errors when it runs.
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
