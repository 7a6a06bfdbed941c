// The host's side of the plug-in interface: what a program offers that loads plug-ins.
#pragma once

#include "fmx/fmx.h"

namespace fmx {

// Where ExprEnv's registrations go. Implemented by the host.
class FunctionRegistry {
  public:
    virtual ~FunctionRegistry() = default;
    virtual errcode registerFunction(const QuadChar& pluginId, short funcId, const Text& name, const Text& prototype,
                                     short minParams, short maxParams, std::uint32_t flags,
                                     ExternalFunction function) = 0;
    virtual errcode unregisterFunction(const QuadChar& pluginId, short funcId) = 0;
};

// Makes `registry` the one that registrations reach; null: none. Returns the one before.
FunctionRegistry* installFunctionRegistry(FunctionRegistry* registry);

// Calls a plug-in's function and turns everything that it raises into an error code.
errcode Evaluate(ExternalFunction function, short funcId, const ExprEnv& env, const DataVect& params,
                 Data& result) noexcept;

}  // namespace fmx
