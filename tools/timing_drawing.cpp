#include "tools/timing_drawing.h"

#include <algorithm>
#include <array>
#include <vector>

#include <fmt/format.h>

#include "tools/text.h"

namespace {

// All in units of the picture.
constexpr double kMostWidth = 880; // of the frame
constexpr double kMostHeight = 560;
constexpr double kLeast = 170;       // of a side, so that its parts can be told apart
constexpr double kTop = 164;         // above the frame: title, facts, H total, H sync
constexpr double kLeft = 120;        // beside it: V total, V sync
constexpr double kRight = 270;       // the labels of a frame's parts
constexpr double kBottom = 110;      // the labels of a line's parts, the scale
constexpr double kLeastWidth = 760;  // for the title
constexpr double kHGap = 104;        // between the middles of labels
constexpr double kVGap = 34;         //
constexpr double kSignalAt = 34;     // a signal's distance from the frame, and its height
constexpr double kSignalHeight = 16; //
constexpr double kTotalAt = 66;      // a total's distance

struct Part {
    const char *name;
    double begin; // from the leading edge of the sync, in pixels or lines
    double length;
    const char *color;
};

constexpr std::array<const char *, 4> kColors{"#c2410c", "#fdba74", "#bfdbfe", "#86a8c9"};

std::array<Part, 4> partsOf(const Axis &axis)
{
    const auto number = [](int64_t value) { return static_cast<double>(value); };
    return {
        {{"sync", 0, number(axis.sync), kColors[0]},
         {"back porch", number(axis.sync), number(axis.backPorch()), kColors[1]},
         {"active", number(axis.start), number(axis.active), kColors[2]},
         {"front porch", number(axis.start + axis.active), number(axis.frontPorch()), kColors[3]}}};
}

// The middles of labels: near where they are wanted, in that order, and `gap` apart.
std::vector<double> spread(const std::array<Part, 4> &parts, double scale, double gap, double end)
{
    std::vector<double> middles;
    for (const Part &part : parts) {
        middles.push_back((part.begin + part.length / 2) * scale);
        if (middles.size() > 1) {
            middles.back() = std::max(middles.back(), middles[middles.size() - 2] + gap);
        }
    }
    double last = std::max(end, gap * 3); // whatever is behind it is pushed back
    for (auto middle = middles.rbegin(); middle != middles.rend(); ++middle) {
        *middle = std::min(*middle, last);
        last = *middle - gap;
    }
    return middles;
}

// Microseconds or milliseconds.
std::string timeOf(double seconds)
{
    return seconds < 1e-3 ? fmt::format("{:.3f} µs", seconds * 1e6)
                          : fmt::format("{:.3f} ms", seconds * 1e3);
}

class Drawing {
public:
    Drawing(const std::string &title, const Raster &raster)
        : raster_(raster), horizontal_(partsOf(raster.horizontal)),
          vertical_(partsOf(raster.vertical))
    {
        const double hTotal = static_cast<double>(raster.horizontal.total);
        const double vTotal = static_cast<double>(raster.vertical.total);
        const double scale = std::min(kMostWidth / hTotal, kMostHeight / vTotal);
        xScale_ = std::max(scale, kLeast / hTotal);
        yScale_ = std::max(scale, kLeast / vTotal);
        width_ = hTotal * xScale_;
        height_ = vTotal * yScale_;
        hLabels_ = spread(horizontal_, xScale_, kHGap, width_);
        vLabels_ = spread(vertical_, yScale_, kVGap, height_ - kVGap / 2);
        left_ = std::max(kLeft, kHGap / 2 + 10 - hLabels_.front());
        draw(title);
    }

    std::string text() const
    {
        return text_;
    }

private:
    const Raster &raster_;
    std::array<Part, 4> horizontal_;
    std::array<Part, 4> vertical_;
    double xScale_ = 1; // a pixel's width
    double yScale_ = 1; // a line's height
    double width_ = 0;  // of the frame
    double height_ = 0;
    double left_ = 0; // where it is
    std::vector<double> hLabels_;
    std::vector<double> vLabels_;
    std::string text_;

    template <typename... Values>
    void add(fmt::format_string<const Values &...> format, const Values &...values)
    {
        text_ += fmt::format(format, values...) + "\n";
    }

    void write(double x, double y, const char *more, const std::string &words)
    {
        add(R"(<text x="{:.1f}" y="{:.1f}"{}>{}</text>)", x, y, more, escapeXml(words));
    }

    void rectangle(const char *name, double x, double y, double width, double height,
                   const char *color)
    {
        add(R"(<rect class="{}" x="{:.3f}" y="{:.3f}" width="{:.3f}" height="{:.3f}" fill="{}"/>)",
            name, left_ + x, kTop + y, width, height, color);
    }

    void line(double x1, double y1, double x2, double y2)
    {
        add(R"(<line x1="{:.1f}" y1="{:.1f}" x2="{:.1f}" y2="{:.1f}"/>)", x1, y1, x2, y2);
    }

    void draw(const std::string &title)
    {
        const double right = std::max(width_ + kRight, hLabels_.back() + kHGap / 2 + 10);
        const double below = std::max(height_, vLabels_.back() + 20);
        const double pictureWidth = std::max(left_ + right, kLeastWidth);
        const double pictureHeight = kTop + below + kBottom;
        add(R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0:.0f} {1:.0f}" width="{0:.0f}" height="{1:.0f}" font-family="DejaVu Sans, Verdana, sans-serif" font-size="12" fill="#111">)",
            pictureWidth, pictureHeight);
        add("<title>{}</title>", escapeXml(title));
        add(R"(<rect width="100%" height="100%" fill="#fff"/>)");
        write(20, 32, R"( font-size="20" font-weight="bold")", title);
        write(20, 54, "", facts());
        write(20, 72, "", starts());
        drawFrame();
        add(R"(<g stroke="#555" fill="none">)");
        drawLeaders();
        drawTotals();
        add("</g>");
        drawSignals();
        drawLabels();
        write(20, pictureHeight - 16, R"( font-size="11" fill="#555")", scaleText());
        text_ += "</svg>\n";
    }

    std::string facts() const
    {
        return fmt::format("pixel clock {:.6g} MHz · {:.3f} {} a second · {:.3f} kHz{}",
                           raster_.pixelClock / 1e6, raster_.rate(),
                           raster_.isInterlaced ? "fields" : "frames", raster_.lineRate() / 1e3,
                           raster_.isInterlaced ? " · interlaced: the lines of both fields" : "");
    }

    std::string starts() const
    {
        return fmt::format("H start {}, V start {}: from the leading edge of the sync to the first "
                           "active pixel or line",
                           raster_.horizontal.start, raster_.vertical.start);
    }

    std::string scaleText() const
    {
        return xScale_ == yScale_
                   ? fmt::format("To scale: {:.3g} pixels or lines to a unit of the picture.",
                                 1 / xScale_)
                   : fmt::format("To scale, but {:.3g} pixels and {:.3g} lines to a unit of the "
                                 "picture.",
                                 1 / xScale_, 1 / yScale_);
    }

    // Blanking in the middle of both directions is drawn twice, the line's part over the frame's.
    void drawFrame()
    {
        for (const Part &part : vertical_) {
            rectangle("v", 0, part.begin * yScale_, width_, part.length * yScale_, part.color);
        }
        for (const Part &part : horizontal_) {
            if (&part != &horizontal_[2]) {
                rectangle("h", part.begin * xScale_, 0, part.length * xScale_, height_, part.color);
            }
        }
        const Part &columns = horizontal_[2];
        const Part &rows = vertical_[2];
        const double x = columns.begin * xScale_;
        const double y = rows.begin * yScale_;
        const double width = columns.length * xScale_;
        const double height = rows.length * yScale_;
        rectangle("active", x, y, width, height, rows.color);
        add(R"(<rect x="{:.3f}" y="{:.3f}" width="{:.3f}" height="{:.3f}" fill="none" stroke="#333"/>)",
            left_, kTop, width_, height_);
        const std::string size =
            fmt::format("{} × {}", raster_.horizontal.active, raster_.vertical.active);
        const double fontSize =
            std::min({24.0, width / static_cast<double>(size.size()) * 1.4, height / 2});
        if (fontSize >= 8) {
            add(R"(<text x="{:.1f}" y="{:.1f}" font-size="{:.1f}" text-anchor="middle" fill="#1e3a8a">{}</text>)",
                left_ + x + width / 2, kTop + y + height / 2 + fontSize / 3, fontSize, size);
        }
    }

    void drawLeaders()
    {
        const double bottom = kTop + height_;
        for (size_t i = 0; i < horizontal_.size(); ++i) {
            const Part &part = horizontal_[i];
            const double middle = left_ + (part.begin + part.length / 2) * xScale_;
            line(middle, bottom, middle, bottom + 6);
            line(middle, bottom + 6, left_ + hLabels_[i], bottom + 24);
        }
        const double right = left_ + width_;
        for (size_t i = 0; i < vertical_.size(); ++i) {
            const Part &part = vertical_[i];
            const double middle = kTop + (part.begin + part.length / 2) * yScale_;
            line(right, middle, right + 6, middle);
            line(right + 6, middle, right + 24, kTop + vLabels_[i]);
        }
    }

    void drawTotals()
    {
        const double y = kTop - kTotalAt + 10;
        line(left_, y, left_ + width_, y);
        line(left_, y - 4, left_, y + 4);
        line(left_ + width_, y - 4, left_ + width_, y + 4);
        const double x = left_ - kTotalAt - 14;
        line(x, kTop, x, kTop + height_);
        line(x - 4, kTop, x + 4, kTop);
        line(x - 4, kTop + height_, x + 4, kTop + height_);
    }

    // Each signal over its direction, high at the top or on the left.
    void drawSignals()
    {
        const double syncWidth = horizontal_[0].length * xScale_;
        const double low = kTop - kSignalAt + kSignalHeight;
        const double high = kTop - kSignalAt;
        const double during = raster_.horizontal.isNegative ? low : high;
        const double after = raster_.horizontal.isNegative ? high : low;
        add(R"(<polyline class="hsync" points="{0:.3f},{1:.1f} {2:.3f},{1:.1f} {2:.3f},{3:.1f} {4:.3f},{3:.1f}" fill="none" stroke="{5}" stroke-width="2"/>)",
            left_, during, left_ + syncWidth, after, left_ + width_, kColors[0]);
        write(left_ + width_ + 10, high + 12, "",
              fmt::format("H sync, {}", raster_.horizontal.isNegative ? "negative" : "positive"));

        const double syncHeight = vertical_[0].length * yScale_;
        const double rightmost = left_ - kSignalAt + kSignalHeight;
        const double leftmost = left_ - kSignalAt;
        const double duringV = raster_.vertical.isNegative ? rightmost : leftmost;
        const double afterV = raster_.vertical.isNegative ? leftmost : rightmost;
        add(R"(<polyline class="vsync" points="{0:.1f},{1:.3f} {0:.1f},{2:.3f} {3:.1f},{2:.3f} {3:.1f},{4:.3f}" fill="none" stroke="{5}" stroke-width="2"/>)",
            duringV, kTop, kTop + syncHeight, afterV, kTop + height_, kColors[0]);
        turned(leftmost - 10,
               fmt::format("V sync, {}", raster_.vertical.isNegative ? "negative" : "positive"));
        turned(left_ - kTotalAt - 22,
               fmt::format("V total {} lines, {}", raster_.vertical.total,
                           timeOf(1 / raster_.rate() * (raster_.isInterlaced ? 2 : 1))));
        add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="middle">H total {} pixels, {}</text>)",
            left_ + width_ / 2, kTop - kTotalAt + 2, raster_.horizontal.total,
            timeOf(1 / raster_.lineRate()));
    }

    // Upwards, at the middle of the frame's height.
    void turned(double x, const std::string &words)
    {
        const double y = kTop + height_ / 2;
        add(R"svg(<text x="{0:.1f}" y="{1:.1f}" text-anchor="middle" transform="rotate(-90 {0:.1f} {1:.1f})">{2}</text>)svg",
            x, y, words);
    }

    void label(double x, double y, const char *anchor, const Part &part, const char *unit,
               double seconds)
    {
        add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}"><tspan fill="{}">■</tspan> {}</text>)",
            x, y, anchor, part.color, part.name);
        add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}" font-size="11">{} {}{}</text>)", x,
            y + 14, anchor, part.length, unit,
            std::string_view(anchor) == "start" ? ", " + timeOf(part.length * seconds) : "");
        if (std::string_view(anchor) != "start") {
            add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}" font-size="11">{}</text>)", x,
                y + 28, anchor, timeOf(part.length * seconds));
        }
    }

    void drawLabels()
    {
        for (size_t i = 0; i < horizontal_.size(); ++i) {
            label(left_ + hLabels_[i], kTop + height_ + 38, "middle", horizontal_[i], "pixels",
                  1 / raster_.dotClock());
            label(left_ + width_ + 30, kTop + vLabels_[i], "start", vertical_[i], "lines",
                  1 / raster_.lineRate());
        }
    }
};

} // namespace

std::string drawingOf(const std::string &title, const Raster &raster)
{
    return Drawing(title, raster).text();
}
