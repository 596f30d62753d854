#include "tests/system/stored_state.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

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
    const auto namesOf = [](const Files &files) {
        Lines names;
        for (const auto &[name, content] : files) {
            names.push_back(name);
        }
        return names;
    };
    Files found = filesIn();
    EXPECT_EQ(namesOf(found), namesOf(expected));
    for (const auto &[name, content] : expected) {
        EXPECT_TRUE(areBytes(found[name], content)) << name;
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
