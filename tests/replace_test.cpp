// Files that are replaced: an interruption or a full disk loses nothing.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "support/machine_fixture.h"
#include "util/file_io.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSize = 1 << 20;

// The second path is one that the File Manager has to write.
constexpr const char* kPaths[] = {"Disk:Desk:a.txt", "Disk:Desk:a/b.txt"};
constexpr const char* kFiles[] = {"Desk/a.txt", "Desk/a:b.txt"};

class Replace : public support::MachineFixture {
  protected:
    Replace() { makeFolder("Desk"); }

    static int write(const char* path, const std::string& text) {
        return quil::WriteWholeFile(path, text.data(), text.size());
    }
    std::vector<std::string> leftBehind() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(posix("Desk"))) {
            if (entry.path().filename().string().starts_with(".quil-")) {
                names.push_back(entry.path());
            }
        }
        return names;
    }
    // Runs `work` in a process of its own; its exit status.
    template <class Work>
    static int inChild(Work work) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(work());
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
};

TEST_F(Replace, AFileIsTheOldOrTheNewOneWheneverTheWriterIsKilled) {
    for (int way = 0; way < 2; ++way) {
        int changed = 0;
        for (int round = 0; round < 10; ++round) {
            const std::string old(kSize, 'O');
            putFile(kFiles[way], old);
            const pid_t child = fork();
            if (child == 0) {
                for (char letter = 'A';; letter = letter == 'Z' ? 'A' : static_cast<char>(letter + 1)) {
                    write(kPaths[way], std::string(kSize, letter));
                }
            }
            usleep(static_cast<useconds_t>(300 + 1403 * round));
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            const std::string text = fileText(kFiles[way]);
            ASSERT_EQ(text, std::string(kSize, text.empty() ? '?' : text[0])) << kPaths[way] << " round " << round;
            changed += text != old;
        }
        EXPECT_GT(changed, 0) << "no round was long enough for a write";
    }
}

TEST_F(Replace, AFullDiskLeavesTheOldFileAndNothingElse) {
    for (const bool inPlace : {false, true}) {
        for (int way = 0; way < 2; ++way) {
            putFile(kFiles[way], "old");
            if (inPlace) {
                fs::create_hard_link(posix(kFiles[way]), posix("Desk/second"));
            }
            const int code = inChild([&] {
                signal(SIGXFSZ, SIG_IGN);
                const rlimit limit = {kSize / 2, kSize / 2};
                setrlimit(RLIMIT_FSIZE, &limit);
                return write(kPaths[way], std::string(kSize, 'n')) != 0 ? 1 : 0;
            });
            EXPECT_EQ(code, 1);
            EXPECT_EQ(fileText(kFiles[way]), "old") << kPaths[way] << (inPlace ? " in place" : "");
            EXPECT_TRUE(leftBehind().empty());
            fs::remove(posix("Desk/second"));
        }
    }
}

TEST_F(Replace, PermissionsAndAttributesStay) {
    for (int way = 0; way < 2; ++way) {
        putFile(kFiles[way], "old");
        const std::string path = posix(kFiles[way]);
        std::string finder = "PDF quil........................";
        const bool attributes = setxattr(path.c_str(), "user.com.apple.FinderInfo", finder.data(), 32, 0) == 0;
        chmod(path.c_str(), 0620);
        EXPECT_EQ(write(kPaths[way], "new"), 0);
        EXPECT_EQ(fileText(kFiles[way]), "new");
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0620U);
        if (attributes) {
            char found[33] = "";
            EXPECT_EQ(getxattr(path.c_str(), "user.com.apple.FinderInfo", found, 32), 32);
            EXPECT_EQ(found, way == 0 ? finder : finder.replace(0, 8, "TEXTttxt"));
        }
        chmod(path.c_str(), 0400);
        EXPECT_NE(write(kPaths[way], "newer"), 0) << "locked";
        EXPECT_EQ(fileText(kFiles[way]), "new");
    }
    EXPECT_TRUE(leftBehind().empty());
}

TEST_F(Replace, LinksKeepLeadingToTheSameFile) {
    for (int way = 0; way < 2; ++way) {
        putFile("Desk/real/target", "old");
        fs::create_symlink("real/target", posix(kFiles[way]));
        EXPECT_EQ(write(kPaths[way], "new"), 0);
        EXPECT_TRUE(fs::is_symlink(posix(kFiles[way])));
        EXPECT_EQ(fileText("Desk/real/target"), "new");
        fs::create_hard_link(posix("Desk/real/target"), posix("Desk/second"));
        for (const char* text : {"longest", "short", ""}) {
            EXPECT_EQ(write(kPaths[way], text), 0);
            EXPECT_EQ(fileText("Desk/second"), text) << "one file of two names";
        }
        fs::remove(posix(kFiles[way]));
        fs::create_symlink("real/none", posix(kFiles[way]));
        EXPECT_EQ(write(kPaths[way], "made"), 0);
        EXPECT_EQ(fileText("Desk/real/none"), "made");
        fs::remove_all(posix("Desk"));
    }
}

TEST_F(Replace, AFileIsWrittenInPlaceWhereItsFolderTakesNoOtherOrItIsAnothers) {
    putFile("Desk/a.txt", "old and longer");
    chmod(posix("Desk/a.txt").c_str(), 0666);
    chmod(fs::path(disk()).parent_path().c_str(), 0755);
    for (const mode_t folder : {0555U, 0777U}) {
        chmod(posix("Desk").c_str(), folder);
        const int code = inChild([&] {
            if (geteuid() == 0 && (setegid(65534) != 0 || seteuid(65534) != 0)) {
                return 99;
            }
            return write(kPaths[0], "new") == 0 && (write("Disk:Desk:none.txt", "new") != 0) == (folder == 0555) ? 0
                                                                                                                 : 1;
        });
        EXPECT_EQ(code, 0);
        EXPECT_EQ(fileText("Desk/a.txt"), "new");
        EXPECT_EQ(isThere("Desk/none.txt"), folder == 0777);
        struct stat status {};
        ASSERT_EQ(stat(posix("Desk/a.txt").c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, geteuid()) << "still the owner's";
    }
}

TEST_F(Replace, WhatIsDiscardedNeverWas) {
    platform::Files& files = machine().files();
    platform::FileRef ref = 0;
    for (const char* old : {"old", "(missing)"}) {
        if (*old == 'o') {
            putFile("Desk/a.txt", old);
        } else {
            fs::remove(posix("Desk/a.txt"));
        }
        ASSERT_EQ(files.openPosix("/Volumes/Disk/Desk/a.txt", platform::PosixMode::replace, ref), platform::noErr);
        std::size_t count = 0;
        EXPECT_EQ(files.write(ref, {"new", 3}, count), platform::noErr);
        EXPECT_EQ(fileText("Desk/a.txt"), old);
        EXPECT_EQ(files.discard(ref), platform::noErr);
        EXPECT_EQ(fileText("Desk/a.txt"), old);
        EXPECT_TRUE(leftBehind().empty());
        EXPECT_EQ(files.discard(ref), platform::rfNumErr);
    }
}

}  // namespace
