// The files of /userdata/ through their loaders, and then every question about every number. Input:
//
//   KIND          which file: save, UserPref, DevInfo, workTime, view, page, timeCon, or (7) all of
//   them;
//                 8 more: about all numbers, and not only those at the limits
//   BASE          what it begins as: 0 nothing, 1 what the code itself saves, 2 zeros, 3 bytes FF
//   LENGTH 2      of the file, modulo its full length; FFFF: the full length
//   then, for base 0, the content; else changes: OFFSET 2, COUNT, and COUNT bytes
//
// Numbers of two bytes have the low byte first.

#include <cstring>

#include "command/board_format.h"
#include "control/factory.h"
#include "control/page.h"
#include "control/scene.h"
#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingContainers.h"
#include "storage/UserSettingFile.h"
#include "storage/UserSettingQuery.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewFile.h"
#include "storage/ViewReset.h"
#include "storage/WorkTime.h"
#include "storage/load_all.h"
#include "tests/fuzz/world.h"
#include "video/CustomFormat.h"
#include "video/VideoFormatTable.h"
#include "video/custom_timing.h"
#include "video/format_class.h"
#include "video/format_detection.h"
#include "video/format_id.h"
#include "video/format_list.h"
#include "video/gs4911.h"

namespace {

enum Kind : uint8_t { kSave, kPref, kInfo, kWork, kView, kPage, kTime, kAll, kKinds };

struct Sort {
    const char *name;
    size_t size;
};
constexpr Sort kSorts[] = {
    {"save0.sav", sizeof(UserSetting)},    {"UserPref.sav", sizeof(UserPref)},
    {"DevInfo.sav", sizeof(DeviceInfo)},   {"workTime.sav", sizeof(WorkTimeList)},
    {"view3.sav", sizeof(ViewSetting)},    {"page2_0.sav", sizeof(ViewSetting) * kViewCount},
    {"timeCon0.sav", sizeof(TimeControl)},
};

// What the code saves of itself.
const std::string &ownContent(size_t kind)
{
    static std::string contents[kAll];
    std::string &content = contents[kind];
    if (content.empty()) {
        World first;
        loadAllUserPref();
        saveUserPref();
        saveDeviceInfo();
        loadTimeControl(0);
        ResetSaveViewSetting();
        SetLayerAlpha(1, 1);
        SaveViewSetting(3);
        SaveToPage(2);
        content = first.find(kSorts[kind].name)->content;
        MUST_HOLD(content.size() == kSorts[kind].size);
    }
    return content;
}

std::string contentOf(size_t kind, Input &input)
{
    const uint8_t base = input.byte() % 4;
    const uint16_t length = input.word();
    const size_t size = kSorts[kind].size;
    std::string content;
    if (base == 0) {
        content = input.rest();
    } else {
        content = base == 1 ? ownContent(kind) : std::string(size, base == 2 ? '\0' : '\xFF');
        while (input.left() > 2) {
            const size_t offset = input.word() % size;
            const std::string_view bytes = input.bytes(input.byte());
            content.replace(offset, bytes.size(), bytes);
        }
    }
    content.resize(length == 0xFFFF ? content.size() : length % (size + 100));
    return content;
}

bool asksAll; // of this input

template <typename Question> void askAll(Question question)
{
    for (uint32_t number = 0; asksAll && number < 256; ++number) {
        question(number);
    }
    for (const uint32_t number :
         {0U,          5U,   6U,   23U,    24U,         25U,         26U,        95U,
          96U,         123U, 124U, 125U,   126U,        127U,        128U,       255U,
          256U + 124U, 499U, 500U, 65535U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        question(number);
    }
}

void askAboutFormats()
{
    askAll([](uint32_t id) {
        const uint32_t size = GetResByVideoFormat(id);
        MUST_HOLD(GetVDEByVideoFormat2(id) <= size >> 16);
        if (static_cast<uint8_t>(id) != kVideoFormatCustom &&
            followExternInput(id) != kVideoFormatCustom) {
            MUST_HOLD(GetHDEByVideoFormat(id) == (size & 0xFFFF));
            MUST_HOLD(GetVDEByVideoFormat(id) == size >> 16);
            MUST_HOLD(GetHTotalByVideoFormat(id) >= GetHDEByVideoFormat(id));
            MUST_HOLD(GetVTotalByVideoFormat(id) >= GetVDEByVideoFormat(id));
        }
        GetHStartByVideoFormat(id);
        GetVStartByVideoFormat(id);
        GetHSyncWidthByVideoFormat(id);
        GetVSyncWidthByVideoFormat(id);
        MUST_HOLD(GetHSyncPolarityByVideoFormat(id) <= 1);
        MUST_HOLD(GetVSyncPolarityByVideoFormat(id) <= 1);
        GetVFreqByVideoFormat(id);
        GetDlckByVideoFormat(id);
        const char *const name = GetStrByVideoFormat(id);
        MUST_HOLD(name != nullptr && std::strlen(name) < 32);
        MUST_HOLD(followExternInput(id) != kVideoFormatExtern);
        IsInterlaceFormat(id);
        IsSDFormat(id);
        MUST_HOLD(Is4K2K_Format(id) + Is8K1K_Format(id) <= 1);
        Is4K2K_8K1K_Format(id);
        change4Kformat(id);
        GetGS4911ByVideoFormat(id);
        GetVideoFormatByGS4911(static_cast<uint8_t>(id));
        getOutputPortWidth(id);
        getOutputPortHeight(id);
    });
    const auto number = [](uint32_t value) { return static_cast<int32_t>(value); };
    const int32_t width = number(getCustomH());
    const int32_t height = number(getCustomV());
    const int32_t rate = number(getCustomF());
    const int32_t isPossible = CheckCustomTimming(width, height, rate);
    MUST_HOLD(getCustomTimming(width, height, rate) == isPossible);
    MUST_HOLD(getCustomH() == static_cast<uint32_t>(width));
    GetVideoFormat(width, height, number(getCustomhTotal()), number(getCustomvTotal()), rate);
    GetFormatByHdeVde(width, height);
    SetAllBoardFormat(kVideoFormatCustom);
    SetAllBoardFormat(kVideoFormatExtern);
}

void askAboutSetting()
{
    GetOutMaxWidth();
    GetOutMaxHeight();
    askAll([](uint32_t layer) {
        const bool exists = layer < kLayerCount;
        MUST_HOLD(exists || GetLayerInputPort(layer) == 0);
        MUST_HOLD(exists == (GetPreviewLayer(layer) != nullptr));
        SetLayerAlpha(layer, 7);
        MUST_HOLD(GetLayerAlpha(layer) == (exists ? 7 : 0));
        GetLayerAlphaPos(layer);
        SetPreviewLayerAlpha(layer, 9);
        MUST_HOLD(GetPreviewLayerAlpha(layer) == (exists ? 9 : 0));
        GetPreviewLayerAlphaPos(layer);
    });
    GetViewSetting();
    GetUserSetting_old();
    isFactoryReset();
}

void resetParts(uint32_t number)
{
    ResetInputSetting(number, number);
    ResetPreInputSetting(number);
    ResetInputColorKey(number);
    ResetOutputSetting(number, number);
    ResetContainerSetting(number);
    ResetLayerSetting(number, number);
    ResetContainerOtherSetting(number);
    ResetContainerMsg();
}

// What has been saved is loaded as it is; a load may only correct it once.
void saveAndLoad()
{
    std::string saved;
    for (int round = 0; round < 2; ++round) {
        WriteUserSetting(0);
        MUST_HOLD(loadUserSetting(0) == 1);
        WriteUserSetting(0);
        const std::string &again = world->find("save0.sav")->content;
        MUST_HOLD(again.size() == sizeof(UserSetting));
        MUST_HOLD(round == 0 || again == saved);
        saved = again;
    }
}

void workWithViews(uint8_t view)
{
    LoadFromPage(view);
    LoadViewSetting(view);
    MUST_HOLD(GetSaveViewSetting()->identification == kViewId);
    SetCurrentView(view);
    MUST_HOLD(GetCurrentView() == view % kViewCount);
    MUST_HOLD(getNextNoEmptyScene(view) < kViewCount);
    SaveView(view);
    SaveCurrentView();
    SaveToPage(view);
    MUST_HOLD(HasSavePage(view) == 1);
    isEmptyScene(view);
    ClearPage(view);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    Input input(bytes, count);
    const uint8_t first = input.byte();
    const uint8_t kind = first % kKinds;
    asksAll = first / kKinds % 2 == 1;
    ownContent(kSave); // made once, apart from the world of this input
    for (size_t i = 0; i < kAll; ++i) {
        ownContent(i);
    }
    World run;
    if (kind == kAll) {
        for (size_t i = 0; i < kAll; ++i) {
            run.put(kSorts[i].name, ownContent(i));
        }
        const uint8_t one = input.byte() % kAll;
        run.put(kSorts[one].name, contentOf(one, input));
    } else {
        run.put(kSorts[kind].name, contentOf(kind, input));
    }
    loadAllUserPref();
    MUST_HOLD(getUserPref()->identification == kUserPrefId);
    MUST_HOLD(getDeviceInfo()->identification == kDeviceInfoId);
    MUST_HOLD(getWorkTimeList()->identification == kWorkTimeListId);
    MUST_HOLD(getWorkTimeList()->currentAddress == getWorkTimeListAddress());
    MUST_HOLD(GetUserSetting()->identification == kUserSettingId);
    MUST_HOLD(GetUserSetting()->userMode <= 1);
    MUST_HOLD(_currentView == GetUserSetting()->currentView);
    switch (kind) {
    case kPref:
        loadUserPref();
        saveUserLang(getUserLang());
        saveUserPadLock(getUserPadLockEnable(), getUserPadLockState());
        saveDelayCallTime(getDelayCallTime());
        saveDelayCallIndex(getDelayCallIndex());
        saveLoadFadeInOutOff(getLoadFadeInOutOff());
        MUST_HOLD(run.find("UserPref.sav")->content.size() == sizeof(UserPref));
        break;
    case kInfo:
        saveDeviceSN(getDeviceSN() + 1);
        loadDeviceInfo();
        MUST_HOLD(run.find("DevInfo.sav")->content.size() == sizeof(DeviceInfo));
        break;
    case kWork:
        saveWorkTimeList();
        loadWorkTimeList();
        break;
    case kTime:
        loadTimeControl(3);
        MUST_HOLD(GetTimeControl()->identification == kTimeControlId);
        saveTimeControl(4);
        break;
    case kView:
    case kPage:
        workWithViews(kind == kView ? 3 : 2);
        break;
    case kSave:
        saveAndLoad();
        askAboutSetting();
        askAboutFormats();
        askAll(resetParts);
        GetUserSetting()->pageNumber = 0;
        saveAndLoad();
        break;
    default:
        askAboutSetting();
        workWithViews(GetUserSetting()->currentView);
        LoadEEPROM();
        ResetFactorySaveIP();
        saveAndLoad();
        break;
    }
    return 0;
}
