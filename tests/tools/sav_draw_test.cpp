// Pictures of views: where the layers lie, and what is written about them. The coordinates are
// worked out by hand. sav_output_test.py reads pictures as XML.

#include "tools/sav_draw.h"

#include <cstring>
#include <random>
#include <regex>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/soak.h"
#include "tests/tools/complaint.h"
#include "tools/errors.h"
#include "tools/sav_store.h"

namespace {

UserSetting sizes()
{
    UserSetting setting{};
    setting.outputTiming[0].hActive = 1920;
    setting.outputTiming[0].vActive = 1080;
    setting.inputTiming[5].hActive = 3840;
    setting.inputTiming[5].vActive = 2160;
    return setting;
}

void setSource(Layer &layer, uint16_t x, uint16_t y, uint16_t width, uint16_t height)
{
    layer.sourceX = x;
    layer.sourceY = y;
    layer.sourceWidth = width;
    layer.sourceHeight = height;
}

void setWindow(Layer &layer, uint16_t x, uint16_t y, uint16_t width, uint16_t height)
{
    layer.windowX = x;
    layer.windowY = y;
    layer.windowWidth = width;
    layer.windowHeight = height;
}

ViewSetting view()
{
    ViewSetting view{};
    view.identification = kViewId;
    view.viewNumber = 3;
    view.layers[7].inputPort = 5;
    setSource(view.layers[7], 960, 540, 1920, 1080);
    setWindow(view.layers[7], 480, 270, 960, 540);
    view.layerAlpha[7] = 51; // a fifth of 255
    view.layerAlphaPos[7] = 90;
    return view;
}

SavFile fileOf(const ViewSetting &view, const std::string &name = "view3.sav")
{
    std::string bytes(sizeof view, '\0');
    std::memcpy(bytes.data(), &view, sizeof view);
    return {name, SavKind::kView, bytes};
}

size_t count(const std::string &text, const std::string &part)
{
    size_t found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++found;
    }
    return found;
}

TEST(SavDraw, ALayerIsARectangleInPixelsOfTheOutput)
{
    const std::string svg = drawingOf(fileOf(view()), sizes(), SizesFrom::kBeside);
    // 960 wide, so that a pixel of the output is half a pixel of the picture
    EXPECT_NE(svg.find("<svg x=\"20\" y=\"100\" width=\"960\" height=\"540\" "
                       "viewBox=\"0 0 1920 1080\""),
              std::string::npos)
        << svg;
    EXPECT_NE(svg.find("<rect x=\"480\" y=\"270\" width=\"960\" height=\"540\" class=\"layer\" "
                       "data-layer=\"7\""),
              std::string::npos);
    EXPECT_NE(svg.find("fill-opacity=\"0.2\""), std::string::npos);
    EXPECT_EQ(count(svg, "class=\"layer\""), 1u);
}

TEST(SavDraw, ALayerIsLabelledInItsWindowAndInTheTable)
{
    const std::string svg = drawingOf(fileOf(view()), sizes(), SizesFrom::kBeside);
    for (const char *const text :
         {"layer 7, input 5", "crop 1920×1080 at 960,540", "position 90, alpha 51"}) {
        EXPECT_EQ(count(svg, std::string(">") + text + "<"), 1u) << text;
    }
    EXPECT_EQ(count(svg, ">960×540 at 480,270<"), 2u);
    EXPECT_EQ(count(svg, ">1920×1080 at 960,540<"), 1u);
}

TEST(SavDraw, TheBackComesFirstAndOfEqualPositionsTheLastLayer)
{
    ViewSetting many{};
    const struct {
        unsigned layer;
        uint8_t position;
    } rows[] = {{3, 10}, {4, 10}, {9, 95}, {90, 0}};
    for (const auto &row : rows) {
        many.layerAlpha[row.layer] = 255;
        many.layerAlphaPos[row.layer] = row.position;
    }
    const std::string svg = drawingOf(fileOf(many), sizes(), SizesFrom::kBeside);
    const std::regex layer("data-layer=\"(\\d+)\"");
    std::vector<std::string> order;
    for (std::sregex_iterator match(svg.begin(), svg.end(), layer), end; match != end; ++match) {
        order.push_back((*match)[1]);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"90", "4", "3", "9"}));
}

TEST(SavDraw, LayersThatAreNotShownAreNotDrawn)
{
    ViewSetting none = view();
    none.layerAlpha[7] = 0;
    const std::string svg = drawingOf(fileOf(none), sizes(), SizesFrom::kBeside);
    EXPECT_EQ(count(svg, "class=\"layer\""), 0u);
    EXPECT_NE(svg.find(">no layer is visible<"), std::string::npos);
}

TEST(SavDraw, APageHasSixteenViews)
{
    std::string bytes;
    for (int i = 0; i < 16; ++i) {
        bytes += fileOf(view()).bytes;
    }
    const std::string svg =
        drawingOf({"page0_0.sav", SavKind::kPage, bytes}, sizes(), SizesFrom::kReset);
    EXPECT_EQ(count(svg, "class=\"layer\""), 16u);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(count(svg, ">view " + std::to_string(i) + " (1 visible)<"), 1u) << i;
    }
}

TEST(SavDraw, AUserSettingHasItsProgramAndItsPreview)
{
    UserSetting setting = sizes();
    setting.program = view();
    setting.preview = view();
    setting.preview.layers[7].windowX = 11;
    setting.containers[0].width = 3840;
    setting.containers[0].height = 2160;
    std::string bytes(sizeof setting, '\0');
    std::memcpy(bytes.data(), &setting, sizeof setting);
    const std::string svg =
        drawingOf({"save0.sav", SavKind::kSave, bytes}, setting, SizesFrom::kFile);
    EXPECT_LT(svg.find("program"), svg.find("<rect x=\"480\" y=\"270\""));
    EXPECT_LT(svg.find("<rect x=\"480\" y=\"270\""), svg.find("<rect x=\"11\" y=\"270\""));
    EXPECT_EQ(count(svg, "width=\"3840\" height=\"2160\" class=\"container\""), 2u);
}

// A window of 65535 x 65535 at 65535,65535 reaches to 131070.
TEST(SavDraw, ThePictureIsBoundedWhateverTheNumbersAre)
{
    ViewSetting wild = view();
    setWindow(wild.layers[0], 65535, 65535, 65535, 65535);
    setWindow(wild.layers[1], 1900, 0, 65535, 65535);
    wild.layerAlpha[0] = wild.layerAlpha[1] = 255;
    const std::string svg = drawingOf(fileOf(wild), sizes(), SizesFrom::kBeside);
    EXPECT_NE(svg.find("viewBox=\"0 0 7680 4320\""), std::string::npos); // four times the output
    EXPECT_NE(svg.find("2 layers reach beyond the picture"), std::string::npos);

    UserSetting odd = sizes();
    odd.outputTiming[0].vActive = 0;
    EXPECT_NE(drawingOf(fileOf(view()), odd, SizesFrom::kBeside).find("viewBox=\"0 0 1920 1080\""),
              std::string::npos);

    SoakRun soak(30);
    std::mt19937 random(soak.seed);
    const std::regex size("^<svg xmlns[^>]* width=\"(\\d+)[^\"]*\" height=\"(\\d+)",
                          std::regex::multiline);
    while (soak.goesOn()) {
        ViewSetting any;
        auto *const bytes = reinterpret_cast<unsigned char *>(&any);
        for (size_t i = 0; i < sizeof any; ++i) {
            bytes[i] = static_cast<unsigned char>(random());
        }
        odd.outputTiming[0].hActive = static_cast<uint16_t>(random() % 9);
        odd.outputTiming[0].vActive = static_cast<uint16_t>(random());
        odd.containers[0].width = static_cast<uint32_t>(random());
        const std::string drawing = drawingOf(fileOf(any), odd, SizesFrom::kBeside);
        std::smatch match;
        ASSERT_TRUE(std::regex_search(drawing, match, size));
        EXPECT_EQ(match[1], "1000");
        EXPECT_LT(std::stoul(match[2]), 3000u);
        EXPECT_LT(drawing.size(), 150000u);
    }
}

TEST(SavDraw, NamesCannotBreakOutOfTheText)
{
    const std::string svg =
        drawingOf(fileOf(view(), "<a>&\"\x01\xFF]]>.sav"), sizes(), SizesFrom::kBeside);
    EXPECT_NE(svg.find("<title>&lt;a&gt;&amp;&quot;\\x01\\xff]]&gt;.sav</title>"),
              std::string::npos);
}

TEST(SavDraw, RefusesWhatHasNoPicture)
{
    const auto draw = [](const std::string &name, const std::string &bytes,
                         const std::string &output) {
        writeFile("/tmp/" + name, bytes);
        return complaintOf([&] { runSavDraw("/tmp/" + name, output); });
    };
    const std::string good = fileOf(view()).bytes;
    EXPECT_EQ(draw("UserPref.sav", std::string(56, 'x'), "/tmp/o.svg"),
              "/tmp/UserPref.sav has no picture: it is not a view, page or user setting");
    EXPECT_EQ(draw("view3.sav", good + "x", "/tmp/o.svg"),
              "/tmp/view3.sav has 3997 bytes, and a view file has 3996");
    EXPECT_EQ(draw("view3.sav", good, "/tmp/../tmp/view3.sav"),
              "/tmp/../tmp/view3.sav is the file that is to be drawn");
    EXPECT_EQ(contentOf("/tmp/view3.sav"), good);
    EXPECT_FALSE(std::filesystem::exists("/tmp/o.svg"));
    EXPECT_EQ(draw("view3.sav", good, "/tmp/o.svg"), "accepted");
    EXPECT_EQ(contentOf("/tmp/o.svg").substr(0, 5), "<?xml");
    EXPECT_THROW(runSavDraw("/tmp/view3.sav", "/tmp/none/o.svg"), LocalError);
}

// The canvas is that of the save0.sav in the same directory, if there is a good one.
TEST(SavDraw, ASettingBesideTheFileHasTheSizes)
{
    writeFile("/tmp/view3.sav", fileOf(view()).bytes);
    const auto viewBox = [] {
        runSavDraw("/tmp/view3.sav", "/tmp/o.svg");
        std::smatch match;
        const std::string svg = contentOf("/tmp/o.svg");
        std::regex_search(svg, match, std::regex("<svg x=[^>]* viewBox=\"([^\"]*)\""));
        return match[1].str();
    };
    EXPECT_EQ(viewBox(), "0 0 1920 1080"); // a reset's, format 10
    UserSetting setting = sizes();
    setting.identification = kUserSettingId;
    setting.trailingIdentification = kUserSettingTrailingId;
    setting.outputTiming[0].hActive = 1440;
    setting.outputTiming[0].vActive = 900;
    std::string bytes(sizeof setting, '\0');
    std::memcpy(bytes.data(), &setting, sizeof setting);
    writeFile("/tmp/save0.sav", bytes);
    EXPECT_EQ(viewBox(), "0 0 1440 900");
    writeFile("/tmp/save0.sav", bytes + "x");
    EXPECT_EQ(viewBox(), "0 0 1920 1080");
    bytes[0] = 0;
    writeFile("/tmp/save0.sav", bytes);
    EXPECT_EQ(viewBox(), "0 0 1920 1080");
}

} // namespace
