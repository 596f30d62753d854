#include "board.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

// The daemon's main(), which has this name here.
int runDaemon(int count, char **arguments);

namespace {

constexpr char kNetworkFile[] = "/run/eth0";
constexpr char kVendorMacFile[] = "/run/vendor_storage_3";
constexpr char kProgram[] = "/usr/bin/vesk_h264";

constexpr DemoNetwork kAsDelivered = {{192, 168, 0, 100},
                                      {255, 255, 255, 0},
                                      {192, 168, 0, 1},
                                      {192, 168, 0, 1},
                                      {0x02, 0x76, 0x65, 0x73, 0x6B, 0x01}};

bool readWhole(const char *path, void *out, size_t size)
{
    std::FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        return false;
    }
    const bool isWhole = std::fread(out, 1, size, file) == size;
    std::fclose(file);
    return isWhole;
}

void writeWhole(const char *path, const void *bytes, size_t size)
{
    if (std::FILE *const file = std::fopen(path, "we")) {
        std::fwrite(bytes, 1, size, file);
        std::fclose(file);
    }
}

// Files that a board is delivered with. Those that are there are from an earlier run.
void layFile(const char *path, const char *content)
{
    if (access(path, F_OK) != 0) {
        writeWhole(path, content, std::strlen(content));
    }
}

// A start of the demo's program stands for a start of its board.
void startBoard()
{
    for (const char *const directory : {"/etc", "/etc/init.d", "/run", "/usr", "/usr/bin"}) {
        mkdir(directory, 0755); // may be there
    }
    layFile("/etc/issue", "v2.13\n");
    layFile("/etc/dhcpcd.conf", "# As delivered: every interface asks for a lease.\n"
                                "hostname\n"
                                "duid\n"
                                "persistent\n"
                                "option domain_name_servers, domain_name, domain_search\n");
    layFile(kProgram, "The demo device's program is WebAssembly, which is part of the page.\n");
    layFile("/dev/vendor_storage", "");
    DemoNetwork network = demoNetwork();
    if (readWhole(kVendorMacFile, network.mac, sizeof network.mac)) {
        setDemoNetwork(network);
    }
}

} // namespace

DemoNetwork demoNetwork()
{
    DemoNetwork network;
    return readWhole(kNetworkFile, &network, sizeof network) ? network : kAsDelivered;
}

void setDemoNetwork(const DemoNetwork &network)
{
    writeWhole(kNetworkFile, &network, sizeof network);
}

void keepDemoMac(const uint8_t *mac)
{
    writeWhole(kVendorMacFile, mac, sizeof DemoNetwork::mac);
}

bool copyFile(const char *from, const char *to)
{
    std::FILE *const source = std::fopen(from, "re");
    if (source == nullptr) {
        return false;
    }
    std::FILE *const copy = std::fopen(to, "we");
    bool isWhole = copy != nullptr;
    char bytes[4096];
    size_t count;
    while (isWhole && (count = std::fread(bytes, 1, sizeof bytes, source)) > 0) {
        isWhole = std::fwrite(bytes, 1, count, copy) == count;
    }
    if (copy != nullptr) {
        std::fclose(copy);
    }
    std::fclose(source);
    return isWhole;
}

// Whatever an update has put in place of the program, what runs is this WebAssembly: a page cannot
// run a program for a board. The update itself is the daemon's own, from the first block to the
// copy of the file.
int main(int count, char **arguments)
{
    startBoard();
    struct stat backup {};
    if (stat("/usr/bin/vesk_h264_backup", &backup) == 0) {
        std::puts(
            "demo: an update was installed as a file; the program that runs is the demo's own, as before");
    }
    return runDaemon(count, arguments);
}
