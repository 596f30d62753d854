#include "storage/UserSettingFile.h"

#include <cstdio>

#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "storage/fatfs.h"

uint8_t _userMode;

namespace {

FileName fileName(int32_t slot)
{
    return numberedFile("save", slot);
}

bool readIsGood(int32_t slot)
{
    ReadUserSetting(slot); // dropped: only the identifications count
    const UserSetting &setting = *GetUserSetting();
    return setting.identification == kUserSettingId &&
           setting.trailingIdentification == kUserSettingTrailingId;
}

// A bad file is read once more.
bool readWithRetry(int32_t slot)
{
    if (readIsGood(slot)) {
        return true;
    }
    return readIsGood(slot);
}

void takeUserMode(UserSetting &setting)
{
    if (setting.userMode == 1) {
        _userMode = 1;
        setting.userModeMirror = 1;
    } else {
        setting.userMode = 0;
        _userMode = 0;
    }
}

// The last steps of both loaders.
void takeView(UserSetting &setting)
{
    _currentView = setting.currentView;
    for (Layer &layer : setting.program.layers) {
        layer.state = 0;
    }
    copyUserSetting();
}

} // namespace

uint32_t ReadUserSetting(int32_t slot)
{
    return sd_readFile(fileName(slot).text, GetUserSetting(), sizeof(UserSetting));
}

int32_t WriteUserSetting(int32_t slot)
{
    const FileName name = fileName(slot);
    std::printf("save %s\n", name.text);
    return sd_writeFile(name.text, GetUserSetting(), sizeof(UserSetting));
}

int32_t loadUserSetting(int32_t slot)
{
    const bool good = readWithRetry(slot);
    if (!good) {
        std::puts("reset user save\r");
        ResetUserSettingSave();
        WriteUserSetting(slot); // dropped: if it fails, the next start resets again
    }
    takeUserMode(*GetUserSetting());
    takeView(*GetUserSetting());
    return good ? 1 : 0;
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t loadUserSettingNoSave(int32_t slot)
{
    const bool good = readWithRetry(slot);
    if (!good) {
        std::puts("reset user save no save\r");
        ResetUserSettingSave();
    }
    takeView(*GetUserSetting());
    return good ? 1 : 0;
}

int32_t UserSettingSaveTo(int32_t slot)
{
    const int32_t saved = WriteUserSetting(slot);
    copyUserSetting();
    return saved;
}
