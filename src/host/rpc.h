// `quil rpc`: the plug-in under automation. Requests are newline-delimited JSON-RPC 2.0, one object (or batch) a line;
// the machine around the plug-in is scripted, and every answer tells what the plug-in did to it. docs/automation.md
// describes the methods for those who write requests.
#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "host/plugin.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"

namespace host {

struct RpcOptions {
    platform::LinuxOptions machine;
    std::string bundle;  // empty: Plugin::defaultBundle()
};

// Longest line that is served, in bytes without its line end.
inline constexpr std::size_t kMaxRpcLine = 64U << 20;

// Answers the requests from one file descriptor on another until the input ends. Returns the exit status: 0 at the end
// of input, 1 when input or output fail. Throws HostError when the plug-in cannot be loaded.
int runRpc(const RpcOptions& options, int inputFd, int outputFd);

// One session: a scripted machine, installed while the session lives, and the plug-in on it.
class RpcSession {
  public:
    explicit RpcSession(const RpcOptions& options);  // throws HostError
    ~RpcSession();
    RpcSession(const RpcSession&) = delete;
    RpcSession& operator=(const RpcSession&) = delete;

    // Serves one line, given without its line feed, and appends the answer with a line feed to `output`; nothing for
    // notifications and blank lines.
    void serve(std::string_view line, std::string& output);
    // The answer to a line longer than kMaxRpcLine, whose content nobody kept.
    void refuseLongLine(std::string& output);

    platform::ScriptedMachine& machine() { return *machine_; }

  private:
    using Json = nlohmann::json;
    // A method: appends the fields of its result, or throws RpcError or HostError. `params` is an object.
    using Method = void (RpcSession::*)(const Json& params, std::string& output);
    struct MethodRow {
        std::string_view name;
        Method method;
    };
    static const MethodRow kMethods[];

    // Appends the answer of one request, without a line end; nothing for a notification. Says whether there was one.
    bool serveRequest(const Json& request, std::string& output);
    void serveMethod(Method method, const Json& request, std::string_view id, std::string& output);

    void initialize(const Json& params, std::string& output);
    void shutdown(const Json& params, std::string& output);
    void idle(const Json& params, std::string& output);
    void string(const Json& params, std::string& output);
    void version(const Json& params, std::string& output);
    void call(const Json& params, std::string& output);
    void external(const Json& params, std::string& output);
    void functions(const Json& params, std::string& output);
    void deliver(const Json& params, std::string& output);
    void setMachine(const Json& params, std::string& output);

    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    std::unique_ptr<platform::ScriptedMachine> machine_;
    platform::OSType signature_;
    struct Installed;  // puts the machine of before back
    std::unique_ptr<Installed> installed_;
    std::unique_ptr<Plugin> plugin_;
};

}  // namespace host
