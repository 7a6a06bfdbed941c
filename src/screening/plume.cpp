#include "screening/plume.h"

#include <iterator>
#include <new>
#include <string_view>

#include "screening/checks.h"
#include "screening/model.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/text.h"

namespace quil {

namespace {

constexpr double kMetersPerMile = 1609.0;  // deliberately whole
constexpr double kMetersPerKilometer = 1000.0;
constexpr int kFootprintPoints = 25;

using ErrorText = char[32];

// "ERROR ", the code, and whether the user can correct the input.
void writeErrorText(std::int16_t errorCode, std::uint8_t userCorrectable, ErrorText& text) {
    char code[16];
    mylong2str(errorCode, code);
    char* end = text;
    for (const std::string_view part : {std::string_view("ERROR "), std::string_view(code),
                                        std::string_view(userCorrectable != 0 ? " TRUE" : " FALSE")}) {
        end += part.copy(end, static_cast<std::size_t>(std::end(text) - 1 - end));
    }
    *end = 0;
}

void appendNumber(std::string& text, double value) {
    char digits[kMessageSize];
    NumTofString(value, digits, 1);
    text += digits;
}

}  // namespace

void GetPlumeDistanceStrOrErrorStr(const char* parameter, char (&result)[kDistanceResultSize], MessageBuffer& message) {
    result[0] = 0;
    message[0] = 0;
    const ScreeningInputs inputs = ParseScreeningInputs(parameter);
    std::int16_t errorCode = 0;
    std::uint8_t userCorrectable = 0;
    const double meters = CalculatePlumeDistance(inputs, message, &errorCode, &userCorrectable);
    if (errorCode > 0) {
        ErrorText text;
        writeErrorText(errorCode, userCorrectable, text);
        copyInto(result, text);
        return;
    }
    const bool inMiles = inputs.distanceUnit == kMiles;
    if (!inMiles && inputs.distanceUnit != kKilometers) {
        copyInto(message, "Programmer error in GetPlumeDistanceStrOrErrorStr");
        return;
    }
    const double distance = meters / (inMiles ? kMetersPerMile : kMetersPerKilometer);
    if (distance < 0.1) {
        copyInto(result, "< .1");
    } else if (distance > (inMiles ? 10.0 : 16.0)) {
        copyInto(result, inMiles ? "> 10" : "> 16");
    } else {
        NumTofString(distance, result, 1);
    }
}

void GetPlumePoints(const char* parameter, std::string& result, MessageBuffer& message) {
    result.clear();
    message[0] = 0;
    std::int16_t errorCode = 0;
    std::uint8_t userCorrectable = 0;
    const double distance =
        CalculatePlumeDistance(ParseScreeningInputs(parameter), message, &errorCode, &userCorrectable);
    if (errorCode > 0) {
        ErrorText text;
        writeErrorText(errorCode, userCorrectable, text);
        result = text;
        return;
    }
    appendNumber(result, distance);
    result += '\r';
    const double step = distance / kFootprintPoints;
    double x = step;  // a running sum, so the last point may differ from the distance in the last bits
    for (int i = 0; i < kFootprintPoints; ++i) {
        appendNumber(result, x);
        result += ',';
        appendNumber(result, yDIST(x));
        result += '\r';
        x += step;
    }
}

std::int32_t VSTACalculatePlumeDistance(long funcNum, char** paramHandle, char** resultHandle) {
    char parameter[kScreeningParameterSize] = {};
    char result[kDistanceResultSize] = {};
    MessageBuffer message = {};
    strcpyFHandleToCStr(parameter, sizeof parameter, paramHandle);
    GetPlumeDistanceStrOrErrorStr(parameter, result, message);
    if (message[0] != 0) {
        ReportErrorMsgToUser(message);
    }
    const std::int32_t error = SetResultsHandle(resultHandle, result);
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

std::int32_t VSTAGetPlumePoints(long funcNum, char** paramHandle, char** resultHandle) {
    char parameter[kScreeningParameterSize] = {};
    MessageBuffer message = {};
    strcpyFHandleToCStr(parameter, sizeof parameter, paramHandle);
    std::int32_t error = 0;
    try {
        std::string result;
        GetPlumePoints(parameter, result, message);
        error = SetResultsHandleText(resultHandle, result);
    } catch (const std::bad_alloc&) {
        error = -108;
    }
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

}  // namespace quil
