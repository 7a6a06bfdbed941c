// The volumes that the options name, and classic paths of POSIX ones.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/linux_machine.h"

namespace platform {

// The volumes of the options, the system disk first, with absolute directories that have no closing '/': the root of
// the file system is the empty text.
std::vector<Volume> volumesOf(const LinuxOptions& options);

// Index of the volume of that name, as it stands or in any letter case; volumes.size() when there is none.
std::size_t volumeNamed(const std::vector<Volume>& volumes, std::string_view name);

// Where a POSIX path leads when "/Volumes/NAME/..." means the volume NAME, whose index becomes `volume`. Below it each
// component is looked up as it stands, then in any letter case; the last one need not exist. Other paths, and those of
// volumes that are not known, stay as they are, with volumes.size(). fnfErr for a way out of the volume, with an empty
// path; bdNamErr for a NUL; or the status of a folder that is missing or none, with the rest as it was written.
Status volumePath(const std::vector<Volume>& volumes, std::string_view posixPath, std::string& path,
                  std::size_t& volume);

// Classic path of the host's executable: that of the options, or of this process. Empty when no volume holds it.
std::string applicationOf(const LinuxOptions& options);

}  // namespace platform
