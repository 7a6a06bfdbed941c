// Plug-in bundles on disk: strings tables, string lists, versions and dialog layouts as readable files.
//
//     NAME.fmplugin/Contents/Linux/NAME.so
//     NAME.fmplugin/Contents/Resources/English.lproj/Localizable.strings     "key" = "value";
//     NAME.fmplugin/Contents/Resources/English.lproj/StringLists.strings     "list.entry" = "text";
//     NAME.fmplugin/Contents/Resources/English.lproj/Versions.strings        "id.numeric", "id.region", "id.short",
//     "id.long" NAME.fmplugin/Contents/Resources/English.lproj/Dialogs.strings         "id.bounds" = "t l b r"; "id.1"
//     = "button t l b r";
//
// A strings file is UTF-8 (a byte order mark is allowed): entries "key" = "value"; with the escapes \" \\ \n \r \t and
// \Uxxxx, comments /* ... */ and // .... Files larger than 4 MiB are refused.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/resources.h"

namespace platform {

using StringsTable = std::map<std::string, std::u16string, std::less<>>;

// Parses a strings file. On failure returns a message with the line number and leaves `table` empty; else the empty
// text.
std::string parseStrings(std::string_view text, StringsTable& table);

struct Bundle {
    std::string directory;
    std::map<std::string, StringsTable, std::less<>> tables;  // by file name without extension
    std::string problems;                                     // what could not be read, one line a file; empty: nothing
};

// Reads the bundle's strings files. A bundle without any is open all the same; a damaged file is left out and told in
// `problems`. Null, with `error` set, when the directory is missing or cannot be read.
std::unique_ptr<Bundle> openBundle(const std::string& directory, std::string& error);

std::unique_ptr<Resources> makeBundleResources();

}  // namespace platform
