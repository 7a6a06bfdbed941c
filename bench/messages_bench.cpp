// Messages without a bus: what assembling and archiving one costs, and the map-list functions beside sort(1) of the
// same text.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "frame/dispatch_table.h"
#include "frame/modules.h"
#include "messaging/map_list.h"
#include "messaging/message_parameters.h"
#include "messaging/transport.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "util/fhandle.h"

namespace {

using namespace quil;
namespace fs = std::filesystem;

// A scripted machine on which GEOLENS runs.
struct World {
    World() {
        std::string path = "/tmp/quil-bench-XXXXXX";
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        folder = path;
        platform::LinuxOptions options;
        options.volumes = {{"Disk", path}};
        options.application = "Disk:Host";
        files = platform::makeLinuxFiles(options);
        machine = std::make_unique<platform::ScriptedMachine>(*files, *resources,
                                                              platform::ScriptedOptions{options.application});
        machine->state().running = {{"GLN1"_4, "Disk:GEOLENS"}};
        platform::installMachine(machine.get());
        GLN1_Plugin_Startup();
        call("GLN1InitIAC", "");
        call("GLN1SetHandledMessages", "TEST");
    }
    ~World() {
        GLN1_Plugin_Shutdown();
        platform::installMachine(nullptr);
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    static void call(const char* name, std::string_view parameter) {
        char** in = NewFHandle(0);
        char** out = NewFHandle(0);
        SetResultsHandleText(in, parameter);
        FindRow(name)->handler(2, in, out);
        DisposeAndClearFHandle(&in);
        DisposeAndClearFHandle(&out);
    }

    fs::path folder;
    std::unique_ptr<platform::Files> files;
    std::unique_ptr<platform::Resources> resources = platform::makeBundleResources();
    std::unique_ptr<platform::ScriptedMachine> machine;
};

World& world() {
    static World sWorld;
    return sWorld;
}

// The values of a message of 20 parameters, "MSSG" to "NCOD" among them.
void compose() {
    SetOutgoingMessageParameterFromStr("MSSG", "TEST", kUserList);
    for (std::size_t i = 5; i < 20; ++i) {
        char keyword[5];
        OSTypeToString(kIncomingKeywords[i], keyword);
        SetOutgoingMessageParameterFromStr(keyword, "a value of some thirty characters", kUserList);
    }
}

void Assemble(benchmark::State& state) {
    World& here = world();
    for (auto _ : state) {
        compose();
        benchmark::DoNotOptimize(SendMessageFromOutgoingMessageParameters("GLN1"_4, kUserList));
        state.PauseTiming();
        here.machine->takeEffects();
        state.ResumeTiming();
    }
}
BENCHMARK(Assemble);

void Archive(benchmark::State& state) {
    World& here = world();
    compose();
    SendMessageFromOutgoingMessageParameters("GLN1"_4, kUserList);
    const platform::Event event = here.machine->takeEffects().sent.at(0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(here.machine->deliver(event));
        World::call("GLN1GetNextMessage", "");
    }
}
BENCHMARK(Archive);

enum Lines { distinct, identical, oneID };

std::string makeList(Lines kind, std::size_t count) {
    std::mt19937_64 random(7);
    std::string list;
    for (std::size_t i = 0; i < count; ++i) {
        std::string id(16, '1');
        if (kind == distinct) {
            std::generate(id.begin(), id.end(), [&random] { return "0123456789ABCDEF"[random() % 16]; });
        }
        list += id + "\tStorage tanks" + (kind == oneID ? std::to_string(random()) : "") + "\tCoast\r";
    }
    return list;
}

constexpr std::size_t kMillion = 1'000'000;

void CleanUp(benchmark::State& state) {
    world();
    const std::string list = makeList(static_cast<Lines>(state.range(0)), kMillion);
    for (auto _ : state) {
        state.PauseTiming();
        char** handle = NewFHandle(0);
        SetHandleContentsAndIncludeTerminator(handle, list.c_str());
        state.ResumeTiming();
        benchmark::DoNotOptimize(CleanUpLST2(handle));
        state.PauseTiming();
        DisposeAndClearFHandle(&handle);
        state.ResumeTiming();
    }
}
BENCHMARK(CleanUp)->ArgName("kind")->DenseRange(distinct, oneID)->Unit(benchmark::kMillisecond);

void SortProgram(benchmark::State& state) {
    std::string list = makeList(static_cast<Lines>(state.range(0)), kMillion);
    std::replace(list.begin(), list.end(), '\r', '\n');
    const fs::path path = world().folder / "list.txt";
    std::ofstream(path) << list;
    const std::string command = "LC_ALL=C sort " + path.string() + " > " + path.string() + ".sorted";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("sort failed");
        }
    }
}
BENCHMARK(SortProgram)
    ->ArgName("kind")
    ->DenseRange(distinct, oneID)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

// GLN1GetParameterLST2 over a message with that many objects.
void ReadList(benchmark::State& state) {
    World& here = world();
    World::call("GLN1SetHandledMessages", "TEST");
    platform::Event event{"QUIL"_4, "AEVT"_4, "FMP7"_4, {}};
    event.parameters = {{"MSSG"_4, "TEXT"_4, "TEST", false},
                        {"SIGN"_4, "TEXT"_4, "GLN1", false},
                        {"LST2"_4, "TEXT"_4, makeList(distinct, static_cast<std::size_t>(state.range(0))), false}};
    here.machine->deliver(event);
    World::call("GLN1GetNextMessage", "");
    for (auto _ : state) {
        World::call("GLN1GetParameterLST2", "GEOLENSID TAB LAYERNAME RETURN");
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(ReadList)->RangeMultiplier(10)->Range(1000, 100'000)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
