// The answer as a page: inputs, result, picture, what the model is and is not, sources.
#pragma once

#include <string>
#include <string_view>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

// One HTML document that needs nothing else; light and dark by the reader's preference, always light on paper. Only for
// results with a distance.
std::string htmlReport(const Scenario& scenario, const ScreeningResult& result, std::string_view pluginVersion);

}  // namespace host
