// What the host can tell of the plug-in's messages from outside: the names that the solution handles, the messages that
// came and were not yet fetched, and the scripts that were asked for.
#pragma once

#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/events.h"

namespace host::desktop {

inline constexpr std::size_t kWaitingSlots = 20;

struct AskedScript {
    std::string name;
    std::int64_t when = 0;  // milliseconds since 1970
};

class MessageLog {
  public:
    // A script called a function of the plug-in.
    void called(std::string_view function, std::string_view parameter, const std::string& answer);
    // An event came, and this is how it fared.
    void arrived(const platform::Event& event, platform::Status status, std::int64_t when);

    const std::deque<platform::Event>& waiting() const { return waiting_; }  // oldest first
    const std::deque<AskedScript>& scripts() const { return scripts_; }      // oldest first
    std::uint64_t waitingChanges() const { return waitingChanges_; }
    std::uint64_t scriptCount() const { return scriptCount_; }

  private:
    std::set<std::string, std::less<>> handled_;
    std::deque<platform::Event> waiting_;
    std::deque<AskedScript> scripts_;
    std::uint64_t waitingChanges_ = 0;
    std::uint64_t scriptCount_ = 0;
};

// A parameter's text; empty when the event has none of this keyword.
std::string textParameter(const platform::Event& event, platform::OSType keyword);

}  // namespace host::desktop
