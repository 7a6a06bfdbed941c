// The scripted machine: real files, everything else as the script says.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "support/process.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;

class ScriptedMachineTest : public testing::Test {
  protected:
    ScriptedMachineTest() {
        fs::create_directories(folder.path() / "Apps");
        fs::create_directories(folder.path() / "Docs");
        for (const char* file : {"Apps/Host", "Apps/GEOLENS", "Docs/a.txt"}) {
            std::ofstream(folder.path() / file) << "text";
        }
        LinuxOptions options;
        options.volumes = {{"Disk", folder.path().string()}};
        options.application = "Disk:Apps:Host";
        files = makeLinuxFiles(options);
        resources = makeBundleResources();
        machine = std::make_unique<ScriptedMachine>(*files, *resources, ScriptedOptions{"Disk:Apps:Host", "HOST"_4});
    }

    FSSpec specOf(std::string_view path) {
        FSSpec spec;
        EXPECT_EQ(machine->files().makeSpec(0, 0, path, spec), noErr) << path;
        return spec;
    }
    std::vector<OSType> runningSignatures() {
        std::vector<OSType> signatures;
        ProcessInfo info;
        for (ProcessSerialNumber process = noProcess; machine->processes().next(process) == noErr;) {
            EXPECT_EQ(machine->processes().information(process, info), noErr);
            signatures.push_back(info.signature);
        }
        return signatures;
    }
    Event eventTo(OSType target, OSType eventClass, OSType id) {
        return {eventClass, id, target, {{"----"_4, "TEXT"_4, "Report"}}};
    }

    support::TemporaryFolder folder;
    std::unique_ptr<Files> files;
    std::unique_ptr<Resources> resources;
    std::unique_ptr<ScriptedMachine> machine;
};

using List = std::vector<OSType>;

TEST_F(ScriptedMachineTest, fails_the_calls_that_a_fault_names_and_no_others) {
    Files& f = machine->files();
    const FSSpec spec = specOf("Disk:Docs:a.txt");
    const std::string posix = "/Volumes/Disk/Docs/a.txt";
    std::vector<char> buffer(2);
    FInfo info;
    std::int64_t size = 0;
    std::size_t count = 0;
    const auto withOpenFile = [&](const std::function<Status(FileRef)>& action) {
        FileRef ref = 0;
        EXPECT_EQ(files->openDataFork(spec, ForkPermission::readWrite, ref), noErr);
        const Status status = action(ref);
        f.close(ref);
        return status;
    };
    const auto opened = [&](Status status, FileRef ref) { return status == noErr ? f.close(ref) : status; };
    struct Case {
        const char* operation;
        std::function<Status()> call;
    };
    const Case cases[] = {
        {"open",
         [&] {
             FileRef ref = 0;
             const Status status = f.openDataFork(spec, ForkPermission::read, ref);
             return opened(status, ref);
         }},
        {"open",
         [&] {
             FileRef ref = 0;
             const Status status = f.openPosix(posix, PosixMode::append, ref);
             return opened(status, ref);
         }},
        {"size", [&] { return withOpenFile([&](FileRef ref) { return f.getEOF(ref, size); }); }},
        {"seek", [&] { return withOpenFile([&](FileRef ref) { return f.setPosition(ref, 1); }); }},
        {"seek", [&] { return withOpenFile([&](FileRef ref) { return f.setPositionAtEnd(ref); }); }},
        {"read", [&] { return withOpenFile([&](FileRef ref) { return f.read(ref, buffer, count); }); }},
        {"write", [&] { return withOpenFile([&](FileRef ref) { return f.write(ref, buffer, count); }); }},
        {"finderInfo", [&] { return f.getFinderInfo(spec, info); }},
        {"create",
         [&] {
             fs::remove(folder.path() / "Docs/new");
             FSSpec made;
             files->makeSpec(0, 0, "Disk:Docs:new", made);
             return f.create(made, "ttxt"_4, "TEXT"_4);
         }},
        {"delete",
         [&] {
             std::ofstream(folder.path() / "Docs/old");
             return f.remove(specOf("Disk:Docs:old"));
         }},
        {"launch",
         [&] {
             machine->state().launches = {{"Disk:Apps:GEOLENS", {"GLN1"_4, 0}}};
             ProcessSerialNumber process = noProcess;
             return machine->processes().launch(specOf("Disk:Apps:GEOLENS"), 0, process);
         }},
        {"front", [&] { return machine->processes().setFront(1); }},
        {"send", [&] { return machine->events().send(eventTo("HOST"_4, "QUIL"_4, "AEVT"_4)); }},
    };
    for (const Case& one : cases) {
        ASSERT_TRUE(isFaultOperation(one.operation));
        for (const Case& other : cases) {
            machine->state().faults = {{other.operation, fBsyErr, 1, 0}};
            const bool same = std::string_view(one.operation) == other.operation;
            EXPECT_EQ(one.call(), same ? fBsyErr : noErr) << one.operation << " under a fault of " << other.operation;
        }
    }
    EXPECT_FALSE(isFaultOperation("rename"));
}

TEST_F(ScriptedMachineTest, uses_up_the_faults_of_an_operation_in_their_order) {
    machine->state().faults = {{"front", fBsyErr, 2, 1}, {"launch", ioErr, 1, 0}, {"front", permErr, 1, 1}};
    std::vector<Status> statuses;
    for (int i = 0; i < 6; ++i) {
        statuses.push_back(machine->processes().setFront(1));
    }
    EXPECT_EQ(statuses, (std::vector<Status>{noErr, fBsyErr, fBsyErr, noErr, permErr, noErr}));
    EXPECT_EQ(machine->takeEffects().fronted.size(), 3U) << "a call that failed brought nothing to the front";
    EXPECT_EQ(machine->state().faults.size(), 1U);
}

TEST_F(ScriptedMachineTest, lists_the_host_first_and_then_what_runs) {
    machine->state().running = {{"GLN1"_4, "Disk:Apps:GEOLENS"}, {"GONE"_4, "Disk:Apps:gone"}};
    EXPECT_EQ(runningSignatures(), (List{"HOST"_4, "GLN1"_4, "GONE"_4}));
    ProcessInfo info;
    EXPECT_EQ(machine->processes().information(2, info), noErr);
    EXPECT_EQ(info.name, "GEOLENS");
    EXPECT_EQ(info.application.parID, specOf("Disk:Apps:GEOLENS").parID);
    EXPECT_EQ(machine->processes().information(4, info), procNotFound);
    EXPECT_EQ(machine->processes().setFront(4), procNotFound);
    EXPECT_EQ(machine->processes().currentApplicationName(), "Host");
    ProcessSerialNumber self = noProcess;
    EXPECT_EQ(machine->processes().current(self), noErr);
    EXPECT_EQ(machine->processes().setFront(self), noErr);
    EXPECT_EQ(machine->processes().setFront(2), noErr);
    EXPECT_EQ(machine->takeEffects().fronted, (List{"HOST"_4, "GLN1"_4}));
}

TEST_F(ScriptedMachineTest, launches_only_what_the_script_names) {
    machine->state().launches = {{"Disk:Apps:GEOLENS", {"GLN1"_4, 0}}};
    ProcessSerialNumber process = noProcess;
    EXPECT_EQ(machine->processes().launch(specOf("Disk:Docs:a.txt"), 0, process), fnfErr);
    EXPECT_EQ(runningSignatures(), List{"HOST"_4});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(machine->processes().launch(specOf("Disk:Apps:GEOLENS"), 0, process), noErr);
        EXPECT_EQ(process, 2U);
        EXPECT_EQ(runningSignatures(), (List{"HOST"_4, "GLN1"_4})) << "an application runs once";
    }
    EXPECT_EQ(machine->takeEffects().launched, std::vector<std::string>(2, "Disk:Apps:GEOLENS"));
}

TEST_F(ScriptedMachineTest, starts_a_slow_application_once_the_plug_in_has_waited) {
    machine->state().ticks = 1000;
    machine->state().launches = {{"Disk:Apps:GEOLENS", {"GLN1"_4, 3}}};
    ProcessSerialNumber process = noProcess;
    machine->input().wait(600);
    EXPECT_EQ(machine->processes().launch(specOf("Disk:Apps:GEOLENS"), 0, process), noErr);
    EXPECT_EQ(process, noProcess);
    for (const std::uint32_t ticks : {60U, 60U, 59U}) {
        machine->input().wait(ticks);
        EXPECT_EQ(runningSignatures(), List{"HOST"_4});
    }
    EXPECT_EQ(machine->events().send(eventTo("GLN1"_4, "QUIL"_4, "AEVT"_4)), procNotFound);
    machine->input().wait(1);
    EXPECT_EQ(runningSignatures(), (List{"HOST"_4, "GLN1"_4}));
    EXPECT_EQ(machine->events().send(eventTo("GLN1"_4, "QUIL"_4, "AEVT"_4)), noErr);
}

TEST_F(ScriptedMachineTest, tells_host_scripts_from_other_events) {
    machine->state().running = {{"GLN1"_4, "Disk:Apps:GEOLENS"}};
    Events& events = machine->events();
    EXPECT_EQ(events.send(eventTo("HOST"_4, "misc"_4, "dosc"_4)), noErr);
    EXPECT_EQ(events.send(eventTo("GLN1"_4, "misc"_4, "dosc"_4)), noErr);
    EXPECT_EQ(events.send(eventTo("HOST"_4, "QUIL"_4, "AEVT"_4)), noErr);
    EXPECT_EQ(events.send(eventTo("NONE"_4, "QUIL"_4, "AEVT"_4)), procNotFound);
    const Effects effects = machine->takeEffects();
    EXPECT_EQ(effects.scripts, std::vector<std::string>{"Report"});
    ASSERT_EQ(effects.sent.size(), 2U);
    EXPECT_EQ(effects.sent[0].target, "GLN1"_4);
    EXPECT_EQ(effects.sent[1].target, "HOST"_4);
    EXPECT_TRUE(machine->takeEffects().sent.empty()) << "effects are told once";
}

TEST_F(ScriptedMachineTest, delivers_events_to_the_installed_handler) {
    const auto handler = [](const Event& event, Event&, long reference) -> Status {
        return static_cast<Status>(reference + static_cast<long>(event.parameters.size()));
    };
    const Event event = eventTo("HOST"_4, "QUIL"_4, "AEVT"_4);
    EXPECT_EQ(machine->deliver(event), errAEEventNotHandled);
    machine->events().installHandler("QUIL"_4, "AEVT"_4, handler, 40);
    EXPECT_EQ(machine->deliver(event), 41);
    EXPECT_EQ(machine->deliver(eventTo("HOST"_4, "QUIL"_4, "ELSE"_4)), errAEEventNotHandled);
    machine->events().installHandler("QUIL"_4, "AEVT"_4, handler, 50);
    EXPECT_EQ(machine->deliver(event), 51);
    machine->events().installHandler("QUIL"_4, "AEVT"_4, nullptr, 0);
    EXPECT_EQ(machine->deliver(event), errAEEventNotHandled);
}

TEST_F(ScriptedMachineTest, presses_the_scripted_buttons_and_else_the_default_one) {
    Dialog dialog;
    dialog.items.resize(7);
    for (std::size_t i = 1; i <= 3; ++i) {
        dialog.item(i).kind = ItemKind::button;
        dialog.item(i).text = "B" + std::to_string(i);
    }
    dialog.item(3).visible = false;
    dialog.item(5).kind = ItemKind::user;
    dialog.item(5).draw = [](Dialog& d, std::int16_t item) {
        platform::machine().dialogs().drawTextBox(d, d.reference, d.item(static_cast<std::size_t>(item)).rect);
    };
    dialog.item(7) = {ItemKind::staticText, {}, "Caution"};
    dialog.reference = "Message";
    dialog.kind = 'C';
    dialog.cancelItem = 2;
    platform::Machine* const before = installMachine(machine.get());
    machine->state().answers = {2, 3, 9};
    const std::int16_t expected[] = {2, 1, 1, 1};
    for (const std::int16_t pressed : expected) {
        EXPECT_EQ(machine->dialogs().runModal(dialog), pressed);
    }
    dialog.item(7).visible = false;
    dialog.item(1).visible = dialog.item(2).visible = false;
    EXPECT_EQ(machine->dialogs().runModal(dialog), 0) << "no button can be pressed";
    installMachine(before);
    const Effects effects = machine->takeEffects();
    ASSERT_EQ(effects.alerts.size(), 5U);
    EXPECT_EQ(effects.alerts[0].kind, 'C');
    EXPECT_EQ(effects.alerts[0].heading, "Caution");
    EXPECT_EQ(effects.alerts[0].message, "Message");
    EXPECT_EQ(effects.alerts[0].buttons, (std::vector<std::string>{"B1", "B2"}));
    EXPECT_EQ(effects.alerts[0].cancelItem, 2);
    EXPECT_EQ(effects.alerts[4].heading, "");
    EXPECT_EQ(dialog.drawn.size(), 5U);
    EXPECT_EQ(dialog.drawn[0].text, "Message");
}

TEST_F(ScriptedMachineTest, measures_text_by_wrapped_lines) {
    Dialogs& dialogs = machine->dialogs();
    const std::int16_t line = dialogs.textHeight("a", 70);
    EXPECT_GT(line, 0);
    EXPECT_EQ(dialogs.textHeight("", 70), 0);
    EXPECT_EQ(dialogs.textHeight("123456789 1", 70), 2 * line);
    EXPECT_EQ(dialogs.textHeight("1234 56789", 70), line);
    EXPECT_EQ(dialogs.textHeight("a\rb\r\rc", 70), 4 * line);
    EXPECT_EQ(dialogs.textHeight(std::string(25, 'x'), 70), 3 * line);
    EXPECT_EQ(dialogs.textHeight(std::string(1'000'000, '\r'), 70), 32767);
    EXPECT_EQ(dialogs.textHeight("ab", 0), 2 * line);
}

TEST_F(ScriptedMachineTest, answers_choosers_from_the_list) {
    machine->state().choices = {ScriptedChoice{"Disk:Docs:", "a.txt"}, std::nullopt, ScriptedChoice{"Disk:None:", "a"}};
    const Chooser chooser{Chooser::Kind::write, "Save As", "QuilFileMakerPlugin", "b.txt", 0, 0};
    Choice choice;
    Status error = ioErr;
    EXPECT_EQ(machine->dialogs().choose(chooser, choice, error), ChooserOutcome::chosen);
    EXPECT_EQ(error, noErr);
    EXPECT_EQ(choice.name, "a.txt");
    EXPECT_EQ(choice.dirID, specOf("Disk:Docs:a.txt").parID);
    EXPECT_EQ(machine->dialogs().choose(chooser, choice, error), ChooserOutcome::cancelled);
    EXPECT_EQ(machine->dialogs().choose(chooser, choice, error), ChooserOutcome::failed) << "no such folder";
    EXPECT_EQ(machine->dialogs().choose(chooser, choice, error), ChooserOutcome::cancelled);
    const Effects effects = machine->takeEffects();
    ASSERT_EQ(effects.choosers.size(), 4U);
    EXPECT_EQ(effects.choosers[0].title, "Save As");
    EXPECT_EQ(effects.choosers[0].proposed, "b.txt");
}

TEST_F(ScriptedMachineTest, moves_a_set_clock_only_by_waiting) {
    machine->state().ticks = 0xFFFFFFF0;
    machine->state().seconds = 12345;
    machine->input().wait(0x20);
    EXPECT_EQ(machine->input().ticks(), 0x10U) << "the counter wraps";
    EXPECT_EQ(machine->input().ticks(), 0x10U);
    EXPECT_EQ(machine->input().seconds(), 12345);
}

TEST_F(ScriptedMachineTest, sleeps_on_the_real_clock) {
    const auto start = std::chrono::steady_clock::now();
    const std::uint32_t before = machine->input().ticks();
    machine->input().wait(3);
    EXPECT_GE(machine->input().ticks() - before, 3U);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_NEAR(static_cast<double>(machine->input().seconds()), static_cast<double>(::time(nullptr)), 2);
}

TEST_F(ScriptedMachineTest, keeps_a_window_that_is_given_again) {
    MemoryWindows& windows = machine->memoryWindows();
    windows.setWindows({{"Main", userKind, 800, 600, {}, {}}, {"List", 9, 1, 2, {}, {}}});
    WindowRef const main = windows.front();
    WindowRef const list = windows.next(main);
    EXPECT_EQ(windows.title(list), "List");
    EXPECT_EQ(windows.next(list), nullptr);
    EXPECT_EQ(windows.portRect(main), (Rect{0, 0, 600, 800}));
    windows.setWindows({{"New", userKind, 1, 1, {}, {}}, {"Main", 20000, 10, 20, {}, {}}});
    EXPECT_NE(windows.front(), list) << "a new window is not an old one";
    EXPECT_EQ(windows.next(windows.front()), main);
    EXPECT_EQ(windows.kind(main), 20000);
    EXPECT_EQ(windows.title(list), "") << "a window that is gone";
    windows.setTitle(list, "x");
    windows.drawProgress(main, {{}, "Working", 0.5, true});
    windows.disposeWindow(main);
    windows.disposeWindow(main);
    EXPECT_EQ(windows.next(windows.front()), nullptr);
    WindowRef const made = windows.newWindow({10, 10, 60, 110}, "Made", 8);
    EXPECT_EQ(windows.front(), made);
    EXPECT_EQ(windows.portRect(made), (Rect{0, 0, 50, 100}));
    windows.invalidate(made, {0, 0, 10, 10});
    windows.validate(made, {0, 0, 5, 10});
    EXPECT_EQ(made->invalid.size(), 1U);
    windows.validate(made, {0, 0, 10, 10});
    EXPECT_TRUE(made->invalid.empty());
    EXPECT_EQ(windows.title(nullptr), "");
    const Effects effects = machine->takeEffects();
    ASSERT_EQ(effects.drawn.size(), 1U);
    EXPECT_EQ(effects.drawn[0].window, "Main");
    EXPECT_EQ(effects.drawn[0].fraction, 0.5);
}

TEST_F(ScriptedMachineTest, reads_and_changes_menus) {
    MemoryMenus& menus = machine->memoryMenus();
    menus.setMenus({{1, {"Scripts", true, {{"GEOLENS", '1', true}}}}});
    menus.appendItem(1, "***");
    menus.appendItem(2, "nowhere");
    EXPECT_EQ(menus.itemCount(1), 2);
    EXPECT_EQ(menus.itemText(1, 2), "***");
    EXPECT_EQ(menus.itemCommandKey(1, 1), '1');
    EXPECT_EQ(menus.itemCommandKey(1, 2), 0);
    menus.enableItem(1, 1, false);
    EXPECT_FALSE(menus.itemEnabled(1, 1));
    EXPECT_TRUE(menus.itemEnabled(1, 2));
    menus.enableItem(1, 0, false);
    EXPECT_FALSE(menus.itemEnabled(1, 2)) << "a disabled menu disables its items";
    for (const std::int16_t item : {std::int16_t{-1}, std::int16_t{0}, std::int16_t{3}}) {
        EXPECT_EQ(menus.itemText(1, item), "");
    }
    EXPECT_FALSE(menus.hasMenu(2));
    EXPECT_EQ(menus.title(2), "");
}

}  // namespace
