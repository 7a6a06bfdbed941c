// The File Manager on Linux, on volumes that are temporary folders.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <utility>

#include "platform/linux/errors.h"
#include "platform/linux/linux_machine.h"
#include "support/process.h"

using namespace platform;
namespace fs = std::filesystem;
using std::string;
using std::string_view;
using std::literals::string_literals::operator""s;

namespace {

mode_t modeOf(const string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 0777;
}

// A lower limit of the process, as long as it lives.
class Limit {
  public:
    Limit(decltype(RLIMIT_NOFILE) what, rlim_t soft) : what_(what) {
        EXPECT_EQ(getrlimit(what, &before_), 0);
        const rlimit lower{soft, before_.rlim_max};
        EXPECT_EQ(setrlimit(what, &lower), 0);
    }
    ~Limit() { EXPECT_EQ(setrlimit(what_, &before_), 0); }

  private:
    decltype(RLIMIT_NOFILE) what_;
    rlimit before_{};
};

class LinuxFilesTest : public testing::Test {
  protected:
    LinuxFilesTest() {
        fs::create_directories(disk("Apps/Host.app/Contents/MacOS"));
        fs::create_directories(disk("Docs/Deep"));
        support::writeFile(disk("Docs/Letter.txt"), "dear reader");
        options_.volumes = {{"Disk", disk_.path().string()}, {"Other", other_.path().string() + "/"}};
        options_.application = "disk:apps:host.APP:Contents:MacOS:Host";
        options_.applicationsFolder = "Disk:Apps";
        files_ = makeLinuxFiles(options_);
    }

    string disk(string_view name) const { return disk_.file(name); }

    FSSpec spec(string_view path, Status expected = noErr) {
        FSSpec found;
        EXPECT_EQ(files_->makeSpec(0, 0, path, found), expected) << path;
        return found;
    }

    // Classic path of a folder, by way of the catalogue, as the plug-in makes it.
    string folderPath(std::int16_t vRefNum, std::int32_t dirID) {
        string path;
        CatalogItem item;
        do {
            if (files_->catalogItem(vRefNum, dirID, -1, item) != noErr) {
                return "?";
            }
            path = item.name + ":" + path;
            dirID = item.parentID;
        } while (item.dirID != fsRtDirID);
        return path;
    }

    // What a path leads to, in the disk's own letter case.
    string actual(string_view path) {
        const FSSpec found = spec(path);
        return (found.parID == fsRtParID ? "" : folderPath(found.vRefNum, found.parID)) + string(found.nameView());
    }

    Status open(string_view path, ForkPermission permission, FileRef& ref) {
        FSSpec found;
        const Status status = files_->makeSpec(0, 0, path, found);
        return status != noErr ? status : files_->openDataFork(found, permission, ref);
    }

    Status writePosix(const string& path, PosixMode mode, string_view text) {
        FileRef ref = 0;
        Status status = files_->openPosix(path, mode, ref);
        if (status == noErr) {
            std::size_t count = 0;
            status = files_->write(ref, text, count);
            EXPECT_EQ(files_->close(ref), noErr);
        }
        return status;
    }

    support::TemporaryFolder disk_;
    support::TemporaryFolder other_;
    LinuxOptions options_;
    std::unique_ptr<Files> files_;
};

TEST_F(LinuxFilesTest, ClassicPathsLeadToItemsOrSayWhatIsMissing) {
    for (const string row :
         {"Disk:Docs:Letter.txt>Disk:Docs:Letter.txt", "dISK:dOCS:lETTER.TXT>Disk:Docs:Letter.txt", "Disk:>Disk",
          "Disk:Docs>Disk:Docs", "Disk:Docs:>Disk:Docs", "Disk:Docs:Deep::Letter.txt>Disk:Docs:Letter.txt",
          "Disk:Docs:Deep:::Apps>Disk:Apps", "Disk:Docs::>Disk", ":>Disk:Apps:Host.app:Contents:MacOS",
          ":::::Docs:Letter.txt>Disk:Docs:Letter.txt"}) {
        EXPECT_EQ(actual(row.substr(0, row.find('>'))), row.substr(row.find('>') + 1)) << row;
    }
    const string x255(255, 'x');
    const std::pair<Status, std::vector<string>> missing[] = {
        {fnfErr, {"Disk:Docs:none", "Disk:Docs:none:", "Disk:Docs:" + x255}},
        {dirNFErr,
         {"Disk:none:Letter.txt", "Disk:Docs:Letter.txt:", "Disk:Docs:Letter.txt:x", "Disk::", "Disk::Other",
          string(300, ':')}},
        {nsvErr, {"None:Letter.txt"}},
        {bdNamErr,
         {"", "Disk:Docs:x" + x255, "Disk:x" + x255 + ":y", "Disk:Docs:a\0b"s, "Disk:Docs:.:Letter.txt", "Disk:..:x"}}};
    for (const auto& [status, paths] : missing) {
        for (const string& path : paths) {
            spec(path, status);
        }
    }
}

TEST_F(LinuxFilesTest, AMissingFileHasASpecificationInItsFolder) {
    const FSSpec missing = spec("disk:DOCS:New File", fnfErr);
    EXPECT_EQ(missing.nameView(), "New File");
    EXPECT_EQ(folderPath(missing.vRefNum, missing.parID), "Disk:Docs:");
    FSSpec relative;
    EXPECT_EQ(files_->makeSpec(missing.vRefNum, missing.parID, "letter.txt", relative), noErr);
    EXPECT_EQ(relative.nameView(), "Letter.txt");
    EXPECT_EQ(files_->makeSpec(missing.vRefNum, 0, "Apps", relative), noErr);
    EXPECT_EQ(files_->makeSpec(missing.vRefNum, 9999, "Apps", relative), dirNFErr);
    EXPECT_EQ(files_->makeSpec(-9, 2, "Apps", relative), nsvErr);
    EXPECT_EQ(files_->makeSpec(0, fsRtParID, "OTHER", relative), noErr);
    EXPECT_EQ(relative.parID, fsRtParID);
}

TEST_F(LinuxFilesTest, NamesAreFoundAsTheyStandThenInAnyLetterCase) {
    for (const char* name : {"both.txt", "BOTH.txt", "Both.txt", "R\xC3\xA9sum\xC3\xA9", "\xCE\xA3\xCE\xBF\xCF\x82",
                             "\x8E-old", "\xC4\xB1\x64", "Stra\xC3\x9F\x65", "a:b"}) {
        support::writeFile(disk("Docs/"s + name), name);
    }
    // As it stands, else the first in byte order; UTF-8 and Mac Roman, asked for and on disk; simple folding, of one
    // character for one; nothing for the last rows.
    for (const string row :
         {"both.txt>both.txt", "Both.txt>Both.txt", "bOTH.txt>BOTH.txt", "R\xC3\x89SUM\xC3\x89>R\xC3\xA9sum\xC3\xA9",
          "R\x8Esum\x8E>R\xC3\xA9sum\xC3\xA9", "r\x83SUM\x83>R\xC3\xA9sum\xC3\xA9", "\x83-OLD>\x8E-old",
          "\xC3\xA9-old>\x8E-old", "\xCF\x83\xCE\x9F\xCF\x83>\xCE\xA3\xCE\xBF\xCF\x82", "A/B>a/b", "Id>", "STRASSE>",
          "both.tx>", "both.txtt>"}) {
        const string asked = row.substr(0, row.find('>'));
        const string item = row.substr(row.find('>') + 1);
        const FSSpec found = spec("Disk:Docs:" + asked, item.empty() ? fnfErr : noErr);
        EXPECT_EQ(found.nameView(), item.empty() ? asked : item);
    }
}

TEST_F(LinuxFilesTest, SlashAndColonChangePlacesBothWays) {
    const FSSpec odd = spec("Disk:Docs:either/or", fnfErr);
    ASSERT_EQ(files_->create(odd, "ttxt"_4, "TEXT"_4), noErr);
    EXPECT_TRUE(fs::exists(disk("Docs/either:or")));
    string path;
    ASSERT_EQ(files_->posixPath(odd, path), noErr);
    EXPECT_EQ(path, disk("Docs/either:or"));
    EXPECT_EQ(classicPathOf(options_, path), "Disk:Docs:either/or");
    EXPECT_EQ(actual("Disk:Docs:EITHER/or"), "Disk:Docs:either/or");
}

TEST_F(LinuxFilesTest, AVolumeThatVanishesAndAFolderThatMovesAreSaid) {
    const FSSpec deep = spec("Disk:Docs:Deep:x", fnfErr);
    fs::rename(disk("Docs/Deep"), disk("Docs/Moved"));
    CatalogItem item;
    FileRef ref = 0;
    EXPECT_EQ(files_->openDataFork(deep, ForkPermission::read, ref), dirNFErr);
    EXPECT_EQ(files_->create(deep, 0, 0), dirNFErr);
    EXPECT_EQ(files_->catalogItem(deep.vRefNum, deep.parID, -1, item), dirNFErr);
    EXPECT_EQ(files_->catalogItem(deep.vRefNum, deep.parID, 1, item), dirNFErr);
    fs::remove_all(other_.path());
    spec("Other:", nsvErr);
    spec("Other:a:b", nsvErr);
    EXPECT_EQ(files_->catalogItem(-2, fsRtDirID, 1, item), nsvErr);
}

// What unmounting leaves: an empty folder of another device.
TEST_F(LinuxFilesTest, AMountPointWithoutItsDiskIsNoVolume) {
    string card = "/dev/shm/quil-test-XXXXXX";
    struct stat here {};
    struct stat there {};
    if (::mkdtemp(card.data()) == nullptr || ::stat(card.c_str(), &there) != 0 ||
        ::stat(disk("").c_str(), &here) != 0 || here.st_dev == there.st_dev) {
        GTEST_SKIP() << "there is no second device";
    }
    fs::create_directory(disk("mount point"));
    const auto pointAt = [&](const string& directory) {
        fs::remove(disk("Card"));
        fs::create_directory_symlink(directory, disk("Card"));
    };
    pointAt(card);
    options_.volumes.push_back({"Card", disk("Card")});
    files_ = makeLinuxFiles(options_);
    const FSSpec file = spec("Card:f", fnfErr);
    CatalogItem item;
    EXPECT_EQ(files_->create(file, 0, 0), noErr);
    pointAt(disk("mount point"));
    spec("Card:", nsvErr);
    spec("Card:f", nsvErr);
    EXPECT_EQ(files_->create(file, 0, 0), nsvErr);
    EXPECT_EQ(files_->catalogItem(file.vRefNum, fsRtDirID, 1, item), nsvErr);
    EXPECT_EQ(files_->catalogItem(file.vRefNum, fsRtDirID, -1, item), nsvErr);
    EXPECT_EQ(writePosix("/Volumes/Card/g", PosixMode::replace, "x"), nsvErr);
    EXPECT_TRUE(fs::is_empty(disk("mount point")));
    pointAt(card);
    spec("Card:");
    EXPECT_EQ(writePosix("/Volumes/Card/f", PosixMode::replace, "x"), noErr) << "there again";
    fs::remove_all(card);
}

TEST_F(LinuxFilesTest, TheDefaultFolderIsTheApplicationsEvenWhereItIsNotThere) {
    std::int16_t volume = 0;
    std::int32_t folder = 0;
    EXPECT_EQ(files_->defaultFolder(volume, folder), noErr);
    EXPECT_EQ(folderPath(volume, folder), "Disk:Apps:Host.app:Contents:MacOS:");
    EXPECT_EQ(files_->findFolder("apps"_4, volume, folder), noErr);
    EXPECT_EQ(folderPath(volume, folder), "Disk:Apps:");
    EXPECT_EQ(files_->findFolder("desk"_4, volume, folder), fnfErr);

    options_.application = "Other:Not:Here:Host";
    options_.applicationsFolder = "Disk:None:";
    files_ = makeLinuxFiles(options_);
    EXPECT_EQ(files_->defaultFolder(volume, folder), noErr);
    EXPECT_EQ(folderPath(volume, folder), "Other:Not:Here:");
    EXPECT_EQ(files_->findFolder("apps"_4, volume, folder), fnfErr);
}

TEST_F(LinuxFilesTest, OnlyRegularFilesAreOpenedAndNothingIsWaitedFor) {
    ASSERT_EQ(mkfifo(disk("Docs/pipe").c_str(), 0666), 0);
    fs::create_symlink("/dev/tty", disk("Docs/terminal"));
    for (const char* name : {"pipe", "terminal", "Deep"}) {
        SCOPED_TRACE(name);
        FileRef ref = 0;
        FInfo info;
        const FSSpec item = spec("Disk:Docs:"s + name);
        for (ForkPermission permission : {ForkPermission::read, ForkPermission::write, ForkPermission::readWrite}) {
            EXPECT_EQ(files_->openDataFork(item, permission, ref), notAFileErr);
        }
        for (PosixMode mode : {PosixMode::read, PosixMode::replace, PosixMode::append}) {
            EXPECT_EQ(files_->openPosix(disk("Docs/"s + name), mode, ref), notAFileErr);
        }
        EXPECT_EQ(files_->getFinderInfo(item, info), notAFileErr);
        EXPECT_EQ(ref, 0);
    }
}

TEST_F(LinuxFilesTest, LinksAreItemsOfTheirOwnAndAreReadThrough) {
    fs::create_symlink(disk("Docs/Letter.txt"), disk("link"));
    fs::create_symlink(disk("gone"), disk("dangling"));
    fs::create_directory_symlink(disk("Docs"), disk("Folder link"));
    FileRef ref = 0;
    std::size_t count = 0;
    std::array<char, 4> text{};
    ASSERT_EQ(open("Disk:link", ForkPermission::read, ref), noErr);
    EXPECT_EQ(files_->read(ref, text, count), noErr);
    EXPECT_EQ(string_view(text.data(), count), "dear");
    EXPECT_EQ(files_->close(ref), noErr);
    EXPECT_EQ(open("Disk:dangling", ForkPermission::read, ref), fnfErr);
    spec("Disk:folder LINK:letter.txt");

    // Deleting one, and unlocking it before, leaves what it points to as it was.
    ASSERT_EQ(::chmod(disk("Docs/Letter.txt").c_str(), 0444), 0);
    for (const char* name : {"link", "dangling", "Folder link"}) {
        EXPECT_EQ(files_->setLock(spec("Disk:"s + name), false), noErr);
        EXPECT_EQ(files_->remove(spec("Disk:"s + name)), noErr);
    }
    EXPECT_EQ(modeOf(disk("Docs/Letter.txt")), 0444u);
}

TEST_F(LinuxFilesTest, ForksReadWriteAndMoveAsTheFileManagerHasIt) {
    FileRef ref = 0;
    std::size_t count = 0;
    std::int64_t size = 0;
    std::array<char, 8> text{};
    ASSERT_EQ(open("Disk:Docs:Letter.txt", ForkPermission::readWrite, ref), noErr);
    EXPECT_EQ(files_->getEOF(ref, size), noErr);
    EXPECT_EQ(size, 11);
    EXPECT_EQ(files_->setPosition(ref, 5), noErr);
    EXPECT_EQ(files_->read(ref, text, count), eofErr);
    EXPECT_EQ(string_view(text.data(), count), "reader");
    EXPECT_EQ(files_->setPosition(ref, -1), posErr);
    EXPECT_EQ(files_->setPosition(ref, 100), eofErr);
    EXPECT_EQ(files_->write(ref, string_view("!"), count), noErr);
    EXPECT_EQ(files_->setPosition(ref, 0), noErr);
    EXPECT_EQ(files_->write(ref, string_view("D"), count), noErr);
    EXPECT_EQ(files_->setPositionAtEnd(ref), noErr);
    EXPECT_EQ(files_->write(ref, string_view("?"), count), noErr);
    EXPECT_EQ(files_->close(ref), noErr);
    EXPECT_EQ(support::readFile(disk("Docs/Letter.txt")), "Dear reader!?");

    ASSERT_EQ(open("Disk:Docs:Letter.txt", ForkPermission::read, ref), noErr);
    EXPECT_EQ(files_->write(ref, string_view("x"), count), permErr);
    EXPECT_EQ(files_->close(ref), noErr);
    for (FileRef bad : {FileRef{0}, FileRef{-1}, ref, FileRef{32767}}) {
        EXPECT_EQ(files_->close(bad), rfNumErr);
        EXPECT_EQ(files_->getEOF(bad, size), rfNumErr);
        EXPECT_EQ(files_->read(bad, text, count), rfNumErr);
        EXPECT_EQ(files_->write(bad, string_view("x"), count), rfNumErr);
        EXPECT_EQ(files_->setPosition(bad, 0), rfNumErr);
        EXPECT_EQ(files_->setPositionAtEnd(bad), rfNumErr);
    }
}

TEST_F(LinuxFilesTest, PosixOpensReplaceAppendAndFindVolumesInAnyCase) {
    const struct {
        string path;
        PosixMode mode;
        Status status;
        string file, content;
    } rows[] = {
        {"/Volumes/Disk/Docs/new", PosixMode::replace, noErr, disk("Docs/new"), "1"},
        {"/Volumes/disk//docs/./NEW", PosixMode::append, noErr, disk("Docs/new"), "12"},
        {"/Volumes//DISK/Docs/Deep/../new", PosixMode::replace, noErr, disk("Docs/new"), "3"},
        {"/Volumes/Other/made", PosixMode::append, noErr, other_.file("made"), "4"},
        {disk("DOCS/new"), PosixMode::append, fnfErr, disk("Docs/new"), "3"},  // the system's own rule
        {disk("Docs/new"), PosixMode::append, noErr, disk("Docs/new"), "36"},
    };
    for (int number = 1; const auto& row : rows) {
        EXPECT_EQ(writePosix(row.path, row.mode, std::to_string(number++)), row.status) << row.path;
        EXPECT_EQ(support::readFile(row.file), row.content);
    }
    const std::pair<string, Status> bad[] = {{"/Volumes/Disk/none/new", fnfErr},
                                             {"/Volumes/Disk/../escaped", fnfErr},
                                             {"/Volumes/Disk/Docs/new/", dirNFErr},
                                             {"/Volumes/Disk", notAFileErr},
                                             {"/Volumes/None/x", fnfErr},
                                             {"/Volumes/Disk/a\0b"s, bdNamErr},
                                             {"", fnfErr}};
    for (const auto& [path, status] : bad) {
        EXPECT_EQ(writePosix(path, PosixMode::append, ""), status) << path;
    }

    const mode_t before = umask(027);
    EXPECT_EQ(writePosix(disk("masked"), PosixMode::replace, ""), noErr);
    umask(before);
    EXPECT_EQ(modeOf(disk("masked")), 0640u);
}

TEST_F(LinuxFilesTest, ALockedFileIsReadButNotWrittenOrRemoved) {
    const FSSpec letter = spec("Disk:Docs:Letter.txt");
    FileRef ref = 0;
    ASSERT_EQ(files_->setLock(letter, true), noErr);
    EXPECT_EQ(modeOf(disk("Docs/Letter.txt")) & S_IWUSR, 0u);
    EXPECT_EQ(files_->openDataFork(letter, ForkPermission::write, ref), fLckdErr);
    EXPECT_EQ(files_->openDataFork(letter, ForkPermission::readWrite, ref), fLckdErr);
    EXPECT_EQ(writePosix("/Volumes/Disk/Docs/Letter.txt", PosixMode::replace, "x"), fLckdErr);
    EXPECT_EQ(files_->setFinderInfo(letter, {1, 2}), fLckdErr);
    EXPECT_EQ(files_->remove(letter), fLckdErr);
    EXPECT_EQ(support::readFile(disk("Docs/Letter.txt")), "dear reader");
    EXPECT_EQ(files_->openDataFork(letter, ForkPermission::read, ref), noErr);
    EXPECT_EQ(files_->close(ref), noErr);
    EXPECT_EQ(files_->setLock(letter, false), noErr);
    EXPECT_EQ(files_->remove(letter), noErr);
    EXPECT_EQ(files_->remove(letter), fnfErr);
    EXPECT_EQ(files_->setLock(letter, true), fnfErr);
}

TEST_F(LinuxFilesTest, FilesAreMadeOnceAndFoldersRemovedWhenEmpty) {
    const FSSpec made = spec("Disk:Docs:made", fnfErr);
    EXPECT_EQ(files_->create(made, "ttxt"_4, "TEXT"_4), noErr);
    EXPECT_EQ(files_->create(made, "ttxt"_4, "TEXT"_4), dupFNErr);
    FSSpec otherCase = made;
    otherCase.name[1] = 'M';
    EXPECT_EQ(files_->create(otherCase, 0, 0), dupFNErr);
    EXPECT_EQ(files_->remove(spec("Disk:Docs")), fBsyErr);
    EXPECT_EQ(files_->remove(spec("Disk:Docs:Deep")), noErr);
    EXPECT_EQ(files_->remove(spec("Disk:")), fBsyErr);
    FSSpec wild = made;
    for (string_view name : {string_view("a:b"), string_view(".."), string_view("a\0b", 3), string_view("")}) {
        wild.name[0] = static_cast<unsigned char>(name.size());
        std::copy(name.begin(), name.end(), wild.name + 1);
        EXPECT_EQ(files_->remove(wild), name == "a:b" ? fnfErr : bdNamErr) << name;
    }
}

TEST_F(LinuxFilesTest, FinderInformationIsAnAttributeOf32Bytes) {
    const FSSpec letter = spec("Disk:Docs:Letter.txt");
    const string path = disk("Docs/Letter.txt");
    FInfo info{1, 2};
    EXPECT_EQ(files_->getFinderInfo(letter, info), noErr);
    EXPECT_EQ(info.fdType | info.fdCreator, 0u);
    if (::setxattr(path.c_str(), "user.com.apple.FinderInfo", "0123", 4, 0) != 0 && errno == ENOTSUP) {
        GTEST_SKIP() << "the temporary folder's file system has no extended attributes";
    }
    EXPECT_EQ(files_->getFinderInfo(letter, info), noErr);
    EXPECT_EQ(info.fdType, 0u);  // not the right size: none
    string bytes = "TYPECREA0123456789abcdefghijklmn";
    ASSERT_EQ(::setxattr(path.c_str(), "user.com.apple.FinderInfo", bytes.data(), 32, 0), 0);
    EXPECT_EQ(files_->getFinderInfo(letter, info), noErr);
    EXPECT_EQ(info.fdType, "TYPE"_4);
    EXPECT_EQ(info.fdCreator, "CREA"_4);
    EXPECT_EQ(files_->setFinderInfo(letter, {"TEXT"_4, "ttxt"_4}), noErr);
    EXPECT_EQ(::getxattr(path.c_str(), "user.com.apple.FinderInfo", bytes.data(), 32), 32);
    EXPECT_EQ(bytes, "TEXTttxt0123456789abcdefghijklmn");
}

TEST_F(LinuxFilesTest, WhereThereAreNoAttributesOnlyZerosCanBeSet) {
    fs::create_symlink("/proc/self/comm", disk("no attributes"));
    const FSSpec none = spec("Disk:no attributes");
    EXPECT_EQ(files_->setFinderInfo(none, {0, 0}), noErr);
    EXPECT_EQ(files_->setFinderInfo(none, {"TEXT"_4, 0}), paramErr);
}

TEST_F(LinuxFilesTest, AListingIsOfOneMomentAndInOrder) {
    support::writeFile(disk("Docs/a"), "");
    fs::create_directory_symlink(disk("Apps"), disk("Docs/b"));
    const FSSpec inDocs = spec("Disk:Docs:Letter.txt");
    CatalogItem item;
    const std::pair<const char*, bool> expected[] = {{"Deep", true}, {"Letter.txt", false}, {"a", false}, {"b", true}};
    std::int32_t index = 0;
    for (const auto& [name, isFolder] : expected) {
        ASSERT_EQ(files_->catalogItem(inDocs.vRefNum, inDocs.parID, ++index, item), noErr);
        EXPECT_EQ(item.name, name);
        EXPECT_EQ(item.isFolder, isFolder);
        EXPECT_EQ(item.parentID, inDocs.parID);
        EXPECT_EQ(item.dirID != 0, isFolder);
        fs::remove_all(disk("Docs/a"));  // items that go meanwhile do not make others be passed over
    }
    EXPECT_EQ(files_->catalogItem(inDocs.vRefNum, inDocs.parID, ++index, item), fnfErr);
    EXPECT_EQ(files_->catalogItem(inDocs.vRefNum, inDocs.parID, 0, item), paramErr);
    EXPECT_EQ(files_->catalogItem(inDocs.vRefNum, inDocs.parID, 1, item), noErr);  // a new moment
    EXPECT_EQ(files_->catalogItem(inDocs.vRefNum, inDocs.parID, 3, item), noErr);
    EXPECT_EQ(item.name, "b");
    ASSERT_TRUE(item.isFolder);
    EXPECT_EQ(folderPath(inDocs.vRefNum, item.dirID), "Disk:Docs:b:");
}

TEST_F(LinuxFilesTest, FileReferencesAreUsedAgainAndRunOutClearly) {
    const Limit limit(RLIMIT_NOFILE, 64);
    std::vector<FileRef> refs;
    FileRef ref = 0;
    const FSSpec letter = spec("Disk:Docs:Letter.txt");
    Status status = noErr;
    for (; status == noErr && refs.size() < 100; refs.push_back(ref)) {
        status = files_->openDataFork(letter, ForkPermission::read, ref);
    }
    EXPECT_EQ(status, tmfoErr);
    ASSERT_GT(refs.size(), 3u);
    EXPECT_EQ(files_->close(refs[1]), noErr);
    EXPECT_EQ(files_->openDataFork(letter, ForkPermission::read, ref), noErr);
    EXPECT_EQ(ref, refs[1]);
}

TEST_F(LinuxFilesTest, AFullDiskIsSaidWithWhatWasWritten) {
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const Limit limit(RLIMIT_FSIZE, 1000);
    FileRef ref = 0;
    std::size_t count = 0;
    EXPECT_EQ(files_->openPosix(disk("full"), PosixMode::replace, ref), noErr);
    EXPECT_EQ(files_->write(ref, string(1500, 'x'), count), dskFulErr);
    EXPECT_EQ(count, 1000u);
    EXPECT_EQ(files_->close(ref), noErr);
    std::signal(SIGXFSZ, handler);
}

TEST(SystemErrors, BecomeTheMachinesStatuses) {
    const std::pair<int, Status> table[] = {
        {0, noErr},           {ENOENT, fnfErr},  {ENOTDIR, dirNFErr}, {ENAMETOOLONG, bdNamErr},
        {EEXIST, dupFNErr},   {EACCES, permErr}, {EROFS, wPrErr},     {EISDIR, notAFileErr},
        {ENOTEMPTY, fBsyErr}, {EMFILE, tmfoErr}, {ENOSPC, dskFulErr}, {EDQUOT, dskFulErr},
        {ENOMEM, memFullErr}, {EBADF, rfNumErr}, {EINVAL, paramErr},  {ECONNRESET, ioErr}};
    for (const auto& [error, status] : table) {
        EXPECT_EQ(statusOf(error), status) << error;
    }
}

}  // namespace
