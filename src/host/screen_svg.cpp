#include "host/screen_svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "host/plugin.h"
#include "host/screen_plot.h"
#include "host/screen_report.h"

namespace host {
namespace {

constexpr double kWidth = 900;
constexpr double kMargin = 24;
constexpr double kPlotLeft = 96;
constexpr double kPlotRight = kWidth - 40;
constexpr double kPlotWidth = kPlotRight - kPlotLeft;
constexpr double kPlotHeightAtLeast = 170;
constexpr double kPlotHeightAtMost = 560;

constexpr std::string_view kStyle = R"(
  svg { color-scheme: light dark; }
  text { font-family: system-ui, "Segoe UI", "Helvetica Neue", Arial, sans-serif; fill: #1c2733; }
  .paper { fill: #ffffff; }
  .quiet { fill: #51606f; }
  .grid { stroke: #d5dce3; stroke-width: 1; }
  .axis { stroke: #51606f; stroke-width: 1.2; fill: none; }
  .zone { fill: #e4572e; fill-opacity: 0.28; stroke: #b93b16; stroke-width: 2; stroke-linejoin: round; }
  .reach { stroke: #b93b16; stroke-width: 1.6; stroke-dasharray: 7 4; }
  .widest { stroke: #14508c; stroke-width: 2; }
  .source { fill: #1c2733; }
  .wind { stroke: #14508c; stroke-width: 2.4; fill: none; stroke-linecap: round; stroke-linejoin: round; }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6ebf0; }
    .paper { fill: #14191f; }
    .quiet { fill: #a3b1bf; }
    .grid { stroke: #333d48; }
    .axis { stroke: #a3b1bf; }
    .zone { fill: #ff8a5c; fill-opacity: 0.30; stroke: #ff9d76; }
    .reach { stroke: #ff9d76; }
    .widest, .wind { stroke: #7db8f5; }
    .source { fill: #e6ebf0; }
  }
)";

// A coordinate: two decimals are finer than any screen.
std::string px(double value) {
    std::array<char, 400> text;
    int length = std::snprintf(text.data(), text.size(), "%.2f", value);
    std::string number(text.data(), static_cast<std::size_t>(std::clamp(length, 0, 399)));
    number.erase(number.find_last_not_of('0') + 1);
    if (number.ends_with('.')) {
        number.pop_back();
    }
    return number == "-0" ? "0" : number;
}

struct Glyph {
    std::string_view bytes;
    double width;  // of the font size, an upper bound over the usual sans-serif faces
};

std::vector<Glyph> glyphsOf(std::string_view text) {
    std::vector<Glyph> glyphs;
    for (std::size_t i = 0; i < text.size();) {
        auto lead = static_cast<std::uint8_t>(text[i]);
        std::size_t length = std::min<std::size_t>(lead < 0x80   ? 1
                                                   : lead < 0xE0 ? 2
                                                   : lead < 0xF0 ? 3
                                                                 : 4,
                                                   text.size() - i);
        double width = length > 2 ? 1.05 : length == 2 ? 0.85 : 0.645;
        if (length == 1) {
            if (std::string_view("iIjlftr.,:;'|!()[] ").find(text[i]) != std::string_view::npos) {
                width = 0.42;
            } else if (std::string_view("mMwW@%").find(text[i]) != std::string_view::npos) {
                width = 1.0;
            } else if (text[i] >= 'A' && text[i] <= 'Z') {
                width = 0.8;
            }
        }
        glyphs.push_back({text.substr(i, length), width});
        i += length;
    }
    return glyphs;
}

constexpr double kBold = 1.15;  // bold letters are so much wider

double textWidth(std::string_view text, double size) {
    double width = 0;
    for (const Glyph& glyph : glyphsOf(text)) {
        width += glyph.width * size;
    }
    return width;
}

// At most `lines` lines no wider than `width`, broken at blanks, or inside a word that is too long; what does not fit
// is replaced by an ellipsis.
std::vector<std::string> brokenLines(std::string_view text, double size, double width, std::size_t lines) {
    std::vector<std::string> broken(1);
    double used = 0;
    while (!text.empty()) {
        std::size_t end = std::min(text.find(' '), text.size());
        std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        double blank = broken.back().empty() ? 0 : textWidth(" ", size);
        double wide = textWidth(word, size);
        if (used + blank + wide > width && !broken.back().empty()) {
            broken.emplace_back();
            used = blank = 0;
        }
        if (blank > 0) {
            broken.back() += ' ';
        }
        used += blank;
        for (const Glyph& glyph : glyphsOf(word)) {
            if (used + glyph.width * size > width) {
                broken.emplace_back();
                used = 0;
            }
            broken.back() += glyph.bytes;
            used += glyph.width * size;
        }
    }
    if (broken.size() > lines) {
        broken.resize(lines);
        std::string& last = broken.back();
        double room = width - size;
        std::string kept;
        for (const Glyph& glyph : glyphsOf(last)) {
            room -= glyph.width * size;
            if (room < 0) {
                break;
            }
            kept += glyph.bytes;
        }
        last = kept + "\xE2\x80\xA6";
    }
    return broken;
}

// The document as it grows; y runs downward.
struct Picture {
    std::string body;

    void text(double x, double y, double size, std::string_view content, std::string_view more = "") {
        body += "  <text x=\"" + px(x) + "\" y=\"" + px(y) + "\" font-size=\"" + px(size) + "\"";
        body += more.empty() ? "" : " ";
        body += more;
        body += ">" + xmlEscaped(content) + "</text>\n";
    }
    void line(double x1, double y1, double x2, double y2, std::string_view kind) {
        body +=
            "  <line x1=\"" + px(x1) + "\" y1=\"" + px(y1) + "\" x2=\"" + px(x2) + "\" y2=\"" + px(y2) + "\" class=\"";
        body += kind;
        body += "\"/>\n";
    }
    // Returns the y of the next block.
    double block(double y, double size, std::string_view content, std::size_t lines, std::string_view more) {
        double letters = more.find("bold") == std::string_view::npos ? size : size * kBold;
        for (const std::string& part : brokenLines(content, letters, kWidth - 2 * kMargin, lines)) {
            text(kMargin, y + size, size, part, more);
            y += size * 1.4;
        }
        return y;
    }
};

struct Scale {
    double xEnd = 1;      // in the unit, at the plot's right edge
    double yEnd = 1;      // in the unit, at its upper and lower edges
    double height = 100;  // of the plot
    int stretch = 1;      // crosswind against downwind
};

Scale scaleOf(double distance, double widest) {
    Scale scale;
    scale.xEnd = distance * 1.04;
    scale.yEnd = std::max(widest, distance * 1e-4) * 1.15;
    double height = 2 * scale.yEnd / scale.xEnd * kPlotWidth;
    if (height > kPlotHeightAtMost) {  // room to the right instead
        scale.xEnd *= height / kPlotHeightAtMost;
        height = kPlotHeightAtMost;
    } else if (height < kPlotHeightAtLeast) {
        scale.stretch = static_cast<int>(std::ceil(kPlotHeightAtLeast / height));
    }
    scale.height = height * scale.stretch;
    return scale;
}

void drawZone(Picture& picture, const Footprint& footprint, double perUnit, const Scale& scale, double top) {
    auto x = [&](double meters) { return kPlotLeft + meters / perUnit / scale.xEnd * kPlotWidth; };
    double middle = top + scale.height / 2;
    auto y = [&](double meters) { return middle - meters / perUnit / scale.yEnd * scale.height / 2; };

    // Straight from point to point; to the last one as a parabola, which is how the zone's end is shaped.
    std::string path = "M" + px(x(0)) + " " + px(y(0));
    for (std::size_t i = 0; i + 1 < footprint.points.size(); ++i) {
        path += " L" + px(x(footprint.points[i].downwind)) + " " + px(y(footprint.points[i].halfWidth));
    }
    FootprintPoint last = footprint.points.back();
    FootprintPoint before = footprint.points[footprint.points.size() - 2];
    std::string end = px(x(last.downwind));
    double control = (before.halfWidth + last.halfWidth) / 2;
    path += " Q" + end + " " + px(y(control)) + " " + end + " " + px(y(last.halfWidth));
    path += " L" + end + " " + px(y(-last.halfWidth));
    path += " Q" + end + " " + px(y(-control)) + " " + px(x(before.downwind)) + " " + px(y(-before.halfWidth));
    for (std::size_t i = footprint.points.size() - 2; i-- > 0;) {
        path += " L" + px(x(footprint.points[i].downwind)) + " " + px(y(-footprint.points[i].halfWidth));
    }
    picture.body += "  <path d=\"" + path + " Z\" class=\"zone\"/>\n";
    picture.line(x(0), middle, x(footprint.distance), middle, "reach");
    FootprintPoint widest = footprint.widest();
    picture.line(x(widest.downwind), y(widest.halfWidth), x(widest.downwind), y(-widest.halfWidth), "widest");
    picture.body += "  <circle cx=\"" + px(x(0)) + "\" cy=\"" + px(middle) + "\" r=\"5\" class=\"source\"/>\n";
}

// The usual size of an axis's labels, smaller where they need more room than `width`.
double labelSize(const Ticks& ticks, double width) {
    constexpr double size = 13;
    double widest = 1;
    for (double value : ticks.at) {
        widest = std::max(widest, textWidth(ticks.label(value), size));
    }
    return std::min(size, size * width / widest);
}

void drawAxes(Picture& picture, const Scale& scale, double top, const std::string& unit) {
    double bottom = top + scale.height;
    double middle = top + scale.height / 2;
    Ticks along = ticksFor(scale.xEnd, 8);
    double apart = along.step / scale.xEnd * kPlotWidth;
    double size = labelSize(along, std::min(apart * 0.9, 2 * (kWidth - kPlotRight) - 8));
    for (double value : along.at) {
        double x = kPlotLeft + value / scale.xEnd * kPlotWidth;
        picture.line(x, top, x, bottom + 5, "grid");
        picture.text(x, bottom + 20, size, along.label(value), "text-anchor=\"middle\" class=\"quiet\"");
    }
    Ticks across = ticksFor(scale.yEnd, scale.height > 300 ? 4 : 2);
    size = labelSize(across, kPlotLeft - 40);
    for (double value : across.at) {
        for (int side : {1, -1}) {
            double y = middle - side * value / scale.yEnd * scale.height / 2;
            picture.line(kPlotLeft - 5, y, kPlotRight, y, "grid");
            picture.text(kPlotLeft - 9, y + size * 0.35, size, across.label(value),
                         "text-anchor=\"end\" class=\"quiet\"");
            if (value == 0) {
                break;
            }
        }
    }
    picture.body += "  <rect x=\"" + px(kPlotLeft) + "\" y=\"" + px(top) + "\" width=\"" + px(kPlotWidth) +
                    "\" height=\"" + px(scale.height) + "\" class=\"axis\"/>\n";
    picture.text(kPlotLeft + kPlotWidth / 2, bottom + 42, 14, "distance downwind (" + unit + ")",
                 "text-anchor=\"middle\"");
    picture.text(20, middle, 14, "crosswind (" + unit + ")",
                 "text-anchor=\"middle\" transform=\"rotate(-90 20 " + px(middle) + ")\"");
}

// An arrow that flies with the wind, and where that comes from.
void drawWind(Picture& picture, const Scenario& scenario, double y) {
    picture.body += "  <path d=\"M" + px(kPlotLeft) + " " + px(y) + " h56 m-10 -6 l10 6 l-10 6\" class=\"wind\"/>\n";
    std::string label = scenario.windFrom ? "wind from " + windFromText(*scenario.windFrom) + ", drawn from the left"
                                          : std::string("wind from the left");
    if (scenario.wind) {
        label += ", " + describe(*scenario.wind);
    }
    picture.text(kPlotLeft + 70, y + 5, 14, label);
}

double drawLegend(Picture& picture, const Scenario& scenario, const ScreeningResult& result, const Scale& scale,
                  double y) {
    constexpr double size = 14;
    constexpr double swatch = 40;
    const Footprint& footprint = *result.footprint;
    double perUnit = metersPerUnit(scenario);
    std::string unit = scenario.units == "km" ? " km" : " miles";
    FootprintPoint widest = footprint.widest();
    auto entry = [&](std::string_view kind, const std::string& text) {
        if (kind == "zone") {
            picture.body += "  <rect x=\"" + px(kPlotLeft) + "\" y=\"" + px(y + 2) + "\" width=\"" + px(swatch) +
                            "\" height=\"13\" class=\"zone\"/>\n";
        } else if (kind == "source") {
            picture.body += "  <circle cx=\"" + px(kPlotLeft + swatch / 2) + "\" cy=\"" + px(y + 8.5) +
                            "\" r=\"5\" class=\"source\"/>\n";
        } else if (kind == "widest") {
            picture.line(kPlotLeft + swatch / 2, y, kPlotLeft + swatch / 2, y + 17, kind);
        } else {
            picture.line(kPlotLeft, y + 8.5, kPlotLeft + swatch, y + 8.5, kind);
        }
        for (const std::string& part : brokenLines(text, size, kPlotRight - kPlotLeft - swatch - 14, 3)) {
            picture.text(kPlotLeft + swatch + 14, y + 13.5, size, part);
            y += 21;
        }
        y += 3;
    };
    entry("zone", scenario.levelOfConcern ? "threat zone: more than " + calculatorNumber(*scenario.levelOfConcern) +
                                                " g/m\xC2\xB3 in the air"
                                          : std::string("threat zone"));
    entry("reach", "threat distance: " + distanceText(scenario, result) + " (" + metersText(footprint.distance) + ")");
    entry("widest", "widest: " + shortNumber(widest.halfWidth / perUnit) + unit + " (" + metersText(widest.halfWidth) +
                        ") to each side, " + shortNumber(widest.downwind / perUnit) + unit + " downwind");
    entry("source", "source of the release");
    if (scale.stretch > 1) {
        y = picture.block(y + 6, 13, "The crosswind axis is stretched " + std::to_string(scale.stretch) + " times.", 1,
                          "class=\"quiet\"");
    }
    return y;
}

std::string weatherText(const Scenario& scenario) {
    std::string text;
    auto add = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
    if (!scenario.stability.empty()) {
        add("stability class " + std::string(scenario.stability));
    }
    if (!scenario.terrain.empty()) {
        add(scenario.terrain == "open" ? "open country" : "urban terrain");
    }
    if (scenario.concentration) {
        add("concentration " + plainDecimal(scenario.concentration->value) + " %");
    }
    return text;
}

}  // namespace

std::string xmlEscaped(std::string_view text) {
    std::string escaped;
    std::string valid = toUtf8(toText(text));  // what is not UTF-8 is U+FFFD now
    for (char c : valid) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
                    escaped += c == '\t' || c == '\n' || c == '\r' ? " " : "\xEF\xBF\xBD";
                } else {
                    escaped += c;
                }
        }
    }
    // U+FFFE and U+FFFF are no XML characters.
    for (std::string_view bad : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
        for (std::size_t at = escaped.find(bad); at != std::string::npos; at = escaped.find(bad, at)) {
            escaped.replace(at, bad.size(), "\xEF\xBF\xBD");
        }
    }
    return escaped;
}

std::string drawSvg(const Scenario& scenario, const ScreeningResult& result) {
    const Footprint& footprint = *result.footprint;
    double perUnit = metersPerUnit(scenario);
    std::string unit = scenario.units == "km" ? "km" : "miles";
    Scale scale = scaleOf(footprint.distance / perUnit, footprint.widest().halfWidth / perUnit);

    Picture picture;
    std::string title = titleOf(scenario) + ": " + releaseText(scenario);
    double y = picture.block(kMargin, 22, title, 3, "font-weight=\"bold\"");
    y = picture.block(y + 2, 14, weatherText(scenario), 2, "class=\"quiet\"");
    y += 24;
    drawWind(picture, scenario, y);
    double top = y + 22;
    drawAxes(picture, scale, top, unit);
    drawZone(picture, footprint, perUnit, scale, top);
    y = drawLegend(picture, scenario, result, scale, top + scale.height + 62);
    for (const std::string& note : screeningNotes(scenario, result)) {
        y = picture.block(y + 2, 13, note, 4, "class=\"quiet\"");
    }
    double height = std::ceil(y + kMargin - 6);

    std::string size = px(kWidth) + "\" height=\"" + px(height);
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" viewBox=\"0 0 " + px(kWidth) +
                      " " + px(height) + "\" role=\"img\">\n";
    svg += "  <title>" + xmlEscaped(title) + "</title>\n";
    svg += "  <desc>" + xmlEscaped("Threat distance " + distanceText(scenario, result) + ", seen from above") +
           "</desc>\n";
    svg += "  <style>" + std::string(kStyle) + "  </style>\n";
    svg += "  <rect width=\"" + size + "\" class=\"paper\"/>\n";
    return svg + picture.body + "</svg>\n";
}

}  // namespace host
