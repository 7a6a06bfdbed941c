// The dispatch table: every script function that QUIL_External reaches, in dispatch order, with its help.
//
// One row per function. Lookup, the bundle's function list, the command line's help and the reference document are all
// made from these rows. The rows stand in one file per module; their order is that of the modules GLN1, VSTA, MENU,
// HBT.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quil {

// A script-function handler. `funcNum` is the id of the calling host function (2). `paramHandle` holds the parameter as
// a null-terminated UTF-8 text, or is empty; its size is a capacity. `resultHandle` is empty on entry and takes the
// answer, UTF-8 or Mac Roman, terminated or bare. The returned status is for direct callers; the dispatcher ignores it.
using Handler = std::int32_t (*)(long funcNum, char** paramHandle, char** resultHandle);

struct Row {
    const char* name;
    Handler handler;
    const char* module;            // "GLN1", "VSTA", "MENU" or "HBT"
    const char* summary;           // one sentence
    const char* parameter;         // shape of the parameter, "none" or "ignored"
    const char* result;            // what comes back
    const char* errors;            // error texts and alerts, or "none"
    const char* exampleParameter;  // a call that works in any state ...
    const char* exampleResult;     // ... and its result; null when it differs from call to call
};

// The rows of a module, in dispatch order.
std::span<const Row> GLN1Rows();
std::span<const Row> GLN1PartnerRows();  // the second half of GLN1
std::span<const Row> VSTARows();
std::span<const Row> MENURows();
std::span<const Row> HBTRows();

// All rows in dispatch order.
std::span<const Row* const> DispatchTable();
// The row of exactly this name, or null.
const Row* FindRow(std::string_view name);

}  // namespace quil
