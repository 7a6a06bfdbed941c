// `quil desk`: a solution on the desktop. The windows are a program of their own, quil-desk, so that the other commands
// do not load them.
#pragma once

#include <string>

#include "host/commands.h"
#include "host/solution.h"

namespace host {

struct DeskOptions {
    SolutionOptions solution;
    std::string scenes;  // folder to write pictures of the windows to, and end
};

// Shows the solution until its user ends it; returns the exit status.
using Desktop = int (*)(Context& context, DeskOptions& options);

// Makes `quil desk` run in this program; without it the command becomes quil-desk.
void installDesktop(Desktop desktop);

}  // namespace host
