#include "host/screen_plot.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "host/screen_report.h"

namespace host {
namespace {

constexpr std::size_t kRowsAtLeast = 9;
constexpr std::size_t kRowsAtMost = 33;

// Dots in cells of `across` x `down` of them.
class Canvas {
  public:
    Canvas(std::size_t columns, std::size_t rows, bool unicode)
        : across_(unicode ? 2 : 1), down_(unicode ? 4 : 1), columns_(columns), rows_(rows), cells_(columns * rows, 0) {}

    std::size_t width() const { return columns_ * across_; }
    std::size_t height() const { return rows_ * down_; }

    void set(std::size_t x, std::size_t y) {
        constexpr unsigned char dots[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        cells_[y / down_ * columns_ + x / across_] |= dots[y % down_][x % across_];
    }

    std::string row(std::size_t number) const {
        std::string text;
        for (std::size_t column = 0; column < columns_; ++column) {
            unsigned char cell = cells_[number * columns_ + column];
            if (across_ == 1 || cell == 0) {
                text += cell == 0 ? ' ' : '#';
            } else {  // U+2800 + cell
                text += '\xE2';
                text += static_cast<char>(0xA0 | (cell >> 6));
                text += static_cast<char>(0x80 | (cell & 0x3F));
            }
        }
        return text.erase(text.find_last_not_of(' ') + 1);
    }

  private:
    std::size_t across_;
    std::size_t down_;
    std::size_t columns_;
    std::size_t rows_;
    std::vector<unsigned char> cells_;
};

std::string padded(const std::string& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

}  // namespace

std::string Ticks::label(double value) const {
    std::array<char, 400> text;
    int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return std::string(text.data(), static_cast<std::size_t>(std::clamp(length, 0, 399)));
}

Ticks ticksFor(double end, std::size_t count) {
    Ticks ticks;
    if (!(end > 0) || !std::isfinite(end)) {
        ticks.at = {0};
        return ticks;
    }
    double rough = end / static_cast<double>(std::max<std::size_t>(count, 1));
    int exponent = static_cast<int>(std::floor(std::log10(rough)));
    double unit = std::pow(10.0, exponent);
    double ratio = rough / unit;
    double factor = ratio <= 1 ? 1 : ratio <= 2 ? 2 : ratio <= 5 ? 5 : 10;
    ticks.step = factor * unit;
    ticks.decimals = std::max(0, factor == 10 ? -exponent - 1 : -exponent);
    for (std::size_t i = 0; i <= 2 * count + 2 && static_cast<double>(i) * ticks.step <= end * (1 + 1e-9); ++i) {
        ticks.at.push_back(static_cast<double>(i) * ticks.step);
    }
    return ticks;
}

double halfWidthAt(const Footprint& footprint, double downwind) {
    FootprintPoint before;  // the source
    for (const FootprintPoint& point : footprint.points) {
        if (downwind >= before.downwind && downwind <= point.downwind && point.downwind > before.downwind) {
            double part = (downwind - before.downwind) / (point.downwind - before.downwind);
            return before.halfWidth + part * (point.halfWidth - before.halfWidth);
        }
        before = point;
    }
    return 0;
}

PlotStyle plotStyleOfOutput() {
    PlotStyle style;
    winsize size = {};
    if (::isatty(STDOUT_FILENO) == 1 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        style.columns = std::clamp<std::size_t>(size.ws_col, 40, 400);
    }
    locale_t locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale != nullptr) {
        style.unicode = std::string_view(::nl_langinfo_l(CODESET, locale)) == "UTF-8";
        ::freelocale(locale);
    }
    return style;
}

std::string drawPlot(const Scenario& scenario, const Footprint& footprint, const PlotStyle& style) {
    std::size_t total = std::clamp<std::size_t>(style.columns, 40, 400);
    std::string unit = scenario.units == "km" ? "km" : "miles";
    double perUnit = metersPerUnit(scenario);
    double widest = std::max(footprint.widest().halfWidth, footprint.distance * 1e-4);

    // Rows are about twice as high as columns are wide.
    std::size_t labelWidth = 10;
    std::size_t columns = total - labelWidth - 3;
    double rowsWanted = widest / footprint.distance * static_cast<double>(columns);
    double stretch = 1;
    if (rowsWanted > static_cast<double>(kRowsAtMost)) {
        columns =
            static_cast<std::size_t>(static_cast<double>(columns) * static_cast<double>(kRowsAtMost) / rowsWanted);
        columns = std::max<std::size_t>(columns, 20);
    } else if (rowsWanted < static_cast<double>(kRowsAtLeast)) {
        stretch = std::ceil(static_cast<double>(kRowsAtLeast) / rowsWanted);
    }
    double metersPerColumn = footprint.distance / static_cast<double>(columns);
    // With so few columns an outline that is much wider than long still has too many rows.
    stretch = std::min(stretch, static_cast<double>(kRowsAtMost) * metersPerColumn / widest);
    double metersPerRow = 2 * metersPerColumn / stretch;
    auto rows = static_cast<std::size_t>(std::ceil(2 * widest / metersPerRow));
    rows += rows % 2 == 0;  // the centre line has a row of its own

    Canvas canvas(columns, rows, style.unicode);
    double dotX = footprint.distance / static_cast<double>(canvas.width());
    double dotY = metersPerRow * static_cast<double>(rows) / static_cast<double>(canvas.height());
    double middle = (static_cast<double>(canvas.height()) - 1) / 2;
    for (std::size_t x = 0; x < canvas.width(); ++x) {
        double half = halfWidthAt(footprint, (static_cast<double>(x) + 0.5) * dotX);
        for (std::size_t y = 0; y < canvas.height(); ++y) {
            double crosswind = std::fabs(static_cast<double>(y) - middle) * dotY;
            if (crosswind <= std::max(half, dotY / 2)) {  // the centre line is always inside
                canvas.set(x, y);
            }
        }
    }

    std::string_view arrow = style.unicode ? "\xE2\x94\x80\xE2\x94\x80\xE2\x94\x80\xE2\x96\xB6" : "--->";
    std::string_view wall = style.unicode ? "\xE2\x94\x82" : "|";
    std::string_view notch = style.unicode ? "\xE2\x94\xA4" : "+";
    std::string_view floor = style.unicode ? "\xE2\x94\x80" : "-";
    std::string_view mark = style.unicode ? "\xE2\x94\xB4" : "+";
    std::string_view source = style.unicode ? "\xE2\x97\x8F" : "O";

    std::string plot = "Footprint from above. Wind from ";
    plot += scenario.windFrom ? windFromText(*scenario.windFrom) : std::string("the left");
    plot += "  ";
    plot += arrow;
    plot += "\n\n";

    // Labels stand on the rows nearest to their values: the same on both sides of the centre line.
    std::vector<std::string> labels(rows);
    Ticks across = ticksFor(widest / perUnit, 2);
    for (double value : across.at) {
        auto offset = static_cast<std::size_t>(std::lround(value * perUnit / metersPerRow));
        if (offset <= rows / 2) {
            labels[rows / 2 - offset] = labels[rows / 2 + offset] = across.label(value);
        }
    }
    for (std::size_t row = 0; row < rows; ++row) {
        plot += padded(labels[row], labelWidth) + ' ';
        plot += row == rows / 2 ? source : labels[row].empty() ? wall : notch;
        plot += canvas.row(row) + "\n";
    }

    Ticks along = ticksFor(footprint.distance / perUnit, std::max<std::size_t>(columns / 14, 2));
    std::vector<bool> marks(columns + 1, false);
    std::string numbers(total, ' ');
    std::size_t taken = 0;
    for (double value : along.at) {
        auto column = static_cast<std::size_t>(std::lround(value * perUnit / metersPerColumn));
        if (column > columns) {
            continue;
        }
        marks[column] = true;
        std::string text = along.label(value);
        std::size_t center = labelWidth + 1 + column;
        std::size_t start = std::min(center - std::min(center, text.size() / 2), total - std::min(total, text.size()));
        if (start >= taken) {
            numbers.replace(start, text.size(), text);
            taken = start + text.size() + 1;
        }
    }
    plot += std::string(labelWidth + 1, ' ');
    for (std::size_t column = 0; column <= columns; ++column) {
        plot += marks[column] ? mark : floor;
    }
    plot += '\n' + numbers.erase(numbers.find_last_not_of(' ') + 1) + '\n';
    plot += std::string(labelWidth + 1, ' ') + unit + " downwind; " + unit + " to each side on the left";
    if (stretch > 1) {
        plot += "\n" + std::string(labelWidth + 1, ' ') + "the crosswind axis is stretched " +
                std::to_string(static_cast<long>(stretch)) + " times";
    } else if (stretch < 1) {
        plot += "\n" + std::string(labelWidth + 1, ' ') + "the crosswind axis is squeezed";
    }
    return plot + "\n";
}

}  // namespace host
