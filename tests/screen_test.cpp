// `quil screen`: asking the plug-in, the report, the pictures, and files that are written whole or not at all.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
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
         {std::string(), std::string("-nan\r"), std::string("0.0\r"), std::string("-5.0\r") + good.substr(7),
          good.substr(0, good.size() - 1), good.substr(0, good.size() - 9), good + "2600.0,1.0\r",
          std::string("2500.0\r100.0,nan\r"), std::string("ERROR 7 TRUE")}) {
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
    struct Row {
        std::vector<std::string> arguments;
        const char* message;
    };
    const std::string liquid = kExamples + "acrolein-drum.json";
    const std::string phenol = kExamples + "phenol-molten.json";
    const std::string ammonia = kExamples + "ammonia-refrigeration.json";
    for (const Row& row : {
             Row{{kChlorine, "--level-of-concern", ""},
                 "--level-of-concern (not given): Missing level of concern in this substance's chemical record. Unable "
                 "to "
                 "calculate radius. (error 2)"},
             Row{{ammonia, "--level-of-concern", "-1 g/m3"},
                 "--level-of-concern \"-1 g/m3\": This is not a valid level of concern; please enter a new number"},
             Row{{ammonia, "--state", ""}, "--state (not given): Please specify physical state. (error 3)"},
             Row{{kChlorine, "--terrain", "urban"},
                 "--terrain \"urban\": Programmer Error: Open topography is required under Screenings. (error 4)"},
             Row{{ammonia, "--wind", "2.29 mph"},
                 "--wind \"2.29 mph\": Speed must be between 2.3 and 134 miles per hour."},
             Row{{ammonia, "--amount", "0 kg"}, "--amount \"0 kg\": Amount released invalid"},
             Row{{ammonia, "--concentration", "101"}, "--concentration \"101 %\": Please enter a concentration"},
             Row{{ammonia, "--stability", "F"}, "--stability \"F\": Stability class must be B, C, D, or E"},
             Row{{ammonia, "--duration", "1.5 h"},
                 "--duration \"1.5 h\": Programmer Error: release duration must be integer."},
             Row{{phenol, "--duration", "10 min", "--solid-form", ""},
                 "--solid-form (not given): Please specify the form of this solid."},
             Row{{phenol, "--factor-molten", "0"}, "--factor-molten \"0\": Invalid liquid factor molten"},
             Row{{liquid, "--liquid-temperature", ""},
                 "--liquid-temperature (not given): Please indicate whether this liquid"},
             Row{{liquid, "--factor-ambient", ""}, "--factor-ambient (not given): Missing liquid factor ambient"},
             Row{{liquid, "--liquid-temperature", "boiling"},
                 "--factor-boiling (not given): Missing liquid factor boiling"},
             Row{{liquid, "--dike", "-1 sqft"}, "--dike \"-1 sq ft\": Invalid diked area value."},
         }) {
        std::vector<std::string> arguments = {"screen"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        Outcome outcome = quil(arguments);
        EXPECT_EQ(outcome.status, 1) << row.message;
        EXPECT_TRUE(contains(outcome.errors, row.message)) << outcome.errors << "\nexpected: " << row.message;
        EXPECT_EQ(outcome.output, "");
    }
    Outcome json = quil({"screen", ammonia, "--json", "--amount", "0 kg"});
    EXPECT_EQ(json.status, 1);
    auto report = nlohmann::json::parse(json.output);
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
    EXPECT_GE(states["gas"], 1);
    EXPECT_GE(states["liquid"], 1);
    EXPECT_GE(states["solid"], 1);
    EXPECT_GE(states["gas"] + states["liquid"] + states["solid"], 6);
}

TEST(ScreenCommand, CapsAndExtrapolationAreExplained) {
    Outcome far = quil({"screen", kChlorine, "--amount", "90 tons"});
    EXPECT_EQ(far.status, 2);
    EXPECT_TRUE(contains(far.errors, "--amount")) << far.errors;
    far = quil({"screen", kChlorine, "--amount", "180000 lb"});
    EXPECT_TRUE(contains(far.output, "more than 10 miles downwind")) << far.output;
    EXPECT_TRUE(contains(far.output, "\"> 10\" means more than 10 miles")) << far.output;
    EXPECT_TRUE(contains(far.output, "outside 100 m to 10 km")) << far.output;
    far = quil({"screen", kChlorine, "--amount", "180000 lb", "--units", "km"});
    EXPECT_TRUE(contains(far.output, "\"> 16\" means more than 16 km")) << far.output;
    Outcome near = quil({"screen", kChlorine, "--amount", "0.1 lb"});
    EXPECT_TRUE(contains(near.output, "less than 0.1 miles")) << near.output;
    EXPECT_TRUE(contains(near.output, "\"< .1\" means less than 0.1 miles")) << near.output;
    Outcome none = quil({"screen", kChlorine, "--concentration", "0"});
    EXPECT_EQ(none.status, 1);
    EXPECT_TRUE(contains(none.errors, "0 % releases nothing")) << none.errors;
}

TEST(ScreenCommand, TheCommandLineWinsOverTheFileAndTheWindIsNamedByItsOrigin) {
    Outcome outcome =
        quil({"screen", kChlorine, "--no-screening", "--terrain", "urban", "--wind", "4 m/s", "--stability", "D",
              "--duration", "1 h", "--level-of-concern", "2.9 mg/m3", "--wind-from", "225", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    auto report = nlohmann::json::parse(outcome.output);
    EXPECT_EQ(report["parameter"], "|0.0029|gas|urban|4|MPS|150|LBS|100|D||||||1|HOURS|||miles");
    outcome = quil({"screen", "-", "--wind-from", "225"}, {.input = support::readFile(kChlorine)});
    EXPECT_TRUE(contains(outcome.output, "225 degrees (south-west)")) << outcome.output;
    std::string flat = outcome.output;
    flat.erase(std::unique(flat.begin(), flat.end(), [](char a, char b) { return a == ' ' && b == ' '; }), flat.end());
    std::replace(flat.begin(), flat.end(), '\n', ' ');
    EXPECT_TRUE(contains(flat, "where the wind blows from")) << flat;
    EXPECT_TRUE(contains(flat, "toward 45 degrees (north-east)")) << flat;
}

TEST(ScreenCommand, WrongUseIsTold) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"--amount", "150"}, "--amount: \"150\": the unit is missing; write it in lb or kg"},
        {{"--stability", "G"}, "--stability: \"G\" is not one of A, B, C, D, E or F"},
        {{"--wibble"}, "--wibble"},
        {{kChlorine, "--json", "--plot"}, "--plot"},
    };
    for (const auto& [arguments, expected] : rows) {
        std::vector<std::string> all = {"screen"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        Outcome outcome = quil(all);
        EXPECT_EQ(outcome.status, 2) << expected;
        EXPECT_TRUE(contains(outcome.errors, expected)) << outcome.errors;
    }
}

// ---- the terminal's picture ----

TEST(ScreenPlot, TheFootprintFillsItsWidthAndStaysInIt) {
    Scenario scenario;
    scenario.units = "miles";
    for (double widest : {20.0, 200.0, 900.0}) {
        for (std::size_t columns : {40U, 78U, 200U}) {
            for (bool unicode : {false, true}) {
                std::string plot = drawPlot(scenario, lens(2000, widest), {columns, unicode});
                std::size_t longest = 0;
                std::size_t lines = 0;
                for (std::size_t start = 0; start < plot.size(); ++lines) {
                    std::size_t end = plot.find('\n', start);
                    std::string line = plot.substr(start, end - start);
                    longest =
                        std::max(longest, static_cast<std::size_t>(std::count_if(
                                              line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; })));
                    start = end + 1;
                }
                EXPECT_LE(longest, std::max<std::size_t>(columns, 61)) << plot;
                EXPECT_GE(lines, 12U) << plot;
                EXPECT_LE(lines, 45U) << plot;
                if (widest != 200) {
                    EXPECT_EQ(contains(plot, "stretched"), widest < 100) << plot;
                }
                bool ascii =
                    std::all_of(plot.begin(), plot.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
                EXPECT_EQ(ascii, !unicode);
            }
        }
    }
    Outcome outcome = quil({"screen", kChlorine, "--plot"}, {.environment = {{"LC_ALL", "C"}}});
    EXPECT_TRUE(contains(outcome.output, "Wind from the left  --->")) << outcome.output;
    outcome = quil({"screen", kChlorine, "--plot"}, {.environment = {{"LC_ALL", "C.UTF-8"}}});
    EXPECT_TRUE(contains(outcome.output, "\xE2\xA3\xBF")) << outcome.output;
}

TEST(ScreenPlot, TicksAreRoundAndReachTheEnd) {
    for (double end : {1e-6, 0.003, 0.1, 1.0, 2.28, 9.99, 10.4, 16.0, 12345.0, 1e12}) {
        Ticks ticks = ticksFor(end, 8);
        ASSERT_GE(ticks.at.size(), 4U) << end;
        EXPECT_LE(ticks.at.size(), 10U) << end;
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
    std::vector<Label> labels;
    double width = 0;
    double height = 0;
    std::string problem;

    explicit SvgReader(const std::string& svg) { read(svg); }

    static double number(const std::map<std::string, std::string>& attributes, const char* name) {
        auto at = attributes.find(name);
        return at == attributes.end() ? 0 : std::stod(at->second);
    }

    static bool decode(std::string& text) {
        const std::pair<const char*, const char*> entities[] = {
            {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
        std::string out;
        for (std::size_t i = 0; i < text.size();) {
            if (text[i] == '<' || static_cast<unsigned char>(text[i]) < 0x09) {
                return false;
            }
            if (text[i] != '&') {
                out += text[i++];
                continue;
            }
            bool known = false;
            for (const auto& [entity, character] : entities) {
                if (text.compare(i, std::string_view(entity).size(), entity) == 0) {
                    out += character;
                    i += std::string_view(entity).size();
                    known = true;
                    break;
                }
            }
            if (!known) {
                return false;
            }
        }
        text = out;
        return true;
    }

    void addLabel(const std::map<std::string, std::string>& attributes, const std::string& text) {
        double size = number(attributes, "font-size");
        double wide = 0;  // as wide as letters of a usual face are on average
        for (char c : text) {
            wide += (c & 0xC0) == 0x80                                                  ? 0
                    : std::string_view("iljt.,:;' f").find(c) != std::string_view::npos ? 0.33
                                                                                        : 0.6;
        }
        wide *= size;
        double x = number(attributes, "x");
        double y = number(attributes, "y");
        auto anchor = attributes.find("text-anchor");
        double left = anchor == attributes.end() ? x : anchor->second == "middle" ? x - wide / 2 : x - wide;
        Label label{text, left, left + wide, y - size * 0.75, y + size * 0.22};
        if (attributes.count("transform") != 0) {  // rotated a quarter about x, y
            label = {text, x - size, x + size * 0.25, y - wide / 2, y + wide / 2};
        }
        labels.push_back(label);
    }

    void read(const std::string& svg) {
        std::vector<std::string> open;
        std::map<std::string, std::string> textAttributes;
        for (std::size_t i = 0; i < svg.size();) {
            if (svg[i] != '<') {
                std::size_t end = std::min(svg.find('<', i), svg.size());
                std::string text = svg.substr(i, end - i);
                if (!decode(text)) {
                    problem = "bad character data: " + text;
                    return;
                }
                if (!open.empty() && open.back() == "text") {
                    addLabel(textAttributes, text);
                }
                i = end;
                continue;
            }
            bool closing = svg[i + 1] == '/';
            i += closing ? 2 : 1;
            std::size_t end = svg.find_first_of(" />", i);
            std::string name = svg.substr(i, end - i);
            i = end;
            std::map<std::string, std::string> attributes;
            while (i < svg.size() && svg[i] == ' ') {
                std::size_t equals = svg.find("=\"", ++i);
                std::size_t quote = equals == std::string::npos ? equals : svg.find('"', equals + 2);
                if (quote == std::string::npos) {
                    problem = "an attribute of " + name + " is not quoted";
                    return;
                }
                std::string value = svg.substr(equals + 2, quote - equals - 2);
                if (!decode(value) || !attributes.emplace(svg.substr(i, equals - i), value).second) {
                    problem = "bad attribute of " + name;
                    return;
                }
                i = quote + 1;
            }
            bool empty = svg.compare(i, 2, "/>") == 0;
            i += empty ? 2 : 1;
            if (i > svg.size() || svg[i - 1] != '>') {
                problem = "the tag " + name + " does not end";
                return;
            }
            if (name == "svg" && !closing) {
                width = number(attributes, "width");
                height = number(attributes, "height");
                if (attributes["viewBox"] != "0 0 " + attributes["width"] + " " + attributes["height"]) {
                    problem = "the view box is not the picture";
                }
            }
            if (closing && (open.empty() || open.back() != name)) {
                problem = "</" + name + "> closes nothing";
                return;
            }
            if (closing) {
                open.pop_back();
            } else if (!empty) {
                open.push_back(name);
                textAttributes = attributes;
            }
        }
        if (!open.empty()) {
            problem = open.back() + " is not closed";
        }
    }
};

TEST(ScreenSvg, IsWellFormedAndItsLabelsStandClearInsideThePicture) {
    std::string longName = "2-(1-Methyl-2-pyrrolidinyl) <pyridine> & \"water\" \xE2\x82\x82 ";
    for (int i = 0; i < 5; ++i) {
        longName += longName.substr(0, 60);
    }
    for (const std::string& name : {std::string("Chlorine"), std::string(), longName, std::string(300, 'W'),
                                    std::string("bad \xFF\x01 bytes ]]> \xEF\xBF\xBF")}) {
        for (double distance : {0.5, 99.0, 1609.0, 16090.0, 2.5e7, 4e14}) {
            for (double ratio : {0.0, 0.0001, 0.03, 0.3, 2.0}) {
                Scenario scenario;
                scenario.chemical = name;
                scenario.wind = Measure{3.35, nullptr};
                std::string problem;
                scenario.wind = parseMeasure(Quantity::speed, "3.35 mph", problem);
                scenario.windFrom = parseMeasure(Quantity::direction, "292.5", problem);
                scenario.amount = parseMeasure(Quantity::mass, "123456.789 lb", problem);
                scenario.levelOfConcern = parseMeasure(Quantity::levelOfConcern, "7.3 mg/m3", problem);
                scenario.units = ratio < 0.1 ? "miles" : "km";
                ScreeningResult result;
                result.distance = distance < 1e4 ? "< .1" : "> 10";
                result.footprint = lens(distance, distance * ratio);
                std::string svg = drawSvg(scenario, result);
                SvgReader reader(svg);
                SCOPED_TRACE(name.substr(0, 20) + " " + std::to_string(distance) + " " + std::to_string(ratio));
                ASSERT_EQ(reader.problem, "");
                EXPECT_FALSE(contains(svg, "nan"));
                EXPECT_FALSE(contains(svg, "inf\""));
                ASSERT_GE(reader.labels.size(), 12U);
                for (std::size_t i = 0; i < reader.labels.size(); ++i) {
                    const Label& a = reader.labels[i];
                    EXPECT_TRUE(a.left >= 0 && a.top >= 0 && a.right <= reader.width && a.bottom <= reader.height)
                        << a.text;
                    for (std::size_t j = 0; j < i; ++j) {
                        const Label& b = reader.labels[j];
                        bool apart = a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top;
                        EXPECT_TRUE(apart) << a.text << " over " << b.text;
                    }
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
    const std::pair<std::string, const char*> rows[] = {
        {folder.file("sub"), "Is a directory"},
        {folder.file("none/a.svg"), "No such file"},
        {folder.file("file/a.svg"), "Not a directory"},
        {folder.file(std::string(300, 'n')), "name too long"},
        {"/dev/full", "No space left"},
        {"", "No such file"},
    };
    for (const auto& [path, reason] : rows) {
        try {
            writeFileWhole(path, "content");
            ADD_FAILURE() << path;
        } catch (const HostError& error) {
            EXPECT_TRUE(contains(error.what(), path + ": ")) << error.what();
            EXPECT_TRUE(contains(error.what(), reason)) << error.what();
        }
    }
    EXPECT_EQ(entries(folder.path()), 2U);
}

TEST(AtomicFile, AFullDiskLeavesTheOldFile) {
    TemporaryFolder folder;
    std::string file = folder.file("a.svg");
    support::writeFile(file, "old");
    // The largest file that the shell's children may write is one block.
    std::string command =
        "ulimit -f 1 && exec " QUIL_BINARY_DIR "/quil screen '" + kChlorine + "' --svg '" + file + "' | cat";
    Outcome outcome = support::run({"bash", "-o", "pipefail", "-c", command});
    EXPECT_EQ(outcome.status, 1) << outcome.errors;
    EXPECT_TRUE(contains(outcome.errors, file + ": cannot be written: File too large")) << outcome.errors;
    EXPECT_EQ(outcome.output, "") << "a report although the picture failed";
    EXPECT_EQ(support::readFile(file), "old");
    EXPECT_EQ(entries(folder.path()), 1U);
}

TEST(AtomicFile, AFolderOrFileWithoutWritePermissionIsRefused) {
    TemporaryFolder folder;
    std::string file = folder.file("a.svg");
    support::writeFile(file, "old");
    ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
    Outcome outcome = quil({"screen", kChlorine, "--svg", file}, {.withoutOverride = true});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(contains(outcome.errors, file + ": cannot be written: Permission denied")) << outcome.errors;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0555), 0);
    outcome = quil({"screen", kChlorine, "--svg", folder.file("b.svg")}, {.withoutOverride = true});
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(contains(outcome.errors, "Permission denied")) << outcome.errors;
    EXPECT_EQ(support::readFile(file), "old");
    EXPECT_EQ(entries(folder.path()), 1U);
}

}  // namespace
