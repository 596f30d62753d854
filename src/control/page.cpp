#include "control/page.h"

#include <cstdio>
#include <cstring>

#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/ViewFile.h"
#include "storage/fatfs.h"

namespace {

// State, main loop only.
FileHandle pageFile;               // the page being read; closed between operations
ViewSetting savedPage[kViewCount]; // the page being saved, so that it leaves in one write

FileName fileName(uint8_t page, uint8_t mode)
{
    FileName name;
    std::snprintf(name.text, sizeof name.text, "page%d_%d.sav", page, mode);
    return name;
}

FileName fileOfThisMode(uint8_t page)
{
    return fileName(page, GetUserSetting()->userModeMirror);
}

} // namespace

int32_t LoadFromPage(uint8_t page)
{
    const FileName name = fileOfThisMode(page);
    if (sd_open(&pageFile, name.text, kRead) != kFileOk) {
        std::printf("open %s fail\r\n", name.text);
        return 0;
    }
    for (uint32_t i = 0; i < kViewCount; ++i) {
        uint32_t done = 0;
        if (f_read(&pageFile, GetSaveViewSetting(), sizeof(ViewSetting), &done) != kFileOk) {
            f_close(&pageFile);
            std::printf("read 1 %s fail\r\n", name.text);
            return 0;
        }
        if (done != sizeof(ViewSetting)) {
            f_close(&pageFile);
            std::printf("read 2 %s fail\r\n", name.text);
            return 0;
        }
        // Dropped: a failure is logged there, and the next view follows.
        SaveViewSetting(static_cast<int32_t>(i));
    }
    f_close(&pageFile);
    GetUserSetting()->pageNumber = page;
    return 1;
}

int32_t SaveToPage(uint8_t page)
{
    GetUserSetting()->factoryReset = 0;
    UserSettingSaveTo(0); // dropped: a failure is logged there, and the page is still written
    const FileName name = fileOfThisMode(page);
    SaveFile file = -1;
    if (sd_beginSave(&file, name.text) != kFileOk) {
        return 0;
    }
    for (uint32_t i = 0; i < kViewCount; ++i) {
        // Dropped: a view that is not stored is written as this leaves it.
        LoadViewSetting(static_cast<int32_t>(i));
        std::memcpy(&savedPage[i], GetSaveViewSetting(), sizeof savedPage[i]);
    }
    uint32_t done = 0;
    if (sd_endSave(&file, name.text, savedPage, sizeof savedPage, &done) != kFileOk ||
        done != sizeof savedPage) {
        return 0;
    }
    GetUserSetting()->pageNumber = page;
    return 1;
}

int32_t HasSavePage(uint32_t page)
{
    if (sd_open(&pageFile, fileOfThisMode(static_cast<uint8_t>(page)).text, kRead) != kFileOk) {
        return 0;
    }
    f_close(&pageFile);
    return 1;
}

int32_t ClearPage(uint8_t page)
{
    sd_unlink(fileName(page, 0).text); // always mode 0; dropped: the file may not exist
    return 1;
}

int32_t ClearAllPage()
{
    for (uint8_t page = 0; page < kPageCount; ++page) {
        ClearPage(page);
    }
    return 1;
}
