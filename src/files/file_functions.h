// Script functions on files: copy, test, delete, read a slice, write, list a folder, POSIX paths, choosers.
//
// Paths may be relative; a '|' and a reference file behind a path tell the base directory. A failure is a result text
// that begins with "Error".
#pragma once

#include <cstdint>

#include "platform/files.h"
#include "util/paths.h"

namespace quil {

// Copies the bytes from `start` (0 is the first) up to `end` to the present position of another fork. The machine's
// status; -1 when not even 5,000 bytes can be had for a buffer.
short TransferFileSection(short fromRef, short toRef, long start, long end);

// Reads `count` bytes from the one-based `start` on, fewer at the file's end, and makes them the result, up to the
// first NUL; behind the file's end the result stays as it is. 0, or the machine's status or -1 with an error text as
// result.
std::int32_t GetCharsFromFile(const char* path, long start, long count, char** result);

std::int32_t GLN1CopyFile(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1FileExists(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1DeleteFile(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1AskUserForFileNameToRead(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1AskUserForFileNameToWrite(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1ZipFiles(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1UnzipFiles(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1UnzipFilesBatchMode(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetCharsFromFile(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1WriteTextToFile(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetListOfFilesInFolder(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1FileSystemRepresentationFromClassicPath(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1WaitOneSecond(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1GetNameOfGlobalThatTriggeredScript(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1StopFileMakerFlashing(long funcNum, char** paramHandle, char** resultHandle);  // not dispatched

}  // namespace quil
