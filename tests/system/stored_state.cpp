#include "tests/system/stored_state.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <sys/inotify.h>

Watch::Watch(std::initializer_list<const char *> directories)
    : queue(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    constexpr uint32_t kEvents =
        IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVE;
    for (const char *const directory : directories) {
        EXPECT_GE(inotify_add_watch(queue.get(), directory, kEvents), 0) << directory;
    }
}

Lines Watch::events()
{
    Lines all;
    alignas(inotify_event) char events[4096];
    ssize_t length = 0;
    while ((length = read(queue.get(), events, sizeof events)) > 0) {
        inotify_event event;
        for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(sizeof event + event.len)) {
            std::memcpy(&event, events + at, sizeof event);
            const std::string name = event.len > 0 ? events + at + sizeof event : kDirectory;
            if (name.starts_with('#')) { // has no name yet
                continue;
            }
            const bool isMade = (event.mask & IN_CREATE) != 0 && name.ends_with(".sav");
            all.emplace_back((event.mask & IN_OPEN) != 0                    ? "open "
                             : isMade || (event.mask & IN_CLOSE_WRITE) != 0 ? "write "
                                                                            : "other ");
            all.back() += name;
        }
    }
    return all;
}

Lines Watch::filesWritten(size_t count)
{
    Lines names;
    pollfd entry{queue.get(), POLLIN, 0};
    const auto patience = [&] { return (names.size() < count ? kPatience : kQuiet).count(); };
    while (poll(&entry, 1, static_cast<int>(patience())) > 0) {
        for (const std::string &event : events()) {
            if (event.starts_with("write ")) {
                names.push_back(event.substr(6));
            }
        }
    }
    return names;
}

Bytes taken(const Bytes &content, size_t size)
{
    Bytes bytes = content.substr(0, size);
    bytes.resize(size, '\0');
    return bytes;
}

std::string pathOf(const std::string &name)
{
    return "/userdata/" + name;
}

Bytes firstStart(const std::string &name)
{
    const std::string path = std::string(FIRST_START "/") + name;
    Bytes content = contentOf(path);
    EXPECT_FALSE(content.empty()) << path;
    return content;
}

Bytes userSettingResetFrom(const Bytes &before)
{
    return resetOver(before, FIRST_START);
}

void putAll(const Files &files)
{
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directory(kDirectory);
    for (const auto &[name, content] : files) {
        put(pathOf(name), content);
    }
}

void expectFiles(const Files &expected)
{
    Files found = filesIn();
    for (const auto &[name, content] : expected) {
        EXPECT_EQ(found.count(name), 1u) << name;
        EXPECT_TRUE(areBytes(found[name], content)) << name;
        found.erase(name);
    }
    EXPECT_EQ(found, Files());
}

Lines linesOfLoading(Daemon &daemon)
{
    Lines lines = daemon.lines();
    lines.erase(std::remove(lines.begin(), lines.end(), "uart_receive_fun 0"), lines.end());
    const auto opened =
        std::find(lines.begin(), lines.end(), "==kel UARTInit DEV_NAME[0]:/dev/ttyS0");
    if (opened == lines.end() || lines.back() != "enter main") {
        ADD_FAILURE() << "not the lines of a start";
        return lines;
    }
    return {opened + 1, lines.end() - 1};
}

void SystemState::startAndEnd(const Lines &says, const std::function<void()> &asks)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    EXPECT_EQ(linesOfLoading(daemon), says);
    expectLife();
    if (asks) {
        asks();
    }
    EXPECT_TRUE(daemon.isRunning());
    daemon.signal(SIGKILL);
    ASSERT_TRUE(daemon.waitForEnd());
    EXPECT_EQ(daemon.errors(), "");
}
