#pragma once

// The system that the network modules drive, for their tests: its tools, files and requests are the
// board's own, or stand-ins that print recorded output, and every call is noted. Link with
// `simulated_system`, which takes the place of the calls.

#include <cstddef>
#include <cstdint>
#include <functional>

#include <string>
#include <vector>

using Journal = std::vector<std::string>;
extern Journal journal; // calls of the module, in order

struct SimulatedSystem {
    int popenFailsAt = 0; // 1 for the next popen(), 2 for the one after it; 0 for none
    bool socketFails = false;
    unsigned long failingRequest = 0; // of an interface
    bool runsSystem = false;          // else system() is only noted
    std::function<void(const std::string &command)> onSystem;

    int vendorDescriptor = -1;
    int vendorResult = 0;
    std::vector<uint8_t> vendorRequest; // the last one, 100 bytes
    int updating = 0;                   // what isUpdateProgram() says
};
extern SimulatedSystem world;

inline constexpr char kVendorDevice[] = "/dev/vendor_storage";
inline constexpr char kConfiguration[] = "/etc/dhcpcd.conf";
inline constexpr char kDhcpCopy[] = "/etc/dhcpcd.conf.dhcp";
inline constexpr char kScript[] = "/etc/init.d/S50_Network_Conf.sh";

// What init_ip() says when popen() fails.
std::string cannotStart();

// Puts a shell script in the place of a tool. BusyBox's shell would not even look for it, as it has
// the tools built in, so another one takes its place.
void replaceTool(const std::string &path, const std::string &script);

// From now on "ifconfig" or "ip" prints this, whatever its arguments are. From then on popen()
// starts no process for these two, "cat" and "cp", unless they are part of a pipeline: processes
// take nearly all of a case's time.
void toolPrints(const std::string &name, const std::string &output);

inline const std::string kRoutes = "10.20.0.0/17 dev end0 scope link  src 10.20.30.40 \n"
                                   "default via 10.20.0.1 dev end0  metric 202 \n"
                                   "default via 10.20.0.2 dev wlan0  metric 303 \n";

// Bytes of every value, each one as likely, always the same for the same seed.
std::string noise(unsigned seed, size_t length);

// Of this process.
ptrdiff_t openDescriptors();
