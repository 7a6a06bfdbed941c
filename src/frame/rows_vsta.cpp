// The script functions of the module VSTA.

#include "frame/dispatch_table.h"
#include "records/records.h"
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
    {.name = "VSTAVersion",
     .handler = VSTAVersion,
     .module = "VSTA",
     .summary = "Tells the version of the functions for records and screening.",
     .parameter = "none",
     .result = "The version text.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = "VESTA plugin ver 8.0"},
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
    {.name = "VSTANewID",
     .handler = VSTANewID,
     .module = "VSTA",
     .summary = "Makes a unique record ID of 20 characters.",
     .parameter = "Prefix of at most 8 characters (longer ones are cut), padded on the right with \"0\".",
     .result = "The prefix, then 12 digits of base 34 (0 to 9 and the capitals without I and O): the seconds since "
               "2000 (6), a sequence number (3), the tick counter (3). IDs made in one second stay different: only "
               "after 39,304 "
               "of them with the clock and the tick counter standing still do they repeat.",
     .errors = "none",
     .exampleParameter = "CH",
     .exampleResult = nullptr},
    {.name = "VSTA_SetRidsLookupInfo",
     .handler = VSTA_SetRidsLookupInfo,
     .module = "VSTA",
     .summary = "Stores the lookup information that VSTA_GetRidsLookupInfo reads.",
     .parameter = "\"CB number|CN number|CAS number|chemical name\", optionally \"|preferred layout\"; empty to clear "
                  "what is stored.",
     .result = "Empty.",
     .errors = "\"Error\", with an alert, when there are fewer than 3 vertical bars or memory runs out; nothing is "
               "stored then.",
     .exampleParameter = "1|2|3|4|Main",
     .exampleResult = ""},
    {.name = "VSTA_GetRidsLookupInfo",
     .handler = VSTA_GetRidsLookupInfo,
     .module = "VSTA",
     .summary = "Reads a field of the stored lookup information.",
     .parameter = "CB_NUMBER, CN_NUMBER, CAS_NUMBER, CHEMICALNAME or PREFEREDLAYOUT (spelled so), in any letter case.",
     .result = "The field's text; empty when nothing is stored, or when there is no preferred layout.",
     .errors = "\"Error\", with an alert, for an unknown keyword or a missing field.",
     .exampleParameter = "CAS_NUMBER",
     .exampleResult = nullptr},
    {.name = "VSTA_SetRidsLinkInfo",
     .handler = VSTA_SetRidsLinkInfo,
     .module = "VSTA",
     .summary = "Stores the link information that VSTA_GetRidsLinkInfo reads.",
     .parameter = "\"record ID|link type|CB number|CAS number|chemical name\"; empty to clear what is stored.",
     .result = "Empty.",
     .errors = "\"Error\", with an alert, when there are fewer than 4 vertical bars or memory runs out; nothing is "
               "stored then.",
     .exampleParameter = "R1|FACILITY|1|7782-50-5|Chlorine",
     .exampleResult = ""},
    {.name = "VSTA_GetRidsLinkInfo",
     .handler = VSTA_GetRidsLinkInfo,
     .module = "VSTA",
     .summary = "Reads a field of the stored link information.",
     .parameter = "RECORDID, LINKTYPE, CB_NUMBER, CAS_NUMBER or CHEMICALNAME, in any letter case.",
     .result = "The field's text; empty when nothing is stored.",
     .errors = "\"Error\", with an alert, for an unknown keyword or a missing field.",
     .exampleParameter = "LINKTYPE",
     .exampleResult = nullptr},
    {.name = "VSTA_InitFoundSet",
     .handler = VSTA_InitFoundSet,
     .module = "VSTA",
     .summary = "Starts a new found set, in which scripts collect record IDs.",
     .parameter = "Number of IDs that the set takes, at most 153,391,689; below 1 the set is only disposed.",
     .result = "Empty.",
     .errors = "\"Error\", with an alert, when memory for the IDs cannot be had or the number is too large; there is "
               "no found set then.",
     .exampleParameter = "100",
     .exampleResult = ""},
    {.name = "VSTA_SetNextFoundID",
     .handler = VSTA_SetNextFoundID,
     .module = "VSTA",
     .summary = "Adds an ID to the found set.",
     .parameter = "The ID, at most 23 bytes (longer ones are cut). IDs that differ in the 23rd byte alone count as "
                  "the same, though each is kept as it is.",
     .result = "Empty. A set that is full drops the ID. Two seconds after VSTA_InitFoundSet a progress box appears "
               "over the front window, unless more than a third of the IDs are there.",
     .errors = "none",
     .exampleParameter = "CH000000AB12CD34EF56",
     .exampleResult = ""},
    {.name = "VSTA_GetFoundID",
     .handler = VSTA_GetFoundID,
     .module = "VSTA",
     .summary = "Reads one ID or a range of IDs of the found set.",
     .parameter = "\"n\" for the n-th ID, or \"first|last\", counted from 1.",
     .result =
         "The IDs, separated by carriage returns; the range ends with the set. Empty when it starts beyond the end.",
     .errors = "An alert when the first number is 0 or larger than the last, or when memory for the IDs cannot be had.",
     .exampleParameter = "1|10",
     .exampleResult = nullptr},
    {.name = "VSTA_GetNumFoundIDs",
     .handler = VSTA_GetNumFoundIDs,
     .module = "VSTA",
     .summary = "Tells how many IDs the found set holds.",
     .parameter = "none",
     .result = "The number.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = nullptr},
    {.name = "VSTA_RemoveDuplicateFoundIDs",
     .handler = VSTA_RemoveDuplicateFoundIDs,
     .module = "VSTA",
     .summary = "Keeps each ID of the found set once, at its first occurrence, in the order of adding.",
     .parameter = "none",
     .result = "Empty.",
     .errors = "An alert when memory runs out; the set is unchanged then.",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_DisposeFoundSet",
     .handler = VSTA_DisposeFoundSet,
     .module = "VSTA",
     .summary = "Disposes the found set.",
     .parameter = "none",
     .result = "Empty.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_TransferFoundSetToBooleanSet",
     .handler = VSTA_TransferFoundSetToBooleanSet,
     .module = "VSTA",
     .summary = "Moves the found set into one of the four boolean sets.",
     .parameter = "Number of the boolean set, 1 to 4.",
     .result = "Empty. There is no found set afterwards.",
     .errors = "An alert for any other number; the found set stays then.",
     .exampleParameter = "1",
     .exampleResult = ""},
    {.name = "VSTA_MakeFoundSetFromBooleanSets",
     .handler = VSTA_MakeFoundSetFromBooleanSets,
     .module = "VSTA",
     .summary = "Combines the boolean sets into the found set.",
     .parameter = "Up to three operators AND and OR between sets 1, 2, 3 and 4, in any letter case; none: set 1 alone. "
                  "With three, the first pair and the second pair are formed first.",
     .result = "Empty. The boolean sets are disposed.",
     .errors = "An alert for any other text (all boolean sets are disposed) or when memory runs out.",
     .exampleParameter = "AND",
     .exampleResult = ""},
    {.name = "VSTA_DisposeBooleanSets",
     .handler = VSTA_DisposeBooleanSets,
     .module = "VSTA",
     .summary = "Disposes all four boolean sets.",
     .parameter = "none",
     .result = "Empty.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_TransferFoundSetToSavedSet",
     .handler = VSTA_TransferFoundSetToSavedSet,
     .module = "VSTA",
     .summary = "Moves the found set into the saved set.",
     .parameter = "none",
     .result = "Empty. There is no found set afterwards.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_TransferSavedSetToFoundSet",
     .handler = VSTA_TransferSavedSetToFoundSet,
     .module = "VSTA",
     .summary = "Moves the saved set into the found set.",
     .parameter = "none",
     .result = "Empty. There is no saved set afterwards.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_CopySavedSetToFoundSet",
     .handler = VSTA_CopySavedSetToFoundSet,
     .module = "VSTA",
     .summary = "Copies the saved set into the found set.",
     .parameter = "none",
     .result = "Empty. The saved set stays.",
     .errors = "\"Error\", with an alert, when memory runs out; there is no found set then.",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_DisposeSavedSet",
     .handler = VSTA_DisposeSavedSet,
     .module = "VSTA",
     .summary = "Disposes the saved set.",
     .parameter = "none",
     .result = "Empty.",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = ""},
    {.name = "VSTA_UserIsAllowedToEdit",
     .handler = VSTA_UserIsAllowedToEdit,
     .module = "VSTA",
     .summary = "Tells whether the user may edit records.",
     .parameter = "none",
     .result = "\"TRUE\" (at start) or \"FALSE\".",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = nullptr},
    {.name = "VSTA_SetUserIsAllowedToEdit",
     .handler = VSTA_SetUserIsAllowedToEdit,
     .module = "VSTA",
     .summary = "Says whether the user may edit records.",
     .parameter = "\"TRUE\" or \"FALSE\", in any letter case.",
     .result = "Empty.",
     .errors = "An alert for any other text.",
     .exampleParameter = "TRUE",
     .exampleResult = ""},
    {.name = "VSTA_GetReactivityCodes",
     .handler = VSTA_GetReactivityCodes,
     .module = "VSTA",
     .summary = "Retired.",
     .parameter = "ignored",
     .result = "\"No longer supported\"",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = "No longer supported"},
    {.name = "VSTA_ReactivityCodesToText",
     .handler = VSTA_ReactivityCodesToText,
     .module = "VSTA",
     .summary = "Retired.",
     .parameter = "ignored",
     .result = "\"no longer supported\"",
     .errors = "none",
     .exampleParameter = "",
     .exampleResult = "no longer supported"},
    {.name = "VSTA_StripCharsIllegalInXML",
     .handler = VSTA_StripCharsIllegalInXML,
     .module = "VSTA",
     .summary = "Drops the characters that XML does not allow.",
     .parameter = "Any text.",
     .result = "The text without control characters other than tab, line feed, vertical tab, carriage return and group "
               "separator.",
     .errors = "An alert when memory runs out.",
     .exampleParameter = "a\001b",
     .exampleResult = "ab"},
    {.name = "VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug",
     .handler = VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug,
     .module = "VSTA",
     .summary = "Repairs an exported XML file in place: CR CR LF becomes CR LF, and control characters that are not "
                "allowed go.",
     .parameter = "Full path of the file.",
     .result = "Empty. A file without faults is not written.",
     .errors = "\"Error: Function failed. VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug \" and the path when the file "
               "is missing, cannot be read or cannot be written.",
     .exampleParameter = "Disk:no such file",
     .exampleResult = "Error: Function failed. VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug Disk:no such file"},
    {.name = "VSTA_FixFilemakerMerFile_StripUnallowedChars",
     .handler = VSTA_FixFilemakerMerFile_StripUnallowedChars,
     .module = "VSTA",
     .summary = "Strips control characters that are not allowed from an exported merge file, in place.",
     .parameter = "Full path of the file.",
     .result = "Empty, also when there is no such file. A file without faults is not written.",
     .errors = "\"Error: Function failed. VSTA_FixFilemakerMerFile_StripUnallowedChars \" and the path when the file "
               "cannot be read or written.",
     .exampleParameter = "Disk:no such file",
     .exampleResult = ""},
};

std::span<const Row> VSTARows() {
    return kRows;
}

}  // namespace quil
