// A message to a partner and its answer back, beside a bare echo through sd-bus with the same payload: the two take
// turns in one run, over a bus of the program's own, with everything on one core and then on two.
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/entry.h"
#include "frame/modules.h"
#include "messaging/message_parameters.h"
#include "platform/linux/linux_machine.h"
#include "util/fhandle.h"

namespace {

using namespace quil;
using Clock = std::chrono::steady_clock;

constexpr char kPartner[] = "org.quil.Partner.GLN1";
constexpr int kRounds = 4000;
constexpr int kWarmUp = 500;

// Reads an event's arguments; adds them to `copy`, unless that is null. How many bytes the values have.
std::size_t readArguments(sd_bus_message* message, sd_bus_message* copy) {
    const char* eventClass = nullptr;
    const char* id = nullptr;
    sd_bus_message_read(message, "ss", &eventClass, &id);
    sd_bus_message_enter_container(message, 'a', "(say)");
    if (copy != nullptr) {
        sd_bus_message_append(copy, "ss", eventClass, id);
        sd_bus_message_open_container(copy, 'a', "(say)");
    }
    std::size_t bytes = 0;
    while (sd_bus_message_enter_container(message, 'r', "say") > 0) {
        const char* key = nullptr;
        const void* value = nullptr;
        std::size_t size = 0;
        sd_bus_message_read_basic(message, 's', &key);
        sd_bus_message_read_array(message, 'y', &value, &size);
        sd_bus_message_exit_container(message);
        bytes += size;
        if (copy != nullptr) {
            sd_bus_message_open_container(copy, 'r', "say");
            sd_bus_message_append_basic(copy, 's', key);
            sd_bus_message_append_array(copy, 'y', value, size);
            sd_bus_message_close_container(copy);
        }
    }
    sd_bus_message_exit_container(message);
    if (copy != nullptr) {
        sd_bus_message_close_container(copy);
    }
    return bytes;
}

// Sends every event back to where it came from.
int echo(sd_bus_message* message, void* bus, sd_bus_error*) {
    if (sd_bus_message_is_method_call(message, "org.quil.Partner1", "Event") <= 0) {
        return 0;
    }
    sd_bus_message* answer = nullptr;
    sd_bus_message_new_method_call(static_cast<sd_bus*>(bus), &answer, sd_bus_message_get_sender(message),
                                   "/org/quil/Partner/FMP7", "org.quil.Partner1", "Event");
    readArguments(message, answer);
    sd_bus_message_set_expect_reply(answer, 0);
    sd_bus_send(static_cast<sd_bus*>(bus), answer, nullptr);
    sd_bus_message_unref(answer);
    return 1;
}

[[noreturn]] void runEcho() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0 || sd_bus_add_filter(bus, nullptr, echo, bus) < 0 ||
        sd_bus_request_name(bus, kPartner, 0) < 0) {
        _exit(1);
    }
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

std::vector<std::pair<std::string, std::string>> payload(std::size_t count, std::size_t size) {
    std::vector<std::pair<std::string, std::string>> parameters = {
        {"MSSG", "TEST"}, {"SIGN", "FMP7"}, {"PSIG", "FMP7"}, {"XTRA", ""}, {"NCOD", "macRoman"}};
    const char* keys[] = {"ACTN", "ANSR", "ATBS", "CODE", "HLAT", "HLNG", "IDS ", "ITEM",
                          "LAT ", "LLAT", "LLNG", "LONG", "NAME", "NUM ", "TEXT"};
    for (std::size_t i = 0; parameters.size() < count; ++i) {
        parameters.emplace_back(keys[i], std::string(size, static_cast<char>('a' + i)));
    }
    return parameters;
}

int seen(sd_bus_message* message, void* bytes, sd_bus_error*) {
    if (sd_bus_message_is_method_call(message, "org.quil.Partner1", "Event") <= 0) {
        return 0;
    }
    *static_cast<std::size_t*>(bytes) += readArguments(message, nullptr);
    return 1;
}

// The peer: one message there and back with nothing around it.
class Bare {
  public:
    Bare() {
        if (sd_bus_open_user(&bus_) < 0 || sd_bus_add_filter(bus_, nullptr, seen, &bytes_) < 0) {
            std::fputs("bus_bench: no bus\n", stderr);
            std::exit(1);
        }
    }
    ~Bare() { sd_bus_flush_close_unref(bus_); }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    void trip(const std::vector<std::pair<std::string, std::string>>& parameters) {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(bus_, &message, kPartner, "/org/quil/Partner/GLN1", "org.quil.Partner1",
                                       "Event");
        sd_bus_message_append(message, "ss", "QUIL", "AEVT");
        sd_bus_message_open_container(message, 'a', "(say)");
        for (const auto& [key, value] : parameters) {
            sd_bus_message_open_container(message, 'r', "say");
            sd_bus_message_append_basic(message, 's', key.c_str());
            sd_bus_message_append_array(message, 'y', value.data(), value.size());
            sd_bus_message_close_container(message);
        }
        sd_bus_message_close_container(message);
        sd_bus_message_set_expect_reply(message, 0);
        sd_bus_send(bus_, message, nullptr);
        sd_bus_message_unref(message);
        for (const std::size_t before = bytes_; bytes_ == before;) {
            if (sd_bus_process(bus_, nullptr) == 0) {
                sd_bus_wait(bus_, UINT64_MAX);
            }
        }
    }

  private:
    sd_bus* bus_ = nullptr;
    std::size_t bytes_ = 0;  // of the values that came back
};

std::string call(const char* name, std::string_view parameter) {
    char** in = NewFHandle(0);
    char** out = NewFHandle(0);
    SetResultsHandleText(in, parameter);
    FindRow(name)->handler(2, in, out);
    std::string answer(FHandleText(out));
    DisposeAndClearFHandle(&in);
    DisposeAndClearFHandle(&out);
    return answer;
}

double median(std::vector<double>& values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void measure(int cores, std::size_t count, std::size_t size) {
    const auto parameters = payload(count, size);
    Bare bare;
    const std::unique_ptr<platform::Machine> machine = platform::makeLinuxMachine({});
    platform::installMachine(machine.get());
    ResetPlugInState();
    GLN1_Plugin_Startup();
    call("GLN1InitIAC", "");
    call("GLN1SetHandledMessages", "TEST");
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = -kWarmUp; round < kRounds; ++round) {
        auto start = Clock::now();
        bare.trip(parameters);
        const double echoed = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        for (const auto& [key, value] : parameters) {
            if (key != "NCOD") {
                call("GLN1SetParameter", key + "|" + value);
            }
        }
        start = Clock::now();
        call("GLN1SendMessageTo", "GLN1");
        while (gArchivedIncomingMessageParameterDataNodeList[0] == nullptr) {
            machine->events().dispatch();
            if (gArchivedIncomingMessageParameterDataNodeList[0] == nullptr) {
                pollfd watched{machine->events().descriptor(), POLLIN, 0};
                poll(&watched, 1, 1000);
            }
        }
        if (call("GLN1GetNextMessage", "") != "TEST") {
            std::fputs("bus_bench: a message is lost\n", stderr);
            std::exit(1);
        }
        const double answered = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        if (round >= 0) {
            theirs.push_back(echoed);
            ours.push_back(answered);
        }
    }
    GLN1_Plugin_Shutdown();
    platform::installMachine(nullptr);
    const double echoed = median(theirs);
    const double answered = median(ours);
    std::printf("%d core%s  %2zu parameters of %4zu bytes  bare echo %6.1f us  message %6.1f us  %.2f x\n", cores,
                cores == 1 ? " " : "s", count, size, echoed, answered, answered / echoed);
    std::fflush(stdout);
}

pid_t startDaemon(const std::string& folder) {
    const pid_t daemon = fork();
    if (daemon == 0) {
        const std::string address = "--address=unix:path=" + folder + "/bus";
        if (std::freopen("/dev/null", "w", stderr) == nullptr) {  // it complains about limits
            _exit(127);
        }
        execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", address.c_str(), nullptr);
        _exit(127);
    }
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + folder + "/bus").c_str(), 1);
    return daemon;
}

bool partnerIsThere() {
    sd_bus* bus = nullptr;
    const bool there = sd_bus_open_user(&bus) >= 0 && sd_bus_get_name_creds(bus, kPartner, 0, nullptr) >= 0;
    sd_bus_unref(bus);
    return there;
}

}  // namespace

int main() {
    for (const int cores : {1, 2}) {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (int i = 0; i < cores; ++i) {
            CPU_SET(i, &set);
        }
        sched_setaffinity(0, sizeof set, &set);
        std::string folder = "/tmp/quil-bench-XXXXXX";
        if (mkdtemp(folder.data()) == nullptr) {
            return 1;
        }
        const pid_t daemon = startDaemon(folder);
        while (access((folder + "/bus").c_str(), F_OK) != 0) {
            usleep(1000);
        }
        const pid_t partner = fork();
        if (partner == 0) {
            runEcho();
        }
        while (!partnerIsThere()) {
            usleep(1000);
        }
        measure(cores, 5, 0);
        measure(cores, 20, 20);
        measure(cores, 20, 1000);
        for (const pid_t process : {partner, daemon}) {
            kill(process, SIGTERM);
            waitpid(process, nullptr, 0);
        }
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    return 0;
}
