// The screening calculator's parameter: any bytes, through the field and number parsers and through both script
// functions. The two functions have to agree with each other and with the parsers, and their answers have to be of a
// known form.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "screening/inputs.h"
#include "screening/plume.h"
#include "util/alerts.h"
#include "util/fhandle.h"

namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "parameter_fuzz: %s\n", what);
        std::abort();
    }
}

// "%.1f" of some number, finite or not.
bool isNumber(std::string_view text) {
    if (text.starts_with('-')) {
        text.remove_prefix(1);
    }
    if (text == "nan" || text == "inf") {
        return true;
    }
    const std::size_t point = text.find('.');
    return point != 0 && point != std::string_view::npos && text.size() == point + 2 &&
           text.find_first_not_of("0123456789.") == std::string_view::npos;
}

bool isError(std::string_view text) {
    if (!text.starts_with("ERROR ") || !(text.ends_with(" TRUE") || text.ends_with(" FALSE"))) {
        return false;
    }
    const int code = std::atoi(text.data() + 6);
    return code >= 2 && code <= 19 && code != 17;
}

void checkFields(const std::string& text) {
    const char* next = text.c_str();
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find('|', start), text.size());
        char field[quil::kFieldSize];
        next = quil::GetParameter(next, field, sizeof field);
        require(field == text.substr(start, std::min<std::size_t>(end - start, quil::kFieldSize - 1)), "field differs");
        require(next == text.c_str() + std::min(end + 1, text.size()), "next field elsewhere");

        const double number = quil::ParamStrToDouble(field);
        require((number == quil::kMissingNumber) == (*field == 0) || std::strtod(field, nullptr) == number,
                "missing is not empty");
        require(number == quil::kInvalidNumber || *field == 0 || number == std::strtod(field, nullptr),
                "number is not the standard one");
        const std::int16_t unit = quil::ParamStrToUnits(field);
        require(unit >= quil::kNoUnit && unit <= quil::kHours && unit != 0 && unit != 6, "unknown unit code");
        start = end + 1;
    }
}

std::string call(std::int32_t (*handler)(long, char**, char**), char** parameter) {
    char** result = quil::NewFHandle(0);
    require(handler(2, parameter, result) == 0, "handler failed");
    std::string answer(quil::FHandleText(result));
    quil::DisposeAndClearFHandle(&result);
    return answer;
}

void checkAnswers(const std::string& distance, const std::string& points, std::int16_t unit) {
    if (isError(points)) {
        require(distance == points, "one function rejects what the other accepts");
        return;
    }
    require(std::count(points.begin(), points.end(), '\r') == 26 && points.back() == '\r', "not 26 lines");
    for (std::size_t start = 0, line = 0; start < points.size(); ++line) {
        const std::size_t end = points.find('\r', start);
        const std::string_view text = std::string_view(points).substr(start, end - start);
        const std::size_t comma = text.find(',');
        require((comma == std::string_view::npos) == (line == 0), "comma misplaced");
        require(isNumber(text.substr(0, comma)) && (line == 0 || isNumber(text.substr(comma + 1))), "not a number");
        start = end + 1;
    }
    const bool inMiles = unit == quil::kMiles;
    if (!inMiles && unit != quil::kKilometers) {
        require(distance.empty(), "a distance without a unit");
    } else {
        require(isNumber(distance) || distance == "< .1" || distance == (inMiles ? "> 10" : "> 16"), "unknown answer");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quil::gNoUserInterface = 1;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string text(bytes.c_str());
    checkFields(text);

    char** parameter = quil::NewFHandle(0);
    require(quil::SetResultsHandleText(parameter, text) == 0, "no memory");
    if (size % 2 == 0) {
        quil::EnsureHandleIsNullTerminated(parameter);
    }
    const std::string distance = call(quil::VSTACalculatePlumeDistance, parameter);
    const std::string points = call(quil::VSTAGetPlumePoints, parameter);
    const std::string read = text.substr(0, quil::kScreeningParameterSize - 1);
    checkAnswers(distance, points, quil::ParseScreeningInputs(read.c_str()).distanceUnit);
    quil::DisposeAndClearFHandle(&parameter);
    return 0;
}
