// The windows of a solution, driven as a user drives them, without a display.
#include "host/desktop/desk.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPrinter>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <fstream>

#include "host/desktop/solution_window.h"
#include "host/desktop/threat_zone.h"
#include "util/alerts.h"

#ifndef __has_feature
#define __has_feature(name) 0
#endif

namespace {

using host::desktop::Desk;
using host::desktop::SolutionWindow;

constexpr int kPatience = 20'000;  // milliseconds until a condition counts as never met

// The application, without display, bus or settings of the user's.
class Display : public ::testing::Environment {
  public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
        qputenv("XDG_CONFIG_HOME", folder_.path().toUtf8());
        QCoreApplication::setOrganizationName("quil-test");
        application_ = std::make_unique<QApplication>(argc_, argv_);
    }
    void TearDown() override { application_.reset(); }

  private:
    QTemporaryDir folder_;
    int argc_ = 1;
    char name_[10] = "desk_test";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> application_;
};

const auto* const kDisplay = ::testing::AddGlobalTestEnvironment(new Display);

bool until(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, kPatience);
}

// Does something with the dialog that opens next.
void onDialog(const std::function<void(QWidget&)>& act) {
    auto* timer = new QTimer(qApp);
    QObject::connect(timer, &QTimer::timeout, qApp, [timer, act] {
        QWidget* const dialog = QApplication::activeModalWidget();
        if (dialog != nullptr && !dialog->property("met").toBool()) {
            dialog->setProperty("met", true);
            timer->deleteLater();
            act(*dialog);
        }
    });
    timer->start(5);
}

void press(QWidget& dialog, Qt::Key key) {
    QTest::keyClick(dialog.focusWidget() != nullptr ? dialog.focusWidget() : &dialog, key);
}

constexpr char kSchema[] =
    "CREATE TABLE spill (id INTEGER PRIMARY KEY, name TEXT NOT NULL, pounds INTEGER, note TEXT);"
    "INSERT INTO spill VALUES (1, 'Chlorine', 150, NULL), (2, 'Ammonia', 2000, 'cold'), (3, 'Acrolein', 370, '50%');"
    "CREATE TABLE word (text TEXT PRIMARY KEY) WITHOUT ROWID; INSERT INTO word VALUES ('one'), ('two');"
    "CREATE VIEW heavy AS SELECT * FROM spill WHERE pounds > 300;";

constexpr char kScripts[] = R"lua(
name = "Spills"
window { title = "Main.db" }
window { title = "Report & more...", width = 700, height = 500 }
menu { title = "&Tools", { "&Refresh...", key = "7" }, { "Off", enabled = false }, "A & B" }
field { table = "spill", column = "name", script = "Clicked" }
seen = ""
function note(text) seen = seen .. text .. ";" end
function scripts.Refresh() note("refresh") end
scripts["A & B"] = function() note("a and b") end
function scripts.Clicked(record)
    note("click " .. record.name)
    QUIL_External("MENU_WatchForDoubleClick", record.name .. "|open " .. record.name)
end
scripts["***"] = function() note("*** " .. QUIL_External("MENU_GetDoubleClickString")) end
function scripts.Add() db:exec("INSERT INTO spill (name, pounds) VALUES ('Phenol', 5), ('Hexane', 6)") end
function scripts.Fail() db:exec("DELETE FROM spill"); error("no luck") end
function scripts.Endless() while true do end end
function scripts.Ask() QUIL_External("GLN1ShowMessage", "Go on?") note("told") end
)lua";

class DeskTest : public ::testing::Test {
  protected:
    DeskTest() { open(kScripts, kSchema); }

    void open(const std::string& scripts, const std::string& schema) {
        desk_.reset();
        solution_ = std::make_unique<QTemporaryDir>();
        const std::string folder = solution_->path().toStdString();
        std::ofstream(folder + "/solution.lua") << scripts;
        std::ofstream(folder + "/schema.sql") << schema;
        context_.bundle = QUIL_BINARY_DIR "/QUIL.fmplugin";
        host::SolutionOptions options;
        options.folder = folder;
        desk_ = std::make_unique<Desk>(context_, options);
        desk_->idleNow();
        QCoreApplication::processEvents();
    }

    SolutionWindow& window(const char* title = "Main.db") {
        for (const auto& window : desk_->windows()) {
            if (window && window->windowTitle() == title) {
                return *window;
            }
        }
        throw std::runtime_error(std::string("no window ") + title);
    }
    std::string seen() {
        std::string text;
        desk_->solution().interpreter().protect([&](lua_State* state) {
            lua_getglobal(state, "seen");
            text = lua_tostring(state, -1);
        });
        return text;
    }
    QAction* action(const QString& menu, const QString& item) {
        for (QAction* const top : window().menuBar()->actions()) {
            if (top->text() == menu) {
                for (QAction* const each : top->menu()->actions()) {
                    if (each->text().startsWith(item)) {
                        return each;
                    }
                }
            }
        }
        ADD_FAILURE() << "no item " << item.toStdString() << " in " << menu.toStdString();
        return new QAction(&window());
    }
    QString text(int row, int column) { return window().records().fullText(row, column); }

    host::Context context_;
    std::unique_ptr<QTemporaryDir> solution_;
    std::unique_ptr<Desk> desk_;
};

TEST_F(DeskTest, AlertsHaveDefaultAndCancelButtonsAndFitTheScreen) {
    struct Case {
        const char* buttons[3];
        Qt::Key key;
        short pressed;
    };
    for (const Case& one :
         {Case{{"Yes", "No", "Cancel"}, Qt::Key_Return, 1}, Case{{"Yes", "No", "Cancel"}, Qt::Key_Escape, 3},
          Case{{"OK", "Later", ""}, Qt::Key_Escape, 2}, Case{{"OK", "", ""}, Qt::Key_Escape, 1}}) {
        onDialog([&](QWidget& dialog) { press(dialog, one.key); });
        EXPECT_EQ(one.pressed, quil::VariableDlg('M', "Question", one.buttons[0], one.buttons[1], one.buttons[2]));
    }
    const std::string lines(2047, '\r');
    const std::string word(2047, 'W');
    for (const std::string& message : {lines, word, std::string("a & b")}) {
        onDialog([&](QWidget& dialog) {
            const QSize screen = QApplication::primaryScreen()->availableSize();
            EXPECT_LE(dialog.height(), screen.height());
            EXPECT_LE(dialog.width(), screen.width());
            EXPECT_EQ("Caution", dialog.findChild<QLabel*>("heading")->text());
            auto* const button = dialog.findChild<QPushButton*>("button3");
            EXPECT_EQ("Save && go", button->text());
            const QLabel* const label = dialog.findChild<QLabel*>("message");
            EXPECT_LE(label->minimumSizeHint().width(), label->parentWidget()->width());
            QTest::mouseClick(button, Qt::LeftButton);
        });
        EXPECT_EQ(3, quil::VariableDlg('c', message.c_str(), "OK", "Cancel", "Save & go"));
    }
    // One that comes up inside another.
    onDialog([](QWidget& outer) {
        onDialog([](QWidget& inner) { inner.close(); });
        EXPECT_EQ(2, quil::VariableDlg('S', "inner", "OK", "No", ""));
        press(outer, Qt::Key_Return);
    });
    EXPECT_EQ(1, quil::VariableDlg('N', "outer", "OK", "", ""));
}

TEST_F(DeskTest, ChoosersRememberTheFolderAndSayWhenTheyAreCancelled) {
    const QString folder = solution_->path();
    platform::Chooser wanted;
    wanted.kind = platform::Chooser::Kind::write;
    wanted.title = "Save As";
    wanted.client = "test";
    wanted.proposed = "a/b.zip";
    platform::Choice choice;
    platform::Status error = 1;
    const auto choose = [&](const std::function<void(QFileDialog&)>& act) {
        onDialog([act](QWidget& dialog) { act(dynamic_cast<QFileDialog&>(dialog)); });
        return desk_->machine().dialogs().choose(wanted, choice, error);
    };
    const auto type = [](QFileDialog& dialog, const QString& name) {
        dialog.findChild<QLineEdit*>("fileNameEdit")->setText(name);
        press(dialog, Qt::Key_Return);
    };
    EXPECT_EQ(platform::ChooserOutcome::chosen, choose([&](QFileDialog& dialog) {
                  EXPECT_EQ("Save As", dialog.windowTitle());
                  EXPECT_EQ("a:b.zip", dialog.findChild<QLineEdit*>("fileNameEdit")->text());
                  type(dialog, folder + "/new.zip");
              }));
    EXPECT_EQ("new.zip", choice.name);
    EXPECT_EQ(0, error);
    EXPECT_EQ(platform::ChooserOutcome::cancelled, choose([&](QFileDialog& dialog) {
                  EXPECT_EQ(folder, dialog.directory().absolutePath());
                  dialog.reject();
              }));
    EXPECT_EQ("new.zip", choice.name);
}

TEST_F(DeskTest, MenusRunTheScriptsThatHaveTheItemsNames) {
    platform::Menus& menus = desk_->machine().menus();
    EXPECT_FALSE(menus.hasMenu(0) || menus.hasMenu(30) || menus.hasMenu(-1));
    EXPECT_EQ("", menus.itemText(30, 1));
    QAction* const refresh = action("&Tools", "&Refresh...");
    EXPECT_EQ(QKeySequence("Ctrl+7"), refresh->shortcut());
    refresh->trigger();
    EXPECT_FALSE(action("&Tools", "Off")->isEnabled());
    action("&Tools", "A && B")->trigger();
    EXPECT_EQ("refresh;a and b;", seen());
    QTest::keyClick(&window(), Qt::Key_7, Qt::ControlModifier);
    EXPECT_TRUE(until([this] { return seen() == "refresh;a and b;refresh;"; }));
    // Every script is in the menu "Scripts", for the user as for the plug-in.
    EXPECT_EQ("Scripts", menus.title(2));
    EXPECT_EQ(desk_->solution().scriptNames().size(), static_cast<std::size_t>(menus.itemCount(2)));
    action("Scripts", "Add");
    // Texts of any length; a change shows.
    platform::Menu longest;
    longest.title = std::string(255, 'T');
    longest.items = {{.text = std::string(300, '&')}, {.text = std::string(64, 'x') + "..."}};
    desk_->machine().deskMenus().setMenu(5, longest);
    EXPECT_TRUE(until([this] { return window().menuBar()->actions().size() == 8; }));
    for (const QAction* top : window().menuBar()->actions()) {
        EXPECT_LE(top->text().size(), 130);
    }
    open("-- nothing at all", "");
    EXPECT_EQ(1U, desk_->windows().size());
    EXPECT_EQ("Scripts", desk_->machine().menus().title(1));
    EXPECT_EQ(0, desk_->machine().menus().itemCount(1));
}

TEST_F(DeskTest, RecordsAreFoundSortedChangedAndPutBack) {
    SolutionWindow& main = window();
    ASSERT_TRUE(main.openTable("spill"));
    const auto names = [this, &main] {
        QString all;
        for (int row = 0; row < main.records().rowCount(); ++row) {
            all += text(row, 1) + ' ';
        }
        return all;
    };
    main.records().sort(1, Qt::AscendingOrder);
    EXPECT_EQ("Acrolein Ammonia Chlorine ", names());
    main.records().sort(2, Qt::DescendingOrder);
    EXPECT_EQ("Ammonia Acrolein Chlorine ", names());
    for (const auto& [column, what, found] :
         {std::tuple{"", "ol", "Ammonia Acrolein "}, std::tuple{"pounds", ">=370", "Ammonia Acrolein "},
          std::tuple{"name", "=ammonia", "Ammonia "}, std::tuple{"note", "%", "Acrolein "},
          std::tuple{"", "", "Ammonia Acrolein Chlorine "}}) {
        EXPECT_TRUE(main.find(column, what)) << what;
        EXPECT_EQ(found, names());
    }
    EXPECT_FALSE(main.find("", "nowhere"));
    EXPECT_EQ(3, main.records().rowCount());
    // An edit, a refused one, a script's changes: undone and redone one by one.
    host::desktop::Records& records = main.records();
    EXPECT_TRUE(records.setData(records.index(0, 3), "warm", Qt::EditRole));
    onDialog([](QWidget& dialog) { dialog.close(); });
    EXPECT_FALSE(records.setData(records.index(0, 0), "1", Qt::EditRole)) << "another record has that number";
    EXPECT_EQ("warm", text(0, 3));
    desk_->runScript("Add");
    EXPECT_TRUE(until([&] { return records.rowCount() == 5; }));
    EXPECT_EQ("&Undo script \"Add\"", action("&Edit", "&Undo")->text());
    desk_->undo();
    EXPECT_TRUE(until([&] { return records.rowCount() == 3; }));
    desk_->undo();
    EXPECT_TRUE(until([&] { return text(0, 3) == "cold"; }));
    desk_->redo();
    desk_->redo();
    EXPECT_TRUE(until([&] { return records.rowCount() == 5 && text(0, 3) == "warm"; }));
    EXPECT_TRUE(records.remove({0, 1}));
    EXPECT_TRUE(records.insert({std::nullopt, QString("New"), std::nullopt, std::nullopt}));
    EXPECT_TRUE(until([&] { return records.rowCount() == 4; }));
    // Tables without numbers, and views.
    EXPECT_TRUE(main.openTable("word"));
    EXPECT_TRUE(records.setData(records.index(0, 0), "uno", Qt::EditRole));
    EXPECT_TRUE(until([&] { return text(1, 0) == "uno"; }));
    EXPECT_TRUE(main.openTable("heavy"));
    EXPECT_FALSE(records.flags(records.index(0, 0)).testFlag(Qt::ItemIsEditable));
}

std::size_t residentMegabytes() {
    std::ifstream status("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    status >> all >> resident;
    return resident * 4096 >> 20;
}

TEST_F(DeskTest, AMillionRecordsAreScrolledAndFoundWithoutLoadingThem) {
    open("name = 'Many'",
         "CREATE TABLE record (id INTEGER PRIMARY KEY, name TEXT, amount REAL, note TEXT);"
         "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000000)"
         "INSERT INTO record SELECT i, 'Record ' || i, i * 0.5, 'a note of some length, as people write it' FROM n;");
    SolutionWindow& main = window("Many");
    auto* const list = main.findChild<QTableView*>("records");
    ASSERT_EQ(1'000'000, main.records().rowCount());
    for (int row = 0; row < 1'000'000; row += 9'999) {
        list->scrollTo(main.records().index(row, 0));
        QCoreApplication::processEvents();
    }
    EXPECT_EQ("Record 1000000", main.records().fullText(999'999, 1));
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(main.find("name", "999"));
    EXPECT_EQ(3'700, main.records().rowCount());
    std::printf("a find among 1,000,000 records: %lld ms; resident memory: %zu MB\n", timer.elapsed(),
                residentMegabytes());
#if !defined(__SANITIZE_ADDRESS__) && !__has_feature(address_sanitizer)
    EXPECT_LT(residentMegabytes(), 200U);
#endif
}

TEST_F(DeskTest, ADoubleClickOnAFieldReachesTheSolution) {
    SolutionWindow& main = window();
    ASSERT_TRUE(main.openTable("spill"));
    auto* const list = main.findChild<QTableView*>("records");
    const QPoint at = list->visualRect(main.records().index(1, 1)).center();
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
    EXPECT_TRUE(until([this] { return seen().find("***") != std::string::npos; })) << seen();
    EXPECT_EQ("click Ammonia;click Ammonia;*** open Ammonia;", seen());
    EXPECT_EQ(nullptr, list->viewport()->findChild<QLineEdit*>()) << "the click is the script's";
}

TEST_F(DeskTest, AWindowThatWantsToStayInFrontIsWatched) {
    SolutionWindow& report = window("Report & more...");
    const auto activate = [this](SolutionWindow& shown) {
        shown.activateWindow();
        return until([&] { return desk_->machine().deskWindows().frontWidget() == &shown; });
    };
    ASSERT_TRUE(activate(window()));
    desk_->evaluate("QUIL_External('MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement', 'Main')");
    for (int i = 0; i < 3; ++i) {
        desk_->solution().idle();
    }
    EXPECT_EQ("", seen());
    ASSERT_TRUE(activate(report));
    EXPECT_TRUE(until([this] { return seen() == "*** ;"; }));
    // It closes while it enforces.
    ASSERT_TRUE(activate(window()));
    desk_->evaluate("QUIL_External('MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement', 'Main')");
    window().close();
    EXPECT_TRUE(until([this] { return seen() == "*** ;*** ;"; }));
}

TEST_F(DeskTest, TheProgressBoxIsDrawnOverTheFrontWindowUntilTheScriptEnds) {
    platform::Windows& windows = desk_->machine().windows();
    const platform::Rect content = windows.portRect(windows.front());
    platform::ProgressBox box;
    const auto left = static_cast<std::int16_t>((content.right - 400) / 2);
    box.frame = {100, left, 170, static_cast<std::int16_t>(left + 400)};
    box.text = "Collecting 500 found IDs";
    box.fraction = 0.5;
    windows.drawProgress(windows.front(), box);
    QWidget* const front = desk_->machine().deskWindows().frontWidget();
    QWidget* const drawn = front->findChild<QWidget*>("progress");
    ASSERT_NE(nullptr, drawn);
    EXPECT_EQ(QRect(left, 100, 400, 70), drawn->geometry());
    const QImage image = drawn->grab().toImage();
    const double ratio = image.devicePixelRatio();
    const auto colour = [&](int x, int y) { return image.pixelColor(QPoint(x, y) * ratio); };
    EXPECT_EQ(QColor(Qt::black), colour(0, 35));
    EXPECT_EQ(QColor(Qt::white), colour(10, 40));
    EXPECT_EQ(QColor(Qt::black), colour(20, 40));
    EXPECT_EQ(QColor(Qt::blue), colour(100, 40));
    EXPECT_EQ(QColor(Qt::white), colour(300, 40));
    EXPECT_EQ(QColor(Qt::white), colour(100, 55));
    desk_->runScript("Refresh");
    EXPECT_EQ(nullptr, front->findChild<QWidget*>("progress"));
}

TEST_F(DeskTest, AScriptThatFailsIsToldOnceAndOneWithoutEndCanBeCancelled) {
    int dialogs = 0;
    onDialog([&](QWidget& dialog) {
        ++dialogs;
        auto& box = dynamic_cast<QMessageBox&>(dialog);
        EXPECT_EQ("script \"Fail\" failed and its changes were undone:", box.text());
        EXPECT_NE(-1, box.informativeText().indexOf("no luck"));
        box.close();
    });
    desk_->runScript("Fail");
    EXPECT_EQ(1, dialogs);
    onDialog([](QWidget& dialog) { press(dialog, Qt::Key_Return); });
    desk_->runScript("Ask");
    EXPECT_EQ("told;", seen());
    // The same from inside an idle call, which runs what the plug-in queued.
    onDialog([](QWidget& dialog) { press(dialog, Qt::Key_Escape); });
    desk_->evaluate("seen = ''; QUIL_External('GLN1CallScript', 'Ask')");
    EXPECT_TRUE(until([this] { return seen() == "told;"; }));
    window().openTable("spill");
    EXPECT_EQ(3, window().records().rowCount());
    // Its progress shows, with a button that the user can press; other input waits.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (auto* const cancel = window().findChild<QPushButton*>("cancel"); cancel->isVisible()) {
            watch.stop();
            action("&Tools", "&Refresh...")->trigger();
            onDialog([](QWidget& dialog) { dialog.close(); });
            QTest::mouseClick(cancel, Qt::LeftButton);
        }
    });
    watch.start(10);
    desk_->runScript("Endless");
    EXPECT_FALSE(desk_->working());
    EXPECT_EQ("told;", seen());
    EXPECT_FALSE(window().findChild<QPushButton*>("cancel")->isVisible());
    // Closing the desk asks a script to stop.
    QTimer::singleShot(50, &window(), [this] { desk_->quit(); });
    desk_->runScript("Endless");
    EXPECT_TRUE(desk_->solution().life().over());
}

TEST_F(DeskTest, ThreatZonesAreDrawnAndSaved) {
    open(
        "name = 'Zones'",
        "CREATE TABLE release (chemical, state, level_of_concern, amount, concentration, duration, screening, latitude,"
        " longitude); INSERT INTO release VALUES ('Chlorine', 'gas', '0.0087 g/m3', '150 lb', '100', '10 min', 'yes', "
        "52,"
        " 4.5), ('Tar', 'gas', 'much', '', '', '', '', '', '');");
    host::desktop::ThreatZone& zone = host::desktop::openThreatZone(*desk_);
    ASSERT_EQ(2, zone.releases());
    ASSERT_TRUE(zone.result().footprint.has_value());
    EXPECT_EQ("1.9", zone.result().distance);
    for (const char* name : {"zone.svg", "zone.png", "zone.geojson", "zone.kml"}) {
        const QString file = solution_->filePath(name);
        zone.save(file);
        EXPECT_GT(QFileInfo(file).size(), 500) << name;
    }
    QPrinter printer;
    printer.setOutputFileName(solution_->filePath("zone.pdf"));
    EXPECT_TRUE(zone.printTo(printer));
    EXPECT_GT(QFileInfo(solution_->filePath("zone.pdf")).size(), 1000);
    EXPECT_THROW(zone.save(solution_->filePath("zone.doc")), host::HostError);
    zone.set("wind", "200 mph");
    EXPECT_TRUE(zone.problem().startsWith("Wind: ")) << zone.problem().toStdString();
    EXPECT_THROW(zone.save(solution_->filePath("none.svg")), host::HostError);
    onDialog([](QWidget& dialog) { dialog.close(); });
    zone.choose(1);
}

}  // namespace
