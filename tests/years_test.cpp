// Submission years in identifiers, and the commands on files and paths.
#include "files/years.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>

#include "support/failing_allocator.h"
#include "support/failing_machine.h"
#include "support/process.h"
#include "support/script_calls.h"
#include "util/memory.h"

namespace {

using namespace quil;

TEST(Years, AnIdentifierIsToldByItsEightBytes) {
    const std::pair<const char*, short> cases[] = {
        {"CKTR2015", 2015}, {"CKtR2015", 2015}, {"ckTR2015", 2015},
        {"CLTR2000", 2000}, {"cmtR2019", 2019}, {"CtTR2007", 2007},
        {"Cvtr2007", 0},    {"CVtR2099", 2099}, {"FATR2010", 2010},
        {"FDTR2025", 2025}, {"fdtR2001", 2001}, {"PHTR2012", 2012},
        {"phtR2012", 2012}, {"CKTr2015", 0},    {"CATR2015", 0},
        {"FHTR2015", 0},    {"PATR2015", 0},    {"XKTR2015", 0},
        {"CKSR2015", 0},    {"CKTR1999", 0},    {"CKTR2115", 0},
        {"CKTR20x5", 0},    {"CKTR201x", 0},    {"#KTR2015", 0},
        {"CKTR20", 0},      {"C", 0},           {"", 0},
    };
    for (const auto& [text, year] : cases) {
        EXPECT_EQ(TorvaneYearFromID(text), year) << text;
    }
    std::string text = "CKTR2015FATR2020PHTR2000.ckTR2019";
    ChangeAllTorvaneIDs(text.data(), static_cast<long>(text.size()), 2020);
    EXPECT_EQ(text, "CKTR2015FATR2020PHTR2000.ckTR2019") << "not a year to change to";
    ChangeAllTorvaneIDs(text.data(), static_cast<long>(text.size()) - 1, 2008);
    EXPECT_EQ(text, "CKTR2008FATR2020PHTR2008.ckTR2019") << "the last one is not whole";
}

// Bytes of which identifiers, and what nearly is one, are made.
std::string randomText(std::mt19937& random, std::size_t size) {
    static constexpr std::string_view kPieces[] = {"CKTR2015", "cvtR2003", "FDTR2019", "PHTR2020", "CKTr2015",
                                                   "CKTR20",   "R20",      "R2015",    "C",        "T",
                                                   "\xC3\xA9", "CKTRR2",   "tR201",    "........"};
    std::string text;
    while (text.size() < size) {
        text += kPieces[random() % std::size(kPieces)];
    }
    text.resize(size);
    return text;
}

// The plain way.
std::set<int> yearsOf(const std::string& text) {
    std::set<int> years;
    for (std::size_t at = 0; at + 8 <= text.size(); ++at) {
        const int year = TorvaneYearFromID(text.data() + at);
        if (year >= 2000 && year <= 2019) {
            years.insert(year);
        }
    }
    return years;
}

std::string changedTo(std::string text, const char* year) {
    for (std::size_t at = 0; at + 8 <= text.size(); ++at) {
        const int found = TorvaneYearFromID(text.data() + at);
        if (found >= 2000 && found <= 2019) {
            text.replace(at + 4, 4, year);
        }
    }
    return text;
}

TEST(Years, TheQuickSearchFindsWhatThePlainOneFinds) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::string text = randomText(random, random() % 300);
        TorvaneYearInfo info;
        GetTorvaneYearsFromText(&info, text.data(), static_cast<long>(text.size()));
        std::set<int> found;
        for (int i = 0; i < 20; ++i) {
            if (info.year[i] != 0) {
                found.insert(2000 + i);
            }
        }
        ASSERT_EQ(found, yearsOf(text)) << text;
        const std::string expected = changedTo(text, "2011");
        ChangeAllTorvaneIDs(text.data(), static_cast<long>(text.size()), 2011);
        ASSERT_EQ(text, expected);
    }
}

class YearFiles : public support::ScriptFixture {};

TEST_F(YearFiles, IdentifiersAcrossTheBordersOfWhatIsReadAtOnceAreFoundAndChanged) {
    for (const std::size_t border : {300'000U, 300'008U, 600'008U}) {
        for (std::size_t before = 0; before <= 8; ++before) {
            std::string text(border + 8 - before, '.');
            text.replace(border - before, 8, "CKTR2013");
            putFile("f", text);
            ASSERT_EQ(script(GLN1GetTorvaneYearsFromIDs, "Disk:f"), "2013") << border - before;
            ASSERT_EQ(script(GLN1ChangeTorvaneIDsInFile, "2002|Disk:f"), "");
            ASSERT_EQ(fileText("f"), changedTo(text, "2002")) << border - before;
        }
    }
    std::mt19937 random(9);
    const std::string text = randomText(random, 700'001);
    putFile("f", text);
    ASSERT_EQ(link(posix("f").c_str(), posix("other").c_str()), 0);
    chmod(posix("f").c_str(), 0620);
    EXPECT_EQ(script(GLN1GetTorvaneYearsFromIDs, "Disk:f"), "2003 2015 2019");
    char errorText[256];
    {
        support::FailingAllocator memory;  // with less memory, other borders
        memory.failCall(1);
        EXPECT_EQ(ChangeTorvaneIDsInFile("Disk:f", 2004, errorText), 0);
        EXPECT_TRUE(memory.failed());
    }
    EXPECT_EQ(fileText("f"), changedTo(text, "2004"));
    EXPECT_EQ(fileText("other"), fileText("f")) << "still one file";
    struct stat status {};
    ASSERT_EQ(stat(posix("f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0620U);
    EXPECT_TRUE(alerts().empty());

    constexpr Allocator kNoMemory = {[](std::size_t) -> void* { return nullptr; }, [](void*) {}};
    TorvaneYearInfo info;
    short error = 0;
    setAllocator(&kNoMemory);
    GetTorvaneYearsFromIDs(&info, "Disk:f", errorText, &error);
    EXPECT_STREQ(errorText, "Error: Unable to allocate buffer. (Out of memory)");
    EXPECT_EQ(error, -108);
    EXPECT_EQ(ChangeTorvaneIDsInFile("Disk:f", 2004, errorText), -1);
    setAllocator(nullptr);
}

TEST_F(YearFiles, ParametersAndFilesThatAreNoneAreToldAsFixed) {
    putFile("short", "CKTR2015CKTR2016...");
    putFile("twenty", "CKTR2016....CKTR2015");
    putFile("none", std::string(100, '.'));
    ASSERT_EQ(mkfifo(posix("pipe").c_str(), 0600), 0);
    const char* const wrongYear = "Programmer Error: GLN1ChangeTorvaneIDsInFile year must be between 2000 and 2019";
    const struct {
        Handler handler;
        const char* parameter;
        const char* answer;
        std::size_t alerts;
    } cases[] = {
        {GLN1GetTorvaneYearsFromIDs, "Disk:short", "", 0},
        {GLN1GetTorvaneYearsFromIDs, "Disk:twenty", "2015 2016", 0},
        {GLN1GetTorvaneYearsFromIDs, "Disk:none", "", 0},
        {GLN1GetTorvaneYearsFromIDs, "Disk:missing", "", 0},
        {GLN1GetTorvaneYearsFromIDs, "Disk:pipe", "", 2},
        {GLN1GetTorvaneYearsFromIDs, "Disk:", "", 2},
        {GLN1ChangeTorvaneIDsInFile, "2015",
         "Error: GLN1ChangeTorvaneIDsInFile requires two parameters (vertical bar not found)", 0},
        {GLN1ChangeTorvaneIDsInFile, "1999|Disk:twenty", wrongYear, 0},
        {GLN1ChangeTorvaneIDsInFile, "2020|Disk:twenty", wrongYear, 0},
        {GLN1ChangeTorvaneIDsInFile, "|Disk:twenty", wrongYear, 0},
        {GLN1ChangeTorvaneIDsInFile, "2015|Disk:missing", "", 0},
        {GLN1ChangeTorvaneIDsInFile, "2015|Disk:pipe", "", 2},
        {GLN1ChangeTorvaneIDsInFile, "2001|Disk:short", "", 0},
        {GLN1ChangeTorvaneIDsInFile, "67538|Disk:twenty", "", 0},  // 2002 in 16 bits
    };
    for (const auto& [handler, parameter, answer, count] : cases) {
        EXPECT_EQ(script(handler, parameter), answer) << parameter;
        EXPECT_EQ(alerts().size(), count) << parameter;
    }
    EXPECT_EQ(fileText("short"), "CKTR2015CKTR2016...");
    EXPECT_EQ(fileText("twenty"), "CKTR2002....CKTR2002");
}

TEST_F(YearFiles, AFailingCallStopsWithWhatWasChangedSoFar) {
    std::mt19937 random(11);
    const std::string text = randomText(random, 650'000);
    const std::string changed = changedTo(text, "2002");
    for (const bool shortTransfer : {false, true}) {
        int partly = 0;
        const int rounds = support::sweepFileCalls(machine(), {0, platform::ioErr, shortTransfer}, [&](auto& failing) {
            putFile("f", text);
            const support::MachineScope scope(failing);
            char errorText[256];
            const short error = ChangeTorvaneIDsInFile("Disk:f", 2002, errorText);
            const std::string now = fileText("f");
            const std::size_t same =
                static_cast<std::size_t>(std::mismatch(now.begin(), now.end(), changed.begin()).first - now.begin());
            EXPECT_EQ(now.size(), text.size());
            EXPECT_EQ(now.substr(same), text.substr(same)) << failing.files().failedCall();
            EXPECT_EQ(error == 0, now == changed) << failing.files().failedCall();
            EXPECT_EQ(failing.files().openReferences(), 0);
            partly += now != text && now != changed;
        });
        EXPECT_GT(rounds, 15);
        EXPECT_GT(partly, 2);
    }
    putFile("f", text);
    support::sweepFileCalls(machine(), {}, [&](auto& failing) {
        const support::MachineScope scope(failing);
        TorvaneYearInfo info;
        char errorText[256];
        short error = 0;
        GetTorvaneYearsFromIDs(&info, "Disk:f", errorText, &error);
        EXPECT_EQ(failing.files().openReferences(), 0);
        EXPECT_TRUE(error != 0 || info.year[15] != 0 || !failing.files().hasFailed());
    });
}

TEST(FileCommands, TellAndChangeYearsWhateverTheFilesAreCalled) {
    const support::TemporaryFolder folder;
    const std::string odd = folder.file("a|b:\n" + std::string(240, 'n'));
    support::writeFile(odd, "xxCKTR2015yyyyyyyyyyyyyyyyFDTR2012 PHTR2025");
    support::writeFile(folder.path() / "none", "nothing in here at all, really");
    EXPECT_EQ(support::quil({"years", odd, folder.file("none")}).output,
              odd + ": 2012 2015\n" + folder.file("none") + ": no years\n");
    EXPECT_EQ(support::quil({"renumber", "--dry-run", "2012", odd}).output,
              odd + ": 1 identifier would change to 2012\n");
    EXPECT_EQ(support::readFile(odd), "xxCKTR2015yyyyyyyyyyyyyyyyFDTR2012 PHTR2025");
    const support::Outcome outcome = support::quil({"renumber", "2008", folder.path(), odd});
    EXPECT_EQ(outcome.output, odd + ": 2 identifiers changed to 2008\n");
    EXPECT_EQ(outcome.errors, "quil: " + folder.path().string() + ": is a folder; name files\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(support::readFile(odd), "xxCKTR2008yyyyyyyyyyyyyyyyFDTR2008 PHTR2025");
    EXPECT_EQ(support::quil({"renumber", "2020", odd}).status, 2);
}

TEST(FileCommands, ChangeIdentifiersAcrossTheBordersOfWhatIsWrittenAtOnce) {
    const support::TemporaryFolder folder;
    std::vector<std::string> command = {"renumber", "2000"};
    std::string told;
    const auto textOf = [](std::size_t at, const char* id) {
        return std::string(700'000, 'x').replace(at, 8, id).replace(at + 300'000, 8, id);
    };
    for (std::size_t at = 299'984; at <= 300'008; ++at) {
        command.push_back(folder.file(std::to_string(at)));
        support::writeFile(command.back(), textOf(at, "CKTR2019"));
        told += command.back() + ": 2 identifiers changed to 2000\n";
    }
    EXPECT_EQ(support::quil(command).output, told);
    for (std::size_t at = 299'984; at <= 300'008; ++at) {
        EXPECT_TRUE(support::readFile(folder.file(std::to_string(at))) == textOf(at, "CKTR2000")) << at;
    }
}

TEST(FileCommands, ExplainPathsInBothDirections) {
    const support::TemporaryFolder folder;
    support::writeFile(folder.path() / "Read:Me", "");
    chmod(folder.file("Read:Me").c_str(), 0400);
    const std::string volume = "Disk=" + folder.path().string();
    const support::Outcome outcome = support::quil({"--volume", volume, "path", "Disk:read/me"});
    EXPECT_EQ(outcome.output, "Disk:read/me\n  classic    Disk:read/me\n  POSIX      " + folder.file("Read:Me") +
                                  "\n  volume     Disk, which is " + folder.path().string() +
                                  "\n  exists     yes, a file\n  on disk    Disk:Read/Me\n  writable   no, it is "
                                  "locked\n  Finder     no type and creator\n  name       ASCII\n");
    // Every byte that Linux allows in a name comes back.
    std::string name;
    for (int c = 1; c < 256; ++c) {
        name += c == '/' ? "" : std::string(1, static_cast<char>(c));
    }
    const std::string path = folder.file(name.substr(0, 250));
    const std::string classic = support::quil({"--volume", volume, "path", "-b", "--posix", path}).output;
    EXPECT_EQ(
        support::quil({"--volume", volume, "path", "-b", "--classic", classic.substr(0, classic.size() - 1)}).output,
        path + "\n");
    EXPECT_EQ(support::quil({"path", "-b", "Nope:x"}).status, 1);
}

TEST(FileCommands, ExplainWhatAPathHasWrong) {
    const support::TemporaryFolder folder;
    support::writeFile(folder.path() / "t", "");
    support::writeFile(folder.path() /
                           "\xC2\x9B"
                           "2J",
                       "");
    const bool attributes = setxattr(folder.file("t").c_str(), "user.com.apple.FinderInfo",
                                     "\x1B[2J\x8Etxt0123456789abcdefghijklmn", 32, 0) == 0;
    const std::string volume = "Disk=" + folder.path().string();
    const std::pair<const char*, std::string> cases[] = {
        {"Disk:..:etc", "  POSIX      none\n"},
        {"Disk:..:etc", "  exists     no, \".\" and \"..\" are no names in a classic path\n"},
        {"Disk:t:", "  exists     no, " + folder.file("t") + " is no folder\n"},
        {"Disk:t:y", "  exists     no, " + folder.file("t") + " is no folder\n"},
        {"Disk:none:y", "  exists     no, nor does its folder\n"},
        {"/Volumes/disk/T", "  classic    Disk:t\n  POSIX      " + folder.file("t") + "\n  read as    " +
                                folder.file("t") + ": \"/Volumes/Disk\" is the volume to script functions\n"},
        {"/Volumes/Disk/none/y", "  classic    Disk:none:y\n"},
        {"/Volumes/None/y", "  classic    "},
        {"Disk:\xC2\x9B"
         "2J",
         "  classic    Disk:\\xC2\\x9B2J\n"},
        {"Disk:t", attributes ? "  Finder     type '\\x1B[2J', creator '\xC3\xA9txt'\n" : ""},
    };
    for (const auto& [path, line] : cases) {
        const support::Outcome outcome = support::quil({"--volume", volume, "--volume", "Linux=/", "path", path});
        EXPECT_NE(outcome.output.find(line), std::string::npos) << outcome.output << outcome.errors;
    }
    for (const char* path : {"", "/Volumes/Disk/../x"}) {
        const support::Outcome outcome = support::quil({"--volume", volume, "path", path});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_NE(outcome.errors.find(*path == 0 ? "an empty path names nothing" : "leads out of its volume"),
                  std::string::npos)
            << outcome.errors;
    }
}

// Starts the built `quil` with both outputs to `output`; the parent's end of them is `other`.
pid_t startQuil(std::vector<std::string> arguments, int output, int other, const std::string& temporaries) {
    arguments.insert(arguments.begin(), QUIL_BINARY_DIR "/quil");
    std::vector<char*> words;
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
            std::signal(signal, SIG_DFL);
        }
        setenv("TMPDIR", temporaries.c_str(), 1);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        close(other);
        execv(words[0], words.data());
        _exit(127);
    }
    close(output);
    return child;
}

TEST(FileCommands, LeaveNoFolderBehindWhenASignalEndsThem) {
    const support::TemporaryFolder folder;
    support::writeFile(folder.path() / "a|f", "xxCKTR2015yyyyyyyyyyyyyyyyFDTR2012");
    std::filesystem::create_directory(folder.path() / "tmp");
    std::vector<std::string> command = {"years"};
    command.insert(command.end(), 10'000,
                   folder.file("a|f"));  // reached by a link; whose answers are more than a pipe takes
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        int ends[2] = {-1, -1};
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = startQuil(command, ends[1], ends[0], folder.file("tmp"));
        char first = 0;
        EXPECT_EQ(read(ends[0], &first, 1), 1);
        EXPECT_FALSE(std::filesystem::is_empty(folder.path() / "tmp"));
        if (signal == SIGPIPE) {
            close(ends[0]);
        } else {
            kill(child, signal);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "tmp")) << signal;
        if (signal != SIGPIPE) {
            close(ends[0]);
        }
    }
}

TEST(FileCommands, ShowNamesOnATerminalWithoutTheirControlCharacters) {
    const support::TemporaryFolder folder;
    const std::string file = folder.file("a\x1B]0;x\x07\xC2\x9B");
    support::writeFile(file, "xxCKTR2015yyyyyyyyyyyyyyyyFDTR2012");
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
        GTEST_SKIP() << "there are no pseudo-terminals";
    }
    const int output = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const pid_t child = startQuil({"years", file, file + "none"}, output, terminal, folder.path());
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(terminal, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    close(terminal);
    waitpid(child, nullptr, 0);
    const std::string shown = folder.file("a\\x1B]0;x\\x07\\xC2\\x9B");
    EXPECT_EQ(text, shown + ": 2012 2015\r\nquil: " + shown + "none: No such file or directory\r\n");
}

TEST(FileCommands, TellWhyAFileCannotBeRead) {
    const support::TemporaryFolder folder;
    const std::string file = folder.file("f");
    support::writeFile(file, "xxCKTR2015yyyyyyyyyyyyyyyyFDTR2012");
    chmod(file.c_str(), 0200);
    support::RunOptions options;
    options.withoutOverride = true;
    EXPECT_EQ(support::quil({"years", file}, options).errors,
              "quil: " + file + ": cannot be read: Permission denied\n");
    EXPECT_EQ(support::quil({"renumber", "2001", file}, options).errors,
              "quil: " + file + ": cannot be read and written: Permission denied\n");
}

}  // namespace
