// Starts of the daemon on senseless files, and the operations on a stored state made of them.

#include "tests/support/soak.h"
#include "tests/system/stored_state.h"

#include <algorithm>
#include <random>
#include <sstream>

#include "command/board_format.h"
#include "control/control.h"
#include "control/factory.h"
#include "control/page.h"
#include "control/scene.h"
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
#include "tests/support/console.h"
#include "video/CustomFormat.h"
#include "video/VideoFormatTable.h"
#include "video/format_id.h"

namespace fs = std::filesystem;

// Starts -----------------------------------------------------------------------------------------

namespace {

// Files for a start: good ones, damaged ones and noise.
class Senseless {
public:
    explicit Senseless(uint32_t seed) : random(seed)
    {
        good = kUsed;
        good["timeCon0.sav"] = with(patternedBytes(152), 0, hex("ad 04 11 20"));
        const Bytes view = with(patternedBytes(kViewSize), 3992, hex("79 56 21 29"));
        Bytes page;
        for (int i = 0; i < 16; ++i) {
            page += view;
        }
        for (int i = 0; i < 16; ++i) {
            good["view" + std::to_string(i) + ".sav"] = view;
            good["page" + std::to_string(i) + "_0.sav"] = page;
        }
        good["page0_1.sav"] = page;
    }

    Files next()
    {
        Files files;
        for (const auto &[name, bytes] : good) {
            const bool isRead = kUsed.count(name) != 0;
            const size_t kind = below(isRead ? 8 : 40); // of the others, few are enough
            if (kind == 0) {
                files[name] = noise();
            } else if (kind == 1) {
                files[name] = isRead && below(2) == 0 ? firstStart("save0.sav") : bytes;
            } else if (kind <= 3) {
                files[name] = mutated(bytes);
            } else if (isRead && kind <= 5) {
                files[name] = hostile(name, bytes);
            } else if (isRead && kind == 6) {
                files[name] = bytes;
            } // else it is not there
        }
        return files;
    }

private:
    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    }

    char byte()
    {
        return static_cast<char>(random() >> 13);
    }

    Bytes noise()
    {
        const size_t limits[] = {8, 60, 200, 12000, 70001};
        Bytes bytes(below(limits[below(std::size(limits))]), byte());
        if (below(4) != 0) { // else the same byte everywhere
            std::generate(bytes.begin(), bytes.end(), [this] { return byte(); });
        }
        return bytes;
    }

    Bytes mutated(Bytes bytes)
    {
        for (size_t changes = 1 + below(4); changes > 0; --changes) {
            const size_t at = below(bytes.size() + 1);
            const size_t kind = below(5);
            if (kind == 0) {
                bytes.resize(at);
            } else if (kind == 1) {
                bytes.insert(at, noise().substr(0, 1000));
            } else if (kind == 2) {
                bytes.erase(at, below(40));
            } else if (kind == 3) {
                bytes += noise();
            } else {
                for (size_t i = at; i < std::min(bytes.size(), at + 8); ++i) {
                    bytes[i] = byte();
                }
            }
        }
        bytes.resize(std::min<size_t>(bytes.size(), 70000));
        return bytes;
    }

    // Recognised as good, but with extreme values.
    Bytes hostile(const std::string &name, const Bytes &bytes)
    {
        Bytes result = bytes;
        const char extremes[] = {'\0', '\x01', '\x7C', '\x7D', '\x7E', '\x7F', '\x80', '\xFF'};
        for (size_t changes = 1 + below(2000); changes > 0; --changes) {
            result[below(result.size())] = extremes[below(std::size(extremes))];
        }
        if (name == kUserSetting) {
            result[2413] = below(2) == 0 ? '\x7D' : byte(); // the external input's format
            result[3712] = byte();                          // user mode mirror
            result[3715] = byte();                          // current view
            result = with(result, 11828, bytes.substr(11828));
        }
        if (name == kDeviceInfo) {
            result = with(result, 12, bytes.substr(12, 4));
        }
        if (name == kWorkTime) {
            return with(result, 20, bytes.substr(20));
        }
        return with(result, 0, bytes.substr(0, 4));
    }

    std::mt19937 random;
    Files good;
};

uint32_t wordAt(const Bytes &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) {
        word = word << 8 | static_cast<uint8_t>(bytes.at(offset + i));
    }
    return word;
}

// What a start says and leaves of these files: by their identifications alone.
class Start {
public:
    explicit Start(const Files &files) : left(files)
    {
        const Bytes preferences = read(kUserPref, kUserPrefSize);
        if (wordAt(preferences, 0) != 0x06247638) {
            sayReset("userPref", "UserPref", preferences);
        }
        const Bytes device = read(kDeviceInfo, kDeviceInfoSize);
        if (wordAt(device, 0) != 0x4BCD365C || wordAt(device, 12) != 0x3200) {
            sayReset("Device info", "Device", device);
        }
        const Bytes workTime = read(kWorkTime, kWorkTimeSize);
        if (wordAt(workTime, 20) != 0x20150321) {
            left[kWorkTime] = kFactoryWorkTime;
        } else if (wordAt(workTime, 0) != 0) {
            left[kWorkTime] = with(workTime, 0, Bytes(4, '\0'));
        }
        const Bytes setting = read(kUserSetting, kUserSettingSize);
        if (wordAt(setting, 0) != 0x2021365C || wordAt(setting, 11828) != 0x00123456) {
            read(kUserSetting, kUserSettingSize); // the second attempt
            says = says + kUserSettingReset;
            left[kUserSetting] = userSettingResetFrom(setting);
        }
    }

    Lines says;
    Files left;

private:
    Bytes read(const std::string &name, size_t size)
    {
        const auto file = left.find(name);
        if (file == left.end()) {
            says.push_back("open file /userdata/" + name + " error");
            return Bytes(size, '\0');
        }
        if (file->second.size() > size) {
            says.push_back("read file " + name +
                           " size error: fileSize=" + std::to_string(file->second.size()) +
                           ", readSize=" + std::to_string(size) + '\r');
        }
        return taken(file->second, size);
    }

    void sayReset(const char *what, const char *record, const Bytes &bytes)
    {
        std::ostringstream line;
        line << record << " ID = 0x" << std::hex << wordAt(bytes, 0) << '\r';
        says = says + Lines{line.str(), std::string("reset ") + what + '\r'};
    }
};

} // namespace

TEST_F(SystemState, OfSenselessFilesIsWhatTheirIdentificationsSay)
{
    SoakRun run(40);
    Senseless senseless(run.seed);
    std::map<std::string, uint32_t> rounds; // with this message
    while (run.goesOn()) {
        SCOPED_TRACE("round " + std::to_string(run.rounds));
        const Files files = senseless.next();
        const Start start(files);
        putAll(files);
        startAndEnd(start.says);
        expectFiles(start.left);
        ASSERT_FALSE(HasFailure());
        for (const std::string &line : std::set(start.says.begin(), start.says.end())) {
            ++rounds[line];
        }
    }
    for (const char *const line :
         {"reset userPref\r", "reset Device info\r", "reset user save\r"}) {
        EXPECT_GT(rounds[line], 0u) << line; // of each kind there were both
        EXPECT_LT(rounds[line], run.rounds) << line;
    }
}

// Operations -------------------------------------------------------------------------------------

namespace {

// Numbers for whoever takes one: those at the edges of every range, and others.
uint32_t someNumber(std::mt19937 &random)
{
    constexpr uint32_t kEdges[] = {0,   1,   5,   6,   15,  16,  17,   23,         24,         25,
                                   26,  95,  96,  123, 124, 125, 126,  127,        128,        255,
                                   256, 381, 495, 496, 500, 512, 1023, 0x7FFFFFFF, 0x80000000, ~0u};
    const auto number = static_cast<uint32_t>(random());
    return number % 4 == 0 ? number : kEdges[number / 4 % std::size(kEdges)];
}

// Everything that works on the stored state and that no command reaches yet.
const std::function<void(uint32_t number)> kOperations[] = {
    // Queries.
    [](uint32_t n) { GetLayerInputPort(n), GetLayerAlpha(n), GetLayerAlphaPos(n); },
    [](uint32_t n) { GetPreviewLayer(n), GetPreviewLayerAlpha(n), GetPreviewLayerAlphaPos(n); },
    [](uint32_t n) { getOutputPortWidth(n), getOutputPortHeight(n), getOutputMatrix(n); },
    [](uint32_t) { GetOutHActive(), GetOutVActive(), GetOutMaxWidth(), GetOutMaxHeight(); },
    [](uint32_t) { GetUserSetting_old(), GetViewSetting(), GetCurrentView(), isFactoryReset(); },
    // Formats.
    [](uint32_t n) { GetHDEByVideoFormat(n), GetVDEByVideoFormat(n), GetVDEByVideoFormat2(n); },
    [](uint32_t n) { GetHTotalByVideoFormat(n), GetVTotalByVideoFormat(n); },
    [](uint32_t n) { GetHStartByVideoFormat(n), GetVStartByVideoFormat(n); },
    [](uint32_t n) { GetHSyncWidthByVideoFormat(n), GetVSyncWidthByVideoFormat(n); },
    [](uint32_t n) { GetHSyncPolarityByVideoFormat(n), GetVSyncPolarityByVideoFormat(n); },
    [](uint32_t n) { GetVFreqByVideoFormat(n), GetDlckByVideoFormat(n), IsInterlaceFormat(n); },
    [](uint32_t n) { EXPECT_LT(std::strlen(GetStrByVideoFormat(n)), 100u) << n; },
    [](uint32_t n) { SetAllBoardFormat(n); },
    // Sections.
    [](uint32_t n) {
        ResetInputSetting(n, n >> 3), ResetPreInputSetting(n), ResetInputColorKey(n);
    },
    [](uint32_t n) { ResetOutputSetting(n, n >> 1), ResetContainerSetting(n); },
    [](uint32_t n) { ResetLayerSetting(n, n / 3), ResetContainerOtherSetting(n); },
    [](uint32_t n) { SetLayerAlpha(n, 1), SetPreviewLayerAlpha(n, 2), ResetContainerMsg(); },
    [](uint32_t) { ResetSaveViewSetting(), resetPreviewView(), ResetViewSetting(); },
    // Views and pages.
    [](uint32_t n) { LoadViewSetting(static_cast<int32_t>(n)); },
    [](uint32_t n) { SaveViewSetting(static_cast<int32_t>(n)); },
    [](uint32_t n) { SetCurrentView(n); },
    [](uint32_t n) { SaveView(static_cast<int32_t>(n)); },
    [](uint32_t) { SaveCurrentView(); },
    [](uint32_t n) { isEmptyScene(static_cast<uint8_t>(n)); },
    [](uint32_t n) { getNextNoEmptyScene(static_cast<uint8_t>(n)); },
    [](uint32_t n) { SaveToPage(static_cast<uint8_t>(n)); },
    [](uint32_t n) { LoadFromPage(static_cast<uint8_t>(n)); },
    [](uint32_t n) { HasSavePage(n), ClearPage(static_cast<uint8_t>(n)); },
    // The time control, the control task and the reload.
    [](uint32_t n) { loadTimeControl(static_cast<int32_t>(n)), saveTimeControl(0); },
    [](uint32_t) { TaskControl(); },
    [](uint32_t) { loadUserSettingNoSave(0), loadWorkTimeList(); },
    // The custom format.
    [](uint32_t n) { setCustomH(n), setCustomV(n * 3), setCustomF(n >> 5), setCustomhTotal(n); },
    [](uint32_t n) { setCustomvTotal(n), setCustomhActive(n * 5), setCustomvActive(n * 7); },
    // Wide resets.
    [](uint32_t) { ClearViewSetting(), ClearAllPage(), ResetRS1OutputSetting(); },
    [](uint32_t) { ResetFactorySaveIP(); },
};

} // namespace

// In this process, with the sanitizers of this build.
TEST(SystemStateOperations, TakeWhateverIsStored)
{
    SoakRun run(60);
    Senseless senseless(run.seed);
    std::mt19937 random(run.seed);
    malloc_saveView();
    while (run.goesOn()) {
        SCOPED_TRACE("round " + std::to_string(run.rounds));
        Console console;
        putAll(senseless.next());
        // The user setting is zero again; the rest is what the round before left.
        std::memset(GetUserSetting(), 0, sizeof(UserSetting));
        loadAllUserPref();
        GetUserSetting()->extInputFormat =
            static_cast<uint8_t>(run.rounds % 2 == 0 ? 125 : random());
        for (int i = 0; i < 300; ++i) {
            kOperations[random() % std::size(kOperations)](someNumber(random));
        }
        LoadEEPROM();
        // Whatever has been done, this brings the known state back.
        const Bytes before(reinterpret_cast<const char *>(GetUserSetting()), kUserSettingSize);
        EXPECT_EQ(ResetFactory(), 1);
        console.end();
        EXPECT_EQ(console.err, "");
        EXPECT_TRUE(contentOf(pathOf(kUserSetting)) == userSettingResetFrom(before));
        EXPECT_EQ(contentOf(pathOf(kWorkTime)), kFactoryWorkTime);
        for (const auto &entry : fs::directory_iterator("/userdata")) {
            const std::string name = entry.path().filename();
            // Pages of other user modes stay, and so do those that are none of the sixteen.
            EXPECT_FALSE(name.starts_with("view")) << name;
        }
        for (int page = 0; page < 16; ++page) {
            EXPECT_FALSE(fs::exists(pathOf("page" + std::to_string(page) + "_0.sav"))) << page;
        }
        ASSERT_FALSE(HasFailure());
    }
}
