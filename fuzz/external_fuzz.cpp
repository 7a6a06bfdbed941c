// Sequences of calls on the plug-in: its functions under any name and with any parameters, idle calls, restarts and
// string requests, through the entry point and the functions that it registered, on a scripted machine over a temporary
// folder.
//
// The input is a list of steps, separated by the byte 0x1E; the first byte of a step says what it is:
//     'c' i rest   calls row i of the dispatch table (counted round) with the rest as its parameter
//     'n' rest     calls by name: name and parameters, any number of them, separated by the byte 0x1F
//     'u' rest     the same in raw UTF-16 units, two bytes each
//     'v' rest     asks for the version with such parameters
//     'i' l        idles at level l
//     's' k n      asks for string k with a buffer of n units
//     'r' v        shuts down and initialises again with host version v
//     'b' n        presses button n at the next alert
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fmx/call_record.h"
#include "fmx/host.h"
#include "frame/dispatch_table.h"
#include "frame/entry.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "util/memory.h"

namespace {

constexpr std::size_t kMaxSteps = 64;
constexpr std::size_t kMaxStringUnits = 1024;
// What a set may take here: the functions can ask for up to 4 GiB, which not every machine has.
constexpr std::size_t kMaxBlock = std::size_t{64} << 20;
constexpr short kVersionFunction = 1;
constexpr short kExternalFunction = 2;
constexpr std::string_view kNoMatch = "Function name does not match a supported function.";

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "external_fuzz: %s\n", what);
        std::abort();
    }
}

void* allocateBounded(std::size_t bytes) {
    return bytes <= kMaxBlock ? std::calloc(1, bytes) : nullptr;
}
constexpr quil::Allocator kBoundedAllocator = {allocateBounded, std::free};

class Registry : public fmx::FunctionRegistry {
  public:
    std::map<short, fmx::ExternalFunction> functions;

    fmx::errcode registerFunction(const fmx::QuadChar&, short funcId, const fmx::Text&, const fmx::Text&, short, short,
                                  std::uint32_t, fmx::ExternalFunction function) override {
        return functions.emplace(funcId, function).second ? fmx::kNoError : fmx::kDuplicateError;
    }
    fmx::errcode unregisterFunction(const fmx::QuadChar&, short funcId) override {
        return functions.erase(funcId) == 1 ? fmx::kNoError : fmx::kParameterError;
    }
};

// The process's one host: the machine, the bundle and the plug-in in it.
class Host {
  public:
    Host() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quil-fuzz-XXXXXX").string();
        require(::mkdtemp(pattern.data()) != nullptr, "no temporary folder");
        folder_ = pattern;
        platform::LinuxOptions options;
        options.volumes = {{"Disk", folder_}};
        options.application = "Disk:Host";
        options.applicationsFolder = "Disk:Applications:";
        files_ = platform::makeLinuxFiles(options);
        resources_ = platform::makeBundleResources();
        platform::ScriptedOptions scripted;
        scripted.application = options.application;
        machine_ = std::make_unique<platform::ScriptedMachine>(*files_, *resources_, scripted);
        platform::installMachine(machine_.get());
        quil::setAllocator(&kBoundedAllocator);
        std::string error;
        bundle_ = platform::openBundle(QUIL_BINARY_DIR "/QUIL.fmplugin", error);
        require(bundle_ != nullptr, error.c_str());
        resources_->useBundle(bundle_.get());
        record_.instance = bundle_.get();
        fmx::installFunctionRegistry(&registry_);
    }
    ~Host() {
        platform::installMachine(nullptr);
        std::filesystem::remove_all(folder_);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    std::intptr_t call(std::uint8_t selector, std::uint8_t parameter1 = 0, std::uint32_t parameter3 = 0,
                       std::intptr_t result = 0) {
        record_.selector = selector;
        record_.parameter1 = parameter1;
        record_.parameter3 = parameter3;
        record_.result = result;
        FMExternCallProc(&record_);
        machine_->takeEffects();
        return record_.result;
    }

    void start(std::int16_t version) {
        record_.hostVersion = version;
        const bool accepted = version >= 50 && version <= 255;
        require(call(fmx::kCallInit) == (accepted ? fmx::kExtensionVersion : fmx::kBadExtensionVersion),
                "wrong answer to the initialise call");
        require(registry_.functions.size() == (accepted ? 2 : 0), "wrong functions registered");
    }
    void stop() {
        call(fmx::kCallShutdown);
        require(registry_.functions.empty(), "functions left registered");
    }

    // Forgets what a script did to the machine.
    void reset() { machine_->state() = platform::ScriptedState(); }
    void press(std::int16_t button) { machine_->state().answers.push_back(button); }

    void evaluate(short function, const std::vector<fmx::Text>& texts) {
        const auto found = registry_.functions.find(function);
        if (found == registry_.functions.end()) {
            return;  // the plug-in is not running
        }
        fmx::DataVect parameters;
        parameters.Resize(static_cast<std::uint32_t>(texts.size()));
        for (std::uint32_t i = 0; i < parameters.Size(); ++i) {
            parameters.Mutable(i).SetAsText(texts[i], fmx::Locale());
        }
        fmx::Data result;
        const fmx::errcode code = fmx::Evaluate(found->second, function, fmx::ExprEnv(), parameters, result);
        machine_->takeEffects();
        require(code == fmx::kNoError, "a call failed towards the host");
        require(result.GetNativeType() == fmx::Data::NativeType::text, "a call set no result");
        if (function == kExternalFunction && texts.size() == 2 && !isRow(texts[0])) {
            fmx::Text noMatch;
            noMatch.AssignBytes(kNoMatch, fmx::Text::Encoding::utf8);
            require(result.GetAsText() == noMatch, "an unknown name was answered");
        }
    }

    void askString(std::uint8_t kind, std::uint32_t size) {
        // The configuration string takes 12 units whatever the size.
        std::vector<unsigned short> buffer(std::max<std::size_t>(size, 12) + 1, 0xABCD);
        call(fmx::kCallGetString, kind, size, reinterpret_cast<std::intptr_t>(buffer.data()));
        require(buffer.back() == 0xABCD, "a string was written beyond its buffer");
    }

  private:
    static bool isRow(const fmx::Text& name) {
        const auto table = quil::DispatchTable();
        return std::any_of(table.begin(), table.end(), [&name](const quil::Row* row) {
            fmx::Text candidate;
            candidate.Assign(row->name);
            return candidate == name;
        });
    }

    std::string folder_;
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    std::unique_ptr<platform::ScriptedMachine> machine_;
    std::unique_ptr<platform::Bundle> bundle_;
    Registry registry_;
    fmx::CallRecord record_;
};

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0;;) {
        const std::size_t end = text.find(separator, at);
        pieces.push_back(text.substr(at, end - at));
        if (end == std::string_view::npos) {
            return pieces;
        }
        at = end + 1;
    }
}

fmx::Text utf8(std::string_view bytes) {
    fmx::Text text;
    text.AssignBytes(bytes, fmx::Text::Encoding::utf8);
    return text;
}

fmx::Text utf16(std::string_view bytes) {
    std::u16string units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        units +=
            static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) << 8 | static_cast<unsigned char>(bytes[i + 1]));
    }
    fmx::Text text;
    text.setUnits(units);
    return text;
}

std::vector<fmx::Text> texts(std::string_view fields, fmx::Text (*convert)(std::string_view)) {
    std::vector<fmx::Text> result;
    for (const std::string_view field : split(fields, '\x1F')) {
        result.push_back(convert(field));
    }
    return result;
}

void run(Host& host, std::string_view step) {
    const auto byte = [step](std::size_t i) { return static_cast<std::uint8_t>(i < step.size() ? step[i] : 0); };
    switch (byte(0)) {
        case 'c': {
            const auto table = quil::DispatchTable();
            host.evaluate(kExternalFunction, {utf8(table[byte(1) % table.size()]->name),
                                              utf8(step.size() > 2 ? step.substr(2) : std::string_view())});
            break;
        }
        case 'n':
            host.evaluate(kExternalFunction, texts(step.substr(1), utf8));
            break;
        case 'u':
            host.evaluate(kExternalFunction, texts(step.substr(1), utf16));
            break;
        case 'v':
            host.evaluate(kVersionFunction, texts(step.substr(1), utf8));
            break;
        case 'i':
            host.call(fmx::kCallIdle, byte(1));
            break;
        case 's':
            host.askString(byte(1), 1 + byte(2) * kMaxStringUnits / 256);
            break;
        case 'r':
            host.stop();
            host.start(static_cast<std::int16_t>(byte(1) + 10));  // both bounds within reach
            break;
        case 'b':
            host.press(static_cast<std::int16_t>(byte(1) % 8));
            break;
        default:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Host host;
    host.reset();
    host.start(60);
    std::size_t count = 0;
    for (const std::string_view step : split({reinterpret_cast<const char*>(data), size}, '\x1E')) {
        if (++count > kMaxSteps) {
            break;
        }
        run(host, step);
    }
    host.stop();
    return 0;
}
