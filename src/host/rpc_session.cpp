// Requests of `quil rpc`: their envelope, their methods and what every answer carries.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "host/rpc.h"
#include "host/rpc_json.h"
#include "host/rpc_machine.h"
#include "platform/bundle.h"

namespace host {

using nlohmann::json;
using platform::operator""_4;

namespace {

constexpr std::size_t kMaxErrorMessage = 400;
constexpr std::uint32_t kMaxStringSize = 1'000'000;

void appendError(std::string& output, std::string_view id, int code, std::string_view message) {
    output += R"({"jsonrpc":"2.0","id":)";
    output += id;
    output += R"(,"error":{"code":)";
    appendNumber(output, code);
    output += R"(,"message":)";
    // A message may quote bytes of the request, cut anywhere.
    appendUtf8(output, toUtf8(toText(message.substr(0, kMaxErrorMessage))));
    output += "}}";
}

// Parts of a result. A name is written with its comma, so that fields follow each other in any combination.
void name(std::string& output, std::string_view field) {
    if (output.back() != '{') {
        output += ',';
    }
    output += '"';
    output += field;
    output += "\":";
}

void textField(std::string& output, std::string_view field, std::string_view text) {
    name(output, field);
    appendText(output, text);
}

void codeField(std::string& output, std::string_view field, platform::OSType code) {
    name(output, field);
    appendCode(output, code);
}

void numberField(std::string& output, std::string_view field, std::int64_t number) {
    name(output, field);
    appendNumber(output, number);
}

template <class List, class Append>
void listField(std::string& output, std::string_view field, const List& list, Append append) {
    name(output, field);
    output += '[';
    bool first = true;
    for (const auto& item : list) {
        if (!first) {
            output += ',';
        }
        first = false;
        append(item);
    }
    output += ']';
}

void answerFields(std::string& output, const Answer& answer) {
    numberField(output, "code", answer.code);
    textField(output, "text", answer.text);
}

void appendAlert(std::string& output, const platform::AlertEffect& alert) {
    output += '{';
    textField(output, "kind", {&alert.kind, 1});
    textField(output, "heading", alert.heading);
    textField(output, "message", alert.message);
    listField(output, "buttons", alert.buttons, [&output](const std::string& title) { appendText(output, title); });
    numberField(output, "default", alert.defaultItem);
    numberField(output, "cancel", alert.cancelItem);
    numberField(output, "pressed", alert.pressed);
    output += '}';
}

void appendEvent(std::string& output, const platform::Event& event) {
    output += '{';
    codeField(output, "to", event.target);
    codeField(output, "class", event.eventClass);
    codeField(output, "id", event.eventID);
    listField(output, "parameters", event.parameters, [&output](const platform::EventParameter& parameter) {
        output += '{';
        codeField(output, "key", parameter.keyword);
        const std::size_t before = output.size();
        name(output, "text");
        if (!appendUtf8(output, parameter.data)) {
            output.resize(before);
        }
        name(output, "bytes");
        appendBase64(output, parameter.data);
        output += '}';
    });
    output += '}';
}

void appendDrawing(std::string& output, const platform::DrawnEffect& drawn) {
    output += '{';
    textField(output, "window", drawn.window);
    textField(output, "text", drawn.text);
    name(output, "fraction");
    output += drawn.fraction ? json(*drawn.fraction).dump() : "null";
    output += '}';
}

void appendEffects(std::string& output, const platform::Effects& effects) {
    const auto text = [&output](const std::string& value) { appendText(output, value); };
    if (!effects.alerts.empty()) {
        listField(output, "alerts", effects.alerts, [&output](const auto& alert) { appendAlert(output, alert); });
    }
    if (effects.beeps != 0) {
        numberField(output, "beeps", effects.beeps);
    }
    if (!effects.scripts.empty()) {
        listField(output, "scripts", effects.scripts, text);
    }
    if (!effects.sent.empty()) {
        listField(output, "sent", effects.sent, [&output](const auto& event) { appendEvent(output, event); });
    }
    if (!effects.launched.empty()) {
        listField(output, "launched", effects.launched, text);
    }
    if (!effects.fronted.empty()) {
        listField(output, "fronted", effects.fronted, [&output](platform::OSType code) { appendCode(output, code); });
    }
    if (!effects.choosers.empty()) {
        listField(output, "choosers", effects.choosers, [&output](const platform::ChooserEffect& chooser) {
            output += '{';
            textField(output, "kind", chooser.kind == platform::Chooser::Kind::read ? "read" : "write");
            textField(output, "title", chooser.title);
            textField(output, "proposed", chooser.proposed);
            output += '}';
        });
    }
    if (!effects.drawn.empty()) {
        listField(output, "drawn", effects.drawn, [&output](const auto& drawn) { appendDrawing(output, drawn); });
    }
}

// The id of a request as the answer repeats it, or null where there is none that is valid.
std::string idOf(const json& request) {
    const json* id = request.is_object() ? findField(request, "id") : nullptr;
    std::string text;
    if (id != nullptr && id->is_string()) {
        appendText(text, id->get_ref<const std::string&>());
    } else if (id != nullptr && id->is_number()) {
        text = id->dump();
    } else {
        text = "null";
    }
    return text;
}

// Refuses what is not a request object.
void checkRequest(const json& request) {
    if (!request.is_object()) {
        throw RpcError(kInvalidRequest, "a request must be an object");
    }
    if (const json* id = findField(request, "id");
        id != nullptr && !id->is_string() && !id->is_number() && !id->is_null()) {
        throw RpcError(kInvalidRequest, "id must be a text, a number or null");
    }
    if (const json* version = findField(request, "jsonrpc"); version == nullptr || *version != "2.0") {
        throw RpcError(kInvalidRequest, "jsonrpc must be \"2.0\"");
    }
    if (const json* method = findField(request, "method"); method == nullptr || !method->is_string()) {
        throw RpcError(kInvalidRequest, "method must be a text");
    }
    if (const json* params = findField(request, "params"); params != nullptr && !params->is_structured()) {
        throw RpcError(kInvalidRequest, "params must be an object");
    }
}

std::vector<std::string_view> parametersOf(const json& value) {
    std::vector<std::string_view> parameters;
    for (const json& element : arrayOf(value, "parameters")) {
        parameters.push_back(textOf(element, elementPath("parameters", parameters.size())));
    }
    return parameters;
}

platform::ScriptedOptions scriptedOptions(const platform::LinuxOptions& machine) {
    platform::ScriptedOptions options{machine.application, machine.signature};
    if (options.application.empty()) {
        std::array<char, 4096> program{};
        const ssize_t length = ::readlink("/proc/self/exe", program.data(), program.size());
        options.application =
            platform::classicPathOf(machine, {program.data(), length > 0 ? static_cast<std::size_t>(length) : 0});
    }
    return options;
}

}  // namespace

struct RpcSession::Installed {
    explicit Installed(platform::Machine* machine) : before(platform::installMachine(machine)) {}
    ~Installed() { platform::installMachine(before); }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;
    platform::Machine* before;
};

RpcSession::RpcSession(const RpcOptions& options)
    : files_(platform::makeLinuxFiles(options.machine)),
      resources_(platform::makeBundleResources()),
      machine_(std::make_unique<platform::ScriptedMachine>(*files_, *resources_, scriptedOptions(options.machine))),
      signature_(options.machine.signature),
      installed_(std::make_unique<Installed>(machine_.get())),
      plugin_(std::make_unique<Plugin>(options.bundle.empty() ? Plugin::defaultBundle() : options.bundle)) {}

RpcSession::~RpcSession() = default;

const RpcSession::MethodRow RpcSession::kMethods[] = {
    {"call", &RpcSession::call},           {"external", &RpcSession::external}, {"machine", &RpcSession::setMachine},
    {"idle", &RpcSession::idle},           {"deliver", &RpcSession::deliver},   {"initialize", &RpcSession::initialize},
    {"shutdown", &RpcSession::shutdown},   {"string", &RpcSession::string},     {"version", &RpcSession::version},
    {"functions", &RpcSession::functions},
};

void RpcSession::serve(std::string_view line, std::string& output) {
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
        return;
    }
    const std::size_t before = output.size();
    try {
        const json document = parseJson(line);
        bool answered = false;
        if (!document.is_array()) {
            answered = serveRequest(document, output);
        } else if (document.empty()) {
            throw RpcError(kInvalidRequest, "a batch must not be empty");
        } else {
            output += '[';
            for (const json& request : document) {
                output += answered ? "," : "";
                const bool hasAnswer = serveRequest(request, output);
                if (answered && !hasAnswer) {
                    output.pop_back();
                }
                answered = answered || hasAnswer;
            }
            output += ']';
        }
        if (answered) {
            output += '\n';
        } else {
            output.resize(before);
        }
    } catch (const RpcError& error) {
        output.resize(before);
        appendError(output, "null", error.code, error.what());
        output += '\n';
    } catch (const std::bad_alloc&) {
        output.resize(before);
        appendError(output, "null", kInternalError, "not enough memory for the request");
        output += '\n';
    }
}

void RpcSession::refuseLongLine(std::string& output) {
    appendError(output, "null", kInvalidRequest,
                "the line is longer than " + std::to_string(kMaxRpcLine) + " bytes and was skipped");
    output += '\n';
}

bool RpcSession::serveRequest(const json& request, std::string& output) {
    const std::size_t before = output.size();
    const std::string id = idOf(request);
    try {
        checkRequest(request);
    } catch (const RpcError& error) {
        appendError(output, id, error.code, error.what());
        return true;
    }
    const bool isNotification = !request.contains("id");
    const std::string& method = request.find("method")->get_ref<const std::string&>();
    const auto* const row = std::find_if(std::begin(kMethods), std::end(kMethods),
                                         [&method](const MethodRow& candidate) { return candidate.name == method; });
    if (row == std::end(kMethods)) {
        if (!isNotification) {
            appendError(output, id, kMethodNotFound, "there is no method \"" + method + "\"");
        }
        return !isNotification;
    }
    serveMethod(row->method, request, id, output);
    if (isNotification) {
        output.resize(before);
    }
    return !isNotification;
}

void RpcSession::serveMethod(Method method, const json& request, std::string_view id, std::string& output) {
    static const json kNoParams = json::object();
    const std::size_t before = output.size();
    const auto fail = [&](int code, std::string_view message) {
        output.resize(before);
        machine_->takeEffects();
        appendError(output, id, code, message);
    };
    try {
        const json* given = findField(request, "params");
        const bool none = given == nullptr || (given->is_array() && given->empty());
        const json& params = none ? kNoParams : *given;
        checkObject(params, "");
        output += R"({"jsonrpc":"2.0","id":)";
        output += id;
        output += R"(,"result":{)";
        (this->*method)(params, output);
        appendEffects(output, machine_->takeEffects());
        output += "}}";
    } catch (const RpcError& error) {
        fail(error.code, error.what());
    } catch (const HostError& error) {
        fail(kHostFailure, error.what());
    } catch (const fmx::_fmxcpt& error) {
        fail(kHostFailure, "the plug-in interface failed with code " + std::to_string(error.code));
    } catch (const std::bad_alloc&) {
        fail(kInternalError, "not enough memory for the answer");
    }
}

void RpcSession::initialize(const json& params, std::string& output) {
    const auto version = integerField<std::int16_t>(params, "", "version", kHostVersion);
    numberField(output, "code", plugin_->initialize(version));
}

void RpcSession::shutdown(const json&, std::string&) {
    plugin_->shutdown();
}

void RpcSession::idle(const json& params, std::string&) {
    plugin_->idle(integerField<std::uint8_t>(params, "", "level", fmx::kIdleUserIdle));
}

void RpcSession::string(const json& params, std::string& output) {
    const auto kind = integerField<std::uint8_t>(params, "", "kind", fmx::kStringName);
    const json* given = findField(params, "size");
    const auto size =
        given == nullptr ? 256U : static_cast<std::uint32_t>(integerOf(*given, "size", 1, kMaxStringSize));
    const std::optional<std::u16string> text = plugin_->string(kind, size);
    name(output, "text");
    if (text) {
        appendUtf8(output, toUtf8(*text));
    } else {
        output += "null";
    }
}

void RpcSession::version(const json& params, std::string& output) {
    const json* parameters = findField(params, "parameters");
    const auto texts = parameters == nullptr ? std::vector<std::string_view>() : parametersOf(*parameters);
    answerFields(output, plugin_->evaluate("QUIL_Version", texts));
}

void RpcSession::call(const json& params, std::string& output) {
    const std::string& function = host::textField(params, "", "name");
    const json* given = findField(params, "parameter");
    const std::string_view parameter = given == nullptr ? std::string_view() : textOf(*given, "parameter");
    answerFields(output, plugin_->external(function, parameter));
}

void RpcSession::external(const json& params, std::string& output) {
    answerFields(output, plugin_->evaluate("QUIL_External", parametersOf(needField(params, "", "parameters"))));
}

void RpcSession::functions(const json&, std::string& output) {
    const std::vector<FunctionHelp> list = readFunctionList(plugin_->bundle().directory);
    listField(output, "registered", plugin_->functions(), [&output](const RegisteredFunction& function) {
        output += '{';
        numberField(output, "id", function.id);
        textField(output, "name", function.name);
        textField(output, "prototype", function.prototype);
        numberField(output, "min", function.minParams);
        numberField(output, "max", function.maxParams);
        numberField(output, "flags", function.flags);
        output += '}';
    });
    listField(output, "script", list, [&output](const FunctionHelp& help) { appendText(output, help.name); });
}

void RpcSession::deliver(const json& params, std::string& output) {
    platform::Event event;
    event.eventClass = codeOf(needField(params, "", "class"), "class");
    event.eventID = codeOf(needField(params, "", "id"), "id");
    event.target = signature_;
    const json* parameters = findField(params, "parameters");
    for (std::size_t i = 0; parameters != nullptr && i < arrayOf(*parameters, "parameters").size(); ++i) {
        const json& given = (*parameters)[i];
        const std::string path = elementPath("parameters", i);
        checkObject(given, path);
        const json* text = findField(given, "text");
        const json* bytes = findField(given, "bytes");
        if ((text == nullptr) == (bytes == nullptr)) {
            throw RpcError(kInvalidParams, path + " must have one of text and bytes");
        }
        platform::EventParameter parameter;
        parameter.keyword = codeOf(needField(given, path, "key"), fieldPath(path, "key"));
        parameter.type = "TEXT"_4;
        parameter.data =
            text != nullptr ? textOf(*text, fieldPath(path, "text")) : base64Of(*bytes, fieldPath(path, "bytes"));
        event.parameters.push_back(std::move(parameter));
    }
    numberField(output, "status", machine_->deliver(event));
}

void RpcSession::setMachine(const json& params, std::string& output) {
    changeMachine(params, *machine_);
    numberField(output, "ticks", machine_->input().ticks());
}

}  // namespace host
