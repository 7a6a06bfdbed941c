#include "platform/linux/bus_receiver.h"

#include <memory>
#include <utility>

#include "platform/linux/bus_message.h"
#include "platform/linux/bus_names.h"

namespace platform {

static constexpr std::uint32_t kProtocolVersion = 1;

std::string senderOf(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender == nullptr ? "?" : sender;
}

// Answers the sender, where it waits for one.
static void answerWith(sd_bus_message* message, Status status) {
    if (sd_bus_message_get_expect_reply(message) <= 0) {
        return;
    }
    if (status == noErr) {
        sd_bus_reply_method_return(message, nullptr);
        return;
    }
    const char* name = status == errAEEventNotHandled ? "org.quil.Partner1.Error.NotHandled"
                       : status == bufferIsSmall      ? "org.freedesktop.DBus.Error.LimitsExceeded"
                                                      : "org.quil.Partner1.Error.Failed";
    sd_bus_reply_method_errorf(message, name, "The event was not handled (status %d)", status);
}

// Before the library looks at a message: events that are not what they should be are told in the log.
int BusReceiver::onMessage(sd_bus_message* message, void* self, sd_bus_error* error) {
    auto& bus = *static_cast<BusReceiver*>(self);
    if (sd_bus_message_is_method_call(message, partnerInterface, "Event") <= 0) {
        return 0;
    }
    return bus.inside(message, [&] { return bus.takeEvent(message, error); });
}

int BusReceiver::takeEvent(sd_bus_message* message, sd_bus_error* error) {
    const std::string path = partnerPath(options_.signature);
    if (sd_bus_message_get_path(message) != path) {
        return 0;  // the library answers that there is no such object
    }
    ArrivedEvent arrived;
    arrived.sender = senderOf(message);
    const std::string problem = readEvent(message, arrived.event);
    if (!problem.empty()) {
        log("an event was refused", "from " + arrived.sender + ": " + problem);
        return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "The event is refused: %s", problem.c_str());
    }
    if (arrived.event.eventClass == "misc"_4) {  // the host's own requests
        log("an event was refused", "from " + arrived.sender + ": only the host itself may ask it to run scripts");
        return sd_bus_error_setf(error, SD_BUS_ERROR_ACCESS_DENIED,
                                 "Only the application itself may send events of the class misc");
    }
    return deliver(message, std::move(arrived), error);
}

int BusReceiver::deliver(sd_bus_message* message, ArrivedEvent&& arrived, sd_bus_error* error) {
    arrived.event.target = options_.signature;
    if (sd_bus_message_get_expect_reply(message) > 0) {
        const std::shared_ptr<sd_bus_message> waiting(sd_bus_message_ref(message), sd_bus_message_unref);
        arrived.answer = [waiting](Status status) { answerWith(waiting.get(), status); };
    }
    const std::string sender = arrived.sender;
    if (!options_.arrived(std::move(arrived))) {
        log("an event was dropped because too many wait", "from " + sender);
        return sd_bus_error_set(error, SD_BUS_ERROR_LIMITS_EXCEEDED, "Too many events wait to be handled");
    }
    return 1;
}

int BusReceiver::onActivate(sd_bus_message* message, void* self, sd_bus_error* error) {
    auto& bus = *static_cast<BusReceiver*>(self);
    return bus.inside(message, [&] {
        ArrivedEvent arrived;
        arrived.sender = senderOf(message);
        arrived.event.eventClass = "misc"_4;
        arrived.event.eventID = "actv"_4;
        return bus.deliver(message, std::move(arrived), error);
    });
}

int BusReceiver::onOpen(sd_bus_message* message, void* self, sd_bus_error* error) {
    auto& bus = *static_cast<BusReceiver*>(self);
    return bus.inside(message, [&] {
        ArrivedEvent arrived;
        arrived.sender = senderOf(message);
        arrived.event.eventClass = "aevt"_4;
        arrived.event.eventID = "odoc"_4;
        int result = sd_bus_message_enter_container(message, 'a', "s");
        const char* uri = nullptr;
        while (result >= 0 && (result = sd_bus_message_read_basic(message, 's', &uri)) > 0) {
            std::string path;
            if (!pathOfUri(uri, path)) {
                bus.log("an event was refused", "from " + arrived.sender + ": no file of this computer");
                return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "Only file:/// can be opened");
            }
            arrived.event.parameters.push_back({"----"_4, "furl"_4, std::move(path), false});
            if (arrived.event.parameters.size() > mostParameters) {
                return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "Too many files");
            }
        }
        return result < 0 ? result : bus.deliver(message, std::move(arrived), error);
    });
}

int BusReceiver::onVersion(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                           sd_bus_error*) {
    return sd_bus_message_append(reply, "u", kProtocolVersion);
}

// The filter sees events first; this is for those that look at the object.
int BusReceiver::onEvent(sd_bus_message*, void*, sd_bus_error*) {
    return 0;
}

int BusReceiver::attach(sd_bus* bus) {
    const std::string path = partnerPath(options_.signature);
    int result = sd_bus_add_filter(bus, nullptr, onMessage, this);
    if (result >= 0) {
        result = sd_bus_add_object_vtable(bus, nullptr, path.c_str(), partnerInterface, kPartnerTable, this);
    }
    if (result >= 0) {
        result = sd_bus_add_object_vtable(bus, nullptr, path.c_str(), applicationInterface, kApplicationTable, this);
    }
    return result;
}

const sd_bus_vtable BusReceiver::kPartnerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Event", SD_BUS_ARGS("s", class, "s", id, "a(say)", parameters), SD_BUS_NO_RESULT, onEvent,
                            SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_PROPERTY("Version", "u", onVersion, 0, SD_BUS_VTABLE_PROPERTY_CONST), SD_BUS_VTABLE_END};

const sd_bus_vtable BusReceiver::kApplicationTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Activate", SD_BUS_ARGS("a{sv}", platform_data), SD_BUS_NO_RESULT, onActivate,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Open", SD_BUS_ARGS("as", uris, "a{sv}", platform_data), SD_BUS_NO_RESULT, onOpen,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

}  // namespace platform
