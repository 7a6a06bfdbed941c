// What a call of VSTACalculatePlumeDistance costs beside the calculation in it: the bare calculation on inputs that are
// already parsed, the handler alone, and the whole way through QUIL_External from host text to host text.
#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "fmx/fmx.h"
#include "frame/dispatcher.h"
#include "screening/checks.h"
#include "screening/plume.h"
#include "util/fhandle.h"

namespace {

using namespace quil;

constexpr short kExternalFunction = 2;

struct Scenario {
    const char* name;
    const char* parameter;
    std::string_view answer;
};
// A worst case, and a liquid, whose distance takes fewer rounds of Newton's method.
constexpr Scenario kScenarios[] = {
    {"gas", "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI", "1.9"},
    {"liquid", "|0.05|L|OPEN|2.5|MPS|2000|LBS|100|B||AMBIENT|0.02|0.1||||400|SQFT|KM", "0.2"},
};

void expect(bool holds) {
    if (!holds) {
        throw std::runtime_error("the function answered something else");
    }
}

void bareCalculation(benchmark::State& state, const Scenario& scenario) {
    ScreeningInputs inputs = ParseScreeningInputs(scenario.parameter);
    MessageBuffer message;
    std::int16_t errorCode = 0;
    std::uint8_t userCorrectable = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(inputs);
        benchmark::DoNotOptimize(CalculatePlumeDistance(inputs, message, &errorCode, &userCorrectable));
    }
    expect(errorCode == 0);
}

void handlerAlone(benchmark::State& state, const Scenario& scenario) {
    char** parameter = NewFHandle(0);
    char** result = NewFHandle(0);
    SetHandleContentsAndIncludeTerminator(parameter, scenario.parameter);
    for (auto _ : state) {
        SetFHandleSize(result, 0);
        VSTACalculatePlumeDistance(kExternalFunction, parameter, result);
        benchmark::DoNotOptimize(*result);
    }
    expect(FHandleText(result) == scenario.answer);
    DisposeAndClearFHandle(&parameter);
    DisposeAndClearFHandle(&result);
}

void throughQuilExternal(benchmark::State& state, const Scenario& scenario) {
    const fmx::ExprEnv environment;
    fmx::DataVect parameters;
    parameters.Resize(2);
    fmx::Text text;
    text.Assign("VSTACalculatePlumeDistance");
    parameters.Mutable(0).SetAsText(text, fmx::Locale());
    text.Assign(scenario.parameter);
    parameters.Mutable(1).SetAsText(text, fmx::Locale());
    fmx::Data result;
    for (auto _ : state) {
        benchmark::DoNotOptimize(QUIL_External(kExternalFunction, environment, parameters, result));
    }
    text.AssignBytes(scenario.answer, fmx::Text::Encoding::utf8);
    expect(result.GetAsText() == text);
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const Scenario& scenario : kScenarios) {
        const std::string name = std::string("/") + scenario.name;
        benchmark::RegisterBenchmark(("CalculatePlumeDistance" + name).c_str(), bareCalculation, scenario);
        benchmark::RegisterBenchmark(("VSTACalculatePlumeDistance" + name).c_str(), handlerAlone, scenario);
        benchmark::RegisterBenchmark(("QUIL_External" + name).c_str(), throughQuilExternal, scenario);
    }
    return true;
}();

}  // namespace
