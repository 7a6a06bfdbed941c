#include "util/app_path.h"

#include <gtest/gtest.h>

#include <string>

#include "support/failing_machine.h"
#include "support/machine_fixture.h"
#include "util/paths.h"

namespace {

using platform::FSSpec;
using support::MachineFixture;
using support::MachineScope;

class AppPath : public MachineFixture {
  protected:
    char text[256] = "before";
};

using Paths = AppPath;

TEST_F(AppPath, ThePackageAroundTheExecutableIsTheApplication) {
    EXPECT_STREQ(quil::GetAppFullPathName(text), support::kHostPath);
    EXPECT_STREQ(quil::GetAppName(text), "Host");
    EXPECT_STREQ(quil::GetAppFolderPathWithDelimiter(text), "Disk:Apps:");
    EXPECT_EQ(quil::GetAppSignature(), 0x464D5037U);
}

TEST_F(AppPath, ThePathIsAskedOfTheMachineOnceButAFailureIsNotRemembered) {
    const int rounds = support::sweepFileCalls(machine(), {}, [this](support::FailingMachine& failing) {
        quil::ResetAppPath();
        MachineScope scope(failing);
        quil::GetAppFullPathName(text);
        EXPECT_STREQ(text, failing.files().hasFailed() ? "" : support::kHostPath);
        EXPECT_STREQ(quil::GetAppFullPathName(text), support::kHostPath);
    });
    EXPECT_GT(rounds, 5);

    support::FailingMachine failing(machine(), {1});
    MachineScope scope(failing);
    EXPECT_STREQ(quil::GetAppFullPathName(text), support::kHostPath);
    EXPECT_FALSE(failing.files().hasFailed());
}

TEST_F(AppPath, TheSignatureIsZeroWhenTheProcessIsNotToBeHad) {
    struct NoProcesses : platform::Processes {
        platform::Status currentStatus = platform::procNotFound;
        platform::Status current(platform::ProcessSerialNumber&) override { return currentStatus; }
        platform::Status next(platform::ProcessSerialNumber&) override { return platform::procNotFound; }
        platform::Status information(platform::ProcessSerialNumber, platform::ProcessInfo& info) override {
            info.signature = 1;
            return platform::procNotFound;
        }
        std::string currentApplicationName() override { return {}; }
        platform::Status launch(const FSSpec&, std::uint16_t, platform::ProcessSerialNumber&) override { return -1; }
        platform::Status setFront(platform::ProcessSerialNumber) override { return -1; }
    };
    struct NoProcessMachine : support::WrappingMachine {
        using WrappingMachine::WrappingMachine;
        NoProcesses none;
        platform::Processes& processes() override { return none; }
    };
    NoProcessMachine without(machine());
    MachineScope scope(without);
    EXPECT_EQ(quil::GetAppSignature(), 0U);
    without.none.currentStatus = 0;
    EXPECT_EQ(quil::GetAppSignature(), 0U);
}

TEST(PackagePath, IsCutBeforeItsDotApp) {
    for (const auto& [path, cut] :
         {std::pair{"Disk:Applications:Host.app:Contents:MacOS:Host", "Disk:Applications:Host"},
          {"Disk:A.APP:B.app:C", "Disk:A"},
          {"Disk:Host.application:x", "Disk:Host.application:x"},
          {".aPp:", ""},
          {"", ""}}) {
        char text[64];
        std::snprintf(text, sizeof text, "%s", path);
        quil::RemoveTheDotAppPartOfMacintoshApplicationPath(text);
        EXPECT_STREQ(text, cut);
    }
}

TEST_F(Paths, FilesAndFoldersExistOrNot) {
    putFile("Work/a.txt", "");
    for (const char* path : {"Disk:Work:a.txt", "Disk:Work:", "Disk:Work", "Disk:", "Disk:work:A.TXT"}) {
        EXPECT_TRUE(quil::FileExists(path)) << path;
    }
    for (const char* path : {"Disk:Work:b.txt", "Disk:None:a.txt", "Gone:Work:a.txt", ""}) {
        EXPECT_FALSE(quil::FileExists(path)) << path;
    }
    EXPECT_FALSE(quil::FileExists(nullptr));
}

TEST_F(Paths, AFileSpecificationTellsItsFullPath) {
    putFile("Work/Deep/a.txt", "");
    for (const auto& [path, full] : {std::pair{"Disk:Work:Deep:a.txt", "Disk:Work:Deep:a.txt"},
                                     {"Disk:Work:Deep:new", "Disk:Work:Deep:new"},
                                     {"Disk:Work:", "Disk:Work"},
                                     {"Disk:", "Disk:"}}) {
        FSSpec spec;
        const quil::OSErr error = quil::GetFSSpecFromFullPath(path, &spec);
        ASSERT_TRUE(error == platform::noErr || error == platform::fnfErr) << path << " " << error;
        EXPECT_STREQ(quil::GetFullPathFromFSSpec(spec, text), full);
    }
    FSSpec lost;
    ASSERT_EQ(quil::GetFSSpecFromFullPath("Disk:Work:Deep:a.txt", &lost), 0);
    lost.parID = 99999;
    EXPECT_STREQ(quil::GetFullPathFromFSSpec(lost, text), "");
}

TEST_F(Paths, AFoldersPathIsLengthPrefixedWithAClosingColonAndCutAt255) {
    const std::string name(100, 'n');
    makeFolder(name + "/" + name + "/" + name);
    const std::string full = "Disk:" + name + ":" + name + ":" + name + ":";
    FSSpec spec;
    ASSERT_EQ(platform::machine().files().makeSpec(0, 0, full + "x", spec), platform::fnfErr);
    ASSERT_EQ(quil::GetClassicPathWithDelimiterAsPStringFromDirID(spec.parID, spec.vRefNum, text), 0);
    EXPECT_EQ(static_cast<unsigned char>(text[0]), 255);
    EXPECT_EQ(std::string(text + 1, 255), full.substr(0, 255));

    ASSERT_EQ(quil::GetClassicPathWithDelimiterAsPStringFromDirID(platform::fsRtDirID, spec.vRefNum, text), 0);
    EXPECT_EQ(std::string(text, 6), "\5Disk:");
    EXPECT_NE(quil::GetClassicPathWithDelimiterAsPStringFromDirID(99999, spec.vRefNum, text), 0);
    EXPECT_EQ(text[0], 0);
}

TEST_F(Paths, APosixPathIsMadeOfAnExistingFileOrOfOneCreatedForIt) {
    putFile("Work/a.txt", "content");
    char path[2096];
    EXPECT_EQ(quil::strcpyFileSystemRepresentationFromClassicPath(path, "Disk:Work:a.txt", sizeof path), 0);
    EXPECT_EQ(path, posix("Work/a.txt"));
    EXPECT_EQ(fileText("Work/a.txt"), "content");

    EXPECT_EQ(quil::strcpyFileSystemRepresentationFromClassicPath(path, "Disk:Work:n/m", sizeof path), 0);
    EXPECT_EQ(path, posix("Work/n:m"));
    EXPECT_EQ(fileText("Work/n:m"), "");
    FSSpec spec;
    platform::FInfo info;
    ASSERT_EQ(quil::GetFSSpecFromFullPath("Disk:Work:n/m", &spec), 0);
    if (machine().files().getFinderInfo(spec, info) == 0 && info.fdType != 0) {
        EXPECT_EQ(info.fdType, 0x54455854U);
        EXPECT_EQ(info.fdCreator, 0x4D505720U);
    } else {
        std::puts("note: this file system keeps no Finder information; type and creator were not compared");
    }

    EXPECT_EQ(quil::strcpyFileSystemRepresentationFromClassicPath(path, "Disk:None:a", sizeof path), -120);
    EXPECT_STREQ(path, "");
    const auto exact = static_cast<long>(posix("Work/a.txt").size()) + 1;
    EXPECT_EQ(quil::strcpyFileSystemRepresentationFromClassicPath(path, "Disk:Work:a.txt", exact), 0);
    EXPECT_NE(quil::strcpyFileSystemRepresentationFromClassicPath(path, "Disk:Work:a.txt", exact - 1), 0);
    EXPECT_STREQ(path, "");
}

}  // namespace
