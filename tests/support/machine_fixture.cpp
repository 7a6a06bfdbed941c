#include "support/machine_fixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "frame/entry.h"
#include "util/text.h"

namespace support {

namespace fs = std::filesystem;

static std::string makeTemporaryFolder() {
    std::string path = (fs::temp_directory_path() / "quil-test-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("no temporary folder can be made at " + path);
    }
    return path;
}

MachineFixture::MachineFixture() : root_(makeTemporaryFolder()), disk_(root_ + "/Disk") {
    putFile("Apps/Host.app/Contents/MacOS/Host", "");
    const fs::path bundle = fs::path(root_) / "QUIL.fmplugin";
    fs::create_directories(bundle / "Contents");
    fs::create_directory_symlink(fs::path(QUIL_SOURCE_DIR) / "resources", bundle / "Contents/Resources");

    platform::LinuxOptions linuxOptions;
    linuxOptions.volumes = {{"Disk", disk_}};
    linuxOptions.application = kHostPath;
    files_ = platform::makeLinuxFiles(linuxOptions);
    resources_ = platform::makeBundleResources();
    std::string error;
    bundle_ = platform::openBundle(bundle.string(), error);
    if (bundle_ == nullptr) {
        throw std::runtime_error(error);
    }
    resources_->useBundle(bundle_.get());
    platform::ScriptedOptions scriptedOptions;
    scriptedOptions.application = kHostPath;
    machine_ = std::make_unique<platform::ScriptedMachine>(*files_, *resources_, scriptedOptions);
    before_ = platform::installMachine(machine_.get());
    quil::ResetPlugInState();
    quil::ResetLineCache();
}

MachineFixture::~MachineFixture() {
    quil::ResetPlugInState();
    platform::installMachine(before_);
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

void MachineFixture::makeFolder(std::string_view relative) const {
    fs::create_directories(posix(relative));
}

void MachineFixture::putFile(std::string_view relative, std::string_view content) const {
    const std::string path = posix(relative);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string MachineFixture::fileText(std::string_view relative) const {
    std::ifstream in(posix(relative), std::ios::binary);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string("(missing)");
}

bool MachineFixture::isThere(std::string_view relative) const {
    return fs::exists(posix(relative));
}

std::vector<std::string> MachineFixture::takeMessages() {
    std::vector<std::string> messages;
    for (platform::AlertEffect& alert : machine_->takeEffects().alerts) {
        messages.push_back(std::move(alert.message));
    }
    return messages;
}

}  // namespace support
