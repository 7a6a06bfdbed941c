// Events with any parameters, as partners send them. The input is a run of parameters: four bytes of keyword, two of
// length (the low byte first), the data; a keyword that begins with a lower-case letter calls a script function with
// the data instead. Whatever arrives, the handler answers 0 or -1708, at most 20 messages wait, what scripts read is
// UTF-8, and a cleaned map list holds each valid line once, in its first place.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/entry.h"
#include "frame/modules.h"
#include "messaging/map_list.h"
#include "messaging/named_lists.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "util/charset.h"
#include "util/fhandle.h"
#include "util/text.h"

namespace {

using namespace quil;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A scripted machine with both partners running; its volume is not written to.
struct World {
    platform::LinuxOptions options;
    std::unique_ptr<platform::Files> files;
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    std::unique_ptr<platform::ScriptedMachine> machine;

    World() {
        options.volumes = {{"Disk", "/nonexistent"}};
        options.application = "Disk:Host";
        files = platform::makeLinuxFiles(options);
        machine = std::make_unique<platform::ScriptedMachine>(*files, *resources,
                                                              platform::ScriptedOptions{options.application});
        machine->state().ticks = 0;
        machine->state().running = {{"GLN1"_4, "Disk:GEOLENS"}, {"SRC5"_4, "Disk:SIROC"}};
        platform::installMachine(machine.get());
    }
    ~World() { platform::installMachine(nullptr); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;
};

std::string call(const char* name, std::string_view parameter) {
    char** in = NewFHandle(0);
    char** out = NewFHandle(0);
    SetResultsHandleText(in, parameter);
    FindRow(name)->handler(2, in, out);
    std::string answer(FHandleText(out));
    DisposeAndClearFHandle(&in);
    DisposeAndClearFHandle(&out);
    return answer;
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\r'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

// Cleans the list and compares with the plain rule, where lines are ended by CR alone and none holds a mark.
void cleanList(std::string_view text) {
    char** handle = NewFHandle(0);
    SetHandleContentsAndIncludeTerminator(handle, std::string(text).c_str());
    const std::string before(FHandleText(handle));
    require(CleanUpLST2(handle) == 0);
    const std::string after(FHandleText(handle));
    DisposeAndClearFHandle(&handle);
    require(after.size() <= before.size());
    if (before.find_first_of("\n\x01") != std::string::npos || NumLinesInText(before.c_str()) < 2) {
        return;
    }
    std::vector<std::string> expected;
    std::set<std::string> seen;
    for (const std::string& line : linesOf(before)) {
        std::string upper = line;
        StrToUpper(upper.data());
        if (ValidLST2Line(line.c_str()) && seen.insert(upper).second) {
            expected.push_back(line);
        }
    }
    require(linesOf(after) == expected);
}

// The script function that a lower-case letter stands for.
void callFunction(char letter, std::string_view data) {
    static constexpr const char* kNames[] = {"GLN1SetHandledMessages",
                                             "GLN1SetGeolensSharingMenuActions",
                                             "GLN1SetSirocSharingMenuActions",
                                             "GLN1SetGeolensSharingMenu",
                                             "GLN1SetKnownFriend",
                                             "GLN1SetGeolensFirstView",
                                             "GLN1SetGeolensNoneSelectedGetInfoAlert",
                                             "GLN1SetGeolensMoreThanOneSelectedLinkAlert",
                                             "GLN1GetParameter",
                                             "GLN1GetParameterLST2",
                                             "GLN1GetParameterLST2Line",
                                             "GLN1SetParameter",
                                             "GLN1AppendToParameter",
                                             "GLN1SendMessageTo",
                                             "GLN1ShowOnMap",
                                             "GLN1SetSIGNPSIG",
                                             "GLN1GetNextMessage"};
    constexpr std::size_t kCount = sizeof kNames / sizeof kNames[0];
    const auto index = static_cast<std::size_t>(letter - 'a');
    if (index < kCount) {
        call(kNames[index], data);
    } else {
        cleanList(data);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World sWorld;
    ResetPlugInState();
    GLN1_Plugin_Startup();
    call("GLN1InitIAC", "");
    platform::Event event{"QUIL"_4, "AEVT"_4, "FMP7"_4, {}};
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (rest.size() >= 6) {
        const std::string_view keyword = rest.substr(0, 4);
        const auto length = static_cast<std::size_t>(static_cast<unsigned char>(rest[4])) |
                            static_cast<std::size_t>(static_cast<unsigned char>(rest[5])) << 8;
        const std::string_view value = rest.substr(6, length);
        rest.remove_prefix(6 + value.size());
        if (keyword[0] >= 'a' && keyword[0] <= 'z') {
            callFunction(keyword[0], value);
            continue;
        }
        if (keyword == "MSSG" && !event.parameters.empty()) {  // begins the next message
            const platform::Status status = sWorld.machine->deliver(event);
            require(status == 0 || status == platform::errAEEventNotHandled);
            event.parameters.clear();
        }
        event.parameters.push_back({StringToOSType(std::string(keyword).c_str()), "TEXT"_4, std::string(value), false});
    }
    const platform::Status status = sWorld.machine->deliver(event);
    require(status == 0 || status == platform::errAEEventNotHandled);
    GLN1_Plugin_Idle();
    std::size_t waiting = 0;
    while (gArchivedIncomingMessageParameterDataNodeList[0] != nullptr) {
        require(++waiting <= kArchiveSlots);
        call("GLN1GetNextMessage", "");
        for (const DataNode* node = gIncomingMessageParameterDataNodeList; node != nullptr; node = node->next) {
            require(my_IsUtf8(std::string(FHandleText(node->data)).c_str()));
        }
        call("GLN1GetParameterLST2", "GEOLENSID TAB LAYERNAME TAB MAPNAME RETURN");
        call("GLN1CopyIncomingLST2ToOutgoingLST2", "");
        call("GLN1ProcessLST2ParameterForGeolens", "");
    }
    GLN1_Plugin_Shutdown();
    sWorld.machine->takeEffects();
    return 0;
}
