// `quil partner`: stands in for a partner application while a solution is developed.

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <lua.hpp>
#include <memory>

#include "host/commands.h"
#include "host/rpc_json.h"
#include "host/solution_life.h"
#include "platform/linux/bus.h"
#include "platform/text.h"

namespace host {

namespace {

using platform::operator""_4;
using json = nlohmann::json;

constexpr std::size_t kLongestLine = 2 * platform::largestEvent;
constexpr std::size_t kMostWaiting = 20000;  // events
constexpr auto kBetweenLooks = std::chrono::milliseconds(250);

struct PartnerOptions {
    std::string signature;
    std::string rules;
    double seconds = -1;
    bool greet = false;
};

std::string codeText(platform::OSType code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += static_cast<char>(code >> shift & 0xFF);
    }
    return text;
}

// The bytes of a parameter; empty when it is not there.
std::string textIn(const platform::Event& event, platform::OSType keyword) {
    for (const platform::EventParameter& parameter : event.parameters) {
        if (parameter.keyword == keyword) {
            return parameter.data;
        }
    }
    return {};
}

// {"from": "FMP7", "class": "QUIL", "id": "AEVT", "parameters": [{"key": "MSSG", "text": "HOLA"}]}
std::string lineOf(const platform::ArrivedEvent& arrived) {
    const platform::Event& event = arrived.event;
    std::string line = "{\"from\": ";
    appendText(line, textIn(event, "SIGN"_4).empty() ? arrived.sender : textIn(event, "SIGN"_4));
    line += ", \"class\": ";
    appendCode(line, event.eventClass);
    line += ", \"id\": ";
    appendCode(line, event.eventID);
    line += ", \"parameters\": [";
    const char* separator = "";
    for (const platform::EventParameter& parameter : event.parameters) {
        line += std::exchange(separator, ", ");
        line += "{\"key\": ";
        appendCode(line, parameter.keyword);
        line += ", \"text\": ";
        if (!appendUtf8(line, parameter.data)) {
            line.replace(line.size() - 8, 8, "\"bytes\": ");
            appendBase64(line, parameter.data);
        }
        line += '}';
    }
    return line + "]}\n";
}

// The rules of --answer: a table of answers by message name, or functions that give them; "*" is for all others.
class Rules {
  public:
    Rules() : state_(luaL_newstate(), &lua_close) {
        for (const luaL_Reg& library : {luaL_Reg{LUA_GNAME, luaopen_base},
                                        {LUA_STRLIBNAME, luaopen_string},
                                        {LUA_TABLIBNAME, luaopen_table},
                                        {LUA_MATHLIBNAME, luaopen_math},
                                        {LUA_UTF8LIBNAME, luaopen_utf8}}) {
            luaL_requiref(state_.get(), library.name, library.func, 1);
            lua_pop(state_.get(), 1);
        }
    }

    void load(const std::string& file) {
        lua_State* const state = state_.get();
        if (luaL_loadfilex(state, file.c_str(), "t") != LUA_OK || lua_pcall(state, 0, 1, 0) != LUA_OK) {
            throw HostError("the rules cannot be read: " + std::string(luaL_tolstring(state, -1, nullptr)));
        }
        if (!lua_istable(state, -1)) {
            throw HostError("the rules \"" + file +
                            "\" have to return a table of answers by message name; docs/partners.md shows one");
        }
        lua_setglobal(state, "rules");
    }

    // Calls `send` with each answer, as keywords and values.
    template <class Send>
    void answer(const platform::Event& event, Send send) {
        lua_State* const state = state_.get();
        lua_settop(state, 0);
        if (lua_getglobal(state, "rules") != LUA_TTABLE) {
            return;
        }
        constexpr platform::OSType kMessage = "MSSG"_4;
        const std::string message = textIn(event, kMessage);
        lua_pushlstring(state, message.data(), message.size());
        if (lua_rawget(state, 1) == LUA_TNIL) {
            lua_pushliteral(state, "*");
            lua_rawget(state, 1);
        }
        if (lua_isfunction(state, -1)) {
            lua_createtable(state, 0, static_cast<int>(event.parameters.size()));
            for (const platform::EventParameter& parameter : event.parameters) {
                const std::string key = codeText(parameter.keyword);
                lua_pushlstring(state, key.data(), key.size());
                const std::string value = platform::utf8Of(parameter.data);
                lua_pushlstring(state, value.data(), value.size());
                lua_rawset(state, -3);
            }
            if (lua_pcall(state, 1, 1, 0) != LUA_OK) {
                throw HostError("the rule for \"" + message + "\" failed: " + luaL_tolstring(state, -1, nullptr));
            }
        }
        if (!lua_istable(state, -1)) {
            return;
        }
        const auto count = static_cast<lua_Integer>(lua_rawlen(state, -1));
        if (count == 0) {
            send(readTable());
        }
        for (lua_Integer i = 1; i <= count; ++i) {
            if (lua_rawgeti(state, -1, i) == LUA_TTABLE) {
                send(readTable());
            }
            lua_pop(state, 1);
        }
    }

  private:
    json readTable() {
        lua_State* const state = state_.get();
        json parameters = json::object();
        for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
            if (lua_type(state, -2) == LUA_TSTRING && lua_isstring(state, -1) != 0) {
                lua_pushvalue(state, -1);  // as a text, without touching the table
                std::size_t size = 0;
                const char* const bytes = lua_tolstring(state, -1, &size);
                parameters[lua_tostring(state, -3)] = std::string(bytes, size);
                lua_pop(state, 1);
            }
        }
        return parameters;
    }

    std::unique_ptr<lua_State, decltype(&lua_close)> state_;
};

class StandIn {
  public:
    StandIn(const PartnerOptions& options, platform::OSType host)
        : signature_(codeOf(json(options.signature), "SIGNATURE")), host_(host), greets_(options.greet) {
        if (!options.rules.empty()) {
            rules_.load(options.rules);
        }
        bus_ = platform::makeBus({.signature = signature_,
                                  .arrived =
                                      [this](platform::ArrivedEvent&& event) {
                                          if (waiting_.size() == kMostWaiting) {
                                              return false;
                                          }
                                          waiting_.push_back(std::move(event));
                                          return true;
                                      },
                                  .log =
                                      [](const char* reason, const std::string& detail) {
                                          std::fprintf(stderr, "quil: %s%s%s\n", reason, detail.empty() ? "" : ": ",
                                                       detail.c_str());
                                      }});
        if (bus_ == nullptr) {
            throw HostError("this program was built without the message bus (package libsystemd-dev)");
        }
        if (bus_->serve() != platform::noErr) {
            throw HostError("a partner needs the session bus; start one with dbus-run-session -- COMMAND");
        }
    }

    int live(const Life& life) {
        bool open = true;
        const int either = ::epoll_create1(EPOLL_CLOEXEC);  // the bus or the input
        const struct Close {
            int descriptor;
            ~Close() { ::close(descriptor); }
        } close{either};
        for (const int descriptor : {bus_->descriptor(), STDIN_FILENO}) {
            epoll_event event{};
            event.events = EPOLLIN;
            ::epoll_ctl(either, EPOLL_CTL_ADD, descriptor,
                        &event);  // a regular file cannot be waited for, and need not
        }
        while (!life.over()) {
            bus_->pump();
            greet();
            while (!waiting_.empty()) {
                const platform::ArrivedEvent event = std::move(waiting_.front());
                waiting_.pop_front();
                handle(event);
            }
            life.sleepUntil(Life::Clock::now() + kBetweenLooks, either);
            pollfd input{open ? STDIN_FILENO : -1, POLLIN, 0};
            if (::poll(&input, 1, 0) > 0 && !(open = readInput())) {
                ::epoll_ctl(either, EPOLL_CTL_DEL, STDIN_FILENO, nullptr);
            }
        }
        if (greeted_) {
            send({{"MSSG", "BYE "}}, host_);
        }
        return failed_ ? 1 : 0;
    }

  private:
    // Parameters in wire order: the standard ones first, the others by name.
    void send(json parameters, platform::OSType receiver) {
        const std::string own = codeText(signature_);
        platform::Event event{"QUIL"_4, "AEVT"_4, receiver, {}};
        const std::pair<const char*, std::string> standard[] = {
            {"MSSG", ""}, {"SIGN", own}, {"PSIG", own}, {"XTRA", ""}, {"NCOD", "utf-8"}};
        for (const auto& [key, usual] : standard) {
            add(event, key, parameters.contains(key) ? parameters[key] : json(usual));
            parameters.erase(key);
        }
        for (const auto& [key, value] : parameters.items()) {
            add(event, key, value);
        }
        dispatch(event);
    }

    static void add(platform::Event& event, const std::string& key, const json& value) {
        event.parameters.push_back({codeOf(json(key), "parameters"), "TEXT"_4, textOf(value, key), false});
    }

    void dispatch(const platform::Event& event) {
        if (const platform::Status status = bus_->send(event); status != platform::noErr) {
            tell("the message to " + codeText(event.target) + " was not sent: " +
                 (status == platform::procNotFound    ? "it does not run"
                  : status == platform::bufferIsSmall ? "it does not read its messages"
                                                      : "status " + std::to_string(status)));
        }
    }

    void greet() {
        if (!greets_ || greeted_) {
            return;
        }
        platform::BusPartner partner;
        for (auto process = platform::hostProcess; bus_->nextPartner(process) == platform::noErr;) {
            if (bus_->partner(process, partner) == platform::noErr && partner.signature == host_) {
                greeted_ = true;
                send({{"MSSG", "HOLA"}, {"NAME", "quil partner"}}, host_);
                return;
            }
        }
    }

    void handle(const platform::ArrivedEvent& arrived) {
        if (arrived.answer) {
            arrived.answer(platform::noErr);
        }
        writeOutput(lineOf(arrived));
        const std::string sender = textIn(arrived.event, "SIGN"_4);
        platform::OSType receiver = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            receiver = receiver << 8 | static_cast<unsigned char>(i < sender.size() ? sender[i] : ' ');
        }
        try {
            if (greets_ && textIn(arrived.event, "MSSG"_4) == "HOLA") {
                greeted_ = true;
                send({{"MSSG", "OKHI"}, {"NAME", "quil partner"}}, receiver);
            }
            rules_.answer(arrived.event, [&](const json& answer) { send(answer, receiver); });
        } catch (const std::exception& error) {
            tell(error.what());
        }
    }

    // False at the end.
    bool readInput() {
        std::array<char, 65536> block;
        const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
        if (count < 0) {
            return errno == EINTR || errno == EAGAIN;
        }
        input_.append(block.data(), static_cast<std::size_t>(count));
        if (count == 0 && !input_.empty()) {
            input_ += '\n';
        }
        std::size_t start = 0;
        for (std::size_t end = 0; (end = input_.find('\n', start)) != std::string::npos; start = end + 1) {
            ++line_;
            obey(std::string_view(input_).substr(start, end - start));
        }
        input_.erase(0, start);
        if (input_.size() > kLongestLine) {
            tell("standard input:" + std::to_string(line_ + 1) + ": the line is longer than 32 MiB");
            input_.clear();
        }
        return count > 0;
    }

    void obey(std::string_view line) {
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
            return;
        }
        try {
            const json request = parseJson(line);
            checkFields(request, "", {"to", "from", "class", "id", "parameters"});
            const json* to = findField(request, "to");
            const platform::OSType receiver = to == nullptr ? host_ : codeOf(*to, "to");
            const json& parameters = needField(request, "", "parameters");
            if (parameters.is_object()) {
                send(parameters, receiver);
                return;
            }
            platform::Event event{"QUIL"_4, "AEVT"_4, receiver, {}};
            if (const json* code = findField(request, "class")) {
                event.eventClass = codeOf(*code, "class");
            }
            if (const json* code = findField(request, "id")) {
                event.eventID = codeOf(*code, "id");
            }
            for (const json& parameter : arrayOf(parameters, "parameters")) {
                checkFields(parameter, "parameters", {"key", "text", "bytes"});
                const json* bytes = findField(parameter, "bytes");
                event.parameters.push_back(
                    {codeOf(needField(parameter, "parameters", "key"), "key"), "TEXT"_4,
                     bytes != nullptr ? base64Of(*bytes, "bytes") : textField(parameter, "parameters", "text"), false});
            }
            dispatch(event);
        } catch (const RpcError& error) {
            tell("standard input:" + std::to_string(line_) + ": " + error.what());
        }
    }

    void tell(const std::string& text) {
        failed_ = true;
        std::fprintf(stderr, "quil: %s\n", text.c_str());
    }

    platform::OSType signature_;
    platform::OSType host_;
    bool greets_;
    bool greeted_ = false;
    bool failed_ = false;
    Rules rules_;
    std::deque<platform::ArrivedEvent> waiting_;
    std::string input_;  // an unfinished line
    std::size_t line_ = 0;
    std::unique_ptr<platform::Bus> bus_;
};

}  // namespace

void addPartnerCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("partner", "Stand in for a partner application (docs/partners.md)");
    const auto options = std::make_shared<PartnerOptions>();
    command->add_option("SIGNATURE", options->signature, "The partner's signature, four characters")
        ->required()
        ->type_name("");
    command->add_flag("--greet", options->greet,
                      "Greet the host (the one of --signature) when it is there, answer its greeting, say goodbye");
    command->add_option("--answer", options->rules, "Answer messages by the rules in this Lua file")
        ->type_name("RULES.lua");
    command->add_option("--for", options->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    command->footer(
        "Each event that arrives is printed as one line of JSON. Lines of JSON on standard input are sent:\n"
        "  {\"parameters\": {\"MSSG\": \"MHIT\", \"ITEM\": \"1\"}}     with SIGN, PSIG, XTRA and NCOD added\n"
        "  {\"to\": \"FMP7\", \"parameters\": [{\"key\": \"MSSG\", \"text\": \"HOLA\"}]}   exactly as it stands\n"
        "It lives until it is interrupted, also when its input has ended.");
    command->callback([options, &context] {
        try {
            const Life life(options->seconds < 0 ? std::nullopt : std::optional<double>(options->seconds), false);
            context.status = StandIn(*options, context.machine.signature).live(life);
        } catch (const RpcError& error) {
            throw CLI::ValidationError(error.what());
        }
    });
}

}  // namespace host
