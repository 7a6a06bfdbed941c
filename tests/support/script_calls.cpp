#include "support/script_calls.h"

#include "util/fhandle.h"

namespace support {

std::string callHandler(quil::Handler handler, std::string_view parameter) {
    char** parameterHandle = quil::NewFHandle(parameter.size() + 1);
    char** resultHandle = quil::NewFHandle(0);
    if (parameterHandle != nullptr) {
        parameter.copy(*parameterHandle, parameter.size());
    }
    handler(2, parameterHandle, resultHandle);
    std::string answer(quil::FHandleText(resultHandle));
    quil::DisposeAndClearFHandle(&parameterHandle);
    quil::DisposeAndClearFHandle(&resultHandle);
    return answer;
}

}  // namespace support
