// The rows of a table as scenarios: which column is which field, and what a row's cells ask of the calculator.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/scenario.h"
#include "host/screening_run.h"

namespace host {

// A place on the globe, in degrees.
struct GeoPosition {
    double latitude = 0;   // -90 to 90
    double longitude = 0;  // -180 to 180
};

// Reads "LAT,LON". On failure: none, and `problem` tells why.
std::optional<GeoPosition> parsePosition(std::string_view text, std::string& problem);
std::optional<GeoPosition> parsePosition(std::string_view latitude, std::string_view longitude, std::string& problem);

// What holds for every row: the values of a scenario file, which a row's cells replace, and those of the command line,
// which replace the row's.
struct BatchValues {
    Scenario file;
    std::map<std::string, std::string, std::less<>> options;  // by field name, as setScenarioField takes them
};

// The columns that the answer adds.
inline constexpr std::array<std::string_view, 4> kAnswerColumns = {"threat-distance", "threat-unit", "error-code",
                                                                   "error-message"};
// The error code of a row that never reached the calculator, or for which it found no distance. Its own codes are 2 to
// 19, and 0 is success.
inline constexpr int kBadRow = -1;

struct BatchAnswer {
    std::string distance;   // "1.3", "< .1", "> 10" or "> 16"; empty when there is none
    std::string_view unit;  // "miles" or "km"; empty with it
    int code = 0;
    std::string message;
};

class BatchRows {
  public:
    // Throws HostError when the columns are none of a table of scenarios: no field among them, or one field twice.
    BatchRows(std::span<const std::string_view> header, BatchValues values);

    std::size_t columns() const { return columns_.size(); }
    // Where the column of an answer stands in the input already, from an earlier run.
    std::optional<std::size_t> earlierAnswer(std::size_t answer) const { return earlier_[answer]; }
    bool hasPosition() const { return at_ || (latitude_ && longitude_); }
    // What a reader should know about the columns, one sentence each.
    const std::vector<std::string>& warnings() const { return warnings_; }

    // Asks the calculator about a row of as many cells as there are columns. Throws HostError only for answers that the
    // calculator never gives.
    void answer(std::span<const std::string_view> cells, const Calculator& calculator, BatchAnswer& answer);
    // The row as a scenario, completed. None with `problem` set when a cell cannot be read.
    std::optional<Scenario> scenario(std::span<const std::string_view> cells, std::string& problem) const;
    // The row's position; none without `problem` when its cells are empty.
    std::optional<GeoPosition> position(std::span<const std::string_view> cells, std::string& problem) const;

  private:
    // A cell that was met before, and what it stands for in the calculator's parameter.
    struct Known {
        std::string cell;
        std::string text;
        std::string problem;
        bool used = false;
    };
    static constexpr std::size_t kKnown = 128;  // of a column; a power of two

    struct Column {
        const ScenarioField* field = nullptr;  // none: not a field, or one that the command line sets
        std::vector<Known> known;
    };
    // One field of the parameter.
    struct Slot {
        const ScenarioField* field;
        std::optional<std::size_t> column;
        std::string constant;                                 // without a column, or where its cell is empty
        std::array<std::array<std::string, 2>, 2> otherwise;  // [screening][kilometres], when all that is empty
        std::string_view current;
    };

    const Known& known(Column& column, std::string_view cell);
    bool compose(std::span<const std::string_view> cells, std::string& problem);

    BatchValues values_;
    std::vector<Column> columns_;
    std::vector<Slot> slots_;
    std::vector<std::size_t> checked_;  // columns with a value that the parameter does not carry
    std::array<std::optional<std::size_t>, kAnswerColumns.size()> earlier_;
    std::optional<std::size_t> latitude_;
    std::optional<std::size_t> longitude_;
    std::optional<std::size_t> at_;
    std::vector<std::string> warnings_;
    Scenario scratch_;  // of cells as they are read
    std::string parameter_;
    bool kilometers_ = false;
};

}  // namespace host
