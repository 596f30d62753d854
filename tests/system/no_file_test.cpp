// What is no file in the place of a record: nothing that reads or writes it may wait.

#include "tests/system/stored_state.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace fs = std::filesystem;

namespace {

const Lines kAllMissing =
    kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing;

// What a save says that cannot open its file.
Lines unsaved(const std::string &name)
{
    return {"open file /userdata/" + name + " error", "open file " + name + " fail\r"};
}

void putSocket(const std::string &path)
{
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0)
        << std::strerror(errno);
}

class SystemNoFile : public SystemState {};

} // namespace

// As when they are missing; what is there stays.
TEST_F(SystemNoFile, InThePlaceOfEveryRecordIsLikeAMissingOne)
{
    enum { kFifo, kFifoWithBothEnds, kSocket };
    for (const int kind : {kFifo, kFifoWithBothEnds, kSocket}) {
        SCOPED_TRACE(kind);
        putAll({});
        std::vector<Descriptor> ends;
        for (const char *const name : {kUserPref, kDeviceInfo, kWorkTime, kUserSetting}) {
            const std::string path = pathOf(name);
            if (kind == kSocket) {
                putSocket(path);
            } else {
                ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
            }
            if (kind == kFifoWithBothEnds) {
                ends.emplace_back(open(path.c_str(), O_RDWR | O_CLOEXEC));
                ASSERT_GE(ends.back().get(), 0);
            }
        }
        startAndEnd(
            kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + unsaved(kWorkTime) +
                kUserSettingMissing + unsaved(kUserSetting),
            [this] {
                expectAnswer({0, 0, 0x6A, 0x10, 0x12, 0x34, 0}, {0, 0, 0x6A, 0x10, 0x12, 0x34, 0});
                expectLife();
            });
        for (const Descriptor &end : ends) {
            char byte;
            fcntl(end.get(), F_SETFL, O_NONBLOCK);
            EXPECT_EQ(read(end.get(), &byte, 1), -1) << "a record went into a FIFO";
        }
        EXPECT_FALSE(fs::is_regular_file(pathOf(kDeviceInfo)));
    }
}
