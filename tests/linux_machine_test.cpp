// The machine on Linux beside its files: volumes, dialogs in the terminal, clock, processes and events.
#include "platform/linux/linux_machine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>

#include "platform/linux/linux_managers.h"
#include "platform/linux/terminal_windows.h"
#include "support/process.h"

using namespace platform;
namespace fs = std::filesystem;
using std::string;
using std::string_view;
using std::literals::string_literals::operator""s;

namespace {

// --- volumes

TEST(VolumeTables, NameDirectoriesInBothForms) {
    std::vector<Volume> volumes;
    EXPECT_EQ(parseVolumes("", volumes), "");
    EXPECT_EQ(parseVolumes("Disk=/tmp//;Linux=/\n;\nHere=.", volumes), "");
    ASSERT_EQ(volumes.size(), 3u);
    EXPECT_EQ(volumes[0].name, "Disk");
    EXPECT_EQ(volumes[0].directory, "/tmp");
    EXPECT_EQ(volumes[1].directory, "/");
    EXPECT_EQ(volumes[2].directory, fs::current_path());
    const std::pair<string, string> cases[] = {
        {"Disk", "expected NAME=DIR"},
        {"=/tmp", "the name is empty"},
        {"a:b=/tmp", "the name may not hold ':', nor be \".\" or \"..\""},
        {"..=/tmp", "the name may not hold ':', nor be \".\" or \"..\""},
        {string(256, 'x') + "=/tmp", "the name is longer than 255 bytes"},
        {"A=/dev/null", "not a directory"},
        {"A=", "not a directory"},
        {"DISK=/", "the name is given twice (letter case does not count)"},
    };
    for (const auto& [table, message] : cases) {
        EXPECT_EQ(parseVolumes(table, volumes), "volume \"" + table + "\": " + message);
        EXPECT_EQ(volumes.size(), 3u);
    }
}

TEST(ClassicPaths, AreThoseOfTheLongestVolumeThatHoldsThePath) {
    support::TemporaryFolder folder;
    fs::create_directory(folder.path() / "real");
    fs::create_directory_symlink(folder.path() / "real", folder.path() / "link");
    const string top = fs::canonical(folder.path()).string();
    LinuxOptions options;
    EXPECT_EQ(classicPathOf(options, "/"), "Linux:");
    EXPECT_EQ(classicPathOf(options, "/tmp/a:b"), "Linux:tmp:a/b");
    options.volumes = {{"Disk", top}, {"Link", top + "/link"}};
    const std::pair<string, string> cases[] = {{top, "Disk:"},
                                               {top + "/", "Disk:"},
                                               {top + "/a//./b", "Disk:a:b"},
                                               {top + "/a/b/", "Disk:a:b:"},
                                               {top + "/real/a", "Link:a"},
                                               {top + "/link/a", "Link:a"},
                                               {top + "/real/../x", "Disk:x"},
                                               {top + "more/a", ""},
                                               {"/", ""},
                                               {"relative", ""},
                                               {"", ""},
                                               {top + "/a\0b"s, ""}};
    for (const auto& [posix, classic] : cases) {
        EXPECT_EQ(classicPathOf(options, posix), classic) << posix;
    }
}

// --- dialogs

// A terminal of which the test is the keyboard and the screen.
class Terminal {
  public:
    Terminal() : keyboard_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (keyboard_ < 0 || grantpt(keyboard_) != 0 || unlockpt(keyboard_) != 0) {
            throw std::runtime_error("no pseudo terminal");
        }
        screen_ = ::open(ptsname(keyboard_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios mode{};
        tcgetattr(screen_, &mode);
        mode.c_lflag &= static_cast<tcflag_t>(~ECHO);
        mode.c_oflag &= static_cast<tcflag_t>(~OPOST);
        tcsetattr(screen_, TCSANOW, &mode);
    }
    ~Terminal() {
        ::close(screen_);
        ::close(keyboard_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int descriptor() const { return screen_; }
    void type(string_view text) const {
        EXPECT_EQ(::write(keyboard_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // What was written to the screen since the last call: up to a mark that is written now.
    string shown() const {
        static constexpr string_view mark = "\x03mark";
        EXPECT_EQ(::write(screen_, mark.data(), mark.size()), static_cast<ssize_t>(mark.size()));
        string text;
        char byte = 0;
        while (!text.ends_with(mark) && ::read(keyboard_, &byte, 1) == 1) {
            text += byte;
        }
        return text.substr(0, text.size() - std::min(text.size(), mark.size()));
    }

  private:
    int keyboard_;
    int screen_ = -1;
};

TEST(TerminalWindowsTest, DrawProgressAsOneLineThatGoes) {
    Terminal terminal;
    {
        TerminalWindows windows(terminal.descriptor());
        windows.drawProgress(nullptr, {{}, "Collecting 500 found\rIDs", 0.123, true});
        EXPECT_EQ(terminal.shown(), "\r\033[KCollecting 500 found IDs: 12 %");
        windows.drawProgress(nullptr, {{}, "Processing found IDs", {}, true});
        EXPECT_EQ(terminal.shown(), "\r\033[K") << "gone when finished";
        windows.drawProgress(nullptr, {{}, "x", 1.0, true});
        EXPECT_EQ(terminal.shown(), "\r\033[Kx: 100 %");
        const int elsewhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        windows.beforeOutput(elsewhere);
        EXPECT_EQ(terminal.shown(), "") << "it stays while the output goes elsewhere";
        ::close(elsewhere);
        windows.beforeOutput(terminal.descriptor());
        windows.beforeOutput(terminal.descriptor());
        EXPECT_EQ(terminal.shown(), "\r\033[K") << "gone before other output";
        windows.drawProgress(nullptr, {{}, "x", 0.5, true});
        EXPECT_EQ(terminal.shown(), "\r\033[Kx: 50 %");
    }
    EXPECT_EQ(terminal.shown(), "\r\033[K") << "gone with the machine";

    support::TemporaryFolder folder;
    const int file = ::open(folder.file("out").c_str(), O_WRONLY | O_CREAT, 0600);
    TerminalWindows(file).drawProgress(nullptr, {{}, "x", 0.5, true});
    ::close(file);
    EXPECT_EQ(support::readFile(folder.file("out")), "") << "nothing where there is no terminal";
}

class TerminalDialogsTest : public testing::Test {
  protected:
    TerminalDialogsTest() {
        fs::create_directory(folder_.path() / "Docs");
        support::writeFile(folder_.path() / "Docs/old.zip", "x");
        options_.volumes = {{"Disk", folder_.path().string()}};
        options_.application = "Disk:Docs:Host";
        files_ = makeLinuxFiles(options_);
        dialogs_ = makeTerminalDialogs(*files_, options_, terminal_.descriptor(), terminal_.descriptor());
    }

    static void draw(Dialog& dialog, std::int16_t item) {
        machineDialogs->drawTextBox(dialog, dialog.reference, dialog.item(static_cast<std::size_t>(item)).rect);
    }

    Dialog question() {
        machineDialogs = dialogs_.get();
        Dialog dialog;
        dialog.items.resize(5);
        for (std::size_t i = 0; const char* text : {"Yes", "No", "Cancel", "", "Caution"}) {
            dialog.items[i].kind = i < 3 ? ItemKind::button : i == 3 ? ItemKind::user : ItemKind::staticText;
            dialog.items[i++].text = text;
        }
        dialog.items[3].draw = draw;
        dialog.reference = "Replace \x8Ft\x8E?\r\r\x1B[2J\x9Bnow\r\r";
        dialog.cancelItem = 3;
        return dialog;
    }

    std::int16_t pressed(string_view keys) {
        terminal_.type(keys);
        Dialog dialog = question();
        const std::int16_t button = dialogs_->runModal(dialog);
        screen_ = terminal_.shown();
        return button;
    }

    // What a chooser answers to those keys: "folder|name", "cancelled".
    string chosen(Chooser::Kind kind, const string& proposed, string_view keys) {
        terminal_.type(keys);
        Chooser chooser{kind, kind == Chooser::Kind::read ? "Choose a File" : "Save As", "client", proposed, 0, 0};
        Choice choice;
        Status error = -1;
        const ChooserOutcome outcome = dialogs_->choose(chooser, choice, error);
        screen_ = terminal_.shown();
        EXPECT_EQ(error, noErr);
        if (outcome != ChooserOutcome::chosen) {
            return "cancelled";
        }
        CatalogItem folder;
        EXPECT_EQ(files_->catalogItem(choice.vRefNum, choice.dirID, -1, folder), noErr);
        return folder.name + "|" + choice.name;
    }

    inline static Dialogs* machineDialogs = nullptr;
    support::TemporaryFolder folder_;
    Terminal terminal_;
    LinuxOptions options_;
    std::unique_ptr<Files> files_;
    std::unique_ptr<Dialogs> dialogs_;
    string screen_;
};

TEST_F(TerminalDialogsTest, AnAlertShowsItsWordsSafelyAndIsAnsweredByTheDefaultButtonWithoutATerminal) {
    const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    dialogs_ = makeTerminalDialogs(*files_, options_, input, terminal_.descriptor());
    Dialog dialog = question();
    dialog.defaultItem = 2;
    dialog.items[2].visible = false;
    EXPECT_EQ(dialogs_->runModal(dialog), 2);
    // Mac Roman became UTF-8; what would act on the terminal is replaced.
    EXPECT_EQ(terminal_.shown(),
              "\nCaution\nReplace \xC3\xA8t\xC3\xA9?\n\n\xEF\xBF\xBD[2J\xC3\xB5now\n1 [Yes]  2 [No]\n"
              "(no terminal to answer from: No)\n");
    dialog.items[0].visible = false;
    dialog.items[1].visible = false;
    EXPECT_EQ(dialogs_->runModal(dialog), 0);
    EXPECT_EQ(terminal_.shown(), "");
    ::close(input);
}

TEST_F(TerminalDialogsTest, AnAlertTakesNumbersFirstLettersOrNothing) {
    const std::pair<const char*, int> answers[] = {{"2\n", 2},      {"\n", 1},   {"c\n", 3},
                                                   {"CANCEL\n", 3}, {"\x04", 3}, {"4\nmaybe\nn\n", 2}};
    for (const auto& [keys, button] : answers) {  // the end of the input dismisses
        EXPECT_EQ(pressed(keys), button) << keys;
    }
    EXPECT_NE(screen_.find("Answer with the number"), string::npos);
}

TEST_F(TerminalDialogsTest, AChooserTakesClassicAndPosixPathsAndNames) {
    using enum Chooser::Kind;
    const string posix = folder_.file("Docs/old.zip");
    EXPECT_EQ(chosen(read, "", "disk:docs:OLD.zip\n"), "Docs|old.zip");
    EXPECT_EQ(chosen(read, "", "old.zip\n"), "Docs|old.zip");  // the folder is remembered
    EXPECT_EQ(chosen(read, "", posix + "\n"), "Docs|old.zip");
    EXPECT_EQ(chosen(read, "", "none\n:\nDisk:\nNone:x\n\n"), "cancelled");
    for (const char* words : {"There is no such file.", "That is a folder.", "There is no such volume."}) {
        EXPECT_NE(screen_.find(words), string::npos) << words;
    }
    EXPECT_EQ(chosen(write, "new.zip", "\n"), "Docs|new.zip");
    EXPECT_NE(screen_.find("Save As (proposed: new.zip)"), string::npos);
    EXPECT_EQ(chosen(write, "new.zip", "other.zip\n"), "Docs|other.zip");
    EXPECT_EQ(chosen(write, "", "Disk:\nnone:x:y\n" + folder_.file("fresh") + "\n"), "Disk|fresh");
    EXPECT_EQ(chosen(write, "", "disk:docs:old.zip\nn\ndisk:docs:old.zip\ny\n"), "Docs|old.zip");
    EXPECT_EQ(chosen(write, "x", "\x04"), "cancelled");
}

TEST_F(TerminalDialogsTest, AChooserCancelsWithoutATerminalAndOnlyATerminalBeeps) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    dialogs_ = makeTerminalDialogs(*files_, options_, ends[0], ends[1]);
    Choice choice;
    Status error = -1;
    EXPECT_EQ(dialogs_->choose({Chooser::Kind::write, "Save As", "", "a\x1B.zip", 0, 0}, choice, error),
              ChooserOutcome::cancelled);
    EXPECT_EQ(error, noErr);
    dialogs_->beep();
    char text[200];
    const ssize_t count = ::read(ends[0], text, sizeof text);
    EXPECT_EQ(string(text, static_cast<std::size_t>(std::max<ssize_t>(count, 0))),
              "\nSave As (proposed: a\xEF\xBF\xBD.zip)\n(no terminal to answer from: cancelled)\n");
    ::close(ends[0]);
    ::close(ends[1]);
    dialogs_ = makeTerminalDialogs(*files_, options_, terminal_.descriptor(), terminal_.descriptor());
    dialogs_->beep();
    EXPECT_EQ(terminal_.shown(), "\a");

    TerminalWindows windows(terminal_.descriptor());
    dialogs_ = makeTerminalDialogs(*files_, options_, -1, terminal_.descriptor(),
                                   [&] { windows.beforeOutput(terminal_.descriptor()); });
    windows.drawProgress(nullptr, {{}, "x", 0.5, true});
    dialogs_->beep();
    EXPECT_EQ(terminal_.shown(), "\r\033[Kx: 50 %\r\033[K\a") << "not behind a line of progress";
}

TEST_F(TerminalDialogsTest, HeightsCountWrappedLinesOf16Pixels) {
    const struct {
        const char* text;
        int width, lines;
    } cases[] = {{"", 70, 0},
                 {"one\rtwo\r", 70, 2},
                 {"\r\r", 70, 2},
                 {"1234567890", 70, 1},
                 {"12345678901", 70, 2},
                 {"12345 7890", 70, 1},
                 {"123456 7890", 70, 2},
                 {"\xC3\xA9\xC3\xA9\xC3\xA9", 21, 1},
                 {"\x8E\x8E\x8E", 21, 1},
                 {"abc", 0, 3}};
    for (const auto& each : cases) {
        EXPECT_EQ(dialogs_->textHeight(each.text, static_cast<std::int16_t>(each.width)), each.lines * 16) << each.text;
    }
    EXPECT_EQ(dialogs_->textHeight(string(100000, 'x'), 7), 32767);
}

// --- clock, processes, events

TEST(LinuxClock, TicksPassWhileItWaits) {
    const auto input = makeLinuxInput();
    const std::uint32_t start = input->ticks();
    input->wait(3);
    EXPECT_GE(input->ticks() - start, 3u);
    EXPECT_LE(std::abs(input->seconds() - std::time(nullptr)), 1);
    EXPECT_EQ(input->doubleClickTicks(), 30u);
    EXPECT_EQ(input->mouse(), Point());
}

TEST(LinuxProcesses, TheHostIsTheOneThatRuns) {
    support::TemporaryFolder folder;
    support::writeFile(folder.path() / "Host", "");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
    LinuxOptions options;
    options.volumes = {{"Disk", folder.path().string()}};
    options.application = "Disk:Host";
    options.signature = "TEST"_4;
    options.log = [](const std::string&) {};
    const auto machine = makeLinuxMachine(options);
    Processes& processes = machine->processes();
    ProcessSerialNumber host = noProcess;
    ProcessSerialNumber process = noProcess;
    ProcessInfo info;
    EXPECT_EQ(processes.current(host), noErr);
    EXPECT_EQ(processes.next(process), noErr);
    EXPECT_EQ(process, host);
    EXPECT_EQ(processes.next(process), connectionInvalid);
    EXPECT_EQ(process, noProcess);
    ASSERT_EQ(processes.information(host, info), noErr);
    EXPECT_EQ(info.signature, "TEST"_4);
    EXPECT_EQ(info.name, "Host");
    EXPECT_EQ(info.application.nameView(), "Host");
    EXPECT_EQ(processes.currentApplicationName(), "Host");
    EXPECT_EQ(processes.setFront(host), noErr);
    EXPECT_EQ(processes.setFront(host + 1), procNotFound);
    EXPECT_EQ(processes.information(host + 1, info), procNotFound);
    process = host;
    EXPECT_EQ(processes.launch(info.application, 0, process), connectionInvalid);
    EXPECT_EQ(process, noProcess);
}

TEST(LinuxProcesses, AHostThatIsNotNamedIsThisProgram) {
    const auto machine = makeLinuxMachine({});
    EXPECT_EQ(machine->processes().currentApplicationName(), fs::read_symlink("/proc/self/exe").filename());
    std::int16_t volume = 0;
    std::int32_t folder = 0;
    FSSpec self;
    ASSERT_EQ(machine->files().defaultFolder(volume, folder), noErr);
    EXPECT_EQ(machine->files().makeSpec(volume, folder, machine->processes().currentApplicationName(), self), noErr);
}

TEST(LinuxEvents, ReachTheHostsOwnHandlersWhenTheHostHandsThemOut) {
    std::vector<std::string> log;
    LinuxOptions options;
    options.signature = "TEST"_4;
    options.log = [&log](const std::string& line) { log.push_back(line); };
    const auto machine = makeLinuxMachine(options);
    Events& events = machine->events();
    static std::string handled;
    const EventHandler handler = [](const Event& received, Event&, long reference) {
        handled += received.parameters[0].data + std::to_string(reference) + " ";
        return noErr;
    };
    const auto send = [&](const char* text) {
        return events.send({"misc"_4, "dosc"_4, "TEST"_4, {{"----"_4, "TEXT"_4, text}}});
    };
    EXPECT_EQ(events.installHandler("misc"_4, "dosc"_4, handler, 7), noErr);
    EXPECT_EQ(send("one"), noErr);
    EXPECT_EQ(send("two"), noErr);
    EXPECT_EQ(handled, "");
    events.dispatch();
    EXPECT_EQ(handled, "one7 two7 ");
    events.installHandler(
        "misc"_4, "dosc"_4, [](const Event&, Event&, long) -> Status { throw std::bad_alloc(); }, 0);
    EXPECT_EQ(send("three"), noErr);
    events.dispatch();
    EXPECT_EQ(events.installHandler("misc"_4, "dosc"_4, nullptr, 0), noErr);
    EXPECT_EQ(send("four"), noErr);
    events.dispatch();
    EXPECT_EQ(handled, "one7 two7 ");
    EXPECT_EQ(send(std::string(std::size_t{16} << 20, 'x').c_str()), paramErr);
    const std::string large(std::size_t{15} << 20, 'x');
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(send(large.c_str()), noErr);
    }
    EXPECT_EQ(send(large.c_str()), bufferIsSmall);
}

}  // namespace
