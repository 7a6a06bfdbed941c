#include "host/scenario.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "host/commands.h"
#include "host/plugin.h"

namespace host {
namespace {

constexpr std::size_t kLargestFile = 1 << 20;
constexpr std::size_t kLongestText = 4000;

constexpr std::string_view kStates[] = {"gas", "liquid", "solid"};
constexpr std::string_view kTerrains[] = {"open", "urban"};
constexpr std::string_view kClasses[] = {"A", "B", "C", "D", "E", "F"};
constexpr std::string_view kTemperatures[] = {"ambient", "boiling"};
constexpr std::string_view kForms[] = {"powder", "solution", "molten"};
constexpr std::string_view kUnits[] = {"miles", "km"};

constexpr ScenarioField kFields[] = {
    {.name = "chemical", .help = "Name for the report", .placeholder = "NAME", .text = &Scenario::chemical},
    {.name = "state",
     .help = "Physical state in which it is kept: gas, liquid or solid",
     .placeholder = "STATE",
     .word = &Scenario::state,
     .words = kStates},
    {.name = "level-of-concern",
     .help = "Concentration in air that counts as harmful, in g/m3 or mg/m3",
     .placeholder = "\"N g/m3\"",
     .measure = &Scenario::levelOfConcern,
     .quantity = Quantity::levelOfConcern},
    {.name = "amount",
     .help = "Amount released, in lb or kg",
     .placeholder = "\"N lb\"",
     .measure = &Scenario::amount,
     .quantity = Quantity::mass},
    {.name = "concentration",
     .help = "Weight percent of the chemical in what is released, 0 to 100",
     .placeholder = "PERCENT",
     .measure = &Scenario::concentration,
     .quantity = Quantity::percent},
    {.name = "duration",
     .help = "How long a gas, powder or solution is released: whole min or h",
     .placeholder = "\"N min\"",
     .measure = &Scenario::duration,
     .quantity = Quantity::duration},
    {.name = "liquid-temperature",
     .help = "Of a liquid: ambient, or boiling (at or near its boiling point)",
     .placeholder = "WORD",
     .word = &Scenario::liquidTemperature,
     .words = kTemperatures},
    {.name = "solid-form",
     .help = "Of a solid: powder, solution or molten",
     .placeholder = "WORD",
     .word = &Scenario::solidForm,
     .words = kForms},
    {.name = "factor-ambient",
     .help = "Liquid factor ambient of the chemical (LFA)",
     .placeholder = "N",
     .measure = &Scenario::factorAmbient,
     .quantity = Quantity::factor},
    {.name = "factor-boiling",
     .help = "Liquid factor boiling of the chemical (LFB)",
     .placeholder = "N",
     .measure = &Scenario::factorBoiling,
     .quantity = Quantity::factor},
    {.name = "factor-molten",
     .help = "Liquid factor molten of the chemical (LFM)",
     .placeholder = "N",
     .measure = &Scenario::factorMolten,
     .quantity = Quantity::factor},
    {.name = "dike",
     .help = "Area that holds the spilled liquid, in sq ft or sq m; none without it",
     .placeholder = "\"N sqft\"",
     .measure = &Scenario::dike,
     .quantity = Quantity::area},
    {.name = "terrain", .help = "open or urban", .placeholder = "WORD", .word = &Scenario::terrain, .words = kTerrains},
    {.name = "wind",
     .help = "Wind speed, in mph or m/s",
     .placeholder = "\"N mph\"",
     .measure = &Scenario::wind,
     .quantity = Quantity::speed},
    {.name = "wind-from",
     .help = "Compass direction that the wind blows from, 0 to 360 degrees; for the report and the picture only",
     .placeholder = "DEGREES",
     .measure = &Scenario::windFrom,
     .quantity = Quantity::direction},
    {.name = "stability",
     .help = "Atmospheric stability class, A (very unstable) to F (stable)",
     .placeholder = "CLASS",
     .word = &Scenario::stability,
     .words = kClasses},
    {.name = "screening",
     .help = "The standard worst case: class F, 3.35 mph or 1.5 m/s, open country, 10 minutes, where not given",
     .placeholder = "",
     .flag = &Scenario::screening},
    {.name = "units",
     .help = "Unit of the answer: miles or km",
     .placeholder = "UNIT",
     .word = &Scenario::units,
     .words = kUnits},
    {.name = "source",
     .help = "Where the numbers come from",
     .placeholder = "TEXT",
     .text = &Scenario::source,
     .option = false},
    {.name = "note", .help = "Anything worth knowing", .placeholder = "TEXT", .text = &Scenario::note, .option = false},
};

std::string inQuotes(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

std::string listOf(std::span<const std::string_view> words) {
    std::string list;
    for (std::size_t i = 0; i < words.size(); ++i) {
        list += i == 0 ? "" : i + 1 == words.size() ? " or " : ", ";
        list += words[i];
    }
    return list;
}

// The canonical word for a text, or empty.
std::string_view wordOf(const ScenarioField& field, std::string_view text) {
    std::string lower = lowerCase(text);
    if (field.words.data() == kUnits) {
        if (lower == "mi" || lower == "mile") {
            lower = "miles";
        } else if (lower == "kilometers" || lower == "kilometres") {
            lower = "km";
        }
    }
    for (std::string_view word : field.words) {
        if (lowerCase(word) == lower) {
            return word;
        }
    }
    return {};
}

const char* typeName(const nlohmann::json& value) {
    return value.is_object()    ? "an object"
           : value.is_array()   ? "a list"
           : value.is_boolean() ? "true or false"
           : value.is_number()  ? "a number"
                                : "a text";
}

// The value of a key as setScenarioField takes it; empty with `problem` set when its type is wrong.
std::string textOf(const ScenarioField& field, const nlohmann::json& value, std::string& problem) {
    if (value.is_null()) {
        return {};
    }
    bool unitless =
        field.measure != nullptr && (field.quantity == Quantity::percent || field.quantity == Quantity::factor ||
                                     field.quantity == Quantity::direction);
    if (field.flag != nullptr && value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (field.flag == nullptr && value.is_string()) {
        return value.get<std::string>();
    }
    if (unitless && value.is_number()) {
        return plainDecimal(value.get<double>());
    }
    problem = std::string("is ") + typeName(value) + " where ";
    if (field.flag != nullptr) {
        problem += "true or false belongs";
    } else if (field.measure != nullptr && !unitless) {
        problem += "a text with number and unit belongs: ";
        problem += acceptedUnits(field.quantity);
    } else if (unitless) {
        problem += "a number belongs";
    } else {
        problem += "a text belongs";
    }
    return {};
}

struct Position {
    std::size_t line = 1;
    std::size_t column = 1;
};

// Where byte `offset` (from 0) stands; columns count bytes.
Position positionOf(std::string_view text, std::size_t offset) {
    Position position;
    for (char c : text.substr(0, offset)) {
        position.column = c == '\n' ? 1 : position.column + 1;
        position.line += c == '\n';
    }
    return position;
}

// What the parser has to say, without its own prefix and position.
std::string reasonOf(std::string_view what) {
    std::size_t start = what.starts_with('[') ? what.find("] ") : what.npos;
    std::string_view reason = start == what.npos ? what : what.substr(start + 2);
    if (reason.starts_with("parse error at ") && reason.find(": ") != reason.npos) {
        reason.remove_prefix(reason.find(": ") + 2);
    }
    std::string shown;
    while (!reason.empty()) {  // printable() is for short texts
        std::string_view piece = reason.substr(0, 40);
        shown += printable(piece);
        reason.remove_prefix(piece.size());
        if (shown.size() > 200) {
            return shown + "...";
        }
    }
    return shown;
}

}  // namespace

std::span<const ScenarioField> scenarioFields() {
    return kFields;
}

const ScenarioField* findScenarioField(std::string_view name) {
    for (const ScenarioField& field : kFields) {
        if (field.name == name) {
            return &field;
        }
    }
    return nullptr;
}

std::string setScenarioField(Scenario& scenario, const ScenarioField& field, std::string_view text) {
    std::string_view value = trimmed(text);
    if (field.text != nullptr) {
        if (value.size() > kLongestText) {
            return "the text has more than " + std::to_string(kLongestText) + " bytes";
        }
        scenario.*field.text = value;
        return {};
    }
    if (field.flag != nullptr) {
        std::string lower = lowerCase(value);
        bool yes = lower == "yes" || lower == "true" || lower == "1";
        if (!yes && !lower.empty() && lower != "no" && lower != "false" && lower != "0") {
            return inQuotes(value) + " is neither yes nor no";
        }
        scenario.*field.flag = yes;
        return {};
    }
    if (field.word != nullptr) {
        std::string_view word = wordOf(field, value);
        if (word.empty() && !value.empty()) {
            return inQuotes(value) + " is not one of " + listOf(field.words);
        }
        scenario.*field.word = word;
        return {};
    }
    if (value.empty()) {
        (scenario.*field.measure).reset();
        return {};
    }
    std::string problem;
    std::optional<Measure> measure = parseMeasure(field.quantity, value, problem);
    if (measure && field.quantity == Quantity::direction && (measure->value < 0 || measure->value > 360)) {
        problem = "a direction lies between 0 and 360";
        measure.reset();
    }
    if (!measure) {
        return inQuotes(value) + ": " + problem + "; write it in " + std::string(acceptedUnits(field.quantity));
    }
    scenario.*field.measure = measure;
    return {};
}

std::string scenarioValue(const Scenario& scenario, const ScenarioField& field) {
    if (field.text != nullptr) {
        return scenario.*field.text;
    }
    if (field.flag != nullptr) {
        return scenario.*field.flag ? "yes" : "";
    }
    if (field.word != nullptr) {
        return std::string(scenario.*field.word);
    }
    const std::optional<Measure>& measure = scenario.*field.measure;
    return measure ? describe(*measure) : std::string();
}

void readScenario(std::string_view json, const std::string& file, Scenario& scenario) {
    std::set<std::string> seen;
    std::string repeated;
    auto watch = [&](int depth, nlohmann::json::parse_event_t event, nlohmann::json& parsed) {
        if (event == nlohmann::json::parse_event_t::key && depth == 1) {
            auto key = parsed.get<std::string>();
            if (!seen.insert(key).second && repeated.empty()) {
                repeated = key.empty() ? " " : key;
            }
        }
        return true;
    };
    nlohmann::json document;
    try {
        document = nlohmann::json::parse(json, watch);
    } catch (const nlohmann::json::parse_error& error) {
        Position position = positionOf(json, error.byte == 0 ? 0 : error.byte - 1);
        throw HostError(file + ":" + std::to_string(position.line) + ":" + std::to_string(position.column) +
                        ": this is not JSON: " + reasonOf(error.what()));
    } catch (const nlohmann::json::exception& error) {
        throw HostError(file + ": this is not JSON: " + reasonOf(error.what()));
    }
    if (!document.is_object()) {
        throw HostError(file + ": a scenario is a JSON object such as {\"state\": \"gas\"}, this is " +
                        (document.is_null() ? "null" : typeName(document)));
    }
    if (!repeated.empty()) {
        throw HostError(file + ": the key " + inQuotes(repeated) + " stands twice; keep one");
    }
    Scenario read = scenario;
    for (const auto& [key, value] : document.items()) {
        const ScenarioField* field = findScenarioField(key);
        if (field == nullptr) {
            std::vector<std::string> names;
            for (const ScenarioField& known : kFields) {
                names.emplace_back(known.name);
            }
            throw HostError(file + ": unknown key " + inQuotes(key) + didYouMean(nearestNames(key, names)));
        }
        std::string problem;
        std::string text = textOf(*field, value, problem);
        if (problem.empty()) {
            problem = setScenarioField(read, *field, text);
        }
        if (!problem.empty()) {
            throw HostError(file + ": " + std::string(field->name) + ": " + problem);
        }
    }
    scenario = std::move(read);
}

void readScenarioFile(const std::string& path, Scenario& scenario) {
    std::string file = path == "-" ? "standard input" : path;
    std::ifstream opened;
    if (path != "-") {
        errno = 0;
        opened.open(path, std::ios::binary);
        if (!opened) {
            throw HostError(file + ": the scenario file cannot be read: " + std::strerror(errno));
        }
    }
    std::istream& stream = path == "-" ? std::cin : opened;
    std::string text(kLargestFile + 1, '\0');
    errno = 0;
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (stream.bad() || (stream.gcount() == 0 && errno != 0)) {
        throw HostError(file + ": the scenario file cannot be read: " + std::strerror(errno));
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (text.size() > kLargestFile) {
        throw HostError(file + ": a scenario file has at most 1 MiB");
    }
    readScenario(text, file, scenario);
}

void completeScenario(Scenario& scenario) {
    auto fill = [&](std::string_view name, std::string_view text) {
        const ScenarioField& field = *findScenarioField(name);
        if (scenarioValue(scenario, field).empty()) {
            setScenarioField(scenario, field, text);
        }
    };
    fill("units", "miles");
    if (scenario.screening) {
        fill("stability", "F");
        fill("wind", scenario.units == "km" ? "1.5 m/s" : "3.35 mph");
        fill("terrain", "open");
        fill("duration", "10 min");
    }
}

}  // namespace host
