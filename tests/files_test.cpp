// Base directories and the file functions.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "files/base_directory.h"
#include "files/file_functions.h"
#include "files/years.h"
#include "messaging/globals.h"
#include "support/failing_machine.h"
#include "support/script_calls.h"
#include "util/toolbox.h"

namespace {

namespace fs = std::filesystem;
using namespace quil;

constexpr char kUnresolved[] = "Error: ResolvePossiblePartialPath returned an error";
constexpr char kUsageOfRead[] =
    "Error: Usage GLN1GetCharsFromFile(startingCharOneRelative|numCharsToCopy|relativeOrFullPath)";

class Files : public support::ScriptFixture {
  protected:
    void SetUp() override { CreateStartupGlobals(); }

    std::vector<std::string> leftBehind() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(disk())) {
            if (entry.path().filename().string().starts_with(".quil-")) {
                names.push_back(entry.path());
            }
        }
        return names;
    }
    mode_t modeOf(std::string_view relative) const {
        struct stat status {};
        return lstat(posix(relative).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    // Kills a process that runs `work` again and again, at many points; `check` looks at the files each time.
    template <class Work, class Check>
    void killAtManyPoints(Work work, Check check) {
        for (unsigned round = 0; round < 15 && !HasFatalFailure(); ++round) {
            const pid_t child = fork();
            if (child == 0) {
                for (;;) {
                    work();
                }
            }
            usleep(150 + 511 * round);
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            check();
        }
    }
};

TEST_F(Files, RelativePathsStartAtTheApplicationAndGoUpButNotPastTheVolume) {
    const std::string longName(250, 'n');
    const std::pair<std::string, std::string> cases[] = {
        {"Disk:Folder:file", "Disk:Folder:file"},
        {"file", "file"},
        {"", ""},
        {":file", "Disk:Apps:file"},
        {"::file", "Disk:file"},
        {":", "Disk:Apps:"},
        {"::", "Disk:"},
        {"\\Data\\f.txt", "Disk:Apps:Data:f.txt"},
        {"\\a\\:b", "Disk:Apps:a\\:b"},
        {"\\:a", "Disk:a"},
        {std::string(300, ':') + "f", "Disk:"},  // cut at 255 bytes
        {std::string(200, ':') + "f", "Disk:f"},
        {":" + longName, ("Disk:Apps:" + longName).substr(0, 255)},
        {"Disk:" + std::string(251, 'n'), "Disk:" + std::string(250, 'n')},
    };
    for (const auto& [path, full] : cases) {
        EXPECT_EQ(script(GLN1ResolveRelativePath, path), full) << path;
    }
    EXPECT_TRUE(alerts().empty());
}

TEST_F(Files, TheBaseDirectoryIsTheOneThatHoldsTheReferenceFile) {
    const std::string failure = "Error: DetermineBaseDirectoryFromTheReferenceFile returned an error";
    putFile("One/ref", "");
    putFile("Two/other", "");
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:ref"), "Disk:Apps:a") << "there is no list";
    putFile("Apps/BaseDirectoryList.txt", "Disk:None:\r\n\r\n:\nDisk:One:\rDisk:Two\\");
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:ref"), "Disk:One:a");
    EXPECT_EQ(script(GLN1ResolveRelativePath, "::a"), "Disk:a") << "without a reference file the base is forgotten";
    EXPECT_EQ(script(GLN1ResolveRelativePath, "::a|:other"), "Disk:a");
    fs::remove(posix("Apps/BaseDirectoryList.txt"));
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:other"), "Disk:Two:a") << "kept without the list";
    EXPECT_TRUE(alerts().empty());

    putFile("Apps/BaseDirectoryList.txt",
            "\xEF\xBB\xBF"
            "Disk:One");
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:ref"), "Disk:One:a") << "a byte order mark before it";
    script(GLN1ResolveRelativePath, "");
    putFile("Apps/BaseDirectoryList.txt", "Disk:One\nDisk:None\nDisk:One\n" + std::string(400, 'x'));
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:ref"), failure);
    EXPECT_EQ(script(GLN1FileExists, ":ref|:ref"), "TRUE") << "the second match stays the base";
    EXPECT_EQ(script(GLN1FileExists, ":ref|:gone"), "FALSE");
    EXPECT_EQ(alerts(), (std::vector<std::string>{"Error: more than one base directory listed in BaseDirectoryList.txt "
                                                  "contains the reference file \":ref\"\r\r",
                                                  "Error: base directory could not be found containing the reference "
                                                  "file \":gone\"\r\r"}));
    for (const Handler handler : {GLN1SetStartupDocument, GLN1DeleteFile, GLN1GetListOfFilesInFolder,
                                  GLN1FileSystemRepresentationFromClassicPath, GLN1GetTorvaneYearsFromIDs}) {
        EXPECT_EQ(script(handler, ":ref|:gone"), kUnresolved);
    }
    EXPECT_EQ(script(GLN1CopyFile, ":ref|:b|:gone"), kUnresolved);
    EXPECT_EQ(script(GLN1GetCharsFromFile, "1|1|:ref|:gone"), kUnresolved);
    putFile("Apps/gone", "");
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:gone"), "Disk:Apps:a") << "beside the application";
    fs::remove(posix("Apps/BaseDirectoryList.txt"));
    ASSERT_EQ(mkfifo(posix("Apps/BaseDirectoryList.txt").c_str(), 0600), 0);
    EXPECT_EQ(script(GLN1ResolveRelativePath, ":a|:ref"), "Disk:Apps:a") << "a list that is no file";
}

TEST_F(Files, TheStartupDocumentIsStoredResolved) {
    char value[256];
    for (const auto& [parameter, document] : {std::pair{":a.vst", "Disk:Apps:a.vst"}, {"", ""}, {"Disk:b", "Disk:b"}}) {
        EXPECT_EQ(script(GLN1SetStartupDocument, parameter), "");
        GetGlobalInListAsStr("App DOC", value, sizeof value);
        EXPECT_STREQ(value, document);
    }
}

TEST_F(Files, ACopyHasContentTypeCreatorAndPermissionsAndReplacesEvenALockedFile) {
    const std::string content(250'000, 'c');
    putFile("Docs/a/b", "");
    putFile("Docs/source", content);
    char finder[] = "TEXTquil0123456789012345678901234";
    const bool attributes = setxattr(posix("Docs/source").c_str(), "user.com.apple.FinderInfo", finder, 32, 0) == 0;
    chmod(posix("Docs/source").c_str(), 0640);
    putFile("Docs/locked", "old");
    chmod(posix("Docs/locked").c_str(), 0400);
    putFile("elsewhere", "kept");
    fs::create_symlink("../elsewhere", posix("Docs/link"));
    for (const char* name : {"new", "locked", "link", "source"}) {
        EXPECT_EQ(script(GLN1CopyFile, std::string("Disk:Docs:source|Disk:Docs:") + name), "");
        const std::string path = std::string("Docs/") + name;
        EXPECT_EQ(fileText(path), content);
        EXPECT_EQ(modeOf(path), 0640U) << name;
        char found[33] = "";
        if (attributes) {
            EXPECT_EQ(getxattr(posix(path).c_str(), "user.com.apple.FinderInfo", found, 32), 32);
            EXPECT_EQ(std::string(found), std::string(finder, 32));
        }
    }
    EXPECT_EQ(fileText("elsewhere"), "kept") << "the link itself gave way";
    EXPECT_EQ(script(GLN1CopyFile, "::docs:SOURCE|:beside"), "") << "relative, in any letter case";
    EXPECT_EQ(fileText("Apps/beside"), content);

    ASSERT_EQ(mkfifo(posix("Docs/pipe").c_str(), 0600), 0);
    const std::pair<const char*, const char*> failures[] = {
        {"Disk:Docs:source", "Error: vertical bar expected in GLN1CopyFile"},
        {"Disk:none|Disk:x", "Error: The source file does not exist: Disk:none"},
        {"Disk:Docs:pipe|Disk:x", "Error: hgetfinfo failed."},
        {"Disk:Docs:|Disk:x", "Error: hgetfinfo failed."},
        {"Disk:Docs:source|Disk:Docs:a", "Error: HCreate failed."},
        {"Disk:Docs:source|Disk:Docs:pipe", "Error: HCreate failed."},
        {"Disk:Docs:source|Disk:None:x", "Error: HCreate failed."},
        {"Disk:Docs:source|", "Error: HCreate failed."},
    };
    for (const auto& [parameter, text] : failures) {
        EXPECT_EQ(script(GLN1CopyFile, parameter), text) << parameter;
    }
    EXPECT_EQ(script(GLN1CopyFile, "Disk:" + std::string(250, 'n') + "|Disk:x"),
              ("Error: The source file does not exist: Disk:" + std::string(250, 'n')).substr(0, 255));
    EXPECT_FALSE(isThere("x"));
    EXPECT_TRUE(leftBehind().empty());

    ASSERT_EQ(truncate(posix("Docs/source").c_str(), 3 << 20), 0);
    EXPECT_EQ(script(GLN1CopyFile, "Disk:Docs:source|Disk:sparse"), "");
    EXPECT_EQ(fileText("sparse"), fileText("Docs/source"));
    struct stat sparse {};
    ASSERT_EQ(stat(posix("sparse").c_str(), &sparse), 0);
    EXPECT_LT(sparse.st_blocks * 512, 1 << 20) << "holes stay holes";
}

TEST_F(Files, AFailingCallLeavesTheSourceAndTheOldDestination) {
    const std::string content(250'000, 'c');
    const std::set<std::string> outcomes = {"",
                                            "Error: The source file does not exist: Disk:source",
                                            "Error: hgetfinfo failed.",
                                            "Error: hopendf failed.",
                                            "Error: GetEOF failed.",
                                            "Error: HCreate failed.",
                                            "Error: HOpenDF failed.",
                                            "Error: TransferFileSection failed."};
    putFile("source", content);
    for (const bool shortTransfer : {false, true}) {
        std::set<std::string> met;
        const int rounds = support::sweepFileCalls(machine(), {0, platform::ioErr, shortTransfer}, [&](auto& failing) {
            putFile("copy", "old");
            const support::MachineScope scope(failing);
            const std::string answer = script(GLN1CopyFile, "Disk:source|Disk:copy");
            EXPECT_TRUE(outcomes.contains(answer)) << answer;
            EXPECT_EQ(fileText("source"), content);
            EXPECT_EQ(fileText("copy"), answer.empty() ? content : "old") << failing.files().failedCall();
            EXPECT_EQ(failing.files().openReferences(), 0) << failing.files().failedCall();
            met.insert(answer);
        });
        EXPECT_GT(rounds, 12);
        EXPECT_EQ(met, outcomes);
    }
    EXPECT_TRUE(leftBehind().empty());
    machine().state().faults = {{"create", platform::dskFulErr, 1, 0}};
    EXPECT_EQ(script(GLN1CopyFile, "Disk:source|Disk:copy"), "Error: HCreate failed.");
    machine().state().faults = {{"delete", platform::fBsyErr, 1, 0}};
    EXPECT_EQ(script(GLN1CopyFile, "Disk:source|Disk:copy"), "Error: HCreate failed.") << "what is there is in the way";
}

TEST_F(Files, AKilledCopyOrRewriteLeavesWholeFiles) {
    std::string content(1 << 20, '.');
    for (std::size_t at = 100; at + 8 < content.size(); at += 1000) {
        content.replace(at, 8, "CKTR2015");
    }
    std::string changed = content;
    for (std::size_t at = 100; at + 8 < changed.size(); at += 1000) {
        changed.replace(at, 8, "CKTR2008");
    }
    const std::string old(1 << 18, 'o');
    putFile("source", content);
    int news = 0;
    const auto reset = [&] { putFile("copy", old); };
    reset();
    killAtManyPoints([&] { script(GLN1CopyFile, "Disk:source|Disk:copy"); },
                     [&] {
                         const std::string copy = fileText("copy");
                         ASSERT_TRUE(copy == old || copy == content);
                         ASSERT_EQ(fileText("source"), content);
                         news += copy == content;
                         reset();
                     });
    EXPECT_GT(news, 0) << "no round was long enough for a copy";
    killAtManyPoints(
        [&] {
            script(GLN1ChangeTorvaneIDsInFile, "2008|Disk:source");
            script(GLN1ChangeTorvaneIDsInFile, "2015|Disk:source");
        },
        [&] {
            const std::string text = fileText("source");
            ASSERT_TRUE(text == content || text == changed);
        });
    EXPECT_LE(leftBehind().size(), 2U) << "what was written and not complete goes with the process";
}

TEST_F(Files, DeletingTakesLinksThemselvesAndTriesAgainWhileAFileIsBusy) {
    putFile("target", "kept");
    fs::create_symlink(posix("target"), posix("link"));
    makeFolder("empty");
    for (const char* path : {"Disk:link", "Disk:none", "Disk:empty", "Disk:Nope:x", "Nope:x", ""}) {
        EXPECT_EQ(script(GLN1DeleteFile, path), "") << path;
    }
    EXPECT_FALSE(fs::is_symlink(posix("link")) || isThere("empty"));
    EXPECT_EQ(fileText("target"), "kept");
    chmod(posix("target").c_str(), 0400);
    EXPECT_EQ(script(GLN1DeleteFile, "Disk:target"), "Error -45: Unable to delete file: Disk:target");
    chmod(posix("target").c_str(), 0600);

    const struct {
        platform::Status status;
        std::uint32_t times;
        std::uint32_t seconds;
        const char* answer;
    } cases[] = {{-47, 16, 15, "Error -47: Unable to delete file: Disk:target"},
                 {-36, 16, 0, "Error -36: Unable to delete file: Disk:target"},
                 {-47, 15, 15, ""}};
    for (const auto& [status, times, seconds, answer] : cases) {
        machine().state().ticks = 1000;
        machine().state().faults = {{"delete", status, times, 0}};
        EXPECT_EQ(script(GLN1DeleteFile, "Disk:target"), answer);
        EXPECT_EQ(*machine().state().ticks, 1000 + 60 * seconds);
    }
    EXPECT_FALSE(isThere("target"));
}

TEST_F(Files, PartsOfFilesAreReadAsTexts) {
    putFile("abc", "abc");
    putFile("nul", std::string("ab\0cd", 5));
    ASSERT_EQ(mkfifo(posix("pipe").c_str(), 0600), 0);
    const std::pair<std::string, std::string> cases[] = {
        {"1|5|Disk:abc", "abc"},
        {"2|1|Disk:abc", "b"},
        {"3|9|:abc", "Error: GLN1GetCharsFromFile: File does not exist"},
        {"3|99999|::abc", "c"},
        {"4|1|Disk:abc", ""},
        {"1|9|Disk:nul", "ab"},
        {"0|1|Disk:abc", kUsageOfRead},
        {"-1|1|Disk:abc", kUsageOfRead},
        {"1|0|Disk:abc", kUsageOfRead},
        {"1|x|Disk:abc", kUsageOfRead},
        {"1|1|", kUsageOfRead},
        {"1|1", kUsageOfRead},
        {"", kUsageOfRead},
    };
    for (const auto& [parameter, text] : cases) {
        EXPECT_EQ(script(GLN1GetCharsFromFile, parameter), text) << parameter;
        EXPECT_TRUE(alerts().empty()) << parameter;
    }
    EXPECT_EQ(script(GLN1GetCharsFromFile, "1|1|Disk:pipe"), "Error: hgetfinfo failed.");
    EXPECT_EQ(alerts().size(), 1U);
    chmod(posix("abc").c_str(), 0400);
    EXPECT_EQ(script(GLN1GetCharsFromFile, "1|1|Disk:abc"), "Error: hopendf failed.") << "it is opened for writing too";
    chmod(posix("abc").c_str(), 0600);
    std::set<std::string> met;
    support::sweepFileCalls(machine(), {}, [&](auto& failing) {
        const support::MachineScope scope(failing);
        met.insert(script(GLN1GetCharsFromFile, "1|5|Disk:abc"));
        EXPECT_EQ(failing.files().openReferences(), 0);
    });
    EXPECT_EQ(met, (std::set<std::string>{"abc", "Error: GLN1GetCharsFromFile: File does not exist",
                                          "Error: hgetfinfo failed.", "Error: hopendf failed.", "Error: GetEOF failed.",
                                          "Error: FSRead returned an error."}));
}

TEST_F(Files, TextsAreWrittenWholeWithAByteOrderMarkWhenAsked) {
    const std::string text(5000, 't');
    const std::pair<std::string, std::string> cases[] = {{"abc", "abc"},
                                                         {"BOM|abc",
                                                          "\xEF\xBB\xBF"
                                                          "abc"},
                                                         {"", ""},
                                                         {"BOM|", "\xEF\xBB\xBF"},
                                                         {"bom|a|b", "bom|a|b"},
                                                         {text, text}};
    for (const auto& [parameter, content] : cases) {
        EXPECT_EQ(script(GLN1WriteTextToFile, "Disk:out|" + parameter), "");
        EXPECT_EQ(fileText("out"), content);
    }
    for (const char* parameter : {"", "Disk:out", "|text"}) {
        EXPECT_EQ(
            script(GLN1WriteTextToFile, parameter),
            "Error: Usage GLN1WriteTextToFile(fullPath|textToWriteToFile). Optional second parameter of BOM means "
            "prepend a utf-8 Byte Order Mark.");
    }
    EXPECT_TRUE(alerts().empty());
    EXPECT_EQ(script(GLN1WriteTextToFile, "Nope:x:y|text"), "");
    EXPECT_EQ(alerts().size(), 2U);
    ASSERT_EQ(mkfifo(posix("pipe").c_str(), 0600), 0);
    EXPECT_EQ(script(GLN1WriteTextToFile, "Disk:pipe|text"), "");
    EXPECT_TRUE(fs::is_fifo(posix("pipe"))) << "only a file gives way to a new one";
    fs::create_symlink("out", posix("link"));
    chmod(posix("out").c_str(), 0400);
    EXPECT_EQ(script(GLN1WriteTextToFile, "Disk:link|text"), "");
    EXPECT_TRUE(fs::is_symlink(posix("link"))) << "what it leads to is locked";
}

TEST_F(Files, OddPathsReachWhatTheirFirstFieldNamesAndNothingElse) {
    using namespace std::string_literals;
    const std::string folder(120, 'd');
    const std::string longest = "Disk:" + folder + ":" + std::string(255 - 6 - 120, 'f');
    putFile(folder + "/" + std::string(255 - 6 - 120, 'f'), "");
    putFile("L/a", "kept");
    putFile("L/a|b", "kept");
    putFile("L/c\rd.txt", "kept");
    const struct {
        Handler handler;
        std::string parameter;
        std::string answer;
    } cases[] = {
        {GLN1FileExists, longest, "TRUE"},
        {GLN1FileExists, longest + "g", "TRUE"},  // cut
        {GLN1FileExists, longest.substr(0, 254), "FALSE"},
        {GLN1FileExists, "Disk:L:a\0:x"s, "TRUE"},  // the field ends there
        {GLN1WriteTextToFile, "Disk:L:a\0b|text"s,
         "Error: Usage GLN1WriteTextToFile(fullPath|textToWriteToFile). Optional second parameter of BOM means "
         "prepend a utf-8 Byte Order Mark."},
        {GLN1DeleteFile, "Disk:L:a|b", ""},  // the file a; b is a reference file
        {GLN1GetListOfFilesInFolder, "Disk:L:c\rd.txt", "Disk:L:c\rd.txt\r"},
        {GLN1FileExists, "Disk:L:..:L:a|", "FALSE"},
        {GLN1DeleteFile, std::string(300, ':'), "Error -47: Unable to delete file: Disk:"},
        {GLN1CopyFile, "Disk:L:c\rd.txt|" + std::string(300, ':'), "Error: HCreate failed."},
    };
    for (const auto& [handler, parameter, answer] : cases) {
        machine().state().ticks = 0;
        EXPECT_EQ(script(handler, parameter), answer) << parameter;
    }
    EXPECT_FALSE(isThere("L/a"));
    EXPECT_EQ(fileText("L/a|b") + fileText("L/c\rd.txt"), "keptkept");
}

TEST_F(Files, FoldersAreListedPathsConvertedAndTheRestAnswersAsFixed) {
    for (const char* name : {"a.zip", "b.TVN", "c.txt", "d.zip.bak"}) {
        putFile(std::string("L/") + name, "");
    }
    makeFolder("L/e.Zip");
    EXPECT_EQ(script(GLN1GetListOfFilesInFolder, "Disk:L:a.zip"), "Disk:L:a.zip\rDisk:L:b.TVN\rDisk:L:e.Zip\r");
    EXPECT_EQ(script(GLN1GetListOfFilesInFolder, "Disk:L:none.zip"), "");
    EXPECT_EQ(script(GLN1FileSystemRepresentationFromClassicPath, "Disk:L:new/file"), posix("L/new:file"));
    EXPECT_EQ(fileText("L/new:file"), "");
    EXPECT_EQ(script(GLN1FileSystemRepresentationFromClassicPath, "Disk:None:x"),
              "Error: strcpyFileSystemRepresentationFromClassicPath returned an error");
    EXPECT_TRUE(alerts().empty());

    EXPECT_EQ(script(GLN1ZipFiles, "x"), "");
    EXPECT_EQ(script(GLN1UnzipFiles, "x"), "Error");
    EXPECT_EQ(script(GLN1UnzipFilesBatchMode, "x"), "Error");
    EXPECT_EQ(alerts().size(), 3U);
    machine().state().choices = {platform::ScriptedChoice{"Disk:L:", "c.txt"}, std::nullopt};
    EXPECT_EQ(script(GLN1AskUserForFileNameToRead, "x"), "Disk:L:c.txt");
    EXPECT_EQ(script(GLN1AskUserForFileNameToWrite, "x"), "");
    copyInto(gNameOfGlobalThatTriggeredScript, "Area");
    EXPECT_EQ(script(GLN1GetNameOfGlobalThatTriggeredScript, ""), "Area");
    EXPECT_EQ(script(GLN1GetNameOfGlobalThatTriggeredScript, ""), "");
}

}  // namespace
