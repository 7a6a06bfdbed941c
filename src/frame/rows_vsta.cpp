// The script functions of the module VSTA.

#include "frame/dispatch_table.h"
#include "screening/plume.h"

namespace quil {

static constexpr Row kRows[] = {
    {.name = "VSTACalculatePlumeDistance",
     .handler = VSTACalculatePlumeDistance,
     .module = "VSTA",
     .summary = "Tells how far downwind a released chemical stays above its level of concern.",
     .parameter = "twenty fields",
     .result = "the distance",
     .errors = "error text",
     .exampleParameter = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI",
     .exampleResult = nullptr},
    {.name = "VSTAGetPlumePoints",
     .handler = VSTAGetPlumePoints,
     .module = "VSTA",
     .summary = "Gives the outline of the zone that a released chemical threatens.",
     .parameter = "twenty fields",
     .result = "the outline",
     .errors = "error text",
     .exampleParameter = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI",
     .exampleResult = nullptr},
};

std::span<const Row> VSTARows() {
    return kRows;
}

}  // namespace quil
