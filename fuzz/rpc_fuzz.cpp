// Requests to `quil rpc`: any lines, to one session after the other, each with a plug-in in its own right. Every answer
// must be one line of JSON that is an answer.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "host/rpc.h"

namespace {

constexpr std::size_t kMaxLines = 64;

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "rpc_fuzz: %s\n", what);
        std::abort();
    }
}

bool isAnswer(const nlohmann::json& answer) {
    return answer.is_object() && answer.value("jsonrpc", "") == "2.0" && answer.contains("id") &&
           answer.contains("result") != answer.contains("error");
}

void check(const std::string& output) {
    if (output.empty()) {
        return;
    }
    require(output.find('\n') == output.size() - 1, "an answer is not one line");
    const auto answer = nlohmann::json::parse(output, nullptr, false);
    require(!answer.is_discarded(), "an answer is not JSON");
    if (answer.is_array()) {
        require(!answer.empty(), "an empty batch of answers");
        for (const auto& one : answer) {
            require(isAnswer(one), "an element of a batch is not an answer");
        }
    } else {
        require(isAnswer(answer), "a line is not an answer");
    }
}

// The folder that is the volume, for the process's life.
class Folder {
  public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quil-fuzz-XXXXXX").string();
        require(::mkdtemp(pattern.data()) != nullptr, "no temporary folder");
        path_ = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    static host::RpcSession session([] {
        host::RpcOptions options;
        options.machine.volumes = {{"Disk", folder.path()}};
        options.machine.application = "Disk:Host";
        options.machine.applicationsFolder = "Disk:Applications:";
        options.bundle = QUIL_BINARY_DIR "/QUIL.fmplugin";
        return options;
    }());
    session.machine().state() = platform::ScriptedState();
    session.machine().state().ticks = 0;  // waits take no time
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string output;
    for (std::size_t i = 0; i < kMaxLines && !input.empty(); ++i) {
        const std::size_t end = std::min(input.find('\n'), input.size());
        output.clear();
        session.serve(input.substr(0, end), output);
        check(output);
        input.remove_prefix(std::min(end + 1, input.size()));
        if (!session.machine().state().ticks) {
            session.machine().state().ticks = 0;
        }
    }
    output.clear();
    session.serve(R"({"jsonrpc":"2.0","id":1,"method":"shutdown"})", output);
    check(output);
    return 0;
}
