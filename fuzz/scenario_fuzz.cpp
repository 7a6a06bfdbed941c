// Scenario files and values with units, with any bytes. The input's first byte chooses what is read; what reads must
// compose, and its values must read back as the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/plugin.h"
#include "host/scenario.h"
#include "host/screen_plot.h"
#include "host/screen_svg.h"
#include "host/screening_run.h"

namespace {

using namespace host;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkScenario(const Scenario& scenario) {
    Scenario again;
    for (const ScenarioField& field : scenarioFields()) {
        require(setScenarioField(again, field, scenarioValue(scenario, field)).empty());
    }
    require(again == scenario);
    std::string parameter;
    try {
        parameter = composeParameter(scenario);
    } catch (const HostError&) {
        return;  // too many digits
    }
    require(parameter.size() <= 319);
    std::size_t separators = 0;
    for (char c : parameter) {
        separators += c == '|';
    }
    require(separators == 19);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Scenario scenario;
    if (data[0] == '{' || data[0] >= 0x80) {
        try {
            readScenario(data[0] == '{' ? std::string_view(reinterpret_cast<const char*>(data), size) : text, "fuzz",
                         scenario);
        } catch (const HostError&) {
            require(scenario == Scenario());
            return 0;
        }
    } else {
        auto fields = scenarioFields();
        const ScenarioField& field = fields[data[0] % fields.size()];
        if (!setScenarioField(scenario, field, text).empty()) {
            require(scenario == Scenario());
            return 0;
        }
    }
    checkScenario(scenario);
    std::string problem;
    if (std::optional<Footprint> footprint = parseFootprint(text, problem)) {
        ScreeningResult result{.distance = "1.0", .footprint = footprint};
        drawSvg(scenario, result);
        drawPlot(scenario, *footprint, {static_cast<std::size_t>(data[0]), (size & 1) != 0});
    }
    return 0;
}
