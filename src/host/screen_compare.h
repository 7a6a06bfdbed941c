// The same release over several values of one field, side by side.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

struct Comparison {
    struct Case {
        std::string value;  // as it was given
        Scenario scenario;
        ScreeningResult result;
        std::string problem;  // why there is no distance; else empty
    };
    const ScenarioField* field = nullptr;
    std::vector<Case> cases;

    // Whether any case has a distance.
    bool any() const;
};

// Reads "FIELD=V1,V2,..." and asks the calculator about each: `scenario`, not yet completed, with that value. Throws
// HostError for a text that is none, or a value that the field does not take.
Comparison compareScenarios(std::string_view text, const Scenario& scenario, const Calculator& calculator);

// A table, one line a case, ends with a line feed.
std::string comparisonText(const Comparison& comparison);
// One JSON document with a line feed.
std::string comparisonJson(const Comparison& comparison);
// All footprints in one picture. At least one case has a footprint.
std::string drawComparison(const Comparison& comparison);

}  // namespace host
