// The two layouts of a found set: a list, and a form with one record.
#pragma once

#include <QPersistentModelIndex>
#include <QPlainTextEdit>
#include <QTableView>
#include <QWidget>
#include <functional>
#include <vector>

class QFormLayout;

namespace host::desktop {

class Records;
class SolutionWindow;

class RecordList : public QTableView {
  public:
    RecordList(SolutionWindow& window, QWidget* parent);
    // Wide enough for what the first records hold.
    void fitColumns();

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) override;

  private:
    void click(QMouseEvent* event);
    SolutionWindow& window_;
};

// A field of a form: one line, or more when its text has more. Return ends it, Alt-Return begins a line.
class FieldEdit : public QPlainTextEdit {
  public:
    explicit FieldEdit(QWidget* parent);
    void fill(const QString& text, bool readOnly);
    QString text() const { return toPlainText(); }

    std::function<void()> done;           // the user left the field with another text in it
    std::function<bool(QPoint)> pressed;  // true: a script takes care of it

  protected:
    void focusOutEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

  private:
    void leave();
    QString filled_;
};

class RecordForm : public QWidget {
  public:
    RecordForm(SolutionWindow& window, QWidget* parent);
    void makeFields();   // for the table that is shown
    void fill(int row);  // -1: none
    const std::vector<FieldEdit*>& fields() const { return fields_; }

  private:
    SolutionWindow& window_;
    QFormLayout* layout_;
    std::vector<FieldEdit*> fields_;
    int row_ = -1;
};

}  // namespace host::desktop
