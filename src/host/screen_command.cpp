// `quil screen`: how far a release reaches.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "host/atomic_file.h"
#include "host/batch_run.h"
#include "host/commands.h"
#include "host/footprint_map.h"
#include "host/screen_compare.h"
#include "host/screen_html.h"
#include "host/screen_plot.h"
#include "host/screen_report.h"
#include "host/screen_session.h"
#include "host/screen_svg.h"

namespace host {
namespace {

struct ScreenOptions {
    std::map<std::string, std::string, std::less<>> values;  // by field name
    bool screening = false;
    std::string file;
    bool json = false;
    bool plot = false;
    std::string svg;
    std::string html;
    std::string compare;
    std::string at;
    std::string geojson;
    std::string kml;
    std::string batch;
    std::vector<std::string> table;
    std::string key;
    std::string encoding;
};

// The values that the command line gives, checked.
std::map<std::string, std::string, std::less<>> givenValues(const CLI::App& command, const ScreenOptions& options) {
    std::map<std::string, std::string, std::less<>> given;
    Scenario scratch;
    for (const ScenarioField& field : scenarioFields()) {
        std::string option = "--" + std::string(field.name);
        if (!field.option || command.count(option) == 0) {
            continue;
        }
        std::string text = field.flag != nullptr ? std::string(options.screening ? "yes" : "no")
                                                 : options.values.find(field.name)->second;
        if (std::string problem = setScenarioField(scratch, field, text); !problem.empty()) {
            throw CLI::ValidationError(option, problem);
        }
        given.emplace(field.name, std::move(text));
    }
    return given;
}

// The file's values, then the command line's over them; not completed.
Scenario scenarioOf(const CLI::App& command, const ScreenOptions& options) {
    const auto given = givenValues(command, options);
    Scenario scenario;
    if (!options.file.empty()) {
        readScenarioFile(options.file, scenario);
    }
    for (const auto& [name, text] : given) {
        setScenarioField(scenario, *findScenarioField(name), text);
    }
    return scenario;
}

std::optional<GeoPosition> positionOf(const ScreenOptions& options) {
    if (options.at.empty()) {
        return std::nullopt;
    }
    std::string problem;
    const std::optional<GeoPosition> position = parsePosition(options.at, problem);
    if (!position) {
        throw CLI::ValidationError("--at", problem);
    }
    return position;
}

void writeMaps(const ScreenOptions& options, const Scenario& scenario, const ScreeningResult& result,
               const GeoPosition& at) {
    for (const auto& [kind, path] :
         {std::pair{MapFile::Kind::geojson, &options.geojson}, std::pair{MapFile::Kind::kml, &options.kml}}) {
        if (!path->empty()) {
            MapFile map(kind, *path);
            map.add(scenario, result, at);
            map.finish();
        }
    }
}

void screenBatch(const CLI::App& command, const ScreenOptions& options, Context& context) {
    BatchOptions batch;
    batch.values.options = givenValues(command, options);
    batch.at = positionOf(options);
    if (!options.file.empty()) {
        if (options.file == "-" && options.table.empty() && (options.batch.empty() || options.batch == "-")) {
            throw CLI::ValidationError("--batch", "standard input (-) can be read only once");
        }
        readScenarioFile(options.file, batch.values.file);
    }
    batch.geojson = options.geojson;
    batch.kml = options.kml;
    batch.key = options.key;
    batch.encoding = options.encoding == "latin-1"     ? CsvEncoding::latin1
                     : options.encoding == "mac-roman" ? CsvEncoding::macRoman
                                                       : CsvEncoding::utf8;
    ScreeningSession session(context);
    if (options.table.empty()) {
        context.status = runCsvBatch(options.batch.empty() ? "-" : options.batch, batch, session.calculator());
        return;
    }
    if (!options.batch.empty() && options.batch != "-") {
        throw CLI::ValidationError(
            "--table", "the scenarios come from the database's table, not from \"" + options.batch + "\" too");
    }
    if (!options.geojson.empty() || !options.kml.empty()) {
        throw CLI::ValidationError("--table",
                                   "maps are drawn from CSV: sqlite3 -csv -header DATABASE \"SELECT ...\" | "
                                   "quil screen --batch - --geojson FILE");
    }
    context.status = runTableBatch(options.table[0], options.table[1], batch, session.calculator(), session.version());
}

void screenComparison(const CLI::App& command, const ScreenOptions& options, Context& context) {
    const Scenario scenario = scenarioOf(command, options);
    ScreeningSession session(context);
    const Comparison comparison = compareScenarios(options.compare, scenario, session.calculator());
    const bool drawn = std::any_of(comparison.cases.begin(), comparison.cases.end(),
                                   [](const Comparison::Case& one) { return one.result.footprint.has_value(); });
    if (!options.svg.empty() && drawn) {
        writeFileWhole(options.svg, drawComparison(comparison));
    }
    writeOutput(options.json ? comparisonJson(comparison) : comparisonText(comparison));
    if (!comparison.any() || (!options.svg.empty() && !drawn)) {
        throw HostError("no value of --compare gives " +
                        std::string(comparison.any() ? "a footprint, nothing was drawn" : "a distance"));
    }
}

void screen(const CLI::App& command, const ScreenOptions& options, Context& context) {
    if (command.count("--batch") > 0) {
        screenBatch(command, options, context);
        return;
    }
    if (!options.compare.empty()) {
        screenComparison(command, options, context);
        return;
    }
    Scenario scenario = scenarioOf(command, options);
    completeScenario(scenario);
    const std::optional<GeoPosition> at = positionOf(options);
    if ((!options.geojson.empty() || !options.kml.empty()) && !at) {
        throw CLI::ValidationError(options.geojson.empty() ? "--kml" : "--geojson",
                                   "needs to know where the source is: --at LAT,LON");
    }
    ScreeningSession session(context);
    ScreeningResult result = runScreening(scenario, session.calculator());
    if (result.rejection) {
        if (options.json) {
            writeOutput(jsonReport(scenario, result));
        }
        throw HostError(rejectionText(scenario, *result.rejection));
    }
    if (!result.hasDistance()) {
        if (options.json) {
            writeOutput(jsonReport(scenario, result));
        }
        bool nothing = scenario.concentration && scenario.concentration->value == 0;
        throw HostError("the calculator found no distance, it answered \"" + result.distance + "\"" +
                        (nothing ? ": a --concentration of 0 % releases nothing" : ""));
    }
    if (!options.html.empty()) {
        writeFileWhole(options.html, htmlReport(scenario, result, session.version()));
    }
    if (result.footprint) {
        if (!options.svg.empty()) {
            writeFileWhole(options.svg, drawSvg(scenario, result));
        }
        if (at) {
            writeMaps(options, scenario, result, *at);
        }
    }
    PlotStyle style = plotStyleOfOutput();
    if (options.json) {
        writeOutput(jsonReport(scenario, result));
    } else {
        writeOutput(textReport(scenario, result, std::min<std::size_t>(style.columns, 100)));
        if (options.plot && result.footprint) {
            writeOutput("\n" + drawPlot(scenario, *result.footprint, style));
        }
    }
    const bool drawing = options.plot || !options.svg.empty() || !options.geojson.empty() || !options.kml.empty();
    if (!result.footprint && drawing) {
        throw HostError("nothing was drawn: " + result.problem);
    }
}

}  // namespace

void addScreenCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("screen", "How far downwind a release stays above its level of concern");
    auto options = std::make_shared<ScreenOptions>();
    command->add_option("FILE", options->file,
                        "Scenario file in JSON with the names of the options; \"-\": standard input");
    for (const ScenarioField& field : scenarioFields()) {
        if (!field.option) {
            continue;
        }
        std::string name = "--" + std::string(field.name);
        if (field.flag != nullptr) {
            command->add_flag(name + ",!--no-" + std::string(field.name), options->screening, std::string(field.help));
        } else {
            command->add_option(name, options->values[std::string(field.name)], std::string(field.help))
                ->type_name(std::string(field.placeholder))
                ->group("Scenario");
        }
    }
    auto* json = command->add_flag("--json", options->json, "Print the answer as JSON")->group("Output");
    auto* plot = command->add_flag("--plot", options->plot, "Draw the footprint in the terminal")
                     ->group("Output")
                     ->excludes(json);
    auto* svg = command->add_option("--svg", options->svg, "Write a picture of the footprint")
                    ->type_name("FILE")
                    ->group("Output");
    auto* html = command->add_option("--html", options->html, "Write a page with inputs, answer, picture and sources")
                     ->type_name("FILE")
                     ->group("Output");
    auto* compare = command
                        ->add_option("--compare", options->compare,
                                     "The same release over several values of a field, as a table and, with --svg, as "
                                     "one picture, for example stability=D,E,F")
                        ->type_name("FIELD=V1,V2,...")
                        ->group("Output")
                        ->excludes(plot)
                        ->excludes(html);
    command->add_option("--at", options->at, "Where the source is, in degrees; north and east count up")
        ->type_name("LAT,LON")
        ->group("Map");
    command->add_option("--geojson", options->geojson, "Write the threat zone for a map, as GeoJSON")
        ->type_name("FILE")
        ->group("Map")
        ->excludes(compare);
    command->add_option("--kml", options->kml, "The same as KML")->type_name("FILE")->group("Map")->excludes(compare);
    auto* batch =
        command
            ->add_option("--batch", options->batch,
                         "Answer every row of a CSV table; its columns are named as the options, \"-\": standard input")
            ->type_name("FILE")
            ->expected(0, 1)
            ->group("Many releases")
            ->excludes(json)
            ->excludes(plot)
            ->excludes(svg)
            ->excludes(html)
            ->excludes(compare);
    auto* table =
        command
            ->add_option("--table", options->table,
                         "With --batch: the rows of an SQLite database's table or view, answered in its table "
                         "TABLE_screening")
            ->type_name("DATABASE TABLE")
            ->expected(2)
            ->group("Many releases")
            ->needs(batch);
    command->add_option("--key", options->key, "With --table: the column that names a row; else the table's key")
        ->type_name("COLUMN")
        ->group("Many releases")
        ->needs(table);
    command
        ->add_option("--encoding", options->encoding,
                     "With --batch: what the CSV is written in, utf-8, latin-1 or mac-roman; the output is UTF-8")
        ->type_name("NAME")
        ->check(CLI::IsMember({"utf-8", "latin-1", "mac-roman"}))
        ->group("Many releases")
        ->needs(batch)
        ->excludes(table);
    command->footer(
        "Values carry their units: --amount \"150 lb\". A value on the command line wins over the file's or the "
        "row's.\n"
        "The wind is always named by where it blows from.");
    command->callback([command, options, &context] { screen(*command, *options, context); });
}

}  // namespace host
