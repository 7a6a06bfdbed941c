// Script functions called as the dispatcher calls them, one handler at a time.
#pragma once

#include <string>
#include <string_view>

#include "frame/dispatch_table.h"
#include "support/machine_fixture.h"

namespace support {

// The answer of a handler: its result up to the first NUL.
std::string callHandler(quil::Handler handler, std::string_view parameter);

// The fixture of tests that run script functions on files of the volume "Disk".
class ScriptFixture : public MachineFixture {
  protected:
    static std::string script(quil::Handler handler, std::string_view parameter) {
        return callHandler(handler, parameter);
    }
    std::vector<std::string> alerts() { return takeMessages(); }
    platform::Effects effects() { return machine().takeEffects(); }
};

}  // namespace support
