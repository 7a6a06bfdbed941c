// A window of the solution: its menus, and the records of its tables as a list and as a form.
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <vector>

#include "host/desktop/records.h"
#include "platform/windows.h"

class QAction;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QTableView;

namespace host::desktop {

class Desk;
class RecordForm;
class RecordList;

class SolutionWindow : public QMainWindow {
  public:
    SolutionWindow(Desk& desk, platform::WindowRef window, QSize content);

    void makeMenus();
    void updateActions();
    // Shows what is at work, with "Cancel"; the empty text: nothing is.
    void showWork(const QString& what);
    void showPrinted(const QString& text);
    void refreshRows();  // draws again what could not be read while something worked
    void reload();       // finds the records again

    void remember();  // its place and table, for the next time

    bool openTable(const QString& name);
    bool find(const QString& column, const QString& text);
    void showForm(bool form);
    void newRecord();
    Records& records() { return *records_; }
    int currentRow() const;
    // Runs the script that is attached to a field. False when there is none.
    bool clicked(int row, int column, std::optional<QPoint> where);
    bool isWatched(int column) const;

  protected:
    bool event(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    void makeContent();
    void makeStatusBar();
    void makeFileMenu();
    void makeEditMenu();
    void makeRecordMenu();
    void makeViewMenu();
    void makeSolutionMenus();
    void makeWindowMenu();
    QAction* add(class QMenu* menu, const QString& text, const QKeySequence& key, const std::function<void()>& job);
    bool isTaken(const QKeySequence& key) const;
    void setChanged();
    bool sortedDown() const;
    void tableChanged();
    void moveBy(int rows);
    void startFind();
    void copyRecords();
    void deleteRecords();
    std::string settingsKey() const;

    Desk& desk_;
    platform::WindowRef window_;
    std::vector<Table> tables_;
    Records* records_;
    bool fitted_ = false;  // the columns, to records that are there
    QComboBox* table_ = nullptr;
    QComboBox* findIn_ = nullptr;
    QLineEdit* findText_ = nullptr;
    QPushButton* showAll_ = nullptr;
    QPushButton* formButton_ = nullptr;
    QStackedWidget* views_ = nullptr;
    RecordList* list_ = nullptr;
    RecordForm* form_ = nullptr;
    QScrollArea* formArea_ = nullptr;
    QLabel* place_ = nullptr;
    QLabel* workText_ = nullptr;
    QProgressBar* workBar_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QAction* undo_ = nullptr;
    QAction* redo_ = nullptr;
    std::vector<QAction*> changing_;  // those that change records
};

}  // namespace host::desktop
