#pragma once

// The files of the settings directory as the cases want and expect them, and the start of the
// daemon on them. The expected files are those of tests/data/first-start/.

#include "tests/support/setting_bytes.h"
#include "tests/system/board.h"

using Files = std::map<std::string, Bytes>; // by name in the settings directory

inline constexpr char kUserPref[] = "UserPref.sav";
inline constexpr char kDeviceInfo[] = "DevInfo.sav";
inline constexpr char kWorkTime[] = "workTime.sav";
inline constexpr char kUserSetting[] = "save0.sav";

inline constexpr size_t kUserPrefSize = 56;
inline constexpr size_t kDeviceInfoSize = 20;
inline constexpr size_t kWorkTimeSize = 24;
inline constexpr size_t kPageSize = 63936;

// What the daemon says of them.
inline const Lines kUserPrefMissing = {"open file /userdata/UserPref.sav error",
                                       "UserPref ID = 0x0\r", "reset userPref\r"};
inline const Lines kDeviceInfoMissing = {"open file /userdata/DevInfo.sav error",
                                         "Device ID = 0x0\r", "reset Device info\r"};
inline const Lines kWorkTimeMissing = {"open file /userdata/workTime.sav error"};
inline const Lines kUserSettingReset = {"reset user save\r", "save save0.sav"};
inline const Lines kUserSettingMissing = {"open file /userdata/save0.sav error",
                                          "open file /userdata/save0.sav error",
                                          "reset user save\r", "save save0.sav"};

// The first `size` bytes of a record in memory that was zero, once this content has been read.
Bytes taken(const Bytes &content, size_t size);

// The path of a settings file.
std::string pathOf(const std::string &name);

// An expected file.
Bytes firstStart(const std::string &name);

// The user setting record as a reset leaves it that began with these bytes in memory.
Bytes userSettingResetFrom(const Bytes &before);

// The work-time list of a device from the factory.
inline const Bytes kFactoryWorkTime = Bytes(20, '\0') + hex("21 03 15 20");

// A device that has been in use: good records, most of whose bytes are no defaults.
inline const Bytes kUsedUserPref =
    hex("38 76 24 06 01 00 d0 07 01 00 0a 01 02 03 0a 01 00 01 ff ff 00 00") +
    patternedBytes(kUserPrefSize - 22);
inline const Bytes kUsedDeviceInfo =
    hex("5c 36 cd 4b 34 12 00 00 a8 a9 aa ab 00 32 00 00 b0 b1 b2 b3");
inline const Bytes kUsedWorkTime =
    hex("00 00 00 00 11 12 13 14 21 22 23 24 31 32 33 34 41 42 43 44 21 03 15 20");
inline const Bytes kUsedUserSetting =
    with(with(patternedBytes(kUserSettingSize), 0, hex("5c 36 21 20")), 11828, hex("56 34 12 00"));
inline const Files kUsed = {{kUserPref, kUsedUserPref},
                            {kDeviceInfo, kUsedDeviceInfo},
                            {kWorkTime, kUsedWorkTime},
                            {kUserSetting, kUsedUserSetting}};

// What happens in directories that are there, in order: "open NAME", "write NAME" (closed by one
// who could write), or "other NAME" for anything but reading and writing. Of events that are alike
// and follow each other the kernel makes one.
class Watch {
public:
    explicit Watch(std::initializer_list<const char *> directories = {kDirectory});

    // Since the last call; the kernel notes an event before the call returns that causes it.
    Lines events();

    // The next `count` names of written files, and what else is written within kQuiet.
    Lines filesWritten(size_t count);

private:
    Descriptor queue;
};

// Makes the settings directory anew with these files.
void putAll(const Files &files);

// These files and no others are in the settings directory.
void expectFiles(const Files &expected);

// All that a daemon that has started says after the opening of its line and before "enter main".
Lines linesOfLoading(Daemon &daemon);

// Each case starts the daemon when the files are as it wants them.
class SystemState : public Board {
protected:
    // A start, an answer, and an end by force. `says` is everything about the stored state, and
    // `asks` what else happens before the end.
    void startAndEnd(const Lines &says, const std::function<void()> &asks = {});
};
