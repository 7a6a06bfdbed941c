// The host application's path, name, folder and signature.
#pragma once

#include "platform/types.h"

namespace quil {

using platform::OSType;

// Each writes a classic path or name of at most 255 bytes to `out` (256 bytes) and returns it.
char* GetAppFullPathName(char* out);             // of the executable; asked of the machine once, then remembered
char* GetAppName(char* out);                     // the application's name, without what stands inside its package
char* GetAppFolderPathWithDelimiter(char* out);  // folder that holds the application (or its package), with ':'
OSType GetAppSignature();                        // 0 on failure

// Cuts a path into a package before ".app:" (any letter case).
void RemoveTheDotAppPartOfMacintoshApplicationPath(char* path);

// Forgets the remembered path.
void ResetAppPath();

}  // namespace quil
