// Values with units, scenarios and scenario files.
#include "host/scenario.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "host/plugin.h"
#include "host/screening_run.h"
#include "support/process.h"

namespace {

using namespace host;

using Parts = std::pair<std::string, std::string>;

// What stands before and behind the "=" of a row.
Parts split(const std::string& row) {
    const std::size_t at = row.find('=');
    return {row.substr(0, at), row.substr(at + 1)};
}

// "name=value" or what is wrong with it.
std::string set(Scenario& scenario, const std::string& assignment) {
    const auto [name, value] = split(assignment);
    return setScenarioField(scenario, *findScenarioField(name), value);
}

std::string failureOf(const std::function<void(Scenario&)>& read) {
    Scenario scenario;
    scenario.chemical = "before";
    try {
        read(scenario);
    } catch (const HostError& error) {
        EXPECT_EQ(scenario.chemical, "before") << "a failure left its mark";
        return error.what();
    }
    return "no failure";
}

TEST(Units, ValuesReachTheCalculatorInItsUnitsAndWithTheirOwnDigits) {
    const std::pair<Quantity, std::vector<std::string>> rows[] = {
        {Quantity::levelOfConcern,
         {"0.0073 g/m3=0.0073", "0.1mg/m\xC2\xB3=0.0001", "123456789.123 mg/m^3=123456.789123", "1.1 MG/CU M=0.0011"}},
        {Quantity::mass,
         {"150.50 lbs.=150.5LBS", " 68kg =68KGS", "-5 kilograms=-5KGS", "900000000000000 pounds=900000000000000LBS"}},
        {Quantity::duration, {"10 min=10MINUTES", "2 Hours=2HOURS"}},
        {Quantity::speed, {"3.35 mph=3.35MPH", ".5 metres per second=0.5MPS"}},
        {Quantity::area, {"400 sq. ft.=400SQFT", "37 sq m=37SQM", "37 m2=37SQM"}},
        {Quantity::percent, {"37.5 %=37.5"}},
        {Quantity::factor, {"0.000005=0.000005"}}};
    for (const auto& [quantity, texts] : rows) {
        for (const std::string& row : texts) {
            const auto [text, expected] = split(row);
            std::string problem;
            const std::optional<Measure> measure = parseMeasure(quantity, text, problem);
            ASSERT_TRUE(measure) << text << ": " << problem;
            EXPECT_EQ(calculatorNumber(*measure) + std::string(measure->unit->keyword), expected) << text;
            EXPECT_EQ(parseMeasure(quantity, describe(*measure), problem), measure) << describe(*measure);
        }
    }
}

TEST(Units, WhatIsNoNumberOrNoUnitIsTold) {
    const std::pair<Quantity, std::vector<std::string>> rows[] = {
        {Quantity::mass,
         {"", "150", "150 stone", "lb", "1.2.3 lb", "5- lb", "--5 lb", "1e5 lb", "1,000 lb", "+5 lb", "- lb", ". lb",
          "nan lb", "0x10 lb", "150 min", "150 lb lb", "1\xFF lb", std::string(400, '9') + " lb"}},
        {Quantity::percent, {"10 lb"}},
        {Quantity::factor, {"1 %"}},
        {Quantity::levelOfConcern, {"5 g", "0." + std::string(59, '0') + "1 mg/m3"}},  // 64 characters in g/m3
        {Quantity::duration, {"10 m"}},
        {Quantity::area, {"400 ft"}},
        {Quantity::speed, {"3 km/h"}}};
    for (const auto& [quantity, texts] : rows) {
        for (const std::string& text : texts) {
            std::string problem;
            EXPECT_FALSE(parseMeasure(quantity, text, problem)) << text;
            EXPECT_FALSE(problem.empty()) << text;
        }
    }
    std::string problem;
    EXPECT_FALSE(parseMeasure(Quantity::mass, "0." + std::string(62, '0') + "1 lb", problem));
    EXPECT_NE(problem.find("63"), std::string::npos) << problem;
}

TEST(Scenario, ValuesAreSetClearedAndRefusedByName) {
    Scenario scenario;
    for (const char* row :
         {"state=GAS", "stability=f", "units=kilometers", "wind-from=360", "terrain=urban", "terrain="}) {
        EXPECT_EQ(set(scenario, row), "") << row;
    }
    EXPECT_EQ(scenario.state, "gas");
    EXPECT_EQ(scenario.stability, "F");
    EXPECT_EQ(scenario.units, "km");
    EXPECT_TRUE(scenario.terrain.empty());
    EXPECT_NE(set(scenario, "wind-from=361"), "");
    EXPECT_EQ(scenario.windFrom->value, 360);
    EXPECT_EQ(set(scenario, "terrain=hilly"), "\"hilly\" is not one of open or urban");
    EXPECT_NE(set(scenario, "screening=maybe"), "");
    EXPECT_EQ(findScenarioField("Amount"), nullptr);
}

TEST(Scenario, TheWorstCaseFillsInWhatIsNotGiven) {
    Scenario scenario;
    scenario.screening = true;
    Scenario metric = scenario;
    completeScenario(scenario);
    EXPECT_EQ(composeParameter(scenario), "SCREENING|||open|3.35|MPH||||F||||||10|MINUTES|||miles");
    metric.units = "km";
    set(metric, "terrain=urban");
    completeScenario(metric);
    EXPECT_EQ(composeParameter(metric), "SCREENING|||urban|1.5|MPS||||F||||||10|MINUTES|||km");
}

TEST(Scenario, EveryValueHasItsPlaceInTheParameter) {
    Scenario scenario;
    for (const char* row :
         {"chemical=A|B", "state=liquid", "level-of-concern=2 mg/m3", "terrain=urban", "wind=4 m/s", "amount=5 kg",
          "concentration=60", "stability=D", "solid-form=molten", "factor-ambient=0.1", "factor-boiling=0.2",
          "factor-molten=0.3", "duration=2 h", "dike=9 sq m", "units=km", "liquid-temperature=boiling"}) {
        ASSERT_EQ(set(scenario, row), "") << row;
    }
    EXPECT_EQ(composeParameter(scenario),
              "|0.002|liquid|urban|4|MPS|5|KGS|60|D|molten|boiling|0.1|0.2|0.3|2|HOURS|9|SQM|km");
    const std::string longNumber = "=0." + std::string(59, '0') + "1";
    for (const char* name : {"factor-ambient", "factor-boiling", "factor-molten", "concentration"}) {
        ASSERT_EQ(set(scenario, name + longNumber), "") << name;
    }
    set(scenario, "level-of-concern" + longNumber + " g/m3");
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
    const std::pair<std::string, const char*> rows[] = {
        {R"({"amont": "5 lb"})", "file.json: unknown key \"amont\" - did you mean amount?"},
        {R"({"amount": 5})", "file.json: amount: is a number where a text with number and unit belongs: lb or kg"},
        {R"({"concentration": true})", "concentration: is true or false where a number belongs"},
        {R"({"screening": "yes"})", "screening: is a text where true or false belongs"},
        {R"({"state": ["gas"]})", "state: is a list where a text belongs"},
        {R"({"wind": "3 furlongs"})", "wind: \"3 furlongs\": unknown unit \"furlongs\"; write it in mph or m/s"},
        {R"({"amount": "5 lb", "amount": "6 lb"})", "the key \"amount\" stands twice"},
        {"{\"state\": \"gas\",\n \"amount\": 5 lb}", "file.json:2:14: this is not JSON"},
        {"{\"state\": \"\xFF\"}", "this is not JSON"},
        {R"({"concentration": 1e999})", "this is not JSON"},
        {R"([])", "file.json: a scenario is a JSON object"},
        {R"({"concentration": 1e-70})", "concentration"},
        {std::string(200000, '['), "this is not JSON"}};
    for (const auto& [json, expected] : rows) {
        const std::string failure = failureOf([&, &text = json](Scenario& s) { readScenario(text, "file.json", s); });
        EXPECT_NE(failure.find(expected), std::string::npos) << json << "\n" << failure;
    }
}

TEST(ScenarioFile, WhatCannotBeReadIsNamed) {
    support::TemporaryFolder folder;
    support::writeFile(folder.file("large"), std::string((1 << 20) + 1, ' '));
    for (const auto& [name, expected] :
         {std::pair{"none", "No such file"}, {"", "Is a directory"}, {"large", "at most 1 MiB"}}) {
        const std::string path = folder.file(name);
        const std::string failure = failureOf([&path](Scenario& scenario) { readScenarioFile(path, scenario); });
        EXPECT_NE(failure.find(path), std::string::npos) << failure;
        EXPECT_NE(failure.find(expected), std::string::npos) << failure;
    }
}

}  // namespace
