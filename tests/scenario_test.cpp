// Values with units, scenarios and scenario files.
#include "host/scenario.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "host/plugin.h"
#include "host/screening_run.h"
#include "support/process.h"

namespace {

using namespace host;

std::string set(Scenario& scenario, std::string_view name, std::string_view text) {
    const ScenarioField* field = findScenarioField(name);
    return field == nullptr ? "no such field" : setScenarioField(scenario, *field, text);
}

std::string failureOf(const std::string& json) {
    Scenario scenario;
    scenario.chemical = "before";
    try {
        readScenario(json, "file.json", scenario);
    } catch (const HostError& error) {
        EXPECT_EQ(scenario.chemical, "before") << "a failure left its mark";
        return error.what();
    }
    return "no failure";
}

TEST(Units, ValuesReachTheCalculatorInItsUnitsAndWithTheirOwnDigits) {
    struct Row {
        Quantity quantity;
        const char* text;
        const char* number;
        const char* keyword;
    };
    for (const Row& row : {
             Row{Quantity::levelOfConcern, "0.0073 g/m3", "0.0073", ""},
             Row{Quantity::levelOfConcern, "7.3 mg/m3", "0.0073", ""},
             Row{Quantity::levelOfConcern, "0.1mg/m\xC2\xB3", "0.0001", ""},
             Row{Quantity::levelOfConcern, "123456789.123 mg/m^3", "123456.789123", ""},
             Row{Quantity::levelOfConcern, "1.1 MG/CU M", "0.0011", ""},
             Row{Quantity::mass, "150 lb", "150", "LBS"},
             Row{Quantity::mass, "150.50 lbs.", "150.5", "LBS"},
             Row{Quantity::mass, " 68kg ", "68", "KGS"},
             Row{Quantity::mass, "900000000000000 pounds", "900000000000000", "LBS"},
             Row{Quantity::mass, "-5 kilograms", "-5", "KGS"},
             Row{Quantity::duration, "10 min", "10", "MINUTES"},
             Row{Quantity::duration, "1 h", "1", "HOURS"},
             Row{Quantity::duration, "2 Hours", "2", "HOURS"},
             Row{Quantity::speed, "3.35 mph", "3.35", "MPH"},
             Row{Quantity::speed, "1.5 m/s", "1.5", "MPS"},
             Row{Quantity::speed, ".5 metres per second", "0.5", "MPS"},
             Row{Quantity::area, "400 sqft", "400", "SQFT"},
             Row{Quantity::area, "400 sq. ft.", "400", "SQFT"},
             Row{Quantity::area, "37 sq m", "37", "SQM"},
             Row{Quantity::area, "37 m2", "37", "SQM"},
             Row{Quantity::percent, "100", "100", ""},
             Row{Quantity::percent, "37.5 %", "37.5", ""},
             Row{Quantity::factor, "0.000005", "0.000005", ""},
         }) {
        std::string problem;
        std::optional<Measure> measure = parseMeasure(row.quantity, row.text, problem);
        ASSERT_TRUE(measure) << row.text << ": " << problem;
        EXPECT_EQ(calculatorNumber(*measure), row.number) << row.text;
        EXPECT_EQ(measure->unit->keyword, row.keyword) << row.text;
        std::optional<Measure> again = parseMeasure(row.quantity, describe(*measure), problem);
        ASSERT_TRUE(again) << describe(*measure);
        EXPECT_EQ(*again, *measure);
    }
}

TEST(Units, WhatIsNoNumberOrNoUnitIsTold) {
    const std::pair<Quantity, const char*> rows[] = {
        {Quantity::mass, "150"},
        {Quantity::mass, "150 stone"},
        {Quantity::mass, "lb"},
        {Quantity::mass, "1.2.3 lb"},
        {Quantity::mass, "5- lb"},
        {Quantity::mass, "--5 lb"},
        {Quantity::mass, "1e5 lb"},
        {Quantity::mass, "1e-5 lb"},
        {Quantity::mass, "1,000 lb"},
        {Quantity::mass, "+5 lb"},
        {Quantity::mass, "- lb"},
        {Quantity::mass, ". lb"},
        {Quantity::mass, "nan lb"},
        {Quantity::mass, "0x10 lb"},
        {Quantity::mass, "150 min"},
        {Quantity::mass, ""},
        {Quantity::percent, "10 lb"},
        {Quantity::factor, "1 %"},
        {Quantity::levelOfConcern, "5 g"},
        {Quantity::duration, "10 m"},
        {Quantity::mass, "150 lb lb"},
        {Quantity::mass, "1\xFF lb"},
        {Quantity::area, "400 ft"},
        {Quantity::speed, "3 km/h"},
    };
    for (const auto& [quantity, text] : rows) {
        std::string problem;
        EXPECT_FALSE(parseMeasure(quantity, text, problem)) << text;
        EXPECT_FALSE(problem.empty()) << text;
    }
    std::string problem;
    EXPECT_FALSE(parseMeasure(Quantity::mass, "0." + std::string(62, '0') + "1 lb", problem));
    EXPECT_NE(problem.find("63"), std::string::npos) << problem;
    EXPECT_FALSE(parseMeasure(Quantity::mass, std::string(400, '9') + " lb", problem));
    EXPECT_FALSE(parseMeasure(Quantity::levelOfConcern, "0." + std::string(59, '0') + "1 mg/m3", problem))
        << "64 in g/m3";
}

TEST(Scenario, ValuesAreSetClearedAndRefusedByName) {
    Scenario scenario;
    EXPECT_EQ(set(scenario, "state", "GAS"), "");
    EXPECT_EQ(scenario.state, "gas");
    EXPECT_EQ(set(scenario, "stability", "f"), "");
    EXPECT_EQ(scenario.stability, "F");
    EXPECT_EQ(set(scenario, "units", "kilometers"), "");
    EXPECT_EQ(scenario.units, "km");
    EXPECT_EQ(set(scenario, "wind-from", "360"), "");
    EXPECT_NE(set(scenario, "wind-from", "361"), "");
    EXPECT_EQ(scenario.windFrom->value, 360);
    std::string problem = set(scenario, "amount", "150 stone");
    for (const char* part : {"150 stone", "\"stone\"", "lb or kg"}) {
        EXPECT_NE(problem.find(part), std::string::npos) << problem;
    }
    EXPECT_EQ(set(scenario, "terrain", "hilly"), "\"hilly\" is not one of open or urban");
    EXPECT_NE(set(scenario, "screening", "maybe"), "");
    EXPECT_EQ(set(scenario, "state", ""), "");
    EXPECT_TRUE(scenario.state.empty());
    EXPECT_EQ(findScenarioField("Amount"), nullptr);
}

TEST(Scenario, TheWorstCaseFillsInWhatIsNotGiven) {
    Scenario scenario;
    scenario.screening = true;
    completeScenario(scenario);
    EXPECT_EQ(composeParameter(scenario), "SCREENING|||open|3.35|MPH||||F||||||10|MINUTES|||miles");
    Scenario metric;
    metric.screening = true;
    metric.units = "km";
    set(metric, "terrain", "urban");
    completeScenario(metric);
    EXPECT_EQ(composeParameter(metric), "SCREENING|||urban|1.5|MPS||||F||||||10|MINUTES|||km");
}

TEST(Scenario, EveryValueHasItsPlaceInTheParameter) {
    Scenario scenario;
    const std::pair<const char*, const char*> values[] = {
        {"chemical", "A|B"},
        {"state", "liquid"},
        {"level-of-concern", "2 mg/m3"},
        {"terrain", "urban"},
        {"wind", "4 m/s"},
        {"amount", "5 kg"},
        {"concentration", "60"},
        {"stability", "D"},
        {"solid-form", "molten"},
        {"factor-ambient", "0.1"},
        {"factor-boiling", "0.2"},
        {"factor-molten", "0.3"},
        {"duration", "2 h"},
        {"dike", "9 sq m"},
        {"units", "km"},
        {"liquid-temperature", "boiling"},
    };
    for (const auto& [name, value] : values) {
        ASSERT_EQ(set(scenario, name, value), "") << name;
    }
    EXPECT_EQ(composeParameter(scenario),
              "|0.002|liquid|urban|4|MPS|5|KGS|60|D|molten|boiling|0.1|0.2|0.3|2|HOURS|9|SQM|km");
    for (const char* name :
         {"factor-ambient", "factor-boiling", "factor-molten", "concentration", "level-of-concern"}) {
        std::string unit = std::string(name) == "level-of-concern" ? " g/m3" : "";
        ASSERT_EQ(set(scenario, name, "0." + std::string(59, '0') + "1" + unit), "") << name;
    }
    EXPECT_THROW(composeParameter(scenario), HostError) << "longer than the calculator reads";
}

TEST(ScenarioFile, KeysAreTheOptionsNames) {
    Scenario scenario;
    readScenario(
        R"({"chemical": "Chlorine", "state": "gas", "amount": "150 lb", "concentration": 100, "factor-ambient": 5e-6,
                     "screening": true, "dike": null, "source": "a book", "note": "why"})",
        "file.json", scenario);
    EXPECT_EQ(scenario.chemical, "Chlorine");
    EXPECT_TRUE(scenario.screening);
    EXPECT_EQ(calculatorNumber(*scenario.factorAmbient), "0.000005");
    EXPECT_FALSE(scenario.dike);
    EXPECT_EQ(scenario.source, "a book");
}

TEST(ScenarioFile, FailuresNameTheFileAndThePlace) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"amont": "5 lb"})", "file.json: unknown key \"amont\" - did you mean amount?"},
        {R"({"AMOUNT": "5 lb"})", "unknown key \"AMOUNT\""},
        {R"({"amount": 5})", "file.json: amount: is a number where a text with number and unit belongs: lb or kg"},
        {R"({"concentration": true})", "concentration: is true or false where a number belongs"},
        {R"({"screening": "yes"})", "screening: is a text where true or false belongs"},
        {R"({"state": ["gas"]})", "state: is a list where a text belongs"},
        {R"({"wind": "3 furlongs"})", "wind: \"3 furlongs\": unknown unit \"furlongs\"; write it in mph or m/s"},
        {R"({"amount": "5 lb", "amount": "6 lb"})", "the key \"amount\" stands twice"},
        {"{\"state\": \"gas\",\n \"amount\": 5 lb}", "file.json:2:14: this is not JSON"},
        {"", "file.json:1:1: this is not JSON"},
        {"{\"state\": \"\xFF\"}", "this is not JSON"},
        {R"({"concentration": 1e999})", "this is not JSON"},
        {R"([])", "file.json: a scenario is a JSON object"},
        {R"(null)", "this is null"},
        {R"({"concentration": 1e-70})", "concentration"},
    };
    for (const auto& [json, expected] : rows) {
        std::string failure = failureOf(json);
        EXPECT_NE(failure.find(expected), std::string::npos) << json << "\n" << failure;
    }
    EXPECT_NE(failureOf(std::string(200000, '[')).find("this is not JSON"), std::string::npos);
}

TEST(ScenarioFile, WhatCannotBeReadIsNamed) {
    support::TemporaryFolder folder;
    Scenario scenario;
    support::writeFile(folder.file("large.json"), std::string((1 << 20) + 1, ' '));
    const std::pair<std::string, const char*> rows[] = {
        {folder.file("none.json"), "No such file"},
        {folder.path().string(), "Is a directory"},
        {folder.file("large.json"), "at most 1 MiB"},
    };
    for (const auto& [path, expected] : rows) {
        try {
            readScenarioFile(path, scenario);
            ADD_FAILURE() << path;
        } catch (const HostError& error) {
            EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
        }
    }
}

}  // namespace
