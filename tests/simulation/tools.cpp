#include "tests/simulation/tools.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tests/simulation/model.h"
#include "tests/simulation/world.h"

namespace {

constexpr char kProgram[] = "/usr/bin/vesk_h264";
constexpr char kBackup[] = "/usr/bin/vesk_h264_backup";
constexpr char kPackage[] = "/userdata/_update.pkg";
constexpr char kInstall[] = "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                            "cp -f /userdata/_update.pkg /usr/bin/vesk_h264 && "
                            "chmod +x /usr/bin/vesk_h264 && sync && sync";
constexpr char kScript[] = "/etc/init.d/S50_Network_Conf.sh";
constexpr int kFailed = 1 << 8;

std::string dotted(const uint8_t *address)
{
    char text[20];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", address[0], address[1], address[2], address[3]);
    return text;
}

} // namespace

Time Tools::busy() const
{
    return busyBefore_ + (began_ == kNever ? 0 : world_.threads.now() - began_);
}

void Tools::take(Time duration)
{
    world_.threads.sleep(duration);
}

Tools::Run Tools::run(const std::string &command)
{
    Run run{command, true, 0, {}};
    const Mood now = moodRuns > 0 ? mood : Mood::kTrue;
    moodRuns = std::max(0, moodRuns - 1);
    world_.model->toolStarts(command);
    began_ = world_.threads.now();
    const bool isBad = now != Mood::kTrue;
    if (now == Mood::kAbsent || world_.faults.hit(Call::start, command)) {
        run.isStarted = false;
        run.status = -1;
        errno = now == Mood::kAbsent ? ENOMEM : errno;
        world_.note("tool cannot start: %s", command.c_str());
    } else if (now == Mood::kFails) {
        take(world_.random.between(2, 30) * kMillisecond);
        run.status = kFailed;
        world_.note("tool fails: %s", command.c_str());
    } else {
        take(now == Mood::kHang ? world_.random.between(1, 20) * kSecond
                                : world_.random.between(1, 20) * kMillisecond);
        run.output = say(command, &run.status);
        if (now == Mood::kCut) {
            run.output.resize(world_.random.below(run.output.size() + 1));
        } else if (now == Mood::kOdd) {
            run.output = spoil(run.output);
        }
        world_.note("tool%s: %s", isBad ? " (bad day)" : "", command.c_str());
    }
    busyBefore_ = busy();
    began_ = kNever;
    world_.lastActivity = world_.threads.now();
    world_.model->toolRan(run);
    return run;
}

std::string Tools::spoil(std::string text)
{
    static constexpr const char *kJunk[] = {"\n", " ", "\t", ".", "999", "x", ":", "\r", "\xff"};
    for (uint64_t i = world_.random.below(4); i-- > 0;) {
        const char *const junk = kJunk[world_.random.below(std::size(kJunk))];
        text.insert(world_.random.below(text.size() + 1), junk);
    }
    return text;
}

std::string Tools::say(const std::string &command, int *status)
{
    char text[1024];
    const auto cat = [&](const char *path) {
        const auto file = world_.disk.get(path);
        *status = file ? 0 : kFailed;
        return file ? file->content : std::string();
    };
    if (command == "ifconfig") {
        if (!network.isUp) {
            return "lo        Link encap:Local Loopback  \n"
                   "          inet addr:127.0.0.1  Mask:255.0.0.0\n";
        }
        const uint8_t *const m = network.mac;
        std::snprintf(text, sizeof text,
                      "eth0      Link encap:Ethernet  HWaddr %02X:%02X:%02X:%02X:%02X:%02X  \n"
                      "          inet addr:%s  Bcast:10.1.255.255  Mask:%s\n"
                      "          UP BROADCAST RUNNING MULTICAST  MTU:1500  Metric:1\n\n"
                      "lo        Link encap:Local Loopback  \n"
                      "          inet addr:127.0.0.1  Mask:255.0.0.0\n",
                      m[0], m[1], m[2], m[3], m[4], m[5], dotted(network.ip).c_str(),
                      dotted(network.mask).c_str());
        return text;
    }
    if (command == "ip route show") {
        return "default via " + dotted(network.gateway) + " dev eth0 \n10.1.0.0/16 dev eth0\n";
    }
    if (command == "ip route | grep default | awk '{print $3}'") {
        return dotted(network.gateway) + "\n";
    }
    if (command == "cat /etc/resolv.conf") {
        return "# by the DHCP client\nnameserver " + dotted(network.dns) + "\n";
    }
    if (command == "cat /etc/dhcpcd.conf" || command == "cat /etc/issue") {
        return cat(command.c_str() + 4);
    }
    if (command == "cp /etc/dhcpcd.conf /etc/dhcpcd.conf.dhcp") {
        *status = copy("/etc/dhcpcd.conf", "/etc/dhcpcd.conf.dhcp", false) ? 0 : kFailed;
        return {};
    }
    if (command == "cp /etc/dhcpcd.conf.dhcp /etc/dhcpcd.conf") {
        *status = copy("/etc/dhcpcd.conf.dhcp", "/etc/dhcpcd.conf", false) ? 0 : kFailed;
        return {};
    }
    if (command == "sync") {
        world_.disk.syncAll();
        return {};
    }
    if (command == std::string("chmod 755 ") + kScript) {
        if (const auto script = world_.disk.find(kScript)) {
            script->setMode(0755, world_.threads.now());
        }
        return {};
    }
    if (command == kScript) {
        take(kSecond);
        return {};
    }
    if (command == kInstall) {
        install(status);
        return {};
    }
    world_.fail("known tools", "the daemon starts: " + command);
}

bool Tools::copy(const std::string &from, const std::string &to, bool toIsRunning)
{
    constexpr size_t kChunk = 8192;
    const auto source = world_.disk.get(from);
    if (!source) {
        return false;
    }
    if (toIsRunning) { // cannot be opened for writing, so -f removes it
        world_.disk.remove(to);
    }
    auto target = world_.disk.find(to);
    if (target == nullptr) {
        target = world_.disk.create(to);
        target->setMode(source->mode & ~022u, world_.threads.now());
    }
    target->truncate(0, world_.threads.now());
    take(world_.random.between(1, 5) * kMillisecond);
    for (size_t at = 0; at < source->content.size(); at += kChunk) {
        target->write(at, source->content.substr(at, kChunk), world_.threads.now());
        world_.considerCut();
        take(world_.random.between(1, 5) * kMillisecond);
    }
    return true;
}

void Tools::install(int *status)
{
    *status = kFailed;
    if (!copy(kProgram, kBackup, false)) {
        return;
    }
    world_.considerCut();
    isInCopyWindow = true;
    if (!copy(kPackage, kProgram, true)) {
        return;
    }
    const auto program = world_.disk.find(kProgram);
    program->setMode(program->now().mode | 0111u, world_.threads.now());
    take(world_.random.between(1, 5) * kMillisecond);
    world_.considerCut();
    take(world_.random.between(10, 300) * kMillisecond);
    world_.disk.syncAll();
    isInCopyWindow = false;
    world_.considerCut();
    take(world_.random.between(1, 20) * kMillisecond);
    *status = 0;
}
