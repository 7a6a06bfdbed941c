// The script functions of the module VSTA.

#include "frame/dispatch_table.h"
#include "screening/plume.h"

namespace quil {

// What both functions of the hazard screening calculator take.
static constexpr char kScenario[] =
    "Twenty fields separated by \"|\", at most 319 bytes in all and 63 characters a field. Numbers are digits with at "
    "most one \".\" and a \"-\" at most in front. Letter case does not matter, and a field that does not apply is left "
    "empty.\n"
    "1. \"SCREEN\" for the standard worst case (open country, class F, 3.35 mph or 1.5 m/s, 10 minutes), else empty\n"
    "2. level of concern in grams per cubic metre, above 0\n"
    "3. physical state: G (gas), L (liquid) or S (solid)\n"
    "4. terrain: OPEN or URBAN\n"
    "5. wind speed: 2.3 to 134 MPH or 1 to 60 MPS\n"
    "6. its unit: MPH (or MILES/HOUR) or MPS (or METERS/SECOND)\n"
    "7. amount released, above 0\n"
    "8. its unit: LBS (or POUNDS) or KGS (or KILOGRAMS)\n"
    "9. concentration in weight percent, 0 to 100\n"
    "10. stability class A to F: not C below 2 m/s of wind, B to E above 3 m/s, C or D above 5 m/s\n"
    "11. form of a solid: SOLUTION, POWDER or MOLTEN\n"
    "12. temperature of a liquid: AMBIENT or BOILING\n"
    "13. liquid factor ambient of the chemical, for a liquid at ambient temperature\n"
    "14. liquid factor boiling, for a liquid near boiling\n"
    "15. liquid factor molten, for a molten solid\n"
    "16. duration of the release as a whole number, for a gas, a powder or a solution\n"
    "17. its unit: MINUTES or HOURS\n"
    "18. diked area that holds a liquid or molten solid; empty or 0 for no dike\n"
    "19. its unit: SQFT (or SQ FT, SQ FEET) or SQM (or SQ M, SQ METERS)\n"
    "20. unit of the distance: MI (or MILES) or KM (or KILOMETERS); VSTAGetPlumePoints does not use it";

// A scenario that works in any state: 150 pounds of chlorine in ten minutes. Its level of concern is the toxic endpoint
// of 40 CFR 68, appendix A.
static constexpr char kExample[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";

static constexpr Row kRows[] = {
    {.name = "VSTACalculatePlumeDistance",
     .handler = VSTACalculatePlumeDistance,
     .module = "VSTA",
     .summary = "Tells how far downwind the concentration of a released chemical stays above its level of concern.",
     .parameter = kScenario,
     .result = "The threat distance in the unit of field 20 with one decimal. \"< .1\" stands for a distance below 0.1 "
               "of either unit, and \"> 10\" (miles) or \"> 16\" (kilometres) for one beyond the range in which the "
               "model is valid. A value that is not a finite number stands as it is, \"nan\" or \"-nan\" when the "
               "concentration is 0.",
     .errors = "\"ERROR \", a code, and \" TRUE\" when the user can correct the input or \" FALSE\" when the fault "
               "lies in the chemical's record or in the script; an alert tells what is wrong. Codes: 2 level of "
               "concern, 3 physical state, 4 terrain, 5 wind speed, 6 its unit, 7 amount, 8 its unit, 9 concentration, "
               "10 stability class, 11 form of the solid, 12 temperature of the liquid, 13, 14 and 15 liquid factor "
               "ambient, boiling and molten, 16 duration, 18 diked area, 19 its unit. When field 20 is neither miles "
               "nor kilometres the result is empty and an alert says \"Programmer error in "
               "GetPlumeDistanceStrOrErrorStr\".",
     .exampleParameter = kExample,
     .exampleResult = "1.9"},
    {.name = "VSTAGetPlumePoints",
     .handler = VSTAGetPlumePoints,
     .module = "VSTA",
     .summary = "Gives the outline of the zone in which a released chemical stays above its level of concern.",
     .parameter = kScenario,
     .result = "26 lines, each ended by a carriage return, in metres with one decimal: the threat distance, then 25 "
               "points \"x,y\" at equal steps up to it, where x is the distance downwind and y the half-width of the "
               "zone across the wind.",
     .errors = "The same error text as that of VSTACalculatePlumeDistance, and no alert: \"ERROR 7 TRUE\" for a "
               "missing amount, for instance.",
     .exampleParameter = kExample,
     .exampleResult = "3093.8\r123.8,16.6\r247.5,28.8\r371.3,39.0\r495.0,47.6\r618.8,55.1\r742.5,61.5\r866.3,66.9\r"
                      "990.0,71.6\r1113.8,75.4\r1237.5,78.6\r1361.3,81.0\r1485.0,82.7\r1608.8,83.8\r1732.5,84.2\r"
                      "1856.3,84.0\r1980.0,83.0\r2103.8,81.3\r2227.5,78.8\r2351.3,75.4\r2475.1,71.0\r2598.8,65.4\r"
                      "2722.6,58.2\r2846.3,48.8\r2970.1,35.4\r3093.8,0.1\r"},
};

std::span<const Row> VSTARows() {
    return kRows;
}

}  // namespace quil
