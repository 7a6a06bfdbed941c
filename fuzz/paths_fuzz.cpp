// Paths and submission years with any bytes. The first byte chooses: a path and a folder through the resolvers, the
// file manager and the conversions between classic and POSIX, or a file of which the years are told and changed with
// small buffers, so that every place of an identifier meets a border; both beside the plain way.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "files/base_directory.h"
#include "files/years.h"
#include "messaging/globals.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/linux/names.h"
#include "platform/scripted/scripted_machine.h"
#include "util/paths.h"

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
    fs::path folder = fs::temp_directory_path() / ("quil-paths-fuzz-" + std::to_string(getpid()));
    platform::LinuxOptions options;
    std::unique_ptr<platform::Files> files;
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    std::unique_ptr<platform::ScriptedMachine> machine;

    World() {
        fs::create_directories(folder / "a/b");
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

// The resolver's rules, plainly.
std::string resolved(std::string path, std::string folder) {
    if (path.empty() || (path[0] != ':' && path[0] != '\\')) {
        return path;
    }
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\' && !(i + 1 < path.size() && path[i + 1] == ':')) {
            path[i] = ':';
        }
    }
    std::size_t levels = 0;
    while (levels + 1 < path.size() && path[levels + 1] == ':') {
        ++levels;
        folder.resize(std::min(folder.rfind(':'), folder.size()));
    }
    return (folder + path.substr(levels)).substr(0, 255);
}

void paths(World& world, std::string_view text) {
    const std::string folder(text.substr(0, text.find('\n')));
    const std::string path(text.substr(std::min(folder.size() + 1, text.size())));
    const std::string shortPath = std::string(path.c_str()).substr(0, 255);
    SetGlobalFromStr("App Folder with Delim", 1, folder.c_str());
    std::string base = std::string(folder.c_str()).substr(0, 255);
    base.resize(std::min(base.rfind(':'), base.size()));
    char out[256];
    require(ResolvePathRelativeToApplication(path.c_str(), out) == out);
    require(resolved(shortPath, base) == out);

    require(platform::exchanged(platform::exchanged(path)) == path);
    for (const std::string& classic : {path, "Disk:" + path, "Disk:a:b:" + path, std::string(out)}) {
        platform::FSSpec spec;
        const platform::Status status = world.files->makeSpec(0, 0, classic, spec);
        std::string posix;
        if (status == platform::noErr && world.files->posixPath(spec, posix) == platform::noErr) {
            // Nothing leads out of the volume.
            require(posix == world.folder.string() || posix.starts_with(world.folder.string() + "/"));
            require(("/" + posix + "/").find("/../") == std::string::npos);
        }
        if (status == platform::noErr || status == platform::fnfErr) {
            platform::FSSpec again;
            require(world.files->makeSpec(spec.vRefNum, spec.parID, spec.nameView(), again) == status);
            require(again.parID == spec.parID && again.nameView() == spec.nameView());
        }
    }
}

bool isRecognised(const char* text) {
    const short year = TorvaneYearFromID(text);
    return year >= kFirstTorvaneYear && year <= kLastTorvaneYear;
}

void years(World& world, std::string text, short year) {
    // Stretched, so that the text lies across a border of what is read at once.
    static constexpr std::size_t kBorder = 300'008;
    const std::size_t before = text.size() % 2 == 0 ? 0 : kBorder - text.size() / 2;
    text.insert(0, before, '.');
    std::ofstream(world.folder / "years", std::ios::binary)
        .write(text.data(), static_cast<std::streamsize>(text.size()));
    TorvaneYearInfo expected;
    InitTorvaneYearInfo(&expected);
    std::string changed = text;
    if (text.size() >= 20) {
        for (std::size_t at = before > 8 ? before - 8 : 0; at + 8 <= text.size(); ++at) {
            if (isRecognised(text.c_str() + at)) {
                expected.year[TorvaneYearFromID(text.c_str() + at) - kFirstTorvaneYear] = 1;
                changed.replace(at + 4, 4, std::to_string(year));
            }
        }
    }
    TorvaneYearInfo found;
    char errorText[256];
    short error = 0;
    GetTorvaneYearsFromIDs(&found, "Disk:years", errorText, &error);
    require(error == 0 && std::memcmp(&found, &expected, sizeof found) == 0);
    require(ChangeTorvaneIDsInFile("Disk:years", year, errorText) == 0);
    std::ifstream in(world.folder / "years", std::ios::binary);
    require(std::string(std::istreambuf_iterator<char>(in), {}) == changed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World sWorld;
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 0) {
        paths(sWorld, text);
    } else {
        years(sWorld, std::string(text), static_cast<short>(kFirstTorvaneYear + data[0] / 2 % 20));
    }
    sWorld.machine->takeEffects();
    return 0;
}
