// The machine on Linux: real files, real clock, alerts and choosers in the terminal.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine.h"

namespace platform {

// A classic volume: its name (1 to 255 bytes, no ':') and the directory that it is.
struct Volume {
    std::string name;
    std::string directory;
};

struct LinuxOptions {
    std::vector<Volume> volumes;     // the first is the system disk; empty: `Linux` is `/`
    std::string application;         // classic path of the host's executable; empty: that of this process
    std::string applicationsFolder;  // classic path, closing ':' or not; empty: `Applications` in the home folder
    OSType signature = "FMP7"_4;     // the host's own
    std::function<void(const std::string&)> log;  // lines about messages that were dropped; empty: standard error
    bool asksUser = true;  // dialogs ask on standard input when that is a terminal; else they never ask
};

// Reads a volume table: "NAME=DIR" entries, in the form of QUIL_VOLUMES separated by newlines or ';'. Adds to
// `volumes`; on failure returns what is wrong with which entry (no '=', empty name, ':' in the name, not a directory, a
// name given twice), else the empty text.
std::string parseVolumes(std::string_view table, std::vector<Volume>& volumes);

// Files and folders as the options say.
std::unique_ptr<Files> makeLinuxFiles(const LinuxOptions& options);
std::unique_ptr<Machine> makeLinuxMachine(const LinuxOptions& options);

// Classic path of an absolute POSIX path on these volumes (the longest matching volume), '/' and ':' exchanged inside
// names; empty when no volume holds it.
std::string classicPathOf(const LinuxOptions& options, std::string_view posixPath);

}  // namespace platform
