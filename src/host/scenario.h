// A release as people describe it: what is released, how much, how fast, in what weather. The same names are the
// options of `quil screen`, the keys of a scenario file and the columns of a table.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/units.h"

namespace host {

// What is not given is empty; the calculator asks for what it needs. Words are the lower-case ones of wordsOf(),
// static.
struct Scenario {
    std::string chemical;
    std::string source;  // where the numbers come from
    std::string note;
    bool screening = false;  // the standard worst case
    std::string_view state;
    std::string_view terrain;
    std::string_view stability;  // "A" to "F"
    std::string_view solidForm;
    std::string_view liquidTemperature;
    std::string_view units;  // of the answer
    std::optional<Measure> levelOfConcern;
    std::optional<Measure> amount;
    std::optional<Measure> concentration;
    std::optional<Measure> duration;
    std::optional<Measure> wind;
    std::optional<Measure> windFrom;
    std::optional<Measure> factorAmbient;
    std::optional<Measure> factorBoiling;
    std::optional<Measure> factorMolten;
    std::optional<Measure> dike;

    friend bool operator==(const Scenario&, const Scenario&) = default;
};

// One named value of a scenario. Exactly one of the members is set.
struct ScenarioField {
    std::string_view name;  // "level-of-concern"; the option is "--" and the name
    std::string_view help;
    std::string_view placeholder;                         // of the value in the help
    std::string Scenario::*text = nullptr;                // free text
    std::string_view Scenario::*word = nullptr;           // one of `words`
    std::optional<Measure> Scenario::*measure = nullptr;  // number of `quantity`
    bool Scenario::*flag = nullptr;                       // yes or no
    std::span<const std::string_view> words = {};         // accepted; the canonical ones
    Quantity quantity = Quantity::factor;
    bool option = true;  // also an option of the command line
};

// Every field in the order of reports.
std::span<const ScenarioField> scenarioFields();
// Null when there is no such name. Case and '_' for '-' count as different names.
const ScenarioField* findScenarioField(std::string_view name);

// Sets a field from a text: the option's value, or a table's cell. An empty text takes the value away. Returns what is
// wrong, naming the value and what is accepted, or the empty text; then the scenario is as it was.
std::string setScenarioField(Scenario& scenario, const ScenarioField& field, std::string_view text);
// The field as setScenarioField takes it; empty when it is not given.
std::string scenarioValue(const Scenario& scenario, const ScenarioField& field);

// Sets what a JSON object gives (keys as the fields' names; numbers with units are texts, those without may be numbers,
// flags are true or false; null is "not given"). Throws HostError, naming `file` and the key, or line and column, at
// fault.
void readScenario(std::string_view json, const std::string& file, Scenario& scenario);
// The same from a file of at most 1 MiB; "-" is standard input.
void readScenarioFile(const std::string& path, Scenario& scenario);

// Fills in what is not given: miles, and for the standard worst case class F, open country, ten minutes, and 3.35 mph,
// or 1.5 m/s when the answer is in kilometres.
void completeScenario(Scenario& scenario);

}  // namespace host
