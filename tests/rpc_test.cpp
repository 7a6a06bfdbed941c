// `quil rpc`: requests in, answers out, in this process and through the built program.
#include "host/rpc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/rpc_json.h"
#include "support/process.h"

namespace {

using nlohmann::json;
using platform::operator""_4;

constexpr char kBundle[] = QUIL_BINARY_DIR "/QUIL.fmplugin";
constexpr char kScenario[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";

std::string requestText(std::string_view method, const json& params = json::object(), const json& id = 1) {
    return json{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}.dump();
}

json eventWith(const char* parameters) {
    return {{"class", "QUIL"}, {"id", "AEVT"}, {"parameters", json::parse(parameters)}};
}

class RpcTest : public testing::Test {
  protected:
    host::RpcOptions options() const {
        host::RpcOptions options{{}, kBundle};
        options.machine.volumes = {{"Disk", folder.path().string()}};
        options.machine.application = "Disk:Host";
        return options;
    }
    std::string serve(std::string_view line) {
        std::string output;
        session.serve(line, output);
        EXPECT_TRUE(output.empty() || output.find('\n') == output.size() - 1) << "an answer is one line: " << output;
        return output;
    }
    json answer(std::string_view line) {
        const std::string output = serve(line);
        json parsed = json::parse(output, nullptr, false);
        EXPECT_FALSE(parsed.is_discarded()) << "no JSON: " << output << " for " << line.substr(0, 200);
        return parsed;
    }
    json result(std::string_view method, const json& params = json::object()) {
        const json whole = answer(requestText(method, params));
        EXPECT_TRUE(whole.contains("result")) << whole << " for " << method << params;
        return whole.value("result", json());
    }
    json call(std::string_view name, std::string_view parameter) {
        return result("call", {{"name", name}, {"parameter", parameter}});
    }

    // Feeds `pieces` to runRpc, each to be read on its own as far as it fits, and returns the answers.
    std::vector<json> converse(const std::vector<std::string_view>& pieces) {
        int in[2];
        EXPECT_EQ(::pipe2(in, O_DIRECT), 0);
        std::thread writer([&pieces, fd = in[1]] {
            for (std::string_view piece : pieces) {
                ssize_t count = 0;
                while (!piece.empty() && (count = ::write(fd, piece.data(), piece.size())) >= 0) {
                    piece.remove_prefix(static_cast<std::size_t>(count));
                }
            }
            ::close(fd);
        });
        const int out = ::memfd_create("answers", 0);
        EXPECT_EQ(host::runRpc(options(), in[0], out), 0);
        writer.join();
        std::istringstream lines(support::readFile("/proc/self/fd/" + std::to_string(out)));
        ::close(in[0]);
        ::close(out);
        std::vector<json> answers;
        for (std::string line; std::getline(lines, line);) {
            answers.push_back(json::parse(line));
        }
        return answers;
    }

    support::TemporaryFolder folder;
    host::RpcSession session{options()};
};

TEST_F(RpcTest, serves_the_life_of_a_plug_in) {
    EXPECT_EQ(result("string", {{"kind", 131}}), (json{{"text", "QUIL1nnYYnn"}})) << "in any state";
    EXPECT_EQ(result("functions")["registered"], json::array());
    const std::pair<const char*, json> early[] = {
        {"call", {{"name", "x"}}}, {"external", {{"parameters", json::array()}}}, {"version", json::object()}};
    for (const auto& [method, params] : early) {
        const json error = answer(requestText(method, params))["error"];
        EXPECT_EQ(error["code"], -32000);
        EXPECT_NE(error["message"].get<std::string>().find("not registered"), std::string::npos) << error;
    }
    EXPECT_EQ(result("initialize"), (json{{"code", 52}}));
    const json functions = result("functions");
    ASSERT_EQ(functions["registered"].size(), 2U);
    json external = functions["registered"][1];
    EXPECT_EQ(external["prototype"].get<std::string>().find("QUIL_External("), 0U);
    external.erase("prototype");
    EXPECT_EQ(external, json::parse(R"({"id": 2, "name": "QUIL_External", "min": 2, "max": 2, "flags": 65281})"));
    EXPECT_EQ(functions["script"].size(), host::readFunctionList(kBundle).size());
    EXPECT_EQ(result("idle", {{"level", 255}}), json::object());
    EXPECT_EQ(call("VSTACalculatePlumeDistance", kScenario), (json{{"code", 0}, {"text", "1.9"}}));
    EXPECT_EQ(result("external", {{"parameters", {"VSTACalculatePlumeDistance", kScenario}}})["text"], "1.9");
    EXPECT_EQ(result("call", {{"name", "nobody"}})["text"], "Function name does not match a supported function.");
    EXPECT_EQ(result("external", {{"parameters", {"a"}}})["text"].get<std::string>().find("Usage: "), 0U);
    EXPECT_NE(result("version", {{"parameters", {"long"}}})["text"], "");
    EXPECT_EQ(result("string", {{"kind", 130}}), (json{{"text", nullptr}})) << "left untouched";
    EXPECT_EQ(result("string", {{"size", 2}})["text"], "") << "a name that does not fit is not copied";
    EXPECT_EQ(result("shutdown"), json::object());
    EXPECT_EQ(answer(requestText("call", {{"name", "x"}}))["error"]["code"], -32000);
    for (const auto& [version, code] : std::map<int, int>{{49, -1}, {50, 52}, {255, 52}, {256, -1}, {-32768, -1}}) {
        EXPECT_EQ(result("initialize", {{"version", version}}), (json{{"code", code}})) << version;
        result("shutdown");
    }
}

TEST_F(RpcTest, carries_what_the_plug_in_did_in_the_answer) {
    result("initialize");
    result("machine", {{"answers", {1}}});
    json alerts = call("VSTACalculatePlumeDistance", "")["alerts"];
    ASSERT_EQ(alerts.size(), 1U);
    EXPECT_NE(alerts[0]["message"], "");
    alerts[0].erase("message");
    EXPECT_EQ(alerts[0], json::parse(R"({"kind": "M", "heading": "", "buttons": ["OK"], "default": 1, "cancel": 1,
        "pressed": 1})"));
    EXPECT_FALSE(call("VSTACalculatePlumeDistance", kScenario).contains("alerts")) << "told once";
    EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"call","params":{"name":"VSTACalculatePlumeDistance"}})"), "");
    EXPECT_FALSE(result("idle").contains("alerts")) << "what a notification did is not the next request's";
}

TEST_F(RpcTest, writes_every_effect) {
    result("machine", json::parse(R"({"running": [{"signature": "GLN1", "path": "Disk:GEOLENS"}],
        "windows": [{"title": "Mäin"}], "launches": {"Disk:SIROC": "SRC5"}})"));
    support::writeFile(folder.path() / "SIROC", "x");
    // A handler that does everything a plug-in can do.
    const auto handler = [](const platform::Event&, platform::Event&, long) -> platform::Status {
        platform::Machine& m = platform::machine();
        m.dialogs().beep();
        m.dialogs().beep();
        m.events().send({"misc"_4, "dosc"_4, "FMP7"_4, {{"----"_4, "TEXT"_4, "Caf\x8E"}}});
        m.events().send({"QUIL"_4, "AEVT"_4, "GLN1"_4, {{"MSSG"_4, "TEXT"_4, "HOLA"}, {"LAT "_4, "TEXT"_4, "\x8E"}}});
        platform::FSSpec spec;
        m.files().makeSpec(0, 0, "Disk:SIROC", spec);
        platform::ProcessSerialNumber process = 0;
        m.processes().launch(spec, 0, process);
        m.processes().setFront(process);
        platform::Choice choice;
        platform::Status error = 0;
        m.dialogs().choose({platform::Chooser::Kind::write, "Save As", "", "a\"b", 0, 0}, choice, error);
        m.windows().drawProgress(m.windows().front(), {{}, "Collecting", 0.1, true});
        m.windows().drawProgress(m.windows().front(), {{}, "Collecting", std::nullopt, true});
        return -5;
    };
    session.machine().events().installHandler("QUIL"_4, "AEVT"_4, handler, 0);
    const json expected = json::parse(R"({"status": -5, "beeps": 2, "scripts": ["Café"],
        "sent": [{"to": "GLN1", "class": "QUIL", "id": "AEVT", "parameters": [
            {"key": "MSSG", "text": "HOLA", "bytes": "SE9MQQ=="}, {"key": "LAT ", "bytes": "jg=="}]}],
        "launched": ["Disk:SIROC"], "fronted": ["SRC5"],
        "choosers": [{"kind": "write", "title": "Save As", "proposed": "a\"b"}],
        "drawn": [{"window": "Mäin", "text": "Collecting", "fraction": 0.1},
                  {"window": "Mäin", "text": "Collecting", "fraction": null}]})");
    EXPECT_EQ(result("deliver", {{"class", "QUIL"}, {"id", "AEVT"}}), expected);
}

TEST_F(RpcTest, delivers_events_with_their_parameters) {
    const json event = eventWith(R"([{"key": "MSSG", "text": "é"}, {"key": "LAT", "bytes": "aGk=", "type": "TEXT"}])");
    EXPECT_EQ(result("deliver", event), (json{{"status", -1708}}));
    static std::string seen;
    const auto handler = [](const platform::Event& e, platform::Event&, long) -> platform::Status {
        for (const platform::EventParameter& parameter : e.parameters) {
            seen += parameter.data + (parameter.type == "TEXT"_4 ? ";" : "?");
        }
        return e.target == "FMP7"_4 && e.parameters.at(1).keyword == "LAT "_4 ? 0 : -1;
    };
    session.machine().events().installHandler("QUIL"_4, "AEVT"_4, handler, 0);
    EXPECT_EQ(result("deliver", event), (json{{"status", 0}}));
    EXPECT_EQ(seen, "é;hi;");
    for (const char* bytes : {"a", "abc", "a===", "ab=c", "====", "ab c", "aGk=\\n", "aGk", "é="}) {
        const json bad = eventWith((R"([{"key": "A", "bytes": ")" + std::string(bytes) + "\"}]").c_str());
        EXPECT_EQ(answer(requestText("deliver", bad))["error"]["code"], -32602) << bytes << " is no base64";
    }
}

TEST_F(RpcTest, sets_every_part_of_the_machine) {
    result("machine", json::parse(R"({"ticks": 4294967295, "seconds": -1, "doubleClickTicks": 7,
        "mouse": {"v": -10, "h": 20},
        "windows": [{"title": "Main"}, {"title": "Wide", "kind": 20000, "width": 9, "height": 8}],
        "menus": [{"id": 1, "title": "Scripts", "items": [{"text": "GEOLENS", "key": "1"}, {"text": "*", "key": ""}]}],
        "running": [{"signature": "GLN1", "path": "Disk:Apps:GEOLENS"}],
        "launches": {"Disk:A": "SRC", "Disk:B": {"signature": "VCHM", "after": 3}},
        "answers": [2, 1], "choices": [{"folder": "Disk:Docs:", "name": "a.txt"}, null],
        "faults": [{"operation": "delete", "status": -47, "times": 3, "after": 2},
                   {"operation": "read", "status": 1}]})"));
    platform::ScriptedMachine& machine = session.machine();
    const platform::ScriptedState& state = machine.state();
    EXPECT_EQ(state.ticks, 4294967295U);
    EXPECT_EQ(state.seconds, -1);
    EXPECT_EQ(machine.input().mouse(), (platform::Point{-10, 20}));
    platform::Windows& windows = machine.windows();
    EXPECT_EQ(windows.portRect(windows.front()), (platform::Rect{0, 0, 600, 800}));
    EXPECT_EQ(windows.kind(windows.front()), 8);
    EXPECT_EQ(windows.portRect(windows.next(windows.front())), (platform::Rect{0, 0, 8, 9}));
    EXPECT_EQ(machine.menus().itemCommandKey(1, 1), '1');
    EXPECT_EQ(machine.menus().itemCount(1), 2);
    EXPECT_EQ(state.launches.at("Disk:A").signature, "SRC "_4);
    EXPECT_EQ(state.launches.at("Disk:B").afterSeconds, 3U);
    EXPECT_EQ(state.answers, (std::deque<std::int16_t>{2, 1}));
    EXPECT_EQ(state.choices.size(), 2U);
    EXPECT_EQ(state.faults.at(0).after, 2U);
    EXPECT_EQ(state.faults.at(1).times, 1U);
    result("machine", {{"ticks", nullptr}, {"seconds", nullptr}});
    EXPECT_FALSE(state.ticks || state.seconds) << "the real clock again";
    EXPECT_EQ(machine.input().doubleClickTicks(), 7U) << "what is left out stays";
    EXPECT_EQ(state.running.size(), 1U);
}

TEST_F(RpcTest, refuses_a_wrong_machine_and_changes_nothing) {
    result("machine", {{"ticks", 5}});
    const std::pair<const char*, const char*> cases[] = {
        {R"({"ticks": 6, "tocks": 1})", "tocks"},
        {R"({"ticks": 4294967296})", "ticks"},
        {R"({"ticks": 1.5})", "ticks"},
        {R"({"ticks": "6"})", "ticks"},
        {R"({"seconds": 9223372036854775807})", "seconds"},
        {R"({"doubleClickTicks": null})", "doubleClickTicks"},
        {R"({"mouse": {"v": 1}})", "mouse.h"},
        {R"({"mouse": {"v": 32768, "h": 0}})", "mouse.v"},
        {R"({"windows": {}})", "windows"},
        {R"({"windows": [{"title": "a"}, {"kind": 8}]})", "windows[1].title"},
        {R"({"windows": [{"title": "a", "width": -1}]})", "windows[0].width"},
        {R"({"menus": [{"id": 1, "title": "a", "items": [{"text": "b", "key": "12"}]}]})", "menus[0].items[0].key"},
        {R"({"menus": [{"id": 1, "title": "a"}, {"id": 1, "title": "b"}]})", "menus[1].id"},
        {R"({"running": [{"signature": "日本", "path": "Disk:A"}]})", "running[0].signature"},
        {R"({"running": [{"signature": "GLN1", "path": ":A"}]})", "running[0].path"},
        {R"({"launches": {"Disk:A": {"signature": "A", "after": -1}}})", "launches.Disk:A.after"},
        {R"({"answers": [1, 0]})", "answers[1]"},
        {R"({"choices": [{"folder": "Disk:", "name": "a:b"}]})", "choices[0].name"},
        {R"({"faults": [{"operation": "rename", "status": -1}]})", "faults[0].operation"},
        {R"({"faults": [{"operation": "read", "status": 0}]})", "faults[0].status"},
        {R"([1])", "params"}};
    for (const auto& [params, field] : cases) {
        const json whole = answer(requestText("machine", json::parse(params)));
        ASSERT_TRUE(whole.contains("error")) << params;
        EXPECT_EQ(whole["error"]["code"], -32602) << params;
        EXPECT_EQ(whole["error"]["message"].get<std::string>().find(std::string(field) + " "), 0U) << whole;
        EXPECT_EQ(result("machine"), (json{{"ticks", 5}})) << params << " changed something";
    }
    EXPECT_EQ(session.machine().windows().front(), nullptr);
}

TEST_F(RpcTest, answers_bad_requests_with_the_standard_codes) {
    result("initialize");
    const std::string deep(60'000, '[');
    const std::string deepEnd(60'000, ']');
    const std::tuple<int, json, std::vector<std::string>> groups[] = {
        {-32700,
         nullptr,
         {"{", R"({"jsonrpc":"2.0","id":1,"method":"idle"} x)", "\"\xED\xA0\x80\"", R"("\ud800")", "\"a\nb\"",
          std::string("\0", 1), "1e999", deep}},
        {-32600,
         nullptr,
         {deep + deepEnd, "1", "[]", "{}", R"({"jsonrpc":"2.0","id":[1],"method":"idle"})",
          R"({"jsonrpc":"2.0","id":true,"method":"idle"})"}},
        {-32600,
         3,
         {R"({"id":3,"method":"idle"})", R"({"jsonrpc":2.0,"id":3,"method":"idle"})", R"({"jsonrpc":"2.0","id":3})",
          R"({"jsonrpc":"2.0","id":3,"method":null})", R"({"jsonrpc":"2.0","id":3,"method":"idle","params":"x"})"}},
        {-32601, "x\"\x01é", {R"({"jsonrpc":"2.0","id":"x\"\u0001é","method":"Idle"})"}},
        {-32602,
         1,
         {requestText("idle", json::array({0})), requestText("idle", {{"level", 256}}),
          requestText("idle", {{"level", -1}}), requestText("idle", {{"level", 0.5}}),
          requestText("idle", {{"level", 1e300}}), requestText("initialize", {{"version", nullptr}}),
          requestText("string", {{"size", 0}}), requestText("string", {{"size", 1'000'001}}), requestText("call"),
          requestText("call", {{"name", 1}}), requestText("external", {{"parameters", "a"}}),
          requestText("external", {{"parameters", {"a", 1}}}),
          requestText("deliver", {{"class", "QUILT"}, {"id", "A"}}),
          requestText("deliver", eventWith(R"([{"key": "MSSG"}])")),
          requestText("deliver", eventWith(R"([{"key": "A", "text": "a", "bytes": ""}])"))}}};
    for (const auto& [code, id, lines] : groups) {
        for (const std::string& line : lines) {
            const json whole = answer(line);
            ASSERT_TRUE(whole.is_object() && whole.contains("error")) << line.substr(0, 120);
            EXPECT_EQ(whole["jsonrpc"], "2.0");
            EXPECT_EQ(whole["error"]["code"], code) << line.substr(0, 120);
            EXPECT_NE(whole["error"]["message"], "") << line.substr(0, 120);
            EXPECT_EQ(whole["id"], id) << line.substr(0, 120);
        }
    }
    EXPECT_EQ(call("VSTACalculatePlumeDistance", kScenario)["text"], "1.9") << "the session goes on";
}

TEST_F(RpcTest, passes_over_fields_that_a_method_does_not_know_and_takes_any_whole_number) {
    EXPECT_EQ(result("initialize", {{"version", 6e1}, {"trace", true}})["code"], 52);
    EXPECT_EQ(result("machine", {{"ticks", 4294967295.0}})["ticks"], 4294967295);
    for (const char* method : {"idle", "string", "version", "functions", "shutdown"}) {
        EXPECT_TRUE(answer(requestText(method, {{"trace", true}})).contains("result")) << method;
    }
}

TEST(RpcJson, reads_base64_as_it_writes_it) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        std::string text;
        host::appendBase64(text, bytes);
        EXPECT_EQ(host::base64Of(json::parse(text), "bytes"), bytes);
        bytes += static_cast<char>(i * 37);
    }
}

TEST(RpcJson, writes_texts_that_a_parser_reads_back) {
    std::string all;
    for (int c = 0; c < 128; ++c) {
        all += static_cast<char>(c);
    }
    const std::pair<std::string, std::string> cases[] = {{all, all},
                                                         {"\xC3\xA9\xF0\x9F\x98\x80", "é😀"},
                                                         {"Caf\x8E \xC3", "Café √"},  // Mac Roman, for it is not UTF-8
                                                         {"\xED\xA0\x80", "Ì†Ä"}};    // a surrogate is not UTF-8
    for (const auto& [bytes, expected] : cases) {
        std::string text;
        host::appendText(text, bytes);
        EXPECT_EQ(json::parse(text), expected);
    }
}

TEST_F(RpcTest, serves_notifications_and_batches) {
    for (const char* quiet : {R"({"jsonrpc":"2.0","method":"initialize"})", R"({"jsonrpc":"2.0","method":"none"})",
                              R"({"jsonrpc":"2.0","method":"idle","params":{"level":"x"}})",
                              R"([{"jsonrpc":"2.0","method":"idle"},{"jsonrpc":"2.0","method":"none"}])"}) {
        EXPECT_EQ(serve(quiet), "");
    }
    EXPECT_EQ(answer(R"({"jsonrpc":"2.0","id":null,"method":"idle"})")["id"], nullptr) << "an id, though it is null";
    EXPECT_EQ(answer(R"({"jsonrpc":"2.0","id":1.5,"method":"idle","params":[]})")["id"], 1.5);
    const json batch = answer(R"([{"jsonrpc":"2.0","method":"idle"}, 1, {"jsonrpc":"2.0","id":"a","method":"idle"},)"
                              R"({"jsonrpc":"2.0","method":"idle"}, {"jsonrpc":"2.0","id":2,"method":"version"}])");
    ASSERT_EQ(batch.size(), 3U);
    EXPECT_EQ(batch[0]["error"]["code"], -32600);
    EXPECT_EQ(batch[1]["id"], "a");
    EXPECT_EQ(batch[2]["result"]["code"], 0) << "the plug-in was initialised by a notification";
}

TEST_F(RpcTest, cuts_lines_however_they_arrive) {
    const std::string text = requestText("initialize", json::object(), 1) + "\r\n\r\n\n   \n" +
                             requestText("call", {{"name", "é"}}, 2) + "\n{\n" + requestText("idle", json::object(), 3);
    for (const std::size_t size : {std::size_t{1}, std::size_t{7}, text.size()}) {
        std::vector<std::string_view> pieces;
        for (std::size_t i = 0; i < text.size(); i += size) {
            pieces.push_back(std::string_view(text).substr(i, size));
        }
        const std::vector<json> answers = converse(pieces);
        ASSERT_EQ(answers.size(), 4U);
        EXPECT_EQ(answers[0]["result"]["code"], 52);
        EXPECT_EQ(answers[1]["id"], 2);
        EXPECT_EQ(answers[2]["error"]["code"], -32700);
        EXPECT_EQ(answers[3]["id"], 3) << "the last line without a line feed";
    }
    EXPECT_TRUE(converse({}).empty());
}

TEST_F(RpcTest, skips_a_line_that_is_too_long_and_goes_on) {
    const std::string tooLong(host::kMaxRpcLine + 1, ' ');
    const std::string idle = requestText("idle");
    const std::vector<json> answers =
        converse({std::string_view(tooLong).substr(1), "\n", idle, "\n", tooLong, tooLong, "\n", idle, "\n", tooLong});
    ASSERT_EQ(answers.size(), 4U) << "the longest line that is served is blank";
    for (std::size_t i = 0; i < 4; i += 2) {
        EXPECT_EQ(answers[i]["id"], 1);
        EXPECT_EQ(answers[i + 1]["error"]["code"], -32600);
        EXPECT_EQ(answers[i + 1]["id"], nullptr);
        EXPECT_NE(answers[i + 1]["error"]["message"].get<std::string>().find("67108864"), std::string::npos);
    }
}

TEST_F(RpcTest, ends_quietly_when_nobody_reads) {
    int in[2];
    int out[2];
    ASSERT_EQ(::pipe(in) | ::pipe(out), 0);
    const std::string request = requestText("idle") + "\n";
    ASSERT_EQ(::write(in[1], request.data(), request.size()), static_cast<ssize_t>(request.size()));
    ::close(out[0]);
    EXPECT_EQ(host::runRpc(options(), in[0], out[1]), 1) << "the input is still open";
    for (const int fd : {in[0], in[1], out[1]}) {
        ::close(fd);
    }
}

TEST(RpcProgram, answers_on_standard_output_alone_and_tells_failures_by_its_status) {
    support::RunOptions options{.input = requestText("initialize") + "\nx\n"};
    const support::Outcome outcome = support::quil({"rpc", "--volume", "Disk=/tmp", "--application", "Disk:Apps:Host",
                                                    "--applications", "Disk:Apps", "--signature", "HOST"},
                                                   options);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output.find(R"({"jsonrpc":"2.0","id":1,"result":{"code":52}})"), 0U) << outcome.output;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 2);
    options.outputFile = "/dev/full";
    EXPECT_EQ(support::quil({"rpc"}, options).status, 1);
    EXPECT_EQ(support::quil({"rpc", "surplus"}).status, 2);
    const support::Outcome none = support::quil({"rpc", "--plugin", "/no/such/bundle"});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.errors, "");
}

// The examples of the document do what they say.
TEST(RpcExamples, print_the_distance) {
    for (const auto& [language, file] : {std::pair{"python3", "plume.py"}, std::pair{"bash", "plume.sh"}}) {
        if (support::run({"sh", "-c", std::string("command -v ") + language}).status != 0) {
            std::printf("left out: %s is not installed\n", language);
            continue;
        }
        const std::vector<std::string> command{language, QUIL_SOURCE_DIR "/examples/automation/" + std::string(file)};
        const support::Outcome outcome = support::run(command, {.environment = {{"QUIL", QUIL_BINARY_DIR "/quil"}}});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        for (const char* part : {"1.9", "amount"}) {  // the alert of the refused scenario names the amount
            EXPECT_NE(outcome.output.find(part), std::string::npos) << outcome.output;
        }
        EXPECT_NE(support::run(command, {.environment = {{"QUIL", "/no/such/program"}}}).status, 0);
    }
}

}  // namespace
