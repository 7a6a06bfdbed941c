#include "host/desktop/solution_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QStackedWidget>
#include <QStatusBar>
#include <QVBoxLayout>
#include <algorithm>

#include "host/desktop/desk.h"
#include "host/desktop/later.h"
#include "host/desktop/record_views.h"

namespace host::desktop {

namespace {

constexpr int kSmallestWidth = 420;
constexpr int kSmallestHeight = 300;

QString grouped(std::int64_t number) {
    return QLocale(QLocale::English).toString(static_cast<qlonglong>(number));
}

}  // namespace

SolutionWindow::SolutionWindow(Desk& desk, platform::WindowRef window, QSize content)
    : desk_(desk), window_(window), records_(new Records(desk, this)) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(lineOf(desk.machine().deskWindows().title(window)));
    setObjectName("solution window");
    setMinimumSize(kSmallestWidth, kSmallestHeight);
    makeContent();
    makeStatusBar();
    makeMenus();
    try {
        tables_ = tablesOf(desk.solution().records());
    } catch (const HostError& error) {
        desk.fail(error.what());
    }
    for (const Table& table : tables_) {
        table_->addItem(QString::fromStdString(table.name));
    }
    records_->changed = [this] { setChanged(); };
    QSettings settings;
    const std::string key = settingsKey();
    if (!restoreGeometry(settings.value(QString::fromStdString(key + "/geometry")).toByteArray())) {
        resize(std::max(content.width(), kSmallestWidth), std::max(content.height(), kSmallestHeight));
    }
    const QString table = settings.value(QString::fromStdString(key + "/table")).toString();
    if (!openTable(table) && !tables_.empty()) {
        openTable(QString::fromStdString(tables_.front().name));
    }
    list_->setFocus();
    updateActions();
}

// One for each window of each solution.
std::string SolutionWindow::settingsKey() const {
    const std::size_t folder = std::hash<std::string>()(desk_.solution().folder());
    return "windows/" + std::to_string(folder) + '/' +
           std::to_string(std::hash<std::string>()(desk_.machine().deskWindows().title(window_)));
}

void SolutionWindow::makeContent() {
    auto* content = new QWidget(this);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    auto* row = new QHBoxLayout;
    row->setContentsMargins(10, 8, 10, 8);
    row->setSpacing(8);
    const auto label = [&](const QString& text, QWidget* buddy) {
        auto* words = new QLabel(text, content);
        words->setBuddy(buddy);
        row->addWidget(words);
        row->addWidget(buddy);
    };
    table_ = new QComboBox(content);
    table_->setObjectName("table");
    table_->setAccessibleName("Table");
    table_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    label("&Table:", table_);
    connect(table_, &QComboBox::activated, this, [this] { openTable(table_->currentText()); });
    row->addSpacing(12);
    findText_ = new QLineEdit(content);
    findText_->setObjectName("find");
    findText_->setAccessibleName("Find");
    findText_->setPlaceholderText("text, or = < > value");
    findText_->setClearButtonEnabled(true);
    label("F&ind:", findText_);
    connect(findText_, &QLineEdit::returnPressed, this, [this] { startFind(); });
    findIn_ = new QComboBox(content);
    findIn_->setObjectName("find in");
    findIn_->setAccessibleName("Field to find in");
    findIn_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    row->addWidget(findIn_);
    const auto button = [&](const QString& text, const std::function<void()>& job) {
        auto* made = new QPushButton(text, content);
        made->setAutoDefault(false);
        connect(made, &QPushButton::clicked, this, job);
        row->addWidget(made);
        return made;
    };
    button("Fin&d", [this] { startFind(); });
    showAll_ = button("Show &All", [this] { find({}, {}); });
    formButton_ = button("For&m", [this] { showForm(views_->currentIndex() == 0); });
    formButton_->setCheckable(true);
    column->addLayout(row);

    views_ = new QStackedWidget(content);
    list_ = new RecordList(*this, views_);
    list_->setModel(records_);
    list_->horizontalHeader()->setSortIndicatorShown(true);
    list_->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    list_->horizontalHeader()->setSectionsClickable(true);
    connect(list_->horizontalHeader(), &QHeaderView::sectionClicked, this, [this](int section) {
        const bool again = records_->sortColumn() == section;
        records_->sort(section, again && !sortedDown() ? Qt::DescendingOrder : Qt::AscendingOrder);
    });
    connect(list_->selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this] {
        form_->fill(currentRow());
        updateActions();
    });
    formArea_ = new QScrollArea(views_);
    form_ = new RecordForm(*this, formArea_);
    formArea_->setWidget(form_);
    formArea_->setWidgetResizable(true);
    formArea_->setFrameShape(QFrame::NoFrame);
    auto* nothing =
        new QLabel("This solution has no tables yet.\n\nA script can make them, or a file schema.sql.", views_);
    nothing->setAlignment(Qt::AlignCenter);
    views_->addWidget(list_);
    views_->addWidget(formArea_);
    views_->addWidget(nothing);
    column->addWidget(views_, 1);
    setCentralWidget(content);
}

void SolutionWindow::makeStatusBar() {
    place_ = new QLabel(this);
    place_->setObjectName("place");
    workText_ = new QLabel(this);
    workBar_ = new QProgressBar(this);
    workBar_->setRange(0, 0);
    workBar_->setFixedWidth(120);
    workBar_->setAccessibleName("At work");
    cancel_ = new QPushButton("Cancel", this);
    cancel_->setObjectName("cancel");
    cancel_->setFocusPolicy(Qt::NoFocus);
    connect(cancel_, &QPushButton::clicked, this, [this] { desk_.cancel(); });
    statusBar()->addPermanentWidget(workText_);
    statusBar()->addPermanentWidget(workBar_);
    statusBar()->addPermanentWidget(cancel_);
    statusBar()->addPermanentWidget(place_);
    showWork({});
}

void SolutionWindow::showWork(const QString& what) {
    workText_->setText(what.isEmpty() ? QString() : what + " ...");
    for (QWidget* widget :
         {static_cast<QWidget*>(workText_), static_cast<QWidget*>(workBar_), static_cast<QWidget*>(cancel_)}) {
        widget->setVisible(!what.isEmpty());
    }
}

void SolutionWindow::showPrinted(const QString& text) {
    const QStringList lines = text.split('\n', Qt::SkipEmptyParts);
    if (!lines.isEmpty()) {
        statusBar()->showMessage(lineOf(lines.back().toStdString(), 120), 10'000);
    }
}

// Records.

bool SolutionWindow::openTable(const QString& name) {
    const auto found = std::find_if(tables_.begin(), tables_.end(),
                                    [&name](const Table& table) { return table.name == name.toStdString(); });
    if (found == tables_.end() || !records_->open(*found)) {
        table_->setCurrentText(QString::fromStdString(records_->table().name));
        return false;
    }
    tableChanged();
    return true;
}

void SolutionWindow::tableChanged() {
    const Table& table = records_->table();
    table_->setCurrentText(QString::fromStdString(table.name));
    findIn_->clear();
    findIn_->addItem("in all fields");
    for (const Column& column : table.columns) {
        findIn_->addItem("in " + column.name);
    }
    findText_->clear();
    form_->makeFields();
    list_->fitColumns();
    fitted_ = records_->rowCount() > 0;
    if (records_->rowCount() > 0) {
        list_->setCurrentIndex(records_->index(0, 0));
    }
    form_->fill(currentRow());
    updateActions();
}

void SolutionWindow::setChanged() {
    const int column = records_->sortColumn();
    list_->horizontalHeader()->setSortIndicator(column, sortedDown() ? Qt::DescendingOrder : Qt::AscendingOrder);
    if (!std::exchange(fitted_, records_->rowCount() > 0)) {
        list_->fitColumns();
    }
    if (!list_->currentIndex().isValid() && records_->rowCount() > 0) {
        list_->setCurrentIndex(records_->index(0, 0));
    }
    form_->fill(currentRow());
    updateActions();
}

bool SolutionWindow::sortedDown() const {
    return records_->order() == Qt::DescendingOrder;
}

void SolutionWindow::reload() {
    try {
        std::vector<Table> tables = tablesOf(desk_.solution().records());
        const bool same = std::equal(
            tables.begin(), tables.end(), tables_.begin(), tables_.end(),
            [](const Table& a, const Table& b) { return a.name == b.name && a.columns.size() == b.columns.size(); });
        tables_ = std::move(tables);
        if (!same) {
            table_->clear();
            for (const Table& table : tables_) {
                table_->addItem(QString::fromStdString(table.name));
            }
            if (!openTable(QString::fromStdString(records_->table().name)) && !tables_.empty()) {
                openTable(QString::fromStdString(tables_.front().name));
            }
            return;
        }
    } catch (const HostError&) {
        return;
    }
    const int row = currentRow();
    const int column = std::max(list_->currentIndex().column(), 0);
    records_->reload();
    if (row >= 0 && records_->rowCount() > 0) {
        list_->setCurrentIndex(records_->index(std::min(row, records_->rowCount() - 1), column));
    }
    form_->fill(currentRow());
}

void SolutionWindow::refreshRows() {
    if (records_->takeMissed()) {
        list_->viewport()->update();
        form_->fill(currentRow());
    }
}

int SolutionWindow::currentRow() const {
    return list_->currentIndex().isValid() ? list_->currentIndex().row() : -1;
}

bool SolutionWindow::find(const QString& column, const QString& text) {
    const int at = column.isEmpty() ? 0 : findIn_->findText("in " + column);
    if (at < 0) {
        return false;
    }
    findIn_->setCurrentIndex(at);
    findText_->setText(text);
    if (text.isEmpty()) {
        return records_->showAll();
    }
    if (!records_->find({at - 1, text})) {
        statusBar()->showMessage(QString("No records have \"%1\" there.").arg(lineOf(text.toStdString(), 60)), 10'000);
        return false;
    }
    list_->setCurrentIndex(records_->index(0, std::max(at - 1, 0)));
    return true;
}

void SolutionWindow::startFind() {
    const QString in = findIn_->currentIndex() <= 0 ? QString() : findIn_->currentText().mid(3);
    if (find(in, findText_->text().trimmed()) && views_->currentIndex() == 0) {
        list_->setFocus();
    }
}

bool SolutionWindow::isWatched(int column) const {
    const Table& table = records_->table();
    const std::vector<WatchedField>& fields = desk_.solution().fields();
    return std::any_of(fields.begin(), fields.end(), [&](const WatchedField& field) {
        return field.table == table.name &&
               field.column == table.columns[static_cast<std::size_t>(column)].name.toStdString();
    });
}

bool SolutionWindow::clicked(int row, int column, std::optional<QPoint> where) {
    const Table& table = records_->table();
    for (const WatchedField& field : desk_.solution().fields()) {
        if (field.table == table.name &&
            field.column == table.columns[static_cast<std::size_t>(column)].name.toStdString()) {
            // After the click itself, whose widget a script may close.
            later(&desk_, [desk = &desk_, script = field.script, record = records_->record(row), where] {
                desk->runScript(script, record, where);
            });
            return true;
        }
    }
    return false;
}

void SolutionWindow::showForm(bool form) {
    views_->setCurrentIndex(form ? 1 : 0);
    formButton_->setChecked(form);
    if (form && !form_->fields().empty()) {
        form_->fill(currentRow());
        form_->fields().front()->setFocus();
    } else {
        list_->setFocus();
    }
    updateActions();
}

void SolutionWindow::moveBy(int rows) {
    if (records_->rowCount() > 0) {
        const int row = std::clamp(currentRow() + rows, 0, records_->rowCount() - 1);
        list_->setCurrentIndex(records_->index(row, std::max(list_->currentIndex().column(), 0)));
    }
}

void SolutionWindow::newRecord() {
    const Table& table = records_->table();
    if (!records_->changeable()) {
        return;
    }
    QDialog dialog(this);
    dialog.setObjectName("new record");
    dialog.setWindowTitle(QString("New record in %1").arg(QString::fromStdString(table.name)));
    auto* column = new QVBoxLayout(&dialog);
    auto* form = new QFormLayout;
    std::vector<QLineEdit*> fields;
    for (const Column& each : table.columns) {
        auto* field = new QLineEdit(&dialog);
        field->setAccessibleName(each.name);
        field->setEnabled(!each.generated);
        form->addRow(literal(lineOf(each.name.toStdString(), 40)) + ':', field);
        fields.push_back(field);
    }
    auto* scrolled = new QWidget(&dialog);
    scrolled->setLayout(form);
    auto* area = new QScrollArea(&dialog);
    area->setWidget(scrolled);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    area->setMinimumSize(380, std::min(420, scrolled->sizeHint().height() + 8));
    column->addWidget(area);
    auto* hint = new QLabel("Fields that stay empty get their usual value.", &dialog);
    column->addWidget(hint);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    column->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        std::vector<std::optional<QString>> values;
        for (const QLineEdit* field : fields) {
            values.push_back(field->text().isEmpty() ? std::nullopt : std::optional(field->text()));
        }
        if (records_->insert(values)) {
            dialog.accept();
        }
    });
    if (dialog.exec() == QDialog::Accepted) {
        records_->showAll();
        moveBy(records_->rowCount());
    }
}

void SolutionWindow::deleteRecords() {
    std::vector<int> rows;
    for (const QModelIndex& index : list_->selectionModel()->selectedRows()) {
        rows.push_back(index.row());
    }
    if (rows.empty() && currentRow() >= 0) {
        rows.push_back(currentRow());
    }
    if (!rows.empty()) {
        records_->remove(rows);
    }
}

void SolutionWindow::copyRecords() {
    constexpr qsizetype kMost = 10'000;
    QString text;
    QModelIndexList rows = list_->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end());
    for (const QModelIndex& index : rows.mid(0, kMost)) {
        for (int column = 0; column < records_->columnCount(); ++column) {
            text += (column > 0 ? "\t" : "") + records_->fullText(index.row(), column).replace('\n', ' ');
        }
        text += '\n';
    }
    QApplication::clipboard()->setText(text);
}

void SolutionWindow::updateActions() {
    if (place_ == nullptr || undo_ == nullptr) {
        return;
    }
    const bool hasTable = !records_->table().columns.empty();
    if (!hasTable) {
        views_->setCurrentIndex(2);
    } else if (views_->currentIndex() == 2) {
        views_->setCurrentIndex(0);
    }
    QString place = QString("%1 of %2 records").arg(grouped(records_->rowCount()), grouped(records_->total()));
    if (currentRow() >= 0) {
        place = QString("Record %1, ").arg(grouped(currentRow() + 1)) + place;
    }
    place_->setText(hasTable ? place : QString());
    showAll_->setEnabled(hasTable && !records_->request().text.isEmpty());
    formButton_->setEnabled(hasTable);
    undo_->setEnabled(desk_.undoLog().canUndo() && !desk_.readOnly());
    undo_->setText(desk_.undoLog().canUndo() ? "&Undo " + literal(desk_.undoLog().undoText()) : QString("&Undo"));
    redo_->setEnabled(desk_.undoLog().canRedo() && !desk_.readOnly());
    redo_->setText(desk_.undoLog().canRedo() ? "&Redo " + literal(desk_.undoLog().redoText()) : QString("&Redo"));
    for (QAction* action : changing_) {
        action->setEnabled(hasTable && records_->changeable());
    }
}

bool SolutionWindow::event(QEvent* event) {
    if (event->type() == QEvent::WindowActivate) {
        desk_.machine().deskWindows().activated(window_);
    }
    return QMainWindow::event(event);
}

void SolutionWindow::remember() {
    QSettings settings;
    const std::string key = settingsKey();
    settings.setValue(QString::fromStdString(key + "/geometry"), saveGeometry());
    settings.setValue(QString::fromStdString(key + "/table"), QString::fromStdString(records_->table().name));
}

void SolutionWindow::closeEvent(QCloseEvent* event) {
    remember();
    const auto& windows = desk_.windows();
    const bool last = std::none_of(windows.begin(), windows.end(), [this](const auto& window) {
        return window && window != this && window->isVisible();
    });
    if (last) {
        event->ignore();
        later(&desk_, [desk = &desk_] { desk->quit(); });
        return;
    }
    desk_.machine().deskWindows().closed(window_);
    event->accept();
}

}  // namespace host::desktop
