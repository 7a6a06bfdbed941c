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
#include "platform/linux/names.h"
#include "platform/linux/volumes.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr std::size_t kLongestPath = 255;

struct PathOptions {
    std::vector<std::string> paths;
    bool classic = false;
    bool posix = false;
    bool brief = false;
};

// Text for the terminal: control characters and what is not UTF-8 as \xHH, and '\' doubled where there are any.
std::string shown(std::string_view bytes) {
    const bool plain = platform::isUtf8(bytes) && std::none_of(bytes.begin(), bytes.end(), [](char c) {
                           return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
                       });
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t start = at;
        const char32_t character = platform::nextCharacter(bytes, at);
        if (plain || (character != platform::noCharacter && character >= 0x20 && character != 0x7F)) {
            at = plain ? bytes.size() : at;
            text += bytes.substr(start, at - start);
            text += !plain && character == '\\' ? "\\" : "";
            continue;
        }
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned char>(bytes[start]));
        text += code;
        at = start + 1;
    }
    return text;
}

std::string codeText(platform::OSType code) {
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += static_cast<char>(code >> shift & 0xFF);
    }
    return text + "'";
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
        const bool isPosix =
            options_.posix || (!options_.classic && (given.starts_with('/') || given.starts_with("./") ||
                                                     given.starts_with("../") || given.find(':') == given.npos));
        std::string classic = given;
        if (isPosix) {
            const std::string absolute = std::filesystem::absolute(given).string();
            classic = platform::classicPathOf(context_.machine, absolute);
            if (classic.empty()) {
                throw HostError(given + ": is on no volume; add one with --volume NAME=DIR");
            }
        } else if (given.starts_with(':') || given.starts_with('\\')) {
            classic = fullPath(given);
        }
        platform::FSSpec spec;
        const platform::Status status = files_->makeSpec(0, 0, classic, spec);
        std::string posix = posixAsWritten(context_.machine, classic);
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
                throw HostError(given + ": there is no such volume");
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
        line("volume", volumeText(classic));
        line("exists", existsText(status, posix));
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
        line("name", encodingOf(posix.substr(posix.rfind('/') + 1)));
        writeOutput(text);
    }

  private:
    static std::string_view withoutColon(std::string_view path) {
        return path.ends_with(':') ? path.substr(0, path.size() - 1) : path;
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

    static std::string existsText(platform::Status status, const std::string& posix) {
        struct stat item {};
        switch (status) {
            case platform::noErr:
                break;
            case platform::fnfErr:
                return "no; its folder does";
            case platform::dirNFErr:
                return "no, nor does its folder";
            case platform::nsvErr:
                return "no, the volume is not there";
            case platform::bdNamErr:
                return "no, a name in it is empty or longer than 255 bytes";
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
                std::fprintf(stderr, "quil: %s\n", error.what());
                context.status = 1;
            }
        }
    });
}

}  // namespace host
