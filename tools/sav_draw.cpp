#include "tools/sav_draw.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "tools/errors.h"
#include "tools/file.h"
#include "tools/output.h"
#include "tools/sav_store.h"
#include "tools/text.h"

namespace fs = std::filesystem;

namespace {

// SVG ---------------------------------------------------------------------------------------------

// A length in a picture: at most two decimals.
std::string num(double value)
{
    std::string text = fmt::format("{:.2f}", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

struct Box {
    double x, y, width, height;

    [[nodiscard]] bool meets(const Box &other) const
    {
        return x < other.x + other.width && other.x < x + width && y < other.y + other.height &&
               other.y < y + height;
    }
};

std::string rectangle(const Box &box, const std::string &attributes)
{
    return fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" {}/>\n", num(box.x),
                       num(box.y), num(box.width), num(box.height), attributes);
}

// `content` is XML already.
std::string textAt(double x, double y, double size, const std::string &content,
                   const std::string &attributes = "")
{
    return fmt::format("<text x=\"{}\" y=\"{}\" font-size=\"{}\"{}{}>{}</text>\n", num(x), num(y),
                       num(size), attributes.empty() ? "" : " ", attributes, content);
}

// An estimate that is rather too wide: fonts differ.
double widthOf(std::string_view text, double size, bool isBold = false)
{
    const auto characters = std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    });
    return (isBold ? 0.66 : 0.58) * size * static_cast<double>(characters);
}

// The lines of a text that is broken at blanks.
std::vector<std::string> wrapped(std::string_view text, double size, double width)
{
    std::vector<std::string> lines;
    while (widthOf(text, size) > width) {
        size_t end = text.size();
        while (end != std::string_view::npos && widthOf(text.substr(0, end), size) > width) {
            end = end == 0 ? std::string_view::npos : text.rfind(' ', end - 1);
        }
        if (end == std::string_view::npos) {
            break; // a word that is too long
        }
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    lines.emplace_back(text);
    return lines;
}

// A colour for each input, neighbours far apart; light enough for dark text. `lightness` from 0
// to 1.
std::string colorOf(unsigned input, double lightness)
{
    constexpr double kSaturation = 0.6;
    const double hue = std::fmod(input * 137.5 + 210, 360) / 30;
    const double reach = kSaturation * std::min(lightness, 1 - lightness);
    std::string color = "#";
    for (const double shift : {0.0, 8.0, 4.0}) {
        const double k = std::fmod(shift + hue, 12);
        const double part = lightness - reach * std::max(-1.0, std::min({k - 3, 9 - k, 1.0}));
        color += fmt::format("{:02x}", static_cast<unsigned>(std::lround(part * 255)));
    }
    return color;
}

// Layers ------------------------------------------------------------------------------------------

struct Shown {
    unsigned number;
    const Layer *layer;
    unsigned position;
    unsigned alpha;
};

// The visible layers, from the front to the back: a greater position is nearer to the front.
std::vector<Shown> visibleLayers(const ViewSetting &view)
{
    std::vector<Shown> shown;
    for (unsigned i = 0; i < kLayerCount; ++i) {
        if (view.layerAlpha[i] != 0) {
            shown.push_back({i, &view.layers[i], view.layerAlphaPos[i], view.layerAlpha[i]});
        }
    }
    std::stable_sort(shown.begin(), shown.end(), [](const Shown &left, const Shown &right) {
        return left.position > right.position;
    });
    return shown;
}

Box windowOf(const Layer &layer)
{
    return {double(layer.windowX), double(layer.windowY), double(layer.windowWidth),
            double(layer.windowHeight)};
}

Box sourceOf(const Layer &layer)
{
    return {double(layer.sourceX), double(layer.sourceY), double(layer.sourceWidth),
            double(layer.sourceHeight)};
}

std::string sizeAndPlace(const Box &box)
{
    return fmt::format("{}\u00d7{} at {},{}", num(box.width), num(box.height), num(box.x),
                       num(box.y));
}

// A panel: a view with its title, its picture and its table ---------------------------------------

struct Size {
    double width = 0;
    double height = 0;
};

// How large a panel and its text are.
struct Look {
    double width;
    double mostHeight; // of the picture
    double font;
};

constexpr Look kAlone = {960, 640, 12};
constexpr Look kPair = {720, 520, 11};
constexpr Look kSheet = {450, 260, 9};

constexpr double kMargin = 20;
constexpr size_t kMostComparisons = 500000; // some milliseconds' worth
constexpr double kMostOfCanvas = 4;         // how much of what lies beside the canvas is drawn

// The colours of everything but the layers.
constexpr const char *kInk = "#1a1a1a";
constexpr const char *kFaintInk = "#595959";
constexpr const char *kOutside = "#e8e8e8";

class Panel {
public:
    Panel(const ViewSetting &view, const UserSetting &sizes, bool knowsSizes, const Look &look)
        : shown_(visibleLayers(view)), sizes_(sizes), knowsSizes_(knowsSizes),
          look_(look), canvas_{double(sizes.outputTiming[0].hActive),
                               double(sizes.outputTiming[0].vActive)}
    {
        measure();
    }

    [[nodiscard]] size_t layers() const
    {
        return shown_.size();
    }

    // How many layers are not on the picture, or not wholly.
    [[nodiscard]] size_t layersBeyond() const
    {
        return static_cast<size_t>(
            std::count_if(shown_.begin(), shown_.end(), [this](const Shown &shown) {
                const Box window = windowOf(*shown.layer);
                return window.x + window.width > area_.width ||
                       window.y + window.height > area_.height;
            }));
    }

    // Draws it with its upper left corner there. Returns its height.
    double draw(double x, double y, const std::string &title, std::string &svg);

private:
    void measure();
    void drawPicture(const Box &place, std::string &svg) const;
    void drawLabels(const Box &place, std::string &svg);
    bool placeLabel(const Shown &shown, const std::vector<std::string> &label, const Box &place,
                    std::string &svg);
    void drawRow(const Shown &shown, size_t order, double x, double y, std::string &svg) const;
    void drawCrop(const Shown &shown, const Box &place, std::string &svg) const;

    std::vector<Shown> shown_;
    const UserSetting &sizes_;
    bool knowsSizes_;
    Look look_;
    Size canvas_;
    Size area_; // what is drawn, in pixels of the output
    double scale_ = 1;
    std::vector<Box> labels_; // that have been placed
    size_t comparisons_ = 0;  // between labels
};

void Panel::measure()
{
    const Size most = {canvas_.width * kMostOfCanvas, canvas_.height * kMostOfCanvas};
    area_ = canvas_;
    for (const Shown &shown : shown_) {
        const Box window = windowOf(*shown.layer);
        if (window.x < most.width && window.y < most.height) {
            area_.width = std::max(area_.width, window.x + window.width);
            area_.height = std::max(area_.height, window.y + window.height);
        }
    }
    area_.width = std::min(area_.width, most.width);
    area_.height = std::min(area_.height, most.height);
    scale_ = std::min(look_.width / area_.width, look_.mostHeight / area_.height);
}

// In pixels of the output, so that the numbers are those of the file.
void Panel::drawPicture(const Box &place, std::string &svg) const
{
    const double line = 1 / scale_;
    svg += fmt::format("<svg x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" viewBox=\"0 0 {} {}\" "
                       "preserveAspectRatio=\"none\">\n",
                       num(place.x), num(place.y), num(place.width), num(place.height),
                       num(area_.width), num(area_.height));
    svg += rectangle({0, 0, area_.width, area_.height}, fmt::format("fill=\"{}\"", kOutside));
    svg += rectangle({0, 0, canvas_.width, canvas_.height}, "class=\"canvas\" fill=\"#ffffff\"");
    for (auto shown = shown_.rbegin(); shown != shown_.rend(); ++shown) {
        const unsigned input = shown->layer->inputPort;
        svg += rectangle(
            windowOf(*shown->layer),
            fmt::format("class=\"layer\" data-layer=\"{}\" fill=\"{}\" fill-opacity=\"{}\" "
                        "stroke=\"{}\" stroke-width=\"{}\"",
                        shown->number, colorOf(input, 0.78),
                        num(std::max(0.12, shown->alpha / 255.0)), colorOf(input, 0.35),
                        num(2 * line)));
    }
    // What is behind others shows as well.
    for (const Shown &shown : shown_) {
        svg +=
            rectangle(windowOf(*shown.layer),
                      fmt::format("fill=\"none\" stroke=\"{}\" stroke-width=\"{}\" "
                                  "stroke-dasharray=\"{}\"",
                                  colorOf(shown.layer->inputPort, 0.35), num(line), num(4 * line)));
    }
    const Container &container = sizes_.containers[0];
    if (knowsSizes_) {
        svg += rectangle({0, 0, double(container.width), double(container.height)},
                         fmt::format("class=\"container\" fill=\"none\" stroke=\"{}\" "
                                     "stroke-width=\"{}\" stroke-dasharray=\"{} {}\"",
                                     kFaintInk, num(2 * line), num(12 * line), num(6 * line)));
    }
    svg += rectangle(
        {0, 0, canvas_.width, canvas_.height},
        fmt::format("fill=\"none\" stroke=\"{}\" stroke-width=\"{}\"", kInk, num(2 * line)));
    svg += "</svg>\n";
}

using Label = std::vector<std::string>; // lines

// What a layer's label may say, from the longest to the shortest.
std::vector<Label> labelsOf(const Shown &shown)
{
    Label label = {fmt::format("layer {}, input {}", shown.number, shown.layer->inputPort),
                   sizeAndPlace(windowOf(*shown.layer)),
                   fmt::format("crop {}", sizeAndPlace(sourceOf(*shown.layer))),
                   fmt::format("position {}, alpha {}", shown.position, shown.alpha)};
    std::vector<Label> labels;
    for (; !label.empty(); label.pop_back()) {
        labels.push_back(label);
    }
    labels.push_back(
        {fmt::format("layer {}", shown.number), fmt::format("input {}", shown.layer->inputPort)});
    labels.push_back({std::to_string(shown.number)});
    return labels;
}

// Puts a label where no other one is, in the layer's window. False if there is no such place.
bool Panel::placeLabel(const Shown &shown, const Label &label, const Box &place, std::string &svg)
{
    const double lineHeight = look_.font + 2;
    const Box window = windowOf(*shown.layer);
    const double left = place.x + window.x * scale_;
    const double top = place.y + window.y * scale_;
    const double right = std::min(place.x + place.width, left + window.width * scale_);
    const double bottom = std::min(place.y + place.height, top + window.height * scale_);
    double width = widthOf(label[0], look_.font, true) + 6;
    for (const std::string &line : label) {
        width = std::max(width, widthOf(line, look_.font) + 6);
    }
    const double height = lineHeight * static_cast<double>(label.size()) + 4;
    const auto placesIn = [](double room, double size, double step) {
        return room < size ? 0 : 1 + static_cast<size_t>((room - size) / step);
    };
    const size_t rows = placesIn(bottom - top - 6, height, lineHeight);
    const size_t columns = placesIn(right - left - 6, width, width / 2);
    for (size_t i = 0; i < rows * columns; ++i) {
        const size_t row = i / columns;
        const size_t column = i % columns;
        const Box box = {left + 3 + static_cast<double>(column) * width / 2,
                         top + 3 + static_cast<double>(row) * lineHeight, width, height};
        comparisons_ += labels_.size();
        if (comparisons_ > kMostComparisons) {
            return false;
        }
        if (std::any_of(labels_.begin(), labels_.end(),
                        [&](const Box &other) { return other.meets(box); })) {
            continue;
        }
        labels_.push_back(box);
        svg += rectangle(box, fmt::format("rx=\"2\" fill=\"#ffffff\" fill-opacity=\"0.85\" "
                                          "stroke=\"{}\" stroke-width=\"0.7\"",
                                          colorOf(shown.layer->inputPort, 0.35)));
        double y = box.y - 1;
        for (const std::string &line : label) {
            y += lineHeight;
            svg += textAt(box.x + 3, y, look_.font, line,
                          line == label[0] ? "font-weight=\"bold\"" : "");
        }
        return true;
    }
    return false;
}

// What does not fit is in the table all the same.
void Panel::drawLabels(const Box &place, std::string &svg)
{
    for (const Shown &shown : shown_) {
        for (const Label &label : labelsOf(shown)) {
            if (placeLabel(shown, label, place, svg)) {
                break;
            }
        }
    }
}

// The input's picture, and the part of it that is shown.
void Panel::drawCrop(const Shown &shown, const Box &place, std::string &svg) const
{
    const Layer &layer = *shown.layer;
    if (!knowsSizes_ || layer.inputPort >= kInputCount) {
        return;
    }
    const InputTiming &input = sizes_.inputTiming[layer.inputPort];
    const Box source = sourceOf(layer);
    const double width = std::max({double(input.hActive), source.x + source.width, 1.0});
    const double height = std::max({double(input.vActive), source.y + source.height, 1.0});
    const double scale = std::min(place.width / width, place.height / height);
    svg += rectangle({place.x, place.y, input.hActive * scale, input.vActive * scale},
                     fmt::format("fill=\"#ffffff\" stroke=\"{}\" stroke-width=\"0.7\"", kFaintInk));
    svg += rectangle({place.x + source.x * scale, place.y + source.y * scale, source.width * scale,
                      source.height * scale},
                     fmt::format("fill=\"{}\" stroke=\"{}\" stroke-width=\"0.7\"",
                                 colorOf(layer.inputPort, 0.78), colorOf(layer.inputPort, 0.35)));
}

// The columns of a table, in parts of its width.
constexpr double kColumns[] = {0, 0.07, 0.15, 0.23, 0.54, 0.84, 0.93};
constexpr const char *kHeadings[] = {"order",    "layer", "input", "window", "part of the input",
                                     "position", "alpha"};

void Panel::drawRow(const Shown &shown, size_t order, double x, double y, std::string &svg) const
{
    const double size = look_.font - 1;
    const Layer &layer = *shown.layer;
    const double crop = 2.2 * look_.font;
    const auto column = [&](size_t i) { return x + kColumns[i] * look_.width; };
    svg += textAt(column(0), y, size, fmt::format("{}", order));
    svg += textAt(column(1), y, size, fmt::format("{}", shown.number));
    svg += rectangle({column(2), y - size + 1, size, size},
                     fmt::format("fill=\"{}\" stroke=\"{}\" stroke-width=\"0.7\"",
                                 colorOf(layer.inputPort, 0.78), colorOf(layer.inputPort, 0.35)));
    svg += textAt(column(2) + size + 4, y, size, fmt::format("{}", layer.inputPort));
    svg += textAt(column(3), y, size, sizeAndPlace(windowOf(layer)));
    drawCrop(shown, {column(4), y - size, crop, size + 2}, svg);
    svg += textAt(column(4) + crop + 4, y, size, sizeAndPlace(sourceOf(layer)));
    svg += textAt(column(5), y, size, fmt::format("{}", shown.position));
    svg += textAt(column(6), y, size, fmt::format("{}", shown.alpha));
}

double Panel::draw(double x, double y, const std::string &title, std::string &svg)
{
    const double top = y;
    y += look_.font + 4;
    svg += textAt(x, y, look_.font + 3, title, "font-weight=\"bold\"");
    y += 8;
    const Box place = {x, y, std::max(1.0, area_.width * scale_),
                       std::max(1.0, area_.height * scale_)};
    drawPicture(place, svg);
    drawLabels(place, svg);
    y += place.height + look_.font + 6;
    const double rowHeight = look_.font + 5;
    if (shown_.empty()) {
        svg +=
            textAt(x, y, look_.font, "no layer is visible", fmt::format("fill=\"{}\"", kFaintInk));
        return y + rowHeight - top;
    }
    for (size_t i = 0; i < std::size(kColumns); ++i) {
        svg += textAt(x + kColumns[i] * look_.width, y, look_.font - 1, kHeadings[i],
                      fmt::format("fill=\"{}\"", kFaintInk));
    }
    for (size_t i = 0; i < shown_.size(); ++i) {
        y += rowHeight;
        drawRow(shown_[i], i + 1, x, y, svg);
    }
    return y + rowHeight - top;
}

// The whole picture -------------------------------------------------------------------------------

struct View {
    const ViewSetting *view;
    std::string title;
};

std::vector<View> viewsIn(const SavFile &file, const UserSetting &setting,
                          std::vector<ViewSetting> &memory)
{
    if (file.kind == SavKind::kSave) {
        return {{&setting.program, "program: the view on the outputs"},
                {&setting.preview, "preview: the view that is being prepared"}};
    }
    memory.resize(file.bytes.size() / sizeof(ViewSetting));
    std::memcpy(memory.data(), file.bytes.data(), memory.size() * sizeof(ViewSetting));
    std::vector<View> views;
    for (size_t i = 0; i < memory.size(); ++i) {
        const bool isPage = file.kind == SavKind::kPage;
        views.push_back({&memory[i], isPage ? fmt::format("view {}", i)
                                            : fmt::format("view number {}", memory[i].viewNumber)});
    }
    return views;
}

// "outputs 0 to 4 1920x1080, output 5 1280x720 (off)"
std::string outputsOf(const UserSetting &sizes)
{
    const auto sizeOf = [&](uint32_t output) {
        return fmt::format("{}\u00d7{}{}", sizes.outputTiming[output].hActive,
                           sizes.outputTiming[output].vActive,
                           sizes.outputEnable[output] == 0 ? " (off)" : "");
    };
    std::string text;
    for (uint32_t first = 0, next = 0; first < kOutputCount; first = next) {
        while (next < kOutputCount && sizeOf(next) == sizeOf(first)) {
            ++next;
        }
        text += fmt::format("{}output{} {}", first == 0 ? "" : ", ", next - first > 1 ? "s" : "",
                            first);
        text += next - first > 1 ? fmt::format(" to {} {}", next - 1, sizeOf(first))
                                 : fmt::format(" {}", sizeOf(first));
    }
    return text;
}

// What a reader has to know, one sentence a line.
std::vector<std::string> notesOn(const SavFile &file, const UserSetting &sizes, SizesFrom from,
                                 bool hasCanvas, size_t beyond)
{
    std::vector<std::string> notes;
    const std::string canvas =
        fmt::format("canvas 0 {}\u00d7{}", sizes.containers[0].width, sizes.containers[0].height);
    if (from == SizesFrom::kFile) {
        notes.push_back(fmt::format("Sizes: {}, {}.", outputsOf(sizes), canvas));
    } else if (from == SizesFrom::kBeside) {
        notes.push_back(fmt::format("Sizes, of the save0.sav beside this file: {}, {}.",
                                    outputsOf(sizes), canvas));
    } else {
        notes.emplace_back("A view has no sizes of outputs and inputs, and no save0.sav that has "
                           "them is beside this file: the canvas is that of a reset.");
    }
    if (!hasCanvas) {
        notes.emplace_back("Output 0 has no size there: the canvas is that of a reset.");
    }
    notes.emplace_back(from == SizesFrom::kReset
                           ? "The framed area is output 0."
                           : "The framed area is output 0; canvas 0 has long dashes.");
    notes.emplace_back("A greater position is drawn nearer to the front; short dashes show what is "
                       "behind others. Alpha is from 1 to 255; layers with alpha 0 are not shown.");
    if (beyond > 0) {
        notes.push_back(fmt::format("{} {} beyond the picture, which shows at most {} times the "
                                    "width and height of output 0.",
                                    beyond, beyond == 1 ? "layer reaches" : "layers reach",
                                    kMostOfCanvas));
    }
    if (file.kind == SavKind::kView) {
        ViewSetting view;
        std::memcpy(&view, file.bytes.data(), sizeof(view));
        if (view.identification != kViewId) {
            notes.push_back(fmt::format("The device refuses this view: its identification is "
                                        "0x{:08x}, not 0x{:08x}.",
                                        view.identification, kViewId));
        }
    }
    return notes;
}

// What a reset makes of the user setting.
UserSetting settingOfReset()
{
    malloc_saveView();
    runOnFiles({}, [] { ResetUserSettingSave(); });
    return *GetUserSetting();
}

// The user setting that would be used together with the file.
std::optional<UserSetting> settingBeside(const std::string &file)
{
    const std::string path = fs::path(file).replace_filename("save0.sav");
    UserSetting setting;
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) != sizeof(setting)) {
        return std::nullopt;
    }
    try {
        const SavFile content = readSav(path, SavKind::kSave);
        if (content.bytes.size() != sizeof(setting)) {
            return std::nullopt;
        }
        std::memcpy(&setting, content.bytes.data(), sizeof(setting));
    } catch (const std::runtime_error &) {
        return std::nullopt; // one that cannot be read is of no use
    }
    const bool isGood = setting.identification == kUserSettingId &&
                        setting.trailingIdentification == kUserSettingTrailingId;
    return isGood ? std::optional(setting) : std::nullopt;
}

} // namespace

std::string drawingOf(const SavFile &file, const UserSetting &sizes, SizesFrom from)
{
    UserSetting used = sizes;
    OutputTiming &output = used.outputTiming[0];
    const bool hasCanvas = output.hActive > 0 && output.vActive > 0;
    if (!hasCanvas) {
        output = settingOfReset().outputTiming[0];
    }
    std::vector<ViewSetting> memory;
    const std::vector<View> views = viewsIn(file, used, memory);
    const bool isPage = file.kind == SavKind::kPage;
    const Look &look = isPage ? kSheet : file.kind == SavKind::kSave ? kPair : kAlone;
    const size_t columns = isPage ? 4 : views.size();
    const double width = kMargin + static_cast<double>(columns) * (look.width + kMargin);

    std::string body;
    double y = kMargin + 56;
    size_t visible = 0;
    size_t beyond = 0;
    for (size_t i = 0; i < views.size(); i += columns) {
        double height = 0;
        for (size_t j = i; j < std::min(i + columns, views.size()); ++j) {
            Panel panel(*views[j].view, used, from != SizesFrom::kReset, look);
            const double x = kMargin + static_cast<double>(j - i) * (look.width + kMargin);
            const std::string title =
                fmt::format("{} ({} visible)", views[j].title, panel.layers());
            height = std::max(height, panel.draw(x, y, title, body));
            visible += panel.layers();
            beyond += panel.layersBeyond();
        }
        y += height + kMargin;
    }
    for (const std::string &note : notesOn(file, used, from, hasCanvas, beyond)) {
        for (const std::string &line : wrapped(note, 12, width - 2 * kMargin)) {
            body += textAt(kMargin, y, 12, line, fmt::format("fill=\"{}\"", kFaintInk));
            y += 18;
        }
    }
    const std::string name = escapeXml(escape(fs::path(file.path).filename().string()));
    return fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
                       "viewBox=\"0 0 {0} {1}\" font-family=\"DejaVu Sans, Arial, sans-serif\" "
                       "fill=\"{2}\">\n<title>{3}</title>\n",
                       num(width), num(y + kMargin), kInk, name) +
           rectangle({0, 0, width, y + kMargin}, "fill=\"#ffffff\"") +
           textAt(kMargin, kMargin + 16, 20, name, "font-weight=\"bold\"") +
           textAt(kMargin, kMargin + 38, 13,
                  fmt::format("{} of {} layers visible in {} {}; output 0 has {}\u00d7{} pixels",
                              visible, kLayerCount * views.size(), views.size(),
                              views.size() == 1 ? "view" : "views", output.hActive, output.vActive),
                  fmt::format("fill=\"{}\"", kFaintInk)) +
           body + "</svg>\n";
}

int runSavDraw(const std::string &file, const std::string &output, SavKind kind)
{
    const SavFile sav = readSav(file, kind);
    if (sav.kind != SavKind::kView && sav.kind != SavKind::kPage && sav.kind != SavKind::kSave) {
        throw UsageError(
            fmt::format("{} has no picture: it is not a view, page or user setting", escape(file)));
    }
    if (sav.bytes.size() != lengthOf(sav.kind)) {
        throw UsageError(fmt::format("{} has {} bytes, and a {} file has {}", escape(file),
                                     sav.bytes.size(), nameOf(sav.kind), lengthOf(sav.kind)));
    }
    std::error_code error;
    if (fs::equivalent(file, output, error)) {
        throw UsageError(fmt::format("{} is the file that is to be drawn", escape(output)));
    }
    SizesFrom from = SizesFrom::kFile;
    UserSetting sizes;
    if (sav.kind == SavKind::kSave) {
        std::memcpy(&sizes, sav.bytes.data(), sizeof(sizes));
    } else if (const std::optional<UserSetting> beside = settingBeside(file)) {
        sizes = *beside;
        from = SizesFrom::kBeside;
    } else {
        sizes = settingOfReset();
        from = SizesFrom::kReset;
    }
    const std::string drawing = drawingOf(sav, sizes, from);
    if (output == "-") {
        printText(drawing);
    } else {
        replaceFile(output, drawing);
    }
    return kDone;
}
