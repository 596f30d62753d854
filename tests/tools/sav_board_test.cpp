// Settings files on the board: what `veskctl sav` says of them and makes of them, and what the
// daemon's own operations do with the same files. This program links the daemon's file store;
// veskctl is run. VESKCTL is the program, SOURCES the checkout.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "control/page.h"
#include "control/scene.h"
#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/ViewFile.h"
#include "storage/WorkTime.h"
#include "storage/load_all.h"
#include "tests/support/console.h"
#include "tests/support/files.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Bytes = std::string;

namespace {

[[maybe_unused]] const auto *const directory = testing::AddGlobalTestEnvironment([] {
    class Directory : public testing::Environment {
        void SetUp() override
        {
            fs::create_directory("/userdata");
        }
    };
    return new Directory;
}());

// What veskctl prints, and its status.
struct Said {
    int status;
    std::string out;
};

Said veskctl(const std::string &arguments)
{
    const std::string command = VESKCTL " " + arguments + " >/tmp/out 2>/tmp/err </dev/null";
    const int status = std::system(command.c_str());
    EXPECT_EQ(contentOf("/tmp/err"), "") << arguments;
    return {WEXITSTATUS(status), contentOf("/tmp/out")};
}

// A view by hand ----------------------------------------------------------------------------------

// Two layers: input 5 on the whole output, and the middle of input 2 above it in a corner.
constexpr char kView[] = R"({
  "kind": "view",
  "fields": {
    "viewNumber": 3,
    "identification": "0x29215679",
    "layers": [
      {"inputPort": 5, "sourceWidth": 3840, "sourceHeight": 2160,
       "windowWidth": 1920, "windowHeight": 1080},
      {"inputPort": 2, "sourceX": 960, "sourceY": 540, "sourceWidth": 1920, "sourceHeight": 1080,
       "windowX": 1280, "windowY": 40, "windowWidth": 600, "windowHeight": 338}
    ],
    "layerAlphaPos": [10, 20],
    "layerAlpha": [255, 128]
  }
})";

// The dump of an empty view with these fields in it: a view has many more, and all must be there.
std::string wholeView()
{
    writeFile("/tmp/view3.sav", Bytes(3996, '\0'));
    Json view = Json::parse(veskctl("sav dump --json /tmp/view3.sav").out);
    const Json mine = Json::parse(kView);
    for (const auto &[name, value] : mine["fields"].items()) {
        Json &field = view["fields"][name];
        if (!value.is_array()) {
            field = value;
            continue;
        }
        for (size_t i = 0; i < value.size(); ++i) {
            if (value[i].is_object()) {
                field[i].update(value[i]);
            } else {
                field[i] = value[i];
            }
        }
    }
    return view.dump();
}

TEST(SavBoard, AViewMadeByHandIsTakenByTheDaemonAndShown)
{
    writeFile("/tmp/view3.json", wholeView());
    ASSERT_EQ(veskctl("sav make /tmp/view3.json -o /userdata/view3.sav").status, 0);
    EXPECT_EQ(veskctl("sav check /userdata/view3.sav").out,
              "/userdata/view3.sav: taken by LoadViewSetting(3), which no start calls\n");
    const Bytes file = contentOf("/userdata/view3.sav");
    EXPECT_EQ(file.size(), 3996u);

    malloc_saveView();
    printedBy([] { loadAllUserPref(); });
    EXPECT_EQ(printedBy([] { EXPECT_EQ(LoadViewSetting(3), 1); }), "");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(isEmptyScene(3), 0); }), "");
    printedBy([] { SetCurrentView(3); });
    EXPECT_EQ(GetCurrentView(), 3);
    EXPECT_EQ(contentOf("/userdata/view3.sav"), file); // read, not written

    const ViewSetting &shown = *GetViewSetting();
    EXPECT_EQ(Bytes(reinterpret_cast<const char *>(&shown), sizeof shown), file);
    EXPECT_EQ(shown.layers[0].inputPort, 5);
    EXPECT_EQ(shown.layers[0].windowWidth, 1920);
    EXPECT_EQ(shown.layerAlpha[0], 255);
    EXPECT_EQ(shown.layers[1].inputPort, 2);
    EXPECT_EQ(shown.layers[1].sourceX, 960);
    EXPECT_EQ(shown.layers[1].windowX, 1280);
    EXPECT_EQ(shown.layers[1].windowHeight, 338);
    EXPECT_EQ(shown.layerAlphaPos[1], 20);
    EXPECT_EQ(shown.layerAlpha[1], 128);
    EXPECT_EQ(shown.layerAlpha[2], 0);

    // The picture of it shows the same.
    ASSERT_EQ(veskctl("sav draw /userdata/view3.sav -o /tmp/view3.svg").status, 0);
    const std::string svg = contentOf("/tmp/view3.svg");
    EXPECT_NE(svg.find("<rect x=\"0\" y=\"0\" width=\"1920\" height=\"1080\" class=\"layer\" "
                       "data-layer=\"0\""),
              std::string::npos);
    EXPECT_NE(svg.find("<rect x=\"1280\" y=\"40\" width=\"600\" height=\"338\" class=\"layer\" "
                       "data-layer=\"1\""),
              std::string::npos);
}

// The same verdicts
// ---------------------------------------------------------------------------------

// What a loader does over real files.
struct Done {
    std::string prints;
    std::map<std::string, size_t> written; // lengths of the files that are new or have changed
};

Done afterLoading(void (*load)())
{
    std::map<std::string, Bytes> before;
    for (const std::string &name : entriesOf("/userdata")) {
        before[name] = contentOf("/userdata/" + name);
    }
    Done done;
    done.prints = printedBy(load);
    for (const std::string &name : entriesOf("/userdata")) {
        const Bytes content = contentOf("/userdata/" + name);
        if (!before.contains(name) || before[name] != content) {
            done.written[name] = content.size();
        }
    }
    return done;
}

void forget()
{
    malloc_saveView();
    *getUserPref() = {};
    *getDeviceInfo() = {};
    *getWorkTimeList() = {};
    *GetTimeControl() = {};
    *GetUserSetting() = {};
    GetUserSetting()->currentView = 255;
    *GetSaveViewSetting() = {};
}

Bytes word(uint32_t value)
{
    Bytes bytes;
    for (int i = 0; i < 4; ++i, value >>= 8) {
        bytes += static_cast<char>(value & 0xFF);
    }
    return bytes;
}

// Whole and damaged files of every kind: what veskctl says is printed and written, is.
TEST(SavBoard, TheDaemonDoesWhatTheCheckSays)
{
    Bytes view(3996, '\0');
    view.replace(3992, 4, word(0x29215679));
    Bytes page;
    for (int i = 0; i < 16; ++i) {
        view[2608] = static_cast<char>(i);
        page += view;
    }
    Bytes setting = contentOf(SOURCES "/tests/data/first-start/save0.sav");
    const struct {
        const char *name;
        Bytes good;
        size_t identificationAt;
        void (*load)();
    } rows[] = {
        {"UserPref.sav", word(0x06247638) + Bytes(52, '\1'), 0, [] { loadUserPrefNoSave(); }},
        {"DevInfo.sav", word(0x4BCD365C) + Bytes(8, '\1') + word(0x3200) + word(7), 12,
         [] { loadDeviceInfo(); }},
        {"workTime.sav", Bytes(20, '\1') + word(0x20150321), 20, [] { loadWorkTimeList(); }},
        {"save0.sav", setting, 11828, [] { loadUserSetting(0); }},
        {"timeCon0.sav", word(0x201104AD) + Bytes(148, '\1'), 0, [] { loadTimeControl(0); }},
        {"view3.sav", view, 3992, [] { LoadViewSetting(3); }},
        {"page5_0.sav", page, 3992, [] { LoadFromPage(5); }},
    };
    size_t compared = 0;
    for (const auto &row : rows) {
        Bytes bad = row.good;
        bad[row.identificationAt] ^= 1;
        for (const Bytes &bytes :
             {row.good, bad, Bytes(), row.good.substr(0, row.identificationAt),
              row.good.substr(0, row.good.size() - 1), row.good + "x", row.good + row.good}) {
            SCOPED_TRACE(row.name + std::string(", bytes: ") + std::to_string(bytes.size()));
            fs::remove_all("/userdata");
            fs::create_directory("/userdata");
            writeFile(std::string("/userdata/") + row.name, bytes);
            const Said said = veskctl(std::string("sav check --json /userdata/") + row.name);
            const Json finding = Json::parse(said.out);
            EXPECT_EQ(said.status, finding["faults"].empty() ? 0 : 1);

            forget();
            const Done done = afterLoading(row.load);
            std::string prints;
            for (const Json &line : finding["console"]) {
                prints += line.get<std::string>() + "\n";
            }
            std::string printed = done.prints;
            printed.erase(std::remove(printed.begin(), printed.end(), '\r'), printed.end());
            EXPECT_EQ(prints, printed);
            std::map<std::string, size_t> written;
            for (const Json &each : finding["written"]) {
                written[each["file"]] = each["length"];
            }
            EXPECT_EQ(written, done.written);
            ++compared;
        }
        // A FIFO can neither be read nor be written.
        SCOPED_TRACE(row.name + std::string(", a FIFO"));
        fs::remove_all("/userdata");
        fs::create_directory("/userdata");
        const std::string fifo = std::string("/userdata/") + row.name;
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        Json finding;
        std::istringstream lines(veskctl("sav check --json /userdata").out);
        for (std::string line; std::getline(lines, line);) {
            const Json each = Json::parse(line);
            finding = each["file"] == fifo ? each : finding;
        }
        EXPECT_EQ(finding["verdict"], "missing");
        EXPECT_EQ(finding["faults"].size(), 1u);
        std::string prints;
        for (const Json &line : finding["console"]) {
            prints += line.get<std::string>() + "\n";
        }
        forget();
        std::string printed = printedBy(row.load);
        printed.erase(std::remove(printed.begin(), printed.end(), '\r'), printed.end());
        EXPECT_EQ(prints, printed);
        EXPECT_EQ(finding["written"], Json::array());
        EXPECT_EQ(entriesOf("/userdata").size(), 1u);
        EXPECT_FALSE(fs::is_regular_file(fifo));
        ++compared;
    }
    EXPECT_EQ(compared, 56u);
}

} // namespace
