// Relative paths: resolved against a base directory that a reference file tells, else against the folder of the host
// application.
//
// Paths are classic, at most 255 bytes; one that begins with ':' or '\' is relative, and each further ':' at its start
// goes up one folder. Every `out` holds 256 bytes and may not be the input.
#pragma once

#include <cstdint>

namespace quil {

// Each writes the full path to `out` and returns it; an absolute path stays as it is. Whether there is such a file does
// not matter. Going up past the volume leaves the volume's name alone behind, a longer result is cut at 255 bytes.
char* ResolvePathRelativeToApplication(const char* path, char* out);
char* ResolvePathRelativeToBaseDirectory(const char* path, char* out);

// Finds the base directory under which the reference file exists: the application's folder, the present base
// directory, or one that ":BaseDirectoryList.txt" beside the application lists. Null or empty: back to the
// application's folder. 0; -1 when no directory has the file, -2 when several listed ones have; both are reported to
// the user.
std::int32_t DetermineBaseDirectoryFromTheReferenceFile(const char* referenceFile);

// Determines the base directory and resolves the path against it. The status of the determination; `out` is untouched
// unless that is 0. The flag means nothing.
std::int32_t ResolvePossiblePartialPath(const char* path, const char* referenceFile, bool flag, char* out);

// Script functions.
std::int32_t GLN1ResolveRelativePath(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t GLN1SetStartupDocument(long funcNum, char** paramHandle, char** resultHandle);

// Forgets the base directory.
void ResetBaseDirectory();

}  // namespace quil
