#include "host/screen_compare.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/commands.h"
#include "host/plugin.h"
#include "host/screen_report.h"
#include "host/svg_picture.h"

namespace host {
namespace {

constexpr std::size_t kMostCases = 12;
constexpr std::string_view kSeries = R"(
  .series0 { fill: #e4572e; stroke: #b93b16; } .series1 { fill: #2f7fd1; stroke: #14508c; }
  .series2 { fill: #2a9d6f; stroke: #14694a; } .series3 { fill: #a45bc9; stroke: #70308f; }
  .series4 { fill: #c99a1e; stroke: #7f5f08; } .series5 { fill: #5b6b7a; stroke: #35424e; }
  .zone[class*="series"] { fill-opacity: 0.14; }
  .dashed { stroke-dasharray: 8 4; }
  @media (prefers-color-scheme: dark) {
    .series0 { fill: #ff8a5c; stroke: #ff9d76; } .series1 { fill: #7db8f5; stroke: #8fc3f8; }
    .series2 { fill: #5fd0a2; stroke: #74dbb1; } .series3 { fill: #cf95ec; stroke: #d9a8f2; }
    .series4 { fill: #e6c35c; stroke: #eed07c; } .series5 { fill: #b4c2cf; stroke: #c6d2dc; }
  }
)";
constexpr std::size_t kColours = 6;  // of the picture's classes; dashes tell the rest apart

// Fields whose value changes what the calculator answers.
bool isComparable(const ScenarioField& field) {
    const auto parameter = parameterFields();
    return field.name != "units" && std::find(parameter.begin(), parameter.end(), field.name) != parameter.end();
}

std::size_t columnsOf(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// The cases with a footprint, the longest first, so that shorter ones lie on top.
std::vector<std::size_t> drawingOrder(const Comparison& comparison) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < comparison.cases.size(); ++i) {
        if (comparison.cases[i].result.footprint) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(), [&comparison](std::size_t a, std::size_t b) {
        return comparison.cases[a].result.footprint->distance > comparison.cases[b].result.footprint->distance;
    });
    return order;
}

std::string zoneClass(std::size_t index) {
    return "zone series" + std::to_string(index % kColours) + (index < kColours ? "" : " dashed");
}

}  // namespace

bool Comparison::any() const {
    return std::any_of(cases.begin(), cases.end(), [](const Case& one) { return one.problem.empty(); });
}

Comparison compareScenarios(std::string_view text, const Scenario& scenario, const Calculator& calculator) {
    const std::size_t equals = text.find('=');
    const std::string name = lowerCase(trimmed(text.substr(0, equals)));
    Comparison comparison;
    comparison.field = findScenarioField(name.starts_with("--") ? name.substr(2) : name);
    if (equals == std::string_view::npos) {
        throw HostError("--compare \"" + printable(text) +
                        "\": write the field and its values, for example \"stability=D,E,F\"");
    }
    if (comparison.field == nullptr || !isComparable(*comparison.field)) {
        std::vector<std::string> names;
        for (const ScenarioField& field : scenarioFields()) {
            if (isComparable(field)) {
                names.emplace_back(field.name);
            }
        }
        throw HostError("--compare: \"" + printable(name) + "\" is no field that changes the answer" +
                        didYouMean(nearestNames(name, names)));
    }
    std::string_view rest = text.substr(equals + 1);
    for (bool more = true; more;) {
        const std::size_t comma = rest.find(',');
        const std::string_view value = trimmed(rest.substr(0, comma));
        more = comma != std::string_view::npos;
        rest.remove_prefix(more ? comma + 1 : rest.size());
        Comparison::Case one{std::string(value), scenario, {}, {}};
        if (std::string problem = setScenarioField(one.scenario, *comparison.field, value); !problem.empty()) {
            throw HostError("--compare " + std::string(comparison.field->name) + ": " + problem);
        }
        if (comparison.cases.size() == kMostCases) {
            throw HostError("--compare takes at most " + std::to_string(kMostCases) + " values");
        }
        completeScenario(one.scenario);
        one.value = value.empty() ? "(none)" : scenarioValue(one.scenario, *comparison.field);
        one.value = one.value.empty() ? "no" : one.value;  // of a flag
        one.result = runScreening(one.scenario, calculator);
        if (one.result.rejection) {
            one.problem = rejectionText(one.scenario, *one.result.rejection);
        } else if (!one.result.hasDistance()) {
            one.problem = "the calculator found no distance, it answered \"" + one.result.distance + "\"";
        }
        comparison.cases.push_back(std::move(one));
    }
    return comparison;
}

std::string comparisonText(const Comparison& comparison) {
    const std::string unit = comparison.cases.front().scenario.units == "km" ? "km" : "miles";
    std::vector<std::vector<std::string>> table{
        {std::string(comparison.field->name), unit, "metres", "widest half-width"}};
    std::string problems;
    for (const Comparison::Case& one : comparison.cases) {
        if (!one.problem.empty()) {
            table.push_back({one.value, "-", "-", "-"});
            problems += "  " + one.value + ": " + one.problem + "\n";
            continue;
        }
        std::vector<std::string> line{one.value, one.result.distance, "-", "-"};
        if (one.result.footprint) {
            line[2] = metersText(one.result.footprint->distance);
            line[3] = metersText(one.result.footprint->widest().halfWidth);
        }
        table.push_back(std::move(line));
    }
    std::vector<std::size_t> widths(table.front().size(), 0);
    for (const auto& line : table) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(line[i]));
        }
    }
    Scenario shared = comparison.cases.front().scenario;
    setScenarioField(shared, *comparison.field, "");
    std::string text =
        titleOf(shared) + ": " + releaseText(shared) + ", by " + std::string(comparison.field->name) + "\n\n";
    for (const auto& line : table) {
        std::string out = "  " + line[0] + std::string(widths[0] - columnsOf(line[0]), ' ');
        for (std::size_t i = 1; i < line.size(); ++i) {
            out += "  " + std::string(widths[i] - columnsOf(line[i]), ' ') + line[i];
        }
        text += out + "\n";
    }
    return text + (problems.empty() ? "" : "\n" + problems);
}

std::string comparisonJson(const Comparison& comparison) {
    using nlohmann::ordered_json;
    ordered_json cases = ordered_json::array();
    for (const Comparison::Case& one : comparison.cases) {
        ordered_json report = ordered_json::parse(jsonReport(one.scenario, one.result));
        ordered_json entry = {{"value", one.value}};
        entry.update(report);
        cases.push_back(std::move(entry));
    }
    const ordered_json document = {{"field", std::string(comparison.field->name)}, {"cases", std::move(cases)}};
    return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string drawComparison(const Comparison& comparison) {
    const Scenario& first = comparison.cases.front().scenario;
    const double perUnit = metersPerUnit(first);
    const std::string unit = first.units == "km" ? "km" : "miles";
    double longest = 0;
    double widest = 0;
    for (const Comparison::Case& one : comparison.cases) {
        if (one.result.footprint) {
            longest = std::max(longest, one.result.footprint->distance / perUnit);
            widest = std::max(widest, one.result.footprint->widest().halfWidth / perUnit);
        }
    }
    const Scale scale = scaleOf(longest, widest);
    Scenario shared = first;
    setScenarioField(shared, *comparison.field, "");
    Picture picture;
    const std::string title =
        titleOf(shared) + ": " + releaseText(shared) + ", by " + std::string(comparison.field->name);
    double y = picture.block(kMargin, 22, title, 3, "font-weight=\"bold\"");
    const double top = y + 18;
    drawAxes(picture, scale, top, unit);
    const ZonePlace place(perUnit, scale, top);
    for (const std::size_t i : drawingOrder(comparison)) {
        picture.body += "  <path d=\"" + zonePath(*comparison.cases[i].result.footprint, place) + "\" class=\"" +
                        zoneClass(i) + "\"/>\n";
    }
    picture.body +=
        "  <circle cx=\"" + px(place.x(0)) + "\" cy=\"" + px(place.y(0)) + "\" r=\"5\" class=\"source\"/>\n";
    y = top + scale.height + 62;
    for (std::size_t i = 0; i < comparison.cases.size(); ++i) {
        const Comparison::Case& one = comparison.cases[i];
        constexpr double swatch = 40;
        if (one.result.footprint) {
            picture.body += "  <rect x=\"" + px(kPlotLeft) + "\" y=\"" + px(y + 2) + "\" width=\"" + px(swatch) +
                            "\" height=\"13\" class=\"" + zoneClass(i) + "\"/>\n";
        }
        std::string label = one.value + ": ";
        label += !one.problem.empty() ? one.problem : distanceText(one.scenario, one.result);
        if (one.problem.empty() && one.result.footprint) {
            label += " (" + metersText(one.result.footprint->distance) + "), widest " +
                     metersText(one.result.footprint->widest().halfWidth) + " to each side";
        }
        for (const std::string& part : brokenLines(label, 14, kPlotWidth - swatch - 14, 3)) {
            picture.text(kPlotLeft + swatch + 14, y + 13.5, 14, part);
            y += 21;
        }
        y += 3;
    }
    std::string note = "The wind blows from the left.";
    if (scale.stretch > 1) {
        note += " The crosswind axis is stretched " + std::to_string(scale.stretch) + " times.";
    }
    y = picture.block(y + 6, 13, note, 2, "class=\"quiet\"");
    return picture.document(std::ceil(y + kMargin - 6), title, "Footprints of the same release, seen from above",
                            kSeries);
}

}  // namespace host
