// How `quil desk` begins and ends.
#pragma once

#include "host/desk_command.h"

namespace host::desktop {

// Shows the solution until its user ends it. A desk that shows the same solution already comes to the front instead.
int run(Context& context, DeskOptions& options);

// Writes pictures of the windows as PNG files into `folder` and ends.
class Desk;
int runScenes(Desk& desk, const std::string& folder);

}  // namespace host::desktop
