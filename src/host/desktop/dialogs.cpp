// Alerts and choosers.
#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSettings>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>

#include "host/desktop/machine.h"

namespace host::desktop {

namespace {

constexpr int kMessageWidth = 360;  // of the built-in layout
constexpr int kIconSize = 32;
constexpr int kMostOfAButton = 60;  // characters

// A dialog that ends with the number of the item that was hit.
class Alert : public QDialog {
  public:
    Alert(QWidget* parent, std::int16_t cancelItem) : QDialog(parent), cancelItem_(cancelItem) {
        setObjectName("alert");
        setModal(true);
    }

  protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape) {
            done(cancelItem_);
        } else {
            QDialog::keyPressEvent(event);
        }
    }
    void closeEvent(QCloseEvent* event) override {
        event->accept();
        done(cancelItem_);
    }

  private:
    int cancelItem_;
};

QIcon iconOf(std::int16_t number) {
    QStyle* const style = QApplication::style();
    switch (number) {
        case 0:
            return style->standardIcon(QStyle::SP_MessageBoxCritical);
        case 1:
            return style->standardIcon(QStyle::SP_MessageBoxInformation);
        default:
            return style->standardIcon(QStyle::SP_MessageBoxWarning);
    }
}

QLabel* plainLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    return label;
}

// A word that is longer than the line could not be wrapped, and would be cut: it gets places to break at.
QString breakable(const QString& text) {
    constexpr int kLongestWord = 20;
    QString result;
    int word = 0;
    for (const QChar c : text) {
        word = c.isSpace() ? 0 : word + 1;
        result += c;
        if (word == kLongestWord && !c.isHighSurrogate()) {
            result += QChar(0x200B);
            word = 0;
        }
    }
    return result;
}

QScrollArea* messageArea(const QString& text, QWidget* parent) {
    auto* area = new QScrollArea(parent);
    QLabel* const label = plainLabel(breakable(text), area);
    label->setObjectName("message");
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setAccessibleName(text);
    area->setWidget(label);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    const int most = QApplication::primaryScreen()->availableSize().height() / 2;
    const int height = label->heightForWidth(kMessageWidth);
    const int bar = height > most ? area->style()->pixelMetric(QStyle::PM_ScrollBarExtent) + 4 : 0;
    area->setFixedWidth(kMessageWidth + bar);
    area->setFixedHeight(std::clamp(height, 1, most));
    area->setFocusPolicy(height > most ? Qt::StrongFocus : Qt::NoFocus);
    return area;
}

}  // namespace

std::int16_t DeskDialogs::textHeight(std::string_view text, std::int16_t width) {
    const QFontMetrics metrics(QApplication::font());
    const QString shown = textOf(text);
    const int lines =
        shown.isEmpty() ? 0
                        : metrics.boundingRect(QRect(0, 0, width, 32767), Qt::TextWordWrap, breakable(shown)).height() /
                              std::max(1, metrics.lineSpacing());
    return static_cast<std::int16_t>(std::min(lines * metrics.lineSpacing(), 32767));
}

void DeskDialogs::drawTextBox(platform::Dialog& dialog, std::string_view text, platform::Rect rect) {
    try {
        dialog.drawn.push_back({std::string(text), rect});
    } catch (const std::bad_alloc&) {
        // The dialog is shown without this text.
    }
}

// Icon and heading above the message, the buttons below it, the first at the right: the order of the built-in layout.
std::int16_t DeskDialogs::runModal(platform::Dialog& dialog) {
    using platform::ItemKind;
    std::vector<std::int16_t> buttons;
    for (std::size_t i = 0; i < dialog.items.size(); ++i) {
        if (dialog.items[i].kind == ItemKind::button && dialog.items[i].visible) {
            buttons.push_back(static_cast<std::int16_t>(i + 1));
        }
    }
    if (buttons.empty()) {
        return 0;
    }
    const auto has = [&buttons](std::int16_t item) {
        return std::find(buttons.begin(), buttons.end(), item) != buttons.end();
    };
    const std::int16_t preset = has(dialog.defaultItem) ? dialog.defaultItem : buttons.front();
    if (collect != nullptr) {
        collect->push_back(textOf(dialog.reference));
        return preset;
    }
    QWidget* above = QApplication::activeModalWidget();
    Alert alert(above != nullptr ? above
                : parent         ? parent()
                                 : nullptr,
                has(dialog.cancelItem) ? dialog.cancelItem : preset);
    alert.setWindowTitle(title);
    auto* column = new QVBoxLayout(&alert);
    column->setContentsMargins(20, 12, 20, 14);
    column->setSpacing(12);
    column->setSizeConstraint(QLayout::SetFixedSize);
    auto* top = new QHBoxLayout;
    top->setSpacing(12);
    QString spoken;
    dialog.drawn.clear();
    for (std::size_t i = 0; i < dialog.items.size(); ++i) {
        const platform::DialogItem item = dialog.items[i];
        if (!item.visible) {
            continue;
        }
        if (item.kind == ItemKind::icon) {
            QLabel* const icon = new QLabel(&alert);
            icon->setObjectName("icon");
            icon->setPixmap(iconOf(item.icon).pixmap(kIconSize, kIconSize));
            icon->setFixedSize(kIconSize, kIconSize);
            top->insertWidget(0, icon);
        } else if (item.kind == ItemKind::staticText && !item.text.empty()) {
            QLabel* const heading = plainLabel(lineOf(item.text, 80), &alert);
            heading->setObjectName("heading");
            QFont bold = heading->font();
            bold.setBold(true);
            heading->setFont(bold);
            top->addWidget(heading);
            spoken += heading->text() + ". ";
        } else if (item.kind == ItemKind::user && item.draw != nullptr) {
            item.draw(dialog, static_cast<std::int16_t>(i + 1));
        }
    }
    if (top->count() > 0) {
        top->addStretch();
        column->addLayout(top);
    } else {
        delete top;
    }
    for (const platform::DrawnText& drawn : dialog.drawn) {
        QString text = textOf(drawn.text);
        while (text.endsWith('\n')) {
            text.chop(1);
        }
        spoken += text;
        column->addWidget(messageArea(text, &alert));
    }
    alert.setAccessibleName(spoken);
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    row->addStretch();
    QPushButton* presetButton = nullptr;
    int width = 0;
    std::vector<QPushButton*> made;
    for (auto item = buttons.rbegin(); item != buttons.rend(); ++item) {
        const std::int16_t number = *item;
        const QString text = lineOf(dialog.items[static_cast<std::size_t>(number) - 1].text, kMostOfAButton);
        auto* button = new QPushButton(literal(text), &alert);
        button->setObjectName("button" + QString::number(number));
        button->setAccessibleName(text);
        button->setAutoDefault(false);
        QObject::connect(button, &QPushButton::clicked, &alert, [&alert, number] { alert.done(number); });
        row->addWidget(button);
        made.push_back(button);
        width += button->sizeHint().width() + row->spacing();
        if (number == preset) {
            presetButton = button;
        }
    }
    if (width > kMessageWidth * 2) {  // below one another, the first on top
        auto* stack = new QVBoxLayout;
        for (auto button = made.rbegin(); button != made.rend(); ++button) {
            row->removeWidget(*button);
            stack->addWidget(*button);
        }
        row->addLayout(stack);
    }
    column->addLayout(row);
    for (std::size_t i = made.size(); i-- > 1;) {
        QWidget::setTabOrder(made[i], made[i - 1]);
    }
    presetButton->setDefault(true);
    presetButton->setFocus();
    return static_cast<std::int16_t>(alert.exec());
}

platform::ChooserOutcome DeskDialogs::choose(const platform::Chooser& chooser, platform::Choice& choice,
                                             platform::Status& error) try {
    error = platform::noErr;
    QSettings settings;
    const QString key = "folders/" + lineOf(chooser.client, 80).replace('/', '-');
    QWidget* above = QApplication::activeModalWidget();
    QFileDialog dialog(above != nullptr ? above : parent ? parent() : nullptr, lineOf(chooser.title));
    dialog.setObjectName("chooser");
    const QString remembered = settings.value(key).toString();
    dialog.setDirectory(remembered.isEmpty() ? QDir::currentPath() : remembered);
    const bool writing = chooser.kind == platform::Chooser::Kind::write;
    dialog.setAcceptMode(writing ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
    dialog.setFileMode(writing ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
    if (!chooser.proposed.empty()) {
        dialog.selectFile(
            lineOf(chooser.proposed).replace('/', ':'));  // a '/' in a classic name is a ':' in the file's
    }
    while (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty()) {
        const QString file = dialog.selectedFiles().constFirst();
        settings.setValue(key, QFileInfo(file).absolutePath());
        const std::string classic = platform::classicPathOf(options_, file.toStdString());
        platform::FSSpec spec;
        const platform::Status status = classic.empty() ? platform::nsvErr : files_.makeSpec(0, 0, classic, spec);
        if (status == platform::noErr || (writing && status == platform::fnfErr)) {
            choice = {spec.vRefNum, spec.parID, std::string(spec.nameView())};
            return platform::ChooserOutcome::chosen;
        }
        QMessageBox::warning(above, lineOf(chooser.title),
                             status == platform::nsvErr
                                 ? "That file lies on none of the solution's volumes. Choose another place, or name "
                                   "the volume with --volume when you start quil."
                                 : QString("That file cannot be used (%1). Choose another one.").arg(status));
    }
    return platform::ChooserOutcome::cancelled;
} catch (const std::bad_alloc&) {
    error = platform::noErr;
    return platform::ChooserOutcome::failed;
}

void DeskDialogs::beep() {
    QApplication::beep();
}

}  // namespace host::desktop
