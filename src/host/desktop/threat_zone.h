// The threat zone of a release: a form to describe it, and the footprint drawn to scale.
#pragma once

#include <QColor>
#include <QRectF>
#include <QWidget>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/batch_rows.h"
#include "host/scenario.h"
#include "host/screening_run.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPainter;
class QPrinter;

namespace host::desktop {

class Desk;

struct ZoneColours {
    QColor paper, ink, faint, zone, edge, accent;
};

// Draws the answer into `area`: title, distance, footprint with wind and scale. North is up when it is known where the
// wind comes from; else the wind blows to the right.
void drawZone(QPainter& painter, const QRectF& area, const Scenario& scenario, const ScreeningResult& result,
              const ZoneColours& colours);
ZoneColours paperColours();

class ThreatZone : public QWidget {
  public:
    explicit ThreatZone(Desk& desk);

    // Takes release `index` of the list, from 0.
    void choose(int index);
    int releases() const { return static_cast<int>(releases_.size()); }
    // Sets a field as if it was typed; an empty text empties it. Then asks the calculator.
    void set(const std::string& field, const QString& text);
    // Writes the picture or the map; what it is by the file's ending. Throws HostError.
    void save(const QString& file);
    // One page. False when the printer cannot be used.
    bool printTo(QPrinter& printer);
    const ScreeningResult& result() const { return result_; }
    QString problem() const;

  private:
    class Picture;

    struct Release {
        QString title;
        std::function<Scenario(std::optional<GeoPosition>&)> read;
    };

    void makeForm(QWidget* parent);
    void findReleases();
    void findRows(const std::string& table);
    void fillForm(const Scenario& scenario);
    void answer();
    void machineAlerts(std::vector<QString>* messages);
    void saveAs();
    void openFile();
    void copy();
    void print();
    std::optional<GeoPosition> position(QString& problem) const;

    Desk& desk_;
    std::vector<Release> releases_;
    Scenario scenario_;  // what is not in the form, too
    ScreeningResult result_;
    bool filling_ = false;
    QComboBox* list_ = nullptr;
    std::map<std::string, QWidget*> fields_;  // by the field's name
    QLineEdit* position_ = nullptr;
    QLabel* problem_ = nullptr;
    Picture* picture_ = nullptr;
    QWidget* outputs_ = nullptr;
};

// Shows the window, which there is once.
ThreatZone& openThreatZone(Desk& desk);

}  // namespace host::desktop
