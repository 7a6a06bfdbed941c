// Decimal numbers in script parameters.
#pragma once

#include <cstdint>

namespace quil {

// The number that a text begins with, as a 32-bit atoi reads it: leading white space, a sign, digits; 0 without any.
// Too large a number gives the nearest that 32 bits hold.
std::int32_t DecimalPrefix(const char* text);

}  // namespace quil
