#include "screening/checks.h"

#include "screening/model.h"
#include "util/text.h"

namespace quil {

namespace {

constexpr std::uint8_t kNotCorrectable = 0;
constexpr std::uint8_t kCorrectable = 1;

std::int32_t reject(MessageBuffer& message, std::uint8_t* flag, std::uint8_t value, const char* text) {
    copyInto(message, text);
    *flag = value;
    return 1;
}

bool isMissing(double number) {
    return Equal(number, kMissingNumber);
}
bool isInvalid(double number) {
    return Equal(number, kInvalidNumber);
}

// A number that must be above zero.
std::int32_t checkPositive(double number, MessageBuffer& message, std::uint8_t* flag, std::uint8_t value,
                           const char* missingText, const char* invalidText) {
    if (isMissing(number)) {
        return reject(message, flag, value, missingText);
    }
    if (isInvalid(number) || number <= 0.0) {
        return reject(message, flag, value, invalidText);
    }
    return 0;
}

struct OrderedCheck {
    ScreeningCheck* check;
    std::int16_t code;
};

// In the order in which they run. The codes 1 and 17 are not used.
constexpr OrderedCheck kChecks[] = {
    {checkLOC, 2},         {checkphy_state, 3},
    {checkopen_urban, 4},  {checkwind_speed_unit, 6},
    {checkwind_speed, 5},  {checkstab_class, 10},
    {checkrel_duratn, 16}, {checkrel_quant_unit, 8},
    {checkrel_quant, 7},   {checkrel_quant_concentration, 9},
    {checksol_storge, 11}, {checklfm, 15},
    {checkliq_storge, 12}, {checklfa, 13},
    {checklfb, 14},        {checkdike_area_unit, 19},
    {checkdike_area, 18},
};

}  // namespace

double CalculatePlumeDistance(const ScreeningInputs& inputs, MessageBuffer& message, std::int16_t* errorCode,
                              std::uint8_t* userCorrectable) {
    *errorCode = 0;
    *userCorrectable = 0;
    message[0] = 0;
    for (const OrderedCheck& row : kChecks) {
        if (row.check(inputs, message, userCorrectable) != 0) {
            *errorCode = row.code;
            return -1.0;
        }
    }
    return calculate(inputs);
}

std::int32_t checkLOC(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.screening != 0) {
        return checkPositive(
            inputs.levelOfConcern, message, flag, kNotCorrectable,
            "Missing level of concern in this substance's chemical record. Unable to calculate radius.",
            "Invalid level of concern in this substance's chemical record. Unable to calculate radius.");
    }
    return checkPositive(
        inputs.levelOfConcern, message, flag, kCorrectable, "Please enter a level of concern (gm/m3).",
        "This is not a valid level of concern; please enter a new number (must be greater than zero).");
}

std::int32_t checkphy_state(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    const bool screening = inputs.screening != 0;
    switch (inputs.physicalState) {
        case 'G':
        case 'L':
        case 'S':
            return 0;
        case 0:
            return reject(message, flag, kNotCorrectable,
                          screening ? "Missing physical state in this substance's chemical record. Unable to calculate "
                                      "radius."
                                    : "Please specify physical state.");
        default:
            return reject(message, flag, kNotCorrectable,
                          screening ? "Invalid physical state in this substance's chemical record. Unable to calculate "
                                      "radius."
                                    : "Programmer Error: invalid physical state.");
    }
}

std::int32_t checkopen_urban(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    const char terrain = inputs.terrain;
    if (inputs.screening != 0) {
        return terrain == 'O' ? 0
                              : reject(message, flag, kNotCorrectable,
                                       "Programmer Error: Open topography is required under Screenings.");
    }
    if (terrain == 0) {
        return reject(message, flag, kCorrectable, "Please specify terrain (open or urban).");
    }
    if (terrain != 'O' && terrain != 'U') {
        return reject(message, flag, kCorrectable, "Programmer Error: invalid terrain.");
    }
    return 0;
}

std::int32_t checkwind_speed_unit(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    return inputs.windUnit == kUnknownUnit
               ? reject(message, flag, kNotCorrectable, "Programmer Error: invalid wind speed units.")
               : 0;
}

std::int32_t checkwind_speed(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    const double speed = inputs.windSpeed;
    const std::int16_t unit = inputs.windUnit;
    if (inputs.screening != 0) {  // deliberately any speed in any other unit
        if (unit == kMilesPerHour && !Equal(speed, 3.35)) {
            return reject(message, flag, kNotCorrectable,
                          "Programmer Error: Wind speed must be 3.35 mph for screenings.");
        }
        if (unit == kMetersPerSecond && !Equal(speed, 1.5)) {
            return reject(message, flag, kNotCorrectable,
                          "Programmer Error: Wind speed must be 1.5 mps for screenings.");
        }
        return 0;
    }
    if (isMissing(speed)) {
        return reject(message, flag, kCorrectable, "Please enter a wind speed.");
    }
    if (isInvalid(speed)) {
        return reject(message, flag, kCorrectable, "Wind speed invalid; please enter a new number.");
    }
    if (unit == kMilesPerHour && (speed < 2.3 || speed > 134.0)) {
        return reject(message, flag, kCorrectable,
                      "Speed must be between 2.3 and 134 miles per hour. Please modify your value.");
    }
    if (unit == kMetersPerSecond && (speed < 1.0 || speed > 60.0)) {
        return reject(message, flag, kCorrectable,
                      "Speed must be between 1 and 60 meters per second. Please modify your value.");
    }
    return 0;
}

std::int32_t checkstab_class(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    const char stability = inputs.stabilityClass;
    if (inputs.screening != 0) {
        return stability == 'F' ? 0
                                : reject(message, flag, kNotCorrectable,
                                         "Programmer Error: Stability class must be F for screenings.");
    }
    if (stability < 'A' || stability > 'F') {
        return reject(message, flag, kCorrectable, "Programmer Error: invalid stability class.");
    }
    // Deliberately every unit but metres per second, an empty one too: the model itself converts miles per hour alone.
    const double speed = inputs.windUnit == kMetersPerSecond ? inputs.windSpeed : inputs.windSpeed * 0.447;
    if (speed < 2.0) {
        if (stability == 'C') {
            return reject(message, flag, kCorrectable,
                          "Stability class must be A, B, D, E, or F for this wind speed. Please choose one of these "
                          "five classes.");
        }
    } else if (speed > 5.0) {
        if (stability != 'C' && stability != 'D') {  // the two blanks before C belong to the text
            return reject(message, flag, kCorrectable,
                          "Stability class must be  C or D for this wind speed. Please choose either of these "
                          "classes.");
        }
    } else if (speed > 3.0 && (stability == 'A' || stability == 'F')) {
        return reject(message, flag, kCorrectable,
                      "Stability class must be B, C, D, or E for this wind speed. Please choose one of these four "
                      "classes.");
    }
    return 0;
}

std::int32_t checkrel_duratn(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'G' && !(inputs.physicalState == 'S' && inputs.solidForm != 'M')) {
        return 0;
    }
    if (inputs.screening != 0) {  // deliberately whatever the unit
        return Equal(inputs.duration, 10.0) ? 0
                                            : reject(message, flag, kNotCorrectable,
                                                     "Programmer Error: Duration must be 10 minutes for screenings.");
    }
    if (checkPositive(inputs.duration, message, flag, kCorrectable, "Please enter a release duration.",
                      "Release duration invalid; please enter a new number (must be greater than zero).") != 0) {
        return 1;
    }
    if (!isInteger(inputs.duration)) {
        return reject(message, flag, kCorrectable, "Programmer Error: release duration must be integer.");
    }
    return 0;
}

std::int32_t checkrel_quant_unit(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    return inputs.amountUnit == kUnknownUnit
               ? reject(message, flag, kNotCorrectable, "Programmer Error: Invalid units for max quantity.")
               : 0;
}

std::int32_t checkrel_quant(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    return checkPositive(inputs.amount, message, flag, kCorrectable, "Please enter the amount released.",
                         "Amount released invalid; please enter a new number (must be greater than zero).");
}

std::int32_t checkrel_quant_concentration(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    const double percent = inputs.concentration;
    if (isMissing(percent)) {
        return reject(message, flag, kCorrectable, "Please enter a concentration (in weight percent).");
    }
    if (isInvalid(percent)) {
        return reject(message, flag, kCorrectable,
                      "Concentration invalid; please enter a new number (in weight percent).");
    }
    if (percent < 0.0 || percent > 100.0) {
        return reject(message, flag, kCorrectable,
                      "Please enter a concentration (weight percent) value between 0 and 100.");
    }
    return 0;
}

std::int32_t checksol_storge(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'S') {
        return 0;
    }
    switch (inputs.solidForm) {
        case 'P':
        case 'S':
        case 'M':
            return 0;
        case 0:
            return reject(message, flag, kCorrectable, "Please specify the form of this solid.");
        default:  // "OTHER" among them
            return reject(message, flag, kCorrectable, "Programmer Error: invalid solid form.");
    }
}

std::int32_t checklfm(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'S' || inputs.solidForm != 'M') {
        return 0;
    }
    return checkPositive(
        inputs.liquidFactorMolten, message, flag, kNotCorrectable,
        "Missing liquid factor molten in this substance's chemical record. Unable to calculate radius.",
        "Invalid liquid factor molten in this substance's chemical record. Unable to calculate radius.");
}

std::int32_t checkliq_storge(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'L') {
        return 0;
    }
    switch (inputs.liquidTemperature) {
        case 'A':
        case 'B':
            return 0;
        case 0:
            return reject(message, flag, kCorrectable,
                          "Please indicate whether this liquid is at ambient or near boiling temperature.");
        default:
            return reject(message, flag, kCorrectable, "Programmer Error: invalid liquid form.");
    }
}

std::int32_t checklfa(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'L' || inputs.liquidTemperature != 'A') {
        return 0;
    }
    return checkPositive(
        inputs.liquidFactorAmbient, message, flag, kNotCorrectable,
        "Missing liquid factor ambient in this substance's chemical record. Unable to calculate radius.",
        "Invalid liquid factor ambient in this substance's chemical record. Unable to calculate radius.");
}

std::int32_t checklfb(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    if (inputs.physicalState != 'L' || inputs.liquidTemperature != 'B') {
        return 0;
    }
    return checkPositive(
        inputs.liquidFactorBoiling, message, flag, kNotCorrectable,
        "Missing liquid factor boiling in this substance's chemical record. Unable to calculate radius.",
        "Invalid liquid factor boiling in this substance's chemical record. Unable to calculate radius.");
}

std::int32_t checkdike_area_unit(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    // Deliberately any state with the form M(olten), a gas too, where the area itself is checked for liquids alone.
    if (inputs.physicalState != 'L' && inputs.solidForm != 'M') {
        return 0;
    }
    return inputs.dikeAreaUnit == kUnknownUnit
               ? reject(message, flag, kNotCorrectable, "Programmer Error: Invalid units for diked area.")
               : 0;
}

std::int32_t checkdike_area(const ScreeningInputs& inputs, MessageBuffer& message, std::uint8_t* flag) {
    // Deliberately the liquid's temperature, which is never M: a molten solid's area reaches the model unchecked.
    if (inputs.physicalState != 'L' && inputs.liquidTemperature != 'M') {
        return 0;
    }
    if (!isMissing(inputs.dikeArea) && (isInvalid(inputs.dikeArea) || inputs.dikeArea < 0.0)) {
        return reject(message, flag, kNotCorrectable, "Invalid diked area value. Please enter a new number.");
    }
    return 0;
}

}  // namespace quil
