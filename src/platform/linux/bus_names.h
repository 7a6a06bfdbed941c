// How signatures, codes and files are written on the message bus.
#pragma once

#include <string>
#include <string_view>

#include "platform/types.h"

namespace platform {

inline constexpr char partnerPrefix[] = "org.quil.Partner.";
inline constexpr char partnerInterface[] = "org.quil.Partner1";
inline constexpr char applicationInterface[] = "org.freedesktop.Application";

// The last part of a partner's bus name and of its object path: the signature itself when it is letters, digits and '_'
// and does not begin with a digit, else 'x' and its eight hexadecimal digits in lower case.
std::string partnerElement(OSType signature);
std::string partnerName(OSType signature);  // "org.quil.Partner.GLN1"
std::string partnerPath(OSType signature);  // "/org/quil/Partner/GLN1"
// The signature of a partner's bus name; false for any other name, also for one that writes its signature the other
// way.
bool signatureOfName(std::string_view name, OSType& signature);

// A code as UTF-8 of its four Mac Roman characters, and back. False unless the text is exactly four characters that
// Mac Roman has.
std::string textOfCode(OSType code);
bool codeOfText(std::string_view text, OSType& code);

// "file:///..." of an absolute path, and back. False for other URIs, and for paths with a NUL.
std::string uriOfPath(std::string_view path);
bool pathOfUri(std::string_view uri, std::string& path);

}  // namespace platform
