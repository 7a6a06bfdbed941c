// Starting applications.
#pragma once

#include <string>

#include "platform/types.h"

namespace platform {

// The executable that stands for an application: the file itself, or the one inside an application folder
// (NAME.app/Contents/Linux/NAME, .../MacOS/NAME, NAME.app/NAME). Empty: there is none.
std::string executableOf(const std::string& path);

// Runs an executable on its own: it belongs to no terminal, reads nothing, and lives on when this process ends.
// permErr, fnfErr and the like when it cannot be run.
Status startDetached(const std::string& executable);

// The bus name of the service that this file declares, or that starts this executable. Empty: none does.
std::string serviceOf(const std::string& path);

}  // namespace platform
