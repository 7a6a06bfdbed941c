#include "host/units.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace host {
namespace {

constexpr Unit kUnits[] = {
    {Quantity::levelOfConcern, "g/m3", "", 0},
    {Quantity::levelOfConcern, "mg/m3", "", -3},
    {Quantity::mass, "lb", "LBS", 0},
    {Quantity::mass, "kg", "KGS", 0},
    {Quantity::duration, "min", "MINUTES", 0},
    {Quantity::duration, "h", "HOURS", 0},
    {Quantity::speed, "mph", "MPH", 0},
    {Quantity::speed, "m/s", "MPS", 0},
    {Quantity::area, "sq ft", "SQFT", 0},
    {Quantity::area, "sq m", "SQM", 0},
    {Quantity::direction, "degrees", "", 0},
    {Quantity::percent, "%", "", 0},
    {Quantity::factor, "", "", 0},
};

struct Spelling {
    std::string_view text;  // lower case, no blanks, '^' or '.'
    std::string_view unit;
};

constexpr Spelling kSpellings[] = {
    {"g/m3", "g/m3"},
    {"gm/m3", "g/m3"},
    {"gram/m3", "g/m3"},
    {"grams/m3", "g/m3"},
    {"g/cum", "g/m3"},
    {"mg/m3", "mg/m3"},
    {"mg/cum", "mg/m3"},
    {"lb", "lb"},
    {"lbs", "lb"},
    {"pound", "lb"},
    {"pounds", "lb"},
    {"kg", "kg"},
    {"kgs", "kg"},
    {"kilogram", "kg"},
    {"kilograms", "kg"},
    {"kilogramme", "kg"},
    {"kilogrammes", "kg"},
    {"min", "min"},
    {"mins", "min"},
    {"minute", "min"},
    {"minutes", "min"},
    {"h", "h"},
    {"hr", "h"},
    {"hrs", "h"},
    {"hour", "h"},
    {"hours", "h"},
    {"mph", "mph"},
    {"mi/h", "mph"},
    {"miles/hour", "mph"},
    {"milesperhour", "mph"},
    {"m/s", "m/s"},
    {"mps", "m/s"},
    {"meters/second", "m/s"},
    {"metres/second", "m/s"},
    {"meterspersecond", "m/s"},
    {"metrespersecond", "m/s"},
    {"sqft", "sq ft"},
    {"sqfeet", "sq ft"},
    {"ft2", "sq ft"},
    {"squarefoot", "sq ft"},
    {"squarefeet", "sq ft"},
    {"sqm", "sq m"},
    {"sqmeters", "sq m"},
    {"sqmetres", "sq m"},
    {"m2", "sq m"},
    {"squaremeter", "sq m"},
    {"squaremeters", "sq m"},
    {"squaremetre", "sq m"},
    {"squaremetres", "sq m"},
    {"", "degrees"},
    {"deg", "degrees"},
    {"degree", "degrees"},
    {"degrees", "degrees"},
    {"\xC2\xB0", "degrees"},
    {"", "%"},
    {"%", "%"},
    {"percent", "%"},
    {"wt%", "%"},
    {"%w/w", "%"},
    {"weightpercent", "%"},
    {"", ""},
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The unit as the table of spellings has it: blanks, '^' and abbreviation points gone, superscripts as digits.
std::string foldUnit(std::string_view text) {
    std::string folded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.substr(i, 2) == "\xC2\xB2" || text.substr(i, 2) == "\xC2\xB3") {
            folded += text[i + 1] == '\xB2' ? '2' : '3';
            ++i;
        } else if (text.substr(i, 2) == "\xC2\xA0") {
            ++i;
        } else if (!isBlank(text[i]) && text[i] != '^' && text[i] != '.') {
            folded += text[i];
        }
    }
    return lowerCase(folded);
}

std::string scaledDecimal(double value, int exponent) {
    if (exponent == 0) {
        return plainDecimal(value);
    }
    std::string digits = plainDecimal(value) + "e" + std::to_string(exponent);
    double scaled = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), scaled);
    return plainDecimal(scaled);
}

// Length of the UTF-8 character at the start of `text`; 0 when there is no valid one.
std::size_t characterLength(std::string_view text) {
    auto lead = static_cast<std::uint8_t>(text[0]);
    std::size_t length = lead < 0x80                   ? 1
                         : lead >= 0xC2 && lead < 0xE0 ? 2
                         : lead >= 0xE0 && lead < 0xF0 ? 3
                         : lead >= 0xF0 && lead < 0xF5 ? 4
                                                       : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<std::uint8_t>(text[i]) & 0xC0) != 0x80) {
            return 0;
        }
    }
    auto second = length > 1 ? static_cast<std::uint8_t>(text[1]) : 0;
    bool outside = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                   (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    return outside ? 0 : length;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

std::string printable(std::string_view text) {
    std::string shown;
    for (int characters = 0; !text.empty(); ++characters) {
        if (characters == 60) {
            return shown + "...";
        }
        std::size_t length = characterLength(text);
        bool control = length == 1 && (static_cast<std::uint8_t>(text[0]) < 0x20 || text[0] == 0x7F);
        bool c1 = length == 2 && text[0] == '\xC2' && static_cast<std::uint8_t>(text[1]) < 0xA0;
        shown += length == 0 || control || c1 ? std::string_view("?") : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return shown;
}

std::string plainDecimal(double value) {
    if (!std::isfinite(value)) {
        return std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
    }
    std::array<char, 1100> digits;
    auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
    return error == std::errc() ? std::string(digits.data(), end) : std::string("nan");
}

std::optional<double> parseDecimal(std::string_view text, std::string& problem) {
    std::size_t digits = 0;
    std::size_t points = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        digits += isDigit(text[i]);
        points += text[i] == '.';
        if (!isDigit(text[i]) && text[i] != '.' && !(text[i] == '-' && i == 0)) {
            problem = "\"" + printable(text) + "\" is not a plain decimal number such as 0.0073";
            return std::nullopt;
        }
    }
    if (digits == 0 || points > 1) {
        problem = text.empty() ? "the number is missing"
                               : "\"" + printable(text) + "\" is not a plain decimal number such as 0.0073";
        return std::nullopt;
    }
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() ||
        (text.size() >= kLongestNumber && plainDecimal(value).size() > kLongestNumber)) {  // never longer than the text
        problem = "the number has more digits than the calculator reads (" + std::to_string(kLongestNumber) + ")";
        return std::nullopt;
    }
    return value == 0 ? 0.0 : value;  // no "-0"
}

std::optional<Measure> parseMeasure(Quantity quantity, std::string_view text, std::string& problem) {
    text = trimmed(text);
    // Letters of a unit never look like a number's, except an exponent's: "1e5 lb" is told as a number.
    std::size_t length = 0;
    while (length < text.size() &&
           (isDigit(text[length]) || std::string_view("+-.,").find(text[length]) != text.npos)) {
        ++length;
    }
    std::size_t exponent = length;
    if (length > 0 && exponent + 1 < text.size() && (text[exponent] == 'e' || text[exponent] == 'E')) {
        ++exponent;
        exponent += text[exponent] == '-' || text[exponent] == '+';
        if (exponent < text.size() && isDigit(text[exponent])) {
            while (exponent < text.size() && isDigit(text[exponent])) {
                ++exponent;
            }
            length = exponent;
        }
    }
    std::string_view number = text.substr(0, length);
    std::string_view unitText = trimmed(text.substr(length));
    std::optional<double> value = parseDecimal(number, problem);
    if (!value) {
        return std::nullopt;
    }
    std::string folded = foldUnit(unitText);
    for (const Spelling& spelling : kSpellings) {
        if (spelling.text != folded) {
            continue;
        }
        for (const Unit& unit : kUnits) {
            if (unit.quantity == quantity && unit.name == spelling.unit) {
                Measure measure{*value, &unit};
                constexpr std::size_t kShift = 4;  // what a change of unit adds to the digits at most
                if (number.size() + kShift > kLongestNumber && calculatorNumber(measure).size() > kLongestNumber) {
                    problem =
                        "the number has more digits than the calculator reads (" + std::to_string(kLongestNumber) + ")";
                    return std::nullopt;
                }
                return measure;
            }
        }
    }
    problem = unitText.empty() ? "the unit is missing" : "unknown unit \"" + printable(unitText) + "\"";
    return std::nullopt;
}

std::string calculatorNumber(const Measure& measure) {
    return scaledDecimal(measure.value, measure.unit->exponent);
}

std::string describe(const Measure& measure) {
    std::string text = plainDecimal(measure.value);
    if (!measure.unit->name.empty()) {
        text += ' ';
        text += measure.unit->name;
    }
    return text;
}

std::string_view acceptedUnits(Quantity quantity) {
    switch (quantity) {
        case Quantity::levelOfConcern:
            return "g/m3 or mg/m3, for example \"0.0073 g/m3\"";
        case Quantity::mass:
            return "lb or kg, for example \"150 lb\"";
        case Quantity::duration:
            return "min or h, for example \"10 min\"";
        case Quantity::speed:
            return "mph or m/s, for example \"3.35 mph\"";
        case Quantity::area:
            return "sq ft or sq m, for example \"400 sq ft\"";
        case Quantity::direction:
            return "degrees, for example \"270\"";
        case Quantity::percent:
            return "weight percent, for example \"100\"";
        case Quantity::factor:
            break;
    }
    return "a number without unit, for example \"0.000005\"";
}

}  // namespace host
