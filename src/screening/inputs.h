// Inputs of the hazard screening calculator: one release scenario, read from a text of twenty fields separated by '|'.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quil {

inline constexpr std::size_t kFieldSize = 64;     // a field keeps at most 63 characters
inline constexpr std::size_t kMessageSize = 320;  // buffer of a check's message
using MessageBuffer = char[kMessageSize];

// What a number field holds when it is empty, or not a well-formed number. Compare with Equal.
inline constexpr double kMissingNumber = -99988.9988;
inline constexpr double kInvalidNumber = -99999.9999;

// Unit codes. One list serves all fields, so every field takes every keyword. 6 is left free deliberately.
inline constexpr std::int16_t kSquareFeet = 1;
inline constexpr std::int16_t kSquareMeters = 2;
inline constexpr std::int16_t kPounds = 3;
inline constexpr std::int16_t kKilograms = 4;
inline constexpr std::int16_t kMilesPerHour = 5;
inline constexpr std::int16_t kMetersPerSecond = 7;
inline constexpr std::int16_t kMiles = 8;
inline constexpr std::int16_t kKilometers = 9;
inline constexpr std::int16_t kMinutes = 10;
inline constexpr std::int16_t kHours = 11;
inline constexpr std::int16_t kUnknownUnit = -1;
inline constexpr std::int16_t kNoUnit = -2;

// One scenario, in the order of its fields. It travels as one record, so that two numbers cannot be swapped unnoticed;
// set the fields by name.
struct ScreeningInputs {
    std::uint8_t screening = 0;              // 1: the standard worst case is required
    double levelOfConcern = kMissingNumber;  // grams per cubic metre
    char physicalState = 0;                  // G(as), L(iquid), S(olid); 0 none
    char terrain = 0;                        // O(pen), U(rban); 0 none
    double windSpeed = kMissingNumber;       // in windUnit
    std::int16_t windUnit = kNoUnit;
    double amount = kMissingNumber;  // released, in amountUnit
    std::int16_t amountUnit = kNoUnit;
    double concentration = kMissingNumber;  // weight percent
    char stabilityClass = 0;                // A to F
    char solidForm = 0;                     // S(olution), P(owder), M(olten), O(ther); 0 none
    char liquidTemperature = 0;             // A(mbient), B(oiling); 0 none
    double liquidFactorAmbient = kMissingNumber;
    double liquidFactorBoiling = kMissingNumber;
    double liquidFactorMolten = kMissingNumber;
    double duration = kMissingNumber;  // in durationUnit
    std::int16_t durationUnit = kNoUnit;
    double dikeArea = kMissingNumber;  // in dikeAreaUnit; missing: no dike
    std::int16_t dikeAreaUnit = kNoUnit;
    std::int16_t distanceUnit = kNoUnit;  // of the answer
};

// Reads the twenty fields. Never fails: absent fields are missing, and overlong ones are cut.
ScreeningInputs ParseScreeningInputs(const char* parameter);

// Copies the field at `src`, up to the next '|' or the end, into dst: at most size - 1 characters and a terminator; the
// rest of a longer field is skipped. Returns the start of the next field, or the end of the text.
const char* GetParameter(const char* src, char* dst, std::size_t size);

// The number, kMissingNumber for an empty text, kInvalidNumber unless it is digits with at most one '.' and a '-' at
// most at the front. "-" and "." are 0. The process's locale plays no part.
double ParamStrToDouble(const char* text);

// The unit's code, kNoUnit for an empty text, kUnknownUnit for any other. Upper-cases the caller's text.
std::int16_t ParamStrToUnits(char* text);

// Whether the text holds "SCREEN" in any letter case. Upper-cases the caller's text.
bool IsScreening(char* text);

char my_toupper(char ch);  // 'a' to 'z' only

// Writes the value with `places` (0 to 9) decimals, rounded and with names for infinities and not-a-number as printf's
// "%.1f" does in the C locale; cut at the size of dst less one, and terminated.
void NumTofString(double value, std::span<char> dst, std::int16_t places);

bool Equal(double a, double b);  // within 1e-11
bool isInteger(double x);        // whole, and within 32 bits

}  // namespace quil
