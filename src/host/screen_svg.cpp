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
#include "host/svg_picture.h"

namespace host {
namespace {

void drawZone(Picture& picture, const Footprint& footprint, double perUnit, const Scale& scale, double top) {
    const ZonePlace place(perUnit, scale, top);
    picture.body += "  <path d=\"" + zonePath(footprint, place) + "\" class=\"zone\"/>\n";
    picture.line(place.x(0), place.y(0), place.x(footprint.distance), place.y(0), "reach");
    FootprintPoint widest = footprint.widest();
    picture.line(place.x(widest.downwind), place.y(widest.halfWidth), place.x(widest.downwind),
                 place.y(-widest.halfWidth), "widest");
    picture.body +=
        "  <circle cx=\"" + px(place.x(0)) + "\" cy=\"" + px(place.y(0)) + "\" r=\"5\" class=\"source\"/>\n";
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

    return picture.document(height, title, "Threat distance " + distanceText(scenario, result) + ", seen from above");
}

}  // namespace host
