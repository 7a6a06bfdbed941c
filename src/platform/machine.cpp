#include "platform/machine.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace platform {

static Machine* sMachine = nullptr;

Machine* installMachine(Machine* machine) {
    return std::exchange(sMachine, machine);
}

bool hasMachine() {
    return sMachine != nullptr;
}

Machine& machine() {
    if (sMachine == nullptr) {
        std::fputs("quil: no machine is installed; the program that loads the plug-in must install one first\n",
                   stderr);
        std::abort();
    }
    return *sMachine;
}

}  // namespace platform
