#include "platform/linux/bus_message.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/linux/bus.h"
#include "platform/linux/bus_names.h"

namespace platform {

static constexpr std::size_t usualParameters = 24;
static constexpr std::size_t frameBytes = 64;      // of the message itself
static constexpr std::size_t parameterBytes = 32;  // of a parameter, beside its data

std::size_t sizeOfEvent(const Event& event) {
    std::size_t size = frameBytes;
    for (const EventParameter& parameter : event.parameters) {
        size += parameterBytes + parameter.data.size();
    }
    return size;
}

static int appendCode(sd_bus_message* message, OSType code) {
    const std::string text = textOfCode(code);
    return text.find('\0') != std::string::npos ? -EINVAL : sd_bus_message_append_basic(message, 's', text.c_str());
}

// The calls of one message in a row: the first that fails ends it.
template <typename... Calls>
static int inTurn(Calls... calls) {
    int result = 0;
    static_cast<void>((((result = calls()) >= 0) && ...));
    return result;
}

int appendEvent(sd_bus_message* message, const Event& event) {
    int result = inTurn([&] { return appendCode(message, event.eventClass); },
                        [&] { return appendCode(message, event.eventID); },
                        [&] { return sd_bus_message_open_container(message, 'a', "(say)"); });
    for (const EventParameter& parameter : event.parameters) {
        if (result < 0) {
            return result;
        }
        result = inTurn(
            [&] { return sd_bus_message_open_container(message, 'r', "say"); },
            [&] { return appendCode(message, parameter.keyword); },
            [&] { return sd_bus_message_append_array(message, 'y', parameter.data.data(), parameter.data.size()); },
            [&] { return sd_bus_message_close_container(message); });
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

static std::string readCode(sd_bus_message* message, const char* what, OSType& code) {
    const char* text = nullptr;
    if (sd_bus_message_read_basic(message, 's', &text) <= 0) {
        return std::string("the ") + what + " cannot be read";
    }
    if (!codeOfText(text, code)) {
        std::string shown(std::string_view(text).substr(0, 40));
        return std::string("the ") + what + " \"" + shown + "\" is not four characters of Mac Roman";
    }
    return {};
}

namespace {

// The keywords so far: few, as a rule.
class Keywords {
  public:
    bool add(OSType keyword) {
        if (few_.size() < 64) {
            if (std::find(few_.begin(), few_.end(), keyword) != few_.end()) {
                return false;
            }
            few_.push_back(keyword);
            return true;
        }
        return std::find(few_.begin(), few_.end(), keyword) == few_.end() && many_.insert(keyword).second;
    }

  private:
    std::vector<OSType> few_;
    std::unordered_set<OSType> many_;
};

}  // namespace

std::string readEvent(sd_bus_message* message, Event& event) {
    const char* types = sd_bus_message_get_signature(message, 1);
    if (types == nullptr || std::string_view(types) != eventSignature) {
        return std::string("the arguments are of type \"") + (types == nullptr ? "" : types) + "\" instead of \"" +
               eventSignature + "\"";
    }
    std::string problem = readCode(message, "class", event.eventClass);
    if (problem.empty()) {
        problem = readCode(message, "id", event.eventID);
    }
    if (!problem.empty()) {
        return problem;
    }
    if (sd_bus_message_enter_container(message, 'a', "(say)") < 0) {
        return "the parameters cannot be read";
    }
    Keywords keywords;
    event.parameters.reserve(usualParameters);
    std::size_t size = frameBytes;
    int more = 0;
    while ((more = sd_bus_message_enter_container(message, 'r', "say")) > 0) {
        OSType keyword = 0;
        problem = readCode(message, "keyword", keyword);
        if (!problem.empty()) {
            return problem;
        }
        const void* data = nullptr;
        std::size_t length = 0;
        if (sd_bus_message_read_array(message, 'y', &data, &length) < 0 || sd_bus_message_exit_container(message) < 0) {
            return "the parameter \"" + textOfCode(keyword) + "\" cannot be read";
        }
        if (!keywords.add(keyword)) {
            return "the parameter \"" + textOfCode(keyword) + "\" is given twice";
        }
        size += parameterBytes + length;
        if (size > largestEvent) {
            return "it is larger than 16 MiB";
        }
        if (event.parameters.size() == mostParameters) {
            return "it has more than " + std::to_string(mostParameters) + " parameters";
        }
        EventParameter& parameter = event.parameters.emplace_back();
        parameter.keyword = keyword;
        parameter.type = "TEXT"_4;
        parameter.data.assign(static_cast<const char*>(data), length);
    }
    return more < 0 || sd_bus_message_exit_container(message) < 0 ? "the parameters cannot be read" : "";
}

}  // namespace platform
