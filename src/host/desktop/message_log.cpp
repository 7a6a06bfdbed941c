#include "host/desktop/message_log.h"

#include <algorithm>

namespace host::desktop {

using platform::operator""_4;

static constexpr std::size_t kScriptsKept = 200;
static constexpr std::size_t kMostHandled = 30;

std::string textParameter(const platform::Event& event, platform::OSType keyword) {
    for (const platform::EventParameter& parameter : event.parameters) {
        if (parameter.keyword == keyword) {
            return parameter.data;
        }
    }
    return {};
}

void MessageLog::called(std::string_view function, std::string_view parameter, const std::string& answer) {
    if (function == "GLN1SetHandledMessages") {
        handled_.clear();
        for (std::size_t at = 0; at <= parameter.size() && handled_.size() < kMostHandled;) {
            const std::size_t end = std::min(parameter.find('|', at), parameter.size());
            std::string name(parameter.substr(at, std::min<std::size_t>(end - at, 4)));
            if (!name.empty()) {
                name.resize(4, ' ');
                handled_.insert(std::move(name));
            }
            at = end + 1;
        }
    } else if (function == "GLN1GetNextMessage" && !answer.empty() && !waiting_.empty()) {
        waiting_.pop_front();
        ++waitingChanges_;
    }
}

void MessageLog::arrived(const platform::Event& event, platform::Status status, std::int64_t when) {
    if (event.eventClass == "misc"_4 && event.eventID == "dosc"_4) {
        scripts_.push_back({textParameter(event, "----"_4), when});
        ++scriptCount_;
        if (scripts_.size() > kScriptsKept) {
            scripts_.pop_front();
        }
    } else if (event.eventClass == "QUIL"_4 && status != platform::dirFulErr && waiting_.size() < kWaitingSlots) {
        std::string name = textParameter(event, "MSSG"_4);
        name.resize(4, ' ');
        if (handled_.contains(name)) {
            waiting_.push_back(event);
            ++waitingChanges_;
        }
    }
}

}  // namespace host::desktop
