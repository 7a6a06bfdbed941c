// `quil screen`: asking the plug-in, the report, the pictures, and files that are written whole or not at all.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "host/atomic_file.h"
#include "host/plugin.h"
#include "host/scenario.h"
#include "host/screen_plot.h"
#include "host/screen_report.h"
#include "host/screen_svg.h"
#include "host/screening_run.h"
#include "support/process.h"

namespace {

using namespace host;
using support::Outcome;
using support::quil;
using support::TemporaryFolder;

const std::string kExamples = QUIL_SOURCE_DIR "/examples/";
const std::string kChlorine = kExamples + "chlorine-cylinder.json";

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

Outcome screen(std::vector<std::string> arguments, const support::RunOptions& options = {},
               const std::string& file = kChlorine) {
    arguments.insert(arguments.begin(), {"screen", file});
    return quil(arguments, options);
}

// A lens of the length, 25 points, half-widths up to `widest`.
Footprint lens(double distance, double widest) {
    Footprint footprint{distance, {}};
    for (int i = 1; i <= 25; ++i) {
        double part = i / 25.0;
        footprint.points.push_back({distance * part, widest * 2.6 * part * std::sqrt(1 - part)});
    }
    return footprint;
}

// ---- asking ----

TEST(ScreeningRun, FootprintsAreReadWholeOrRefused) {
    std::string good = "2500.0\r";
    for (int i = 1; i <= 25; ++i) {
        good += std::to_string(i * 100) + ".0," + std::to_string(i < 12 ? i : 25 - i) + ".5\r";
    }
    std::string problem;
    std::optional<Footprint> footprint = parseFootprint(good, problem);
    ASSERT_TRUE(footprint) << problem;
    EXPECT_EQ(footprint->distance, 2500);
    EXPECT_EQ(footprint->widest().downwind, 1200);
    EXPECT_EQ(footprint->widest().halfWidth, 13.5);
    for (const std::string& bad :
         {std::string(), "-5.0\r" + good.substr(7), good.substr(0, good.size() - 1), good.substr(0, good.size() - 9),
          good + "2600.0,1.0\r", std::string("2500.0\r100.0,nan\r"), std::string("ERROR 7 TRUE")}) {
        problem.clear();
        EXPECT_FALSE(parseFootprint(bad, problem)) << bad;
        EXPECT_FALSE(problem.empty()) << bad;
    }
}

TEST(ScreeningRun, AnAnswerThatIsNoneOfTheFunctionsEndsTheRun) {
    for (const char* answer : {"", "far", "1.3 miles", "ERROR", "ERROR x TRUE", "ERROR 5 MAYBE", "> 12"}) {
        Calculator calculator{[&](std::string_view, std::string_view) { return std::string(answer); },
                              [] { return std::string(); }};
        EXPECT_THROW(runScreening({}, calculator), HostError) << answer;
    }
}

TEST(ScreenCommand, EachRejectionNamesItsOptionAndTheCalculatorsOwnWords) {
    constexpr char kAmmonia[] = "ammonia-refrigeration";
    const std::tuple<const char*, std::vector<std::string>, const char*> rows[] = {
        {"chlorine-cylinder", {"--level-of-concern", ""}, "--level-of-concern (not given): Missing level of concern"},
        {kAmmonia, {"--state", ""}, "--state (not given): Please specify physical state. (error 3)"},
        {"chlorine-cylinder", {"--terrain", "urban"}, "--terrain \"urban\": Programmer Error: Open topography is"},
        {kAmmonia, {"--wind", "2.29 mph"}, "--wind \"2.29 mph\": Speed must be between 2.3 and 134 miles"},
        {kAmmonia, {"--amount", "0 kg"}, "--amount \"0 kg\": Amount released invalid"},
        {kAmmonia, {"--concentration", "101"}, "--concentration \"101 %\": Please enter a concentration"},
        {kAmmonia, {"--stability", "F"}, "--stability \"F\": Stability class must be B, C, D, or E"},
        {kAmmonia, {"--duration", "1.5 h"}, "--duration \"1.5 h\": Programmer Error: release duration"},
        {"phenol-molten", {"--duration", "10 min", "--solid-form", ""}, "--solid-form (not given): Please specify the"},
        {"phenol-molten", {"--factor-molten", "0"}, "--factor-molten \"0\": Invalid liquid factor molten"},
        {"acrolein-drum", {"--liquid-temperature", ""}, "--liquid-temperature (not given): Please indicate whether"},
        {"acrolein-drum", {"--factor-ambient", ""}, "--factor-ambient (not given): Missing liquid factor ambient"},
        {"acrolein-drum", {"--liquid-temperature", "boiling"}, "--factor-boiling (not given): Missing liquid factor"},
        {"acrolein-drum", {"--dike", "-1 sqft"}, "--dike \"-1 sq ft\": Invalid diked area value."}};
    for (const auto& [example, options, message] : rows) {
        Outcome outcome = screen(options, {}, kExamples + example + ".json");
        EXPECT_EQ(outcome.status, 1) << message;
        EXPECT_TRUE(contains(outcome.errors, message)) << outcome.errors << "\nexpected: " << message;
        EXPECT_EQ(outcome.output, "");
    }
    Outcome outcome = screen({"--json", "--amount", "0 lb"});
    EXPECT_EQ(outcome.status, 1);
    auto report = nlohmann::json::parse(outcome.output);
    EXPECT_EQ(report["error"]["code"], 7);
    EXPECT_EQ(report["error"]["option"], "--amount");
    EXPECT_EQ(report["error"]["correctable"], true);
    EXPECT_TRUE(report["distance"].is_null());
}

// ---- the report ----

TEST(ScreenCommand, EveryExampleRunsNamesItsSourceAndAgreesWithTheCalculator) {
    std::map<std::string, int> states;
    for (const auto& entry : std::filesystem::directory_iterator(kExamples)) {
        if (entry.path().extension() != ".json") {
            continue;
        }
        SCOPED_TRACE(entry.path());
        Scenario scenario;
        readScenarioFile(entry.path(), scenario);
        EXPECT_GT(scenario.source.size(), 40U) << "where do the numbers come from?";
        completeScenario(scenario);
        ++states[std::string(scenario.state)];

        Outcome json = quil({"screen", entry.path(), "--json"});
        ASSERT_EQ(json.status, 0) << json.errors;
        auto report = nlohmann::json::parse(json.output);
        std::string parameter = report["parameter"];
        EXPECT_EQ(parameter, composeParameter(scenario));
        EXPECT_EQ(quil({"call", "--raw", "VSTACalculatePlumeDistance", parameter}).output, report["distance"]["text"]);
        EXPECT_EQ(report["footprint"].size(), 25U);
        double meters = report["distance"]["meters"];
        EXPECT_NEAR(report["footprint"][24][0], meters, 0.1);
        double widest = 0;
        for (const auto& point : report["footprint"]) {
            widest = std::max(widest, point[1].get<double>());
        }
        EXPECT_EQ(report["widest"]["half-width-meters"], widest);

        Outcome text = quil({"screen", entry.path()});
        EXPECT_EQ(text.status, 0);
        EXPECT_TRUE(contains(text.output, scenario.chemical + ": ")) << text.output;
        EXPECT_TRUE(contains(text.output, metersText(meters))) << text.output;
        EXPECT_TRUE(contains(text.output, metersText(widest))) << text.output;
        EXPECT_EQ(contains(text.output, "outside 100 m to 10 km"), meters < 100 || meters > 10000) << text.output;
    }
    EXPECT_TRUE(states.count("gas") && states.count("liquid") && states.count("solid"));
}

TEST(ScreenCommand, CapsAndExtrapolationAreExplained) {
    const std::pair<std::vector<std::string>, std::vector<const char*>> rows[] = {
        {{"--amount", "180000 lb"},
         {"more than 10 miles downwind", "\"> 10\" means more than 10 miles", "outside 100 m to 10 km"}},
        {{"--amount", "180000 lb", "--units", "km"}, {"\"> 16\" means more than 16 km"}},
        {{"--amount", "0.1 lb"}, {"less than 0.1 miles", "\"< .1\" means less than 0.1 miles"}}};
    for (const auto& [arguments, parts] : rows) {
        const Outcome outcome = screen(arguments);
        for (const char* part : parts) {
            EXPECT_TRUE(contains(outcome.output, part)) << outcome.output << "\nexpected: " << part;
        }
    }
    Outcome none = screen({"--concentration", "0"});
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(contains(none.errors, "0 % releases nothing")) << none.errors;
}

TEST(ScreenCommand, TheCommandLineWinsOverTheFileAndTheWindIsNamedByItsOrigin) {
    Outcome outcome = screen({"--no-screening", "--terrain", "urban", "--wind", "4 m/s", "--stability", "D",
                              "--duration", "1 h", "--level-of-concern", "2.9 mg/m3", "--wind-from", "225", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    auto report = nlohmann::json::parse(outcome.output);
    EXPECT_EQ(report["parameter"], "|0.0029|gas|urban|4|MPS|150|LBS|100|D||||||1|HOURS|||miles");
    outcome = screen({"--wind-from", "225"}, {.input = support::readFile(kChlorine)}, "-");
    const std::string flat = std::regex_replace(outcome.output, std::regex("\\s+"), " ");
    for (const char* part :
         {"225 degrees (south-west)", "where the wind blows from", "toward 45 degrees (north-east)"}) {
        EXPECT_TRUE(contains(flat, part)) << flat;
    }
}

TEST(ScreenCommand, WrongUseIsTold) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"--amount", "150"}, "--amount: \"150\": the unit is missing; write it in lb or kg"},
        {{"--amount", "90 tons"}, "--amount"},
        {{"--stability", "G"}, "--stability: \"G\" is not one of A, B, C, D, E or F"},
        {{"--wibble"}, "--wibble"},
        {{"--json", "--plot"}, "--plot"}};
    for (const auto& [arguments, expected] : rows) {
        Outcome outcome = screen(arguments);
        EXPECT_EQ(outcome.status, 2) << expected;
        EXPECT_TRUE(contains(outcome.errors, expected)) << outcome.errors;
    }
}

// ---- the terminal's picture ----

TEST(ScreenPlot, TheFootprintFillsItsWidthAndStaysInIt) {
    Scenario scenario;
    scenario.units = "miles";
    for (double widest : {20.0, 900.0}) {
        for (std::size_t columns : {40U, 78U, 200U}) {
            for (bool unicode : {false, true}) {
                const std::string plot = drawPlot(scenario, lens(2000, widest), {columns, unicode});
                SCOPED_TRACE(plot);
                std::istringstream lines(plot);
                int count = 0;
                for (std::string line; std::getline(lines, line); ++count) {
                    const auto width =
                        std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; });
                    EXPECT_LE(static_cast<std::size_t>(width), std::max<std::size_t>(columns, 61));
                }
                EXPECT_GE(count, 12);
                EXPECT_LE(count, 45);
                EXPECT_EQ(contains(plot, "stretched"), widest < 100);
                EXPECT_EQ(std::any_of(plot.begin(), plot.end(), [](char c) { return (c & 0x80) != 0; }), unicode);
            }
        }
    }
    for (const auto& [locale, part] : {std::pair{"C", "Wind from the left  --->"}, {"C.UTF-8", "\xE2\xA3\xBF"}}) {
        Outcome outcome = screen({"--plot"}, {.environment = {{"LC_ALL", locale}}});
        EXPECT_TRUE(contains(outcome.output, part)) << outcome.output;
    }
}

TEST(ScreenPlot, TicksAreRoundAndReachTheEnd) {
    for (double end : {1e-6, 0.003, 0.1, 1.0, 2.28, 9.99, 10.4, 16.0, 12345.0, 1e12}) {
        Ticks ticks = ticksFor(end, 8);
        EXPECT_TRUE(ticks.at.size() >= 4 && ticks.at.size() <= 10) << end;
        EXPECT_GT(ticks.at.back() + ticks.step, end);
        for (std::size_t i = 1; i < ticks.at.size(); ++i) {
            EXPECT_NE(ticks.label(ticks.at[i]), ticks.label(ticks.at[i - 1])) << end;
        }
    }
}

// ---- the picture ----

struct Label {
    std::string text;
    double left, right, top, bottom;
};

// A plain reader of the XML that pictures are made of: tags nest, attributes are quoted, entities are the known ones.
// Collects the labels with generous boxes.
struct SvgReader {
    using Attributes = std::map<std::string, std::string>;
    std::vector<Label> labels;
    double width = 0;
    double height = 0;
    std::string problem;

    explicit SvgReader(const std::string& svg) {
        static const std::regex kToken(R"re(<(/?)([a-z]+)((?: [A-Za-z0-9-]+="[^"]*")*)(/?)>|([^<]+))re");
        static const std::regex kAttribute(R"re(([A-Za-z0-9-]+)="([^"]*)")re");
        static const std::regex kText(R"re((?:[^<&\x01-\x08\x0B-\x1F]|&(?:lt|gt|quot|#39|amp);)*)re");
        std::vector<std::string> open;
        Attributes attributes;
        std::smatch token;
        for (auto at = svg.begin(); at != svg.end() && problem.empty(); at = token[0].second) {
            if (!std::regex_search(at, svg.end(), token, kToken, std::regex_constants::match_continuous) ||
                !std::regex_match(token.str(3) + token.str(5), kText)) {
                problem = "bad markup: " + std::string(at, std::min(at + 100, svg.end()));
            } else if (token[5].matched) {
                if (!open.empty() && open.back() == "text") {
                    addLabel(attributes, token.str(5));
                }
            } else if (token.length(1) != 0) {
                if (open.empty() || open.back() != token[2]) {
                    problem = token.str() + " closes nothing";
                } else {
                    open.pop_back();
                }
            } else if (token.length(4) == 0) {
                open.push_back(token[2]);
                attributes.clear();
                const std::string list = token[3];
                for (std::sregex_iterator i(list.begin(), list.end(), kAttribute), end; i != end; ++i) {
                    if (!attributes.emplace((*i)[1], (*i)[2]).second) {
                        problem = "an attribute stands twice in " + token.str();
                    }
                }
                if (open.back() == "svg") {
                    width = std::stod(attributes["width"]);
                    height = std::stod(attributes["height"]);
                }
            }
        }
        problem += open.empty() ? "" : open.back() + " is not closed";
    }

    void addLabel(Attributes& attributes, const std::string& escaped) {
        const std::string text = std::regex_replace(escaped, std::regex("&[^;]*;"), "W");
        const double size = std::stod(attributes["font-size"]);
        double wide = 0;  // as wide as letters of a usual face are on average
        for (char c : text) {
            const bool narrow = std::string_view("iljt.,:;' f").find(c) != std::string_view::npos;
            wide += (c & 0xC0) == 0x80 ? 0 : size * (narrow ? 0.33 : 0.6);
        }
        const double x = std::stod(attributes["x"]);
        const double y = std::stod(attributes["y"]);
        const std::string anchor = attributes["text-anchor"];
        const double left = anchor.empty() ? x : anchor == "middle" ? x - wide / 2 : x - wide;
        Label label{text, left, left + wide, y - size * 0.75, y + size * 0.22};
        if (attributes.count("transform") != 0) {  // rotated a quarter about x, y
            label = {text, x - size, x + size * 0.25, y - wide / 2, y + wide / 2};
        }
        labels.push_back(label);
    }
};

TEST(ScreenSvg, IsWellFormedAndItsLabelsStandClearInsideThePicture) {
    std::string longName = "2-(1-Methyl-2-pyrrolidinyl) <pyridine> & \"water\" \xE2\x82\x82 ";
    for (int i = 0; i < 5; ++i) {
        longName += longName.substr(0, 60);
    }
    Scenario scenario;
    for (const auto& [field, value] : {std::pair{"wind", "3.35 mph"},
                                       {"wind-from", "292.5"},
                                       {"amount", "123456.789 lb"},
                                       {"level-of-concern", "7.3 mg/m3"}}) {
        ASSERT_EQ(setScenarioField(scenario, *findScenarioField(field), value), "");
    }
    for (const std::string& name :
         {std::string(), longName, std::string(300, 'W'), std::string("bad \xFF\x01 bytes ]]> \xEF\xBF\xBF")}) {
        for (double distance : {0.5, 1609.0, 2.5e7, 4e14}) {
            for (double ratio : {0.0, 0.0001, 0.03, 2.0}) {
                SCOPED_TRACE(name.substr(0, 20) + " " + std::to_string(distance) + " " + std::to_string(ratio));
                scenario.chemical = name;
                scenario.units = ratio < 0.01 ? "miles" : "km";
                ScreeningResult result;
                result.distance = distance < 1e4 ? "< .1" : "> 10";
                result.footprint = lens(distance, distance * ratio);
                const std::string svg = drawSvg(scenario, result);
                const SvgReader reader(svg);
                ASSERT_EQ(reader.problem, "");
                EXPECT_FALSE(contains(svg, "nan") || contains(svg, "inf\""));
                ASSERT_GE(reader.labels.size(), 12U);
                for (auto a = reader.labels.begin(); a != reader.labels.end(); ++a) {
                    EXPECT_TRUE(a->left >= 0 && a->top >= 0 && a->right <= reader.width && a->bottom <= reader.height)
                        << a->text;
                    EXPECT_TRUE(std::all_of(reader.labels.begin(), a,
                                            [&](const Label& b) {
                                                return a->right <= b.left || b.right <= a->left || a->bottom <= b.top ||
                                                       b.bottom <= a->top;
                                            }))
                        << a->text << " stands over another";
                }
            }
        }
    }
}

TEST(ScreenSvg, TellsWhatItShows) {
    TemporaryFolder folder;
    std::string file = folder.file("chlorine.svg");
    Outcome outcome = quil({"screen", kChlorine, "--wind-from", "270", "--svg", file});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    std::string svg = support::readFile(file);
    EXPECT_EQ(SvgReader(svg).problem, "");
    for (const char* part :
         {"Chlorine: 150 lb of gas over 10 min", "wind from 270 degrees (west)", "prefers-color-scheme: dark",
          "threat distance: 1.9 miles", "widest: ", "distance downwind (miles)", "crosswind (miles)",
          "crosswind axis is stretched", "more than 0.0087 g/m"}) {
        EXPECT_TRUE(contains(svg, part)) << part;
    }
}

// ---- files whole or not at all ----

std::size_t entries(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(AtomicFile, ReplacesTheContentAndKeepsPermissionsAndLinks) {
    TemporaryFolder folder;
    std::string file = folder.file("a.svg");
    writeFileWhole(file, "first");
    EXPECT_EQ(support::readFile(file), "first");
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    std::string link = folder.file("link.svg");
    std::filesystem::create_symlink("a.svg", link);
    writeFileWhole(link, "second");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(support::readFile(file), "second");
    struct stat status = {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(entries(folder.path()), 2U) << "a temporary was left";
}

TEST(AtomicFile, AFailureNamesTheFileAndLeavesNothingBehind) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "sub");
    support::writeFile(folder.file("file"), "old");
    const std::pair<std::string, const char*> rows[] = {{folder.file("sub"), "Is a directory"},
                                                        {folder.file("none/a.svg"), "No such file"},
                                                        {folder.file("file/a.svg"), "Not a directory"},
                                                        {folder.file(std::string(300, 'n')), "name too long"},
                                                        {"/dev/full", "No space left"},
                                                        {"", "No such file"}};
    for (const auto& [path, reason] : rows) {
        try {
            writeFileWhole(path, "content");
            ADD_FAILURE() << path;
        } catch (const HostError& error) {
            EXPECT_TRUE(contains(error.what(), path + ": ") && contains(error.what(), reason)) << error.what();
        }
    }
    EXPECT_EQ(entries(folder.path()), 2U);
}

TEST(AtomicFile, AFullDiskOrWantOfPermissionLeavesTheOldFile) {
    TemporaryFolder folder;
    std::string file = folder.file("a.svg");
    support::writeFile(file, "old");
    // The largest file that the shell's children may write is one block.
    std::string command =
        "ulimit -f 1 && exec '" QUIL_BINARY_DIR "/quil' screen '" + kChlorine + "' --svg '" + file + "' | cat";
    Outcome full = support::run({"bash", "-o", "pipefail", "-c", command});
    EXPECT_TRUE(contains(full.errors, file + ": cannot be written: File too large")) << full.errors;
    EXPECT_EQ(full.output, "") << "a report although the picture failed";
    ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
    Outcome readOnly = screen({"--svg", file}, {.withoutOverride = true});
    EXPECT_TRUE(contains(readOnly.errors, file + ": cannot be written: Permission denied")) << readOnly.errors;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0555), 0);
    Outcome closed = screen({"--svg", folder.file("b.svg")}, {.withoutOverride = true});
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_TRUE(contains(closed.errors, "Permission denied")) << closed.errors;
    for (const Outcome& outcome : {full, readOnly, closed}) {
        EXPECT_EQ(outcome.status, 1);
    }
    EXPECT_EQ(support::readFile(file), "old");
    EXPECT_EQ(entries(folder.path()), 1U);
}

}  // namespace
