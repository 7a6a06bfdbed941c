// A folder that goes with the process also where a signal ends it.
#pragma once

#include <string>

namespace host {

// Makes a folder whose path begins like `prefix`, and removes it with the files in it, but no folders, when SIGINT,
// SIGTERM, SIGHUP or SIGPIPE ends the process; a signal that is ignored stays so. One at a time. The path, or the empty
// text with errno set.
std::string makeSignalFolder(const std::string& prefix);
// The signals do as before.
void releaseSignalFolder();

}  // namespace host
