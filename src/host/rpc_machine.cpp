#include "host/rpc_machine.h"

#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "host/rpc_json.h"

namespace host {

using nlohmann::json;

namespace {

constexpr std::int64_t kFirstSecond = -62'135'596'800;  // start of year 1
constexpr std::int64_t kLastSecond = 253'402'300'799;   // end of year 9999
constexpr std::int16_t kMaxButton = 3;
constexpr std::size_t kMaxName = 255;
constexpr std::size_t kMaxMenuItems = 32'767;

constexpr std::int16_t kDefaultWidth = 800;
constexpr std::int16_t kDefaultHeight = 600;

template <class Read>
auto listOf(const json& value, std::string_view path, Read read) {
    std::vector<decltype(read(value, path))> list;
    for (const json& element : arrayOf(value, path)) {
        list.push_back(read(element, elementPath(path, list.size())));
    }
    return list;
}

// Classic paths name a volume first.
std::string pathOf(const json& value, std::string_view path) {
    const std::string& text = textOf(value, path);
    if (text.empty() || text.front() == ':') {
        throw RpcError(kInvalidParams, std::string(path) + " must be a full classic path, VOLUME:FOLDER:NAME");
    }
    return text;
}

platform::Point readMouse(const json& value, std::string_view path) {
    checkFields(value, path, {"v", "h"});
    return {integerOf<std::int16_t>(needField(value, path, "v"), fieldPath(path, "v")),
            integerOf<std::int16_t>(needField(value, path, "h"), fieldPath(path, "h"))};
}

std::int16_t readLength(const json& value, std::string_view path, std::string_view name, std::int16_t otherwise) {
    const json* length = findField(value, name);
    return length == nullptr ? otherwise
                             : static_cast<std::int16_t>(integerOf(*length, fieldPath(path, name), 0, 32767));
}

platform::WindowRecord readWindow(const json& value, std::string_view path) {
    checkFields(value, path, {"title", "kind", "width", "height"});
    platform::WindowRecord window;
    window.title = textField(value, path, "title");
    window.kind = integerField<std::int16_t>(value, path, "kind", platform::userKind);
    window.width = readLength(value, path, "width", kDefaultWidth);
    window.height = readLength(value, path, "height", kDefaultHeight);
    window.clip = {0, 0, window.height, window.width};
    return window;
}

platform::MenuItem readMenuItem(const json& value, std::string_view path) {
    checkFields(value, path, {"text", "key"});
    platform::MenuItem item;
    item.text = textField(value, path, "text");
    if (const json* key = findField(value, "key")) {
        const std::string& text = textOf(*key, fieldPath(path, "key"));
        if (text.size() > 1 || (text.size() == 1 && static_cast<unsigned char>(text[0]) >= 0x80)) {
            throw RpcError(kInvalidParams, fieldPath(path, "key") + " must be one ASCII character");
        }
        item.commandKey = text.empty() ? '\0' : text[0];
    }
    return item;
}

std::map<std::int16_t, platform::Menu> readMenus(const json& value, std::string_view path) {
    std::map<std::int16_t, platform::Menu> menus;
    listOf(value, path, [&menus](const json& element, std::string_view at) {
        checkFields(element, at, {"id", "title", "items"});
        const auto id = integerOf<std::int16_t>(needField(element, at, "id"), fieldPath(at, "id"));
        platform::Menu menu;
        menu.title = textField(element, at, "title");
        if (const json* items = findField(element, "items")) {
            menu.items = listOf(*items, fieldPath(at, "items"), readMenuItem);
        }
        if (menu.items.size() > kMaxMenuItems) {
            throw RpcError(kInvalidParams, fieldPath(at, "items") + " has more than 32767 items");
        }
        if (!menus.emplace(id, std::move(menu)).second) {
            throw RpcError(kInvalidParams, fieldPath(at, "id") + " is that of a menu before it");
        }
        return 0;
    });
    return menus;
}

platform::RunningApplication readRunning(const json& value, std::string_view path) {
    checkFields(value, path, {"signature", "path"});
    return {codeOf(needField(value, path, "signature"), fieldPath(path, "signature")),
            pathOf(needField(value, path, "path"), fieldPath(path, "path"))};
}

std::map<std::string, platform::Launch> readLaunches(const json& value, std::string_view path) {
    if (!value.is_object()) {
        throw RpcError(kInvalidParams, std::string(path) + " must be an object");
    }
    std::map<std::string, platform::Launch> launches;
    for (const auto& [file, what] : value.items()) {
        const std::string at = fieldPath(path, file);
        platform::Launch launch;
        if (what.is_object()) {
            checkFields(what, at, {"signature", "after"});
            launch.signature = codeOf(needField(what, at, "signature"), fieldPath(at, "signature"));
            launch.afterSeconds = integerField<std::uint32_t>(what, at, "after", 0);
        } else {
            launch.signature = codeOf(what, at);
        }
        launches.emplace(pathOf(json(file), at), launch);
    }
    return launches;
}

std::int16_t readAnswer(const json& value, std::string_view path) {
    return static_cast<std::int16_t>(integerOf(value, path, 1, kMaxButton));
}

std::optional<platform::ScriptedChoice> readChoice(const json& value, std::string_view path) {
    if (value.is_null()) {
        return std::nullopt;
    }
    checkFields(value, path, {"folder", "name"});
    platform::ScriptedChoice choice{pathOf(needField(value, path, "folder"), fieldPath(path, "folder")),
                                    textField(value, path, "name")};
    if (choice.name.empty() || choice.name.size() > kMaxName || choice.name.find(':') != std::string::npos) {
        throw RpcError(kInvalidParams, fieldPath(path, "name") + " must be a name of 1 to 255 bytes without ':'");
    }
    return choice;
}

platform::Fault readFault(const json& value, std::string_view path) {
    checkFields(value, path, {"operation", "status", "times", "after"});
    platform::Fault fault;
    fault.operation = textField(value, path, "operation");
    if (!platform::isFaultOperation(fault.operation)) {
        throw RpcError(kInvalidParams, fieldPath(path, "operation") + " names no operation that can fail");
    }
    fault.status = integerOf<std::int16_t>(needField(value, path, "status"), fieldPath(path, "status"));
    if (fault.status == platform::noErr) {
        throw RpcError(kInvalidParams, fieldPath(path, "status") + " must not be 0, which is success");
    }
    fault.times = integerField<std::uint32_t>(value, path, "times", 1);
    fault.after = integerField<std::uint32_t>(value, path, "after", 0);
    return fault;
}

}  // namespace

void changeMachine(const json& params, platform::ScriptedMachine& machine) {
    checkFields(params, "",
                {"ticks", "seconds", "doubleClickTicks", "mouse", "windows", "menus", "running", "launches", "answers",
                 "choices", "faults"});
    // Lists of their final type, so that taking them over cannot fail half way.
    platform::ScriptedState state = machine.state();
    std::optional<std::vector<platform::WindowRecord>> windows;
    std::optional<std::map<std::int16_t, platform::Menu>> menus;
    for (const auto& [name, value] : params.items()) {
        if (name == "ticks") {
            state.ticks = value.is_null() ? std::nullopt : std::optional(integerOf<std::uint32_t>(value, name));
        } else if (name == "seconds") {
            state.seconds =
                value.is_null() ? std::nullopt : std::optional(integerOf(value, name, kFirstSecond, kLastSecond));
        } else if (name == "doubleClickTicks") {
            state.doubleClickTicks = integerOf<std::uint32_t>(value, name);
        } else if (name == "mouse") {
            state.mouse = readMouse(value, name);
        } else if (name == "windows") {
            windows = listOf(value, name, readWindow);
        } else if (name == "menus") {
            menus = readMenus(value, name);
        } else if (name == "running") {
            state.running = listOf(value, name, readRunning);
        } else if (name == "launches") {
            state.launches = readLaunches(value, name);
        } else if (name == "answers") {
            const auto answers = listOf(value, name, readAnswer);
            state.answers.assign(answers.begin(), answers.end());
        } else if (name == "choices") {
            auto choices = listOf(value, name, readChoice);
            state.choices.assign(std::make_move_iterator(choices.begin()), std::make_move_iterator(choices.end()));
        } else if (name == "faults") {
            state.faults = listOf(value, name, readFault);
        }
    }
    if (windows) {
        machine.memoryWindows().setWindows(*windows);
    }
    if (menus) {
        machine.memoryMenus().setMenus(std::move(*menus));
    }
    machine.state() = std::move(state);
}

}  // namespace host
