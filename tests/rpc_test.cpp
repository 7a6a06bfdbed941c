// `quil rpc`: requests in, answers out, in this process and through the built program.

#include "host/rpc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/rpc_json.h"
#include "support/process.h"

namespace {

using nlohmann::json;

constexpr char kBundle[] = QUIL_BINARY_DIR "/QUIL.fmplugin";
constexpr char kScenario[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";

host::RpcOptions optionsOn(const support::TemporaryFolder& folder) {
    host::RpcOptions options;
    options.machine.volumes = {{"Disk", folder.path().string()}};
    options.machine.application = "Disk:Host";
    options.bundle = kBundle;
    return options;
}

std::string requestText(std::string_view method, const json& params = json::object(), const json& id = 1) {
    return json{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}.dump();
}

class RpcTest : public testing::Test {
  protected:
    RpcTest() : session(optionsOn(folder)) {}

    std::string serve(std::string_view line) {
        std::string output;
        session.serve(line, output);
        EXPECT_TRUE(output.empty() || output.back() == '\n');
        EXPECT_LE(std::count(output.begin(), output.end(), '\n'), 1) << "an answer is one line";
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

    support::TemporaryFolder folder;
    host::RpcSession session;
};

TEST_F(RpcTest, serves_the_life_of_a_plug_in) {
    EXPECT_EQ(result("string", {{"kind", 131}}), (json{{"text", "QUIL1nnYYnn"}})) << "in any state";
    EXPECT_EQ(result("functions")["registered"], json::array());
    EXPECT_EQ(result("initialize"), (json{{"code", 52}}));
    const json functions = result("functions");
    ASSERT_EQ(functions["registered"].size(), 2U);
    const json& external = functions["registered"][1];
    EXPECT_EQ(external["id"], 2);
    EXPECT_EQ(external["name"], "QUIL_External");
    EXPECT_EQ(external["prototype"].get<std::string>().find("QUIL_External("), 0U);
    EXPECT_EQ(external["min"], 2);
    EXPECT_EQ(external["max"], 2);
    EXPECT_EQ(external["flags"], 0xFF01);
    std::vector<std::string> names;
    for (const host::FunctionHelp& help : host::readFunctionList(kBundle)) {
        names.push_back(help.name);
    }
    EXPECT_EQ(functions["script"], json(names));
    EXPECT_FALSE(names.empty());
    EXPECT_EQ(result("idle"), json::object());
    EXPECT_EQ(result("idle", {{"level", 255}}), json::object());
    EXPECT_EQ(call("VSTACalculatePlumeDistance", kScenario), (json{{"code", 0}, {"text", "1.9"}}));
    EXPECT_EQ(result("external", {{"parameters", {"VSTACalculatePlumeDistance", kScenario}}})["text"], "1.9");
    EXPECT_EQ(result("call", {{"name", "nobody"}})["text"], "Function name does not match a supported function.");
    for (const json& parameters : {json::array(), json::array({"a"}), json::array({"a", "b", "c"})}) {
        EXPECT_EQ(result("external", {{"parameters", parameters}})["text"].get<std::string>().find("Usage: "), 0U);
    }
    EXPECT_EQ(result("version")["code"], 0);
    EXPECT_NE(result("version", {{"parameters", {"long"}}})["text"], "");
    EXPECT_EQ(result("string", {{"kind", 130}}), (json{{"text", nullptr}})) << "left untouched";
    EXPECT_NE(result("string")["text"], "");
    EXPECT_EQ(result("string", {{"size", 2}})["text"], "") << "a name that does not fit is not copied";
    EXPECT_EQ(result("shutdown"), json::object());
    EXPECT_EQ(answer(requestText("call", {{"name", "x"}}))["error"]["code"], -32000);
    EXPECT_EQ(result("initialize", {{"version", 255}})["code"], 52) << "a fresh start";
}

TEST_F(RpcTest, tells_the_host_versions_that_the_plug_in_refuses) {
    for (const auto& [version, code] : std::map<int, int>{{49, -1}, {50, 52}, {255, 52}, {256, -1}, {-32768, -1}}) {
        EXPECT_EQ(result("initialize", {{"version", version}}), (json{{"code", code}})) << version;
        result("shutdown");
    }
}

TEST_F(RpcTest, tells_that_a_function_is_not_registered_before_the_start) {
    for (const char* request : {R"({"jsonrpc":"2.0","id":1,"method":"call","params":{"name":"x"}})",
                                R"({"jsonrpc":"2.0","id":1,"method":"external","params":{"parameters":[]}})",
                                R"({"jsonrpc":"2.0","id":1,"method":"version"})"}) {
        const json error = answer(request)["error"];
        EXPECT_EQ(error["code"], -32000);
        EXPECT_NE(error["message"].get<std::string>().find("not registered"), std::string::npos) << error;
    }
}

TEST_F(RpcTest, carries_what_the_plug_in_did_in_the_answer) {
    result("initialize");
    result("machine", {{"answers", {1}}});
    const json rejected = call("VSTACalculatePlumeDistance", "");
    EXPECT_EQ(rejected["text"].get<std::string>().find("ERROR "), 0U);
    ASSERT_EQ(rejected["alerts"].size(), 1U);
    const json& alert = rejected["alerts"][0];
    EXPECT_EQ(alert["kind"], "M");
    EXPECT_EQ(alert["heading"], "");
    EXPECT_EQ(alert["buttons"], json{"OK"});
    EXPECT_NE(alert["message"], "");
    for (const char* field : {"default", "cancel", "pressed"}) {
        EXPECT_EQ(alert[field], 1);
    }
    EXPECT_FALSE(call("VSTACalculatePlumeDistance", kScenario).contains("alerts")) << "told once";
    EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"call","params":{"name":"VSTACalculatePlumeDistance"}})"), "");
    EXPECT_FALSE(result("idle").contains("alerts")) << "what a notification did is not the next request's";
}

TEST_F(RpcTest, writes_every_effect) {
    using platform::operator""_4;
    result("machine", {{"running", {{{"signature", "GLN1"}, {"path", "Disk:GEOLENS"}}}},
                       {"windows", {{{"title", "M\xC3\xA4in"}}}},
                       {"launches", {{"Disk:SIROC", "SRC5"}}}});
    support::writeFile(folder.path() / "SIROC", "x");
    // A handler that does everything a plug-in can do.
    const auto handler = [](const platform::Event&, platform::Event&, long) -> platform::Status {
        platform::Machine& m = platform::machine();
        m.dialogs().beep();
        m.dialogs().beep();
        m.events().send({"misc"_4, "dosc"_4, "FMP7"_4, {{"----"_4, "TEXT"_4, "Caf\x8E"}}});
        m.events().send({"QUIL"_4,
                         "AEVT"_4,
                         "GLN1"_4,
                         {{"MSSG"_4, "TEXT"_4, "HOLA"}, {"LAT "_4, "TEXT"_4, "\x8E"}, {"XTRA"_4, "TEXT"_4, ""}}});
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
            {"key": "MSSG", "text": "HOLA", "bytes": "SE9MQQ=="}, {"key": "LAT ", "bytes": "jg=="},
            {"key": "XTRA", "text": "", "bytes": ""}]}],
        "launched": ["Disk:SIROC"], "fronted": ["SRC5"],
        "choosers": [{"kind": "write", "title": "Save As", "proposed": "a\"b"}],
        "drawn": [{"window": "Mäin", "text": "Collecting", "fraction": 0.1},
                  {"window": "Mäin", "text": "Collecting", "fraction": null}]})");
    EXPECT_EQ(result("deliver", {{"class", "QUIL"}, {"id", "AEVT"}}), expected);
}

TEST_F(RpcTest, delivers_events_with_their_parameters) {
    using platform::operator""_4;
    const json event = {{"class", "QUIL"},
                        {"id", "AEVT"},
                        {"parameters", {{{"key", "MSSG"}, {"text", "é"}}, {{"key", "LAT"}, {"bytes", "aGk="}}}}};
    EXPECT_EQ(result("deliver", event), (json{{"status", -1708}}));
    static std::string seen;
    session.machine().events().installHandler(
        "QUIL"_4, "AEVT"_4,
        [](const platform::Event& e, platform::Event&, long) -> platform::Status {
            for (const platform::EventParameter& parameter : e.parameters) {
                seen += parameter.data + (parameter.type == "TEXT"_4 ? ";" : "?");
            }
            return e.target == "FMP7"_4 && e.parameters.at(1).keyword == "LAT "_4 ? 0 : -1;
        },
        0);
    EXPECT_EQ(result("deliver", event), (json{{"status", 0}}));
    EXPECT_EQ(seen, "é;hi;");
}

TEST_F(RpcTest, sets_every_part_of_the_machine) {
    const json everything = json::parse(R"({"ticks": 4294967295, "seconds": -1, "doubleClickTicks": 7,
        "mouse": {"v": -10, "h": 20},
        "windows": [{"title": "Main"}, {"title": "Wide", "kind": 20000, "width": 9, "height": 8}],
        "menus": [{"id": 1, "title": "Scripts", "items": [{"text": "GEOLENS", "key": "1"}, {"text": "*", "key": ""}]},
                  {"id": -3, "title": ""}],
        "running": [{"signature": "GLN1", "path": "Disk:Apps:GEOLENS"}],
        "launches": {"Disk:A": "SRC", "Disk:B": {"signature": "VCHM", "after": 3}},
        "answers": [2, 1], "choices": [{"folder": "Disk:Docs:", "name": "a.txt"}, null],
        "faults": [{"operation": "delete", "status": -47, "times": 3, "after": 2}, {"operation": "read", "status": 1}]})");
    EXPECT_EQ(result("machine", everything), (json{{"ticks", 4294967295}}));
    platform::ScriptedMachine& machine = session.machine();
    EXPECT_EQ(machine.state().seconds, -1);
    EXPECT_EQ(machine.input().doubleClickTicks(), 7U);
    EXPECT_EQ(machine.input().mouse(), (platform::Point{-10, 20}));
    platform::Windows& windows = machine.windows();
    EXPECT_EQ(windows.portRect(windows.front()), (platform::Rect{0, 0, 600, 800}));
    EXPECT_EQ(windows.kind(windows.front()), 8);
    EXPECT_EQ(windows.portRect(windows.next(windows.front())), (platform::Rect{0, 0, 8, 9}));
    EXPECT_EQ(machine.menus().itemCommandKey(1, 1), '1');
    EXPECT_EQ(machine.menus().itemCount(1), 2);
    EXPECT_TRUE(machine.menus().hasMenu(-3));
    EXPECT_EQ(machine.state().launches.at("Disk:A").signature, 0x53524320U) << "SRC and a blank";
    EXPECT_EQ(machine.state().launches.at("Disk:B").afterSeconds, 3U);
    EXPECT_EQ(machine.state().answers, (std::deque<std::int16_t>{2, 1}));
    EXPECT_EQ(machine.state().choices.size(), 2U);
    EXPECT_EQ(machine.state().faults.at(0).after, 2U);
    EXPECT_EQ(machine.state().faults.at(1).times, 1U);
    result("machine", {{"ticks", nullptr}, {"seconds", nullptr}});
    EXPECT_FALSE(machine.state().ticks || machine.state().seconds) << "the real clock again";
    EXPECT_EQ(machine.input().doubleClickTicks(), 7U) << "what is left out stays";
    EXPECT_EQ(machine.state().running.size(), 1U);
}

TEST_F(RpcTest, refuses_a_wrong_machine_and_changes_nothing) {
    result("machine", {{"ticks", 5}});
    const std::pair<const char*, const char*> cases[] = {
        {R"({"ticks": 6, "tocks": 1})", "tocks"},
        {R"({"ticks": -1})", "ticks"},
        {R"({"ticks": 4294967296})", "ticks"},
        {R"({"ticks": 18446744073709551615})", "ticks"},
        {R"({"ticks": 1.5})", "ticks"},
        {R"({"ticks": "6"})", "ticks"},
        {R"({"seconds": true, "ticks": 6})", "seconds"},
        {R"({"seconds": 9223372036854775807})", "seconds"},
        {R"({"doubleClickTicks": null})", "doubleClickTicks"},
        {R"({"mouse": {"v": 1}})", "mouse.h"},
        {R"({"mouse": {"v": 32768, "h": 0}})", "mouse.v"},
        {R"({"mouse": [1, 2]})", "mouse"},
        {R"({"windows": {}})", "windows"},
        {R"({"windows": [{"title": "a"}, {"kind": 8}]})", "windows[1].title"},
        {R"({"windows": [{"title": "a", "width": -1}]})", "windows[0].width"},
        {R"({"windows": [{"title": "a", "size": 1}]})", "windows[0].size"},
        {R"({"menus": [{"id": 1, "title": "a", "items": [{"text": "b", "key": "12"}]}]})", "menus[0].items[0].key"},
        {R"({"menus": [{"id": 1, "title": "a"}, {"id": 1, "title": "b"}]})", "menus[1].id"},
        {R"({"running": [{"signature": "GLN12", "path": "Disk:A"}]})", "running[0].signature"},
        {R"({"running": [{"signature": "", "path": "Disk:A"}]})", "running[0].signature"},
        {R"({"running": [{"signature": "日本", "path": "Disk:A"}]})", "running[0].signature"},
        {R"({"running": [{"signature": "GLN1", "path": ":A"}]})", "running[0].path"},
        {R"({"running": [7]})", "running[0]"},
        {R"({"launches": {"Disk:A": 7}})", "launches.Disk:A"},
        {R"({"launches": {"Disk:A": {"signature": "A", "after": -1}}})", "launches.Disk:A.after"},
        {R"({"answers": [1, 0]})", "answers[1]"},
        {R"({"answers": [4]})", "answers[0]"},
        {R"({"choices": [{"folder": "Disk:"}]})", "choices[0].name"},
        {R"({"choices": [{"folder": "Disk:", "name": "a:b"}]})", "choices[0].name"},
        {R"({"faults": [{"operation": "rename", "status": -1}]})", "faults[0].operation"},
        {R"({"faults": [{"operation": "read", "status": 0}]})", "faults[0].status"},
        {R"({"faults": [{"operation": "read", "status": -32769}]})", "faults[0].status"},
        {R"({"faults": [{"operation": "read", "status": -1, "times": -1}]})", "faults[0].times"},
        {R"([1])", "params"},
    };
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
    struct Case {
        std::string line;
        int code;
        json id;
    };
    const std::string deep(60'000, '[');
    const std::string deepEnd(60'000, ']');
    const Case cases[] = {
        {"{", -32700, nullptr},
        {"nonsense", -32700, nullptr},
        {R"({"jsonrpc":"2.0","id":1,"method":"idle"} x)", -32700, nullptr},
        {"{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"\xFF\"}", -32700, nullptr},
        {"\"\xED\xA0\x80\"", -32700, nullptr},
        {R"({"jsonrpc":"2.0","id":1,"method":"call","params":{"name":"\ud800"}})", -32700, nullptr},
        {"\"a\nb\"", -32700, nullptr},
        {std::string("\0", 1), -32700, nullptr},
        {"1e999", -32700, nullptr},
        {deep, -32700, nullptr},
        {deep + deepEnd, -32600, nullptr},
        {R"({"jsonrpc":"2.0","id":7,"method":"idle","params":)" + std::string(64, '[') + std::string(64, ']') + "}",
         -32600, nullptr},
        {"1", -32600, nullptr},
        {"null", -32600, nullptr},
        {"[]", -32600, nullptr},
        {"{}", -32600, nullptr},
        {R"({"id":3,"method":"idle"})", -32600, 3},
        {R"({"jsonrpc":"1.0","id":3,"method":"idle"})", -32600, 3},
        {R"({"jsonrpc":2.0,"id":"a","method":"idle"})", -32600, "a"},
        {R"({"jsonrpc":"2.0","id":3})", -32600, 3},
        {R"({"jsonrpc":"2.0","id":3,"method":null})", -32600, 3},
        {R"({"jsonrpc":"2.0","id":[1],"method":"idle"})", -32600, nullptr},
        {R"({"jsonrpc":"2.0","id":true,"method":"idle"})", -32600, nullptr},
        {R"({"jsonrpc":"2.0","id":3,"method":"idle","params":"x"})", -32600, 3},
        {R"({"jsonrpc":"2.0","id":3,"method":"Idle"})", -32601, 3},
        {R"({"jsonrpc":"2.0","id":"x\"\u0001é","method":""})", -32601, "x\"\x01é"},
        {requestText("idle", json::array({0})), -32602, 1},
        {requestText("idle", {{"level", 256}}), -32602, 1},
        {requestText("idle", {{"level", -1}}), -32602, 1},
        {requestText("idle", {{"levle", 0}}), -32602, 1},
        {requestText("initialize", {{"version", 32768}}), -32602, 1},
        {requestText("initialize", {{"version", nullptr}}), -32602, 1},
        {requestText("shutdown", {{"now", true}}), -32602, 1},
        {requestText("string", {{"size", 0}}), -32602, 1},
        {requestText("string", {{"size", 1'000'001}}), -32602, 1},
        {requestText("string", {{"kind", 256}}), -32602, 1},
        {requestText("call"), -32602, 1},
        {requestText("call", {{"name", 1}}), -32602, 1},
        {requestText("call", {{"name", "a"}, {"parameter", nullptr}}), -32602, 1},
        {requestText("external"), -32602, 1},
        {requestText("external", {{"parameters", "a"}}), -32602, 1},
        {requestText("external", {{"parameters", {"a", 1}}}), -32602, 1},
        {requestText("version", {{"parameters", {1}}}), -32602, 1},
        {requestText("deliver"), -32602, 1},
        {requestText("deliver", {{"class", "QUILT"}, {"id", "AEVT"}}), -32602, 1},
        {requestText("deliver", {{"class", "QUIL"}, {"id", "AEVT"}, {"parameters", {{{"key", "MSSG"}}}}}), -32602, 1},
        {requestText("deliver",
                     {{"class", "QUIL"}, {"id", "A"}, {"parameters", {{{"key", "A"}, {"text", "a"}, {"bytes", ""}}}}}),
         -32602, 1},
    };
    for (const Case& one : cases) {
        const json whole = answer(one.line);
        const std::string shown = one.line.substr(0, 120);
        ASSERT_TRUE(whole.is_object() && whole.contains("error")) << shown;
        EXPECT_EQ(whole["jsonrpc"], "2.0");
        EXPECT_EQ(whole["error"]["code"], one.code) << shown;
        EXPECT_NE(whole["error"]["message"], "") << shown;
        EXPECT_EQ(whole["id"], one.id) << shown;
    }
    EXPECT_EQ(call("VSTACalculatePlumeDistance", kScenario)["text"], "1.9") << "the session goes on";
}

TEST_F(RpcTest, refuses_what_is_not_base64) {
    for (const char* bytes : {"a", "ab", "abc", "a===", "ab=c", "====", "ab c", "aGk=\n", "aGk", "é="}) {
        const json whole = answer(requestText(
            "deliver", {{"class", "QUIL"}, {"id", "AEVT"}, {"parameters", {{{"key", "A"}, {"bytes", bytes}}}}}));
        ASSERT_TRUE(whole.contains("error")) << bytes;
        EXPECT_EQ(whole["error"]["code"], -32602) << bytes;
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
    const std::pair<std::string, std::string> cases[] = {
        {all, all},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "é€😀"},
        {"Caf\x8E \xC3", "Café √"},  // Mac Roman, for it is not UTF-8
        {"\xED\xA0\x80", "Ì†Ä"},     // a surrogate is not UTF-8
    };
    for (const auto& [bytes, expected] : cases) {
        std::string text;
        host::appendText(text, bytes);
        EXPECT_EQ(json::parse(text), expected);
    }
}

TEST_F(RpcTest, serves_notifications_and_batches) {
    EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"initialize"})"), "");
    EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"no such method"})"), "");
    EXPECT_EQ(serve(R"({"jsonrpc":"2.0","method":"idle","params":{"x":1}})"), "");
    EXPECT_EQ(serve(R"([{"jsonrpc":"2.0","method":"idle"},{"jsonrpc":"2.0","method":"none"}])"), "");
    EXPECT_EQ(answer(R"({"jsonrpc":"2.0","id":null,"method":"idle"})")["id"], nullptr) << "an id, though it is null";
    EXPECT_EQ(answer(R"({"jsonrpc":"2.0","id":1.5,"method":"idle","params":[]})")["id"], 1.5);
    const json batch = answer(R"([{"jsonrpc":"2.0","method":"idle"}, 1, {"jsonrpc":"2.0","id":"a","method":"idle"},)"
                              R"({"jsonrpc":"2.0","method":"idle"}, {"jsonrpc":"2.0","id":2,"method":"version"},)"
                              R"({"jsonrpc":"2.0","method":"idle"}])");
    ASSERT_EQ(batch.size(), 3U);
    EXPECT_EQ(batch[0]["error"]["code"], -32600);
    EXPECT_EQ(batch[1]["id"], "a");
    EXPECT_EQ(batch[2]["result"]["code"], 0) << "the plug-in was initialised by a notification";
}

// Feeds `input` to runRpc through pipes in pieces and returns what it wrote.
std::string converse(const host::RpcOptions& options, const std::vector<std::string_view>& pieces, int& status) {
    int in[2];
    int out[2];
    EXPECT_EQ(::pipe(in) | ::pipe(out), 0);
    std::thread writer([&pieces, fd = in[1]] {
        for (std::string_view piece : pieces) {
            while (!piece.empty()) {
                const ssize_t count = ::write(fd, piece.data(), piece.size());
                if (count <= 0) {
                    break;
                }
                piece.remove_prefix(static_cast<std::size_t>(count));
            }
        }
        ::close(fd);
    });
    std::string output;
    std::thread reader([&output, fd = out[0]] {
        char buffer[65536];
        for (ssize_t count = 0; (count = ::read(fd, buffer, sizeof buffer)) > 0;) {
            output.append(buffer, static_cast<std::size_t>(count));
        }
        ::close(fd);
    });
    status = host::runRpc(options, in[0], out[1]);
    ::close(out[1]);
    writer.join();
    reader.join();
    ::close(in[0]);
    return output;
}

std::vector<json> answersIn(const std::string& output) {
    std::vector<json> answers;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        answers.push_back(json::parse(line));
    }
    return answers;
}

TEST(RpcLoop, cuts_lines_however_they_arrive) {
    const support::TemporaryFolder folder;
    const std::string text = requestText("initialize", json::object(), 1) + "\r\n\r\n\n   \n" +
                             requestText("call", {{"name", "é"}}, 2) + "\n{\n" + requestText("idle", json::object(), 3);
    for (const std::size_t size : {std::size_t{1}, std::size_t{7}, text.size()}) {
        std::vector<std::string_view> pieces;
        for (std::size_t i = 0; i < text.size(); i += size) {
            pieces.push_back(std::string_view(text).substr(i, size));
        }
        int status = -1;
        const std::vector<json> answers = answersIn(converse(optionsOn(folder), pieces, status));
        EXPECT_EQ(status, 0);
        ASSERT_EQ(answers.size(), 4U);
        EXPECT_EQ(answers[0]["result"]["code"], 52);
        EXPECT_EQ(answers[1]["id"], 2);
        EXPECT_EQ(answers[2]["error"]["code"], -32700);
        EXPECT_EQ(answers[3]["id"], 3) << "the last line without a line feed";
    }
    int status = -1;
    EXPECT_EQ(converse(optionsOn(folder), {}, status), "");
    EXPECT_EQ(status, 0);
    const std::vector<json> cut = answersIn(converse(optionsOn(folder), {"{\"jsonrpc\":\"2.0\",\"i"}, status));
    ASSERT_EQ(cut.size(), 1U);
    EXPECT_EQ(cut[0]["error"]["code"], -32700) << "the input ended inside a request";
    EXPECT_EQ(status, 0);
}

TEST(RpcLoop, skips_a_line_that_is_too_long_and_goes_on) {
    const support::TemporaryFolder folder;
    const std::string tooLong(host::kMaxRpcLine + 1, ' ');
    const std::string_view longest = std::string_view(tooLong).substr(1);
    const std::string idle = requestText("idle");
    int status = -1;
    const std::vector<json> answers = answersIn(
        converse(optionsOn(folder), {longest, "\n", idle, "\n", tooLong, tooLong, "\n", idle, "\n", tooLong}, status));
    EXPECT_EQ(status, 0);
    ASSERT_EQ(answers.size(), 4U) << "the longest line that is served is blank";
    EXPECT_EQ(answers[0]["id"], 1);
    for (const std::size_t skipped : {std::size_t{1}, std::size_t{3}}) {
        EXPECT_EQ(answers[skipped]["error"]["code"], -32600);
        EXPECT_EQ(answers[skipped]["id"], nullptr);
        EXPECT_NE(answers[skipped]["error"]["message"].get<std::string>().find("67108864"), std::string::npos);
    }
    EXPECT_EQ(answers[2]["id"], 1);
}

TEST(RpcLoop, ends_quietly_when_nobody_reads) {
    const support::TemporaryFolder folder;
    int in[2];
    int out[2];
    ASSERT_EQ(::pipe(in) | ::pipe(out), 0);
    const std::string request = requestText("idle") + "\n";
    ASSERT_EQ(::write(in[1], request.data(), request.size()), static_cast<ssize_t>(request.size()));
    ::close(out[0]);
    EXPECT_EQ(host::runRpc(optionsOn(folder), in[0], out[1]), 1) << "the input is still open";
    for (const int fd : {in[0], in[1], out[1]}) {
        ::close(fd);
    }
}

TEST(RpcProgram, answers_on_standard_output_alone) {
    const support::TemporaryFolder folder;
    support::RunOptions options;
    options.input = requestText("initialize") + "\n" + requestText("call", {{"name", "VSTAGetPlumePoints"}}) + "\nx\n" +
                    requestText("deliver", {{"class", "QUIL"}, {"id", "NONE"}});
    const support::Outcome outcome =
        support::quil({"rpc", "--volume", "Disk=" + folder.path().string(), "--application", "Disk:Apps:Host",
                       "--applications", "Disk:Apps", "--signature", "HOST"},
                      options);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    const std::vector<json> answers = answersIn(outcome.output);
    ASSERT_EQ(answers.size(), 4U);
    EXPECT_EQ(answers[1]["result"]["code"], 0);
    EXPECT_EQ(answers[2]["error"]["code"], -32700);
    EXPECT_EQ(answers[3]["result"]["status"], -1708);
}

TEST(RpcProgram, ends_with_status_1_when_the_output_fails) {
    support::RunOptions options;
    options.input = requestText("idle") + "\n";
    options.outputFile = "/dev/full";
    EXPECT_EQ(support::quil({"rpc"}, options).status, 1);
}

TEST(RpcProgram, refuses_wrong_options) {
    const std::pair<std::vector<std::string>, int> cases[] = {
        {{"rpc", "--volume", "Disk"}, 0},
        {{"rpc", "--volume", "Disk=/no/such/folder"}, 0},
        {{"rpc", "--signature", "TOOLONG"}, 0},
        {{"rpc", "surplus"}, 2},
        {{"rpc", "--plugin", "/no/such/bundle"}, 1},
    };
    for (const auto& [command, status] : cases) {
        const support::Outcome outcome = support::quil(command);
        EXPECT_NE(outcome.status, 0) << command.back();
        EXPECT_TRUE(status == 0 || outcome.status == status) << command.back() << " " << outcome.status;
        EXPECT_EQ(outcome.output, "");
        EXPECT_NE(outcome.errors, "") << command.back();
    }
}

// The examples of the document do what they say.
TEST(RpcExamples, print_the_distance) {
    struct Example {
        std::vector<std::string> command;
        const char* language;
    };
    const Example examples[] = {{{"python3", QUIL_SOURCE_DIR "/examples/automation/plume.py"}, "python3"},
                                {{"bash", QUIL_SOURCE_DIR "/examples/automation/plume.sh"}, "bash"}};
    for (const Example& example : examples) {
        if (support::run({"sh", "-c", std::string("command -v ") + example.language}).status != 0) {
            std::printf("left out: %s is not installed\n", example.language);
            continue;
        }
        support::RunOptions options;
        options.environment = {{"QUIL", QUIL_BINARY_DIR "/quil"}};
        const support::Outcome outcome = support::run(example.command, options);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("1.9"), std::string::npos) << outcome.output;
        EXPECT_NE(outcome.output.find("amount"), std::string::npos)
            << "the alert of the refused scenario: " << outcome.output;
        options.environment = {{"QUIL", "/no/such/program"}};
        EXPECT_NE(support::run(example.command, options).status, 0);
    }
}

}  // namespace
