// The menu bar of a solution's window: the desk's own menus around those of the solution.
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QStackedWidget>
#include <QTableView>

#include "host/desktop/desk.h"
#include "host/desktop/messages_panel.h"
#include "host/desktop/record_views.h"
#include "host/desktop/solution_window.h"
#include "host/desktop/threat_zone.h"

namespace host::desktop {

namespace {

constexpr int kLongestItem = 64;  // characters; a menu is no wider than a screen

// '&' before a letter or digit marks the letter to type; any other is one to see.
QString labelOf(std::string_view text) {
    const QString line = lineOf(text, kLongestItem);
    QString label;
    for (int i = 0; i < line.size(); ++i) {
        const bool marks = line[i] == '&' && i + 1 < line.size() && line[i + 1].isLetterOrNumber();
        label += line[i];
        if (line[i] == '&' && !marks) {
            label += '&';
            i += i + 1 < line.size() && line[i + 1] == '&' ? 1 : 0;
        }
    }
    return label;
}

QKeySequence sequenceOf(char commandKey) {
    return commandKey == 0 ? QKeySequence() : QKeySequence(QString("Ctrl+") + QChar(commandKey).toUpper());
}

}  // namespace

// The solution's command keys come before the desk's own.
bool SolutionWindow::isTaken(const QKeySequence& key) const {
    for (const auto& [id, menu] : desk_.machine().deskMenus().menus()) {
        for (const platform::MenuItem& item : menu.items) {
            if (item.commandKey != 0 && sequenceOf(item.commandKey) == key) {
                return true;
            }
        }
    }
    return false;
}

QAction* SolutionWindow::add(QMenu* menu, const QString& text, const QKeySequence& key,
                             const std::function<void()>& job) {
    QAction* const action = menu->addAction(text);
    if (!key.isEmpty() && !isTaken(key)) {
        action->setShortcut(key);
    }
    connect(action, &QAction::triggered, this, job);
    return action;
}

void SolutionWindow::makeMenus() {
    menuBar()->clear();
    for (QMenu* menu : menuBar()->findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly)) {
        menu->deleteLater();
    }
    changing_.clear();
    makeFileMenu();
    makeEditMenu();
    makeRecordMenu();
    makeViewMenu();
    makeSolutionMenus();
    makeWindowMenu();
    updateActions();
}

void SolutionWindow::makeFileMenu() {
    QMenu* const menu = menuBar()->addMenu("&File");
    add(menu, "&Threat Zone...", QKeySequence("Ctrl+T"), [this] { openThreatZone(desk_); });
    menu->addSeparator();
    add(menu, "&Close Window", QKeySequence("Ctrl+W"), [this] { close(); });
    add(menu, "&Quit", QKeySequence("Ctrl+Q"), [this] { desk_.quit(); });
}

void SolutionWindow::makeEditMenu() {
    QMenu* const menu = menuBar()->addMenu("&Edit");
    undo_ = add(menu, "&Undo", QKeySequence("Ctrl+Z"), [this] { desk_.undo(); });
    redo_ = add(menu, "&Redo", QKeySequence("Ctrl+Shift+Z"), [this] { desk_.redo(); });
    menu->addSeparator();
    add(menu, "&Copy Records", QKeySequence("Ctrl+Shift+C"), [this] { copyRecords(); });
}

void SolutionWindow::makeRecordMenu() {
    QMenu* const menu = menuBar()->addMenu("&Records");
    changing_.push_back(add(menu, "&New Record...", QKeySequence("Ctrl+N"), [this] { newRecord(); }));
    changing_.push_back(add(menu, "&Delete Records", QKeySequence("Ctrl+Backspace"), [this] { deleteRecords(); }));
    menu->addSeparator();
    add(menu, "&Find...", QKeySequence("Ctrl+F"), [this] {
        findText_->setFocus();
        findText_->selectAll();
    });
    add(menu, "Show &All", QKeySequence("Ctrl+J"), [this] { find({}, {}); });
    menu->addSeparator();
    const auto sort = [this](Qt::SortOrder order) {
        if (list_->currentIndex().isValid()) {
            records_->sort(list_->currentIndex().column(), order);
        }
    };
    add(menu, "Sort by This Field, A to &Z", QKeySequence("Ctrl+Shift+Up"), [sort] { sort(Qt::AscendingOrder); });
    add(menu, "Sort by This Field, Z to A", QKeySequence("Ctrl+Shift+Down"), [sort] { sort(Qt::DescendingOrder); });
    add(menu, "&Unsort", {}, [this] { records_->unsort(); });
    menu->addSeparator();
    add(menu, "&Previous Record", QKeySequence("Ctrl+Up"), [this] { moveBy(-1); });
    add(menu, "Ne&xt Record", QKeySequence("Ctrl+Down"), [this] { moveBy(1); });
}

void SolutionWindow::makeViewMenu() {
    QMenu* const menu = menuBar()->addMenu("&View");
    add(menu, "As &List", QKeySequence("Ctrl+L"), [this] { showForm(false); });
    add(menu, "As For&m", QKeySequence("Ctrl+U"), [this] { showForm(true); });
    menu->addSeparator();
    auto* group = new QActionGroup(menu);
    for (const auto& [text, value] : {std::pair{"&Follow the Desktop's Colours", Appearance::system},
                                      std::pair{"Li&ght", Appearance::light}, std::pair{"&Dark", Appearance::dark}}) {
        const Appearance wanted = value;
        QAction* const action = add(menu, text, {}, [wanted] { setAppearance(wanted); });
        action->setCheckable(true);
        action->setChecked(appearance() == wanted);
        group->addAction(action);
    }
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the menu owns the group

void SolutionWindow::makeSolutionMenus() {
    for (const auto& [id, menu] : desk_.machine().deskMenus().menus()) {
        QMenu* const shown = menuBar()->addMenu(labelOf(menu.title));
        shown->setEnabled(menu.enabled);
        shown->menuAction()->setEnabled(menu.enabled);
        for (const platform::MenuItem& item : menu.items) {
            QAction* const action = shown->addAction(labelOf(item.text));
            action->setEnabled(item.enabled && menu.enabled);
            action->setShortcut(sequenceOf(item.commandKey));
            connect(action, &QAction::triggered, &desk_, [desk = &desk_, text = item.text] { desk->choose(text); });
        }
    }
}

void SolutionWindow::makeWindowMenu() {
    QMenu* const menu = menuBar()->addMenu("&Window");
    add(menu, "&Messages", QKeySequence("Ctrl+M"), [this] { openMessagesPanel(desk_, false); });
    add(menu, "Script &Console", QKeySequence("Ctrl+K"), [this] { openMessagesPanel(desk_, true); });
    menu->addSeparator();
    QAction* const end = menu->addSeparator();
    connect(menu, &QMenu::aboutToShow, this, [this, menu, end] {
        const QList<QAction*> actions = menu->actions();
        for (qsizetype i = actions.indexOf(end) + 1; i < actions.size(); ++i) {
            actions[i]->deleteLater();
            menu->removeAction(actions[i]);
        }
        for (const auto& window : desk_.windows()) {
            if (window) {
                QAction* const action =
                    menu->addAction(literal(lineOf(window->windowTitle().toStdString(), kLongestItem)));
                action->setCheckable(true);
                action->setChecked(window == this);
                connect(action, &QAction::triggered, window, [shown = window] {
                    shown->raise();
                    shown->activateWindow();
                });
            }
        }
    });
}

}  // namespace host::desktop
