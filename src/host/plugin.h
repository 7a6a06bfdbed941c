// A plug-in as the host holds it: found in its bundle, loaded, called through its one entry point, and the functions
// that it registered.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fmx/call_record.h"
#include "fmx/fmx.h"
#include "fmx/host.h"
#include "platform/bundle.h"

namespace host {

// A failure that ends a command with status 1; its text names what was wrong and what to do.
struct HostError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a calculation function answered.
struct Answer {
    fmx::errcode code = 0;
    std::string text;  // UTF-8
};

struct RegisteredFunction {
    std::string pluginId;
    short id = 0;
    std::string name;
    std::string prototype;
    short minParams = 0;
    short maxParams = 0;
    std::uint32_t flags = 0;
    fmx::ExternalFunction function = nullptr;
};

// The host extension version that this host speaks.
inline constexpr std::int16_t kHostVersion = 60;

class Plugin : public fmx::FunctionRegistry {
  public:
    // The bundle to load when none is named: $QUIL_PLUGIN, else QUIL.fmplugin beside the program, else where an
    // installed copy keeps it relative to the program.
    static std::string defaultBundle();

    // Loads the plug-in of a bundle. A machine must be installed before. Throws HostError when the bundle is missing,
    // unreadable or damaged, naming the file.
    explicit Plugin(const std::string& bundleDirectory);
    ~Plugin() override;  // shuts down what is initialised
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const platform::Bundle& bundle() const { return *bundle_; }

    std::int32_t initialize(std::int16_t version = kHostVersion);  // the entry point's result
    void shutdown();
    void idle(std::uint8_t level);
    // Asks for a string; none when the plug-in left the buffer untouched. `size` in UTF-16 units, 1 to 1,000,000.
    std::optional<std::u16string> string(std::uint8_t kind, std::uint32_t size);

    const std::vector<RegisteredFunction>& functions() const { return functions_; }
    // Evaluates a registered function with texts (UTF-8; bytes that are not become U+FFFD). A function that is not
    // registered, or a number of parameters outside its limits when `checkCount`, throws HostError.
    Answer evaluate(std::string_view function, const std::vector<std::string_view>& parameters,
                    bool checkCount = false);
    // QUIL_External(name; parameter).
    Answer external(std::string_view name, std::string_view parameter);
    // The same when nobody reads the answer; its code.
    fmx::errcode tell(std::string_view name, std::string_view parameter);

    fmx::errcode registerFunction(const fmx::QuadChar& pluginId, short funcId, const fmx::Text& name,
                                  const fmx::Text& prototype, short minParams, short maxParams, std::uint32_t flags,
                                  fmx::ExternalFunction function) override;
    fmx::errcode unregisterFunction(const fmx::QuadChar& pluginId, short funcId) override;

  private:
    const RegisteredFunction& functionNamed(std::string_view name) const;
    const RegisteredFunction& externalFunction();
    Answer run(const RegisteredFunction& function, std::span<const std::string_view> parameters);
    fmx::errcode run(const RegisteredFunction& function, std::span<const std::string_view> parameters,
                     fmx::Data& result);
    std::intptr_t call(std::uint8_t selector, std::uint8_t parameter1 = 0, std::uint32_t parameter3 = 0,
                       std::intptr_t result = 0);

    std::unique_ptr<platform::Bundle> bundle_;
    platform::BundleRef previousBundle_ = nullptr;
    void* library_ = nullptr;
    fmx::EntryPoint entry_ = nullptr;
    fmx::CallRecord record_;
    bool initialized_ = false;
    std::vector<RegisteredFunction> functions_;
    fmx::DataVect texts_;  // the last call's parameters, kept so that the next call finds their memory
    static constexpr std::size_t kUnknown = ~std::size_t{0};
    std::size_t external_ = kUnknown;  // where QUIL_External was found
    bool textsInUse_ = false;          // a call made inside another brings its own
    std::string lastName_;             // what stands in texts_[0], if anything
    fmx::FunctionRegistry* previousRegistry_ = nullptr;
};

// Texts between the host's UTF-16 and the command line's UTF-8.
std::string toUtf8(const fmx::Text& text);
std::string toUtf8(std::u16string_view units);
fmx::Text toText(std::string_view utf8);

// One script function as the bundle's function list (Contents/Resources/Functions.json, made from the dispatch table)
// tells it.
struct FunctionHelp {
    std::string name;
    std::string module;
    std::string summary;
    std::string parameter;
    std::string result;
    std::string errors;
    std::string exampleParameter;
    std::optional<std::string> exampleResult;
};

// The list of a bundle, in dispatch order. Throws HostError when it is missing or damaged.
std::vector<FunctionHelp> readFunctionList(const std::string& bundleDirectory);

}  // namespace host
