#include "host/plugin.h"

#include <dlfcn.h>
#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <numeric>
#include <utility>

#include "platform/machine.h"

namespace host {

namespace {

constexpr std::uint32_t kMaxStringUnits = 1'000'000;
constexpr std::size_t kMinStringBuffer = 256;  // the configuration string is written without regard to the size

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

bool isDirectory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string programFolder() {
    std::array<char, 4096> path{};
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    const std::string_view program(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = program.rfind('/');
    return slash == std::string_view::npos ? "." : std::string(program.substr(0, slash));
}

std::string withoutClosingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// <bundle>/Contents/Linux/<stem>.so
std::string libraryPath(const std::string& bundle) {
    // "." and the like name their bundle only when they are resolved.
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(bundle.c_str(), nullptr), &std::free);
    std::string name = resolved ? resolved.get() : bundle;
    name.erase(0, name.rfind('/') + 1);
    return bundle + "/Contents/Linux/" + name.substr(0, name.rfind('.')) + ".so";
}

// Throws when the bundle's folder or the library in it is missing, of the wrong kind or unreadable.
void checkBundle(const std::string& bundle, const std::string& library) {
    struct stat info {};
    if (::stat(bundle.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw HostError("the plug-in bundle " + quoted(bundle) +
                            " does not exist; name a bundle with --plugin or in the environment variable QUIL_PLUGIN");
        }
        throw HostError("cannot look at the plug-in bundle " + quoted(bundle) + ": " + std::strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) {
        throw HostError(quoted(bundle) + " is not a plug-in bundle, which is a folder; name a bundle with --plugin");
    }
    if (::access(bundle.c_str(), R_OK | X_OK) != 0) {
        throw HostError("cannot read the plug-in bundle " + quoted(bundle) + ": " + std::strerror(errno) +
                        "; give yourself read permission for it");
    }
    if (!isDirectory(bundle + "/Contents")) {
        throw HostError(quoted(bundle) +
                        " is not a plug-in bundle: it has no folder Contents; name a bundle with --plugin");
    }
    if (::stat(library.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw HostError("the plug-in bundle has no library " + quoted(library) +
                            "; install the bundle again or name another with --plugin");
        }
        throw HostError("cannot look at the plug-in library " + quoted(library) + ": " + std::strerror(errno));
    }
    if (::access(library.c_str(), R_OK) != 0) {
        throw HostError("cannot read the plug-in library " + quoted(library) + ": " + std::strerror(errno) +
                        "; give yourself read permission for it");
    }
}

// Whether a library lacks a part that its own table says it has. The loader would map the missing part, and die of it.
bool isCutShort(const std::string& library) {
    std::ifstream file(library, std::ios::binary | std::ios::ate);
    const std::streamoff end = file.tellg();
    const auto size = static_cast<std::uint64_t>(end > 0 ? end : 0);
    Elf64_Ehdr header{};
    file.seekg(0);
    if (!file.read(reinterpret_cast<char*>(&header), sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr)) {
        return false;  // whatever it is, the loader says so
    }
    // The table of sections stands at the end of the file.
    const std::uint64_t sections = static_cast<std::uint64_t>(header.e_shnum) * header.e_shentsize;
    if (header.e_shoff > size || sections > size - header.e_shoff) {
        return true;
    }
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    for (std::size_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr part{};
        if (!file.read(reinterpret_cast<char*>(&part), sizeof part) ||
            (part.p_type == PT_LOAD && (part.p_offset > size || part.p_filesz > size - part.p_offset))) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string toUtf8(const fmx::Text& text) {
    const std::uint32_t units = text.GetSize();
    if (units == 0) {
        return {};
    }
    const std::u16string_view content = text.units();
    const unsigned bits =
        std::accumulate(content.begin(), content.end(), 0U, [](unsigned a, char16_t unit) { return a | unit; });
    if (bits < 0x80) {
        return {content.begin(), content.end()};
    }
    // A text may hold NULs, so its end is where the filling begins again, a byte that UTF-8 never has.
    constexpr char kFilling = '\xFF';
    std::string bytes(static_cast<std::size_t>(units) * 3 + 1, kFilling);
    fmx::_fmxcpt::Check(
        text.GetBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 0, units, fmx::Text::Encoding::utf8));
    bytes.resize(std::min(bytes.find(kFilling), bytes.size()) - 1);  // the terminator goes too
    return bytes;
}

std::string toUtf8(std::u16string_view units) {
    fmx::Text text;
    text.setUnits(units);
    return toUtf8(text);
}

fmx::Text toText(std::string_view utf8) {
    fmx::Text text;
    text.AssignBytes(utf8, fmx::Text::Encoding::utf8);
    return text;
}

std::string Plugin::defaultBundle() {
    if (const char* named = std::getenv("QUIL_PLUGIN"); named != nullptr && *named != '\0') {
        return named;
    }
    const std::string folder = programFolder();
    const std::string beside = folder + "/QUIL.fmplugin";
    const std::string installed = folder + "/" QUIL_INSTALLED_BUNDLE;
    return !isDirectory(beside) && isDirectory(installed) ? installed : beside;
}

Plugin::Plugin(const std::string& bundleDirectory) {
    const std::string directory = withoutClosingSlash(bundleDirectory);
    const std::string library = libraryPath(directory);
    checkBundle(directory, library);
    if (isCutShort(library)) {
        throw HostError("the plug-in library " + quoted(library) +
                        " cannot be loaded: the file is cut short; install the bundle again");
    }
    std::string error;
    bundle_ = platform::openBundle(directory, error);
    if (!bundle_) {
        throw HostError(error);
    }
    // dlopen looks for a name without a slash in the system's folders; ours always has one.
    library_ = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) {
        const char* reason = ::dlerror();
        throw HostError("the plug-in library " + quoted(library) + " cannot be loaded: " +
                        (reason == nullptr ? "no reason given" : reason) + "; install the bundle again");
    }
    entry_ = reinterpret_cast<fmx::EntryPoint>(::dlsym(library_, fmx::kEntryPointName));
    if (entry_ == nullptr) {
        ::dlclose(library_);
        throw HostError("the library " + quoted(library) + " is not a plug-in: it has no entry point " +
                        fmx::kEntryPointName);
    }
    record_.instance = bundle_.get();
    previousBundle_ = platform::machine().resources().useBundle(bundle_.get());
    previousRegistry_ = fmx::installFunctionRegistry(this);
}

Plugin::~Plugin() {
    if (initialized_) {
        shutdown();
    }
    fmx::installFunctionRegistry(previousRegistry_);
    platform::machine().resources().useBundle(previousBundle_);
    ::dlclose(library_);
}

std::intptr_t Plugin::call(std::uint8_t selector, std::uint8_t parameter1, std::uint32_t parameter3,
                           std::intptr_t result) {
    record_.selector = selector;
    record_.parameter1 = parameter1;
    record_.parameter3 = parameter3;
    record_.result = result;
    entry_(&record_);
    return record_.result;
}

std::int32_t Plugin::initialize(std::int16_t version) {
    record_.hostVersion = version;
    const auto result = static_cast<std::int32_t>(call(fmx::kCallInit));
    if (result != fmx::kBadExtensionVersion) {  // a refused version leaves the plug-in as it was
        initialized_ = result > 0;
    }
    return result;
}

void Plugin::shutdown() {
    initialized_ = false;
    call(fmx::kCallShutdown);
}

void Plugin::idle(std::uint8_t level) {
    call(fmx::kCallIdle, level);
}

std::optional<std::u16string> Plugin::string(std::uint8_t kind, std::uint32_t size) {
    if (size < 1 || size > kMaxStringUnits) {
        throw HostError("a string's size must be 1 to " + std::to_string(kMaxStringUnits) + ", not " +
                        std::to_string(size));
    }
    // U+FFFF is no character: a buffer that still holds nothing else was not written.
    constexpr char16_t kUntouched = 0xFFFF;
    std::u16string buffer(std::max<std::size_t>(size, kMinStringBuffer), kUntouched);
    call(fmx::kCallGetString, kind, size, reinterpret_cast<std::intptr_t>(buffer.data()));
    record_.result = 0;
    if (buffer.find_first_not_of(kUntouched) == std::u16string::npos) {
        return std::nullopt;
    }
    buffer.resize(std::min(buffer.find(u'\0'), buffer.size()));
    return buffer;
}

const RegisteredFunction& Plugin::functionNamed(std::string_view function) const {
    const auto found = std::find_if(functions_.begin(), functions_.end(),
                                    [function](const RegisteredFunction& item) { return item.name == function; });
    if (found == functions_.end()) {
        if (!functions_.empty() && !bundle_->tables.contains("Localizable")) {
            std::string reason =
                "\"" + bundle_->directory + "/Contents/Resources/English.lproj/Localizable.strings\" is missing\n";
            if (!bundle_->problems.empty()) {
                reason = bundle_->problems;
            }
            reason.pop_back();
            std::replace(reason.begin(), reason.end(), '\n', ';');
            throw HostError("the plug-in bundle has no strings, so its functions have no names: " + reason +
                            "; install the bundle again");
        }
        throw HostError("the plug-in has not registered a function " + quoted(function) +
                        (initialized_ ? "" : "; it is not initialised"));
    }
    return *found;
}

const RegisteredFunction& Plugin::externalFunction() {
    if (external_ == kUnknown) {
        external_ = static_cast<std::size_t>(&functionNamed("QUIL_External") - functions_.data());
    }
    return functions_[external_];
}

Answer Plugin::external(std::string_view name, std::string_view parameter) {
    return run(externalFunction(), std::array<std::string_view, 2>{name, parameter});
}

fmx::errcode Plugin::tell(std::string_view name, std::string_view parameter) {
    fmx::Data result;
    return run(externalFunction(), std::array<std::string_view, 2>{name, parameter}, result);
}

Answer Plugin::evaluate(std::string_view name, const std::vector<std::string_view>& parameters, bool checkCount) {
    const RegisteredFunction& function = functionNamed(name);
    const auto count = static_cast<std::ptrdiff_t>(parameters.size());
    if (checkCount && (count < function.minParams || (function.maxParams >= 0 && count > function.maxParams))) {
        throw HostError(function.name + " takes " + std::to_string(function.minParams) + " to " +
                        (function.maxParams < 0 ? "any number of" : std::to_string(function.maxParams)) +
                        " parameters, not " + std::to_string(count));
    }
    return run(function, parameters);
}

Answer Plugin::run(const RegisteredFunction& function, std::span<const std::string_view> parameters) {
    fmx::Data result;
    const fmx::errcode code = run(function, parameters, result);
    return {.code = code, .text = toUtf8(result.GetAsText())};
}

fmx::errcode Plugin::run(const RegisteredFunction& function, std::span<const std::string_view> parameters,
                         fmx::Data& result) {
    constexpr std::size_t kKept = 4096;  // longer texts do not stay behind
    struct Use {
        bool& flag;
        const bool mine = !std::exchange(flag, true);
        ~Use() { flag = mine ? false : flag; }
    } use{textsInUse_};
    fmx::DataVect own;
    fmx::DataVect& texts = use.mine ? texts_ : own;
    texts.Resize(static_cast<std::uint32_t>(parameters.size()));
    bool large = false;
    // The name is most often that of the last call.
    const bool sameName = use.mine && !parameters.empty() && !lastName_.empty() && parameters[0] == lastName_;
    if (use.mine && !sameName) {
        lastName_.clear();
    }
    for (std::uint32_t i = sameName ? 1 : 0; i < texts.Size(); ++i) {
        texts.Mutable(i).AssignHostText(parameters[i], fmx::Locale(fmx::Locale::Type::system));
        large = large || parameters[i].size() > kKept;
    }
    if (use.mine && !sameName && !parameters.empty() && parameters[0].size() <= kKept) {
        lastName_ = parameters[0];
    }
    const short id = function.id;  // the call may change what is registered
    const fmx::errcode code = fmx::Evaluate(function.function, id, fmx::ExprEnv(), texts, result);
    if (large) {
        texts = fmx::DataVect();
        if (use.mine) {
            lastName_.clear();
        }
    }
    return code;
}

fmx::errcode Plugin::registerFunction(const fmx::QuadChar& pluginId, short funcId, const fmx::Text& name,
                                      const fmx::Text& prototype, short minParams, short maxParams, std::uint32_t flags,
                                      fmx::ExternalFunction function) {
    const bool taken = std::any_of(functions_.begin(), functions_.end(), [&](const RegisteredFunction& item) {
        return item.id == funcId && item.pluginId == pluginId.text();
    });
    if (taken) {
        return fmx::kDuplicateError;
    }
    try {
        functions_.push_back({std::string(pluginId.text()), funcId, toUtf8(name), toUtf8(prototype), minParams,
                              maxParams, flags, function});
    } catch (const std::bad_alloc&) {
        return fmx::kMemoryError;
    }
    return fmx::kNoError;
}

fmx::errcode Plugin::unregisterFunction(const fmx::QuadChar& pluginId, short funcId) {
    external_ = kUnknown;
    const auto removed = std::erase_if(functions_, [&](const RegisteredFunction& item) {
        return item.id == funcId && item.pluginId == pluginId.text();
    });
    return removed == 0 ? fmx::kParameterError : fmx::kNoError;
}

}  // namespace host
