// A plug-in for tests of the host, with answers that the real one does not give. The variable ODD_PLUGIN_RESULT is the
// result of its initialisation, 52 when it is not set.

#include <cstdlib>
#include <stdexcept>

#include "fmx/call_record.h"
#include "fmx/fmx.h"

namespace {

fmx::errcode raise(short funcId, const fmx::ExprEnv& /*env*/, const fmx::DataVect& /*params*/, fmx::Data& /*result*/) {
    if (funcId == 1) {
        throw fmx::_fmxcpt(-50);
    }
    throw std::runtime_error("not the interface's own");
}

// Its parameters joined by "+".
fmx::errcode join(short /*funcId*/, const fmx::ExprEnv& /*env*/, const fmx::DataVect& params, fmx::Data& result) {
    fmx::Text text;
    fmx::Text plus;
    plus.Assign("+");
    for (std::uint32_t i = 0; i < params.Size(); ++i) {
        if (i > 0) {
            text.AppendText(plus);
        }
        text.AppendText(params.AtAsText(i));
    }
    return result.SetAsText(text, fmx::Locale(), fmx::Data::NativeType::text);
}

fmx::errcode enlist(short id, const char* name, short min, short max, fmx::ExternalFunction function) {
    fmx::Text text;
    text.Assign(name);
    return fmx::ExprEnv::RegisterExternalFunction(fmx::QuadChar('O', 'D', 'D', ' '), id, text, text, min, max, 0xFF00,
                                                  function);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void FMExternCallProc(fmx::CallRecord* call) {
    if (call->selector == fmx::kCallInit) {
        const char* result = std::getenv("ODD_PLUGIN_RESULT");
        call->result = result == nullptr ? fmx::kExtensionVersion : std::atoi(result);
        enlist(1, "Odd_Raise", 0, 0, raise);
        enlist(2, "Odd_RaiseOther", 0, 0, raise);
        enlist(3, "Odd_Join", 1, 2, join);
        if (enlist(4, "Odd_JoinAny", 0, -1, join) != fmx::kNoError ||
            enlist(4, "Odd_Again", 0, -1, join) != fmx::kDuplicateError) {
            call->result = fmx::kDoNotEnable;
        }
    }
}
