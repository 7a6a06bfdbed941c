// Numbers with units as people write them: "0.0073 g/m3", "150 lb", "10 min", "3.35 mph", "400 sqft".
//
// A number is a plain decimal: digits with at most one '.', a '-' in front; no exponent, no thousands separators. The
// unit follows, with or without blanks, in any letter case and in the usual spellings. Every number is kept as the
// nearest double and written back as the shortest plain decimal that reads as the same double.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

enum class Quantity { levelOfConcern, mass, duration, speed, area, direction, percent, factor };

// A unit. `keyword` is what the calculator takes for it; empty when the field has no unit of its own.
struct Unit {
    Quantity quantity;
    std::string_view name;  // as reports write it
    std::string_view keyword;
    int exponent;  // value x 10^exponent is the value that the calculator takes
};

struct Measure {
    double value = 0;            // in `unit`
    const Unit* unit = nullptr;  // never null once parsed; static

    friend bool operator==(const Measure&, const Measure&) = default;
};

// The longest number that the calculator reads whole.
inline constexpr std::size_t kLongestNumber = 63;

// The shortest plain decimal that reads back as `value`; "nan", "inf" or "-inf" when it is not finite.
std::string plainDecimal(double value);
// Reads a plain decimal that is finite and whose plain decimal has at most kLongestNumber characters. On failure: none,
// and `problem` tells why.
std::optional<double> parseDecimal(std::string_view text, std::string& problem);
// Reads a number with a unit of the quantity. A level of concern, mass, duration, speed or area needs its unit; a
// percentage, factor or direction may have a sign for it ("100 %", "270 deg"). On failure: none, and `problem` tells
// why.
std::optional<Measure> parseMeasure(Quantity quantity, std::string_view text, std::string& problem);

// The number in the unit that the calculator takes, as plain decimal: exact, digits are only shifted.
std::string calculatorNumber(const Measure& measure);
// "0.0073 g/m3".
std::string describe(const Measure& measure);
// The units that a quantity is written in, with an example: `g/m3 or mg/m3, for example "0.0073 g/m3"`.
std::string_view acceptedUnits(Quantity quantity);

// Blanks at both ends cut.
std::string_view trimmed(std::string_view text);
// ASCII letters in lower case.
std::string lowerCase(std::string_view text);
// `text` for a message: control characters and bytes that are not UTF-8 as '?', at most 60 characters.
std::string printable(std::string_view text);

}  // namespace host
