// The parts that pictures of footprints are made of.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/screening_run.h"

namespace host {

// The page, in pixels.
inline constexpr double kWidth = 900;
inline constexpr double kMargin = 24;
inline constexpr double kPlotLeft = 96;
inline constexpr double kPlotRight = kWidth - 40;
inline constexpr double kPlotWidth = kPlotRight - kPlotLeft;
inline constexpr double kPlotHeightAtLeast = 170;
inline constexpr double kPlotHeightAtMost = 560;

// The style sheet: classes for paper, text, axes and zones; colours follow the reader's light or dark preference.
extern const std::string_view kPictureStyle;

// A coordinate: two decimals are finer than any screen.
std::string px(double value);
// An upper bound over the usual sans-serif faces.
double textWidth(std::string_view text, double size);
// At most `lines` lines no wider than `width`, broken at blanks, or inside a word that is too long; what does not fit
// is replaced by an ellipsis.
std::vector<std::string> brokenLines(std::string_view text, double size, double width, std::size_t lines);

// The document as it grows; y runs downward.
struct Picture {
    std::string body;

    void text(double x, double y, double size, std::string_view content, std::string_view more = "");
    void line(double x1, double y1, double x2, double y2, std::string_view kind);
    // Text over the whole width. Returns the y of the next block.
    double block(double y, double size, std::string_view content, std::size_t lines, std::string_view more);
    // The document around the body; `style` goes behind the style sheet.
    std::string document(double height, std::string_view title, std::string_view description,
                         std::string_view style = "") const;
};

struct Scale {
    double xEnd = 1;      // in the unit, at the plot's right edge
    double yEnd = 1;      // in the unit, at its upper and lower edges
    double height = 100;  // of the plot
    int stretch = 1;      // crosswind against downwind
};

// Room for a zone of this length and half-width, in the unit.
Scale scaleOf(double distance, double widest);
// Axes in the unit, with the frame of the plot.
void drawAxes(Picture& picture, const Scale& scale, double top, const std::string& unit);

// Where metres lie on the plot.
class ZonePlace {
  public:
    ZonePlace(double perUnit, const Scale& scale, double top) : perUnit_(perUnit), scale_(scale), top_(top) {}
    double x(double meters) const { return kPlotLeft + meters / perUnit_ / scale_.xEnd * kPlotWidth; }
    double y(double meters) const {
        return top_ + scale_.height / 2 - meters / perUnit_ / scale_.yEnd * scale_.height / 2;
    }

  private:
    double perUnit_;
    Scale scale_;
    double top_;
};

// The footprint's outline as the data of an SVG path.
std::string zonePath(const Footprint& footprint, const ZonePlace& place);

}  // namespace host
