// Script functions with which a solution composes and sends messages and reads those that arrived.
#pragma once

#include <cstdint>

namespace quil {

// When these were last called, in ticks; kept for the record.
extern std::uint32_t gLastSetParameterCallTicks;
extern std::uint32_t gLastGetParameterCallTicks;
extern std::uint32_t gLastGetNextMessageCallTicks;

// Sets "VERS", "PATH" and, when there is one, "DOC " of an outgoing list from the globals. The first failure.
std::int32_t SetDocVersPathOutgoingMessageParameters(short selector);

std::int32_t GLN1SetSIGNPSIG(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1InitIAC(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1CloseIAC(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ClearOutgoingMessage(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetParameter(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1AppendToParameter(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SendMessageTo(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ClearIncomingMessage(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetNextMessage(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetParameter(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetParameterLatLong(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetParameterLST2(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetParameterLST2Line(long funcNum, char** paramHandle, char** resultHandle);

// Forgets the times.
void ResetMessageFunctions();

}  // namespace quil
