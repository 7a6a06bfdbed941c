#include "fmx/fmx.h"

#include <algorithm>
#include <new>
#include <utility>

#include "fmx/host.h"

namespace fmx {

static FunctionRegistry* sRegistry = nullptr;

FunctionRegistry* installFunctionRegistry(FunctionRegistry* registry) {
    return std::exchange(sRegistry, registry);
}

errcode Evaluate(ExternalFunction function, short funcId, const ExprEnv& env, const DataVect& params,
                 Data& result) noexcept {
    try {
        return function(funcId, env, params, result);
    } catch (const _fmxcpt& error) {
        return error.code;
    } catch (const std::bad_alloc&) {
        return kMemoryError;
    } catch (...) {
        return kNoHostError;
    }
}

errcode Data::SetAsText(const Text& text, const Locale& locale, NativeType type) {
    try {
        text_ = text;
    } catch (const std::bad_alloc&) {
        return kMemoryError;
    }
    locale_ = locale;
    type_ = type;
    return kNoError;
}

const Data& DataVect::At(std::uint32_t index) const {
    if (index >= items_.size()) {
        throw _fmxcpt(kParameterError);
    }
    return items_[index];
}

errcode ExprEnv::RegisterExternalFunction(const QuadChar& pluginId, short funcId, const Text& name,
                                          const Text& prototype, short minParams, short maxParams, std::uint32_t flags,
                                          ExternalFunction function) {
    if (sRegistry == nullptr) {
        return kNoHostError;
    }
    return sRegistry->registerFunction(pluginId, funcId, name, prototype, minParams, maxParams, flags, function);
}

errcode ExprEnv::UnRegisterExternalFunction(const QuadChar& pluginId, short funcId) {
    return sRegistry == nullptr ? kNoHostError : sRegistry->unregisterFunction(pluginId, funcId);
}

}  // namespace fmx
