// What happens when the Nth allocation, or the Nth file call, of a script of calls fails: for every N, the call ends in
// full success or in the outcome that is documented for it, leaves nothing behind but what is documented, and works the
// next time.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <new>

#include "fmx/call_record.h"
#include "fmx/host.h"
#include "frame/dispatch_table.h"
#include "frame/entry.h"
#include "messaging/transport.h"
#include "support/machine_fixture.h"
#include "support/script_calls.h"
#include "util/fhandle.h"
#include "util/file_io.h"
#include "util/memory.h"

namespace {

// Counts allocations, of the plug-in's buffers and of C++ alike, and makes some fail.
struct Memory {
    enum class Mode { never, once, fromThenOn };
    Mode mode = Mode::never;
    long failAt = 0;  // counted from 0
    long seen = 0;    // allocations since arm()
    long blocks = 0;  // of C++, alive

    void arm(Mode how, long n) {
        mode = how;
        failAt = n;
        seen = 0;
    }
    // Whether the failure was met.
    bool disarm() {
        mode = Mode::never;
        return seen > failAt;
    }
    bool allowed() {
        if (mode == Mode::never) {
            return true;
        }
        const long number = seen++;
        return mode == Mode::once ? number != failAt : number < failAt;
    }
};
Memory gMemory;
// The plug-in's buffers that are alive, with their sizes; the map's own memory is not counted.
std::map<void*, std::size_t>* gBuffers = nullptr;

// Out of line: where they are not, the compiler sees malloc and free on the two sides of new and delete and warns.
[[gnu::noinline]] void* newBlock(std::size_t size) {
    if (!gMemory.allowed()) {
        return nullptr;
    }
    void* block = std::malloc(size == 0 ? 1 : size);
    gMemory.blocks += block != nullptr ? 1 : 0;
    return block;
}

[[gnu::noinline]] void deleteBlock(void* block) {
    gMemory.blocks -= block != nullptr ? 1 : 0;
    std::free(block);
}

// The bookkeeping below allocates too, and must neither fail nor count.
template <class F>
void aside(F&& f) {
    const Memory kept = gMemory;
    gMemory.mode = Memory::Mode::never;
    f();
    gMemory = kept;
}

void* allocateBuffer(std::size_t bytes) {
    if (!gMemory.allowed()) {
        return nullptr;
    }
    void* block = std::calloc(bytes, 1);
    aside([block, bytes] { gBuffers->emplace(block, bytes); });
    return block;
}

void releaseBuffer(void* block) {
    aside([block] { gBuffers->erase(block); });
    std::free(block);
}

constexpr quil::Allocator kSweepAllocator = {allocateBuffer, releaseBuffer};

}  // namespace

// All other forms of the library end in these; aligned ones are not used by the code under test.
void* operator new(std::size_t size) {
    if (void* block = newBlock(size)) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return newBlock(size);
}
void operator delete(void* block) noexcept {
    deleteBlock(block);
}
void operator delete(void* block, std::size_t) noexcept {
    deleteBlock(block);
}

namespace {

constexpr fmx::errcode kMemFull = -108;
constexpr fmx::errcode kNullHandle = -1;
constexpr short kExternalFunction = 2;

class Registry : public fmx::FunctionRegistry {
  public:
    fmx::errcode registerFunction(const fmx::QuadChar&, short funcId, const fmx::Text&, const fmx::Text&, short, short,
                                  std::uint32_t, fmx::ExternalFunction function) override {
        functions[funcId] = function;
        return fmx::kNoError;
    }
    fmx::errcode unregisterFunction(const fmx::QuadChar&, short funcId) override {
        return functions.erase(funcId) == 1 ? fmx::kNoError : fmx::kParameterError;
    }
    std::map<short, fmx::ExternalFunction> functions;
};

struct Outcome {
    fmx::errcode code = 0;
    bool answered = false;
    std::u16string text;
    std::vector<std::string> alerts;

    bool operator==(const Outcome&) const = default;
};

class SweepTest : public support::MachineFixture {
  protected:
    void SetUp() override {
        static std::map<void*, std::size_t> sBuffers;
        gBuffers = &sBuffers;
        record_.instance = machine().resources().useBundle(nullptr);
        record_.hostVersion = 60;
        fmx::installFunctionRegistry(&registry_);
        quil::setAllocator(&kSweepAllocator);
        ASSERT_EQ(callEntry(fmx::kCallInit), fmx::kExtensionVersion);
    }
    void TearDown() override {
        callEntry(fmx::kCallShutdown);
        fmx::installFunctionRegistry(nullptr);
        EXPECT_TRUE(gBuffers->empty());
        quil::setAllocator(nullptr);
    }

    std::intptr_t callEntry(std::uint8_t selector) {
        record_.selector = selector;
        record_.result = 0;
        FMExternCallProc(&record_);
        return record_.result;
    }

    // Evaluates QUIL_External with allocation `n` failing.
    Outcome evaluate(const std::vector<std::string>& texts, Memory::Mode mode = Memory::Mode::never, long n = 0) {
        fmx::DataVect parameters;
        parameters.Resize(static_cast<std::uint32_t>(texts.size()));
        for (std::uint32_t i = 0; i < parameters.Size(); ++i) {
            fmx::Text text;
            text.AssignBytes(texts[i], fmx::Text::Encoding::utf8);
            parameters.Mutable(i).SetAsText(text, fmx::Locale());
        }
        fmx::Data result;
        Outcome outcome;
        const fmx::ExternalFunction function = registry_.functions.at(kExternalFunction);
        gMemory.arm(mode, n);
        outcome.code = fmx::Evaluate(function, kExternalFunction, fmx::ExprEnv(), parameters, result);
        failureMet_ = gMemory.disarm();
        outcome.answered = result.GetNativeType() == fmx::Data::NativeType::text;
        outcome.text = result.GetAsText().units();
        outcome.alerts = takeMessages();
        return outcome;
    }

    // A handle's record starts with the address of its bytes, which stand behind it or in a buffer of their own.
    static bool isHandleRecord(const void* block, std::size_t bytes) {
        char* first = nullptr;
        if (bytes < 2 * sizeof first) {
            return false;
        }
        std::memcpy(&first, block, sizeof first);
        return first == static_cast<const char*>(block) + 2 * sizeof first || gBuffers->contains(first);
    }

    // The handles that a call left behind, beside what the plug-in keeps; takes them back. The plug-in starts anew.
    long takeBackHandles() {
        callEntry(fmx::kCallShutdown);
        long handles = 0;
        for (const auto& [block, bytes] : *gBuffers) {
            handles += isHandleRecord(block, bytes) ? 1 : 0;
        }
        for (const auto& [block, bytes] : *gBuffers) {
            std::free(block);
        }
        aside([] { gBuffers->clear(); });
        EXPECT_EQ(callEntry(fmx::kCallInit), fmx::kExtensionVersion);
        return handles;
    }

    Registry registry_;
    fmx::CallRecord record_;
    bool failureMet_ = false;
};

constexpr char kGas[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";
constexpr char kNoAmount[] = "SCREEN|0.0087|G|OPEN|3.35|MPH||LBS|100|F||||||10|MINUTES|||MI";

const std::vector<std::vector<std::string>> kScript = {
    {"VSTACalculatePlumeDistance", kGas},
    {"VSTAGetPlumePoints", kGas},
    {"VSTACalculatePlumeDistance", kNoAmount},
    {"VSTAGetPlumePoints", kNoAmount},
    {"VSTACalculatePlumeDistance", ""},
    {"GLN1GetGlobal", "App Path"},
    {"GLN1GetGlobalList", "SYSENV DETAIL"},
    {"GLN1AppendToGlobal", "Maps|NODUPES|Coast\rRivers"},
    {"GLN1AttachScriptToGlobal", "App DOC|Document Changed"},
    {"GLN1SetScriptMenuName", "a name that is longer than what a string holds in itself"},
    {"GLN1UnsetGlobal", "App DOC"},
    {"GLN1GetNthLine", "2|red\rgreen"},
    {"No such function", "a text that is longer than what a string holds in itself"},
    {"only a name"},
};

// What one failed allocation may make of a call. `usual` is the call's outcome in full health, `empty` that of the same
// function with an empty parameter, `handled` whether a handler was to run.
void expectDocumented(const Outcome& outcome, const Outcome& usual, const Outcome& empty, bool handled,
                      long handlesLeft) {
    if (outcome.code == kNullHandle) {
        // There was no result handle; the name and the parameter stay behind.
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(handlesLeft, 2);
        return;
    }
    if (outcome.code == kMemFull) {
        // Either the call ended at once and left its three handles, or only setting the result failed.
        EXPECT_FALSE(outcome.answered);
        EXPECT_TRUE(handlesLeft == 3 || handlesLeft == 0) << handlesLeft;
        return;
    }
    EXPECT_EQ(outcome.code, 0);
    EXPECT_TRUE(outcome.answered);
    EXPECT_EQ(handlesLeft, 0);
    if (outcome == usual || outcome == empty) {
        return;  // `empty`: the parameter could not be copied
    }
    if ((outcome.text == usual.text || outcome.text == empty.text) && outcome.alerts.empty()) {
        return;  // an alert that could not be shown
    }
    EXPECT_TRUE(outcome.text.empty());
    bool told = !handled;  // no handler, no report
    for (const std::string& alert : outcome.alerts) {
        told = told || alert.find("Not enough memory") != std::string::npos ||
               alert.find("Error: -1\r") != std::string::npos;  // the parameter's handle could not be made
    }
    EXPECT_TRUE(told) << "want of memory was not reported";
}

TEST_F(SweepTest, WantOfMemoryEndsACallInSuccessOrInItsDocumentedOutcome) {
    for (const auto& call : kScript) {
        SCOPED_TRACE(call.front());
        const Outcome usual = evaluate(call);  // also fills what is made once, on first use
        const Outcome empty = call.size() == 2 ? evaluate({call[0], ""}) : usual;
        ASSERT_TRUE(usual.answered);
        for (const Memory::Mode mode : {Memory::Mode::once, Memory::Mode::fromThenOn}) {
            long n = 0;
            for (failureMet_ = true; failureMet_; ++n) {
                SCOPED_TRACE("allocation " + std::to_string(n) + (mode == Memory::Mode::once ? "" : " and all later"));
                const long blocksBefore = gMemory.blocks;
                if (const Outcome outcome = evaluate(call, mode, n); !failureMet_) {
                    EXPECT_EQ(outcome, usual);
                } else if (mode == Memory::Mode::once) {
                    expectDocumented(outcome, usual, empty, quil::FindRow(call[0]) != nullptr, takeBackHandles());
                } else {
                    EXPECT_TRUE(outcome.code == 0 || outcome.code == kMemFull || outcome.code == kNullHandle)
                        << outcome.code;
                    EXPECT_LE(takeBackHandles(), outcome.code == 0 ? 0 : 3);
                }
                EXPECT_EQ(gMemory.blocks, blocksBefore) << "memory was left behind";
                const bool met = failureMet_;
                ASSERT_EQ(evaluate(call), usual) << "the next call does not work";
                failureMet_ = met;
                ASSERT_FALSE(HasFailure());
                ASSERT_LT(n, 100000);
            }
            // A call of two parameters allocates six times for its handles alone.
            EXPECT_GT(n, call.size() == 2 ? 3 : 0);
        }
    }
}

TEST_F(SweepTest, WantOfMemoryLosesNoChangeOfAGlobalInSilence) {
    const std::vector<std::vector<std::string>> changes = {{"GLN1SetGlobal", "Map|Coast"},
                                                           {"GLN1AppendToGlobal", "Map|NODUPES|Coast"}};
    for (const auto& change : changes) {
        SCOPED_TRACE(change.front());
        failureMet_ = true;
        for (long n = 0; failureMet_; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            for (int i = 0; i < 40; ++i) {  // enough for the list to be indexed
                evaluate({"GLN1SetGlobal", "global " + std::to_string(i) + "|value"});
            }
            const Outcome outcome = evaluate(change, Memory::Mode::once, n);
            const bool met = failureMet_;
            const std::u16string value = evaluate({"GLN1GetGlobal", "Map"}).text;
            // A parameter that could not be copied is an empty one, which appends an empty text without complaint.
            const bool sets = change.front() == "GLN1SetGlobal";
            const bool mayBeLost = !sets || outcome.code != 0 || !outcome.alerts.empty();
            EXPECT_TRUE(value == (sets ? u"Coast" : u"Coast\r") || (value.empty() && mayBeLost));
            EXPECT_EQ(evaluate({"GLN1GetGlobal", "global 39"}).text, u"value");
            takeBackHandles();
            failureMet_ = met;
            ASSERT_FALSE(HasFailure());
            ASSERT_LT(n, 1000);
        }
    }
}

// A message is composed and sent, a greeting and a message arrive and are read, with each allocation failing once.
TEST_F(SweepTest, WantOfMemoryInMessagesLosesThemAtMost) {
    const platform::OSType partner = quil::StringToOSType("GLN1");
    machine().state().running = {{partner, "Disk:GEOLENS"}};
    const std::string list = "LST2|0000000000000001\tTanks\tCoast\r0000000000000001\tTanks\tCoast\r";
    const auto event = [](std::initializer_list<std::pair<const char*, std::string>> parameters) {
        platform::Event made;
        made.eventClass = quil::kQuilEventClass;
        made.eventID = quil::kQuilEventID;
        for (const auto& [key, text] : parameters) {
            made.parameters.push_back({quil::StringToOSType(key), quil::StringToOSType("TEXT"), text, false});
        }
        return made;
    };
    const platform::Event greeting = event({{"MSSG", "HOLA"}, {"SIGN", "GLN1"}, {"PATH", "Disk:GEOLENS"}});
    const platform::Event arriving =
        event({{"MSSG", "TEST"}, {"SIGN", "GLN1"}, {"NAME", "caf\x8E"}, {"LST2", list.substr(5)}});
    const auto call = [](const char* name, std::string_view parameter) {
        try {
            return support::callHandler(quil::FindRow(name)->handler, parameter);
        } catch (const std::bad_alloc&) {  // the dispatcher's to catch
            return std::string("(out of memory)");
        }
    };
    bool met = true;
    for (long n = 0; met; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        callEntry(fmx::kCallShutdown);
        takeMessages();
        EXPECT_TRUE(gBuffers->empty()) << "memory was left behind";
        const long blocksBefore = gMemory.blocks;
        ASSERT_EQ(callEntry(fmx::kCallInit), fmx::kExtensionVersion);
        call("GLN1InitIAC", "");
        call("GLN1SetHandledMessages", "TEST");
        gMemory.arm(Memory::Mode::once, n);
        call("GLN1SetParameter", "MSSG|TEST");
        call("GLN1SetParameter", list);
        call("GLN1ProcessLST2ParameterForGeolens", "");
        call("GLN1SendMessageTo", "GLN1");
        std::int32_t status[2] = {-108, -108};
        status[0] = machine().deliver(greeting);
        status[1] = machine().deliver(arriving);
        const std::string name = call("GLN1GetNextMessage", "");
        const std::string listed = call("GLN1GetParameterLST2", "LAYERNAME RETURN");
        met = gMemory.disarm();
        for (const std::int32_t one : status) {
            EXPECT_TRUE(one == 0 || one == -108) << one;
        }
        if (!met) {
            EXPECT_EQ(machine().takeEffects().sent.size(), 2U);  // the message and the answer to the greeting
            EXPECT_EQ(name, "TEST");
            EXPECT_EQ(listed, "Tanks\rTanks\r");
        }
        machine().takeEffects();
        call("GLN1ClearOutgoingMessage", "");
        call("GLN1SetParameter", "MSSG|TEST");
        call("GLN1SendMessageTo", "GLN1");
        EXPECT_EQ(machine().takeEffects().sent.size(), 1U) << "the next message is not sent";
        callEntry(fmx::kCallShutdown);
        machine().takeEffects();
        EXPECT_EQ(gMemory.blocks, blocksBefore);
        ASSERT_FALSE(HasFailure());
        ASSERT_LT(n, 10000);
        ASSERT_EQ(callEntry(fmx::kCallInit), fmx::kExtensionVersion);
    }
}

TEST_F(SweepTest, AShutdownReleasesWhatScriptsCollectedAndASecondOneDoesNoHarm) {
    evaluate({"VSTA_InitFoundSet", "100"});
    evaluate({"VSTA_SetRidsLookupInfo", "1|2|3|4"});
    evaluate({"HBT_FindIDsInit", ""});
    ASSERT_FALSE(gBuffers->empty());
    for (int i = 0; i < 2; ++i) {
        callEntry(fmx::kCallShutdown);
        EXPECT_TRUE(gBuffers->empty());
    }
}

TEST_F(SweepTest, AFailedAllocationEndsTheInitialisationWithTwoFunctionsOrWithNone) {
    for (const Memory::Mode mode : {Memory::Mode::once, Memory::Mode::fromThenOn}) {
        callEntry(fmx::kCallShutdown);
        bool met = true;
        for (long n = 0; met; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            gMemory.arm(mode, n);
            const std::intptr_t result = callEntry(fmx::kCallInit);
            met = gMemory.disarm();
            const bool started = result == fmx::kExtensionVersion;
            EXPECT_TRUE(started || result == fmx::kDoNotEnable) << result;
            EXPECT_EQ(registry_.functions.size(), started ? 2U : 0U);
            EXPECT_EQ(quil::gPlugInInitialized, started ? 1 : 0);
            if (started) {
                callEntry(fmx::kCallShutdown);
            }
            EXPECT_TRUE(registry_.functions.empty());
            ASSERT_FALSE(HasFailure());
            ASSERT_LT(n, 100000);
        }
        ASSERT_EQ(callEntry(fmx::kCallInit), fmx::kExtensionVersion);
    }
}

// Each file call of a function fails once: the function ends in `whole`, or in a code or null with one alert.
TEST_F(SweepTest, AFailedFileCallEndsInTheWholeTextOrInAReportedCode) {
    constexpr platform::Status kFault = -36;
    const auto openDescriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const std::size_t buffers = gBuffers->size();
    const auto read = [buffers] {
        char** handle = quil::ReadFileIntoTerminatedFHandle("Disk:a.txt", true);
        EXPECT_TRUE(handle == nullptr || quil::FHandleText(handle) == "old");
        const std::int32_t code = handle == nullptr ? kFault : 0;
        quil::DisposeAndClearFHandle(&handle);
        EXPECT_EQ(gBuffers->size(), buffers);
        return code;
    };
    const struct {
        std::function<std::int32_t()> call;
        const char* whole;
        int leastMet;  // opening and writing; opening, asking the size and reading
    } cases[] = {{[] { return quil::WriteCStringToFile("Disk:a.txt", "new text"); }, "new text", 2},
                 {[] { return quil::AppendBufferToFile("Disk:a.txt", " and new", 8); }, "old and new", 2},
                 {read, "old", 3}};
    for (const auto& [call, whole, leastMet] : cases) {
        int met = 0;
        for (const char* operation : {"finderInfo", "open", "size", "seek", "read", "write", "create", "delete"}) {
            for (std::uint32_t after = 0; !HasFailure(); ++after) {
                SCOPED_TRACE(std::string(whole) + ": " + operation + " " + std::to_string(after));
                std::filesystem::remove(posix("a.txt"));
                putFile("a.txt", "old");
                const auto descriptors = openDescriptors();
                machine().state().faults = {{operation, kFault, 1, after}};
                const std::int32_t code = call();
                const std::vector<std::string> alerts = takeMessages();
                EXPECT_EQ(openDescriptors(), descriptors) << "a file was left open";
                if (code == 0) {
                    EXPECT_EQ(fileText("a.txt"), whole);
                    EXPECT_TRUE(alerts.empty());
                } else {
                    EXPECT_TRUE(code == 3 || code == kFault) << code;
                    EXPECT_TRUE(fileText("a.txt").starts_with(*whole == 'o' ? "old" : "")) << fileText("a.txt");
                    ASSERT_EQ(alerts.size(), 1U);
                    EXPECT_NE(alerts[0].find("\rDisk:a.txt"), std::string::npos) << alerts[0];
                }
                if (!machine().state().faults.empty()) {
                    break;
                }
                ++met;
            }
            machine().state().faults.clear();
        }
        EXPECT_GE(met, leastMet);
        EXPECT_EQ(call(), 0) << "without a fault";
    }
}

}  // namespace
