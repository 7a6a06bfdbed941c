#include "host/batch_rows.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "host/commands.h"
#include "host/plugin.h"

namespace host {
namespace {

// A column's name as fields are named: "Level of concern", "LEVEL_OF_CONCERN" and "--level-of-concern" are one.
std::string fieldName(std::string_view column) {
    std::string name = lowerCase(trimmed(column));
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '_' || c == ' '; }, '-');
    return name.starts_with("--") ? name.substr(2) : name;
}

std::string quoted(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

bool isBlankCell(std::string_view cell) {
    return cell.empty() || (static_cast<unsigned char>(cell.front()) <= ' ' && trimmed(cell).empty());
}

// Spreads cells over their places: what tells them apart stands at their ends as a rule.
std::size_t placeOf(std::string_view cell) {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    const std::size_t size = std::min<std::size_t>(cell.size(), 8);
    std::memcpy(&start, cell.data(), size);
    std::memcpy(&end, cell.data() + cell.size() - size, size);
    return static_cast<std::size_t>(((start * 31 + end) * 0x9E3779B97F4A7C15U) >> 48);
}

std::optional<double> degrees(std::string_view text, double limit, const char* what, std::string& problem) {
    std::string_view number = trimmed(text);
    if (number.ends_with("\xC2\xB0")) {
        number = trimmed(number.substr(0, number.size() - 2));
    }
    const std::optional<double> value = parseDecimal(number.starts_with('+') ? number.substr(1) : number, problem);
    if (!value) {
        problem = std::string(what) + ": " + problem;
        return std::nullopt;
    }
    if (*value < -limit || *value > limit) {
        problem = std::string(what) + ": " + plainDecimal(*value) + " is not on the globe; it lies between -" +
                  plainDecimal(limit) + " and " + plainDecimal(limit) + " degrees";
        return std::nullopt;
    }
    return value;
}

}  // namespace

std::optional<GeoPosition> parsePosition(std::string_view latitude, std::string_view longitude, std::string& problem) {
    const std::optional<double> lat = degrees(latitude, 90, "latitude", problem);
    const std::optional<double> lon = lat ? degrees(longitude, 180, "longitude", problem) : std::nullopt;
    return lon ? std::optional(GeoPosition{*lat, *lon}) : std::nullopt;
}

std::optional<GeoPosition> parsePosition(std::string_view text, std::string& problem) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) {
        problem = quoted(text) + " is not a position; write it as LAT,LON in degrees, for example 38.03,-122.13";
        return std::nullopt;
    }
    return parsePosition(text.substr(0, comma), text.substr(comma + 1), problem);
}

BatchRows::BatchRows(std::span<const std::string_view> header, BatchValues values) : values_(std::move(values)) {
    columns_.resize(header.size());
    Scenario options;
    for (const auto& [name, text] : values_.options) {
        if (const std::string problem = setScenarioField(options, *findScenarioField(name), text); !problem.empty()) {
            throw HostError("--" + name + ": " + problem);
        }
    }

    std::vector<std::string> names;
    for (const ScenarioField& field : scenarioFields()) {
        names.emplace_back(field.name);
    }
    std::map<std::string, std::size_t> seen;
    bool anyField = false;
    const auto take = [&](const std::string& name, std::size_t column) {
        if (const auto [place, isNew] = seen.emplace(name, column); !isNew) {
            throw HostError("the column " + quoted(header[column]) + " stands twice (columns " +
                            std::to_string(place->second + 1) + " and " + std::to_string(column + 1) +
                            "); keep one of them");
        }
    };
    constexpr std::size_t kMostWarnings = 5;
    for (std::size_t i = 0; i < header.size(); ++i) {
        const std::string name = header[i].size() > 64 ? std::string() : fieldName(header[i]);
        const ScenarioField* field = findScenarioField(name);
        const auto answer = std::find(kAnswerColumns.begin(), kAnswerColumns.end(), name);
        if (field != nullptr) {
            take(name, i);
            anyField = true;
            columns_[i].field = values_.options.contains(name) ? nullptr : field;
        } else if (answer != kAnswerColumns.end()) {
            take(name, i);
            earlier_[static_cast<std::size_t>(answer - kAnswerColumns.begin())] = i;
        } else if (name == "lat" || name == "latitude") {
            take("latitude", i);
            latitude_ = i;
        } else if (name == "lon" || name == "lng" || name == "longitude") {
            take("longitude", i);
            longitude_ = i;
        } else if (name == "at") {
            take(name, i);
            at_ = i;
        } else if (warnings_.size() < kMostWarnings && i < 1000 && name.size() > 4) {
            const std::vector<std::string> near = nearestNames(name, names);
            if (!near.empty() && near.front().front() == name.front()) {
                warnings_.push_back("the column " + quoted(header[i]) +
                                    " is no field of a scenario and is kept as it is" + didYouMean(near));
            }
        }
    }
    if (!anyField) {
        throw HostError("the first row, " + quoted(header.empty() ? std::string_view() : header.front()) +
                        (header.size() > 1 ? ", ..." : "") +
                        ", names no field of a scenario; a table begins with the names of its columns, such as "
                        "state,amount,level-of-concern");
    }

    Scenario complete[2][2];
    for (const bool screening : {false, true}) {
        for (const bool kilometers : {false, true}) {
            Scenario& scenario = complete[screening][kilometers];
            scenario.screening = screening;
            setScenarioField(scenario, *findScenarioField("units"), kilometers ? "km" : "miles");
            completeScenario(scenario);
        }
    }
    for (const std::string_view name : parameterFields()) {
        const ScenarioField* field = findScenarioField(name);
        Slot slot{field, std::nullopt, {}, {}, {}};
        const bool fromOption = values_.options.contains(name);
        slot.constant = parameterText(fromOption ? options : values_.file, *field);
        for (const bool screening : {false, true}) {
            for (const bool kilometers : {false, true}) {
                slot.otherwise[screening][kilometers] = parameterText(complete[screening][kilometers], *field);
            }
        }
        if (const auto place = seen.find(std::string(name)); place != seen.end() && !fromOption) {
            slot.column = place->second;
        }
        slots_.push_back(std::move(slot));
    }
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const ScenarioField* field = columns_[i].field;
        if (field == nullptr) {
            continue;
        }
        const auto parameter = parameterFields();
        if (std::find(parameter.begin(), parameter.end(), field->name) == parameter.end()) {
            checked_.push_back(i);
        }
        if (field->text == nullptr) {
            columns_[i].known.resize(kKnown);
        }
    }
}

const BatchRows::Known& BatchRows::known(Column& column, std::string_view cell) {
    constexpr std::size_t kLong = 64;  // such cells share one place, so that none is kept for long
    Known& place = column.known[cell.size() > kLong ? 0 : placeOf(cell) & (kKnown - 1)];
    if (place.used && place.cell == cell) {
        return place;
    }
    place.used = true;
    place.cell = cell;
    place.problem = setScenarioField(scratch_, *column.field, cell);
    if (place.problem.empty()) {
        place.text = parameterText(scratch_, *column.field);
    } else {
        place.problem.insert(0, std::string(column.field->name) + ": ");
    }
    return place;
}

bool BatchRows::compose(std::span<const std::string_view> cells, std::string& problem) {
    for (const std::size_t i : checked_) {
        if (columns_[i].field->text != nullptr) {
            continue;  // free text
        }
        if (const Known& cell = known(columns_[i], cells[i]); !cell.problem.empty()) {
            problem = cell.problem;
            return false;
        }
    }
    for (Slot& slot : slots_) {
        slot.current = slot.constant;
        if (slot.column && !isBlankCell(cells[*slot.column])) {
            const Known& cell = known(columns_[*slot.column], cells[*slot.column]);
            if (!cell.problem.empty()) {
                problem = cell.problem;
                return false;
            }
            slot.current = cell.text;
        }
    }
    const bool screening = !slots_.front().current.empty();
    kilometers_ = slots_.back().current == "km";
    parameter_.clear();
    for (const Slot& slot : slots_) {
        parameter_ += &slot == slots_.data() ? "" : "|";
        const bool missing = slot.current.empty() || slot.current == "|";
        parameter_ += missing ? std::string_view(slot.otherwise[screening][kilometers_]) : slot.current;
    }
    if (parameter_.size() > kLongestParameter) {
        problem = "the row's numbers have more digits than the calculator reads; shorten them";
        return false;
    }
    return true;
}

void BatchRows::answer(std::span<const std::string_view> cells, const Calculator& calculator, BatchAnswer& answer) {
    answer.distance.clear();
    answer.unit = {};
    answer.code = 0;
    answer.message.clear();
    if (cells.size() != columns_.size()) {
        answer.code = kBadRow;
        answer.message = "the row has " + std::to_string(cells.size()) + (cells.size() == 1 ? " cell" : " cells") +
                         ", the header " + std::to_string(columns_.size());
        return;
    }
    if (!compose(cells, answer.message)) {
        answer.code = kBadRow;
        return;
    }
    answer.distance = calculator.ask("VSTACalculatePlumeDistance", parameter_);
    if (const std::optional<Rejection> rejection = parseRejection(answer.distance)) {
        answer.distance.clear();
        answer.code = rejection->code;
        answer.message = calculator.takeMessages();
        return;
    }
    double value = 0;
    const std::string_view text = answer.distance;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.starts_with('<') || text.starts_with('>') ||
        (error == std::errc() && rest == text.data() + text.size() && value - value == 0)) {
        answer.unit = kilometers_ ? "km" : "miles";
        return;
    }
    answer.message = "the calculator found no distance, it answered " + quoted(text);
    answer.distance.clear();
    answer.code = kBadRow;
}

std::optional<Scenario> BatchRows::scenario(std::span<const std::string_view> cells, std::string& problem) const {
    Scenario result = values_.file;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (const ScenarioField* field = columns_[i].field; field != nullptr && !trimmed(cells[i]).empty()) {
            problem = setScenarioField(result, *field, cells[i]);
            if (!problem.empty()) {
                problem.insert(0, std::string(field->name) + ": ");
                return std::nullopt;
            }
        }
    }
    for (const auto& [name, text] : values_.options) {
        setScenarioField(result, *findScenarioField(name), text);
    }
    completeScenario(result);
    return result;
}

std::optional<GeoPosition> BatchRows::position(std::span<const std::string_view> cells, std::string& problem) const {
    problem.clear();
    if (at_ && !trimmed(cells[*at_]).empty()) {
        return parsePosition(cells[*at_], problem);
    }
    if (!latitude_ || !longitude_ || (trimmed(cells[*latitude_]).empty() && trimmed(cells[*longitude_]).empty())) {
        return std::nullopt;
    }
    return parsePosition(cells[*latitude_], cells[*longitude_], problem);
}

}  // namespace host
