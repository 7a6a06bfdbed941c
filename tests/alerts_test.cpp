#include "util/alerts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/failing_machine.h"
#include "support/machine_fixture.h"
#include "util/fhandle.h"
#include "util/toolbox.h"

namespace {

using platform::Rect;
using support::MachineFixture;
using support::MachineScope;

// Dialogs that keep what was shown, measure 10 pixels a line, and press `press`.
struct KeptDialogs : platform::Dialogs {
    platform::Dialog shown;
    std::int16_t height = 30;
    std::int16_t press = 1;
    std::int16_t measuredWidth = 0;
    platform::Chooser asked;
    platform::ChooserOutcome outcome = platform::ChooserOutcome::cancelled;
    platform::Status error = 0;
    int beeps = 0;

    std::int16_t textHeight(std::string_view, std::int16_t width) override {
        measuredWidth = width;
        return height;
    }
    void drawTextBox(platform::Dialog& dialog, std::string_view text, Rect rect) override {
        dialog.drawn.push_back({std::string(text), rect});
    }
    std::int16_t runModal(platform::Dialog& dialog) override {
        dialog.item(5).draw(dialog, 5);
        shown = dialog;
        return press;
    }
    platform::ChooserOutcome choose(const platform::Chooser& chooser, platform::Choice&,
                                    platform::Status& status) override {
        asked = chooser;
        status = error;
        return outcome;
    }
    void beep() override { ++beeps; }
};

// Bundles' dialogs: answers the layout that a test gives.
struct GivenResources : platform::Resources {
    platform::Dialog layout;
    std::u16string localizedString(platform::BundleRef, std::string_view, std::string_view) override { return {}; }
    std::string indexedString(std::int16_t, std::int16_t) override { return {}; }
    platform::Status version(std::int16_t, platform::VersionResource&) override { return platform::resNotFound; }
    platform::Status dialogLayout(std::int16_t dialogID, platform::Dialog& dialog) override {
        dialog = layout;
        return dialogID == quil::kAlertDialogID && !layout.items.empty() ? platform::noErr : platform::resNotFound;
    }
    platform::BundleRef useBundle(platform::BundleRef) override { return nullptr; }
};

struct DialogMachine : support::WrappingMachine {
    using WrappingMachine::WrappingMachine;
    KeptDialogs kept;
    GivenResources given;
    platform::Dialogs& dialogs() override { return kept; }
    platform::Resources& resources() override { return given; }
};

class Alerts : public MachineFixture {
  protected:
    std::string onlyMessage() {
        const std::vector<std::string> messages = takeMessages();
        return messages.size() == 1 ? messages[0] : "(" + std::to_string(messages.size()) + " alerts)";
    }
};

class AlertDialog : public MachineFixture {
  protected:
    DialogMachine dialogs{machine()};
    MachineScope scope{dialogs};
    platform::Dialog& shown() { return dialogs.kept.shown; }
};

TEST_F(Alerts, NamedKindsBeepAndHaveHeadingAndIconOthersHaveNeither) {
    // Kind, number of beeps, heading.
    for (const std::string row :
         {"C1Caution", "c1Caution", "W1Warning", "w1Warning", "N1Note", "n1Note", "S1Stop", "s1Stop", "M0", "x0"}) {
        EXPECT_EQ(quil::VariableDlg(row[0], "text", "OK", "", nullptr), 1);
        const platform::Effects effects = machine().takeEffects();
        ASSERT_EQ(effects.alerts.size(), 1U);
        EXPECT_EQ(effects.alerts[0].heading, row.substr(2)) << row;
        EXPECT_EQ(effects.beeps, row[1] - '0') << row;
        EXPECT_EQ(effects.alerts[0].message, "text");
        EXPECT_EQ(effects.alerts[0].buttons, std::vector<std::string>{"OK"});
    }
}

TEST_F(AlertDialog, BuiltInLayoutGrowsByTheMessageAndMovesTheButtonsDown) {
    dialogs.kept.press = 3;
    EXPECT_EQ(quil::VariableDlg('W', "a\rb", "Yes", "No", "Cancel"), 3);
    EXPECT_EQ(dialogs.kept.measuredWidth, 360);
    EXPECT_EQ(shown().bounds, (Rect{200, 200, 320, 600}));
    ASSERT_EQ(shown().items.size(), 7U);
    const Rect rects[] = {{90, 270, 110, 350}, {90, 160, 110, 240}, {90, 50, 110, 130}, {},
                          {50, 20, 80, 380},   {10, 30, 42, 62},    {15, 80, 35, 240}};
    EXPECT_EQ(shown().item(6).icon, 2);
    EXPECT_EQ(shown().item(7).text, "Warning");
    for (std::size_t item = 1; item <= 7; ++item) {
        EXPECT_EQ(shown().item(item).rect, rects[item - 1]) << item;
        EXPECT_EQ(shown().item(item).enabled, item <= 3) << item;
        EXPECT_TRUE(shown().item(item).visible) << item;
    }
    EXPECT_EQ(shown().defaultItem, 1);
    EXPECT_EQ(shown().cancelItem, 3);
    EXPECT_EQ(shown().reference, "a\rb");
    ASSERT_EQ(shown().drawn.size(), 1U);
    EXPECT_EQ(shown().drawn[0].text, "a\rb");
    EXPECT_EQ(shown().drawn[0].rect, (Rect{50, 20, 80, 380}));
}

TEST_F(AlertDialog, IconsAreThePlatformsNumbers) {
    for (const auto& [kind, icon] : {std::pair{'C', 2}, {'W', 2}, {'N', 1}, {'S', 0}}) {
        quil::VariableDlg(kind, "", "OK", "", "");
        EXPECT_EQ(shown().item(6).icon, icon) << kind;
    }
    quil::VariableDlg('M', "", "OK", "", "");
    EXPECT_FALSE(shown().item(6).visible || shown().item(7).visible);
}

TEST_F(AlertDialog, EmptyButtonsAreHiddenAndAnAlertThatCannotBeShownGivesZero) {
    dialogs.kept.press = 0;
    dialogs.kept.height = 32767;
    EXPECT_EQ(quil::VariableDlg('M', nullptr, "OK", nullptr, "Maybe"), 0);
    EXPECT_TRUE(shown().item(1).visible);
    EXPECT_FALSE(shown().item(2).visible);
    EXPECT_EQ(shown().item(3).text, "Maybe");
    EXPECT_EQ(shown().reference, "");
    EXPECT_EQ(shown().bounds.bottom, 32767) << "held at the end of the screen's numbers";
    EXPECT_EQ(shown().item(1).rect.bottom, 32767);
}

TEST_F(AlertDialog, TheBundlesLayoutIsUsedWhenItHasTheSevenItems) {
    platform::Dialog& layout = dialogs.given.layout;
    layout.bounds = {0, 0, 100, 500};
    layout.items.resize(8);
    for (std::size_t item = 1; item <= 3; ++item) {
        layout.item(item).kind = platform::ItemKind::button;
        layout.item(item).rect = {70, 0, 90, 80};
    }
    layout.item(5).kind = platform::ItemKind::user;
    layout.item(5).rect = {5, 10, 5, 210};
    layout.item(8).kind = platform::ItemKind::staticText;
    layout.item(8).text = "^1 of ^2, ^9";
    quil::my_paramtext("zero", "one", "two", "three");
    quil::VariableDlg('M', "text", "OK", "", "");
    EXPECT_EQ(dialogs.kept.measuredWidth, 200);
    EXPECT_EQ(shown().bounds, (Rect{0, 0, 130, 500}));
    EXPECT_EQ(shown().item(1).rect, (Rect{100, 0, 120, 80}));
    EXPECT_EQ(shown().item(8).text, "one of two, ^9");

    layout.items.resize(6);
    quil::VariableDlg('M', "text", "OK", "", "");
    EXPECT_EQ(shown().bounds, (Rect{200, 200, 320, 600}));
}

TEST(CancelButton, IsChosenByWordThenByCount) {
    const struct {
        short item;
        const char* titles[3];
    } rows[] = {{2, {"OK", "Cancel", ""}},     {3, {"Yes", "No", "Cancel"}},    {2, {"OK", "Later", ""}},
                {1, {"OK", nullptr, nullptr}}, {1, {"OK", "", "Later"}},        {2, {"Back", "NO", ""}},
                {1, {"back", "Next", ""}},     {1, {"cancel", "CANCEL", "no"}}, {3, {"No", "Back", "cAnCeL"}},
                {3, {nullptr, nullptr, "NO"}}};
    for (const auto& row : rows) {
        EXPECT_EQ(quil::GetCancelButtonItemNum(row.titles[0], row.titles[1], row.titles[2]), row.item);
    }
}

TEST_F(Alerts, LinesEndInReturnsNullLinesAreLeftOutAndAMessageIsCutAt2047Bytes) {
    quil::DoAlertMessage("one", "two", nullptr, "");
    EXPECT_EQ(onlyMessage(), "one\r\rtwo\r\r");
    quil::DoAlertMessage(nullptr, "two", "three", nullptr);
    EXPECT_EQ(onlyMessage(), "two\rthree\r");
    quil::DoAlertMessage(std::string(2043, 'a').c_str(), "bc", nullptr, nullptr);
    EXPECT_EQ(onlyMessage(), std::string(2043, 'a') + "\r\rbc");
}

TEST_F(Alerts, NothingIsShownWithoutUserInterface) {
    quil::gNoUserInterface = 1;
    quil::ReportErrorMsgToUser("text");
    quil::ReportErrorToUser(2, -43);
    EXPECT_TRUE(takeMessages().empty());
    quil::ResetAlerts();
    quil::ReportErrorMsgToUser("text");
    EXPECT_EQ(onlyMessage(), "text\r\r");
}

TEST_F(Alerts, ReportsNameFunctionErrorAndMessageWithoutGaps) {
    const struct {
        long function;
        short code;
        const char *message, *shown;
    } rows[] = {
        {-1, -108, "x", "Not enough memory to complete this operation.\r\rx\r"},
        {-1, -43, nullptr, "Error: -43\r\r"},
        {2, 0, nullptr, "An error occurred in the plug-in function QUIL_External.\r\r"},
        {2, 12321, "why", "An error occurred in the plug-in function QUIL_External.\r\rError: 12321\rwhy\r"},
        {99999999, -32768, nullptr, "An error occurred in the plug-in function .\r\rError: -32768\r"},
    };
    for (const auto& row : rows) {
        quil::ReportErrorAndMsgToUser(row.function, row.code, row.message);
        EXPECT_EQ(onlyMessage(), row.shown);
    }
    const platform::AlertEffect plain = (quil::ReportErrorMsgToUser("m"), machine().takeEffects().alerts.at(0));
    EXPECT_EQ(plain.kind, 'M');
    EXPECT_EQ(plain.buttons, std::vector<std::string>{"OK"});
}

TEST_F(Alerts, ReportLinesAreCutAt255Bytes) {
    for (const std::size_t length : {254U, 255U, 256U, 9999U}) {
        quil::ReportErrorMsgToUser(std::string(length, 'm').c_str());
        EXPECT_EQ(onlyMessage(), std::string(std::min<std::size_t>(length, 255), 'm') + "\r\r") << length;
    }
}

class Choosers : public MachineFixture {
  protected:
    Choosers() { makeFolder("Work"); }
    void answer(std::optional<platform::ScriptedChoice> choice) { machine().state().choices = {std::move(choice)}; }
    char path[256] = "before";
};

TEST_F(Choosers, ReadingGivesTheClassicPathAndACancelLeavesThePath) {
    answer(std::nullopt);
    EXPECT_EQ(quil::AskUserForFileNameToRead(path), 0);
    EXPECT_STREQ(path, "before");
    answer({{"Disk:Work:", "a b.txt"}});
    EXPECT_NE(quil::AskUserForFileNameToRead(path), 0);
    EXPECT_STREQ(path, "Disk:Work:a b.txt");
    const platform::Effects effects = machine().takeEffects();
    ASSERT_EQ(effects.choosers.size(), 2U);
    EXPECT_EQ(effects.choosers[0].title, "Choose a File");
    EXPECT_EQ(effects.choosers[0].proposed, "");
}

TEST_F(Choosers, WritingProposesTheNameAndPutsOneColonBetweenFolderAndName) {
    answer({{"Disk:Work:", "out.zip"}});
    EXPECT_NE(quil::AskUserForFileNameToWrite(path), 0);
    EXPECT_STREQ(path, "Disk:Work:out.zip");
    const platform::Effects effects = machine().takeEffects();
    ASSERT_EQ(effects.choosers.size(), 1U);
    EXPECT_EQ(effects.choosers[0].kind, platform::Chooser::Kind::write);
    EXPECT_EQ(effects.choosers[0].title, "Save As");
    EXPECT_EQ(effects.choosers[0].proposed, "before");
    answer(std::nullopt);
    EXPECT_EQ(quil::AskUserForFileNameToWrite(path), 0);
    EXPECT_STREQ(path, "Disk:Work:out.zip");
}

TEST_F(Choosers, APathOf256CharactersIsNoChoiceForWriting) {
    // "Disk:" and two folders and a colon each: 250 characters with the closing one.
    const std::string first(120, 'f');
    const std::string second(250 - 5 - 121 - 1, 'g');
    makeFolder(first + "/" + second);
    const std::string folder = "Disk:" + first + ":" + second + ":";
    ASSERT_EQ(folder.size(), 250U);
    for (const auto& [length, chosen] : {std::pair{5, true}, {6, false}, {10, false}}) {
        char proposed[256] = "before";
        answer({{folder, std::string(static_cast<std::size_t>(length), 'n')}});
        EXPECT_EQ(quil::AskUserForFileNameToWrite(proposed) != 0, chosen) << length;
        EXPECT_EQ(proposed, chosen ? folder + std::string(static_cast<std::size_t>(length), 'n') : "before");
    }
}

TEST_F(AlertDialog, MissingChooserOptionsGiveTheErrorsLowByteToReadersOnly) {
    char path[256] = "before";
    dialogs.kept.outcome = platform::ChooserOutcome::failed;
    dialogs.kept.error = -108;
    EXPECT_EQ(quil::AskUserForFileNameToRead(path), 148);
    EXPECT_EQ(quil::AskUserForFileNameToWrite(path), 0);
    EXPECT_STREQ(path, "before");
    EXPECT_EQ(dialogs.kept.asked.client, "QuilFileMakerPlugin");
    EXPECT_EQ(dialogs.kept.asked.fileType, 0x2E5A4950U);
    EXPECT_EQ(dialogs.kept.asked.fileCreator, 0x2A2A2A2AU);
}

TEST_F(Choosers, AFailingFileCallIsNoChoice) {
    const int rounds = support::sweepFileCalls(machine(), {}, [this](support::FailingMachine& failing) {
        MachineScope scope(failing);
        for (const auto ask : {quil::AskUserForFileNameToRead, quil::AskUserForFileNameToWrite}) {
            char text[256] = "before";
            answer({{"Disk:Work:", "f"}});
            const bool chosen = ask(text) != 0;
            EXPECT_STREQ(text, chosen ? "Disk:Work:f" : "before");
            EXPECT_TRUE(chosen || failing.files().hasFailed());
        }
    });
    EXPECT_GT(rounds, 2);
}

TEST_F(Alerts, TheFrontFileWindowIsBehindPalettesAndUntitledDialogs) {
    char title[16] = "x";
    EXPECT_EQ(quil::GetFrontFilemakerFileWindow(), nullptr);
    quil::GetFrontFileMakerFileWindowTitle(title, sizeof title);
    EXPECT_STREQ(title, "");

    using Windows = std::vector<platform::WindowRecord>;
    const std::pair<Windows, const char*> rows[] = {
        {{{"Tools", 20000, 1, 1, {}, {}}, {"", 9, 1, 1, {}, {}}, {"Chemicals and more", 8, 1, 1, {}, {}}},
         "Chemicals and m"},
        {{{"", 9, 1, 1, {}, {}}, {"Sort", 9, 1, 1, {}, {}}, {"Main", 8, 1, 1, {}, {}}}, "Sort"},
        {{{"", 8, 1, 1, {}, {}}, {"Main", 8, 1, 1, {}, {}}}, ""}};
    for (const auto& [windows, front] : rows) {
        machine().memoryWindows().setWindows(windows);
        quil::GetFrontFileMakerFileWindowTitle(title, sizeof title);
        EXPECT_STREQ(title, front);
    }
}

TEST(NameHeader, IsTakenOffTheFront) {
    const std::string n247(247, 'n');
    const std::string n255(255, 'n');
    const std::string tail(3000, 't');
    struct Row {
        std::string text, name;
        int noDupes;
        std::string rest;
    };
    for (const Row& row : {
             Row{"Friends|", "Friends", 0, ""},
             Row{"", "", 0, ""},
             Row{"|a|b", "", 0, "a|b"},
             Row{"Friends|NODUPES", "Friends", 1, ""},
             Row{"Friends|NODUPES||NODUPES|", "Friends", 1, "|NODUPES|"},
             Row{"Friends|nodupes|a", "Friends", 0, "nodupes|a"},
             Row{"Friends|NODUPESX|a", "Friends", 0, "NODUPESX|a"},
             Row{"Friends|NODUPES|" + tail + "|x", "Friends", 1, tail + "|x"},
             Row{n247 + "|NODUPES|a", n247, 1, "a"},
             Row{n247 + "n|NODUPES|a", n247 + "n", 0, "NODUPES|a"},
             Row{n255 + "n|a", n255, 0, "n|a"},
         }) {
        for (const bool terminated : {false, true}) {
            char** handle = quil::NewFHandle(0);
            ASSERT_EQ(quil::SetResultsHandleText(handle, row.text), 0);
            if (terminated) {
                ASSERT_EQ(quil::EnsureHandleIsNullTerminated(handle), 0);
            }
            char name[256] = "before";
            unsigned char noDupes = 77;
            EXPECT_EQ(quil::GetAndStripNameAndDupes(handle, name, &noDupes), 0);
            EXPECT_EQ(name, row.name);
            EXPECT_EQ(noDupes, row.noDupes) << row.text;
            EXPECT_EQ(quil::FHandleText(handle), row.rest);
            EXPECT_EQ(quil::GetFHandleSize(handle), static_cast<long>(row.rest.size()) + 1);
            quil::DisposeAndClearFHandle(&handle);
        }
    }
    char name[256];
    unsigned char noDupes;
    EXPECT_EQ(quil::GetAndStripNameAndDupes(nullptr, name, &noDupes), -1);
}

}  // namespace
