#include "benchmarks/stored_state.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "control/page.h"
#include "control/scene.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewFile.h"
#include "storage/ViewReset.h"
#include "storage/WorkTime.h"
#include "storage/fatfs.h"
#include "storage/load_all.h"

namespace {

constexpr uint8_t kPage = 3;

uint8_t plainRecord[sizeof(UserSetting)];
uint8_t plainCopy[sizeof(UserSetting)];
uint8_t plainView[sizeof(ViewSetting)];
uint8_t plainPage[kViewCount][sizeof(ViewSetting)];
uint8_t plainLiveView[sizeof(ViewSetting)];

// A copy that the compiler cannot remove.
void copyPlainly(void *to, const void *from, size_t size)
{
    std::memcpy(to, from, size);
    asm volatile("" ::"r"(to) : "memory");
}

int openFile(const char *path, int flags)
{
    const int file = open(path, flags | O_CLOEXEC, 0666);
    if (file < 0) {
        stop(path);
    }
    return file;
}

void readBytes(const char *path, void *bytes, size_t size)
{
    const int file = openFile(path, O_RDONLY);
    if (read(file, bytes, size) != static_cast<ssize_t>(size)) {
        stop(path);
    }
    close(file);
}

void writeBytes(int file, const void *bytes, size_t size)
{
    if (write(file, bytes, size) != static_cast<ssize_t>(size)) {
        stop("write");
    }
}

void readPlainView(uint32_t number)
{
    char path[64];
    std::snprintf(path, sizeof path, "/userdata/view%u.sav", number);
    readBytes(path, plainView, sizeof plainView);
}

// Stores the settings and all views, each with one visible layer.
void storeViews()
{
    storeSettings();
    for (uint32_t i = 0; i < kViewCount; ++i) {
        ResetSaveViewSetting();
        GetSaveViewSetting()->layerAlpha[i] = 128;
        if (SaveViewSetting(static_cast<int32_t>(i)) == 0) {
            stop("storing a view");
        }
    }
}

// And every page, each with those views.
void storePages()
{
    storeViews();
    for (uint32_t i = 0; i < kPageCount; ++i) {
        SaveToPage(static_cast<uint8_t>(i));
    }
}

// What start-up does when the settings are stored.
void loadState(uint32_t)
{
    loadAllUserPref();
}

void loadStatePlainly(uint32_t)
{
    readBytes("/userdata/UserPref.sav", plainRecord, sizeof(UserPref));
    readBytes("/userdata/DevInfo.sav", plainRecord, sizeof(DeviceInfo));
    readBytes("/userdata/workTime.sav", plainRecord, sizeof(WorkTimeList));
    readBytes("/userdata/save0.sav", plainRecord, sizeof plainRecord);
    copyPlainly(plainCopy, plainRecord, sizeof plainRecord);
}

// Switches from one stored view to the next.
void switchView(uint32_t turn)
{
    SetCurrentView(turn);
}

void switchViewPlainly(uint32_t turn)
{
    readPlainView(turn % kViewCount);
    copyPlainView();
}

void savePage(uint32_t)
{
    SaveToPage(kPage);
}

// Replaces the file as the daemon does: in place, with one write, and forced to the disk.
void replaceFile(const char *path, const void *bytes, size_t size)
{
    const int file = openFile(path, O_WRONLY | O_CREAT);
    writeBytes(file, bytes, size);
    fdatasync(file);
    close(file);
}

void savePagePlainly(uint32_t)
{
    replaceFile("/userdata/plain-save.sav", plainRecord, sizeof plainRecord);
    copyPlainly(plainCopy, plainRecord, sizeof plainRecord);
    for (uint32_t i = 0; i < kViewCount; ++i) {
        readPlainView(i);
        copyPlainly(plainPage[i], plainView, sizeof plainView);
    }
    replaceFile("/userdata/plain-page.sav", plainPage, sizeof plainPage);
}

} // namespace

const StoredStateOperation kStoredStateOperations[4] = {
    {"loadStoredState", storeSettings, loadState, loadStatePlainly},
    {"loadBesidePages", storePages, loadState, loadStatePlainly},
    {"switchView", storeViews, switchView, switchViewPlainly},
    {"savePage", storeViews, savePage, savePagePlainly},
};

void storeSettings()
{
    MX_FATFS_Init();
    resetUserPref();
    resetDeviceInfo();
    resetWorkTimeList();
    malloc_saveView();
    ResetUserSettingSave();
    const int32_t saved = saveUserPref() & saveDeviceInfo() & saveWorkTimeList() &
                          sd_writeFile("save0.sav", GetUserSetting(), sizeof(UserSetting));
    if (saved == 0) {
        stop("storing the settings");
    }
}

void copyPlainView()
{
    copyPlainly(plainLiveView, plainView, sizeof plainView);
}

void stop(const char *what)
{
    std::perror(what);
    std::exit(4);
}
