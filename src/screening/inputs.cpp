#include "screening/inputs.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <system_error>

namespace quil {

using namespace std::string_view_literals;

namespace {

struct UnitKeyword {
    std::string_view text;
    std::int16_t code;
};

constexpr UnitKeyword kUnitKeywords[] = {
    {"SQFT", kSquareFeet},
    {"SQ FT", kSquareFeet},
    {"SQ FEET", kSquareFeet},
    {"SQM", kSquareMeters},
    {"SQ M", kSquareMeters},
    {"SQ METERS", kSquareMeters},
    {"LBS", kPounds},
    {"POUNDS", kPounds},
    {"KGS", kKilograms},
    {"KILOGRAMS", kKilograms},
    {"MPH", kMilesPerHour},
    {"MILES/HOUR", kMilesPerHour},
    {"MPS", kMetersPerSecond},
    {"METERS/SECOND", kMetersPerSecond},
    {"MI", kMiles},
    {"MILES", kMiles},
    {"KM", kKilometers},
    {"KILOMETERS", kKilometers},
    {"MINUTES", kMinutes},
    {"HOURS", kHours},
};

void upperCase(char* text) {
    for (; *text != 0; ++text) {
        *text = my_toupper(*text);
    }
}

bool contains(std::string_view text, std::string_view word) {
    return text.find(word) != std::string_view::npos;
}

// Reads the fields one after the other. Most fields of most scenarios are empty, so that is looked at first.
class FieldReader {
  public:
    explicit FieldReader(const char* text) : next_(text) {}

    char* text() {
        next_ = GetParameter(next_, field_, sizeof field_);
        return field_;
    }
    std::string_view upperText() {
        if (*text() == 0) {
            return {};
        }
        upperCase(field_);
        return field_;
    }
    double number() { return ParamStrToDouble(text()); }
    std::int16_t units() { return ParamStrToUnits(text()); }
    char letter() { return my_toupper(*text()); }

  private:
    const char* next_;
    char field_[kFieldSize];
};

char terrainOf(std::string_view field) {
    if (contains(field, "OPEN")) {
        return 'O';
    }
    return contains(field, "URBAN") ? 'U' : '\0';
}

char solidFormOf(std::string_view field) {
    for (const std::string_view word : {"SOLUTION"sv, "POWDER"sv, "MOLTEN"sv, "OTHER"sv}) {
        if (contains(field, word)) {
            return word.front();
        }
    }
    return 0;
}

char liquidTemperatureOf(std::string_view field) {
    if (contains(field, "AMB")) {
        return 'A';
    }
    return contains(field, "BOIL") ? 'B' : '\0';
}

}  // namespace

ScreeningInputs ParseScreeningInputs(const char* parameter) {
    FieldReader fields(parameter);
    ScreeningInputs inputs;
    inputs.screening = IsScreening(fields.text()) ? 1 : 0;
    inputs.levelOfConcern = fields.number();
    inputs.physicalState = fields.letter();
    inputs.terrain = terrainOf(fields.upperText());
    inputs.windSpeed = fields.number();
    inputs.windUnit = fields.units();
    inputs.amount = fields.number();
    inputs.amountUnit = fields.units();
    inputs.concentration = fields.number();
    inputs.stabilityClass = fields.letter();
    inputs.solidForm = solidFormOf(fields.upperText());
    inputs.liquidTemperature = liquidTemperatureOf(fields.upperText());
    inputs.liquidFactorAmbient = fields.number();
    inputs.liquidFactorBoiling = fields.number();
    inputs.liquidFactorMolten = fields.number();
    inputs.duration = fields.number();
    inputs.durationUnit = fields.units();
    inputs.dikeArea = fields.number();
    inputs.dikeAreaUnit = fields.units();
    inputs.distanceUnit = fields.units();
    return inputs;
}

const char* GetParameter(const char* src, char* dst, std::size_t size) {
    std::size_t used = 0;
    for (; *src != 0 && *src != '|'; ++src) {
        if (used + 1 < size) {
            dst[used++] = *src;
        }
    }
    if (size != 0) {
        dst[used] = 0;
    }
    return *src == '|' ? src + 1 : src;
}

double ParamStrToDouble(const char* text) {
    if (*text == 0) {
        return kMissingNumber;
    }
    bool point = false;
    std::uint64_t digits = 0;
    int count = 0;     // of digits
    int fraction = 0;  // of those, behind the point
    const char* last = text;
    for (; *last != 0; ++last) {
        if (*last == '.' ? point : (*last < '0' || *last > '9') && (*last != '-' || last != text)) {
            return kInvalidNumber;
        }
        point = point || *last == '.';
        if (*last >= '0') {
            digits = digits * 10 + static_cast<std::uint64_t>(*last - '0');
            ++count;
            fraction += point ? 1 : 0;
        }
    }
    if (count == 0) {
        return 0.0;
    }
    // Both numbers are exact in a double, so the one division rounds as any right conversion does.
    static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    if (count <= 15) {
        const double value = static_cast<double>(digits) / kPowers[fraction];
        return *text == '-' ? -value : value;
    }
    double value = 0.0;
    const auto [end, error] = std::from_chars(text, last, value);
    if (error == std::errc::result_out_of_range) {
        // Beyond the range of a double: too large when a digit before the point counts, else too small.
        const std::string_view number(text, static_cast<std::size_t>(last - text));
        const bool large = number.substr(0, number.find('.')).find_first_of("123456789") != std::string_view::npos;
        return std::copysign(large ? HUGE_VAL : 0.0, *text == '-' ? -1.0 : 1.0);
    }
    return value;
}

std::int16_t ParamStrToUnits(char* text) {
    if (*text == 0) {
        return kNoUnit;
    }
    upperCase(text);
    const std::string_view unit(text);
    const auto* found = std::find_if(std::begin(kUnitKeywords), std::end(kUnitKeywords),
                                     [unit](const UnitKeyword& keyword) { return keyword.text == unit; });
    return found == std::end(kUnitKeywords) ? kUnknownUnit : found->code;
}

bool IsScreening(char* text) {
    upperCase(text);
    return contains(text, "SCREEN");
}

char my_toupper(char ch) {
    return ch >= 'a' && ch <= 'z' ? static_cast<char>(ch - 'a' + 'A') : ch;
}

void NumTofString(double value, std::span<char> dst, std::int16_t places) {
    if (dst.empty()) {
        return;
    }
    char digits[344];  // sign, 309 digits, point, 9 decimals
    const auto [end, error] =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, std::clamp<int>(places, 0, 9));
    const auto length = std::min(static_cast<std::size_t>(end - digits), dst.size() - 1);
    *std::copy_n(digits, length, dst.begin()) = 0;
}

bool Equal(double a, double b) {
    return std::fabs(a - b) < 1e-11;
}

bool isInteger(double x) {
    if (!(x >= std::numeric_limits<std::int32_t>::min() && x <= std::numeric_limits<std::int32_t>::max())) {
        return false;
    }
    return Equal(static_cast<double>(static_cast<std::int32_t>(x)), x);
}

}  // namespace quil
