#include "platform/linux/volumes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include "platform/linux/errors.h"
#include "platform/linux/names.h"

namespace platform {

// Without empty and "." components and without a closing '/'; "/" becomes the empty text. ".." stays: what it leads to
// depends on links.
static std::string tidy(std::string_view path) {
    std::string result;
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!component.empty() && component != ".") {
            result.append("/").append(component);
        }
        path.remove_prefix(std::min(component.size() + 1, path.size()));
    }
    return result;
}

static std::string absoluteDirectory(const std::string& directory) {
    if (directory.starts_with('/')) {
        return tidy(directory);
    }
    std::error_code error;
    return tidy(std::filesystem::current_path(error).string() + "/" + directory);
}

static std::string realDirectory(const std::string& directory) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(directory.empty() ? "/" : directory.c_str(), nullptr),
                                                      std::free);
    return real == nullptr ? directory : tidy(real.get());
}

std::vector<Volume> volumesOf(const LinuxOptions& options) {
    std::vector<Volume> volumes;
    for (const Volume& volume : options.volumes) {
        volumes.push_back({volume.name, absoluteDirectory(volume.directory)});
    }
    if (volumes.empty()) {
        volumes.push_back({"Linux", ""});
    }
    return volumes;
}

std::size_t volumeNamed(const std::vector<Volume>& volumes, std::string_view name) {
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        if (volumes[i].name == name) {
            return i;
        }
    }
    const NameMatcher wanted(name);
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        if (wanted.matches(volumes[i].name)) {
            return i;
        }
    }
    return volumes.size();
}

Status volumePath(const std::vector<Volume>& volumes, std::string_view posixPath, std::string& path,
                  std::size_t& volume) {
    static constexpr std::string_view prefix = "/Volumes/";
    path = posixPath;
    volume = volumes.size();
    if (posixPath.find('\0') != std::string_view::npos) {
        return bdNamErr;
    }
    if (!posixPath.starts_with(prefix)) {
        return noErr;
    }
    std::vector<std::string_view> names;
    for (std::string_view rest = posixPath.substr(prefix.size()); !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find('/'));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        if (!name.empty() && name != ".") {
            names.push_back(name);
        }
    }
    volume = names.empty() ? volumes.size() : volumeNamed(volumes, exchanged(names[0]));
    if (volume == volumes.size()) {
        return noErr;
    }
    path = volumes[volume].directory;
    Status status = noErr;
    std::size_t depth = 0;
    for (std::size_t i = 1; i < names.size(); ++i) {
        if (names[i] == "..") {
            if (depth == 0) {
                path.clear();
                return fnfErr;  // what is above a volume is no folder of this machine
            }
            --depth;
            path += "/..";
            continue;
        }
        std::string found(names[i]);
        if (status == noErr) {
            struct stat item {};
            const int error = findItem(path, names[i], found, item);
            if (error != 0) {
                found = names[i];
                status = error == ENOENT && i + 1 == names.size() ? noErr : statusOf(error);
            }
        }
        ++depth;
        path.append("/").append(found);
    }
    path += path.empty() ? "/" : "";
    if (posixPath.ends_with('/') && !path.ends_with('/')) {
        path += '/';  // a folder is meant
    }
    return status;
}

std::string parseVolumes(std::string_view table, std::vector<Volume>& volumes) {
    std::vector<Volume> known = volumes;
    while (!table.empty()) {
        const std::string_view entry = table.substr(0, table.find_first_of("\n;"));
        table.remove_prefix(std::min(entry.size() + 1, table.size()));
        if (entry.empty()) {
            continue;
        }
        auto wrong = [&](const char* what) { return "volume \"" + std::string(entry) + "\": " + what; };
        const std::size_t sign = entry.find('=');
        if (sign == std::string_view::npos) {
            return wrong("expected NAME=DIR");
        }
        const std::string_view name = entry.substr(0, sign);
        if (name.empty()) {
            return wrong("the name is empty");
        }
        if (name.find(':') != std::string_view::npos || name.find('\0') != std::string_view::npos || name == "." ||
            name == "..") {
            return wrong("the name may not hold ':', nor be \".\" or \"..\"");
        }
        if (name.size() > maxClassicName) {
            return wrong("the name is longer than 255 bytes");
        }
        if (volumeNamed(known, name) != known.size()) {
            return wrong("the name is given twice (letter case does not count)");
        }
        const std::string directory(entry.substr(sign + 1));
        struct stat status {};
        if (directory.empty() || stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            return wrong("not a directory");
        }
        const std::string absolute = absoluteDirectory(directory);
        known.push_back({std::string(name), absolute.empty() ? "/" : absolute});
    }
    volumes = std::move(known);
    return {};
}

// The rest of `path` below `directory`, or null when it is not there.
static const char* below(const std::string& path, const std::string& directory) {
    const bool inside =
        path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
    return inside ? path.c_str() + directory.size() : nullptr;
}

static std::string classicBelow(const std::vector<Volume>& volumes, const std::string& path) {
    const Volume* best = nullptr;
    std::size_t bestLength = 0;
    const char* rest = nullptr;
    for (const Volume& volume : volumes) {
        // The system names files by their real places, the user may have named the volume by a link.
        for (const std::string& directory : {volume.directory, realDirectory(volume.directory)}) {
            const char* tail = below(path, directory);
            if (tail != nullptr && (best == nullptr || directory.size() > bestLength)) {
                best = &volume;
                bestLength = directory.size();
                rest = tail;
            }
        }
    }
    if (best == nullptr) {
        return {};
    }
    const std::string names = exchanged(rest);
    return best->name + (names.empty() ? ":" : names);
}

std::string classicPathOf(const LinuxOptions& options, std::string_view posixPath) {
    if (!posixPath.starts_with('/') || posixPath.find('\0') != std::string_view::npos) {
        return {};
    }
    const std::vector<Volume> volumes = volumesOf(options);
    std::string path = tidy(posixPath);
    std::error_code error;
    if ((path + "/").find("/../") != std::string::npos) {
        path = tidy(std::filesystem::weakly_canonical(path, error).string());
    }
    std::string classic = classicBelow(volumes, path);
    if (classic.empty()) {
        classic = classicBelow(volumes, tidy(std::filesystem::weakly_canonical(path, error).string()));
    }
    if (posixPath.ends_with('/') && !classic.empty() && !classic.ends_with(':')) {
        classic += ':';
    }
    return classic;
}

std::string applicationOf(const LinuxOptions& options) {
    if (!options.application.empty()) {
        return options.application;
    }
    std::string path(PATH_MAX, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    return length <= 0 ? std::string()
                       : classicPathOf(options, std::string_view(path).substr(0, static_cast<std::size_t>(length)));
}

}  // namespace platform
