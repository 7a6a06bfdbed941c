// The header 'name|' or 'name|NODUPES|' in front of a parameter.
#include <algorithm>
#include <string_view>

#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/text.h"

namespace quil {

static constexpr std::size_t kLongestHeader = 255;  // the header is looked for in so many bytes

std::int32_t GetAndStripNameAndDupes(char** handle, char* name, unsigned char* noDupes) {
    static constexpr std::string_view kNoDupes = "NODUPES";
    name[0] = 0;
    *noDupes = 0;
    if (handle == nullptr) {
        return -1;
    }
    const std::string_view text = FHandleText(handle);
    const std::string_view start = text.substr(0, kLongestHeader);
    const std::size_t bar = std::min(start.find('|'), start.size());
    my_strncpy(name, start.substr(0, bar), kLongestHeader + 1);

    // A bar is taken off when there is one: a name that fills the whole 255 bytes loses nothing of what follows.
    std::string_view rest = text.substr(bar);
    const auto dropBar = [&rest] {
        if (!rest.empty() && rest.front() == '|') {
            rest.remove_prefix(1);
        }
    };
    dropBar();
    if (bar < start.size()) {
        const std::string_view second = start.substr(bar + 1);
        if (second.substr(0, second.find('|')) == kNoDupes) {
            *noDupes = 1;
            rest.remove_prefix(kNoDupes.size());
            dropBar();
        }
    }
    const auto length = static_cast<long>(rest.size());
    BlockMove(rest.data(), *handle, length);
    const std::int32_t error = SetFHandleSize(handle, static_cast<unsigned long>(length) + 1);
    if (error == 0) {
        (*handle)[length] = 0;
    }
    return error;
}

}  // namespace quil
