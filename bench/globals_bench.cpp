// Globals through QUIL_External, as the host calls it, beside a function that does nothing but answer: what setting and
// reading one of a thousand globals costs above the dispatch.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "fmx/host.h"
#include "frame/dispatcher.h"
#include "frame/entry.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"

namespace {

constexpr std::size_t kGlobals = 1000;

// One evaluation; the length of its answer.
std::size_t call(const fmx::Text& name, const fmx::Text& parameter) {
    static const fmx::Locale sLocale(fmx::Locale::Type::system);
    fmx::DataVect parameters;
    parameters.Resize(2);
    parameters.Mutable(0).SetAsText(name, sLocale);
    parameters.Mutable(1).SetAsText(parameter, sLocale);
    fmx::Data result;
    fmx::Evaluate(quil::QUIL_External, 2, fmx::ExprEnv(), parameters, result);
    return result.GetAsText().GetSize();
}

fmx::Text text(const std::string& bytes) {
    fmx::Text result;
    result.AssignBytes(bytes, fmx::Text::Encoding::utf8);
    return result;
}

// The plug-in with its globals, which are visited in a scattered order.
struct Globals {
    std::unique_ptr<platform::Files> files = platform::makeLinuxFiles({});
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    platform::ScriptedMachine machine{*files, *resources, {}};
    std::vector<fmx::Text> names, values[2];

    Globals() {
        platform::installMachine(&machine);
        quil::Startup();
        for (std::size_t i = 0; i < kGlobals; ++i) {
            const std::string name = "Setting number " + std::to_string(i * 617 % kGlobals);
            names.push_back(text(name));
            values[0].push_back(text(name + "|the value of the setting"));
            values[1].push_back(text(name + "|another value of it"));
            call(text("GLN1SetGlobal"), values[0].back());
        }
    }
};

Globals& globals() {
    static Globals sGlobals;
    return sGlobals;
}

void tabChar(benchmark::State& state) {
    globals();
    const fmx::Text name = text("GLN1TabChar");
    const fmx::Text parameter;
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(name, parameter));
    }
}

void getGlobal(benchmark::State& state) {
    const fmx::Text name = text("GLN1GetGlobal");
    std::size_t i = 0;
    for (auto _ : state) {
        if (call(name, globals().names[i++ % kGlobals]) == 0) {
            state.SkipWithError("a global is empty");
            break;
        }
    }
}

// Every call changes the value.
void setGlobal(benchmark::State& state) {
    const fmx::Text name = text("GLN1SetGlobal");
    std::size_t i = 0;
    for (auto _ : state) {
        const std::size_t round = i / kGlobals;
        benchmark::DoNotOptimize(call(name, globals().values[(round + 1) % 2][i % kGlobals]));
        ++i;
    }
}

BENCHMARK(tabChar);
BENCHMARK(getGlobal);
BENCHMARK(setGlobal);

}  // namespace
