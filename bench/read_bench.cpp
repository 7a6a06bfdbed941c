// A file of 64 MiB read whole into a byte handle, beside `cat` of the same file to /dev/null.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/linux/linux_machine.h"
#include "util/fhandle.h"
#include "util/file_io.h"

namespace {

constexpr std::size_t kSize = std::size_t{64} << 20;

struct TestFile {
    std::string folder = "/tmp/quil-bench-XXXXXX";
    std::string path;
    TestFile() {
        if (mkdtemp(folder.data()) == nullptr) {
            std::abort();
        }
        path = folder + "/large";
        std::ofstream(path, std::ios::binary) << std::string(kSize, 'x');
    }
    ~TestFile() {
        unlink(path.c_str());
        rmdir(folder.c_str());
    }
};

const TestFile& testFile() {
    static const TestFile file;
    return file;
}

void readWhole(benchmark::State& state) {
    platform::LinuxOptions options;
    options.volumes = {{"Disk", testFile().folder}};
    const auto machine = platform::makeLinuxMachine(options);
    platform::Machine* before = platform::installMachine(machine.get());
    for (auto _ : state) {
        char** content = quil::ReadFileIntoTerminatedFHandle("Disk:large", false);
        if (quil::GetFHandleSize(content) != static_cast<long>(kSize) + 1) {
            state.SkipWithError("not read whole");
        }
        quil::DisposeAndClearFHandle(&content);
    }
    platform::installMachine(before);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["max_resident_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

void cat(benchmark::State& state) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    std::string path = testFile().path;
    char name[] = "cat";
    char* arguments[] = {name, path.data(), nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = -1;
        if (posix_spawnp(&child, name, &actions, nullptr, arguments, environ) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("cat failed");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK(readWhole)->Name("read 64 MiB whole")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(cat)->Name("cat 64 MiB to /dev/null")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
