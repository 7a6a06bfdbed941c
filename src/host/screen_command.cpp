// `quil screen`: how far a release reaches.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "host/atomic_file.h"
#include "host/commands.h"
#include "host/screen_plot.h"
#include "host/screen_report.h"
#include "host/screen_svg.h"
#include "platform/bundle.h"
#include "platform/scripted/scripted_machine.h"

namespace host {
namespace {

struct ScreenOptions {
    std::map<std::string, std::string, std::less<>> values;  // by field name
    bool screening = false;
    std::string file;
    bool json = false;
    bool plot = false;
    std::string svg;
};

// The plug-in on a machine that keeps its alerts instead of showing them.
class ScreeningSession {
  public:
    explicit ScreeningSession(Context& context)
        : files_(platform::makeLinuxFiles(context.machine)),
          resources_(platform::makeBundleResources()),
          machine_(*files_, *resources_, {context.machine.application, context.machine.signature}),
          previous_(platform::installMachine(&machine_)) {
        try {
            plugin_ = std::make_unique<Plugin>(bundleOf(context));
            if (plugin_->initialize() < 0) {
                throw HostError(plugin_->bundle().directory + ": the plug-in does not start");
            }
        } catch (...) {
            plugin_.reset();
            platform::installMachine(previous_);
            throw;
        }
    }
    ~ScreeningSession() {
        plugin_.reset();
        platform::installMachine(previous_);
    }
    ScreeningSession(const ScreeningSession&) = delete;
    ScreeningSession& operator=(const ScreeningSession&) = delete;

    Calculator calculator() {
        return {[this](std::string_view function, std::string_view parameter) {
                    Answer answer = plugin_->external(function, parameter);
                    if (answer.code != 0) {
                        throw HostError(std::string(function) + " failed with error " + std::to_string(answer.code));
                    }
                    return answer.text;
                },
                [this] {
                    std::string messages;
                    for (const platform::AlertEffect& alert : machine_.takeEffects().alerts) {
                        messages += (messages.empty() ? "" : " ") + std::string(trimmed(alert.message));
                    }
                    std::replace(messages.begin(), messages.end(), '\r', ' ');  // ends a line in an alert
                    return messages;
                }};
    }

  private:
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    platform::ScriptedMachine machine_;
    platform::Machine* previous_;
    std::unique_ptr<Plugin> plugin_;
};

// The file's values, then the command line's over them.
Scenario scenarioOf(const CLI::App& command, const ScreenOptions& options) {
    Scenario scenario;
    if (!options.file.empty()) {
        readScenarioFile(options.file, scenario);
    }
    for (const ScenarioField& field : scenarioFields()) {
        std::string option = "--" + std::string(field.name);
        if (!field.option || command.count(option) == 0) {
            continue;
        }
        if (field.flag != nullptr) {
            scenario.*field.flag = options.screening;
            continue;
        }
        std::string problem = setScenarioField(scenario, field, options.values.find(field.name)->second);
        if (!problem.empty()) {
            throw CLI::ValidationError(option, problem);
        }
    }
    completeScenario(scenario);
    return scenario;
}

void screen(const CLI::App& command, const ScreenOptions& options, Context& context) {
    Scenario scenario = scenarioOf(command, options);
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
    if (!options.svg.empty() && result.footprint) {
        writeFileWhole(options.svg, drawSvg(scenario, result));
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
    if (!result.footprint && (options.plot || !options.svg.empty())) {
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
    command->add_flag("--plot", options->plot, "Draw the footprint in the terminal")->group("Output")->excludes(json);
    command->add_option("--svg", options->svg, "Write a picture of the footprint")->type_name("FILE")->group("Output");
    command->footer(
        "Values carry their units: --amount \"150 lb\". A value on the command line wins over the file's.\n"
        "The wind is always named by where it blows from.");
    command->callback([command, options, &context] { screen(*command, *options, context); });
}

}  // namespace host
