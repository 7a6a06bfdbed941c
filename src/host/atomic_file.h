// Output files that are written whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Puts `content` into the file `path`: into a temporary beside it, then on the disk, then in its place, so that a
// reader sees the old file or the new one and nothing between. Permissions of an existing file stay, a symbolic link is
// followed, a device or pipe is written to directly. Throws HostError that names the file and the reason; then the file
// is as it was and no temporary is left.
void writeFileWhole(const std::string& path, std::string_view content);

}  // namespace host
