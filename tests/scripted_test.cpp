// The scripted machine: real files, everything else as the script says.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <utility>

#include "support/machine_fixture.h"

namespace {

using namespace platform;

constexpr char kLens[] = "Disk:Apps:GEOLENS";
using List = std::vector<OSType>;

class ScriptedMachineTest : public support::MachineFixture {
  protected:
    ScriptedMachineTest() {
        putFile("Apps/GEOLENS", "text");
        putFile("Docs/a.txt", "text");
    }
    FSSpec specOf(std::string_view path) {
        FSSpec spec;
        EXPECT_EQ(machine().files().makeSpec(0, 0, path, spec), noErr) << path;
        return spec;
    }
    Status launch(std::string_view path, ProcessSerialNumber& process) {
        return machine().processes().launch(specOf(path), 0, process);
    }
    // Named, because clang 14 takes no immediate function in a default argument.
    static constexpr OSType kClass = "QUIL"_4;
    static constexpr OSType kEvent = "AEVT"_4;
    Status send(OSType target, OSType eventClass = kClass, OSType id = kEvent) {
        return machine().events().send(event(target, eventClass, id));
    }
    static Event event(OSType target, OSType eventClass, OSType id) {
        return {eventClass, id, target, {{"----"_4, "TEXT"_4, "Report"}}};
    }
    List runningSignatures() {
        List signatures;
        ProcessInfo info;
        for (ProcessSerialNumber process = noProcess; machine().processes().next(process) == noErr;) {
            EXPECT_EQ(machine().processes().information(process, info), noErr);
            signatures.push_back(info.signature);
        }
        return signatures;
    }
    ScriptedState& state() { return machine().state(); }
};

TEST_F(ScriptedMachineTest, fails_the_calls_that_a_fault_names_and_no_others) {
    Files& f = machine().files();
    const FSSpec spec = specOf("Disk:Docs:a.txt");
    state().launches = {{kLens, {"GLN1"_4, 0}}};
    std::vector<char> buffer(2);
    std::int64_t size = 0;
    std::size_t count = 0;
    FInfo info;
    FileRef ref = 0;
    ProcessSerialNumber process = noProcess;
    const auto opened = [&](Status status) { return status == noErr ? f.close(ref) : status; };
    const auto withOpenFile = [&](const std::function<Status()>& action) {
        const auto faults = std::exchange(state().faults, {});
        EXPECT_EQ(f.openDataFork(spec, ForkPermission::readWrite, ref), noErr);
        state().faults = faults;
        const Status status = action();
        f.close(ref);
        return status;
    };
    const auto createNew = [&] {
        std::filesystem::remove(posix("Docs/new"));
        FSSpec made;
        f.makeSpec(0, 0, "Disk:Docs:new", made);
        return f.create(made, "ttxt"_4, "TEXT"_4);
    };
    const auto removeOld = [&] {
        putFile("Docs/old", "");
        return f.remove(specOf("Disk:Docs:old"));
    };
    const std::pair<const char*, std::function<Status()>> cases[] = {
        {"open", [&] { return opened(f.openDataFork(spec, ForkPermission::read, ref)); }},
        {"open", [&] { return opened(f.openPosix("/Volumes/Disk/Docs/a.txt", PosixMode::append, ref)); }},
        {"size", [&] { return withOpenFile([&] { return f.getEOF(ref, size); }); }},
        {"seek", [&] { return withOpenFile([&] { return f.setPosition(ref, 1); }); }},
        {"seek", [&] { return withOpenFile([&] { return f.setPositionAtEnd(ref); }); }},
        {"read", [&] { return withOpenFile([&] { return f.read(ref, buffer, count); }); }},
        {"write", [&] { return withOpenFile([&] { return f.write(ref, buffer, count); }); }},
        {"finderInfo", [&] { return f.getFinderInfo(spec, info); }},
        {"create", createNew},
        {"delete", removeOld},
        {"launch", [&] { return launch(kLens, process); }},
        {"front", [&] { return machine().processes().setFront(1); }},
        {"send", [&] { return send("FMP7"_4); }}};
    for (const auto& [operation, call] : cases) {
        ASSERT_TRUE(isFaultOperation(operation));
        for (const auto& [other, unused] : cases) {
            state().faults = {{other, fBsyErr, 1, 0}};
            const bool same = std::string_view(operation) == other;
            EXPECT_EQ(call(), same ? fBsyErr : noErr) << operation << " under a fault of " << other;
        }
    }
    EXPECT_FALSE(isFaultOperation("rename"));
}

TEST_F(ScriptedMachineTest, uses_up_the_faults_of_an_operation_in_their_order) {
    state().faults = {{"front", fBsyErr, 2, 1}, {"launch", ioErr, 1, 0}, {"front", permErr, 1, 1}};
    for (const Status expected : {noErr, fBsyErr, fBsyErr, noErr, permErr, noErr}) {
        EXPECT_EQ(machine().processes().setFront(1), expected);
    }
    EXPECT_EQ(machine().takeEffects().fronted.size(), 3U) << "a call that failed brought nothing to the front";
    EXPECT_EQ(state().faults.size(), 1U);
}

TEST_F(ScriptedMachineTest, lists_the_host_first_and_then_what_runs) {
    state().running = {{"GLN1"_4, kLens}, {"GONE"_4, "Disk:Apps:gone"}};
    EXPECT_EQ(runningSignatures(), (List{"FMP7"_4, "GLN1"_4, "GONE"_4}));
    Processes& processes = machine().processes();
    ProcessInfo info;
    EXPECT_EQ(processes.information(2, info), noErr);
    EXPECT_EQ(info.name, "GEOLENS");
    EXPECT_EQ(info.application.parID, specOf(kLens).parID);
    EXPECT_EQ(processes.information(4, info), procNotFound);
    EXPECT_EQ(processes.currentApplicationName(), "Host");
    ProcessSerialNumber self = noProcess;
    EXPECT_EQ(processes.current(self), noErr);
    EXPECT_EQ(processes.setFront(self), noErr);
    EXPECT_EQ(processes.setFront(2), noErr);
    EXPECT_EQ(processes.setFront(4), procNotFound);
    EXPECT_EQ(machine().takeEffects().fronted, (List{"FMP7"_4, "GLN1"_4}));
}

TEST_F(ScriptedMachineTest, launches_only_what_the_script_names_and_only_once) {
    state().launches = {{kLens, {"GLN1"_4, 0}}};
    ProcessSerialNumber process = noProcess;
    EXPECT_EQ(launch("Disk:Docs:a.txt", process), fnfErr);
    EXPECT_EQ(runningSignatures(), List{"FMP7"_4});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(launch(kLens, process), noErr);
        EXPECT_EQ(process, 2U);
        EXPECT_EQ(runningSignatures(), (List{"FMP7"_4, "GLN1"_4}));
    }
    EXPECT_EQ(machine().takeEffects().launched, std::vector<std::string>(2, kLens));
}

TEST_F(ScriptedMachineTest, starts_a_slow_application_once_the_plug_in_has_waited) {
    state().ticks = 1000;
    state().launches = {{kLens, {"GLN1"_4, 3}}};
    ProcessSerialNumber process = noProcess;
    machine().input().wait(600);
    EXPECT_EQ(launch(kLens, process), noErr);
    EXPECT_EQ(process, noProcess);
    machine().input().wait(179);
    EXPECT_EQ(runningSignatures(), List{"FMP7"_4});
    EXPECT_EQ(send("GLN1"_4), procNotFound);
    machine().input().wait(1);
    EXPECT_EQ(runningSignatures(), (List{"FMP7"_4, "GLN1"_4}));
    EXPECT_EQ(send("GLN1"_4), noErr);
}

TEST_F(ScriptedMachineTest, tells_host_scripts_from_other_events) {
    state().running = {{"GLN1"_4, kLens}};
    EXPECT_EQ(send("FMP7"_4, "misc"_4, "dosc"_4), noErr);
    EXPECT_EQ(send("GLN1"_4, "misc"_4, "dosc"_4), noErr);
    EXPECT_EQ(send("FMP7"_4), noErr);
    EXPECT_EQ(send("NONE"_4), procNotFound);
    const Effects effects = machine().takeEffects();
    EXPECT_EQ(effects.scripts, std::vector<std::string>{"Report"});
    ASSERT_EQ(effects.sent.size(), 2U);
    EXPECT_EQ(effects.sent[0].target, "GLN1"_4);
    EXPECT_EQ(effects.sent[1].target, "FMP7"_4);
    EXPECT_TRUE(machine().takeEffects().sent.empty()) << "effects are told once";
}

TEST_F(ScriptedMachineTest, delivers_events_to_the_installed_handler) {
    const auto handler = [](const Event& given, Event&, long reference) -> Status {
        return static_cast<Status>(reference + static_cast<long>(given.parameters.size()));
    };
    const Event ours = event("FMP7"_4, "QUIL"_4, "AEVT"_4);
    EXPECT_EQ(machine().deliver(ours), errAEEventNotHandled);
    for (const long reference : {40, 50}) {
        machine().events().installHandler("QUIL"_4, "AEVT"_4, handler, reference);
        EXPECT_EQ(machine().deliver(ours), reference + 1);
    }
    EXPECT_EQ(machine().deliver(event("FMP7"_4, "QUIL"_4, "ELSE"_4)), errAEEventNotHandled);
    machine().events().installHandler("QUIL"_4, "AEVT"_4, nullptr, 0);
    EXPECT_EQ(machine().deliver(ours), errAEEventNotHandled);
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
    state().answers = {2, 3, 9};
    for (const int pressed : {2, 1, 1, 1}) {
        EXPECT_EQ(machine().dialogs().runModal(dialog), pressed);
    }
    dialog.item(7).visible = dialog.item(1).visible = dialog.item(2).visible = false;
    EXPECT_EQ(machine().dialogs().runModal(dialog), 0) << "no button can be pressed";
    const Effects effects = machine().takeEffects();
    ASSERT_EQ(effects.alerts.size(), 5U);
    EXPECT_EQ(effects.alerts[0].kind, 'C');
    EXPECT_EQ(effects.alerts[0].heading, "Caution");
    EXPECT_EQ(effects.alerts[0].message, "Message");
    EXPECT_EQ(effects.alerts[0].buttons, (std::vector<std::string>{"B1", "B2"}));
    EXPECT_EQ(effects.alerts[0].cancelItem, 2);
    EXPECT_EQ(effects.alerts[4].heading, "");
    ASSERT_EQ(dialog.drawn.size(), 5U);
    EXPECT_EQ(dialog.drawn[0].text, "Message");
}

TEST_F(ScriptedMachineTest, measures_text_by_wrapped_lines) {
    const std::int16_t line = machine().dialogs().textHeight("a", 70);
    EXPECT_GT(line, 0);
    const std::tuple<std::string, std::int16_t, int> cases[] = {
        {"", 70, 0},          {"123456789 1", 70, 2},        {"1234 56789", 70, 1},
        {"a\rb\r\rc", 70, 4}, {std::string(25, 'x'), 70, 3}, {"ab", 0, 2}};
    for (const auto& [text, width, lines] : cases) {
        EXPECT_EQ(machine().dialogs().textHeight(text, width), lines * line) << text;
    }
    EXPECT_EQ(machine().dialogs().textHeight(std::string(1'000'000, '\r'), 70), 32767);
}

TEST_F(ScriptedMachineTest, answers_choosers_from_the_list) {
    state().choices = {ScriptedChoice{"Disk:Docs:", "a.txt"}, std::nullopt, ScriptedChoice{"Disk:None:", "a"}};
    const Chooser chooser{Chooser::Kind::write, "Save As", "QuilFileMakerPlugin", "b.txt", 0, 0};
    Choice choice;
    Status error = ioErr;
    EXPECT_EQ(machine().dialogs().choose(chooser, choice, error), ChooserOutcome::chosen);
    EXPECT_EQ(error, noErr);
    EXPECT_EQ(choice.name, "a.txt");
    EXPECT_EQ(choice.dirID, specOf("Disk:Docs:a.txt").parID);
    for (const auto outcome : {ChooserOutcome::cancelled, ChooserOutcome::failed, ChooserOutcome::cancelled}) {
        EXPECT_EQ(machine().dialogs().choose(chooser, choice, error), outcome) << "cancelled, no such folder, no more";
    }
    EXPECT_EQ(machine().takeEffects().choosers.at(3).proposed, "b.txt");
}

TEST_F(ScriptedMachineTest, moves_a_set_clock_only_by_waiting_and_else_follows_the_real_one) {
    const auto start = std::chrono::steady_clock::now();
    const std::uint32_t before = machine().input().ticks();
    machine().input().wait(3);
    EXPECT_GE(machine().input().ticks() - before, 3U);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_NEAR(static_cast<double>(machine().input().seconds()), static_cast<double>(::time(nullptr)), 2);
    state().ticks = 0xFFFFFFF0;
    state().seconds = 12345;
    machine().input().wait(0x20);
    EXPECT_EQ(machine().input().ticks(), 0x10U) << "the counter wraps";
    EXPECT_EQ(machine().input().seconds(), 12345);
}

TEST_F(ScriptedMachineTest, keeps_a_window_that_is_given_again) {
    MemoryWindows& windows = machine().memoryWindows();
    windows.setWindows({{"Main", userKind, 800, 600, {}, {}}, {"List", 9, 1, 2, {}, {}}});
    WindowRef const main = windows.front();
    WindowRef const list = windows.next(main);
    EXPECT_EQ(windows.title(list), "List");
    EXPECT_EQ(windows.next(list), nullptr);
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
    EXPECT_EQ(machine().takeEffects().drawn.at(0).window, "Main");
}

TEST_F(ScriptedMachineTest, reads_and_changes_menus) {
    MemoryMenus& menus = machine().memoryMenus();
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
    for (const std::int16_t item : std::initializer_list<std::int16_t>{-1, 0, 3}) {
        EXPECT_EQ(menus.itemText(1, item), "");
    }
    EXPECT_EQ(menus.title(2), "");
    EXPECT_FALSE(menus.hasMenu(2));
}

}  // namespace
