// `quil trace`: what partners and hosts say to each other, as it happens.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <array>
#include <ctime>
#include <memory>

#include "host/commands.h"
#include "host/solution_life.h"
#include "platform/linux/bus.h"
#include "platform/linux/bus_names.h"
#include "platform/text.h"

namespace host {

namespace {

using platform::operator""_4;

constexpr std::size_t kShown = 60;  // bytes of a value
constexpr auto kLong = std::chrono::hours(1);

std::string timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    localtime_r(&now.tv_sec, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    std::string milliseconds = std::to_string(now.tv_nsec / 1'000'000);
    return std::string(text.data()) + '.' + std::string(3 - milliseconds.size(), '0') + milliseconds;
}

// In quotes, on one line; Mac Roman where the bytes are not UTF-8.
std::string shown(std::string_view bytes, bool full) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string text = platform::utf8Of(full ? bytes : bytes.substr(0, kShown + 3));
    std::string result = "\"";
    std::size_t at = 0;
    while (at < text.size() && (full || at < kShown)) {
        const std::size_t start = at;
        platform::nextCharacter(text, at);
        const char c = text[start];
        if (c == '\r' || c == '\n' || c == '\t' || c == '"' || c == '\\') {
            result += '\\';
            result += c == '\r' ? 'r' : c == '\n' ? 'n' : c == '\t' ? 't' : c;
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            result += "\\x";
            result += kHex[static_cast<unsigned char>(c) >> 4];
            result += kHex[static_cast<unsigned char>(c) & 0xF];
        } else {
            result.append(text, start, at - start);
        }
    }
    result += '"';
    return at < text.size() ? result + "... (" + std::to_string(bytes.size()) + " bytes)" : result;
}

std::string lineOf(const platform::SeenEvent& seen, bool full) {
    using Kind = platform::SeenEvent::Kind;
    std::string line = timeNow() + "  ";
    switch (seen.kind) {
        case Kind::arrived:
            return line + seen.from + " is there (" + seen.detail + ")\n";
        case Kind::left:
            return line + seen.from + " is gone\n";
        default:
            break;
    }
    line += seen.from + " -> " + seen.to + "  ";
    switch (seen.kind) {
        case Kind::activate:
            return line + "Activate\n";
        case Kind::open:
            return line + "Open " + seen.detail + "\n";
        case Kind::broken:
            return line + "not an event: " + seen.detail + "\n";
        default:
            break;
    }
    std::string rest;
    std::string message;
    for (const platform::EventParameter& parameter : seen.event.parameters) {
        if (parameter.keyword == "MSSG"_4) {
            message = shown(parameter.data, full);
            message = message.substr(1, message.size() - 2);
        } else {
            rest += "  " + platform::textOfCode(parameter.keyword) + '=' + shown(parameter.data, full);
        }
    }
    if (seen.event.eventClass != "QUIL"_4 || seen.event.eventID != "AEVT"_4) {
        line += platform::textOfCode(seen.event.eventClass) + '/' + platform::textOfCode(seen.event.eventID) + "  ";
    }
    return line + message + rest + '\n';
}

}  // namespace

void addTraceCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("trace", "Watch the messages between hosts and partners");
    const auto full = std::make_shared<bool>(false);
    const auto seconds = std::make_shared<double>(-1);
    command->add_flag("--full", *full, "Print values whole, not their first 60 bytes");
    command->add_option("--for", *seconds, "End after this time")->type_name("SECONDS")->check(CLI::NonNegativeNumber);
    command->footer("Prints a line for each message, and when a partner comes or goes, until it is interrupted.");
    command->callback([full, seconds, &context] {
        std::string problem;
        const auto monitor = platform::makeBusMonitor(problem);
        if (monitor == nullptr) {
            throw HostError(problem);
        }
        const Life life(*seconds < 0 ? std::nullopt : std::optional<double>(*seconds), false);
        while (!life.over()) {
            if (!monitor->pump([&](const platform::SeenEvent& seen) { writeOutput(lineOf(seen, *full)); })) {
                throw HostError("the message bus is gone");
            }
            life.sleepUntil(Life::Clock::now() + kLong, monitor->descriptor());
        }
        context.status = 0;
    });
}

}  // namespace host
