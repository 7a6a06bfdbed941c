#include "host/screening_run.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "host/plugin.h"

namespace host {
namespace {

constexpr std::size_t kFootprintPoints = 25;

// The field that carries the value which a check with this code rejects.
std::string_view fieldOfCode(int code) {
    switch (code) {
        case 2:
            return "level-of-concern";
        case 3:
            return "state";
        case 4:
            return "terrain";
        case 5:
        case 6:
            return "wind";
        case 7:
        case 8:
            return "amount";
        case 9:
            return "concentration";
        case 10:
            return "stability";
        case 11:
            return "solid-form";
        case 12:
            return "liquid-temperature";
        case 13:
            return "factor-ambient";
        case 14:
            return "factor-boiling";
        case 15:
            return "factor-molten";
        case 16:
            return "duration";
        case 18:
        case 19:
            return "dike";
        default:
            return {};
    }
}

// The parameter's fields in its order. A measure with keywords for its unit fills two.
constexpr std::string_view kParameterFields[] = {
    "screening",      "level-of-concern", "state",         "terrain",    "wind",
    "amount",         "concentration",    "stability",     "solid-form", "liquid-temperature",
    "factor-ambient", "factor-boiling",   "factor-molten", "duration",   "dike",
    "units",
};

bool hasKeyword(Quantity quantity) {
    return quantity == Quantity::mass || quantity == Quantity::duration || quantity == Quantity::speed ||
           quantity == Quantity::area;
}

bool readNumber(std::string_view& text, double& value) {
    auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
    return true;
}

bool readMark(std::string_view& text, char mark) {
    if (!text.starts_with(mark)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

}  // namespace

std::optional<Rejection> parseRejection(std::string_view answer) {
    constexpr std::string_view prefix = "ERROR ";
    if (!answer.starts_with(prefix)) {
        return std::nullopt;
    }
    Rejection rejection;
    const char* end = answer.data() + answer.size();
    auto [rest, error] = std::from_chars(answer.data() + prefix.size(), end, rejection.code);
    std::string_view flag(rest, static_cast<std::size_t>(end - rest));
    if (error != std::errc() || (flag != " TRUE" && flag != " FALSE")) {
        return std::nullopt;
    }
    rejection.correctable = flag == " TRUE";
    rejection.field = fieldOfCode(rejection.code);
    return rejection;
}

FootprintPoint Footprint::widest() const {
    auto wider = [](const FootprintPoint& a, const FootprintPoint& b) { return a.halfWidth < b.halfWidth; };
    return points.empty() ? FootprintPoint{} : *std::max_element(points.begin(), points.end(), wider);
}

bool ScreeningResult::hasDistance() const {
    double value = 0;
    std::string_view digits = distance;
    bool capped = digits.starts_with('<') || digits.starts_with('>');
    return !rejection && (capped || (readNumber(digits, value) && std::isfinite(value)));
}

double metersPerUnit(const Scenario& scenario) {
    return scenario.units == "km" ? 1000.0 : 1609.0;
}

std::span<const std::string_view> parameterFields() {
    return kParameterFields;
}

std::string parameterText(const Scenario& scenario, const ScenarioField& field) {
    if (field.flag != nullptr) {
        return scenario.*field.flag ? "SCREENING" : "";
    }
    if (field.word != nullptr) {
        return std::string(scenario.*field.word);
    }
    if (field.measure == nullptr) {
        return {};
    }
    const std::optional<Measure>& measure = scenario.*field.measure;
    std::string text = measure ? calculatorNumber(*measure) : std::string();
    if (hasKeyword(field.quantity)) {
        text += '|';
        text += measure ? measure->unit->keyword : std::string_view();
    }
    return text;
}

std::string composeParameter(const Scenario& scenario) {
    std::string parameter;
    for (std::string_view name : kParameterFields) {
        parameter += name.data() == kParameterFields[0].data() ? "" : "|";
        parameter += parameterText(scenario, *findScenarioField(name));
    }
    if (parameter.size() > kLongestParameter) {
        throw HostError("the scenario's numbers have more digits than the calculator reads (" +
                        std::to_string(kLongestParameter) + " characters in all); shorten them");
    }
    return parameter;
}

std::optional<Footprint> parseFootprint(std::string_view answer, std::string& problem) {
    Footprint footprint;
    if (!readNumber(answer, footprint.distance) || !readMark(answer, '\r')) {
        problem = "the calculator gave no footprint";
        return std::nullopt;
    }
    if (!std::isfinite(footprint.distance) || footprint.distance <= 0) {
        problem = "the calculation found no distance downwind";
        return std::nullopt;
    }
    while (!answer.empty()) {
        FootprintPoint point;
        if (!readNumber(answer, point.downwind) || !readMark(answer, ',') || !readNumber(answer, point.halfWidth) ||
            !readMark(answer, '\r')) {
            problem = "the calculator's footprint is cut short";
            return std::nullopt;
        }
        if (!std::isfinite(point.downwind) || !std::isfinite(point.halfWidth) || point.downwind < 0 ||
            point.halfWidth < 0) {
            problem = "the calculator's footprint holds a value that is not a length";
            return std::nullopt;
        }
        footprint.points.push_back(point);
    }
    if (footprint.points.size() != kFootprintPoints) {
        problem = "the calculator's footprint is cut short";
        return std::nullopt;
    }
    return footprint;
}

ScreeningResult runScreening(const Scenario& scenario, const Calculator& calculator) {
    ScreeningResult result;
    result.parameter = composeParameter(scenario);
    calculator.takeMessages();
    result.distance = calculator.ask("VSTACalculatePlumeDistance", result.parameter);
    std::string messages = calculator.takeMessages();
    if (result.distance.starts_with("ERROR ")) {
        result.rejection = parseRejection(result.distance);
        if (!result.rejection) {
            throw HostError("VSTACalculatePlumeDistance answered \"" + printable(result.distance) +
                            "\", which is none of its answers; is this the right plug-in?");
        }
        result.rejection->message = messages.empty() ? "rejected with \"" + result.distance + "\"" : messages;
        result.distance.clear();
        return result;
    }
    double value = 0;
    std::string_view digits = result.distance;
    bool capped = digits == "< .1" || digits == "> 10" || digits == "> 16";
    if (!capped && (!readNumber(digits, value) || !digits.empty())) {
        throw HostError("VSTACalculatePlumeDistance answered \"" + printable(result.distance) +
                        "\", which is none of its answers; is this the right plug-in?" +
                        (messages.empty() ? "" : " It said: " + messages));
    }
    result.footprint = parseFootprint(calculator.ask("VSTAGetPlumePoints", result.parameter), result.problem);
    return result;
}

}  // namespace host
