// The calculator's two script functions: how far a release reaches, and the outline of the zone that it threatens.
//
// Both take the same twenty fields (see inputs.h) and answer a rejected scenario with "ERROR ", the check's code, and
// " TRUE" or " FALSE" for whether the user can correct it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "screening/inputs.h"

namespace quil {

inline constexpr std::size_t kDistanceResultSize = 256;
inline constexpr std::size_t kScreeningParameterSize = 320;  // a parameter is cut at 319 bytes

// The distance in miles or kilometres with one decimal, "< .1", or "> 10" (miles) or "> 16" (kilometres), the model's
// range of validity; or the error text. A value that is not finite stands as it comes. The message is the rejecting
// check's; a distance unit other than miles and kilometres leaves the result empty and has a message of its own.
void GetPlumeDistanceStrOrErrorStr(const char* parameter, char (&result)[kDistanceResultSize], MessageBuffer& message);

// The distance in metres, then 25 lines "x,y" of distance downwind and half-width across, each with one decimal and
// ended by a CR; or the error text. The message as above.
void GetPlumePoints(const char* parameter, std::string& result, MessageBuffer& message);

// Script functions. Shows the message to the user.
std::int32_t VSTACalculatePlumeDistance(long funcNum, char** paramHandle, char** resultHandle);
// Deliberately never shows the message.
std::int32_t VSTAGetPlumePoints(long funcNum, char** paramHandle, char** resultHandle);

}  // namespace quil
