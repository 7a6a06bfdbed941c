// The plug-in's frame: life, idle, strings, registration, dispatch and the way of texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "fmx/host.h"
#include "frame/dispatch_table.h"
#include "frame/dispatcher.h"
#include "frame/entry.h"
#include "frame/modules.h"
#include "frame/strings.h"
#include "platform/bundle.h"
#include "platform/linux/linux_machine.h"
#include "platform/scripted/scripted_machine.h"
#include "util/fhandle.h"

namespace {

using quil::gPlugInInitialized;

// A host as the plug-in meets it: it notes what is registered, and can refuse.
struct NotingRegistry : fmx::FunctionRegistry {
    struct Entry {
        std::u16string name, prototype;
        short minParams, maxParams;
        std::uint32_t flags;
    };
    std::map<short, Entry> functions;
    short refused = 0;
    std::vector<std::string> log;

    fmx::errcode registerFunction(const fmx::QuadChar& pluginId, short funcId, const fmx::Text& name,
                                  const fmx::Text& prototype, short minParams, short maxParams, std::uint32_t flags,
                                  fmx::ExternalFunction) override {
        log.push_back(std::string(pluginId.text()) + " + " + std::to_string(funcId));
        if (funcId == refused) {
            return 1550;
        }
        functions[funcId] = {std::u16string(name.units()), std::u16string(prototype.units()), minParams, maxParams,
                             flags};
        return 0;
    }
    fmx::errcode unregisterFunction(const fmx::QuadChar& pluginId, short funcId) override {
        log.push_back(std::string(pluginId.text()) + " - " + std::to_string(funcId));
        return functions.erase(funcId) != 0 ? 0 : 1551;
    }
};

std::vector<std::string> sHooks;  // the hooks that ran, "MENU start" and so on

template <int M>
quil::ModuleHooks notingHooks() {
    static const char* const kNames[] = {"MENU", "GLN1", "VSTA", "HBT"};
    return {kNames[M], [] { sHooks.push_back(std::string(kNames[M]) + " start"); },
            [] { sHooks.push_back(std::string(kNames[M]) + " idle"); },
            [] { sHooks.push_back(std::string(kNames[M]) + " stop"); }};
}

std::vector<std::string> allModules(const std::string& what) {
    return {"MENU " + what, "GLN1 " + what, "VSTA " + what, "HBT " + what};
}

class Frame : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        bundle_ = platform::openBundle(QUIL_BINARY_DIR "/QUIL.fmplugin", error);
        ASSERT_NE(nullptr, bundle_) << error;
        files_ = platform::makeLinuxFiles({});
        resources_ = platform::makeBundleResources();
        machine_ = std::make_unique<platform::ScriptedMachine>(*files_, *resources_, platform::ScriptedOptions{});
        platform::installMachine(machine_.get());
        fmx::installFunctionRegistry(&registry_);
        record_.instance = bundle_.get();
        sHooks.clear();
        gPlugInInitialized = 0;
        quil::ResetPlugInState();
    }
    void TearDown() override {
        quil::resetModules();
        fmx::installFunctionRegistry(nullptr);
        platform::installMachine(nullptr);
    }
    std::intptr_t call(std::uint8_t selector, std::uint8_t parameter1 = 0) {
        record_.selector = selector;
        record_.parameter1 = parameter1;
        FMExternCallProc(&record_);
        return record_.result;
    }
    std::intptr_t initialise(std::int16_t version) {
        record_.hostVersion = version;
        record_.result = 12345;
        return call(fmx::kCallInit);
    }
    void noteHooks() {
        quil::gModules[0] = notingHooks<0>();
        quil::gModules[1] = notingHooks<1>();
        quil::gModules[2] = notingHooks<2>();
        quil::gModules[3] = notingHooks<3>();
    }
    // The string of a kind, or "untouched".
    std::u16string string(std::uint8_t kind, std::uint32_t size) {
        std::u16string buffer(std::max<std::size_t>(size, 12) + 1, u'#');
        record_.parameter3 = size;
        record_.result = reinterpret_cast<std::intptr_t>(buffer.data());
        call(fmx::kCallGetString, kind);
        EXPECT_EQ(u'#', buffer.back()) << "past the end";
        return buffer[0] == u'#' ? u"untouched" : std::u16string(buffer.c_str());
    }

    NotingRegistry registry_;
    std::unique_ptr<platform::Bundle> bundle_;
    std::unique_ptr<platform::Files> files_;
    std::unique_ptr<platform::Resources> resources_;
    std::unique_ptr<platform::ScriptedMachine> machine_;
    fmx::CallRecord record_;
};

TEST_F(Frame, AcceptsHostVersions50To255Alone) {
    const std::vector<std::pair<std::int16_t, int>> versions = {{50, 52}, {60, 52}, {255, 52},    {49, -1},   {256, -1},
                                                                {0, -1},  {-1, -1}, {-32768, -1}, {32767, -1}};
    for (const auto& [version, result] : versions) {
        noteHooks();
        sHooks.clear();
        EXPECT_EQ(result, initialise(version)) << version;
        EXPECT_EQ(result == 52 ? allModules("start") : std::vector<std::string>(), sHooks) << version;
        EXPECT_EQ(result == 52, gPlugInInitialized == 1) << version;
        call(fmx::kCallShutdown);
    }
}

TEST_F(Frame, RegistersItsTwoFunctionsAndTakesThemBack) {
    ASSERT_EQ(52, initialise(60));
    ASSERT_EQ(2U, registry_.functions.size());
    const auto& version = registry_.functions[1];
    EXPECT_EQ(u"QUIL_Version", version.name);
    EXPECT_TRUE(version.prototype.starts_with(u"QUIL_Version("));
    EXPECT_EQ((std::pair(short{0}, short{1})), (std::pair(version.minParams, version.maxParams)));
    const auto& external = registry_.functions[2];
    EXPECT_EQ(u"QUIL_External", external.name);
    EXPECT_TRUE(external.prototype.starts_with(u"QUIL_External("));
    EXPECT_EQ((std::pair(short{2}, short{2})), (std::pair(external.minParams, external.maxParams)));
    EXPECT_EQ(65281U, external.flags);
    registry_.log.clear();
    call(fmx::kCallShutdown);
    EXPECT_EQ((std::vector<std::string>{"QUIL - 2", "QUIL - 1"}), registry_.log);
    EXPECT_EQ(52, initialise(60)) << "a second life in one process";
    EXPECT_EQ(2U, registry_.functions.size());
}

TEST_F(Frame, RollsBackWhenTheHostRefusesAFunction) {
    for (const short refused : {short{1}, short{2}}) {
        noteHooks();
        sHooks.clear();
        registry_.refused = refused;
        EXPECT_EQ(-2, initialise(60));
        EXPECT_EQ(0, gPlugInInitialized);
        EXPECT_TRUE(registry_.functions.empty());
        auto expected = allModules("start");
        for (const auto& stop : allModules("stop")) {
            expected.push_back(stop);
        }
        EXPECT_EQ(expected, sHooks);
    }
}

TEST_F(Frame, LetsTheOtherModulesRunWhenOneRaises) {
    noteHooks();
    quil::gModules[1].startup = quil::gModules[1].idle = quil::gModules[1].shutdown = [] { throw std::bad_alloc(); };
    EXPECT_EQ(52, initialise(60)) << "start-ups cannot make the initialisation fail";
    call(fmx::kCallIdle, 0);
    call(fmx::kCallShutdown);
    std::vector<std::string> expected;
    for (const std::string what : {"start", "idle", "stop"}) {
        for (const std::string module : {"MENU ", "VSTA ", "HBT "}) {
            expected.push_back(module + what);
        }
    }
    EXPECT_EQ(expected, sHooks);
    EXPECT_TRUE(registry_.functions.empty());
}

TEST_F(Frame, IdlesAtLevels0And1WhileInitialised) {
    noteHooks();
    call(fmx::kCallIdle, 0);
    EXPECT_TRUE(sHooks.empty()) << "before initialisation";
    initialise(60);
    for (int level = 0; level < 256; ++level) {
        sHooks.clear();
        call(fmx::kCallIdle, static_cast<std::uint8_t>(level));
        EXPECT_EQ(level <= 1 ? allModules("idle") : std::vector<std::string>(), sHooks) << level;
    }
    sHooks.clear();
    call(fmx::kCallShutdown);
    EXPECT_EQ(allModules("stop"), sHooks);
    sHooks.clear();
    call(fmx::kCallIdle, 0);
    EXPECT_TRUE(sHooks.empty()) << "after shutdown";
}

TEST_F(Frame, AnswersStringsInAnyState) {
    EXPECT_EQ(u"QUIL", string(fmx::kStringName, 256));
    EXPECT_EQ(u"QUIL", string(fmx::kStringName, 6));
    EXPECT_EQ(u"", string(fmx::kStringName, 5)) << "a text of size - 1 units is not cut but left out";
    EXPECT_EQ(u"", string(fmx::kStringName, 1));
    EXPECT_NE(u"", string(fmx::kStringPreferences, 256));
    EXPECT_EQ(u"untouched", string(fmx::kStringHelpURL, 256));
    EXPECT_EQ(u"untouched", string(0, 256));
    EXPECT_EQ(u"QUIL1nnYYnn", string(fmx::kStringOptions, 256));
    EXPECT_EQ(u"QUIL1nnYYnn", string(fmx::kStringOptions, 2)) << "whatever the size";
}

TEST_F(Frame, LeavesStringsEmptyWhenTheBundleHasNone) {
    platform::Bundle empty;
    record_.instance = &empty;
    EXPECT_EQ(u"", string(fmx::kStringName, 256));
    EXPECT_EQ(52, initialise(60));
    EXPECT_EQ(u"", registry_.functions[2].name);
    unsigned short buffer[8] = {'#'};
    EXPECT_EQ(0U, quil::Sub_OSXLoadString(1, buffer, 8));
    EXPECT_EQ('#', buffer[0]) << "not cleared";
    EXPECT_EQ(0U, quil::Sub_OSXLoadString(1, nullptr, 8));
}

TEST_F(Frame, IgnoresOtherSelectors) {
    for (const int selector : {2, 3, 5, 6, 8, 255}) {
        record_.result = 777;
        EXPECT_EQ(777, call(static_cast<std::uint8_t>(selector)));
    }
}

// Calls through the two functions themselves.
class Dispatch : public Frame {
  protected:
    void SetUp() override {
        Frame::SetUp();
        ASSERT_EQ(52, initialise(60));
    }
    std::u16string external(const std::vector<std::u16string>& parameters, fmx::errcode expected = 0) {
        fmx::DataVect vector;
        vector.Resize(static_cast<std::uint32_t>(parameters.size()));
        for (std::uint32_t i = 0; i < parameters.size(); ++i) {
            fmx::Text text;
            text.setUnits(parameters[i]);
            vector.Mutable(i).SetAsText(text, fmx::Locale(fmx::Locale::Type::system));
        }
        fmx::Data result;
        EXPECT_EQ(expected, fmx::Evaluate(function_, 2, fmx::ExprEnv(), vector, result));
        locale_ = result.GetLocale().type();
        return std::u16string(result.GetAsText().units());
    }
    fmx::ExternalFunction function_ = quil::QUIL_External;
    fmx::Locale::Type locale_ = fmx::Locale::Type::none;
};

TEST_F(Dispatch, ExplainsItsUsageForAnyOtherNumberOfParameters) {
    const std::u16string usage =
        u"Usage: first parameter shoud be a function name. Second parameter should be a parameter string for the "
        u"function.";
    EXPECT_EQ(usage, external({}));
    EXPECT_EQ(usage, external({u"VSTAGetPlumePoints"}));
    EXPECT_EQ(usage, external({u"VSTAGetPlumePoints", u"", u""}));
    EXPECT_EQ(fmx::Locale::Type::system, locale_);
}

TEST_F(Dispatch, MatchesNamesExactly) {
    const std::u16string none = u"Function name does not match a supported function.";
    for (const std::u16string name : {u"", u"vstagetplumepoints", u"VSTAGetPlumePoints ", u"VSTAGetPlumePoint",
                                      u"VSTAGetPlumePointsX", u"\xD800"}) {
        EXPECT_EQ(none, external({name, u""}));
    }
    EXPECT_EQ(none, external({std::u16string(u"VSTAGetPlumePoints\0x", 20), u""})) << "a NUL inside";
    EXPECT_EQ(none, external({std::u16string(6'400'000, u'V'), u""}));
    EXPECT_EQ(u"ERROR 2 TRUE", external({u"VSTAGetPlumePoints", u""}));
}

TEST_F(Dispatch, FindsEveryRowByItsNameAndListsThemInOrder) {
    std::vector<std::string> modules;
    for (const quil::Row* row : quil::DispatchTable()) {
        EXPECT_EQ(row, quil::FindRow(row->name));
        if (modules.empty() || modules.back() != row->module) {
            modules.push_back(row->module);
        }
        for (const char* text : {row->summary, row->parameter, row->result, row->errors}) {
            EXPECT_NE('\0', *text) << row->name;
        }
    }
    std::vector<std::string> inOrder;
    for (const char* module : {"GLN1", "VSTA", "MENU", "HBT"}) {
        if (std::find(modules.begin(), modules.end(), module) != modules.end()) {
            inOrder.push_back(module);
        }
    }
    EXPECT_EQ(inOrder, modules) << "rows stand together by module";
    EXPECT_EQ(nullptr, quil::FindRow("VSTA"));
}

TEST_F(Dispatch, CallsEveryRowWithItsExample) {
    for (const quil::Row* row : quil::DispatchTable()) {
        fmx::Text name;
        fmx::Text parameter;
        name.Assign(row->name);
        parameter.Assign(row->exampleParameter);
        const std::u16string answer = external({std::u16string(name.units()), std::u16string(parameter.units())});
        EXPECT_NE(u"Function name does not match a supported function.", answer) << row->name;
        if (row->exampleResult != nullptr) {
            fmx::Text expected;
            expected.Assign(row->exampleResult);
            EXPECT_EQ(std::u16string(expected.units()), answer) << row->name;
        }
    }
}

TEST_F(Dispatch, CopiesParametersWithTheirWorstCaseSize) {
    char** handle = quil::NewFHandle(0);
    const auto copy = [&handle](void (*function)(char**, const fmx::Text&), std::u16string_view units) {
        quil::SetFHandleSize(handle, 0);
        fmx::Text text;
        text.setUnits(units);
        function(handle, text);
        return std::string(quil::FHandleText(handle));
    };
    EXPECT_EQ("", copy(quil::MyCopyParameterString_UTF8, u""));
    EXPECT_EQ(0, quil::GetFHandleSize(handle)) << "an empty text leaves the handle as it is";
    EXPECT_EQ("\xE2\x82\xAC", copy(quil::MyCopyParameterString_UTF8, u"\u20AC"));
    EXPECT_EQ(4, quil::GetFHandleSize(handle));
    EXPECT_EQ("\xDB", copy(quil::MyCopyParameterString_ASCII_Mac, u"\u20AC"));
    EXPECT_EQ(2, quil::GetFHandleSize(handle));
    EXPECT_EQ("", copy(quil::MyCopyParameterString_UTF8, std::u16string(quil::kMaxParameterUnits + 1, u'a')));
    EXPECT_EQ(0, quil::GetFHandleSize(handle));
    EXPECT_EQ(quil::kMaxParameterUnits,
              copy(quil::MyCopyParameterString_UTF8, std::u16string(quil::kMaxParameterUnits, u'a')).size());
    EXPECT_EQ(3L * quil::kMaxParameterUnits + 1, quil::GetFHandleSize(handle));
    quil::DisposeAndClearFHandle(&handle);
}

TEST_F(Dispatch, AnswersTheVersionWithOrWithoutAParameter) {
    function_ = quil::QUIL_Version;
    EXPECT_EQ(u"QUIL 1.0", external({}));
    EXPECT_EQ(u"QUIL 1.0", external({u"long"}));
    function_ = quil::PluginVersionByOption;
    const std::vector<std::pair<std::u16string, std::u16string>> options = {
        {u"", u"QUIL 1.0"},         {u"short", u"QUIL 1.0"},      {u"long", u"QUIL 1.0"},
        {u"platform", u"Mac OS X"}, {u"autoupdate", u"01000000"}, {u"LONG", u""}};
    for (const auto& [option, answer] : options) {
        EXPECT_EQ(answer, external({option}));
    }
    EXPECT_EQ(u"QUIL 1.0", external({}));
}

}  // namespace
