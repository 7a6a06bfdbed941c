#include "util/file_io.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/failing_allocator.h"
#include "support/failing_machine.h"
#include "support/machine_fixture.h"
#include "util/fhandle.h"

namespace {

using support::FailingMachine;
using support::MachineFixture;
using support::MachineScope;
using Messages = std::vector<std::string>;

// A '/' in a classic name makes the POSIX candidates name a folder that is not there, so that the File Manager writes.
constexpr char kPosixPath[] = "Disk:Desk:a.txt";
constexpr char kPosixFile[] = "Desk/a.txt";
constexpr char kManagerPath[] = "Disk:Desk:a/b.txt";
constexpr char kManagerFile[] = "Desk/a:b.txt";

class FileIo : public MachineFixture {
  protected:
    FileIo() { makeFolder("Desk"); }

    static std::string textOf(char** handle) {
        return handle == nullptr ? "(null)"
                                 : std::string(*handle, static_cast<std::size_t>(quil::GetFHandleSize(handle)));
    }
    // Reads and disposes; the terminator shows as "$".
    static std::string readWhole(const char* path, bool report = true) {
        char** handle = quil::ReadFileIntoTerminatedFHandle(path, report);
        std::string text = textOf(handle);
        if (handle != nullptr) {
            EXPECT_EQ(text.back(), 0);
            text.back() = '$';
        }
        quil::DisposeAndClearFHandle(&handle);
        return text;
    }
    static std::string list(const char* path, quil::OSErr expected = 0) {
        char** out = quil::NewFHandle(0);
        EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder(path, out), expected) << path;
        std::string text(quil::FHandleText(out));
        quil::DisposeAndClearFHandle(&out);
        return text;
    }
};

TEST_F(FileIo, WritingReplacesAndAppendingAddsOnBothWays) {
    for (const auto& [path, file] : {std::pair{kPosixPath, kPosixFile}, {kManagerPath, kManagerFile}}) {
        EXPECT_EQ(quil::WriteBufferToFile(path, "first and long", 14), 0);
        EXPECT_EQ(quil::WriteBufferToFile(path, "a\0b", 3), 0);
        EXPECT_EQ(fileText(file), std::string("a\0b", 3));
        EXPECT_EQ(quil::AppendBufferToFile(path, "cd", 2), 0);
        EXPECT_EQ(fileText(file), std::string("a\0bcd", 5));
        EXPECT_EQ(quil::WriteCStringToFile(path, "text"), 0);
        EXPECT_EQ(fileText(file), "text");
        EXPECT_EQ(quil::WriteBufferToFile(path, nullptr, 0), 0);
        EXPECT_EQ(fileText(file), "");
        EXPECT_EQ(quil::WriteCStringToFile(path, nullptr), -1);
    }
    EXPECT_TRUE(takeMessages().empty());
}

TEST_F(FileIo, TheFileManagersNewFileIsAText) {
    ASSERT_EQ(quil::WriteCStringToFile(kManagerPath, "x"), 0);
    platform::FSSpec spec;
    platform::FInfo info;
    ASSERT_EQ(quil::GetFSSpecFromFullPath(kManagerPath, &spec), 0);
    ASSERT_EQ(machine().files().getFinderInfo(spec, info), 0);
    if (info.fdType == 0) {
        GTEST_SKIP() << "this file system keeps no Finder information";
    }
    EXPECT_EQ(info.fdType, 0x54455854U);
    EXPECT_EQ(info.fdCreator, 0x74747874U);
}

// Records the POSIX paths asked for and opens none.
struct RecordingFiles : support::FailingFiles {
    using FailingFiles::FailingFiles;
    Messages asked;
    platform::Status openPosix(std::string_view path, platform::PosixMode mode, platform::FileRef&) override {
        const char* const modes[] = {"rb", "wb", "ab"};
        asked.push_back(std::string(modes[static_cast<int>(mode)]) + " " + std::string(path));
        return platform::fnfErr;
    }
};
struct RecordingMachine : support::WrappingMachine {
    explicit RecordingMachine(platform::Machine& inner) : WrappingMachine(inner), recording(inner.files(), {}) {}
    RecordingFiles recording;
    platform::Files& files() override { return recording; }
};

TEST_F(FileIo, PosixCandidatesAreTheVolumeThenTheUsers) {
    RecordingMachine recorder(machine());
    MachineScope scope(recorder);
    EXPECT_EQ(quil::WriteCStringToFile("Disk:Desk:f", "x"), 0);
    EXPECT_EQ(fileText("Desk/f"), "x");
    EXPECT_EQ(quil::AppendBufferToFile("Disk:Desk:f", "y", 1), 0);
    EXPECT_EQ(fileText("Desk/f"), "xy");
    quil::AppendBufferToFile(":me:f", "y", 1);
    quil::AppendBufferToFile("/tmp/a:b", "y", 1);
    EXPECT_EQ(recorder.recording.asked,
              (Messages{"wb /Volumes/Disk/Desk/f", "wb /UsersDisk/Desk/f", "ab /Volumes/Disk/Desk/f",
                        "ab /UsersDisk/Desk/f", "ab /Volumes//me/f", "ab /Users/me/f", "ab /tmp/a:b"}));
}

TEST_F(FileIo, AFailingWriteIsReportedWithItsPath) {
    EXPECT_EQ(quil::WriteCStringToFile("Disk:None:f", "x"), -120);
    EXPECT_EQ(takeMessages(), Messages{"Error writing to file:\rDisk:None:f\r\r"});
    EXPECT_EQ(quil::WriteCStringToFile("Gone:f", "x"), -35);
    EXPECT_EQ(quil::AppendBufferToFile(kManagerPath, "x", 1), -43);
    EXPECT_FALSE(isThere(kManagerFile));
    EXPECT_EQ(quil::WriteCStringToFile(nullptr, "x"), -1);
    EXPECT_EQ(quil::WriteCStringToFile("", "x"), -37);
    EXPECT_EQ(quil::WriteBufferToFile(kPosixPath, nullptr, 5), -1);
    EXPECT_EQ(takeMessages().size(), 5U);

    makeFolder("Desk/folder");
    EXPECT_EQ(quil::WriteCStringToFile("Disk:Desk:folder", "x"), platform::notAFileErr);
    EXPECT_EQ(quil::AppendBufferToFile("Disk:Desk:folder", "x", 1), platform::notAFileErr);
    EXPECT_TRUE(isThere("Desk/folder/."));
    EXPECT_EQ(takeMessages().size(), 2U);

    const std::string longPath = "Disk:None:" + std::string(600, 'p');
    EXPECT_NE(quil::WriteCStringToFile(longPath.c_str(), "x"), 0);
    EXPECT_EQ(takeMessages(), Messages{("Error writing to file:\r" + longPath).substr(0, 255) + "\r\r"});
}

TEST_F(FileIo, WritesByPosixPathFirstAndByTheFileManagerWhereThatFails) {
    makeFolder("Desk/p");
    putFile("Desk/p:q", "old");
    const struct {
        const char* path;
        const char* file;
    } cases[] = {{"Disk:Desk:p/q", "Desk/p/q"},  // a '/' in a name divides it in the POSIX path
                 {"Disk:Desk:r/q", "Desk/r:q"},  // but where there is no such folder it is a name
                 {"Disk:Desk::up", "Desk/up"},
                 {"/Volumes/Gone/notes.txt", "Apps/Host.app/Contents/MacOS/:Volumes:Gone:notes.txt"}};
    for (const auto& [path, file] : cases) {
        EXPECT_EQ(quil::WriteCStringToFile(path, path), 0) << path;
        EXPECT_EQ(fileText(file), path);
    }
    EXPECT_EQ(fileText("Desk/p:q"), "old");
    EXPECT_EQ(quil::WriteCStringToFile("Disk:None:x", "x"), platform::dirNFErr);
    EXPECT_EQ(takeMessages(), Messages{"Error writing to file:\rDisk:None:x\r\r"});
}

TEST_F(FileIo, ReadingGivesTheBytesAndATerminator) {
    putFile(kPosixFile, std::string("a\0b\xFF", 4));
    EXPECT_EQ(readWhole(kPosixPath), std::string("a\0b\xFF$", 5));
    putFile("Desk/empty", "");
    EXPECT_EQ(readWhole("Disk:Desk:empty"), "$");
    const std::string large(3 << 20, 'l');
    putFile("Desk/large", large);
    EXPECT_EQ(readWhole("Disk:Desk:large"), large + "$");
    EXPECT_TRUE(takeMessages().empty());
}

TEST_F(FileIo, AFailingReadIsReportedOnlyOnRequest) {
    putFile(kPosixFile, "content");
    for (const auto& [operation, message] : {std::pair{"open", "Unable to open file: \rDisk:Desk:a.txt\r\r"},
                                             {"size", "Unable to get file size: \rDisk:Desk:a.txt\r\r"},
                                             {"read", "Error reading file: \rDisk:Desk:a.txt\r\r"}}) {
        for (const bool report : {true, false}) {
            machine().state().faults = {{operation, platform::ioErr}};
            EXPECT_EQ(readWhole(kPosixPath, report), "(null)");
            EXPECT_EQ(takeMessages(), report ? Messages{message} : Messages{});
        }
    }
    EXPECT_EQ(readWhole(nullptr), "(null)");
}

TEST_F(FileIo, ListsItemsOfTheSameExtensionInAnyCase) {
    for (const char* name :
         {"a.txt", "b.TXT", "c.txt.bak", "d", "e.zip", "f.TVN", "g.Zip", "txt", "h.elevenlong", "i.twelvelonger"}) {
        putFile(std::string("Desk/") + name, "");
    }
    makeFolder("Desk/folder.txt");
    const auto lines = [](std::string text) {
        std::vector<std::string> items;
        for (std::size_t at; (at = text.find('\r')) != std::string::npos; text.erase(0, at + 1)) {
            items.push_back(text.substr(0, at));
        }
        EXPECT_EQ(text, "");
        std::sort(items.begin(), items.end());
        return items;
    };
    EXPECT_EQ(lines(list("Disk:Desk:x.Txt")), (Messages{"Disk:Desk:a.txt", "Disk:Desk:b.TXT", "Disk:Desk:folder.txt"}));
    const Messages pair = {"Disk:Desk:e.zip", "Disk:Desk:f.TVN", "Disk:Desk:g.Zip"};
    EXPECT_EQ(lines(list("Disk:Desk:x.zip")), pair);
    EXPECT_EQ(lines(list("Disk:Desk:x.tvn")), pair);
    EXPECT_EQ(lines(list("Disk:Desk:.elevenlong")), Messages{"Disk:Desk:h.elevenlong"});
    EXPECT_EQ(list("Disk:Desk:x.twelvelonger"), "");
    EXPECT_EQ(list("Disk:Desk:x"), "");
    EXPECT_EQ(list("Disk:None:x.txt"), "");
    EXPECT_EQ(list("Gone:x.txt", platform::nsvErr), "");
    EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder("Disk:Desk:x.txt", nullptr), -1);
    EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder(nullptr, nullptr), 0);
}

TEST_F(FileIo, AListIsUtf8WhateverTheNamesOnDiskAre) {
    makeFolder("D\x8Esk");
    for (const char* name : {"r\x8Esum\x8E.txt", "\xE2\x82\xAC.txt", "plain.txt"}) {
        putFile(std::string("D\x8Esk/") + name, "");
    }
    const std::string listed = list("Disk:D\xC3\xA9sk:x.txt");
    EXPECT_EQ(
        listed,
        "Disk:D\xC3\xA9sk:plain.txt\rDisk:D\xC3\xA9sk:r\xC3\xA9sum\xC3\xA9.txt\rDisk:D\xC3\xA9sk:\xE2\x82\xAC.txt\r");
    EXPECT_TRUE(quil::FileExists("Disk:D\xC3\xA9sk:r\xC3\xA9sum\xC3\xA9.txt"));
    quil::FSSpec spec;
    ASSERT_EQ(quil::GetFSSpecFromFullPath("Disk:D\x8Esk:plain.txt", &spec), 0);
    char folder[256];
    ASSERT_EQ(quil::GetClassicPathWithDelimiterAsPStringFromDirID(spec.parID, spec.vRefNum, folder), 0);
    EXPECT_EQ(std::string(folder + 1, static_cast<unsigned char>(folder[0])), "Disk:D\xC3\xA9sk:");
}

TEST_F(FileIo, ListsAreAddedToWhatTheHandleHolds) {
    putFile("Desk/a.txt", "");
    char** out = quil::NewFHandle(0);
    ASSERT_EQ(quil::CatHandleContents(out, "before\r"), 0);
    EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder("Disk:Desk:x.txt", out), 0);
    EXPECT_EQ(quil::FHandleText(out), "before\rDisk:Desk:a.txt\r");
    EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder("Disk:Desk:x.none", out), 0);
    EXPECT_EQ(quil::FHandleText(out), "before\rDisk:Desk:a.txt\r");
    quil::DisposeAndClearFHandle(&out);
}

TEST_F(FileIo, TheBundlesVersionIsReadAsAVersionResource) {
    std::uint8_t numeric[4] = {};
    short region = -1;
    unsigned char shortVersion[256];
    unsigned char longVersion[256];
    ASSERT_EQ(quil::GetVersionInfo(1, &numeric, &region, shortVersion, longVersion), 0);
    EXPECT_EQ(numeric[0], 1);
    EXPECT_EQ(region, 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(shortVersion), 4), "\x03\x31.0");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(longVersion), 9), "\010QUIL 1.0");
    EXPECT_EQ(quil::GetVersionInfo(2, &numeric, &region, shortVersion, longVersion), platform::resNotFound);
}

TEST_F(FileIo, WantOfMemoryIsReportedAndLeavesNothingBehind) {
    putFile(kPosixFile, "content");
    support::FailingAllocator memory;
    long failing = 1;
    for (;; ++failing) {
        memory.failCall(failing);
        FailingMachine whole(machine(), {});
        MachineScope scope(whole);
        const std::string text = readWhole(kPosixPath);
        EXPECT_EQ(whole.files().openReferences(), 0);
        EXPECT_EQ(memory.liveBlocks(), 0U);
        EXPECT_EQ(text, memory.failed() ? "(null)" : "content$");
        if (!memory.failed()) {
            break;
        }
        EXPECT_EQ(takeMessages(), Messages{"Not enough memory to complete this operation.\r\r\r"});
    }
    EXPECT_EQ(failing, 3);

    memory.failCall(0);
    char** out = quil::NewFHandle(0);
    memory.failCall(1);
    EXPECT_EQ(quil::MakeListOfMatchingItemsInFolder(kPosixPath, out), -108);
    EXPECT_EQ(quil::GetFHandleSize(out), 0);
    quil::DisposeAndClearFHandle(&out);
}

TEST_F(FileIo, AWriteWithAFailingFileCallSucceedsWholeOrGivesItsCode) {
    struct Row {
        const char* path;
        const char* file;
        bool append;
    };
    for (const Row& row : {Row{kPosixPath, kPosixFile, false}, Row{kPosixPath, kPosixFile, true},
                           Row{kManagerPath, kManagerFile, false}, Row{kManagerPath, kManagerFile, true}}) {
        for (const bool shortTransfer : {false, true}) {
            const bool byPosix = row.path == kPosixPath;
            const int rounds =
                support::sweepFileCalls(machine(), {0, platform::wPrErr, shortTransfer}, [&](FailingMachine& failing) {
                    putFile(row.file, "old");
                    MachineScope scope(failing);
                    const std::int32_t code = quil::WriteBufferToFilePrimative(row.path, "new text", 8, row.append);
                    const std::string& failed = failing.files().failedCall();
                    SCOPED_TRACE(failed + " of " + row.path);
                    EXPECT_EQ(failing.files().openReferences(), 0);
                    EXPECT_EQ(takeMessages().size(), code == 0 ? 0U : 1U);
                    if (code == 0) {
                        EXPECT_EQ(fileText(row.file), row.append ? "oldnew text" : "new text");
                        // Another way led to the file, or what failed only asked whether it is a folder.
                        EXPECT_TRUE(failed.empty() || failed == "openPosix" || failed == "makeSpec") << failed;
                    } else if (byPosix) {
                        EXPECT_EQ(code, 3);
                    } else {
                        EXPECT_EQ(code, failed == "write" && shortTransfer ? platform::ioErr : platform::wPrErr);
                    }
                    if (code != 0 && !(row.append && (failed == "write" || failed == "close"))) {
                        EXPECT_EQ(fileText(row.file), "old");
                    }
                });
            EXPECT_GT(rounds, byPosix ? 3 : 5);
        }
    }
}

TEST_F(FileIo, AReadOrListWithAFailingFileCallIsWholeOrSaysSo) {
    putFile("Desk/a.txt", "content");
    putFile("Desk/b.txt", "");
    for (const bool shortTransfer : {false, true}) {
        support::sweepFileCalls(machine(), {0, platform::ioErr, shortTransfer}, [&](FailingMachine& failing) {
            MachineScope scope(failing);
            const std::string text = readWhole(kPosixPath);
            const std::string& failed = failing.files().failedCall();
            EXPECT_EQ(failing.files().openReferences(), 0);
            EXPECT_EQ(text, failed.empty() || failed == "close" ? "content$" : "(null)");
            EXPECT_EQ(takeMessages().size(), text == "(null)" ? 1U : 0U) << failed;
        });
    }
    const std::string all = list(kPosixPath);
    const int rounds = support::sweepFileCalls(machine(), {0, platform::ioErr}, [&](FailingMachine& failing) {
        MachineScope scope(failing);
        char** out = quil::NewFHandle(0);
        const quil::OSErr error = quil::MakeListOfMatchingItemsInFolder(kPosixPath, out);
        const std::string text(quil::FHandleText(out));
        quil::DisposeAndClearFHandle(&out);
        EXPECT_EQ(error, failing.files().hasFailed() ? platform::ioErr : platform::noErr);
        EXPECT_TRUE(error == 0 ? text == all : all.starts_with(text));
    });
    EXPECT_EQ(rounds, 5);  // the folder, two items, the end of the list, and the round that passes
}

}  // namespace
