#include "host/desktop/messages_panel.h"

#include <QDateTime>
#include <QFontDatabase>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QTabWidget>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "host/desktop/desk.h"
#include "platform/text.h"

namespace host::desktop {

namespace {

using platform::operator""_4;

constexpr int kConsole = 5;
constexpr int kBetweenRefreshes = 1000;  // milliseconds, of what has to be asked for
constexpr int kMostMessages = 500;

QString codeText(platform::OSType code) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(code >> shift & 0xFF);
    }
    return lineOf(bytes);
}

QString timeText(std::int64_t when) {
    return QDateTime::fromMSecsSinceEpoch(when).toString("hh:mm:ss.zzz");
}

void addParameters(QTreeWidgetItem* item, const platform::Event& event, int column) {
    for (const platform::EventParameter& parameter : event.parameters) {
        auto* line = new QTreeWidgetItem(item);
        line->setText(column, codeText(parameter.keyword));
        line->setText(column + 1, lineOf(parameter.data, 400));
        line->setToolTip(column + 1, textOf(parameter.data.substr(0, 2000)));
    }
}

// Goes back through what was typed before.
class Line : public QLineEdit {
  public:
    using QLineEdit::QLineEdit;
    std::function<void(int)> recall;

  protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Up || event->key() == Qt::Key_Down) {
            recall(event->key() == Qt::Key_Up ? -1 : 1);
            return;
        }
        QLineEdit::keyPressEvent(event);
    }
};

}  // namespace

MessagesPanel::MessagesPanel(Desk& desk) : desk_(desk), tabs_(new QTabWidget(this)) {
    setObjectName("messages");
    setWindowTitle("Messages - " + lineOf(desk.solution().name(), 60));
    auto* column = new QVBoxLayout(this);
    column->addWidget(tabs_);
    const auto page = [this](const QString& title, const QString& hint, const QStringList& columns) {
        auto* made = new QWidget(tabs_);
        auto* inside = new QVBoxLayout(made);
        auto* tree = new QTreeWidget(made);
        tree->setHeaderLabels(columns);
        tree->setAccessibleName(title);
        tree->setAlternatingRowColors(true);
        tree->setUniformRowHeights(true);
        tree->setWordWrap(false);
        auto* words = new QLabel(hint, made);
        words->setWordWrap(true);
        inside->addWidget(words);
        inside->addWidget(tree);
        tabs_->addTab(made, title);
        return tree;
    };
    partners_ = page("&Partners", "Applications that run and can be sent messages.", {"Signature", "Name"});
    partners_->setRootIsDecorated(false);
    messages_ = page("&Traffic", "Events in and out, the latest first. Open one to see its parameters.",
                     {"Time", "Way", "Partner", "Message", "Content", "Status"});
    waiting_ = page("&Waiting", "Messages that came for the solution and that no script has fetched, of 20 slots.",
                    {"Slot", "Message", "Content"});
    scripts_ =
        page("&Scripts", "Scripts that the plug-in asked the host to run, the latest first.", {"Time", "Script"});
    scripts_->setRootIsDecorated(false);
    globals_ = page("&Globals", "The plug-in's globals, with attached scripts. Long values are shortened.",
                    {"Global", "Value", "Whose", "Script", "State"});
    globals_->setRootIsDecorated(false);
    messages_->setColumnWidth(0, 140);
    for (const auto& [tree, at, width] :
         {std::tuple{messages_, 1, 50}, std::tuple{messages_, 2, 80}, std::tuple{messages_, 3, 100},
          std::tuple{messages_, 4, 300}, std::tuple{globals_, 0, 220}, std::tuple{globals_, 1, 260},
          std::tuple{waiting_, 0, 80}, std::tuple{scripts_, 0, 140}}) {
        tree->setColumnWidth(at, width);
    }
    auto* console = new QWidget(tabs_);
    makeConsole(console);
    tabs_->addTab(console, "&Console");
    connect(tabs_, &QTabWidget::currentChanged, this, [this] { refresh(); });
    connect(new QShortcut(QKeySequence("Ctrl+W"), this), &QShortcut::activated, this, [this] { close(); });
    desk.onActivity = [this] {
        if (isVisible() && (!sinceRefresh_.isValid() || sinceRefresh_.elapsed() > kBetweenRefreshes)) {
            refresh();
        }
    };
    resize(820, 460);
}

MessagesPanel::~MessagesPanel() {
    desk_.onActivity = nullptr;
    desk_.onPrint = nullptr;
}

void MessagesPanel::makeConsole(QWidget* page) {
    auto* column = new QVBoxLayout(page);
    output_ = new QPlainTextEdit(page);
    output_->setReadOnly(true);
    output_->setMaximumBlockCount(5000);
    output_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    output_->setAccessibleName("What scripts print");
    output_->setPlainText(desk_.printed());
    column->addWidget(output_);
    auto* line = new Line(page);
    input_ = line;
    input_->setObjectName("console");
    input_->setFont(output_->font());
    input_->setAccessibleName("Lua to run");
    input_->setPlaceholderText("Lua, for example QUIL_Version() or perform(\"Start\"); each line is a transaction");
    column->addWidget(input_);
    connect(input_, &QLineEdit::returnPressed, this, [this] {
        const QString text = input_->text();
        input_->clear();
        enter(text);
    });
    line->recall = [this](int by) {
        historyAt_ = std::clamp<qsizetype>(historyAt_ + by, 0, history_.size());
        input_->setText(historyAt_ < history_.size() ? history_[historyAt_] : QString());
    };
    desk_.onPrint = [this](const QString& text) {
        output_->moveCursor(QTextCursor::End);
        output_->insertPlainText(text);
        output_->moveCursor(QTextCursor::End);
    };
}

void MessagesPanel::enter(const QString& text) {
    if (text.trimmed().isEmpty()) {
        return;
    }
    history_.push_back(text);
    historyAt_ = history_.size();
    desk_.onPrint("> " + text + '\n');
    desk_.evaluate(text.toStdString());
}

void MessagesPanel::showConsole(bool console) {
    if (console) {
        tabs_->setCurrentIndex(kConsole);
        input_->setFocus();
    } else if (tabs_->currentIndex() == kConsole) {
        tabs_->setCurrentIndex(1);
    }
    refresh();
}

void MessagesPanel::showTab(int index) {
    tabs_->setCurrentIndex(index);
    refresh();
}

void MessagesPanel::openLatest() {
    if (QTreeWidgetItem* const latest = messages_->topLevelItem(0)) {
        latest->setExpanded(true);
    }
}

void MessagesPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    refresh();
}

// What is not in view is not asked for.
void MessagesPanel::refresh() {
    if (desk_.working()) {
        return;
    }
    sinceRefresh_.start();
    switch (tabs_->currentIndex()) {
        case 0:
            showPartners();
            break;
        case 1:
            showMessages();
            break;
        case 2:
            showWaiting();
            break;
        case 3:
            showScripts();
            break;
        case 4:
            showGlobals();
            break;
        default:
            break;
    }
}

void MessagesPanel::showPartners() {
    QStringList before;
    for (int i = 0; i < partners_->topLevelItemCount(); ++i) {
        before << partners_->topLevelItem(i)->text(0) + partners_->topLevelItem(i)->text(1);
    }
    QList<QStringList> now;
    QStringList after;
    platform::Processes& processes = desk_.machine().processes();
    platform::ProcessSerialNumber own = 0;
    processes.current(own);
    platform::ProcessSerialNumber process = platform::noProcess;
    constexpr int kMost = 1000;
    for (int i = 0; i < kMost && processes.next(process) == platform::noErr; ++i) {
        platform::ProcessInfo info;
        if (processes.information(process, info) == platform::noErr) {
            now << QStringList{codeText(info.signature),
                               lineOf(info.name) + (process == own ? QString(" (this host)") : QString())};
            after << now.back().join(QString());
        }
    }
    if (before == after) {
        return;
    }
    partners_->clear();
    for (const QStringList& line : now) {
        partners_->addTopLevelItem(new QTreeWidgetItem(line));
    }
}

void MessagesPanel::showMessages() {
    const WatchedEvents& events = desk_.machine().watchedEvents();
    const auto& seen = events.seen();
    const std::uint64_t fresh = std::min<std::uint64_t>(events.count() - messagesShown_, seen.size());
    messagesShown_ = events.count();
    for (std::size_t i = seen.size() - fresh; i < seen.size(); ++i) {
        const Seen& each = seen[i];
        const std::string message = textParameter(each.event, "MSSG"_4);
        const QString partner =
            each.incoming ? lineOf(textParameter(each.event, "SIGN"_4), 20) : codeText(each.event.target);
        const bool script = each.event.eventClass == "misc"_4;
        auto* item = new QTreeWidgetItem({timeText(each.when), each.incoming ? "in" : "out",
                                          script && each.incoming ? QString("(itself)") : partner,
                                          script ? QString("run script") : lineOf(message, 40),
                                          script ? lineOf(textParameter(each.event, "----"_4), 80)
                                                 : QString("%1 parameters").arg(each.event.parameters.size()),
                                          each.status == 0 ? QString("done") : QString::number(each.status)});
        addParameters(item, each.event, 3);
        messages_->insertTopLevelItem(0, item);
    }
    while (messages_->topLevelItemCount() > kMostMessages) {
        delete messages_->takeTopLevelItem(messages_->topLevelItemCount() - 1);
    }
}

void MessagesPanel::showWaiting() {
    const MessageLog& log = desk_.messageLog();
    if (log.waitingChanges() == waitingShown_) {
        return;
    }
    waitingShown_ = log.waitingChanges();
    waiting_->clear();
    for (std::size_t i = 0; i < kWaitingSlots; ++i) {
        auto* item = new QTreeWidgetItem({QString::number(i + 1)});
        if (i < log.waiting().size()) {
            item->setText(1, lineOf(textParameter(log.waiting()[i], "MSSG"_4), 40));
            item->setText(2, QString("%1 parameters").arg(log.waiting()[i].parameters.size()));
            addParameters(item, log.waiting()[i], 1);
        } else {
            item->setText(1, "free");
            item->setForeground(1, palette().brush(QPalette::Disabled, QPalette::Text));
        }
        waiting_->addTopLevelItem(item);
    }
}

void MessagesPanel::showScripts() {
    const MessageLog& log = desk_.messageLog();
    if (log.scriptCount() == scriptsShown_) {
        return;
    }
    scriptsShown_ = log.scriptCount();
    scripts_->clear();
    for (const AskedScript& script : log.scripts()) {
        scripts_->insertTopLevelItem(0, new QTreeWidgetItem({timeText(script.when), lineOf(script.name, 80)}));
    }
}

// A line for each: 'name' TAB 'value' TAB whose TAB script TAB state, as the plug-in writes it.
void MessagesPanel::showGlobals() {
    const QString list = textOf(desk_.solution().plugin().external("GLN1GetGlobalList", "SYSENV DETAIL").text);
    if (globals_->property("list").toString() == list) {
        return;
    }
    globals_->setProperty("list", list);
    globals_->clear();
    for (const QString& line : list.split('\n', Qt::SkipEmptyParts)) {
        QStringList cells = line.split('\t');
        for (qsizetype i = 0; i < std::min<qsizetype>(2, cells.size()); ++i) {
            if (cells[i].size() > 1 && cells[i].startsWith('\'') && cells[i].endsWith('\'')) {
                cells[i] = cells[i].mid(1, cells[i].size() - 2);
            }
        }
        globals_->addTopLevelItem(new QTreeWidgetItem(cells));
    }
}

MessagesPanel& openMessagesPanel(Desk& desk, bool console) {
    static QPointer<QWidget> sPanel;
    if (!sPanel) {
        sPanel = new MessagesPanel(desk);
    }
    desk.openTool(sPanel);
    auto& panel = *static_cast<MessagesPanel*>(sPanel.data());
    panel.showConsole(console);
    return panel;
}

}  // namespace host::desktop
