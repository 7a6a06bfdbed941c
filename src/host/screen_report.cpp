#include "host/screen_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace host {
namespace {

using nlohmann::ordered_json;

constexpr double kValidFrom = 100;   // metres; the dispersion curves were measured
constexpr double kValidTo = 10'000;  // between these distances

std::string formatted(double value, int decimals) {
    std::array<char, 400> text;
    int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return length > 0
               ? std::string(text.data(), std::min<std::size_t>(static_cast<std::size_t>(length), text.size() - 1))
               : std::string();
}

std::string grouped(std::string number) {
    std::size_t end = std::min(number.find('.'), number.size());
    std::size_t start = number.starts_with('-') ? 1 : 0;
    while (end > start + 3) {
        end -= 3;
        number.insert(end, ",");
    }
    return number;
}

std::string_view unitName(const Scenario& scenario) {
    return scenario.units == "km" ? "km" : "miles";
}

// "0.043 miles (70.5 m)".
std::string lengthText(const Scenario& scenario, double meters) {
    return shortNumber(meters / metersPerUnit(scenario)) + " " + std::string(unitName(scenario)) + " (" +
           metersText(meters) + ")";
}

std::size_t displayWidth(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// `text` broken at blanks; lines after the first are indented.
std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent) {
    std::string lines;
    std::size_t column = indent;
    bool first = true;
    while (!text.empty()) {
        std::size_t end = std::min(text.find(' '), text.size());
        std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!first && column + 1 + displayWidth(word) > columns) {
            lines += '\n';
            lines.append(indent, ' ');
            column = indent;
        } else if (!first) {
            lines += ' ';
            ++column;
        }
        lines += word;
        column += displayWidth(word);
        first = false;
    }
    return lines;
}

std::string line(std::string_view label, std::size_t width, std::string_view text, std::size_t columns) {
    std::string out = "  ";
    out += label;
    out.append(width > label.size() ? width - label.size() : 0, ' ');
    out += "  ";
    return out + wrapped(text, columns, width + 4) + "\n";
}

// A field's value as the report shows it, with what the calculator takes where that differs.
std::string understood(const Scenario& scenario, const ScenarioField& field) {
    std::string value = scenarioValue(scenario, field);
    if (field.measure != nullptr && scenario.*field.measure) {
        const Measure& measure = *(scenario.*field.measure);
        if (field.quantity == Quantity::direction) {
            return windFromText(measure);
        }
        if (measure.unit->exponent != 0) {
            return calculatorNumber(measure) + " g/m3 (" + value + ")";
        }
    }
    return value;
}

ordered_json inputsJson(const Scenario& scenario) {
    ordered_json inputs = ordered_json::object();
    for (const ScenarioField& field : scenarioFields()) {
        std::string name(field.name);
        if (field.flag != nullptr) {
            inputs[name] = scenario.*field.flag;
        } else if (scenarioValue(scenario, field).empty()) {
            inputs[name] = nullptr;
        } else if (field.measure != nullptr) {
            const Measure& measure = *(scenario.*field.measure);
            inputs[name] = {{"value", measure.value}, {"unit", std::string(measure.unit->name)}};
        } else {
            inputs[name] = scenarioValue(scenario, field);
        }
    }
    return inputs;
}

}  // namespace

std::string metersText(double meters) {
    return grouped(formatted(meters, std::fabs(meters) < 1000 ? 1 : 0)) + " m";
}

std::string shortNumber(double value) {
    if (value == 0 || !std::isfinite(value)) {
        return plainDecimal(value);
    }
    int magnitude = static_cast<int>(std::floor(std::log10(std::fabs(value))));
    std::string text = formatted(value, std::clamp(2 - magnitude, 0, 300));
    if (text.find('.') != std::string::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.ends_with('.')) {
            text.pop_back();
        }
    }
    return grouped(text);
}

std::string windFromText(const Measure& direction) {
    constexpr const char* names[] = {"north", "north-east", "east", "south-east",
                                     "south", "south-west", "west", "north-west"};
    auto sector = static_cast<std::size_t>(std::lround(direction.value / 45.0)) % 8;
    return plainDecimal(direction.value) + " degrees (" + names[sector] + ")";
}

std::string distanceText(const Scenario& scenario, const ScreeningResult& result) {
    std::string unit(unitName(scenario));
    if (!result.hasDistance()) {
        return "none";
    }
    if (result.distance.starts_with("<")) {
        return "less than 0.1 " + unit;
    }
    if (result.distance.starts_with(">")) {
        return "more than " + result.distance.substr(2) + " " + unit;
    }
    return result.distance + " " + unit;
}

std::string titleOf(const Scenario& scenario) {
    return scenario.chemical.empty() ? "Release" : scenario.chemical;
}

std::string releaseText(const Scenario& scenario) {
    std::string text = scenario.amount ? describe(*scenario.amount) : std::string("a release");
    std::string kind(scenario.state);
    if (scenario.state == "solid" && !scenario.solidForm.empty()) {
        kind = scenario.solidForm == "molten"   ? "molten solid"
               : scenario.solidForm == "powder" ? "powder"
                                                : "solid in solution";
    } else if (scenario.state == "liquid" && !scenario.liquidTemperature.empty()) {
        kind =
            scenario.liquidTemperature == "ambient" ? "liquid at ambient temperature" : "liquid near its boiling point";
    }
    text += kind.empty() ? "" : " of " + kind;
    bool pours = scenario.state == "liquid" || (scenario.state == "solid" && scenario.solidForm == "molten");
    if (scenario.duration && !pours) {
        text += " over " + describe(*scenario.duration);
    }
    if (pours && scenario.dike && scenario.dike->value > 0) {
        text += " in a dike of " + describe(*scenario.dike);
    }
    return text;
}

std::vector<std::string> screeningNotes(const Scenario& scenario, const ScreeningResult& result) {
    std::vector<std::string> notes;
    std::string unit(unitName(scenario));
    if (result.distance.starts_with("<")) {
        notes.push_back("\"" + result.distance + "\" means less than 0.1 " + unit +
                        ": the calculator tells no shorter distance apart.");
    } else if (result.distance.starts_with(">")) {
        std::string limit = result.distance.substr(2);
        notes.push_back(
            "\"" + result.distance + "\" means more than " + limit + " " + unit +
            ": the model's range ends there. A longer distance, and the footprint beyond, only shows how the "
            "formula goes on; it is no prediction.");
    }
    if (!result.footprint) {
        std::string cause = scenario.concentration && scenario.concentration->value == 0
                                ? " (a concentration of 0 % releases nothing)"
                                : "";
        notes.push_back("There is no footprint: " + result.problem + cause + ".");
        return notes;
    }
    double meters = result.footprint->distance;
    if (meters < kValidFrom || meters > kValidTo) {
        notes.push_back("The distance of " + metersText(meters) +
                        " lies outside 100 m to 10 km, where the dispersion curves were measured; it is extrapolated.");
    }
    const FootprintPoint& last = result.footprint->points.back();
    if (last.halfWidth > 0.25 * result.footprint->widest().halfWidth && last.halfWidth > 1) {
        notes.push_back(
            "The footprint does not close at its end: the calculation stopped before it settled on a distance.");
    }
    notes.push_back(
        scenario.windFrom
            ? "Wind directions are always where the wind blows from; the threat zone lies on the other side, toward " +
                  windFromText({std::fmod(scenario.windFrom->value + 180, 360), scenario.windFrom->unit}) + "."
            : std::string("Wind directions are always where the wind blows from; the threat zone lies on the other "
                          "side of the source."));
    return notes;
}

std::string textReport(const Scenario& scenario, const ScreeningResult& result, std::size_t columns) {
    std::string report = wrapped(titleOf(scenario) + ": " + releaseText(scenario), columns, 0) + "\n\n";
    constexpr std::size_t labels = 18;
    std::string distance = distanceText(scenario, result);
    if (result.footprint) {
        distance += " downwind (" + metersText(result.footprint->distance) + ")";
    }
    report += line("threat distance", labels, distance, columns);
    if (result.footprint) {
        FootprintPoint widest = result.footprint->widest();
        report += line("widest half-width", labels,
                       lengthText(scenario, widest.halfWidth) + " to each side of the centre line, " +
                           lengthText(scenario, widest.downwind) + " downwind",
                       columns);
    }
    report += "\nInputs as understood\n";
    for (const ScenarioField& field : scenarioFields()) {
        std::string value = understood(scenario, field);
        if (!value.empty()) {
            report += line(field.name, labels, value, columns);
        }
    }
    report += "\nNotes\n";
    for (const std::string& note : screeningNotes(scenario, result)) {
        report += "  - " + wrapped(note, columns, 4) + "\n";
    }
    return report;
}

std::string jsonReport(const Scenario& scenario, const ScreeningResult& result) {
    ordered_json report = {{"inputs", inputsJson(scenario)}, {"parameter", result.parameter}};
    report["error"] = nullptr;
    report["distance"] = nullptr;
    report["widest"] = nullptr;
    report["footprint"] = nullptr;
    report["notes"] = ordered_json::array();
    if (result.rejection) {
        const Rejection& rejection = *result.rejection;
        report["error"] = {{"code", rejection.code},
                           {"option", rejection.field.empty() ? ordered_json(nullptr)
                                                              : ordered_json("--" + std::string(rejection.field))},
                           {"message", rejection.message},
                           {"correctable", rejection.correctable}};
    } else {
        const char* cap = result.distance.starts_with("<")   ? "below"
                          : result.distance.starts_with(">") ? "above"
                                                             : nullptr;
        report["distance"] = {
            {"text", result.distance},
            {"unit", std::string(unitName(scenario))},
            {"cap", cap == nullptr ? ordered_json(nullptr) : ordered_json(cap)},
            {"meters", result.footprint ? ordered_json(result.footprint->distance) : ordered_json(nullptr)}};
        if (result.footprint) {
            FootprintPoint widest = result.footprint->widest();
            report["widest"] = {{"half-width-meters", widest.halfWidth}, {"downwind-meters", widest.downwind}};
            ordered_json points = ordered_json::array();
            for (const FootprintPoint& point : result.footprint->points) {
                points.push_back(ordered_json::array({point.downwind, point.halfWidth}));
            }
            report["footprint"] = std::move(points);
        }
        report["notes"] = screeningNotes(scenario, result);
    }
    return report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string rejectionText(const Scenario& scenario, const Rejection& rejection) {
    std::string text;
    if (const ScenarioField* field = findScenarioField(rejection.field)) {
        std::string value = scenarioValue(scenario, *field);
        text = "--" + std::string(field->name) + (value.empty() ? " (not given)" : " \"" + value + "\"") + ": ";
    }
    return text + rejection.message + " (error " + std::to_string(rejection.code) + ")";
}

}  // namespace host
