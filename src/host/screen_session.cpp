#include "host/screen_session.h"

#include <algorithm>

#include "platform/bundle.h"

namespace host {

ScreeningSession::ScreeningSession(Context& context)
    : files_(platform::makeLinuxFiles(context.machine)),
      resources_(platform::makeBundleResources()),
      machine_(*files_, *resources_, {context.machine.application, context.machine.signature}),
      previous_(platform::installMachine(&machine_)) {
    try {
        plugin_ = std::make_unique<Plugin>(bundleOf(context));
        if (plugin_->initialize() < 0) {
            throw HostError(plugin_->bundle().directory + ": the plug-in does not start");
        }
    } catch (...) {
        plugin_.reset();
        platform::installMachine(previous_);
        throw;
    }
}

ScreeningSession::~ScreeningSession() {
    plugin_.reset();
    platform::installMachine(previous_);
}

Calculator ScreeningSession::calculator() {
    return {[this](std::string_view function, std::string_view parameter) {
                Answer answer = plugin_->external(function, parameter);
                if (answer.code != 0) {
                    throw HostError(std::string(function) + " failed with error " + std::to_string(answer.code));
                }
                return answer.text;
            },
            [this] {
                std::string messages;
                for (const platform::AlertEffect& alert : machine_.takeEffects().alerts) {
                    messages += (messages.empty() ? "" : " ") + std::string(trimmed(alert.message));
                }
                std::replace(messages.begin(), messages.end(), '\r', ' ');  // ends a line in an alert
                return messages;
            }};
}

std::string ScreeningSession::version() {
    return plugin_->evaluate("QUIL_Version", {}).text;
}

}  // namespace host
