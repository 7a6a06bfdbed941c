// Sets of record IDs and map lists: what the calls cost, what the work costs beside a plain sort of the same records,
// how much memory a set takes, and the map-list functions beside sort(1) of the same file.
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
#include <unordered_set>
#include <utility>
#include <vector>

#include "fmx/fmx.h"
#include "frame/dispatcher.h"
#include "maplayers/sessions.h"
#include "platform/linux/linux_machine.h"
#include "records/found_set.h"
#include "records/records.h"
#include "util/fhandle.h"
#include "util/memory.h"

namespace {

using namespace quil;
namespace fs = std::filesystem;

// A machine over a temporary folder, for the whole run.
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
        machine = platform::makeLinuxMachine(options);
        platform::installMachine(machine.get());
    }
    ~World() {
        platform::installMachine(nullptr);
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    fs::path folder;
    std::unique_ptr<platform::Machine> machine;
};

World& world() {
    static World sWorld;
    return sWorld;
}

// 20-character IDs, as the solution makes them; a fifth of them came before.
std::vector<std::string> makeIDs(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::string> ids;
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 10 && random() % 5 == 0) {
            ids.push_back(ids[random() % i]);
            continue;
        }
        std::string id = "CH000000............";
        for (std::size_t at = 8; at < id.size(); ++at) {
            id[at] = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ"[random() % 34];
        }
        ids.push_back(id);
    }
    return ids;
}

// QUIL_External with texts that are made anew each time, as a calculation does.
class Caller {
  public:
    explicit Caller(const char* function) {
        parameters_.Resize(2);
        parameters_.Mutable(0).AssignHostText(function, locale_);
    }
    const fmx::Text& operator()(std::string_view parameter) {
        parameters_.Mutable(1).AssignHostText(parameter, locale_);
        if (QUIL_External(2, environment_, parameters_, result_) != 0) {
            throw std::runtime_error("the call failed");
        }
        return result_.GetAsText();
    }

  private:
    fmx::Locale locale_{fmx::Locale::Type::system};
    fmx::ExprEnv environment_;
    fmx::DataVect parameters_;
    fmx::Data result_;
};

void fill(FoundSet& set, const std::vector<std::string>& ids) {
    if (AllocateSet(set, static_cast<std::uint32_t>(ids.size())) != 0) {
        throw std::runtime_error("no memory");
    }
    for (const std::string& id : ids) {
        AppendID(set, id);
    }
}

void collectThroughCalls(benchmark::State& state) {
    world();
    const auto ids = makeIDs(static_cast<std::size_t>(state.range(0)), 1);
    Caller init("VSTA_InitFoundSet");
    Caller next("VSTA_SetNextFoundID");
    for (auto _ : state) {
        init(std::to_string(ids.size()));
        for (const std::string& id : ids) {
            next(id);
        }
    }
    ResetFoundSets();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void collectWork(benchmark::State& state) {
    const auto ids = makeIDs(static_cast<std::size_t>(state.range(0)), 1);
    FoundSet set{};
    for (auto _ : state) {
        fill(set, ids);
    }
    DisposeSet(set);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The most bytes that the plug-in had at once.
std::size_t gBytes = 0;
std::size_t gMostBytes = 0;
constexpr std::size_t kHeader = 16;
void* countingAllocate(std::size_t bytes) {
    auto* block = static_cast<char*>(std::calloc(bytes + kHeader, 1));
    *reinterpret_cast<std::size_t*>(block) = bytes;
    gBytes += bytes;
    gMostBytes = std::max(gMostBytes, gBytes);
    return block + kHeader;
}
void countingRelease(void* block) {
    if (block != nullptr) {
        char* start = static_cast<char*>(block) - kHeader;
        gBytes -= *reinterpret_cast<std::size_t*>(start);
        std::free(start);
    }
}

enum class Work { dedupe, both, either };

void setWork(benchmark::State& state, Work work) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const auto first = makeIDs(n, 1);
    auto second = makeIDs(n, 2);
    std::copy_n(first.begin(), n / 2, second.begin());
    const std::size_t total = work == Work::dedupe ? n : 2 * n;
    const Allocator counting = {countingAllocate, countingRelease};
    const auto run = [&](FoundSet& a, FoundSet& b) {
        if (work == Work::dedupe) {
            SortAndRemoveDuplicates(a);
            return 0;
        }
        return work == Work::both ? AndBooleanSets(a, b) : OrBooleanSets(a, b);
    };
    FoundSet a{};
    FoundSet b{};
    const auto prepare = [&] {
        fill(a, first);
        if (work != Work::dedupe) {
            fill(b, second);
        }
    };
    setAllocator(&counting);
    prepare();
    run(a, b);
    DisposeSet(a);
    DisposeSet(b);
    setAllocator(nullptr);
    state.counters["bytes_per_ID"] = static_cast<double>(std::exchange(gMostBytes, 0)) / static_cast<double>(total);
    for (auto _ : state) {
        state.PauseTiming();
        prepare();
        state.ResumeTiming();
        benchmark::DoNotOptimize(run(a, b));
    }
    DisposeSet(a);
    DisposeSet(b);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(total));
}

// The peer: the same records, with the same comparison.
void sortUnique(benchmark::State& state, std::size_t sets) {
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<FoundItem> records;
    for (unsigned seed = 1; seed <= sets; ++seed) {
        FoundSet set{};
        fill(set, makeIDs(n, seed));
        SetTempIndex(set);
        records.insert(records.end(), set.items, set.items + set.count);
        DisposeSet(set);
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<FoundItem> copy = records;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end(),
                  [](const FoundItem& x, const FoundItem& y) { return CompareIDStrThenTempIndex(&x, &y) < 0; });
        copy.erase(std::unique(copy.begin(), copy.end(),
                               [](const FoundItem& x, const FoundItem& y) { return CompareIDStrOnly(&x, &y) == 0; }),
                   copy.end());
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

void readBack(benchmark::State& state, std::int64_t block) {
    world();
    fill(gFoundSet, makeIDs(static_cast<std::size_t>(state.range(0)), 1));
    Caller get("VSTA_GetFoundID");
    for (auto _ : state) {
        for (std::int64_t start = 1; start <= state.range(0); start += block) {
            benchmark::DoNotOptimize(get(std::to_string(start) + "|" + std::to_string(start + block - 1)).GetSize());
        }
    }
    ResetFoundSets();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void newIDs(benchmark::State& state) {
    world();
    Caller make("VSTANewID");
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<fmx::Text> texts(n);
    for (auto _ : state) {
        for (fmx::Text& text : texts) {
            text = make("CH");
        }
    }
    std::unordered_set<std::string> distinct;
    for (const fmx::Text& text : texts) {
        distinct.emplace(text.units().begin(), text.units().end());
    }
    state.counters["distinct"] = static_cast<double>(distinct.size());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// --- map lists

constexpr std::size_t kLines = 1000000;
constexpr std::size_t kWanted = 100000;

// Files of a million objects, in order and not, in one group's records.
struct MapFiles {
    MapFiles() {
        std::mt19937 random(7);
        std::vector<GeolensID> ids(kLines);
        for (std::size_t i = 0; i < kLines; ++i) {
            const auto record = static_cast<std::int16_t>(i % 9999 + 1);
            const auto group = static_cast<std::int16_t>(i / 9999 % 900 + 1);
            ids[i] = {static_cast<std::int32_t>(i % 99999 + 1), group, record, 3, 'B'};
        }
        std::shuffle(ids.begin(), ids.end(), random);
        write("unsorted.txt", ids);
        std::sort(ids.begin(), ids.end(),
                  [](const GeolensID& a, const GeolensID& b) { return CompareGeolensIDs(&a, &b) < 0; });
        write("sorted.txt", ids);
        for (std::size_t i = 0; i < kWanted; ++i) {
            wanted.push_back(GeolensID2HbtID(ids[random() % ids.size()]));
        }
    }
    static void write(const char* name, const std::vector<GeolensID>& ids) {
        std::ofstream out(world().folder / name, std::ios::binary);
        for (const GeolensID& id : ids) {
            char text[kGeolensTextSize];
            GeolensID2Str(id, text);
            out << text << "\r\n";
        }
    }
    std::vector<HbtID> wanted;
};

MapFiles& mapFiles() {
    static MapFiles sFiles;
    return sFiles;
}

std::string callHandler(std::int32_t (*handler)(long, char**, char**), const std::string& parameter) {
    char** in = NewFHandle(0);
    char** out = NewFHandle(0);
    SetResultsHandle(in, parameter.c_str());
    handler(2, in, out);
    std::string answer(FHandleText(out));
    DisposeAndClearFHandle(&in);
    DisposeAndClearFHandle(&out);
    return answer;
}

void showOnMap(benchmark::State& state, const char* name) {
    const MapFiles& files = mapFiles();
    for (auto _ : state) {
        state.PauseTiming();
        callHandler(HBT_ShowOnMapInit, "Coast");
        // The list as the appending calls leave it.
        SetFHandleSize(gHbtIDsH, kWanted * sizeof(HbtID));
        std::copy(files.wanted.begin(), files.wanted.end(), reinterpret_cast<HbtID*>(*gHbtIDsH));
        gNumHbtIDs = kWanted;
        state.ResumeTiming();
        if (callHandler(HBT_ShowOnMapGetLST2, std::string("Disk:") + name) != "Disk:LST2.txt") {
            throw std::runtime_error("no list was written");
        }
    }
}

void getInfo(benchmark::State& state) {
    mapFiles();
    const fs::path handed = world().folder / "handed.txt";
    for (auto _ : state) {
        state.PauseTiming();
        fs::copy_file(world().folder / "unsorted.txt", handed);
        state.ResumeTiming();
        if (callHandler(HBT_GetInfoInit, "7|Disk:handed.txt") == "") {
            throw std::runtime_error("no group was read");
        }
    }
    callHandler(HBT_GetInfoDispose, "");
}

void sortAndReadTwice(benchmark::State& state) {
    mapFiles();
    const std::string file = (world().folder / "unsorted.txt").string();
    const std::string command =
        "LC_ALL=C sort " + file + " > " + file + ".out && cat " + file + " " + file + " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error("sort failed");
        }
    }
}

#define QUIL_SIZES RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond)
BENCHMARK(collectThroughCalls)->QUIL_SIZES;
BENCHMARK(collectWork)->QUIL_SIZES;
BENCHMARK_CAPTURE(setWork, dedupe, Work::dedupe)->QUIL_SIZES;
BENCHMARK_CAPTURE(sortUnique, peerOfDedupe, 1)->QUIL_SIZES;
BENCHMARK_CAPTURE(setWork, intersection, Work::both)->QUIL_SIZES;
BENCHMARK_CAPTURE(setWork, unionOf, Work::either)->QUIL_SIZES;
BENCHMARK_CAPTURE(sortUnique, peerOfAndOr, 2)->QUIL_SIZES;
BENCHMARK_CAPTURE(readBack, whole, 1000000)->QUIL_SIZES;
BENCHMARK_CAPTURE(readBack, thousands, 1000)->QUIL_SIZES;
BENCHMARK(newIDs)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(showOnMap, unsorted, "unsorted.txt")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(showOnMap, sorted, "sorted.txt")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(getInfo)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(sortAndReadTwice)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
