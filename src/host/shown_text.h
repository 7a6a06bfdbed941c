// Bytes that people look at.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Text for a terminal: control characters and what is not UTF-8 as \xHH, and '\' doubled where there are any.
std::string shown(std::string_view bytes);

// The same where `stream` is a terminal; elsewhere every byte stays, for other programs.
std::string shownOn(int stream, std::string_view bytes);

}  // namespace host
