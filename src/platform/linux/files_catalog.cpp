// Folders, names and paths of LinuxFiles.
#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "platform/linux/errors.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/names.h"
#include "platform/linux/volumes.h"
#include "platform/text.h"

namespace platform {

static constexpr std::int32_t firstFolderID = 16;  // the ones below are the disk format's own

static std::int16_t refNumOf(std::size_t volume) {
    return static_cast<std::int16_t>(-1 - static_cast<int>(volume));
}

static bool isName(std::string_view name) {
    // "." and ".." would be ways out of the folder, never items in it.
    return !name.empty() && name.size() <= maxClassicName && name.find('\0') == std::string_view::npos && name != "." &&
           name != "..";
}

static bool isFolder(const std::string& path, const struct stat& item) {
    struct stat target {};
    return S_ISDIR(item.st_mode) ||
           (S_ISLNK(item.st_mode) && stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode));
}

LinuxFiles::LinuxFiles(const LinuxOptions& options)
    : volumes_(volumesOf(options)), applicationsFolder_(options.applicationsFolder) {
    for (std::size_t i = 0; i < volumes_.size(); ++i) {
        roots_.push_back({i, fsRtDirID, fsRtParID, exchanged(volumes_[i].name), volumes_[i].directory});
    }
    devices_.resize(roots_.size());
    for (std::size_t i = 0; i < roots_.size(); ++i) {
        volumeIsThere(i);
    }
    defaultFolder_ = &roots_[0];
    assumeApplication(applicationOf(options));
    const char* home = std::getenv("HOME");
    if (applicationsFolder_.empty() && home != nullptr) {
        applicationsFolder_ = classicPathOf(options, std::string(home) + "/Applications");
    }
}

// --- folders -------------------------------------------------------------------------------------------------------

const LinuxFiles::Folder* LinuxFiles::folderOf(std::int16_t vRefNum, std::int32_t dirID) const {
    if (vRefNum == 0) {
        return dirID == 0 ? defaultFolder_ : nullptr;
    }
    const int volume = -1 - vRefNum;
    if (volume < 0 || static_cast<std::size_t>(volume) >= roots_.size()) {
        return nullptr;
    }
    if (dirID == fsRtDirID || dirID == 0) {
        return &roots_[static_cast<std::size_t>(volume)];
    }
    const auto index = static_cast<std::size_t>(dirID) - firstFolderID;
    if (dirID < firstFolderID || index >= folders_.size() ||
        folders_[index].volume != static_cast<std::size_t>(volume)) {
        return nullptr;
    }
    return &folders_[index];
}

const LinuxFiles::Folder& LinuxFiles::folderIn(const Folder& parent, const std::string& name, bool assumed) {
    std::string path = parent.path + "/" + name;
    const auto id = static_cast<std::int32_t>(folders_.size()) + firstFolderID;
    const auto [entry, isNew] = idsByPath_.try_emplace(std::to_string(parent.volume) + path, id);
    if (isNew) {
        folders_.push_back({parent.volume, id, parent.id, name, std::move(path)});
    }
    Folder& folder = folders_[static_cast<std::size_t>(entry->second - firstFolderID)];
    folder.assumed |= assumed;
    return folder;
}

// Where a disk was taken away, its mount point stays: a plain folder of the disk that holds it.
bool LinuxFiles::volumeIsThere(std::size_t volume) const {
    const std::string path = roots_[volume].path + "/";
    struct stat root {};
    struct stat parent {};
    if (stat(path.c_str(), &root) != 0 || !S_ISDIR(root.st_mode)) {
        return false;
    }
    std::optional<dev_t>& device = devices_[volume];
    if (!device) {
        device = root.st_dev;
    }
    return root.st_dev == *device || (stat((path + "..").c_str(), &parent) == 0 && parent.st_dev != root.st_dev);
}

bool LinuxFiles::isGoneRoot(const Folder& folder) const {
    return folder.id == fsRtDirID && !volumeIsThere(folder.volume);
}

void LinuxFiles::placeFolder(const Folder& folder, Place& place) const {
    place.volume = folder.volume;
    place.folder = folder.id == fsRtDirID ? nullptr : folderOf(refNumOf(folder.volume), folder.parent);
    place.name = folder.name;
    place.path = folder.path.empty() ? "/" : folder.path;
}

Status LinuxFiles::findIn(const Folder& folder, std::string_view classicName, Place& place) const {
    place.folder = &folder;
    place.volume = folder.volume;
    if (!isName(classicName)) {
        return bdNamErr;
    }
    const std::string wanted = exchanged(classicName);
    const int error = findItem(folder.path, wanted, place.name, place.item);
    if (error != 0) {
        place.name = wanted;
    }
    place.path = folder.path + "/" + place.name;
    if (error != 0 && !volumeIsThere(folder.volume)) {
        return nsvErr;
    }
    return statusOf(error);
}

// --- paths ---------------------------------------------------------------------------------------------------------

// Follows `names` from `folder`: an empty one goes up, every one but the last has to be a folder, and the last one too
// when the path is `closed` by a ':'.
Status LinuxFiles::walk(const Folder* folder, const std::vector<std::string_view>& names, bool closed, Place& place) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].empty()) {
            if (folder->id == fsRtDirID) {
                return dirNFErr;
            }
            folder = folderOf(refNumOf(folder->volume), folder->parent);
            continue;
        }
        const bool last = i + 1 == names.size();
        const Status status = findIn(*folder, names[i], place);
        if (last && (status != noErr || !closed)) {
            return status;
        }
        if (status != noErr) {
            return status == fnfErr ? dirNFErr : status;
        }
        if (!isFolder(place.path, place.item)) {
            return dirNFErr;
        }
        folder = &folderIn(*folder, place.name);
    }
    placeFolder(*folder, place);
    if (lstat(place.path.c_str(), &place.item) == 0 && !isGoneRoot(*folder)) {
        return noErr;
    }
    return volumeIsThere(folder->volume) ? dirNFErr : nsvErr;
}

static std::vector<std::string_view> split(std::string_view path) {
    std::vector<std::string_view> parts;
    for (std::size_t colon; (colon = path.find(':')) != std::string_view::npos; path.remove_prefix(colon + 1)) {
        parts.push_back(path.substr(0, colon));
    }
    parts.push_back(path);
    return parts;
}

Status LinuxFiles::place(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, Place& place) {
    if (path.empty()) {
        return bdNamErr;
    }
    std::vector<std::string_view> names = split(path);
    for (std::string_view name : names) {
        if (!name.empty() && !isName(name)) {
            return bdNamErr;
        }
    }
    const bool closed = names.size() > 1 && names.back().empty();
    if (closed) {
        names.pop_back();
    }
    const Folder* folder = nullptr;
    if (path.find(':') != std::string_view::npos && path[0] != ':') {
        const std::size_t volume = volumeNamed(volumes_, names[0]);
        if (volume == volumes_.size()) {
            return nsvErr;
        }
        folder = &roots_[volume];
    } else if (dirID == fsRtParID) {
        // The only items there are the volumes' roots.
        const std::size_t volume = volumeNamed(volumes_, path);
        if (volume == volumes_.size()) {
            return nsvErr;
        }
        return walk(&roots_[volume], {}, true, place);
    } else {
        folder = folderOf(vRefNum, dirID);
        if (folder == nullptr) {
            return folderOf(vRefNum, 0) == nullptr ? nsvErr : dirNFErr;
        }
    }
    if (path.find(':') != std::string_view::npos) {
        names.erase(names.begin());  // the volume, or the nothing before a leading ':'
    }
    return walk(folder, names, closed, place);
}

Status LinuxFiles::makeSpec(std::int16_t vRefNum, std::int32_t dirID, std::string_view path, FSSpec& spec) {
    return guarded([&] {
        Place found;
        const Status status = place(vRefNum, dirID, path, found);
        if (status != noErr && status != fnfErr) {
            return status;
        }
        const std::string name = exchanged(found.name);
        if (name.size() > maxClassicName) {
            return bdNamErr;  // the disk holds it, an FSSpec cannot
        }
        spec.vRefNum = refNumOf(found.volume);
        spec.parID = found.folder == nullptr ? fsRtParID : found.folder->id;
        spec.name[0] = static_cast<unsigned char>(name.size());
        std::copy(name.begin(), name.end(), spec.name + 1);
        return status;
    });
}

Status LinuxFiles::locate(const FSSpec& spec, Place& place) const {
    const Folder* root = spec.vRefNum == 0 ? nullptr : folderOf(spec.vRefNum, fsRtDirID);
    if (root == nullptr) {
        return nsvErr;
    }
    if (spec.parID == fsRtParID) {
        placeFolder(*root, place);
        return lstat(place.path.c_str(), &place.item) == 0 && !isGoneRoot(*root) ? noErr : nsvErr;
    }
    const Folder* folder = folderOf(spec.vRefNum, spec.parID);
    return folder == nullptr ? dirNFErr : findIn(*folder, spec.nameView(), place);
}

Status LinuxFiles::posixPath(const FSSpec& spec, std::string& path) {
    return guarded([&] {
        Place found;
        const Status status = locate(spec, found);
        if (status == noErr) {
            path = std::move(found.path);
        }
        return status;
    });
}

// --- known folders -------------------------------------------------------------------------------------------------

void LinuxFiles::assumeApplication(std::string_view classicPath) {
    std::vector<std::string_view> names = split(classicPath);
    const std::size_t volume = volumeNamed(volumes_, names[0]);
    if (names.size() < 2 || volume == volumes_.size()) {
        return;
    }
    const Folder* folder = &roots_[volume];
    for (std::size_t i = 1; i + 1 < names.size(); ++i) {
        Place found;
        const Status status = findIn(*folder, names[i], found);
        if (status == bdNamErr) {
            return;
        }
        folder = &folderIn(*folder, found.name, true);
    }
    defaultFolder_ = folder;
}

Status LinuxFiles::defaultFolder(std::int16_t& vRefNum, std::int32_t& dirID) {
    vRefNum = refNumOf(defaultFolder_->volume);
    dirID = defaultFolder_->id;
    return noErr;
}

Status LinuxFiles::folderAt(std::string_view classicPath, std::int16_t& vRefNum, std::int32_t& dirID) {
    Place found;
    const std::string path = std::string(classicPath) + (classicPath.ends_with(':') ? "" : ":");
    const Status status = place(0, 0, path, found);
    if (status != noErr) {
        return status;
    }
    vRefNum = refNumOf(found.volume);
    dirID = found.folder == nullptr ? fsRtDirID : folderIn(*found.folder, found.name).id;
    return noErr;
}

Status LinuxFiles::findFolder(OSType type, std::int16_t& vRefNum, std::int32_t& dirID) {
    return guarded([&] {
        if (type != "apps"_4 || applicationsFolder_.empty()) {
            return fnfErr;
        }
        const Status status = folderAt(applicationsFolder_, vRefNum, dirID);
        return status == dirNFErr ? fnfErr : status;  // as the Folder Manager says it
    });
}

// --- listing -------------------------------------------------------------------------------------------------------

// By name, as the disk format keeps its catalogue, so that a listing is the same every time. What all names begin with
// is passed over, and the eight bytes behind it decide nearly every comparison without a look at the names.
void LinuxFiles::Listing::sort() {
    if (entries.empty()) {
        return;
    }
    const std::string_view first = name(entries[0]);
    std::size_t common = first.size();
    for (const Entry& entry : entries) {
        const std::string_view other = name(entry);
        const std::size_t most = std::min(common, other.size());
        common = 0;
        while (common < most && first[common] == other[common]) {
            ++common;
        }
    }
    for (Entry& entry : entries) {
        const std::string_view rest = name(entry).substr(common);
        for (std::size_t i = 0; i < sizeof entry.key; ++i) {
            entry.key = (entry.key << 8) | (i < rest.size() ? static_cast<unsigned char>(rest[i]) : 0u);
        }
    }
    std::sort(entries.begin(), entries.end(),
              [&](const Entry& a, const Entry& b) { return a.key != b.key ? a.key < b.key : name(a) < name(b); });
}

Status LinuxFiles::list(const Folder& folder) {
    listing_.folder = nullptr;
    listing_.names.clear();
    listing_.entries.clear();
    if (isGoneRoot(folder)) {
        return nsvErr;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir((folder.path + "/").c_str()), closedir);
    if (directory == nullptr) {
        const int error = errno;
        return error == ENOENT ? (volumeIsThere(folder.volume) ? dirNFErr : nsvErr) : statusOf(error);
    }
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == ".." || name.size() > maxClassicName) {
            continue;
        }
        bool folderItem = entry->d_type == DT_DIR;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
            struct stat status {};
            folderItem = fstatat(dirfd(directory.get()), entry->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
        }
        listing_.entries.push_back({0, listing_.names.size(), static_cast<std::uint16_t>(name.size()), folderItem});
        listing_.names += name;
        errno = 0;
    }
    if (errno != 0) {
        return statusOf(errno);
    }
    listing_.sort();
    listing_.folder = &folder;
    return noErr;
}

// Names of several items become one text, which one name that is not UTF-8 would make Mac Roman as a whole. It is found
// under its UTF-8 form too.
static void nameItem(CatalogItem& item, std::string_view name) {
    unsigned char bits = 0;
    for (const char c : name) {
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    }
    if (bits < 0x80 || isUtf8(name)) {
        item.name = name;
    } else {
        item.name = utf8Of(name);
    }
    std::replace(item.name.begin(), item.name.end(), ':', '/');  // the disk has no '/' that would be exchanged
}

Status LinuxFiles::catalogItem(std::int16_t vRefNum, std::int32_t dirID, std::int32_t index, CatalogItem& item) {
    return guarded([&] {
        const Folder* folder = folderOf(vRefNum, dirID);
        if (folder == nullptr) {
            return folderOf(vRefNum, 0) == nullptr ? nsvErr : dirNFErr;
        }
        if (index == 0) {
            return paramErr;
        }
        if (index < 0) {
            struct stat status {};
            if (!folder->assumed &&
                (stat((folder->path + "/").c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || isGoneRoot(*folder))) {
                return volumeIsThere(folder->volume) ? dirNFErr : nsvErr;
            }
            item = {{}, true, folder->id, folder->parent};
            nameItem(item, folder->name);
            return noErr;
        }
        // Index 1 begins a listing; the folder is read once for it, so that the whole takes time in proportion.
        if (index == 1 || listing_.folder != folder) {
            const Status status = list(*folder);
            if (status != noErr) {
                return status;
            }
        }
        if (static_cast<std::size_t>(index) > listing_.entries.size()) {
            return fnfErr;
        }
        const Listing::Entry& entry = listing_.entries[static_cast<std::size_t>(index) - 1];
        const std::string_view name = listing_.name(entry);
        nameItem(item, name);
        item.isFolder = entry.isFolder;
        item.parentID = folder->id;
        item.dirID = entry.isFolder ? folderIn(*folder, std::string(name)).id : 0;
        return noErr;
    });
}

std::unique_ptr<Files> makeLinuxFiles(const LinuxOptions& options) {
    return std::make_unique<LinuxFiles>(options);
}

}  // namespace platform
