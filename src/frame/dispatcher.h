// QUIL_External and QUIL_Version, the two functions that the host sees, and the way of texts between host and handlers.
#pragma once

#include "fmx/fmx.h"

namespace quil {

// Longest parameter or name that is converted, in UTF-16 units; a longer one reaches its handler as an empty text.
inline constexpr std::uint32_t kMaxParameterUnits = 6399999;

fmx::errcode QUIL_External(short funcId, const fmx::ExprEnv& env, const fmx::DataVect& params, fmx::Data& result);
fmx::errcode QUIL_Version(short funcId, const fmx::ExprEnv& env, const fmx::DataVect& params, fmx::Data& result);
// The version function with options: "", "long", "platform", "short", "autoupdate". Not registered with the host.
fmx::errcode PluginVersionByOption(short funcId, const fmx::ExprEnv& env, const fmx::DataVect& params,
                                   fmx::Data& result);

// Host text to a null-terminated text in the handle; empty and over-long texts, and want of memory, leave the handle as
// it is. The handle's size is the worst case (3n + 1 or n + 1 bytes), zero-filled.
void MyCopyParameterString_UTF8(char** handle, const fmx::Text& text);
void MyCopyParameterString_ASCII_Mac(char** handle, const fmx::Text& text);

}  // namespace quil
