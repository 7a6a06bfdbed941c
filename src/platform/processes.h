// Process Manager: the applications that run, launching them and bringing them to the front.
#pragma once

#include <cstdint>
#include <string>

#include "platform/files.h"
#include "platform/types.h"

namespace platform {

using ProcessSerialNumber = std::uint64_t;  // 0 is none
inline constexpr ProcessSerialNumber noProcess = 0;

struct ProcessInfo {
    OSType signature = 0;
    std::string name;
    FSSpec application;  // the application's file
};

class Processes {
  public:
    virtual ~Processes() = default;

    virtual Status current(ProcessSerialNumber& process) = 0;  // GetCurrentProcess: the host
    // GetNextProcess: the process after `process` (noProcess: the first); procNotFound at the end.
    virtual Status next(ProcessSerialNumber& process) = 0;
    virtual Status information(ProcessSerialNumber process, ProcessInfo& info) = 0;  // GetProcessInformation
    // The signature alone, for which no application's file has to be looked up.
    virtual Status signature(ProcessSerialNumber process, OSType& signature) {
        ProcessInfo info;
        const Status status = information(process, info);
        signature = info.signature;
        return status;
    }
    virtual std::string currentApplicationName() = 0;  // LMGetCurApName
    virtual Status launch(const FSSpec& application, std::uint16_t controlFlags, ProcessSerialNumber& process) = 0;
    virtual Status setFront(ProcessSerialNumber process) = 0;  // SetFrontProcess
};

}  // namespace platform
