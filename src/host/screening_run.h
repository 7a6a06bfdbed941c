// Asks the plug-in about a scenario: composes the parameter of its screening functions, calls both, reads their
// answers.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"

namespace host {

// Why the calculator refused a scenario.
struct Rejection {
    int code = 0;              // its error code
    bool correctable = false;  // the user can change the value; else the fault lies in the chemical's data
    std::string message;       // its own words
    std::string_view field;    // the scenario field that carries the value; empty for a code that is not known
};

struct FootprintPoint {
    double downwind = 0;   // metres from the source
    double halfWidth = 0;  // metres to each side of the centre line
};

struct Footprint {
    double distance = 0;                 // metres, more than 0
    std::vector<FootprintPoint> points;  // 25, evenly spaced from distance/25 to distance

    FootprintPoint widest() const;
};

struct ScreeningResult {
    std::string parameter;               // as the plug-in got it
    std::optional<Rejection> rejection;  // set: nothing below is
    std::string distance;                // "1.3", "< .1", "> 10" or "> 16", in the scenario's unit
    std::optional<Footprint> footprint;  // none: `problem` tells why
    std::string problem;

    // Whether the calculator found a distance: a release of nothing has none, and the answer then is no number.
    bool hasDistance() const;
};

// The plug-in as the run sees it: evaluates a script function with a parameter, and hands over the messages that it
// showed since they were last taken.
struct Calculator {
    std::function<std::string(std::string_view function, std::string_view parameter)> ask;
    std::function<std::string()> takeMessages;
};

// The longest parameter that the calculator reads whole, in bytes.
inline constexpr std::size_t kLongestParameter = 319;
// The scenario fields that make the parameter, in its order.
std::span<const std::string_view> parameterFields();
// A field as it stands in the parameter; a number whose unit the calculator asks for with '|' and the unit's keyword.
std::string parameterText(const Scenario& scenario, const ScenarioField& field);
// The 20 fields, separated by '|'. Throws HostError when they are longer than the calculator reads (319 bytes).
std::string composeParameter(const Scenario& scenario);

// Reads "ERROR 16 TRUE"; none for any other text. The message stays empty.
std::optional<Rejection> parseRejection(std::string_view answer);
// Reads the answer of VSTAGetPlumePoints. None, with `problem` set, for anything but a distance and 25 points that are
// finite and lie downwind.
std::optional<Footprint> parseFootprint(std::string_view answer, std::string& problem);

// Throws HostError when an answer is none that the functions give.
ScreeningResult runScreening(const Scenario& scenario, const Calculator& calculator);

// Metres in the scenario's unit, as the calculator counts them: 1609 to a mile.
double metersPerUnit(const Scenario& scenario);

}  // namespace host
