#include "tests/system/stored_state.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/wait.h>

namespace fs = std::filesystem;

Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
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
    Bytes bytes = firstStart("save0-over-a5.sav"); // A5: left alone
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\xA5') {
            const bool isInPreview = i >= kPreviewAt && i < kProgramAt;
            bytes[i] = before.at(isInPreview ? i + kViewSize : i);
        }
    }
    return bytes;
}

void putAll(const Files &files)
{
    fs::remove_all("/userdata");
    fs::create_directory("/userdata");
    for (const auto &[name, content] : files) {
        put(pathOf(name), content);
    }
}

Files allFiles()
{
    Files files;
    for (const auto &entry : fs::directory_iterator("/userdata")) {
        files[entry.path().filename()] = contentOf(entry.path());
    }
    return files;
}

std::map<std::string, size_t> sizesOf(const Files &files)
{
    std::map<std::string, size_t> sizes;
    for (const auto &[name, content] : files) {
        sizes[name] = content.size();
    }
    return sizes;
}

void expectFiles(const Files &expected)
{
    const Files found = allFiles();
    EXPECT_EQ(sizesOf(found), sizesOf(expected));
    for (const auto &[name, content] : expected) {
        const auto it = found.find(name);
        if (it == found.end() || it->second == content) {
            continue;
        }
        const auto ends =
            std::mismatch(content.begin(), content.end(), it->second.begin(), it->second.end());
        ADD_FAILURE() << name << " differs from offset " << ends.first - content.begin() << " on";
    }
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

void SystemState::startAndEnd(const Lines &says)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    EXPECT_EQ(linesOfLoading(daemon), says);
    expectLife();
    end(daemon);
}

void SystemState::expectLife()
{
    front.write(command({0, 0, 0x68, 1, 0, 0, 0}));
    EXPECT_EQ(front.read(19), reply({0, 0, 0x68, 1, 0x26, 0x33, 0}));
}

void SystemState::expectSerialNumber(uint8_t high, uint8_t low)
{
    front.write(command({0, 0, 0x6A, 0x11, 0, 0, 0}));
    EXPECT_EQ(front.read(19), reply({0, 0, 0x6A, 0x11, high, low, 0}));
}

void SystemState::end(Daemon &daemon)
{
    ASSERT_TRUE(daemon.isRunning());
    daemon.signal(SIGKILL);
    const std::optional<int> status = daemon.waitForEnd();
    ASSERT_TRUE(status);
    EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL) << *status;
    EXPECT_EQ(daemon.errors(), "");
}
