// Lists of IDs of any bytes: in whatever pieces a file is read, the IDs and their lines are those of a plain reading.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/id_list.h"
#include "host/plugin.h"
#include "platform/text.h"

namespace {

constexpr std::size_t kLongest = 7;
using IDs = std::vector<std::pair<std::string, std::size_t>>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool isGood(const std::string& id) {
    return id.size() <= kLongest && id.find('\0') == std::string::npos && platform::isUtf8(id);
}

// One byte after the other; none when an ID is not good.
std::optional<IDs> plainly(std::string_view text) {
    IDs ids;
    std::string id;
    std::size_t line = 1;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const bool ends = i == text.size() || text[i] == '\n' || text[i] == '\r';
        if (!ends) {
            id += text[i];
            continue;
        }
        if (!id.empty() && !isGood(id)) {
            return std::nullopt;
        }
        if (!id.empty()) {
            ids.emplace_back(std::exchange(id, ""), line);
        }
        if (i + 1 < text.size() && text[i] == '\r' && text[i + 1] == '\n') {
            ++i;
        }
        ++line;
    }
    return ids;
}

std::optional<IDs> inPieces(const std::string& path, std::size_t piece) {
    IDs ids;
    try {
        const host::IDList list(path, kLongest, piece);
        list.forEach([&ids](std::string_view id, std::size_t line) { ids.emplace_back(id, line); });
        require(ids.size() <= list.count());
    } catch (const host::HostError&) {
        return std::nullopt;
    }
    return ids;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 512) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    static const int sFile = ::memfd_create("list", MFD_CLOEXEC);
    require(sFile >= 0 && ::ftruncate(sFile, 0) == 0 &&
            ::pwrite(sFile, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(sFile);
    const std::optional<IDs> expected = plainly(text);
    require(inPieces(path, 2 * kLongest + 2 + data[0]) == expected);
    require(inPieces(path, host::IDList::kPiece) == expected);
    return 0;
}
