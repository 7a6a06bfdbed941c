#include "host/desktop/threat_zone.h"

#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPainter>
#include <QPointer>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QVBoxLayout>
#include <algorithm>

#include "host/atomic_file.h"
#include "host/desktop/desk.h"
#include "host/desktop/records.h"
#include "host/footprint_map.h"
#include "host/screen_report.h"
#include "host/screen_svg.h"

namespace host::desktop {

namespace {

constexpr int kMostRows = 1000;  // of a table in the list of releases
constexpr QSize kPictureSize(1000, 700);

std::string fieldNameOf(const QString& column) {
    return QString(column).replace('_', '-').toStdString();
}

QString labelOf(std::string_view name) {
    QString label = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())).replace('-', ' ');
    label[0] = label[0].toUpper();
    return label;
}

}  // namespace

// The part of the window that is drawn.
class ThreatZone::Picture : public QWidget {
  public:
    explicit Picture(ThreatZone& zone) : QWidget(&zone), zone_(zone) {
        setMinimumSize(420, 360);
        setObjectName("picture");
        setAccessibleName("Footprint");
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        ZoneColours colours = paperColours();
        if (palette().color(QPalette::Window).lightness() < 128) {
            colours = {palette().color(QPalette::Base), QColor(0xe6, 0xe6, 0xe6), QColor(0xa0, 0xa4, 0xaa),
                       QColor(0xf3, 0x9c, 0x3c, 0x60),  QColor(0xff, 0xb0, 0x60), QColor(0x6c, 0xa8, 0xff)};
        }
        QPainter painter(this);
        drawZone(painter, rect(), zone_.scenario_, zone_.result_, colours);
    }

  private:
    ThreatZone& zone_;
};

ThreatZone::ThreatZone(Desk& desk) : desk_(desk) {
    setObjectName("threat zone");
    setWindowTitle("Threat zone - " + lineOf(desk.solution().name(), 60));
    auto* row = new QHBoxLayout(this);
    auto* left = new QWidget(this);
    makeForm(left);
    row->addWidget(left);
    auto* right = new QVBoxLayout;
    picture_ = new Picture(*this);
    right->addWidget(picture_, 1);
    outputs_ = new QWidget(this);
    auto* buttons = new QHBoxLayout(outputs_);
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->addStretch();
    const auto button = [&](const QString& text, const std::function<void()>& job) {
        auto* made = new QPushButton(text, outputs_);
        connect(made, &QPushButton::clicked, this, job);
        buttons->addWidget(made);
    };
    button("&Copy", [this] { copy(); });
    button("&Save...", [this] { saveAs(); });
    button("&Print...", [this] { print(); });
    right->addWidget(outputs_);
    row->addLayout(right, 1);
    connect(new QShortcut(QKeySequence("Ctrl+W"), this), &QShortcut::activated, this, [this] { close(); });
    resize(1020, 680);
    findReleases();
    if (!releases_.empty()) {
        choose(0);
    } else {
        answer();
    }
}

void ThreatZone::makeForm(QWidget* parent) {
    auto* column = new QVBoxLayout(parent);
    column->setContentsMargins(0, 0, 0, 0);
    auto* top = new QHBoxLayout;
    list_ = new QComboBox(parent);
    list_->setObjectName("release");
    list_->setAccessibleName("Release");
    list_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    list_->setMinimumContentsLength(34);
    connect(list_, &QComboBox::activated, this, [this](int index) { choose(index); });
    auto* label = new QLabel("&Release:", parent);
    label->setBuddy(list_);
    auto* open = new QPushButton("&Open...", parent);
    open->setToolTip("Open a scenario file");
    connect(open, &QPushButton::clicked, this, [this] { openFile(); });
    top->addWidget(label);
    top->addWidget(list_, 1);
    top->addWidget(open);
    column->addLayout(top);

    auto* inside = new QWidget(parent);
    auto* form = new QFormLayout(inside);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    for (const ScenarioField& field : scenarioFields()) {
        if (field.name == "source" || field.name == "note") {
            continue;
        }
        QWidget* made = nullptr;
        const QString help = QString::fromUtf8(field.help.data(), static_cast<qsizetype>(field.help.size()));
        if (field.word != nullptr) {
            auto* words = new QComboBox(inside);
            words->addItem("");
            for (const std::string_view word : field.words) {
                words->addItem(QString::fromUtf8(word.data(), static_cast<qsizetype>(word.size())));
            }
            connect(words, &QComboBox::activated, this, [this] { answer(); });
            made = words;
        } else if (field.flag != nullptr) {
            auto* flag = new QCheckBox(inside);
            connect(flag, &QCheckBox::clicked, this, [this] { answer(); });
            made = flag;
        } else {
            auto* line = new QLineEdit(inside);
            QString example =
                QString::fromUtf8(field.placeholder.data(), static_cast<qsizetype>(field.placeholder.size()));
            line->setPlaceholderText(example.remove('"') == "N" || example == "TEXT" ? QString() : example);
            connect(line, &QLineEdit::editingFinished, this, [this] { answer(); });
            made = line;
        }
        made->setToolTip(help);
        made->setAccessibleName(labelOf(field.name));
        made->setAccessibleDescription(help);
        made->setObjectName("scenario " + labelOf(field.name));
        form->addRow(labelOf(field.name) + ':', made);
        fields_.emplace(field.name, made);
    }
    position_ = new QLineEdit(inside);
    position_->setAccessibleName("Position");
    position_->setPlaceholderText("latitude,longitude: for maps");
    form->addRow("Position:", position_);
    auto* area = new QScrollArea(parent);
    area->setWidget(inside);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setMinimumWidth(inside->sizeHint().width() + 24);
    column->addWidget(area, 1);
    problem_ = new QLabel(parent);
    problem_->setObjectName("problem");
    problem_->setTextFormat(Qt::PlainText);
    problem_->setWordWrap(true);
    problem_->setMinimumHeight(3 * problem_->fontMetrics().lineSpacing());
    problem_->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    column->addWidget(problem_);
}

// Releases are the rows of every table or view with the columns of a scenario, and the scenario files in the solution's
// folder.
void ThreatZone::findReleases() {
    try {
        for (const Table& table : tablesOf(desk_.solution().records())) {
            const auto has = [&table](const char* name) {
                return std::any_of(table.columns.begin(), table.columns.end(),
                                   [name](const Column& column) { return fieldNameOf(column.name) == name; });
            };
            if (has("amount") && has("level-of-concern")) {
                findRows(table.name);
            }
        }
    } catch (const HostError& error) {
        desk_.fail(error.what());
    }
    const QDir folder(QString::fromStdString(desk_.solution().folder()));
    for (const QFileInfo& file : folder.entryInfoList({"*.json"}, QDir::Files, QDir::Name)) {
        releases_.push_back({file.completeBaseName(), [path = file.absoluteFilePath()](std::optional<GeoPosition>&) {
                                 Scenario scenario;
                                 readScenarioFile(path.toStdString(), scenario);
                                 return scenario;
                             }});
    }
    for (const Release& release : releases_) {
        list_->addItem(release.title);
    }
    list_->setPlaceholderText(releases_.empty() ? "none in this solution" : QString());
    list_->setEnabled(!releases_.empty());
}

void ThreatZone::findRows(const std::string& table) {
    Statement rows(desk_.solution().records(),
                   "SELECT * FROM " + sqlName(table) + " LIMIT " + std::to_string(kMostRows));
    const int columns = sqlite3_column_count(rows.get());
    std::vector<std::string> header;
    for (int i = 0; i < columns; ++i) {
        header.push_back(fieldNameOf(sqlite3_column_name(rows.get(), i)));
    }
    std::vector<std::string_view> names(header.begin(), header.end());
    const auto reader = std::make_shared<BatchRows>(names, BatchValues{});
    const auto at = [&header](const char* name) {
        return static_cast<int>(std::find(header.begin(), header.end(), name) - header.begin());
    };
    while (rows.step()) {
        std::vector<std::string> cells;
        for (int i = 0; i < columns; ++i) {
            cells.push_back(rows.text(i).toStdString());
        }
        QString title = at("chemical") < columns ? rows.text(at("chemical")) : QString("Release");
        title += ", " + rows.text(at("amount"));
        for (const char* more : {"container", "facility"}) {
            if (at(more) < columns && !rows.text(at(more)).isEmpty()) {
                title += ", " + rows.text(at(more));
            }
        }
        releases_.push_back({title, [reader, cells](std::optional<GeoPosition>& position) {
                                 const std::vector<std::string_view> views(cells.begin(), cells.end());
                                 std::string problem;
                                 const std::optional<Scenario> scenario = reader->scenario(views, problem);
                                 if (!scenario) {
                                     throw HostError(problem);
                                 }
                                 if (reader->hasPosition()) {
                                     position = reader->position(views, problem);
                                 }
                                 return *scenario;
                             }});
    }
}

void ThreatZone::choose(int index) {
    if (index < 0 || index >= releases()) {
        return;
    }
    list_->setCurrentIndex(index);
    try {
        std::optional<GeoPosition> position;
        const Scenario scenario = releases_[static_cast<std::size_t>(index)].read(position);
        position_->setText(position ? QString("%1,%2").arg(position->latitude).arg(position->longitude) : QString());
        fillForm(scenario);
        answer();
    } catch (const HostError& error) {
        desk_.fail(error.what());
    }
}

void ThreatZone::fillForm(const Scenario& scenario) {
    filling_ = true;
    scenario_ = scenario;
    for (const auto& [name, widget] : fields_) {
        const QString text = QString::fromStdString(scenarioValue(scenario, *findScenarioField(name)));
        if (auto* words = dynamic_cast<QComboBox*>(widget)) {
            words->setCurrentText(text);
        } else if (auto* flag = dynamic_cast<QCheckBox*>(widget)) {
            flag->setChecked(scenario.screening);
        } else if (auto* line = dynamic_cast<QLineEdit*>(widget)) {
            line->setText(text);
        }
    }
    filling_ = false;
}

void ThreatZone::set(const std::string& field, const QString& text) {
    QWidget* const widget = fields_.at(field);
    if (auto* words = dynamic_cast<QComboBox*>(widget)) {
        words->setCurrentText(text);
    } else if (auto* flag = dynamic_cast<QCheckBox*>(widget)) {
        flag->setChecked(text == "yes");
    } else if (auto* line = dynamic_cast<QLineEdit*>(widget)) {
        line->setText(text);
    }
    answer();
}

void ThreatZone::answer() {
    if (filling_ || desk_.working()) {
        return;
    }
    Scenario scenario;
    scenario.source = scenario_.source;
    scenario.note = scenario_.note;
    QString problem;
    bool any = false;
    for (const auto& [name, widget] : fields_) {
        QString text;
        if (const auto* words = dynamic_cast<QComboBox*>(widget)) {
            text = words->currentText();
        } else if (const auto* flag = dynamic_cast<QCheckBox*>(widget)) {
            text = flag->isChecked() ? "yes" : "no";
        } else if (const auto* line = dynamic_cast<QLineEdit*>(widget)) {
            text = line->text().trimmed();
            any = any || !text.isEmpty();
        }
        const std::string wrong = setScenarioField(scenario, *findScenarioField(name), text.toStdString());
        if (!wrong.empty() && problem.isEmpty()) {
            problem = labelOf(name) + ": " + QString::fromStdString(wrong);
        }
    }
    scenario_ = scenario;
    result_ = {};
    if (any && problem.isEmpty()) {
        completeScenario(scenario);
        std::vector<QString> messages;
        machineAlerts(&messages);
        desk_.work("Screening", [&] {
            result_ = runScreening(scenario, {[this](std::string_view function, std::string_view parameter) {
                                                  return desk_.solution().plugin().external(function, parameter).text;
                                              },
                                              [&messages] {
                                                  QString all;
                                                  for (const QString& message : std::exchange(messages, {})) {
                                                      all += (all.isEmpty() ? "" : " ") + message.simplified();
                                                  }
                                                  return all.toStdString();
                                              }});
        });
        machineAlerts(nullptr);
        scenario_ = scenario;
        if (result_.rejection) {
            const std::string_view field = result_.rejection->field;
            problem = (field.empty() ? QString() : labelOf(field) + ": ") +
                      QString::fromStdString(result_.rejection->message);
        } else if (!result_.footprint) {
            problem = QString::fromStdString(result_.problem);
        }
    }
    problem_->setText(problem);
    outputs_->setEnabled(result_.footprint.has_value());
    picture_->setAccessibleDescription(result_.footprint ? QString::fromStdString(textReport(scenario_, result_))
                                                         : problem);
    picture_->update();
}

// Collects the calculator's alerts instead of showing them; null: shows them again.
void ThreatZone::machineAlerts(std::vector<QString>* messages) {
    desk_.machine().deskDialogs().collect = messages;
}

QString ThreatZone::problem() const {
    return problem_->text();
}

std::optional<GeoPosition> ThreatZone::position(QString& problem) const {
    std::string why;
    const std::optional<GeoPosition> position = parsePosition(position_->text().trimmed().toStdString(), why);
    problem = QString::fromStdString(why);
    return position;
}

// Output.

void ThreatZone::save(const QString& file) {
    if (!result_.footprint) {
        throw HostError("there is no threat zone to save");
    }
    const std::string path = file.toStdString();
    const QString ending = QFileInfo(file).suffix().toLower();
    if (ending == "svg") {
        writeFileWhole(path, drawSvg(scenario_, result_));
    } else if (ending == "png") {
        QImage image(kPictureSize * 2, QImage::Format_RGB32);
        image.setDevicePixelRatio(2);
        QPainter painter(&image);
        drawZone(painter, QRectF(QPointF(0, 0), QSizeF(kPictureSize)), scenario_, result_, paperColours());
        painter.end();
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "PNG");
        writeFileWhole(path, bytes.toStdString());
    } else if (ending == "geojson" || ending == "kml") {
        QString why;
        const std::optional<GeoPosition> at = position(why);
        if (!at) {
            throw HostError("a map needs to know where the source is. Position: " +
                            (position_->text().isEmpty() ? std::string("is empty") : why.toStdString()));
        }
        MapFile map(ending == "kml" ? MapFile::Kind::kml : MapFile::Kind::geojson, path);
        map.add(scenario_, result_, *at);
        map.finish();
    } else {
        throw HostError("\"" + path + "\": the name has to end in .svg, .png, .geojson or .kml");
    }
}

void ThreatZone::saveAs() {
    QString kind;
    QString file = QFileDialog::getSaveFileName(
        this, "Save the threat zone", QString::fromStdString(titleOf(scenario_)).replace('/', '-') + ".svg",
        "Drawing (*.svg);;Picture (*.png);;Map, GeoJSON (*.geojson);;Map, KML (*.kml)", &kind);
    if (file.isEmpty()) {
        return;
    }
    if (QFileInfo(file).suffix().isEmpty()) {
        const qsizetype at = kind.indexOf("*.");
        file += kind.mid(at + 1, kind.indexOf(')') - at - 1);
    }
    try {
        save(file);
    } catch (const HostError& error) {
        desk_.fail(error.what());
    }
}

void ThreatZone::openFile() {
    const QString file = QFileDialog::getOpenFileName(this, "Open a scenario", {}, "Scenarios (*.json)");
    if (file.isEmpty()) {
        return;
    }
    try {
        Scenario scenario;
        readScenarioFile(file.toStdString(), scenario);
        fillForm(scenario);
        list_->setCurrentIndex(-1);
        answer();
    } catch (const HostError& error) {
        desk_.fail(error.what());
    }
}

void ThreatZone::copy() {
    QImage image(kPictureSize, QImage::Format_RGB32);
    QPainter painter(&image);
    drawZone(painter, QRectF(QPointF(0, 0), QSizeF(kPictureSize)), scenario_, result_, paperColours());
    painter.end();
    auto* content = new QMimeData;
    content->setImageData(image);
    content->setData("image/svg+xml", QByteArray::fromStdString(drawSvg(scenario_, result_)));
    content->setText(QString::fromStdString(textReport(scenario_, result_)));
    QApplication::clipboard()->setMimeData(content);
}

void ThreatZone::print() {
    QPrinter printer;
    QPrintDialog dialog(&printer, this);
    if (dialog.exec() == QDialog::Accepted && !printTo(printer)) {
        desk_.fail("The printer cannot be used.");
    }
}

bool ThreatZone::printTo(QPrinter& printer) {
    QPainter painter;
    if (!result_.footprint || !painter.begin(&printer)) {
        return false;
    }
    const double scale = printer.pageRect(QPrinter::DevicePixel).width() / kPictureSize.width();
    painter.scale(scale, scale);
    QFont font = painter.font();
    font.setPixelSize(16);  // of the picture, whatever the printer's are
    painter.setFont(font);
    drawZone(painter, QRectF(QPointF(0, 0), QSizeF(kPictureSize)), scenario_, result_, paperColours());
    return painter.end();
}

ThreatZone& openThreatZone(Desk& desk) {
    static QPointer<QWidget> sWindow;
    if (!sWindow) {
        sWindow = new ThreatZone(desk);
    }
    desk.openTool(sWindow);
    return *static_cast<ThreatZone*>(sWindow.data());
}

}  // namespace host::desktop
