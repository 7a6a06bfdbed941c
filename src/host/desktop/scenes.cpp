// Pictures of the windows, made by driving them as a user would.
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QTimer>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/desktop/desk.h"
#include "host/desktop/later.h"
#include "host/desktop/messages_panel.h"
#include "host/desktop/solution_window.h"
#include "host/desktop/start.h"
#include "host/desktop/threat_zone.h"

namespace host::desktop {

namespace {

class Scenes {
  public:
    Scenes(Desk& desk, const std::string& folder) : desk_(desk), folder_(QString::fromStdString(folder)) {}

    void run() {
        dismiss();
        setAppearance(Appearance::light);
        SolutionWindow& window = *desk_.windows().front();
        settle();
        save(window, "start");
        menu(window);
        if (window.openTable("inventory")) {
            window.records().sort(4, Qt::AscendingOrder);
            window.find("chemical", "ammonia");
        }
        save(window, "found-set");
        window.showForm(true);
        save(window, "form");
        window.showForm(false);
        window.records().showAll();
        alert();
        chooser();
        progress(window);
        ThreatZone& zone = openThreatZone(desk_);
        zone.choose(std::min(4, zone.releases() - 1));
        zone.set("wind-from", "230");
        save(zone, "threat-zone");
        MessagesPanel& panel = openMessagesPanel(desk_, true);
        panel.enter("QUIL_Version()");
        panel.enter("db:value('SELECT count(*) FROM sqlite_schema')");
        save(panel, "console");
        panel.enter("QUIL_External('GLN1SetGlobal', 'Facility|North Water Works')");
        panel.showTab(4);
        save(panel, "globals");
        messages();
        panel.showTab(2);
        save(panel, "waiting");
        panel.showTab(1);
        panel.openLatest();
        save(panel, "messages-panel");
        zone.hide();
        panel.hide();
        setAppearance(Appearance::dark);
        window.openTable("inventory");
        save(window, "dark");
        zone.show();
        save(zone, "dark-threat-zone");
        zone.hide();
    }

    int failures() const { return failures_; }

  private:
    void settle() {
        for (int i = 0; i < 5; ++i) {
            QCoreApplication::sendPostedEvents();
            QCoreApplication::processEvents();
        }
    }

    void save(QWidget& window, const QString& name) {
        settle();
        const QString file = folder_ + '/' + name + ".png";
        const QImage picture = window.grab().toImage();
        if (isEmpty(picture) || !picture.save(file)) {
            std::fprintf(stderr, "quil: cannot write %s\n", file.toUtf8().constData());
            ++failures_;
        }
    }

    static bool isEmpty(const QImage& picture) {
        const QRgb first = picture.pixel(0, 0);
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                if (picture.pixel(x, y) != first) {
                    return false;
                }
            }
        }
        return true;
    }

    // Nobody is there to answer what was not expected.
    void dismiss() {
        auto* timer = new QTimer(qApp);
        QObject::connect(timer, &QTimer::timeout, qApp, [this] {
            if (QWidget* const dialog = taking_ ? nullptr : QApplication::activeModalWidget()) {
                dialog->close();
            }
        });
        timer->start(100);
    }

    // Takes the picture of whatever dialog opens, and then closes it.
    void takeDialog(const QString& name) {
        taking_ = true;
        auto* timer = new QTimer(qApp);
        QObject::connect(timer, &QTimer::timeout, qApp, [this, timer, name] {
            if (QWidget* const dialog = QApplication::activeModalWidget()) {
                timer->deleteLater();
                save(*dialog, name);
                dialog->close();
                taking_ = false;
            }
        });
        timer->start(20);
    }

    void menu(SolutionWindow& window) {
        for (QAction* action : window.menuBar()->actions()) {
            if (action->text() == "Scripts") {
                action->menu()->popup(window.mapToGlobal(QPoint(180, 20)));
                save(*action->menu(), "scripts-menu");
                action->menu()->hide();
            }
        }
    }

    void alert() {
        platform::Dialog dialog;
        dialog.items.resize(7);
        const char* const titles[] = {"Send Again", "Cancel", "Show Map"};
        for (std::size_t i = 1; i <= 3; ++i) {
            dialog.item(i).kind = platform::ItemKind::button;
            dialog.item(i).text = titles[i - 1];
        }
        dialog.kind = 'W';
        dialog.cancelItem = 2;
        dialog.reference =
            "The mapping application did not answer. The footprint of \"Acrylonitrile, 80000 lb tank\" was not shown "
            "on its map.\rSend the message again, or look at the map without it?";
        dialog.item(5).kind = platform::ItemKind::user;
        dialog.item(5).draw = [](platform::Dialog& drawn, std::int16_t) {
            platform::machine().dialogs().drawTextBox(drawn, drawn.reference, {});
        };
        dialog.item(6).kind = platform::ItemKind::icon;
        dialog.item(6).icon = 2;
        dialog.item(7).kind = platform::ItemKind::staticText;
        dialog.item(7).text = "Warning";
        takeDialog("alert");
        desk_.machine().dialogs().runModal(dialog);
    }

    void chooser() {
        platform::Chooser wanted;
        wanted.kind = platform::Chooser::Kind::write;
        wanted.title = "Save As";
        wanted.client = "scenes";
        wanted.proposed = "submission.zip";
        platform::Choice choice;
        platform::Status error = 0;
        takeDialog("chooser");
        desk_.machine().dialogs().choose(wanted, choice, error);
    }

    void progress(SolutionWindow& window) {
        platform::Windows& windows = desk_.machine().windows();
        const platform::Rect content = windows.portRect(windows.front());
        const auto left = static_cast<std::int16_t>((content.right - 400) / 2);
        const auto top = static_cast<std::int16_t>((content.bottom - 70) / 2);
        platform::ProgressBox box;
        box.frame = {top, left, static_cast<std::int16_t>(top + 70), static_cast<std::int16_t>(left + 400)};
        box.text = "Collecting 12500 found IDs";
        box.fraction = 0.42;
        box.erase = true;
        windows.drawProgress(windows.front(), box);
        save(window, "progress");
        desk_.machine().deskWindows().repaint();
    }

    // A message that the host sends to itself, as a partner would.
    void messages() {
        using platform::operator""_4;
        for (const char* call :
             {"QUIL_External('GLN1SetHandledMessages', 'SHOW|HILI')",
              "QUIL_External('GLN1SetMessageHandlingScriptTo', 'Screen')", "QUIL_External('GLN1InitIAC')"}) {
            desk_.evaluate(call);
        }
        platform::Event event;
        event.eventClass = "QUIL"_4;
        event.eventID = "AEVT"_4;
        event.target = desk_.context().machine.signature;
        for (const auto& [message, name] : {std::pair{"SHOW", "Glassworks"}, std::pair{"SHOW", "Harbour Cold Store"}}) {
            event.parameters = {{"MSSG"_4, "TEXT"_4, message, false},
                                {"SIGN"_4, "TEXT"_4, "GLN1", false},
                                {"NAME"_4, "TEXT"_4, name, false},
                                {"LAT "_4, "TEXT"_4, "52.1", false},
                                {"LONG"_4, "TEXT"_4, "4.5", false}};
            desk_.machine().events().send(event);
            desk_.machine().events().dispatch();
        }
    }

    Desk& desk_;
    QString folder_;
    int failures_ = 0;
    bool taking_ = false;  // of a picture of a dialog
};

// How long after the start of the process the first window is painted.
class FirstPaint : public QObject {
  protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint && !std::exchange(painted_, true)) {
            std::printf("first window painted %.2f s after the start\n", age());
            std::fflush(stdout);
        }
        return false;
    }

  private:
    // The 22nd field of the process's line is when it began, in clock ticks since the system did.
    static double age() {
        std::ifstream file("/proc/self/stat");
        const std::string line{std::istreambuf_iterator<char>(file), {}};
        std::istringstream fields(line.substr(line.rfind(')') + 2));
        std::string field;
        for (int i = 3; i <= 22; ++i) {
            fields >> field;
        }
        timespec now{};
        clock_gettime(CLOCK_BOOTTIME, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 -
               std::stod(field) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    bool painted_ = false;
};

}  // namespace

int runScenes(Desk& desk, const std::string& folder) {
    QDir().mkpath(QString::fromStdString(folder));
    FirstPaint firstPaint;
    desk.windows().front()->installEventFilter(&firstPaint);
    Scenes scenes(desk, folder);
    later(qApp, [&] {
        if (desk.solution().hasScript("Start")) {
            desk.runScript("Start");
        }
        scenes.run();
        desk.quit();
    });
    QApplication::exec();
    return scenes.failures() == 0 ? 0 : 1;
}

}  // namespace host::desktop
