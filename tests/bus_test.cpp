// Messages between applications, over a session bus of the test's own.
#include "platform/linux/bus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <functional>
#include <thread>

#include "platform/linux/bus_names.h"
#include "platform/linux/linux_machine.h"
#include "support/process.h"

namespace platform {
namespace {

using support::Outcome;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

// Another program, ended with the test.
class Program {
  public:
    Program(const std::vector<std::string>& command, const std::string& output) {
        process = fork();
        if (process == 0) {
            dup2(open(output.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), 1);
            dup2(open("/dev/null", O_RDWR), 0);
            dup2(open((output + ".errors").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), 2);
            std::vector<char*> arguments;
            for (const std::string& one : command) {
                arguments.push_back(const_cast<char*>(one.c_str()));
            }
            arguments.push_back(nullptr);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Program() { end(SIGTERM); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void end(int number) {
        if (process > 0) {
            kill(process, number);
            waitpid(process, nullptr, 0);
            process = 0;
        }
    }

    pid_t process = 0;
};

bool waitFor(const std::function<bool()>& condition) {
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::vector<std::string> sReceived;  // what the host's handler got: "MSSG=HOLA LAT =..."

std::string textOf(const Event& event) {
    std::string text;
    for (const EventParameter& parameter : event.parameters) {
        text += (text.empty() ? "" : " ") + textOfCode(parameter.keyword) + "=" + parameter.data;
    }
    return text;
}

class BusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0) {
            GTEST_SKIP() << "dbus-daemon is not installed (package dbus)";
        }
        if (makeBus({}) == nullptr) {
            GTEST_SKIP() << "built without the message bus (package libsystemd-dev)";
        }
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + folder.file("bus")).c_str(), 1);
        setenv("XDG_DATA_DIRS", folder.path().c_str(), 1);
        startDaemon();
        sReceived.clear();
        LinuxOptions options;
        options.signature = "HOST"_4;
        options.volumes = {{"Disk", folder.path().string()}};
        options.log = [this](const std::string& line) { log.push_back(line); };
        machine = makeLinuxMachine(options);
    }

    void startDaemon() {
        daemon =
            std::make_unique<Program>(std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile",
                                                               "--address=unix:path=" + folder.file("bus")},
                                      folder.file("daemon"));
        ASSERT_TRUE(waitFor([this] {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            folder.file("bus").copy(address.sun_path, sizeof address.sun_path - 1);
            const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const bool there = connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
            close(socket);
            return there;
        }));
    }

    void stopDaemon() {
        daemon.reset();
        unlink(folder.file("bus").c_str());
    }

    Status install() {
        return machine->events().installHandler(
            "QUIL"_4, "AEVT"_4,
            [](const Event& event, Event&, long) -> Status {
                sReceived.push_back(textOf(event));
                return sReceived.back() == "MSSG=BAD!" ? errAEEventNotHandled : noErr;
            },
            0);
    }

    struct Partner {
        std::unique_ptr<Bus> bus;
        std::deque<ArrivedEvent> events;
    };

    // An application beside the host, in this process.
    std::unique_ptr<Partner> partner(OSType signature) {
        auto made = std::make_unique<Partner>();
        made->bus = makeBus({.signature = signature,
                             .arrived =
                                 [events = &made->events](ArrivedEvent&& event) {
                                     events->push_back(std::move(event));
                                     return true;
                                 },
                             .log = [](const char*, const std::string&) {}});
        EXPECT_EQ(made->bus->serve(), noErr);
        return made;
    }

    Status send(OSType target, const std::string& message) {
        return machine->events().send({"QUIL"_4, "AEVT"_4, target, {{"MSSG"_4, "TEXT"_4, message}}});
    }

    ProcessSerialNumber processOf(OSType signature) {
        ProcessInfo info;
        for (ProcessSerialNumber process = noProcess; machine->processes().next(process) == noErr;) {
            if (machine->processes().information(process, info) == noErr && info.signature == signature) {
                return process;
            }
        }
        return noProcess;
    }

    bool dispatchUntil(const std::function<bool()>& condition) {
        return waitFor([&] {
            machine->events().dispatch();
            return condition();
        });
    }

    Outcome busctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"busctl", "--user", "call", "--", "org.quil.Partner.HOST",
                                             "/org/quil/Partner/HOST", "org.quil.Partner1", "Event"});
        // The answer comes while this process hands its events out.
        Outcome outcome;
        std::thread caller([&] { outcome = support::run(arguments); });
        std::atomic<bool> done = false;
        std::thread watcher([&] {
            caller.join();
            done = true;
        });
        dispatchUntil([&] { return done.load(); });
        watcher.join();
        return outcome;
    }

    bool logged(std::string_view text) const {
        return std::any_of(log.begin(), log.end(),
                           [text](const std::string& line) { return line.find(text) != std::string::npos; });
    }

    support::TemporaryFolder folder;
    std::unique_ptr<Program> daemon;
    Lines log;
    std::unique_ptr<Machine> machine;
};

TEST_F(BusTest, CarriesEventsBothWaysInOrderAndByteForByte) {
    ASSERT_EQ(install(), noErr);
    EXPECT_EQ(send("GLN1"_4, "HOLA"), procNotFound);
    const auto gln1 = partner("GLN1"_4);
    const auto odd = partner(0x8E212121);
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    const Event event{"QUIL"_4,
                      "AEVT"_4,
                      "GLN1"_4,
                      {{"MSSG"_4, "TEXT"_4, ""}, {0x8E202020, "TEXT"_4, bytes}, {"A   "_4, "TEXT"_4, "x"}}};
    EXPECT_EQ(machine->events().send(event), noErr);
    EXPECT_EQ(send(0x8E212121, "odd"), noErr);
    ASSERT_TRUE(waitFor([&] {
        gln1->bus->pump();
        odd->bus->pump();
        return !gln1->events.empty() && !odd->events.empty();
    }));
    EXPECT_EQ(textOf(gln1->events[0].event), textOf(event));
    EXPECT_EQ(textOf(odd->events[0].event), "MSSG=odd");
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(gln1->bus->send({"QUIL"_4, "AEVT"_4, "HOST"_4, {{"NUM "_4, "TEXT"_4, std::to_string(i)}}}), noErr);
    }
    EXPECT_TRUE(sReceived.empty()) << "handlers run when the host says so";
    ASSERT_TRUE(dispatchUntil([] { return sReceived.size() >= 500; }));
    for (std::size_t i = 0; i < 500; ++i) {
        ASSERT_EQ(sReceived[i], "NUM =" + std::to_string(i));
    }
    EXPECT_EQ(machine->events().send({"QUIL"_4, "AEVT"_4, "GLN1"_4, {{0, "TEXT"_4, "x"}}}), paramErr);
    EXPECT_EQ(send("GLN1"_4, std::string(largestEvent, 'x')), paramErr);
    EXPECT_EQ(send("GLN1"_4, std::string(largestEvent - 1024, 'x')), noErr);
}

TEST_F(BusTest, KnowsWhoRunsAndReachesThem) {
    ProcessInfo info;
    auto first = partner("GLN1"_4);
    const ProcessSerialNumber process = processOf("GLN1"_4);
    ASSERT_NE(process, noProcess);
    ASSERT_EQ(machine->processes().information(process, info), noErr);
    EXPECT_EQ(info.name, "bus_test");
    EXPECT_EQ(machine->processes().setFront(process), noErr);
    FSSpec spec;
    support::writeFile(folder.path() / "a b", "x");
    ASSERT_EQ(machine->files().makeSpec(0, 0, "Disk:a b", spec), noErr);
    const Event open{
        "aevt"_4, "odoc"_4, "GLN1"_4, {{"----"_4, "fss "_4, {reinterpret_cast<const char*>(&spec), sizeof spec}}}};
    EXPECT_EQ(machine->events().send(open), noErr);
    ASSERT_TRUE(waitFor([&] {
        first->bus->pump();
        return first->events.size() == 2;
    }));
    EXPECT_EQ(first->events[0].event.eventID, "actv"_4);
    EXPECT_EQ(first->events[1].event.parameters[0].data, folder.file("a b"));

    ASSERT_EQ(install(), noErr);
    machine->events().installHandler(
        "aevt"_4, "odoc"_4,
        [](const Event& event, Event&, long) -> Status {
            FSSpec document;
            event.parameters[0].data.copy(reinterpret_cast<char*>(&document), sizeof document);
            sReceived.emplace_back(document.nameView());
            return noErr;
        },
        0);
    EXPECT_EQ(first->bus->open("HOST"_4, uriOfPath(folder.file("a b"))), noErr);
    ASSERT_TRUE(dispatchUntil([] { return sReceived.size() == 1; }));
    EXPECT_EQ(sReceived[0], "a b");

    first.reset();
    EXPECT_TRUE(waitFor([&] { return processOf("GLN1"_4) == noProcess; }));
    EXPECT_EQ(send("GLN1"_4, "gone"), procNotFound);
    EXPECT_EQ(machine->processes().setFront(process), procNotFound);
}

TEST_F(BusTest, RefusesWhatIsNoEvent) {
    ASSERT_EQ(install(), noErr);
    const struct {
        Lines arguments;
        const char* error;
    } cases[] = {
        {{"ssa(say)", "QUIL", "AEVT", "1", "MSSG", "2", "72", "105"}, ""},
        {{"ssa(say)", "QUIL", "AEVT", "0"}, ""},
        {{"ssa(say)", "QUIL", "AEVT", "2", "MSSG", "0", "MSSG", "0"}, "given twice"},
        {{"ssa(say)", "QUIL", "AEVT", "1", "MSS", "0"}, "not four characters"},
        {{"ssa(say)", "QUI", "AEVT", "0"}, "not four characters"},
        {{"ssa(say)", "What", "AEVT", "0"}, "-1708"},
        {{"ssa(say)", "QUIL", "AEVT", "1", "MSSG", "4", "66", "65", "68", "33"}, "-1708"},
        {{"ssa(say)", "misc", "dosc", "1", "----", "1", "65"}, "denied"},
        {{"ssa(sas)", "QUIL", "AEVT", "0"}, "instead of"},
        {{"ss", "QUIL", "AEVT"}, "instead of"},
    };
    for (const auto& [arguments, error] : cases) {
        const Outcome outcome = busctl(arguments);
        EXPECT_EQ(outcome.status, *error == 0 ? 0 : 1) << arguments.back() << outcome.errors;
        EXPECT_NE(outcome.errors.find(error), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(sReceived, (Lines{"MSSG=Hi", "", "MSSG=BAD!"})) << "of all of them, what was an event";
    EXPECT_TRUE(logged("an event was refused: from :"));
}

TEST_F(BusTest, BoundsWhatWaitsForAPartnerThatDoesNotRead) {
    const auto lazy = partner("LAZY"_4);
    int sent = 0;
    const auto start = Clock::now();
    Status status = noErr;
    while ((status = send("LAZY"_4, std::to_string(sent))) == noErr && sent < 5000) {
        ++sent;
    }
    EXPECT_EQ(status, bufferIsSmall);
    EXPECT_EQ(sent, 1024);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_TRUE(logged("does not read its messages"));
    EXPECT_EQ(send("LAZY"_4, "at once, this time"), bufferIsSmall);
    ASSERT_TRUE(waitFor([&] {
        lazy->bus->pump();
        return lazy->events.size() == 1024;
    }));
    EXPECT_EQ(textOf(lazy->events[1023].event), "MSSG=1023");
    EXPECT_TRUE(waitFor([&] { return send("LAZY"_4, "again") == noErr; }));
    const std::string large(std::size_t{15} << 20, 'x');
    EXPECT_EQ(send("LAZY"_4, large), noErr);
    EXPECT_EQ(send("LAZY"_4, large), noErr);
    EXPECT_EQ(send("LAZY"_4, large), bufferIsSmall);
}

TEST_F(BusTest, BoundsAFlood) {
    ASSERT_EQ(install(), noErr);
    const auto loud = partner("LOUD"_4);
    for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(send("HOST"_4, "own"), noErr);
    }
    EXPECT_EQ(send("HOST"_4, "one too many"), bufferIsSmall);
    EXPECT_EQ(loud->bus->send({"QUIL"_4, "AEVT"_4, "HOST"_4, {}}), noErr);
    EXPECT_TRUE(waitFor([&] {
        send("HOST"_4, "takes in what has come");
        return logged("dropped because too many wait");
    }));
    EXPECT_TRUE(dispatchUntil([] { return sReceived.size() == 20000; })) << sReceived.size();
}

TEST_F(BusTest, AnswersABurst) {
    ASSERT_EQ(install(), noErr);
    support::writeFile(folder.path() / "rules.lua",
                       "return { PING = function(m) return { MSSG = 'PONG', TEXT = m.TEXT } end }");
    Program answering({QUIL_BINARY_DIR "/quil", "partner", "GLN1", "--answer", folder.file("rules.lua")},
                      folder.file("partner"));
    ASSERT_TRUE(waitFor([&] { return processOf("GLN1"_4) != noProcess; }));
    constexpr int kCount = 10000;
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(machine->events().send({"QUIL"_4,
                                          "AEVT"_4,
                                          "GLN1"_4,
                                          {{"MSSG"_4, "TEXT"_4, "PING"},
                                           {"SIGN"_4, "TEXT"_4, "HOST"},
                                           {"TEXT"_4, "TEXT"_4, std::to_string(i)}}}),
                  noErr);
    }
    ASSERT_TRUE(dispatchUntil([] { return sReceived.size() == kCount; })) << sReceived.size();
    EXPECT_NE(sReceived[kCount - 1].find("TEXT=9999"), std::string::npos) << sReceived[kCount - 1];
    // Killed in the middle of another one: every send ends, with success or with the partner's absence.
    Status status = noErr;
    for (int i = 0; i < 2000 && status == noErr; ++i) {
        if (i == 500) {
            answering.end(SIGKILL);
        }
        status = send("GLN1"_4, "late");
        ASSERT_TRUE(status == noErr || status == procNotFound) << status;
    }
    EXPECT_TRUE(waitFor([&] { return send("GLN1"_4, "after") == procNotFound; }));
}

TEST_F(BusTest, IsThereAgainAfterTheBusWasRestarted) {
    ASSERT_EQ(install(), noErr);
    stopDaemon();
    EXPECT_EQ(send("GLN1"_4, "lost"), connectionInvalid);
    ProcessSerialNumber process = hostProcess;
    EXPECT_EQ(machine->processes().next(process), connectionInvalid);
    EXPECT_EQ(send("HOST"_4, "own"), noErr) << "the host reaches itself all the same";
    startDaemon();
    const auto gln1 = partner("GLN1"_4);
    ASSERT_TRUE(dispatchUntil([&] {
        return gln1->bus->send({"QUIL"_4, "AEVT"_4, "HOST"_4, {{"MSSG"_4, "TEXT"_4, "back"}}}) == noErr;
    }));
    ASSERT_TRUE(dispatchUntil([] { return sReceived.size() == 2; }));
    EXPECT_EQ(sReceived, (Lines{"MSSG=own", "MSSG=back"}));
    EXPECT_EQ(send("GLN1"_4, "found"), noErr);
}

TEST_F(BusTest, LaunchesApplications) {
    namespace fs = std::filesystem;
    const std::string run = "#!/bin/sh\nexec " QUIL_BINARY_DIR "/quil partner ";
    const auto put = [&](const std::string& path, const std::string& text) {
        fs::create_directories((folder.path() / path).parent_path());
        support::writeFile(folder.path() / path, text);
        fs::permissions(folder.path() / path, fs::perms::owner_all);
    };
    put("One.app/Contents/MacOS/One", run + "ONE1 --for 30\n");
    put("two", run + "TWO2 --for 30\n");
    put("dbus-1/services/org.quil.Partner.TRE3.service",
        "[D-BUS Service]\nName=org.quil.Partner.TRE3\nExec=" + folder.file("three") + "\n");
    put("three", run + "TRE3 --for 30\n");
    put("bad", "no program");
    support::writeFile(folder.path() / "plain", run);
    const auto launch = [&](const std::string& path) {
        FSSpec spec;
        EXPECT_EQ(machine->files().makeSpec(0, 0, "Disk:" + path, spec), noErr) << path;
        ProcessSerialNumber process = noProcess;
        return machine->processes().launch(spec, 0x4200, process);
    };
    for (const auto& one : {std::pair{"One.app", "ONE1"_4}, {"two", "TWO2"_4}, {"three", "TRE3"_4}}) {
        EXPECT_EQ(launch(one.first), noErr) << one.first;
        EXPECT_TRUE(waitFor([&] { return processOf(one.second) != noProcess; })) << one.first;
        EXPECT_EQ(send(one.second, "HOLA"), noErr);
    }
    EXPECT_EQ(launch("dbus-1"), fnfErr);
    EXPECT_EQ(launch("plain"), permErr);
    EXPECT_NE(launch("bad"), noErr);
    EXPECT_EQ(launch("dbus-1:services:org.quil.Partner.TRE3.service"), noErr) << "runs already";
    // They end with their bus.
    const auto watcher = makeBus({.signature = 0, .arrived = {}, .log = [](const char*, const std::string&) {}});
    for (ProcessSerialNumber process = hostProcess; watcher->nextPartner(process) == noErr;) {
        BusPartner found;
        ASSERT_EQ(watcher->partner(process, found), noErr);
        if (found.signature != "TRE3"_4) {  // that one is the bus's child
            EXPECT_NE(getsid(found.pid), getsid(0)) << "each lives on its own";
        }
        kill(found.pid, SIGTERM);
    }
}

TEST_F(BusTest, EndsInTheMiddleOfABurstWithoutLosingIt) {
    const auto slow = partner("SLOW"_4);
    for (int i = 0; i < 900; ++i) {
        ASSERT_EQ(send("SLOW"_4, std::string(10000, 'x')), noErr);
    }
    EXPECT_EQ(send("SLOW"_4, "BYE "), noErr);
    const auto start = Clock::now();
    machine.reset();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
    ASSERT_TRUE(waitFor([&] {
        slow->bus->pump();
        return slow->events.size() == 901;
    }));
    EXPECT_EQ(textOf(slow->events[900].event), "MSSG=BYE ");
}

TEST_F(BusTest, TwoHostsOfOneSignatureTakeTurns) {
    ASSERT_EQ(install(), noErr);
    const auto other = partner("HOST"_4);
    const auto gln1 = partner("GLN1"_4);
    const auto greet = [&] { return gln1->bus->send({"QUIL"_4, "AEVT"_4, "HOST"_4, {{"MSSG"_4, "TEXT"_4, "x"}}}); };
    EXPECT_EQ(greet(), noErr);
    ASSERT_TRUE(dispatchUntil([] { return sReceived.size() == 1; }));
    machine.reset();
    EXPECT_TRUE(waitFor([&] {
        greet();
        other->bus->pump();
        return !other->events.empty();
    }));
}

// Whole programs.

class Programs : public BusTest {
  protected:
    Program host(const std::string& name, const std::string& text) {
        std::filesystem::create_directory(folder.path() / name);
        support::writeFile(folder.path() / name / "solution.lua", text);
        return Program({QUIL_BINARY_DIR "/quil", "run", folder.file(name), "--for", "30"}, folder.file(name + ".out"));
    }
    bool prints(const std::string& file, const std::string& text) {
        return waitFor([&] {
            return std::filesystem::exists(folder.path() / file) &&
                   support::readFile(folder.path() / file).find(text) != std::string::npos;
        });
    }
};

TEST_F(Programs, TwoHostsTalk) {
    const std::string common =
        "function scripts.Read() local m = QUIL_External('GLN1GetNextMessage') "
        "local t = QUIL_External('GLN1GetParameter', 'TEXT') print(m .. ' ' .. t) answer(m, t) end\n"
        "function begin() QUIL_External('GLN1SetHandledMessages', 'PING|PONG') "
        "QUIL_External('GLN1SetMessageHandlingScriptTo', 'Read') QUIL_External('GLN1InitIAC') end\n"
        "function tell(who, m, t) QUIL_External('GLN1SetParameter', 'MSSG|' .. m) "
        "QUIL_External('GLN1SetParameter', 'TEXT|' .. t) print(QUIL_External('GLN1SendMessageTo', who)) end\n";
    const Program b = host("b", "signature = 'HSTB'\n" + common +
                                    "function scripts.Start() begin() print('ready') end\n"
                                    "function answer(m, t) tell('HSTA', 'PONG', t .. '!') end\n");
    ASSERT_TRUE(prints("b.out", "ready"));
    const Program a = host("a", "signature = 'HSTA'\n" + common +
                                    "function scripts.Start() begin() tell('HSTB', 'PING', 'Gr\xC3\xBC\xC3\x9F"
                                    "e') end\n"
                                    "function answer() quit() end\n");
    EXPECT_TRUE(prints("a.out",
                       "PONG Gr\xC3\xBC\xC3\x9F"
                       "e!"))
        << support::readFile(folder.path() / "a.out.errors");
    EXPECT_TRUE(prints("b.out",
                       "PING Gr\xC3\xBC\xC3\x9F"
                       "e"));
}

TEST_F(Programs, AHostTalksWithAPartnerInPython) {
    if (support::run({"/usr/bin/python3", "-c", "import dbus, gi"}).status != 0) {
        GTEST_SKIP() << "python3-dbus or python3-gi is not installed";
    }
    Program watching({QUIL_BINARY_DIR "/quil", "trace", "--for", "60"}, folder.file("trace"));
    const Program python({"/usr/bin/python3", QUIL_SOURCE_DIR "/examples/partners/partner.py"}, folder.file("python"));
    ASSERT_TRUE(waitFor([&] { return processOf("GLN1"_4) != noProcess; }));
    const Outcome host = support::quil(
        {"run", QUIL_SOURCE_DIR "/examples/partners/host", "--database", folder.file("ping.db"), "--for", "20"});
    EXPECT_EQ(host.output,
              "PONG from GLN1: Gr\xC3\xBC\xC3\x9F"
              "e\n")
        << host.errors;
    EXPECT_TRUE(prints("python",
                       "'TEXT': 'Gr\xC3\xBC\xC3\x9F"
                       "e'"));
    EXPECT_TRUE(prints("trace", "GLN1 -> FMP7  PONG  SIGN=\"GLN1\""));
}

TEST_F(Programs, BusctlAloneIsAPartnerEnough) {
    const Program host({QUIL_BINARY_DIR "/quil", "run", QUIL_SOURCE_DIR "/examples/partners/host", "--database",
                        folder.file("ping.db"), "--for", "30"},
                       folder.file("host"));
    ASSERT_TRUE(waitFor([&] { return processOf("FMP7"_4) != noProcess; }));
    const auto busctl = [](Lines arguments) {
        arguments.insert(arguments.begin(), {"busctl", "--user"});
        return support::run(arguments);
    };
    const Lines object = {"org.quil.Partner.FMP7", "/org/quil/Partner/FMP7", "org.quil.Partner1"};
    EXPECT_EQ(busctl({"get-property", object[0], object[1], object[2], "Version"}).output, "u 1\n");
    const Outcome shown = busctl({"introspect", object[0], object[1], object[2]});
    EXPECT_NE(shown.output.find("ssa(say)"), std::string::npos) << shown.output;
    const Outcome sent = busctl({"call", object[0], object[1], object[2], "Event", "ssa(say)", "QUIL", "AEVT", "3",
                                 "MSSG", "4",       "80",      "79",      "78",    "71",       "SIGN", "4",    "71",
                                 "76",   "78",      "49",      "TEXT",    "2",     "104",      "105"});
    EXPECT_EQ(sent.status, 0) << sent.errors;
    EXPECT_TRUE(prints("host", "PONG from GLN1: hi"));
}

TEST_F(Programs, AStandInGreetsAnswersAndSendsWhatIsTyped) {
    ASSERT_EQ(install(), noErr);
    Outcome typed;
    std::thread typing([&] {
        typed = support::quil({"partner", "GLN1", "--greet", "--signature", "HOST", "--for", "2"},
                              {.input = "{\"parameters\": {\"MSSG\": \"MHIT\", \"ITEM\": \"1\"}}\nnonsense\n"
                                        "{\"parameters\": [{\"key\": \"RAW!\", \"bytes\": \"/wA=\"}]}\n"});
    });
    EXPECT_TRUE(dispatchUntil([] { return sReceived.size() == 3; }));
    EXPECT_EQ(send("GLN1"_4, "\x8E"), noErr);
    EXPECT_TRUE(dispatchUntil([] { return sReceived.size() == 4; }));
    typing.join();
    ASSERT_EQ(sReceived.size(), 4U);
    EXPECT_EQ(sReceived[0], "MSSG=HOLA SIGN=GLN1 PSIG=GLN1 XTRA= NCOD=utf-8 NAME=quil partner");
    EXPECT_EQ(sReceived[1], "MSSG=MHIT SIGN=GLN1 PSIG=GLN1 XTRA= NCOD=utf-8 ITEM=1");
    EXPECT_EQ(sReceived[2], std::string("RAW!=\xFF\0", 7));
    EXPECT_EQ(sReceived[3].substr(0, 9), "MSSG=BYE ");
    EXPECT_EQ(typed.status, 1);
    EXPECT_NE(typed.errors.find("standard input:2: "), std::string::npos) << typed.errors;
    EXPECT_NE(typed.output.find("\"parameters\": [{\"key\": \"MSSG\", \"bytes\": \"jg==\"}]}\n"), std::string::npos)
        << typed.output;
    EXPECT_EQ(support::quil({"partner", "TOOLONG"}).status, 2);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
    for (const Lines& command : {Lines{"partner", "GLN1"}, Lines{"trace"}}) {
        EXPECT_EQ(support::quil(command).status, 1);
    }
}

}  // namespace
}  // namespace platform
