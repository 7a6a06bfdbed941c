// Named data lists, the script queue and the script functions of the globals.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "frame/entry.h"
#include "frame/modules.h"
#include "messaging/globals.h"
#include "messaging/message_parameters.h"
#include "messaging/script_queue.h"
#include "support/script_calls.h"
#include "util/fhandle.h"

namespace {

using Texts = std::vector<std::string>;

class Lists : public support::ScriptFixture {
  protected:
    void SetUp() override { quil::Startup(); }
    void TearDown() override { quil::Shutdown(); }

    static std::string get(const std::string& name) { return callHandler(quil::GLN1GetGlobal, name); }
    static std::string list(const char* options) { return callHandler(quil::GLN1GetGlobalList, options); }
    static std::string callHandler(quil::Handler handler, std::string_view parameter) {
        return script(handler, parameter);
    }
    // Calls a function that answers nothing and returns the codes of its alerts.
    Texts codes(quil::Handler handler, std::string_view parameter) {
        EXPECT_EQ("", script(handler, parameter));
        Texts codes = alerts();
        for (std::string& code : codes) {
            code = code.substr(code.find("Error: ") + 7);
            code = code.substr(0, code.find('\r'));
        }
        return codes;
    }
    // The scripts that so many idle calls ask for, an empty text for a call that asks for none.
    Texts idle(int calls) {
        Texts scripts;
        for (int i = 0; i < calls; ++i) {
            quil::GLN1_Plugin_Idle();
            const Texts asked = effects().scripts;
            scripts.push_back(asked.empty() ? "" : asked.front());
            EXPECT_LE(asked.size(), 1U);
        }
        return scripts;
    }
    static Texts names(const quil::DataNode* node) {
        Texts result;
        for (; node != nullptr; node = node->next) {
            result.emplace_back(node->name);
        }
        return result;
    }
};

TEST_F(Lists, KeepTheSystemsOwnGlobalsWhateverScriptsDo) {
    const Texts own = {
        "App Name",       "App Path",         "App Folder with Delim", "Error Dialogs", "Handle Message Script",
        "Plugin Version", "Script Menu Name", "App Signature",         "App PSIG",      "App DOC"};
    EXPECT_EQ(own, names(quil::gUserGlobalsDataNodeList));
    EXPECT_EQ((Texts{"Host", "Disk:Apps:", "FMP7"}),
              (Texts{get("App Name"), get("App Folder with Delim"), get("App PSIG")}));
    EXPECT_EQ(support::kHostPath, get("App Path"));
    EXPECT_EQ(Texts(), codes(quil::GLN1SetGlobal, "App Signature|XXXX"));
    EXPECT_EQ("FMP7", get("App Signature"));
    EXPECT_EQ(Texts(), codes(quil::GLN1SetScriptMenuName, "Skripte"));
    EXPECT_EQ("Skripte", get("Script Menu Name"));
    EXPECT_EQ(Texts{"-117"}, codes(quil::GLN1UnsetGlobal, "App DOC"));
    codes(quil::GLN1SetGlobal, "a|1");
    EXPECT_EQ(Texts(), codes(quil::GLN1UnsetGlobal, "*"));
    EXPECT_EQ(own, names(quil::gUserGlobalsDataNodeList));
    quil::SetGlobalFromStr("x", 0, "1");
    quil::SetGlobalFromStr("*", 1, "1");
    quil::SetGlobalFromStr("y", 0, "1");
    EXPECT_EQ(-117, quil::RemoveGlobalFromList("*")) << "stops at a name \"*\" of the system's own";
    EXPECT_EQ("", get("x"));
    EXPECT_EQ("1", get("y"));
}

TEST_F(Lists, SetAndReadGlobalsOfAnyShape) {
    const std::string name255(255, 'n');
    const std::string large(3'000'000, 'v');
    EXPECT_EQ(Texts{"-222"}, codes(quil::GLN1SetGlobal, "no bar"));
    EXPECT_EQ(Texts(), codes(quil::GLN1SetGlobal, "a|NODUPES|b|" + large));
    EXPECT_EQ("NODUPES|b|" + large, get("a")) << "all behind the first bar";
    EXPECT_EQ(Texts(), codes(quil::GLN1SetGlobal, name255 + std::string(45, 'n') + "|long"));
    EXPECT_EQ("long", get(name255)) << "a name is cut at 255";
    EXPECT_EQ(Texts(), codes(quil::GLN1SetGlobal, name255 + "|again"));
    EXPECT_EQ("again", get(name255 + "n"));
    EXPECT_EQ("", get("A")) << "letter case counts";
    EXPECT_EQ(Texts(), codes(quil::GLN1AppendToGlobal, "m|NODUPES|b\ra"));
    EXPECT_EQ(Texts(), codes(quil::GLN1AppendToGlobal, "m|NODUPES|a\rc"));
    EXPECT_EQ("b\ra\rc\r", get("m"));
    EXPECT_EQ(Texts(), codes(quil::GLN1AppendToGlobal, "m|a|" + large));
    EXPECT_EQ("b\ra\rc\ra|" + large, get("m"));
    EXPECT_EQ(Texts{"-345"}, codes(quil::GLN1AppendToGlobal, "m|NODUPES|" + std::string(511, 'x')));
    EXPECT_EQ(Texts(), codes(quil::GLN1UnsetGlobal, "m"));
    EXPECT_EQ("", get("m"));
}

TEST_F(Lists, ListGlobalsWithPreviews) {
    EXPECT_EQ("", list("")) << "nothing but the system's own";
    const std::string text31(31, 'a');
    codes(quil::GLN1SetGlobal, "short|" + text31);
    codes(quil::GLN1SetGlobal, "long|" + text31 + "b");
    codes(quil::GLN1SetGlobal, "empty|");
    EXPECT_EQ("'short'\t'" + text31 + "'\r'long'\t'" + text31 + "b...'\r'empty'\t''\r", list("SysEnv"));
    EXPECT_EQ(nullptr, quil::GetTheDataHandleFromList_NotACopy("empty", quil::gUserGlobalsDataNodeList));
    codes(quil::GLN1UnsetGlobal, "long");
    codes(quil::GLN1AttachScriptToGlobal, "empty|Run");
    const std::string detailed = list("\tDETAIL  SYSENV");
    EXPECT_TRUE(detailed.starts_with("'App Name'\t'Host'\tSysEnv\r")) << detailed;
    EXPECT_TRUE(detailed.ends_with("\tUser\r'empty'\t''\tUser\tRun\tDisabled\r")) << detailed;
    EXPECT_EQ(list(""), list("a b DETAIL SYSENV")) << "two words count";
}

TEST_F(Lists, QueueTheEnabledScriptOfAGlobalWhoseValueChanged) {
    EXPECT_EQ(Texts{"-2802"}, codes(quil::GLN1AttachScriptToGlobal, "g|Run"));
    EXPECT_EQ(Texts{"-2802"}, codes(quil::GLN1AttachScriptToGlobal, "|Run"));
    EXPECT_EQ(Texts{"-2802"}, codes(quil::GLN1EnableGlobalScript, "g"));
    codes(quil::GLN1SetGlobal, "g|1");
    EXPECT_EQ(Texts{"-1"}, codes(quil::GLN1AttachScriptToGlobal, "g"));
    EXPECT_EQ(Texts{"-1"}, codes(quil::GLN1EnableGlobalScript, "g"));
    EXPECT_EQ(Texts(), codes(quil::GLN1AttachScriptToGlobal, "g|Run"));
    codes(quil::GLN1SetGlobal, "g|2");
    EXPECT_EQ((Texts{""}), idle(1)) << "not enabled";
    codes(quil::GLN1EnableGlobalScript, "g");
    codes(quil::GLN1SetGlobal, "g|2");
    EXPECT_EQ((Texts{""}), idle(1)) << "not changed";
    EXPECT_STREQ("", quil::gNameOfGlobalThatTriggeredScript);
    codes(quil::GLN1SetGlobal, "g|3");
    EXPECT_EQ((Texts{"Run", ""}), idle(2));
    EXPECT_STREQ("g", quil::gNameOfGlobalThatTriggeredScript);
    EXPECT_EQ(Texts(), codes(quil::GLN1AppendToGlobal, "g|NODUPES|" + std::string(511, 'x')));
    EXPECT_EQ((Texts{"Run"}), idle(1)) << "also when the value could not be stored";
    codes(quil::GLN1DisableGlobalScript, "g");
    codes(quil::GLN1SetGlobal, "g|4");
    EXPECT_EQ((Texts{""}), idle(1));
    codes(quil::GLN1EnableGlobalScript, "g");
    codes(quil::GLN1AttachScriptToGlobal, "g|" + std::string(64, 's'));
    EXPECT_EQ(Texts{"-1"}, codes(quil::GLN1SetGlobal, "g|5"));
}

TEST_F(Lists, RunTenWaitingScriptsInTheirOrderOneAnIdleCall) {
    Texts expected;
    for (char c = 'a'; c < 'a' + 10; ++c) {
        expected.emplace_back(63, c);
        EXPECT_EQ(Texts(), codes(quil::GLN1CallScript, expected.back()));
        EXPECT_EQ(Texts(), codes(quil::GLN1CallScript, expected.front())) << "queued once";
    }
    EXPECT_EQ(Texts{"-2"}, codes(quil::GLN1CallScript, "eleventh"));
    EXPECT_EQ(Texts{"-1"}, codes(quil::GLN1CallScript, std::string(64, 'x')));
    machine().state().faults = {{"send", -600, 1, 0}};  // the first is lost, and the queue goes on
    expected.front().clear();
    expected.emplace_back();
    EXPECT_EQ(expected, idle(11));
}

TEST_F(Lists, SortParametersForSending) {
    const auto sort = [](const std::vector<std::pair<const char*, const char*>>& parameters) {
        for (const auto& [name, value] : parameters) {
            EXPECT_EQ(0, quil::SetOutgoingMessageParameterFromStr(name, value, quil::kUserList));
        }
        quil::DataNode* const head = quil::gOutgoingUserMessageParameterDataNodeList;
        quil::SortOutgoingMessageParameters(head);
        EXPECT_EQ(head, quil::gOutgoingUserMessageParameterDataNodeList);
        Texts sorted = names(head);
        quil::DisposeOutgoingMessageParameterList(quil::kUserList);
        return sorted;
    };
    EXPECT_EQ((Texts{"MSSG", "SIGN", "NAME", "WHO "}),
              sort({{"WHO ", "1234"}, {"MSSG", "HOLA"}, {"NAME", "12"}, {"SIGN", "QUIL"}}));
    EXPECT_EQ(
        (Texts{"MSSG", "PSIG", "XTRA", "none", "b", "a", "c"}),
        sort(
            {{"b", "1"}, {"a", "2"}, {"c", "333"}, {"none", ""}, {"XTRA", "long long"}, {"PSIG", "4"}, {"MSSG", "x"}}));
    EXPECT_EQ(Texts(), sort({}));
    EXPECT_EQ(-2, quil::SetOutgoingMessageParameterFromStr("a", "b", 3));
    EXPECT_EQ(-2, quil::RemoveOutgoingMessageParameterFromList("a", 0));
    EXPECT_EQ(0x20202020U, quil::GetOutgoingMessageParameterInListAsOSType("a", 0));
    quil::SetIncomingMessageParameterFromStr("a", "1234");
    char buffer[5];
    EXPECT_EQ(0, quil::GetIncomingMessageParameterInListAsStr("a", buffer, 5));
    EXPECT_EQ(1, quil::GetIncomingMessageParameterInListAsStr("a", buffer, 4));
    EXPECT_STREQ("123", buffer);
}

// Long lists are found through an index; whatever is done to them, they answer as a plain list does.
TEST_F(Lists, AnswerLikeAPlainListHoweverLong) {
    std::mt19937 random(20260);
    std::vector<std::pair<std::string, std::string>> plain;
    quil::DataNode* list = nullptr;
    const auto find = [&plain](const std::string& name) {
        return std::find_if(plain.begin(), plain.end(), [&name](const auto& item) { return item.first == name; });
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string name = "name " + std::to_string(random() % 400);
        const std::string value = std::to_string(random());
        const auto what = random() % 200;
        if (what == 0) {
            const std::string other = "name " + std::to_string(random() % 400);
            const auto at = find(name);
            ASSERT_EQ(at != plain.end() ? 1 : 0, quil::RenameDataInList(list, name.c_str(), other.c_str()));
            if (at != plain.end()) {
                at->first = other;
            }
        } else if (what < 20) {
            ASSERT_EQ(0, quil::RemoveDataFromList(name.c_str(), &list));
            std::erase_if(plain, [&name](const auto& item) { return item.first == name; });
        } else if (what < 100) {
            ASSERT_EQ(0, quil::SetDataFromStr(name.c_str(), 0, value.c_str(), &list));
            if (const auto at = find(name); at != plain.end()) {
                at->second = value;
            } else {
                plain.emplace_back(name, value);
            }
        } else {
            char found[32];
            const unsigned long length = quil::GetDataFromListAsStr(name.c_str(), found, sizeof found, list);
            const auto at = find(name);
            ASSERT_EQ(at == plain.end() ? "" : at->second, found);
            ASSERT_EQ(std::string(found).size(), length);
        }
    }
    ASSERT_GT(plain.size(), 200U);
    const quil::DataNode* node = list;
    for (const auto& [name, value] : plain) {
        ASSERT_NE(nullptr, node);
        ASSERT_EQ(name, node->name);
        ASSERT_EQ(value, quil::FHandleText(node->data));
        node = node->next;
    }
    EXPECT_EQ(nullptr, node);
    quil::DisposeDataList(&list);
}

TEST_F(Lists, GiveCharactersAndLines) {
    const std::string line4999(4999, 'x');
    const struct {
        quil::Handler handler;
        std::string parameter, answer;
    } cases[] = {
        {quil::GLN1Ascii2Char, "321", "A"},
        {quil::GLN1Ascii2Char, "256", ""},
        {quil::GLN1Ascii2Char, "-1", "\xFF"},
        {quil::GLN1Ascii2Char, "4294967361", "A"},
        {quil::GLN1Ascii2Char, "", ""},
        {quil::GLN1GetNthLine, "1|a\r\nb", "a"},
        {quil::GLN1GetNthLine, "2|a\r\nb", "b"},
        {quil::GLN1GetNthLine, "3|a\r\nb", ""},
        {quil::GLN1GetNthLine, "0|a", ""},
        {quil::GLN1GetNthLine, "|a", ""},
        {quil::GLN1GetNthLine, "2|a\n" + line4999 + "yz", line4999},
    };
    for (const auto& [handler, parameter, answer] : cases) {
        EXPECT_EQ(answer, script(handler, parameter)) << parameter;
    }
    EXPECT_TRUE(alerts().empty());
}

TEST_F(Lists, BuildLinesFromOutputCodes) {
    const auto line = [](const std::vector<std::int16_t>& codes) {
        quil::ClearOutputCodes();
        for (std::size_t i = 0; i < codes.size(); ++i) {
            quil::SetOutputCode(i, codes[i]);
        }
        char built[64];
        quil::StrcpyOutputLine(built, "X", "Y", "Z");
        return std::string(built);
    };
    EXPECT_EQ("X\tY\r", line({1, 5, 2, 6}));
    EXPECT_EQ("X", line({1, 0, 2}));
    EXPECT_EQ("Z Z", line({3, 4, 3, 7, 1}));
    EXPECT_EQ("XYXYXYXYXY", line({1, 2, 1, 2, 1, 2, 1, 2, 1, 2, 1})) << "ten codes";
}

TEST_F(Lists, WaitSixtyTicksOrUntilTheCounterWraps) {
    for (const std::uint32_t start : {1000U, 0xFFFFFFF0U}) {
        machine().state().ticks = start;
        quil::WaitOneSecond();
        EXPECT_EQ(start + 60, machine().state().ticks);
    }
}

}  // namespace
