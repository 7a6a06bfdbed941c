// Applications that run because the script says so, and the events between them.

#include <algorithm>
#include <limits>
#include <new>

#include "platform/scripted/scripted_parts.h"

namespace platform {
namespace {

constexpr ProcessSerialNumber kHostProcess = 1;
constexpr ProcessSerialNumber kFirstOther = 2;

std::string lastName(std::string_view classicPath) {
    const std::size_t colon = classicPath.rfind(':');
    return std::string(colon == std::string_view::npos ? classicPath : classicPath.substr(colon + 1));
}

// Classic names are equal in any case.
bool samePath(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [lower](char x, char y) { return lower(x) == lower(y); });
}

bool sameApplication(const RunningApplication& a, const RunningApplication& b) {
    return a.signature == b.signature && samePath(a.path, b.path);
}

bool contains(const std::vector<RunningApplication>& list, const RunningApplication& application) {
    return std::any_of(list.begin(), list.end(),
                       [&application](const RunningApplication& one) { return sameApplication(one, application); });
}

}  // namespace

bool ScriptedShared::isRunning(OSType signature) const {
    return signature == options.signature ||
           std::any_of(state.running.begin(), state.running.end(),
                       [signature](const RunningApplication& one) { return one.signature == signature; });
}

void ScriptedShared::passTime(std::uint32_t ticks) {
    std::erase_if(pending, [this, ticks](PendingLaunch& launch) {
        if (launch.ticksLeft > ticks) {
            launch.ticksLeft -= ticks;
            return false;
        }
        if (!contains(state.running, launch.application)) {
            state.running.push_back(launch.application);
        }
        return true;
    });
}

Status ScriptedProcesses::current(ProcessSerialNumber& process) {
    process = kHostProcess;
    return noErr;
}

Status ScriptedProcesses::next(ProcessSerialNumber& process) {
    if (process > shared_.state.running.size()) {
        process = noProcess;
        return procNotFound;
    }
    ++process;
    return noErr;
}

Status ScriptedProcesses::signature(ProcessSerialNumber process, OSType& signature) {
    if (process == kHostProcess) {
        signature = shared_.options.signature;
        return noErr;
    }
    if (process < kFirstOther || process - kFirstOther >= shared_.state.running.size()) {
        return procNotFound;
    }
    signature = shared_.state.running[process - kFirstOther].signature;
    return noErr;
}

Status ScriptedProcesses::information(ProcessSerialNumber process, ProcessInfo& info) {
    RunningApplication application{shared_.options.signature, shared_.options.application};
    if (const Status status = signature(process, application.signature); status != noErr) {
        return status;
    }
    if (process != kHostProcess) {
        application = shared_.state.running[process - kFirstOther];
    }
    info.signature = application.signature;
    info.name = lastName(application.path);
    info.application = FSSpec{};
    // An application whose file is not there runs all the same.
    static_cast<void>(shared_.files.makeSpec(0, 0, application.path, info.application));
    return noErr;
}

std::string ScriptedProcesses::currentApplicationName() try {
    return lastName(shared_.options.application);
} catch (const std::bad_alloc&) {
    return {};
}

// Full path of a file specification; empty when its folder is gone.
std::string ScriptedProcesses::classicPath(const FSSpec& spec) {
    std::string path(spec.nameView());
    std::int32_t dirID = spec.parID;
    while (dirID != fsRtParID) {
        CatalogItem folder;
        if (shared_.files.catalogItem(spec.vRefNum, dirID, -1, folder) != noErr) {
            return {};
        }
        path.insert(0, folder.name + ":");
        dirID = folder.parentID;
    }
    return path;
}

Status ScriptedProcesses::launch(const FSSpec& application, std::uint16_t /*controlFlags*/,
                                 ProcessSerialNumber& process) {
    process = noProcess;
    if (const Status fault = shared_.meetFault("launch"); fault != noErr) {
        return fault;
    }
    const std::string path = classicPath(application);
    auto& launches = shared_.state.launches;
    const auto found = std::find_if(launches.begin(), launches.end(),
                                    [&path](const auto& launch) { return samePath(launch.first, path); });
    if (found == launches.end()) {
        return fnfErr;
    }
    const RunningApplication started{found->second.signature, found->first};
    auto& running = shared_.state.running;
    if (found->second.afterSeconds != 0) {
        shared_.pending.push_back({started, std::uint64_t{found->second.afterSeconds} * 60});
    } else if (!contains(running, started)) {
        running.push_back(started);
    }
    const auto runs = std::find_if(running.begin(), running.end(),
                                   [&started](const RunningApplication& one) { return sameApplication(one, started); });
    if (runs != running.end()) {
        process = kFirstOther + static_cast<ProcessSerialNumber>(runs - running.begin());
    }
    shared_.effects.launched.push_back(started.path);
    return noErr;
}

Status ScriptedProcesses::setFront(ProcessSerialNumber process) {
    if (const Status fault = shared_.meetFault("front"); fault != noErr) {
        return fault;
    }
    ProcessInfo info;
    if (const Status status = information(process, info); status != noErr) {
        return status;
    }
    shared_.effects.fronted.push_back(info.signature);
    return noErr;
}

Status ScriptedEvents::installHandler(OSType eventClass, OSType eventID, EventHandler handler, long reference) {
    if (handler == nullptr) {
        handlers_.erase({eventClass, eventID});
    } else {
        handlers_[{eventClass, eventID}] = {handler, reference};
    }
    return noErr;
}

Status ScriptedEvents::send(const Event& event) {
    if (const Status fault = shared_.meetFault("send"); fault != noErr) {
        return fault;
    }
    if (event.target == shared_.options.signature && event.eventClass == "misc"_4 && event.eventID == "dosc"_4) {
        for (const EventParameter& parameter : event.parameters) {
            if (parameter.keyword == "----"_4) {
                shared_.effects.scripts.push_back(parameter.data);
                return noErr;
            }
        }
    }
    if (!shared_.isRunning(event.target)) {
        return procNotFound;
    }
    shared_.effects.sent.push_back(event);
    return noErr;
}

Status ScriptedEvents::deliver(const Event& event) {
    const auto found = handlers_.find({event.eventClass, event.eventID});
    if (found == handlers_.end()) {
        return errAEEventNotHandled;
    }
    const Installed installed = found->second;  // the handler may replace itself
    Event reply;
    return installed.handler(event, reply, installed.reference);
}

}  // namespace platform
