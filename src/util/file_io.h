// Whole files: reading into a byte handle, writing and appending, listing a folder.
#pragma once

#include <cstdint>
#include <string>

#include "platform/files.h"
#include "platform/resources.h"
#include "util/paths.h"

namespace quil {

// Writes `n` bytes: first by POSIX paths ("/Volumes/..." and "/Users...", every ':' a '/'; a path that begins with '/'
// is one itself), and where none can be opened by the File Manager, which gives the file type 'TEXT' and creator
// 'ttxt'. 0, a File Manager code, or 3 for a short write by POSIX; a failure is reported to the user with the path.
// (The name is spelled so.)
std::int32_t WriteBufferToFilePrimative(const char* path, const char* buf, unsigned long n, bool append);
std::int32_t WriteBufferToFile(const char* path, const char* buf, unsigned long n);   // replaces
std::int32_t AppendBufferToFile(const char* path, const char* buf, unsigned long n);  // adds at the end
std::int32_t WriteCStringToFile(const char* path, const char* text);                  // -1 for a null text

// Replaces a file's contents like WriteBufferToFile, but reports nothing.
OSErr WriteWholeFile(const char* path, const char* buf, unsigned long n);

// Whether an existing item is a folder.
bool IsFolder(const FSSpec& spec);

// The whole data fork and a NUL, in a handle that the caller disposes; null on failure.
char** ReadFileIntoTerminatedFHandle(const char* path, bool reportErrors);

// Appends the full paths, each with a CR, of the items in filePath's folder with filePath's extension; ".ZIP" and
// ".TVN" accept each other.
OSErr MakeListOfMatchingItemsInFolder(const char* filePath, char** out);

// A 'vers' resource of the bundle. The texts are length-prefixed, 256 bytes each.
OSErr GetVersionInfo(short resourceID, std::uint8_t (*numeric)[4], short* region, unsigned char* shortVersion,
                     unsigned char* longVersion);

}  // namespace quil
