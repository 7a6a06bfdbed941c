// Map lists and record IDs with any bytes. The first byte chooses: a list file through HBT_ShowOnMapGetLST2 or
// HBT_GetInfoInit, whose answers are checked against what they must look like, or IDs through the record sets, which
// must agree with plain containers.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "maplayers/sessions.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "records/found_set.h"
#include "util/fhandle.h"

namespace {

using namespace quil;
namespace fs = std::filesystem;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A scripted machine over one temporary folder, for the whole run.
struct World {
    fs::path folder = fs::temp_directory_path() / ("quil-maplist-fuzz-" + std::to_string(getpid()));
    platform::LinuxOptions options;
    std::unique_ptr<platform::Files> files;
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    std::unique_ptr<platform::ScriptedMachine> machine;

    World() {
        fs::create_directories(folder);
        options.volumes = {{"Disk", folder.string()}};
        options.application = "Disk:Host";
        files = platform::makeLinuxFiles(options);
        machine = std::make_unique<platform::ScriptedMachine>(*files, *resources,
                                                              platform::ScriptedOptions{options.application});
        platform::installMachine(machine.get());
    }
    ~World() {
        platform::installMachine(nullptr);
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;
};

std::string call(std::int32_t (*handler)(long, char**, char**), std::string_view parameter) {
    char** in = NewFHandle(0);
    char** out = NewFHandle(0);
    SetResultsHandleText(in, parameter);
    handler(2, in, out);
    std::string answer(FHandleText(out));
    DisposeAndClearFHandle(&in);
    DisposeAndClearFHandle(&out);
    return answer;
}

void listFile(World& world, std::string_view content) {
    const fs::path path = world.folder / "objects.txt";
    std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
    call(HBT_ShowOnMapInit, "Coast");
    for (const char* id : {"B2000001", "S2000001", "B999009999"}) {
        call(HBT_ShownOnMapAppendID, id);
    }
    const std::string answer = call(HBT_ShowOnMapGetLST2, "Disk:objects.txt");
    require(gHbtIDsH == nullptr && gNumHbtIDs == 0);
    if (answer != "Disk:LST2.txt") {
        require(answer.empty() || answer.ends_with("\tCoast\r\n"));
        GeolensID before{};
        for (std::size_t at = 0; at < answer.size(); at = answer.find("\r\n", at) + 2) {
            const GeolensID id = GeolensStr2ID(answer.c_str() + at);
            require(!IsBadGeolensID(id) && CompareGeolensIDs(&before, &id) <= 0);
            before = id;
        }
    }
    const std::string count = call(HBT_GetInfoInit, "2|Disk:objects.txt");
    require(count == std::to_string(gNumHbtIDs) && !fs::exists(path));
    std::string last;
    for (std::int32_t i = 1; i <= gNumHbtIDs; ++i) {
        const std::string id = call(HBT_GetInfoGetID, std::to_string(i));
        require(!IsBadHbtID(HbtStr2ID(id.c_str())) && id != last);
        last = id;
    }
    call(HBT_GetInfoDispose, "");
}

// The lines of `text`, at most 23 bytes each.
std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, std::min<std::size_t>(end, 23)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

// What counts of an ID.
std::string compared(std::string id) {
    id.resize(kComparedIDBytes);
    return id;
}

void fill(FoundSet& set, const std::vector<std::string>& ids) {
    require(AllocateSet(set, static_cast<std::uint32_t>(ids.size())) == 0);
    for (const std::string& id : ids) {
        AppendID(set, id);
    }
}

void sets(std::string_view text, bool both) {
    const std::size_t half = std::min(text.find("\n\n"), text.size());
    const auto first = linesOf(text.substr(0, half));
    const auto second = linesOf(text.substr(half));
    FoundSet a{};
    FoundSet b{};
    fill(a, first);
    fill(b, second);
    std::set<std::string> inSecond;
    std::transform(second.begin(), second.end(), std::inserter(inSecond, inSecond.end()), compared);
    std::vector<std::string> expected;
    std::set<std::string> seen;
    for (const auto* ids : {&first, &second}) {
        for (const std::string& id : *ids) {
            const bool wanted = both ? ids == &first && inSecond.contains(compared(id)) : true;
            if (wanted && seen.insert(compared(id)).second) {
                expected.push_back(id);
            }
        }
    }
    require((both ? AndBooleanSets(a, b) : OrBooleanSets(a, b)) == 0);
    require(a.count == expected.size() && b.items == nullptr);
    for (std::uint32_t i = 0; i < a.count; ++i) {
        require(std::string_view(a.items[i].id, expected[i].size()) == expected[i]);
    }
    DisposeSet(a);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World sWorld;
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 3 == 0) {
        listFile(sWorld, text);
    } else {
        sets(text, data[0] % 3 == 1);
    }
    sWorld.machine->takeEffects();
    return 0;
}
