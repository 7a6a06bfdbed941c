// The footprint drawn with characters.
#pragma once

#include <string>
#include <vector>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

struct PlotStyle {
    std::size_t columns = 78;  // of the whole drawing, 40 to 400
    bool unicode = false;      // braille dots; else plain ASCII
};

// The terminal's width when standard output is one, else 78; braille when the locale's characters are UTF-8.
PlotStyle plotStyleOfOutput();

// The footprint seen from above, the source at the left, axes in the scenario's unit.
std::string drawPlot(const Scenario& scenario, const Footprint& footprint, const PlotStyle& style);

// Half-width at a distance, linear between the points; 0 outside the footprint.
double halfWidthAt(const Footprint& footprint, double downwind);

// Round numbers for an axis from 0 to `end`: about `count` steps, all with `decimals` decimals.
struct Ticks {
    double step = 1;
    int decimals = 0;
    std::vector<double> at;  // from 0 on, none beyond `end`

    std::string label(double value) const;
};
Ticks ticksFor(double end, std::size_t count);

}  // namespace host
