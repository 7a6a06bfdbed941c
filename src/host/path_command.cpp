// `quil path`: what a path means to the plug-in, classic or POSIX.

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "host/commands.h"
#include "host/shown_text.h"
#include "platform/linux/names.h"
#include "platform/linux/volumes.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr std::size_t kLongestPath = 255;
constexpr char kNoName[] = "\".\" and \"..\" are no names in a classic path";

struct PathOptions {
    std::vector<std::string> paths;
    bool classic = false;
    bool posix = false;
    bool brief = false;
};

std::string codeText(platform::OSType code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        platform::appendUtf8(text, platform::characterOfMacRoman(static_cast<char>(code >> shift & 0xFF)));
    }
    return "'" + shown(text) + "'";
}

std::string encodingOf(std::string_view name) {
    const bool ascii = std::all_of(name.begin(), name.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
    return ascii ? "ASCII" : platform::isUtf8(name) ? "UTF-8" : "not UTF-8: taken as Mac Roman";
}

// A POSIX path of a classic one, folder by folder as it is written: for what is not there.
std::string posixAsWritten(const platform::LinuxOptions& machine, std::string_view classic) {
    const std::vector<platform::Volume> volumes = platform::volumesOf(machine);
    const std::size_t colon = classic.find(':');
    const std::size_t volume = platform::volumeNamed(volumes, classic.substr(0, colon));
    if (volume == volumes.size()) {
        return {};
    }
    std::vector<std::string> names;
    for (std::string_view rest = colon == std::string_view::npos ? "" : classic.substr(colon + 1); !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        if (!name.empty()) {
            names.push_back(platform::exchanged(name));
        } else if (!names.empty()) {
            names.pop_back();
        }
    }
    std::string path = volumes[volume].directory;
    for (const std::string& name : names) {
        path += "/" + name;
    }
    return path.empty() ? "/" : path;
}

class Explainer {
  public:
    Explainer(const PathOptions& options, Context& context)
        : options_(options), context_(context), files_(platform::makeLinuxFiles(context.machine)) {}

    void explain(const std::string& given) {
        if (given.empty()) {
            throw HostError("an empty path names nothing");
        }
        const bool isPosix =
            options_.posix || (!options_.classic && (given.starts_with('/') || given.starts_with("./") ||
                                                     given.starts_with("../") || given.find(':') == given.npos));
        std::string classic = given;
        std::string volumeRead;  // what the plug-in reads otherwise than the system
        if (isPosix) {
            const std::string absolute = belowVolume(std::filesystem::absolute(given).string(), volumeRead);
            classic = platform::classicPathOf(context_.machine, absolute);
            if (classic.empty()) {
                throw HostError(given + ": is on no volume; add one with --volume NAME=DIR");
            }
        } else if (given.starts_with(':') || given.starts_with('\\')) {
            classic = fullPath(given);
        }
        platform::FSSpec spec;
        const platform::Status status = files_->makeSpec(0, 0, classic, spec);
        std::string posix = hasNoName(classic) ? "" : posixAsWritten(context_.machine, classic);
        std::string stored;
        if (status == platform::noErr && files_->posixPath(spec, posix) == platform::noErr) {
            stored = platform::classicPathOf(context_.machine, posix);
        } else if (status == platform::fnfErr) {
            const std::size_t colon = classic.rfind(':');
            platform::FSSpec folder;
            std::string path;
            if (files_->makeSpec(0, 0, classic.substr(0, colon + 1), folder) == platform::noErr &&
                files_->posixPath(folder, path) == platform::noErr) {
                posix = (path == "/" ? "" : path) + "/" + platform::exchanged(spec.nameView());
            }
        }
        if (options_.brief) {
            const std::string& other = isPosix ? classic : posix;
            if (other.empty()) {
                throw HostError(given + ": " + (hasNoName(classic) ? kNoName : "there is no such volume"));
            }
            writeOutput(other + "\n");
            return;
        }
        std::string text = shown(given) + "\n";
        const auto line = [&text](const char* label, const std::string& value) {
            text += std::string("  ") + label + std::string(11 - std::string_view(label).size(), ' ') + value + "\n";
        };
        line("classic",
             shown(classic) + (classic.size() > kLongestPath ? " (" + std::to_string(classic.size()) +
                                                                   " bytes: script functions see only the first 255)"
                                                             : ""));
        line("POSIX", posix.empty() ? "none" : shown(posix));
        if (!volumeRead.empty()) {
            line("read as", shown(volumeRead));
        }
        line("volume", volumeText(classic));
        line("exists", existsText(status, classic, posix));
        if (!stored.empty() && withoutColon(stored) != withoutColon(classic)) {
            line("on disk", shown(stored));
        }
        line("writable", writableText(status, posix));
        platform::FInfo info;
        if (status == platform::noErr && files_->getFinderInfo(spec, info) == platform::noErr) {
            line("Finder", info.fdType == 0 && info.fdCreator == 0
                               ? "no type and creator"
                               : "type " + codeText(info.fdType) + ", creator " + codeText(info.fdCreator));
        }
        line("name",
             encodingOf(posix.empty() ? classic.substr(classic.rfind(':') + 1) : posix.substr(posix.rfind('/') + 1)));
        writeOutput(text);
    }

  private:
    static std::string_view withoutColon(std::string_view path) {
        return path.ends_with(':') ? path.substr(0, path.size() - 1) : path;
    }

    // Where the plug-in finds a POSIX path: "/Volumes/NAME" is the volume NAME to it, which `volumeRead` says then.
    std::string belowVolume(const std::string& absolute, std::string& volumeRead) const {
        const std::vector<platform::Volume> volumes = platform::volumesOf(context_.machine);
        std::size_t volume = volumes.size();
        std::string path;
        platform::volumePath(volumes, absolute, path, volume);
        if (volume == volumes.size()) {
            return absolute;
        }
        if (path.empty()) {
            throw HostError(absolute + ": leads out of its volume");
        }
        volumeRead =
            path + ": \"/Volumes/" + platform::exchanged(volumes[volume].name) + "\" is the volume to script functions";
        return path;
    }

    // A relative path, as the plug-in resolves it.
    std::string fullPath(const std::string& relative) {
        if (relative.find('|') != relative.npos) {
            throw HostError(relative +
                            ": a relative path cannot hold '|', which ends it in a script; name the full path");
        }
        if (!session_) {
            session_.emplace(context_);
        }
        return session_->plugin().external("GLN1ResolveRelativePath", relative).text;
    }

    std::string volumeText(const std::string& classic) const {
        const std::vector<platform::Volume> volumes = platform::volumesOf(context_.machine);
        const std::string name = classic.substr(0, classic.find(':'));
        const std::size_t volume = platform::volumeNamed(volumes, name);
        if (volume == volumes.size()) {
            return "there is none named " + shown(name);
        }
        const std::string& directory = volumes[volume].directory;
        return shown(volumes[volume].name) + ", which is " + shown(directory.empty() ? "/" : directory);
    }

    // Whether a component of a classic path is one that leads elsewhere in a POSIX path, and no name.
    static bool hasNoName(std::string_view classic) {
        const std::string names = ":" + std::string(classic) + ":";
        return names.find(":.:") != names.npos || names.find(":..:") != names.npos;
    }

    // The item that stands where a path wants a folder.
    static std::string noFolderText(const std::string& posix) {
        struct stat item {};
        for (std::size_t slash = posix.size(); slash != posix.npos && slash != 0; slash = posix.rfind('/', slash - 1)) {
            const std::string path = posix.substr(0, slash);
            if (::stat(path.c_str(), &item) == 0) {
                return S_ISDIR(item.st_mode) ? "no, nor does its folder" : "no, " + shown(path) + " is no folder";
            }
        }
        return "no, nor does its folder";
    }

    static std::string existsText(platform::Status status, const std::string& classic, const std::string& posix) {
        struct stat item {};
        switch (status) {
            case platform::noErr:
                break;
            case platform::fnfErr:
                return "no; its folder does";
            case platform::dirNFErr:
                return noFolderText(posix);
            case platform::nsvErr:
                return "no, the volume is not there";
            case platform::bdNamErr:
                return std::string("no, ") + (hasNoName(classic) ? kNoName : "a name in it is longer than 255 bytes");
            default:
                return "cannot be told (error " + std::to_string(status) + ")";
        }
        if (::lstat(posix.c_str(), &item) != 0) {
            return "no longer";
        }
        if (S_ISLNK(item.st_mode)) {
            std::error_code error;
            const std::string target = std::filesystem::read_symlink(posix, error).string();
            return "yes, a link to " + shown(target) +
                   (::stat(posix.c_str(), &item) != 0 ? ", which does not exist" : "");
        }
        return S_ISREG(item.st_mode)   ? "yes, a file"
               : S_ISDIR(item.st_mode) ? "yes, a folder"
                                       : "yes, but neither a file nor a folder: the plug-in does not open it";
    }

    static std::string writableText(platform::Status status, const std::string& posix) {
        struct stat item {};
        if (status != platform::noErr && status != platform::fnfErr) {
            return "no";
        }
        if (status == platform::fnfErr) {
            const std::string folder = posix.substr(0, std::max<std::size_t>(posix.rfind('/'), 1));
            return ::access(folder.c_str(), W_OK) == 0 ? "yes, it can be created" : "no, its folder is not";
        }
        if (::stat(posix.c_str(), &item) == 0 && S_ISREG(item.st_mode) && (item.st_mode & S_IWUSR) == 0) {
            return "no, it is locked";
        }
        return ::access(posix.c_str(), W_OK) == 0 ? "yes" : "no";
    }

    const PathOptions& options_;
    Context& context_;
    std::unique_ptr<platform::Files> files_;
    std::optional<Session> session_;
};

}  // namespace

void addPathCommand(CLI::App& app, Context& context) {
    const auto options = std::make_shared<PathOptions>();
    CLI::App* command = app.add_subcommand("path", "Explain paths: their classic and POSIX forms, and what is there");
    command->add_option("PATH", options->paths, "Classic or POSIX paths")->required()->type_name("");
    CLI::Option* classic = command->add_flag("--classic", options->classic, "The paths given are classic ones");
    command->add_flag("--posix", options->posix, "The paths given are POSIX ones")->excludes(classic);
    command->add_flag("-b,--brief", options->brief, "Write the other form alone, byte for byte");
    command->footer(
        "Without --classic or --posix, a path with a ':' that does not begin with '/', './' or '../' is a classic "
        "one.\n"
        "In names, '/' of the one form is ':' of the other.");
    command->callback([options, &context] {
        Explainer explainer(*options, context);
        for (const std::string& path : options->paths) {
            try {
                explainer.explain(path);
            } catch (const HostError& error) {
                std::fprintf(stderr, "quil: %s\n", shownOn(STDERR_FILENO, error.what()).c_str());
                context.status = 1;
            }
        }
    });
}

}  // namespace host
