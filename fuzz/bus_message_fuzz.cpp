// Arguments of events as anybody on the bus may send them. The first byte of the input chooses: a message of the right
// type with any codes and data, or one of any types. What is read as an event has no more than the limits allow and is
// read again from what it is written as; the texts of names, codes and URIs go the same way there and back.
#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/bus.h"
#include "platform/linux/bus_connection.h"
#include "platform/linux/bus_message.h"
#include "platform/linux/bus_names.h"

namespace {

using namespace platform;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A connection that only makes messages.
sd_bus* connection() {
    static sd_bus* const bus = [] {
        int pair[2] = {-1, -1};
        sd_bus* made = nullptr;
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) == 0 &&
                sd_bus_new(&made) >= 0 && sd_bus_set_fd(made, pair[0], pair[0]) >= 0 && sd_bus_start(made) >= 0);
        return made;
    }();
    return bus;
}

BusMessage newMessage() {
    sd_bus_message* message = nullptr;
    require(sd_bus_message_new_method_call(connection(), &message, "org.quil.Partner.GLN1", "/org/quil/Partner/GLN1",
                                           partnerInterface, "Event") >= 0);
    return BusMessage(message);
}

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : text_(reinterpret_cast<const char*>(data), size) {}
    bool ended() const { return text_.empty(); }
    std::uint8_t byte() {
        const std::string_view one = take(1);
        return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one[0]);
    }
    std::string_view take(std::size_t count) {
        const std::string_view taken = text_.substr(0, count);
        text_.remove_prefix(taken.size());
        return taken;
    }
    // A text of at most `most` bytes, up to a NUL.
    std::string text(std::size_t most) {
        const std::string_view taken = take(std::min<std::size_t>(byte() % 16, most));
        return std::string(taken.substr(0, taken.find('\0')));
    }

  private:
    std::string_view text_;
};

void appendRightTypes(sd_bus_message* message, Input& input) {
    require(sd_bus_message_append(message, "ss", "QUIL", "AEVT") >= 0);
    sd_bus_message_open_container(message, 'a', "(say)");
    while (!input.ended()) {
        const std::string keyword = input.text(15);
        const std::string_view data = input.take(input.byte());
        sd_bus_message_open_container(message, 'r', "say");
        if (sd_bus_message_append_basic(message, 's', keyword.c_str()) < 0) {  // not UTF-8
            sd_bus_message_append_basic(message, 's', "MSSG");
        }
        sd_bus_message_append_array(message, 'y', data.data(), data.size());
        sd_bus_message_close_container(message);
    }
    sd_bus_message_close_container(message);
}

void appendAnyTypes(sd_bus_message* message, Input& input) {
    while (!input.ended()) {
        switch (input.byte() % 6) {
            case 0:
                sd_bus_message_append_basic(message, 's', input.text(15).c_str());
                break;
            case 1: {
                const std::uint32_t number = input.byte();
                sd_bus_message_append_basic(message, 'u', &number);
                break;
            }
            case 2: {
                const std::string_view data = input.take(input.byte());
                sd_bus_message_append_array(message, 'y', data.data(), data.size());
                break;
            }
            case 3:
                sd_bus_message_append(message, "a(say)", 1, "MSSG", 1, 65);
                break;
            case 4:
                sd_bus_message_append(message, "a(say)", 0);
                break;
            default:
                sd_bus_message_append(message, "a{sv}", 1, "key", "s", "value");
        }
    }
}

void checkTexts(std::string_view text) {
    OSType code = 0;
    if (signatureOfName(text, code)) {
        require(partnerName(code) == text);
    }
    if (codeOfText(text, code)) {
        require(textOfCode(code) == text);
    }
    std::string path;
    if (pathOfUri(text, path)) {
        std::string again;
        require(path.starts_with('/') && path.find('\0') == std::string::npos);
        require(path.starts_with("//") || (pathOfUri(uriOfPath(path), again) && again == path));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    checkTexts({reinterpret_cast<const char*>(data), size});
    const BusMessage message = newMessage();
    (input.byte() % 2 == 0 ? appendRightTypes : appendAnyTypes)(message.get(), input);
    if (sd_bus_message_seal(message.get(), 1, 0) < 0) {
        return 0;
    }
    Event event;
    if (!readEvent(message.get(), event).empty()) {
        return 0;
    }
    require(event.parameters.size() <= mostParameters && sizeOfEvent(event) <= largestEvent);
    const BusMessage written = newMessage();
    const int result = appendEvent(written.get(), event);
    if (result < 0) {
        return 0;
    }
    require(sd_bus_message_seal(written.get(), 2, 0) >= 0);
    Event again;
    require(readEvent(written.get(), again).empty());
    require(again.eventClass == event.eventClass && again.eventID == event.eventID &&
            again.parameters.size() == event.parameters.size());
    for (std::size_t i = 0; i < event.parameters.size(); ++i) {
        require(again.parameters[i].keyword == event.parameters[i].keyword &&
                again.parameters[i].data == event.parameters[i].data);
    }
    return 0;
}
