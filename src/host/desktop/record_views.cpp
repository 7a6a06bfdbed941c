#include "host/desktop/record_views.h"

#include <QApplication>
#include <QFormLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QScrollBar>
#include <algorithm>

#include "host/desktop/machine.h"
#include "host/desktop/records.h"
#include "host/desktop/solution_window.h"

namespace host::desktop {

namespace {

constexpr int kWidestColumn = 320;
constexpr int kRowsMeasured = 40;
constexpr int kMostLines = 6;

}  // namespace

RecordList::RecordList(SolutionWindow& window, QWidget* parent) : QTableView(parent), window_(window) {
    setObjectName("records");
    setAccessibleName("Found records");
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    setEditTriggers(EditKeyPressed | DoubleClicked);
    setTabKeyNavigation(false);
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    verticalHeader()->hide();
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void RecordList::fitColumns() {
    const QAbstractItemModel* const records = model();
    for (int column = 0; column < records->columnCount(); ++column) {
        int width = fontMetrics().horizontalAdvance(records->headerData(column, Qt::Horizontal).toString()) + 34;
        for (int row = 0; row < std::min(kRowsMeasured, records->rowCount()); ++row) {
            width =
                std::max(width, fontMetrics().horizontalAdvance(records->index(row, column).data().toString()) + 16);
        }
        setColumnWidth(column, std::min(width, kWidestColumn));
    }
}

// Each press counts: the second one of a double click, too.
void RecordList::click(QMouseEvent* event) {
    const QModelIndex index = indexAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && index.isValid()) {
        window_.clicked(index.row(), index.column(), event->globalPosition().toPoint());
    }
}

void RecordList::mousePressEvent(QMouseEvent* event) {
    QTableView::mousePressEvent(event);
    click(event);
}

void RecordList::mouseDoubleClickEvent(QMouseEvent* event) {
    QTableView::mouseDoubleClickEvent(event);
    click(event);
}

void RecordList::keyPressEvent(QKeyEvent* event) {
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && state() != EditingState) {
        const QModelIndex index = currentIndex();
        if (!index.isValid() || !window_.clicked(index.row(), index.column(), {})) {
            window_.showForm(true);
        }
        return;
    }
    QTableView::keyPressEvent(event);
}

bool RecordList::edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) {
    if (trigger == DoubleClicked && index.isValid() && window_.isWatched(index.column())) {
        return false;
    }
    return QTableView::edit(index, trigger, event);
}

// Fields.

FieldEdit::FieldEdit(QWidget* parent) : QPlainTextEdit(parent) {
    setTabChangesFocus(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setLineWrapMode(NoWrap);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

void FieldEdit::fill(const QString& text, bool readOnly) {
    filled_ = text;
    setPlainText(text);
    setReadOnly(readOnly);
    const int lines = std::clamp(static_cast<int>(text.count('\n')) + 1, 1, kMostLines);
    setVerticalScrollBarPolicy(lines == kMostLines ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    setFixedHeight(lines * fontMetrics().lineSpacing() + 2 * static_cast<int>(document()->documentMargin()) + 4);
    document()->setModified(false);
}

void FieldEdit::leave() {
    if (!isReadOnly() && done && toPlainText() != filled_) {
        filled_ = toPlainText();
        done();
    }
}

void FieldEdit::focusOutEvent(QFocusEvent* event) {
    QPlainTextEdit::focusOutEvent(event);
    if (event->reason() != Qt::PopupFocusReason && event->reason() != Qt::ActiveWindowFocusReason) {
        leave();
    }
}

void FieldEdit::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (event->modifiers().testFlag(Qt::AltModifier)) {
            insertPlainText("\n");
        } else if (!pressed || !pressed(mapToGlobal(cursorRect().center()))) {
            focusNextChild();
        }
        return;
    }
    if (event->key() == Qt::Key_Escape && toPlainText() != filled_) {
        setPlainText(filled_);
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void FieldEdit::mousePressEvent(QMouseEvent* event) {
    QPlainTextEdit::mousePressEvent(event);
    if (event->button() == Qt::LeftButton && pressed) {
        pressed(event->globalPosition().toPoint());
    }
}

void FieldEdit::mouseDoubleClickEvent(QMouseEvent* event) {
    QPlainTextEdit::mouseDoubleClickEvent(event);
    if (event->button() == Qt::LeftButton && pressed) {
        pressed(event->globalPosition().toPoint());
    }
}

RecordForm::RecordForm(SolutionWindow& window, QWidget* parent)
    : QWidget(parent), window_(window), layout_(new QFormLayout(this)) {
    setObjectName("form");
    layout_->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout_->setLabelAlignment(Qt::AlignRight);
    layout_->setFormAlignment(Qt::AlignTop);
    layout_->setContentsMargins(16, 16, 16, 16);
}

void RecordForm::makeFields() {
    while (layout_->rowCount() > 0) {
        layout_->removeRow(0);
    }
    fields_.clear();
    row_ = -1;
    const Table& table = window_.records().table();
    for (int i = 0; i < static_cast<int>(table.columns.size()); ++i) {
        auto* field = new FieldEdit(this);
        const QString name = table.columns[static_cast<std::size_t>(i)].name;
        field->setAccessibleName(name);
        field->setObjectName("field " + name);
        auto* label = new QLabel(literal(lineOf(name.toStdString(), 40)) + ':', this);
        label->setBuddy(field);
        layout_->addRow(label, field);
        field->done = [this, i, field] {
            Records& records = window_.records();
            if (row_ >= 0 && !records.setData(records.index(row_, i), field->text(), Qt::EditRole)) {
                fill(row_);
            }
        };
        field->pressed = [this, i](QPoint where) { return row_ >= 0 && window_.clicked(row_, i, where); };
        fields_.push_back(field);
    }
    setTabOrder(this, fields_.empty() ? this : static_cast<QWidget*>(fields_.front()));
}

void RecordForm::fill(int row) {
    row_ = row;
    Records& records = window_.records();
    for (int i = 0; i < static_cast<int>(fields_.size()); ++i) {
        FieldEdit* const field = fields_[static_cast<std::size_t>(i)];
        const bool changeable = row >= 0 && records.flags(records.index(row, i)).testFlag(Qt::ItemIsEditable);
        field->fill(row < 0 ? QString() : records.fullText(row, i), !changeable);
        field->setEnabled(row >= 0);
    }
}

}  // namespace host::desktop
