// Names of items: between the classic and the POSIX form, and found on disk in any letter case.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace platform {

inline constexpr std::size_t maxClassicName = 255;

// '/' and ':' exchanged: the POSIX form of a classic name, and the other way round. Loses nothing.
std::string exchanged(std::string_view name);

// A name to compare others with, letter case aside (Unicode simple folding). Bytes that are not UTF-8 are Mac Roman.
class NameMatcher {
  public:
    explicit NameMatcher(std::string_view name);
    bool matches(std::string_view name) const;

  private:
    std::u32string folded_;
};

// Looks `name` (POSIX form) up in the folder `directory`: as it stands, then as Mac Roman when it is not UTF-8, then in
// any letter case, of several the first in byte order. Returns 0 with the name as the disk holds it and the item's own
// status (a link is not followed), ENOENT when the folder has no such item, ENOTDIR when there is no such folder, or
// another system error number.
int findItem(const std::string& directory, std::string_view name, std::string& found, struct stat& status);

}  // namespace platform
