// The system's tools and drivers that the demo device's daemon uses: what a board's would say and
// do. An unknown command is logged and fails.

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "board.h"
#include "control/network_record.h"

namespace {

constexpr char kDhcpFile[] = "/etc/dhcpcd.conf";
constexpr char kScript[] = "/etc/init.d/S50_Network_Conf.sh";
constexpr char kInstall[] = "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                            "cp -f /userdata/_update.pkg /usr/bin/vesk_h264 && "
                            "chmod +x /usr/bin/vesk_h264 && sync && sync";

constexpr char kOutput[] = "/tmp/output"; // of the tool that runs; gone when it has ended
constexpr int kFailed = 1 << 8;           // the status of a tool that failed, as wait() reports it
constexpr useconds_t kToolUs = 5000;      // what a tool takes
constexpr useconds_t kNetworkUs = 1000000;

using Address = uint8_t[4];

bool readAddress(const char *line, const char *format, uint8_t *first, uint8_t *second)
{
    unsigned numbers[8] = {};
    const int count = std::sscanf(line, format, &numbers[0], &numbers[1], &numbers[2], &numbers[3],
                                  &numbers[4], &numbers[5], &numbers[6], &numbers[7]);
    if (count != (second != nullptr ? 8 : 4)) {
        return false;
    }
    for (size_t i = 0; i < 4; ++i) {
        first[i] = static_cast<uint8_t>(numbers[i]);
        if (second != nullptr) {
            second[i] = static_cast<uint8_t>(numbers[4 + i]);
        }
    }
    return true;
}

// The script that the daemon has written: it sets up the interface.
int runScript()
{
    std::FILE *const script = std::fopen(kScript, "re");
    if (script == nullptr) {
        return kFailed;
    }
    usleep(kNetworkUs);
    DemoNetwork network = demoNetwork();
    char line[200];
    while (std::fgets(line, sizeof line, script) != nullptr) {
        readAddress(line, "ifconfig eth0 %u.%u.%u.%u netmask %u.%u.%u.%u", network.address,
                    network.mask);
        readAddress(line, "ip route add default via %u.%u.%u.%u dev eth0", network.gateway,
                    nullptr);
    }
    std::fclose(script);
    setDemoNetwork(network);
    return 0;
}

int install()
{
    return copyFile("/usr/bin/vesk_h264", "/usr/bin/vesk_h264_backup") &&
                   copyFile("/userdata/_update.pkg", "/usr/bin/vesk_h264")
               ? 0
               : kFailed;
}

void printAddress(std::FILE *output, const char *format, const Address &address)
{
    std::fprintf(output, format, address[0], address[1], address[2], address[3]);
}

void printInterfaces(std::FILE *output)
{
    const DemoNetwork network = demoNetwork();
    const uint8_t *const mac = network.mac;
    Address broadcast;
    for (size_t i = 0; i < sizeof broadcast; ++i) {
        broadcast[i] = static_cast<uint8_t>(network.address[i] | ~network.mask[i]);
    }
    std::fprintf(output, "eth0      Link encap:Ethernet  HWaddr %02X:%02X:%02X:%02X:%02X:%02X  \n",
                 mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    printAddress(output, "          inet addr:%d.%d.%d.%d", network.address);
    printAddress(output, "  Bcast:%d.%d.%d.%d", broadcast);
    printAddress(output, "  Mask:%d.%d.%d.%d\n", network.mask);
    std::fputs("          UP BROADCAST RUNNING MULTICAST  MTU:1500  Metric:1\n\n"
               "lo        Link encap:Local Loopback  \n"
               "          inet addr:127.0.0.1  Mask:255.0.0.0\n"
               "          UP LOOPBACK RUNNING  MTU:65536  Metric:1\n\n",
               output);
}

void printRoutes(std::FILE *output)
{
    const DemoNetwork network = demoNetwork();
    Address subnet;
    int bits = 0;
    for (size_t i = 0; i < sizeof subnet; ++i) {
        subnet[i] = network.address[i] & network.mask[i];
        bits += __builtin_popcount(network.mask[i]);
    }
    printAddress(output, "default via %d.%d.%d.%d dev eth0 \n", network.gateway);
    printAddress(output, "%d.%d.%d.%d", subnet);
    std::fprintf(output, "/%d dev eth0 scope link ", bits);
    printAddress(output, " src %d.%d.%d.%d \n", network.address);
}

void printFile(std::FILE *output, const char *path)
{
    std::FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        return;
    }
    int character;
    while ((character = std::getc(file)) != EOF) {
        std::putc(character, output);
    }
    std::fclose(file);
}

// Runs a command to its end and returns its status.
int run(std::string_view command, std::FILE *output)
{
    usleep(kToolUs);
    if (command == "ifconfig") {
        printInterfaces(output);
    } else if (command == "ip route show") {
        printRoutes(output);
    } else if (command == "ip route | grep default | awk '{print $3}'") {
        printAddress(output, "%d.%d.%d.%d\n", demoNetwork().gateway);
    } else if (command == "cat /etc/resolv.conf") {
        printAddress(output, "nameserver %d.%d.%d.%d\n", demoNetwork().nameServer);
    } else if (command == "cat /etc/dhcpcd.conf") {
        printFile(output, kDhcpFile);
    } else if (command == "cat /etc/issue") {
        printFile(output, "/etc/issue");
    } else if (command == "cp /etc/dhcpcd.conf /etc/dhcpcd.conf.dhcp") {
        return copyFile(kDhcpFile, "/etc/dhcpcd.conf.dhcp") ? 0 : kFailed;
    } else if (command == "cp /etc/dhcpcd.conf.dhcp /etc/dhcpcd.conf") {
        return copyFile("/etc/dhcpcd.conf.dhcp", kDhcpFile) ? 0 : kFailed;
    } else if (command == kInstall) {
        return install();
    } else if (command == kScript) {
        return runScript();
    } else if (command != "sync" && command != "chmod 755 /etc/init.d/S50_Network_Conf.sh") {
        std::printf("demo: this board has no such tool: %s\n", std::string(command).c_str());
        return kFailed;
    }
    return 0;
}

void fillAddress(ifreq *answer, const Address &address)
{
    sockaddr_in full{};
    full.sin_family = AF_INET;
    std::memcpy(&full.sin_addr, address, sizeof address);
    static_assert(sizeof full == sizeof answer->ifr_addr);
    std::memcpy(&answer->ifr_addr, &full, sizeof full);
}

// The kernel's answers about an interface, and the vendor storage's driver.
int answerRequest(uint32_t request, void *argument)
{
    if (request == kVendorStorageRead || request == kVendorStorageWrite) {
        const auto *const vendor = static_cast<const VendorStorageRequest *>(argument);
        if (request == kVendorStorageWrite && vendor->id == kVendorItemMac) {
            keepDemoMac(vendor->data);
        }
        return 0; // nobody uses what is read
    }
    const DemoNetwork network = demoNetwork();
    auto *const answer = static_cast<ifreq *>(argument);
    switch (request) {
    case SIOCGIFADDR:
        fillAddress(answer, network.address);
        return 0;
    case SIOCGIFNETMASK:
        fillAddress(answer, network.mask);
        return 0;
    case SIOCGIFHWADDR:
        std::memcpy(answer->ifr_hwaddr.sa_data, network.mac, sizeof network.mac);
        return 0;
    default:
        return -1;
    }
}

int statusOfTool; // of the last one

} // namespace

extern "C" {

// One tool runs at a time, and has run when its output is read.
std::FILE *__wrap_popen(const char *command, const char *)
{
    std::FILE *const output = std::fopen(kOutput, "we");
    if (output == nullptr) {
        return nullptr;
    }
    statusOfTool = run(command, output);
    std::fclose(output);
    return std::fopen(kOutput, "re");
}

int __wrap_pclose(std::FILE *stream)
{
    std::fclose(stream);
    unlink(kOutput);
    return statusOfTool;
}

int __wrap_system(const char *command)
{
    return run(command, stdout);
}

int __wrap_socket(int, int, int)
{
    return open("/dev/null", O_RDWR);
}

int __real_ioctl(int descriptor, int request, ...);

int __wrap_ioctl(int descriptor, int request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    switch (static_cast<uint32_t>(request)) {
    case SIOCGIFADDR:
    case SIOCGIFNETMASK:
    case SIOCGIFHWADDR:
    case kVendorStorageRead:
    case kVendorStorageWrite:
        return answerRequest(static_cast<uint32_t>(request), argument);
    default:
        return __real_ioctl(descriptor, request, argument);
    }
}
}
