#include "util/numbers.h"

#include <algorithm>
#include <limits>

namespace quil {

std::int32_t DecimalPrefix(const char* text) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    const bool negative = *text == '-';
    if (negative || *text == '+') {
        ++text;
    }
    static constexpr std::int64_t kBound = std::int64_t{1} << 32;
    std::int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = std::min(value * 10 + (*text - '0'), kBound);
    }
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(negative ? -value : value, Limits::min(), Limits::max()));
}

}  // namespace quil
