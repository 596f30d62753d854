#include "tools/timing.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/errors.h"
#include "tools/file.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/nearest.h"
#include "tools/output.h"
#include "tools/raster.h"
#include "tools/text.h"
#include "tools/timing_drawing.h"
#include "video/VideoFormatTable.h"
#include "video/custom_timing.h"
#include "video/format_class.h"
#include "video/format_detection.h"
#include "video/format_id.h"
#include "video/format_list.h"
#include "video/gs4911.h"

namespace {

constexpr char kAbout[] = "Video formats, without a device: the daemon's table and operations";

constexpr char kFooter[] =
    "The formats and their operations are those of docs/video-formats.md.\n"
    "\n"
    "Exit status:\n"
    "    0  done\n"
    "    1  no format is like this, or the device refuses the mode\n"
    "    2  wrong usage\n"
    "    4  something failed on this computer, such as a picture that cannot be written\n"
    "\n"
    "Examples:\n"
    "  veskctl timing list --size 1920x1080\n"
    "  veskctl timing show 1920x1080x60\n"
    "  veskctl timing calc 1920 1080 60\n"
    "  veskctl timing detect 1920 1080 2200 1125 60\n"
    "  veskctl timing draw 1920x1080x50 -o format.svg";

constexpr char kListAbout[] = "List the formats";
constexpr char kListFooter[] =
    "Hz is the rate in the table, in whole Hz; after it stands what the clock makes of the totals. HV\n"
    "are the polarities of the syncs. A format has a size or a rate if its timing has it or its name\n"
    "says so; some names are wrong (see docs/video-formats.md). Status 1: no format is like this.\n"
    "\n"
    "Examples:\n"
    "  veskctl timing list --size 1920x1080 --rate 60\n"
    "  veskctl timing list --class interlaced --modeline";

constexpr char kShowAbout[] = "Print all about the formats with an id or a name";
constexpr char kShowFooter[] = "Two formats may have one name; both are printed then.\n"
                               "\n"
                               "Examples:\n"
                               "  veskctl timing show 1920x1080x60\n"
                               "  veskctl timing show 2 76 --json";

constexpr char kCalcAbout[] = "Compute the custom format's timing, as the device does";
constexpr char kCalcFooter[] =
    "RATE is in whole Hz. Beside the device's timing stand those of the public standard, VESA's\n"
    "Coordinated Video Timings 1.2 with reduced blanking version 1 (after which the device's is made)\n"
    "and version 2. * marks what differs from the device's. More modes may follow. Status 1: the device\n"
    "refuses a mode, as its clock is above the limit, or it has no modeline.\n"
    "\n"
    "Examples:\n"
    "  veskctl timing calc 1920 1080 60\n"
    "  veskctl timing calc 4096 2160 70 --json";

constexpr char kDetectAbout[] = "Find the format of a measured timing, as the device does";
constexpr char kDetectFooter[] =
    "HDE and VDE are the active pixels and lines, HTOTAL and VTOTAL those with blanking, RATE is in\n"
    "whole Hz. An interlaced format is found by the numbers of one field. Status 1: no format is near.\n"
    "\n"
    "Examples:\n"
    "  veskctl timing detect 1920 1080 2200 1125 60\n"
    "  veskctl timing detect 1920 540 2200 562 60 --modeline";

constexpr char kDrawAbout[] = "Draw a timing to scale";
constexpr char kDrawFooter[] =
    "TIMING is the id or the name of a format, or WIDTHxHEIGHT@RATE for the custom format. The picture\n"
    "begins with the leading edges of the syncs, from which H start and V start count.\n"
    "\n"
    "Examples:\n"
    "  veskctl timing draw 1920x1080x50 -o format.svg\n"
    "  veskctl timing draw 1366x768@60 --standard v1 -o standard.svg";

// Options ----------------------------------------------------------------------------------------

struct Options {
    bool isModeline = false;
    std::string size;                 // of list
    std::string rate;                 // of list
    std::string formatClass;          // of list
    std::vector<std::string> formats; // of show
    std::vector<std::string> numbers; // of calc and detect
    std::string timing;               // of draw
    std::string standard;             // of draw
    std::string picture;              // of draw
};

// The whole text as a number that is not below `least`.
int32_t numberOf(const std::string &text, const char *what, int32_t least)
{
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    int32_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (rest != end || error != std::errc() || number < least) {
        throw UsageError(fmt::format("{}: \"{}\" is not a whole number from {} to {}", what,
                                     escape(text), least, kMost));
    }
    return number;
}

void requireOneForm(const Options &options)
{
    if (options.isModeline && manner().json) {
        throw UsageError("--json or --modeline, not both");
    }
}

// Formats ----------------------------------------------------------------------------------------

std::string nameOf(uint8_t id)
{
    return GetStrByVideoFormat(id);
}

struct FormatClass {
    const char *name;
    int32_t (*isOfIt)(uint32_t id);
};

constexpr FormatClass kClasses[] = {{"interlaced", IsInterlaceFormat},
                                    {"SD", IsSDFormat},
                                    {"4K2K", Is4K2K_Format},
                                    {"8K1K", Is8K1K_Format}};

std::vector<std::string> classesOf(uint8_t id)
{
    std::vector<std::string> classes;
    for (const auto &[name, isOfIt] : kClasses) {
        if (isOfIt(id) != 0) {
            classes.emplace_back(name);
        }
    }
    return classes;
}

// The list in which an output offers the format, or "".
std::string listOf(uint8_t id)
{
    const auto has = [id](const auto &list) {
        return std::find(std::begin(list), std::end(list), id) != std::end(list);
    };
    return has(outFormatList)          ? "outFormatList"
           : has(outFormatList_others) ? "outFormatList_others"
                                       : "";
}

int32_t signedOf(int64_t number)
{
    return static_cast<int32_t>(number);
}

// What the daemon reports for an input with the format's own numbers.
uint8_t detectedAs(const Raster &raster)
{
    return GetVideoFormat(signedOf(raster.horizontal.active), signedOf(raster.vertical.active),
                          signedOf(raster.horizontal.total), signedOf(raster.vertical.total),
                          signedOf(raster.frequency));
}

std::vector<std::string> allNames()
{
    std::vector<std::string> names;
    names.reserve(kVideoFormatCount);
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        names.push_back(nameOf(id));
    }
    return names;
}

bool isSameWord(std::string_view left, std::string_view right)
{
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? character - 'A' + 'a' : int{character};
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

// The formats that an id or a name means: at least one.
std::vector<uint8_t> formatsOf(const std::string &text)
{
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        const int32_t id = numberOf(text, "the format", 0);
        if (id < kVideoFormatCount) {
            return {static_cast<uint8_t>(id)};
        }
        throw UsageError(fmt::format(
            "format {} is not in the table, which has 0 to {}{}", id, kVideoFormatCount - 1,
            id == kVideoFormatCustom
                ? ifTyped("; 124 is the custom format: see `veskctl timing calc`")
            : id <= 255 ? fmt::format("; {} stands for {}", id,
                                      GetStrByVideoFormat(static_cast<uint32_t>(id)))
                        : ""));
    }
    std::vector<uint8_t> formats;
    const std::vector<std::string> names = allNames();
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        if (isSameWord(names[id], text)) {
            formats.push_back(id);
        }
    }
    if (formats.empty()) {
        throw UsageError(
            fmt::format("no format has the name \"{}\"{}", escape(text), didYouMean(text, names)));
    }
    return formats;
}

// Texts ------------------------------------------------------------------------------------------

// Not more decimals than `most`, and no noughts at the end.
std::string decimals(double number, int most)
{
    std::string text = fmt::format("{:.{}f}", number, most);
    while (text.ends_with('0')) {
        text.pop_back();
    }
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

std::string withoutBlanksAtTheEnd(const std::string &row)
{
    return row.substr(0, row.find_last_not_of(' ') + 1);
}

std::string megahertz(double clock)
{
    return decimals(clock / 1e6, 6);
}

const char *polarityOf(const Axis &axis)
{
    return axis.isNegative ? "negative" : "positive";
}

// The modeline, below a line that tells whose it is. False: it has none, which is reported.
bool printModeline(const std::string &whose, const std::string &name, const Raster &raster)
{
    const std::string fault = faultOf(raster);
    if (!fault.empty()) {
        fmt::print(stderr, "veskctl: {} has no modeline: {}\n", whose, fault);
        return false;
    }
    fmt::print("# {}: {} Hz, {} kHz\n{}\n", whose, decimals(raster.rate(), 3),
               decimals(raster.lineRate() / 1e3, 3), modelineOf(name, raster));
    return true;
}

bool printModeline(uint8_t id)
{
    return printModeline(fmt::format("format {}", id), nameOf(id), rasterOf(id));
}

Json jsonOf(const Axis &axis)
{
    return {{"active", axis.active},
            {"front_porch", axis.frontPorch()},
            {"sync", axis.sync},
            {"back_porch", axis.backPorch()},
            {"total", axis.total},
            {"start", axis.start},
            {"sync_is_negative", axis.isNegative}};
}

double toMillionths(double number)
{
    return std::round(number * 1e6) / 1e6;
}

Json jsonOf(const Raster &raster)
{
    return {{"horizontal", jsonOf(raster.horizontal)},
            {"vertical", jsonOf(raster.vertical)},
            {"interlaced", raster.isInterlaced},
            {"frequency_hz", raster.frequency},
            {"rate_hz", toMillionths(raster.rate())},
            {"line_rate_hz", toMillionths(raster.lineRate())},
            {"pixel_clock_hz", static_cast<int64_t>(raster.pixelClock)}};
}

Json jsonOfFormat(uint8_t id)
{
    const Raster raster = rasterOf(id);
    const std::string list = listOf(id);
    const uint8_t whole = change4Kformat(id);
    Json json = {{"id", id}, {"name", nameOf(id)}};
    json.update(jsonOf(raster));
    json["classes"] = classesOf(id);
    json["gs4911"] = GetGS4911ByVideoFormat(id);
    json["list"] = list.empty() ? Json() : Json(list);
    json["quarter_of"] = whole == id ? Json() : Json(whole);
    json["detected_as"] = detectedAs(raster);
    return json;
}

// list -------------------------------------------------------------------------------------------

// What a name says: "1920", "1080" and "29.9" of "1920x1080x29.9s".
std::array<std::string, 3> partsOf(const std::string &name)
{
    const size_t first = name.find('x');
    const size_t second = name.find('x', first + 1);
    const std::string rate = name.substr(second + 1);
    return {name.substr(0, first), name.substr(first + 1, second - first - 1),
            rate.substr(0, rate.find_first_not_of("0123456789."))};
}

// Width and height, each 0 if it may be any: "1920x1080", "1920x", "x1080".
std::pair<int32_t, int32_t> sizeOf(const std::string &text)
{
    const size_t cross = text.find('x');
    const std::string width = text.substr(0, cross);
    const std::string height = cross == std::string::npos ? "" : text.substr(cross + 1);
    if (cross == std::string::npos || (width.empty() && height.empty())) {
        throw UsageError(fmt::format("{}\"{}\" is not WIDTHxHEIGHT, WIDTHx or xHEIGHT",
                                     ifTyped("--size: ", "SIZE: "), escape(text)));
    }
    const std::string ofWidth = ifTyped("the width of --size", "SIZE: the width");
    const std::string ofHeight = ifTyped("the height of --size", "SIZE: the height");
    return {width.empty() ? 0 : numberOf(width, ofWidth.c_str(), 1),
            height.empty() ? 0 : numberOf(height, ofHeight.c_str(), 1)};
}

double rateOf(const std::string &text)
{
    const auto rate = realFrom(text, RealForm::kFixed);
    if (!rate || !(*rate > 0)) {
        throw UsageError(fmt::format("{}\"{}\" is not a number of Hz",
                                     ifTyped("--rate: ", "RATE: "), escape(text)));
    }
    return *rate;
}

bool hasSize(uint8_t id, const Raster &raster, const std::pair<int32_t, int32_t> &size)
{
    const auto [width, height] = size;
    const auto fits = [](int64_t number, int32_t wanted) {
        return wanted == 0 || number == wanted;
    };
    const auto [nameWidth, nameHeight, rate] = partsOf(nameOf(id));
    return (fits(raster.horizontal.active, width) && fits(raster.vertical.active, height)) ||
           (fits(std::stoi(nameWidth), width) && fits(std::stoi(nameHeight), height));
}

bool hasRate(uint8_t id, const Raster &raster, double rate)
{
    return raster.frequency == rate || rateOf(partsOf(nameOf(id))[2]) == rate;
}

bool hasClass(uint8_t id, const std::string &wanted)
{
    const std::vector<std::string> classes = classesOf(id);
    if (isSameWord(wanted, "none")) {
        return classes.empty();
    }
    return std::any_of(classes.begin(), classes.end(),
                       [&](const std::string &each) { return isSameWord(each, wanted); });
}

void printRow(uint8_t id)
{
    const Raster raster = rasterOf(id);
    const std::string row = fmt::format(
        "{:>3}  {:<16}  {:>4}x{:<4}  {:>4}x{:<4}  {:>10}  {:>2}  {:>6}  {}{}  {}", id, nameOf(id),
        raster.horizontal.active, raster.vertical.active, raster.horizontal.total,
        raster.vertical.total, megahertz(raster.pixelClock), raster.frequency,
        decimals(raster.rate(), 3), raster.horizontal.isNegative ? '-' : '+',
        raster.vertical.isNegative ? '-' : '+', fmt::join(classesOf(id), " "));
    fmt::print("{}\n", withoutBlanksAtTheEnd(row));
}

int list(const Options &options)
{
    requireOneForm(options);
    const auto size = options.size.empty() ? std::pair{0, 0} : sizeOf(options.size);
    const double rate = options.rate.empty() ? 0 : rateOf(options.rate);
    std::vector<uint8_t> chosen;
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        const Raster raster = rasterOf(id);
        if (hasSize(id, raster, size) && (rate == 0 || hasRate(id, raster, rate)) &&
            (options.formatClass.empty() || hasClass(id, options.formatClass))) {
            chosen.push_back(id);
        }
    }
    if (chosen.empty()) {
        fmt::print(stderr, "veskctl: no format is like this\n");
        return kRefused;
    }
    if (!manner().json && !options.isModeline && !manner().quiet) {
        fmt::print(
            " id  name              active     total      clock, MHz  Hz  by clock HV  class\n");
    }
    for (const uint8_t id : chosen) {
        if (manner().json) {
            printJson(jsonOfFormat(id));
        } else if (options.isModeline) {
            printModeline(id);
        } else {
            printRow(id);
        }
    }
    flushOutput();
    return kDone;
}

// show -------------------------------------------------------------------------------------------

void printAxis(const char *name, const Axis &axis)
{
    fmt::print("    {:<10}  {:>6}  {:>11}  {:>4}  {:>10}  {:>5}  {:>5}  {}\n", name, axis.active,
               axis.frontPorch(), axis.sync, axis.backPorch(), axis.total, axis.start,
               polarityOf(axis));
}

void printFormat(uint8_t id)
{
    const Raster raster = rasterOf(id);
    const std::vector<std::string> classes = classesOf(id);
    const std::string list = listOf(id);
    const uint8_t whole = change4Kformat(id);
    const uint8_t detected = detectedAs(raster);
    fmt::print("{}  {}\n", id, nameOf(id));
    fmt::print("    {:<10}  {:>6}  {:>11}  {:>4}  {:>10}  {:>5}  {:>5}  {}\n", "", "active",
               "front porch", "sync", "back porch", "total", "start", "sync is");
    printAxis("horizontal", raster.horizontal);
    printAxis("vertical", raster.vertical);
    fmt::print("    clock {} MHz; {} Hz, by the clock {}; lines {} kHz\n",
               megahertz(raster.pixelClock), raster.frequency, decimals(raster.rate(), 3),
               decimals(raster.lineRate() / 1e3, 3));
    fmt::print("    class: {}; GS4911 code: {}; list: {}\n",
               classes.empty() ? "none" : fmt::format("{}", fmt::join(classes, ", ")),
               GetGS4911ByVideoFormat(id), list.empty() ? "none" : list);
    if (whole != id) {
        fmt::print("    a quarter of {} {}\n", whole, nameOf(whole));
    }
    if (detected != id) {
        fmt::print(
            "    an input with the format's own numbers, {} {} {} {} {}, is reported as {} {}\n",
            raster.horizontal.active, raster.vertical.active, raster.horizontal.total,
            raster.vertical.total, raster.frequency, detected, nameOf(detected));
    }
}

int show(const Options &options)
{
    requireOneForm(options);
    std::vector<uint8_t> formats;
    for (const std::string &text : options.formats) {
        const std::vector<uint8_t> found = formatsOf(text);
        formats.insert(formats.end(), found.begin(), found.end());
    }
    for (const uint8_t id : formats) {
        if (manner().json) {
            printJson(jsonOfFormat(id));
        } else if (options.isModeline) {
            printModeline(id);
        } else {
            printFormat(id);
        }
    }
    flushOutput();
    return kDone;
}

// calc -------------------------------------------------------------------------------------------

// One line of the comparison: what it is called, there and in JSON, and a raster's text for it.
struct Quantity {
    const char *name;
    const char *key;
    std::string (*textOf)(const Raster &raster);
};

const Quantity kQuantities[] = {
    {"H active", "horizontal.active",
     [](const Raster &raster) { return std::to_string(raster.horizontal.active); }},
    {"H front porch", "horizontal.front_porch",
     [](const Raster &raster) { return std::to_string(raster.horizontal.frontPorch()); }},
    {"H sync", "horizontal.sync",
     [](const Raster &raster) { return std::to_string(raster.horizontal.sync); }},
    {"H back porch", "horizontal.back_porch",
     [](const Raster &raster) { return std::to_string(raster.horizontal.backPorch()); }},
    {"H total", "horizontal.total",
     [](const Raster &raster) { return std::to_string(raster.horizontal.total); }},
    {"H start", "horizontal.start",
     [](const Raster &raster) { return std::to_string(raster.horizontal.start); }},
    {"H sync is", "horizontal.sync_is_negative",
     [](const Raster &raster) { return std::string(polarityOf(raster.horizontal)); }},
    {"V active", "vertical.active",
     [](const Raster &raster) { return std::to_string(raster.vertical.active); }},
    {"V front porch", "vertical.front_porch",
     [](const Raster &raster) { return std::to_string(raster.vertical.frontPorch()); }},
    {"V sync", "vertical.sync",
     [](const Raster &raster) { return std::to_string(raster.vertical.sync); }},
    {"V back porch", "vertical.back_porch",
     [](const Raster &raster) { return std::to_string(raster.vertical.backPorch()); }},
    {"V total", "vertical.total",
     [](const Raster &raster) { return std::to_string(raster.vertical.total); }},
    {"V start", "vertical.start",
     [](const Raster &raster) { return std::to_string(raster.vertical.start); }},
    {"V sync is", "vertical.sync_is_negative",
     [](const Raster &raster) { return std::string(polarityOf(raster.vertical)); }},
    {"pixel clock, MHz", "pixel_clock_hz",
     [](const Raster &raster) { return megahertz(raster.pixelClock); }},
    {"line rate, kHz", "line_rate_hz",
     [](const Raster &raster) { return decimals(raster.lineRate() / 1e3, 3); }},
    {"rate, Hz", "rate_hz", [](const Raster &raster) { return decimals(raster.rate(), 3); }},
};

struct Calculated {
    CustomMode mode;
    double clock;                 // whole MHz, held against the limit
    std::optional<Raster> device; // nothing: refused
    std::vector<std::string> troubles;
    std::array<std::optional<Raster>, 2> standards; // versions 1 and 2
};

Calculated calculate(const CustomMode &mode)
{
    Calculated all{mode,
                   customPixelClock(mode.width, mode.height, mode.rate),
                   customRaster(mode),
                   {},
                   {reducedBlanking(mode, 1), reducedBlanking(mode, 2)}};
    if (all.device) {
        all.troubles = troublesOf(mode, *all.device);
    }
    return all;
}

std::string refusalOf(const Calculated &all)
{
    // The device's arithmetic goes no further than this.
    constexpr int32_t kMostClock = std::numeric_limits<int32_t>::max() / 1000000;
    return fmt::format("the device refuses {}: its clock is {} MHz{}, and the limit is {}",
                       nameOf(all.mode), all.clock, all.clock < kMostClock ? "" : " or more",
                       kMaxPixelClock);
}

std::vector<const Quantity *> differencesOf(const Raster &device, const Raster &standard)
{
    std::vector<const Quantity *> differences;
    for (const Quantity &quantity : kQuantities) {
        if (quantity.textOf(device) != quantity.textOf(standard)) {
            differences.push_back(&quantity);
        }
    }
    return differences;
}

void printJson(const Calculated &all)
{
    Json standards = Json::object();
    for (size_t i = 0; i < all.standards.size(); ++i) {
        Json json;
        if (all.standards[i]) {
            json = jsonOf(*all.standards[i]);
            json["differences"] = Json();
            if (all.device) {
                json["differences"] = Json::array();
                for (const Quantity *quantity : differencesOf(*all.device, *all.standards[i])) {
                    json["differences"].push_back(quantity->key);
                }
            }
        }
        standards[fmt::format("v{}", i + 1)] = json;
    }
    ::printJson({{"width", all.mode.width},
                 {"height", all.mode.height},
                 {"rate_hz", all.mode.rate},
                 {"checked_clock_mhz", all.clock},
                 {"limit_mhz", kMaxPixelClock},
                 {"accepted", all.device.has_value()},
                 {"troubles", all.troubles},
                 {"device", all.device ? jsonOf(*all.device) : Json()},
                 {"standards", standards}});
}

void printTable(const Calculated &all)
{
    fmt::print("{:<16}  {:>12}  {:>12}    {:>12}\n", nameOf(all.mode), "device", "CVT-RB v1",
               "CVT-RB v2");
    for (const Quantity &quantity : kQuantities) {
        const std::string device = all.device ? quantity.textOf(*all.device) : "-";
        std::string row = fmt::format("{:<16}  {:>12}", quantity.name, device);
        for (const std::optional<Raster> &standard : all.standards) {
            const std::string text = standard ? quantity.textOf(*standard) : "-";
            row += fmt::format("  {:>12} {}", text,
                               standard && all.device && text != device ? '*' : ' ');
        }
        fmt::print("{}\n", withoutBlanksAtTheEnd(row));
    }
    if (all.device) {
        fmt::print("accepted: the clock is {} MHz, the limit {}\n", all.clock, kMaxPixelClock);
    } else {
        fmt::print("{}\n", refusalOf(all));
    }
    for (const std::string &trouble : all.troubles) {
        fmt::print("{}\n", trouble);
    }
}

bool printModelines(const Calculated &all)
{
    const std::string name = nameOf(all.mode);
    bool isWhole = all.device && printModeline("the device's " + name, name, *all.device);
    if (!all.device) {
        fmt::print(stderr, "veskctl: {}\n", refusalOf(all));
    }
    for (size_t i = 0; i < all.standards.size(); ++i) {
        if (all.standards[i]) {
            const std::string whose = fmt::format("CVT-RB v{}", i + 1);
            printModeline(fmt::format("{} {}", whose, name), fmt::format("{}-rb{}", name, i + 1),
                          *all.standards[i]);
        }
    }
    return isWhole;
}

int calc(const Options &options)
{
    requireOneForm(options);
    std::vector<CustomMode> modes;
    for (size_t i = 0; i < options.numbers.size(); i += 3) {
        if (options.numbers.size() - i < 3) {
            throw UsageError("a mode is three numbers: WIDTH HEIGHT RATE");
        }
        modes.push_back({numberOf(options.numbers[i], "WIDTH", 1),
                         numberOf(options.numbers[i + 1], "HEIGHT", 1),
                         numberOf(options.numbers[i + 2], "RATE", 1)});
    }
    int status = kDone;
    for (const CustomMode &mode : modes) {
        const Calculated all = calculate(mode);
        bool isGood = all.device.has_value();
        if (manner().json) {
            printJson(all);
        } else if (options.isModeline) {
            isGood = printModelines(all);
        } else {
            printTable(all);
        }
        status = isGood ? status : kRefused;
    }
    flushOutput();
    return status;
}

// detect -----------------------------------------------------------------------------------------

struct Measured {
    int32_t hde, vde, htotal, vtotal, rate;
};

bool isField(const Measured &measured, uint8_t id)
{
    return isInterlaceFormat(measured.hde, measured.vde, measured.htotal, measured.vtotal,
                             measured.rate) == id;
}

// The other formats that this one's numbers fit as well.
std::vector<uint8_t> twinsOf(uint8_t id)
{
    const Raster raster = rasterOf(id);
    std::vector<uint8_t> twins;
    for (uint8_t other = 0; other < kVideoFormatCount; ++other) {
        const Raster candidate = rasterOf(other);
        if (other != id && candidate.horizontal.active == raster.horizontal.active &&
            candidate.horizontal.total == raster.horizontal.total &&
            candidate.vertical.active == raster.vertical.active &&
            candidate.vertical.total == raster.vertical.total &&
            candidate.frequency == raster.frequency) {
            twins.push_back(other);
        }
    }
    return twins;
}

int detect(const Options &options)
{
    requireOneForm(options);
    constexpr std::array kNames{"HDE", "VDE", "HTOTAL", "VTOTAL", "RATE"};
    std::array<int32_t, kNames.size()> numbers{};
    if (options.numbers.size() != numbers.size()) {
        throw UsageError("a measured timing is five numbers: HDE VDE HTOTAL VTOTAL RATE");
    }
    for (size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = numberOf(options.numbers[i], kNames[i], 0);
    }
    const auto [hde, vde, htotal, vtotal, rate] = numbers;
    const Measured measured{hde, vde, htotal, vtotal, rate};
    const uint8_t id = GetVideoFormat(hde, vde, htotal, vtotal, rate);
    const bool isFound = id != kVideoFormatUndefine;
    const bool isOfField = isFound && isField(measured, id);
    if (manner().json) {
        ::printJson({{"measured",
                      {{"hde", hde},
                       {"vde", vde},
                       {"htotal", htotal},
                       {"vtotal", vtotal},
                       {"rate_hz", rate}}},
                     {"id", id},
                     {"one_field", isOfField},
                     {"same_timing", isFound ? Json(twinsOf(id)) : Json::array()},
                     {"format", isFound ? jsonOfFormat(id) : Json()}});
    } else if (options.isModeline) {
        if (isFound) {
            printModeline(id);
        } else {
            fmt::print(stderr, "veskctl: no format is near\n");
        }
    } else if (isFound) {
        printFormat(id);
        if (isOfField) {
            fmt::print("    found by the numbers of one field\n");
        }
        std::vector<std::string> twins;
        for (const uint8_t twin : twinsOf(id)) {
            twins.push_back(fmt::format("{} {}", twin, nameOf(twin)));
        }
        if (!twins.empty()) {
            fmt::print("    these have the same numbers: {}\n", fmt::join(twins, ", "));
        }
    } else {
        fmt::print("{}  {}: no format is near\n", id, nameOf(id));
    }
    flushOutput();
    return isFound ? kDone : kRefused;
}

// draw -------------------------------------------------------------------------------------------

// The numbers of "1920x1080@60"; nothing if the text does not look like a mode.
std::optional<CustomMode> modeOf(const std::string &text)
{
    const size_t at = text.find('@');
    const size_t cross = text.find('x');
    if (at == std::string::npos || cross > at) {
        return std::nullopt;
    }
    return CustomMode{numberOf(text.substr(0, cross), "the width", 1),
                      numberOf(text.substr(cross + 1, at - cross - 1), "the height", 1),
                      numberOf(text.substr(at + 1), "the rate", 1)};
}

struct Subject {
    std::string title;
    Raster raster;
};

// Nothing: refused, which is reported.
std::optional<Subject> customSubject(const CustomMode &mode, const std::string &standard)
{
    if (standard != "device") {
        const int version = standard == "v1" ? 1 : 2;
        const std::optional<Raster> raster = reducedBlanking(mode, version);
        if (!raster) {
            throw UsageError(fmt::format("the standard has no {}", nameOf(mode)));
        }
        return Subject{fmt::format("CVT with reduced blanking v{}: {}", version, nameOf(mode)),
                       *raster};
    }
    const Calculated all = calculate(mode);
    if (!all.device) {
        fmt::print(stderr, "veskctl: {}{}\n", refusalOf(all), ifTyped("; nothing was written"));
        return std::nullopt;
    }
    return Subject{fmt::format("Custom format {}", nameOf(mode)), *all.device};
}

Subject formatSubject(const std::string &text)
{
    const std::vector<uint8_t> formats = formatsOf(text);
    if (formats.size() > 1) {
        throw UsageError(fmt::format("\"{}\" is the name of the formats {}; give the id", text,
                                     fmt::join(formats, " and ")));
    }
    return {fmt::format("Format {}: {}", formats[0], nameOf(formats[0])), rasterOf(formats[0])};
}

int draw(const Options &options)
{
    const std::optional<CustomMode> mode = modeOf(options.timing);
    if (!mode && options.standard != "device") {
        throw UsageError("--standard is for WIDTHxHEIGHT@RATE");
    }
    const std::optional<Subject> subject =
        mode ? customSubject(*mode, options.standard) : formatSubject(options.timing);
    if (!subject) {
        return kRefused;
    }
    const std::string fault = faultOf(subject->raster);
    if (!fault.empty()) {
        throw UsageError(fmt::format("{} cannot be drawn: {}", options.timing, fault));
    }
    const std::string picture = drawingOf(subject->title, subject->raster);
    if (options.picture == "-") {
        fmt::print("{}", picture);
        flushOutput();
    } else {
        replaceFile(options.picture, picture);
    }
    return kDone;
}

} // namespace

std::vector<std::string> formatClasses()
{
    std::vector<std::string> names;
    for (const FormatClass &each : kClasses) {
        names.emplace_back(each.name);
    }
    names.emplace_back("none");
    return names;
}

std::vector<Choice> addTimingCommands(CLI::App &app)
{
    const auto options = std::make_shared<Options>();
    CLI::App *const timing = app.add_subcommand("timing", kAbout);
    timing->footer(kFooter);
    timing->require_subcommand(1);

    CLI::App *const listCommand = timing->add_subcommand("list", kListAbout);
    listCommand->footer(kListFooter);
    listCommand
        ->add_option("--size", options->size, "Of this active size; either number may be left out")
        ->type_name("WIDTHxHEIGHT");
    listCommand->add_option("--rate", options->rate, "Of this rate, such as 60 or 59.94")
        ->type_name("HZ");
    listCommand
        ->add_option("--class", options->formatClass,
                     "Of this class: interlaced, SD, 4K2K, 8K1K or none")
        ->type_name("CLASS")
        ->check(CLI::IsMember(formatClasses(), CLI::ignore_case).description(""));

    CLI::App *const showCommand = timing->add_subcommand("show", kShowAbout);
    showCommand->footer(kShowFooter);
    showCommand->add_option("FORMAT", options->formats, "Ids, 0 to 123, or names")->required();

    CLI::App *const calcCommand = timing->add_subcommand("calc", kCalcAbout);
    calcCommand->footer(kCalcFooter);
    calcCommand->add_option("MODE", options->numbers, "WIDTH HEIGHT RATE")->required();

    CLI::App *const detectCommand = timing->add_subcommand("detect", kDetectAbout);
    detectCommand->footer(kDetectFooter);
    detectCommand->add_option("MEASURED", options->numbers, "HDE VDE HTOTAL VTOTAL RATE")
        ->required();

    CLI::App *const drawCommand = timing->add_subcommand("draw", kDrawAbout);
    drawCommand->footer(kDrawFooter);
    drawCommand->add_option("TIMING", options->timing, "Id, name, or WIDTHxHEIGHT@RATE")
        ->required();
    drawCommand->add_option("-o,--output", options->picture, "The picture; - is standard output")
        ->type_name("FILE.svg")
        ->required();
    options->standard = "device";
    drawCommand
        ->add_option("--standard", options->standard,
                     "Whose timing: the device's, or the standard's, v1 or v2")
        ->capture_default_str()
        ->type_name("device|v1|v2")
        ->check(CLI::IsMember({"device", "v1", "v2"}).description(""));

    for (CLI::App *const each : {listCommand, showCommand, calcCommand, detectCommand}) {
        each->add_flag("--modeline", options->isModeline, "Print modelines, as X.org reads them");
    }
    return {{listCommand, [options] { return list(*options); }},
            {showCommand, [options] { return show(*options); }},
            {calcCommand, [options] { return calc(*options); }},
            {detectCommand, [options] { return detect(*options); }},
            {drawCommand, [options] { return draw(*options); }}};
}
