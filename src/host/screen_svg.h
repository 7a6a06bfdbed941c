// The footprint as a picture.
#pragma once

#include <string>
#include <string_view>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

// A complete SVG document: title, wind arrow, footprint on axes in the scenario's unit, legend; colours follow the
// reader's light or dark preference. `result` has a footprint.
std::string drawSvg(const Scenario& scenario, const ScreeningResult& result);

// `text` as XML character data or attribute value; control characters and bytes that are not UTF-8 become U+FFFD.
std::string xmlEscaped(std::string_view text);

}  // namespace host
