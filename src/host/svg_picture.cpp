#include "host/svg_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "host/screen_plot.h"
#include "host/screen_svg.h"

namespace host {
namespace {

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

// The usual size of an axis's labels, smaller where they need more room than `width`.
double labelSize(const Ticks& ticks, double width) {
    constexpr double size = 13;
    double widest = 1;
    for (double value : ticks.at) {
        widest = std::max(widest, textWidth(ticks.label(value), size));
    }
    return std::min(size, size * width / widest);
}

}  // namespace

const std::string_view kPictureStyle = R"(
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

double textWidth(std::string_view text, double size) {
    double width = 0;
    for (const Glyph& glyph : glyphsOf(text)) {
        width += glyph.width * size;
    }
    return width;
}

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

void Picture::text(double x, double y, double size, std::string_view content, std::string_view more) {
    body += "  <text x=\"" + px(x) + "\" y=\"" + px(y) + "\" font-size=\"" + px(size) + "\"";
    body += more.empty() ? "" : " ";
    body += more;
    body += ">" + xmlEscaped(content) + "</text>\n";
}

void Picture::line(double x1, double y1, double x2, double y2, std::string_view kind) {
    body += "  <line x1=\"" + px(x1) + "\" y1=\"" + px(y1) + "\" x2=\"" + px(x2) + "\" y2=\"" + px(y2) + "\" class=\"";
    body += kind;
    body += "\"/>\n";
}

double Picture::block(double y, double size, std::string_view content, std::size_t lines, std::string_view more) {
    double letters = more.find("bold") == std::string_view::npos ? size : size * kBold;
    for (const std::string& part : brokenLines(content, letters, kWidth - 2 * kMargin, lines)) {
        text(kMargin, y + size, size, part, more);
        y += size * 1.4;
    }
    return y;
}

std::string Picture::document(double height, std::string_view title, std::string_view description,
                              std::string_view style) const {
    std::string size = px(kWidth) + "\" height=\"" + px(height);
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" viewBox=\"0 0 " + px(kWidth) +
                      " " + px(height) + "\" role=\"img\">\n";
    svg += "  <title>" + xmlEscaped(title) + "</title>\n";
    svg += "  <desc>" + xmlEscaped(description) + "</desc>\n";
    svg += "  <style>" + std::string(kPictureStyle) + std::string(style) + "  </style>\n";
    svg += "  <rect width=\"" + size + "\" class=\"paper\"/>\n";
    return svg + body + "</svg>\n";
}

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

std::string zonePath(const Footprint& footprint, const ZonePlace& place) {
    // Straight from point to point; to the last one as a parabola, which is how the zone's end is shaped.
    std::string path = "M" + px(place.x(0)) + " " + px(place.y(0));
    for (std::size_t i = 0; i + 1 < footprint.points.size(); ++i) {
        path += " L" + px(place.x(footprint.points[i].downwind)) + " " + px(place.y(footprint.points[i].halfWidth));
    }
    FootprintPoint last = footprint.points.back();
    FootprintPoint before = footprint.points[footprint.points.size() - 2];
    std::string end = px(place.x(last.downwind));
    double control = (before.halfWidth + last.halfWidth) / 2;
    path += " Q" + end + " " + px(place.y(control)) + " " + end + " " + px(place.y(last.halfWidth));
    path += " L" + end + " " + px(place.y(-last.halfWidth));
    path += " Q" + end + " " + px(place.y(-control)) + " " + px(place.x(before.downwind)) + " " +
            px(place.y(-before.halfWidth));
    for (std::size_t i = footprint.points.size() - 2; i-- > 0;) {
        path += " L" + px(place.x(footprint.points[i].downwind)) + " " + px(place.y(-footprint.points[i].halfWidth));
    }
    return path + " Z";
}

}  // namespace host
