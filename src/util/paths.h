// Classic paths and file specifications.
#pragma once

#include <string_view>

#include "platform/files.h"

namespace quil {

using platform::FSSpec;
using OSErr = platform::Status;

OSErr GetFSSpecFromFullPath(const char* path, FSSpec* spec);
bool FileExists(const char* path);  // folders count
// Full path of a folder with closing ':', length-prefixed in `out` (256 bytes).
OSErr GetClassicPathWithDelimiterAsPStringFromDirID(long dirID, short vRefNum, char* out);
// Path of the parent folder, ':', name; `out` holds 256 bytes.
char* GetFullPathFromFSSpec(const FSSpec& spec, char* out);
// POSIX path of a classic path, at most outSize - 1 bytes; a file that does not exist is created empty (creator 'MPW ',
// type 'TEXT'), for only an existing file has one.
OSErr strcpyFileSystemRepresentationFromClassicPath(char* out, const char* classicPath, long outSize);

}  // namespace quil
