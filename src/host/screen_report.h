// The answer of `quil screen` in words, and as JSON for programs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

// "1,609.3 m": metres with one decimal below 1,000 m, else whole, in groups of three digits.
std::string metersText(double meters);
// "0.043": three significant digits, at most three groups.
std::string shortNumber(double value);
// "270 degrees (west)".
std::string windFromText(const Measure& direction);
// "1.3 miles", "less than 0.1 miles", "more than 10 miles": the calculator's distance in words.
std::string distanceText(const Scenario& scenario, const ScreeningResult& result);
// "Chlorine", or "Release" when the chemical has no name.
std::string titleOf(const Scenario& scenario);
// "150 lb of gas over 10 min": what is known of it.
std::string releaseText(const Scenario& scenario);

// What a reader has to know beside the numbers, one sentence each: caps, extrapolation, directions.
std::vector<std::string> screeningNotes(const Scenario& scenario, const ScreeningResult& result);

// The report for people, ends with a line feed. Only for results without rejection.
std::string textReport(const Scenario& scenario, const ScreeningResult& result, std::size_t columns = 78);
// One JSON document with a line feed; docs/screening.md lists its fields.
std::string jsonReport(const Scenario& scenario, const ScreeningResult& result);
// `--wind "200 mph": Speed must be ... (error 5)`.
std::string rejectionText(const Scenario& scenario, const Rejection& rejection);

}  // namespace host
