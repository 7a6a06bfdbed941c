// Plug-ins as the host holds them, and the list of script functions of a bundle.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "frame/dispatch_table.h"
#include "host/commands.h"
#include "host/id_list.h"
#include "host/plugin.h"
#include "platform/linux/linux_machine.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using host::HostError;
using host::Plugin;

constexpr char kBundle[] = QUIL_BINARY_DIR "/QUIL.fmplugin";

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const HostError& error) {
        return error.what();
    }
    return "no error";
}

class Host : public testing::Test {
  protected:
    Host() : machine_(platform::makeLinuxMachine({})), previous_(platform::installMachine(machine_.get())) {}
    ~Host() override { platform::installMachine(previous_); }

    // A bundle whose library is the test's own plug-in.
    std::string oddBundle() {
        const fs::path bundle = folder_.path() / "Odd.fmplugin";
        fs::create_directories(bundle / "Contents/Linux");
        fs::create_directories(bundle / "Contents/Resources");
        fs::copy_file(QUIL_BINARY_DIR "/tests/odd_plugin.so", bundle / "Contents/Linux/Odd.so",
                      fs::copy_options::overwrite_existing);
        return bundle.string();
    }
    support::TemporaryFolder folder_;

  private:
    std::unique_ptr<platform::Machine> machine_;
    platform::Machine* previous_;
};

TEST_F(Host, NoticesThatAListHasChangedSinceItWasCounted) {
    const std::string path = folder_.path() / "list";
    std::ofstream(path) << "A\n\nB";
    const host::IDList list(path, 23);
    EXPECT_EQ(list.count(), 3U);
    std::string ids;
    list.forEach([&ids](std::string_view id, std::size_t line) { ids += std::string(id) + std::to_string(line); });
    EXPECT_EQ(ids, "A1B3");
    std::ofstream(path, std::ios::app) << "\nC";
    EXPECT_EQ(errorOf([&list] { list.forEach([](std::string_view, std::size_t) {}); }),
              path + ": has changed while it was read; try again when nobody writes to it");
}

TEST_F(Host, RegistersTwoFunctionsAtInitialisationAndForgetsThemAtShutdown) {
    Plugin plugin(kBundle);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(plugin.functions().empty());
        EXPECT_EQ(plugin.initialize(), 52);
        ASSERT_EQ(plugin.functions().size(), 2U);
        EXPECT_EQ(plugin.functions()[1].pluginId, "QUIL");
        plugin.shutdown();
    }
    for (const auto& [version, result] : {std::pair{49, -1}, {256, -1}, {50, 52}, {-1, -1}}) {
        EXPECT_EQ(plugin.initialize(static_cast<std::int16_t>(version)), result) << version;
    }
    EXPECT_EQ(plugin.functions().size(), 2U) << "a refused version leaves what was there";
}

TEST_F(Host, AsksForStringsOfEverySizeInAnyState) {
    Plugin plugin(kBundle);
    EXPECT_EQ(plugin.string(131, 1), u"QUIL1nnYYnn");  // written without regard to the size
    EXPECT_EQ(plugin.string(130, 64), std::nullopt);
    const auto name = plugin.string(128, 1000);
    ASSERT_TRUE(name.has_value());
    EXPECT_FALSE(name->empty());
    const auto size = static_cast<std::uint32_t>(name->size());
    EXPECT_EQ(plugin.string(128, size + 2), name);
    EXPECT_EQ(plugin.string(128, size + 1), u"");  // never cut
    EXPECT_EQ(errorOf([&] { plugin.string(128, 0); }), "a string's size must be 1 to 1000000, not 0");
    EXPECT_NE(errorOf([&] { plugin.string(128, 1'000'001); }), "no error");
}

TEST_F(Host, EvaluatesFunctionsByTheirRegisteredNames) {
    Plugin plugin(kBundle);
    EXPECT_EQ(errorOf([&] { plugin.external("A", ""); }),
              "the plug-in has not registered a function \"QUIL_External\"; it is not initialised");
    plugin.initialize();
    EXPECT_TRUE(plugin.evaluate("QUIL_External", {"one"}).text.starts_with("Usage: "));
    EXPECT_EQ(errorOf([&] { plugin.evaluate("QUIL_External", {"one"}, true); }),
              "QUIL_External takes 2 to 2 parameters, not 1");
    EXPECT_EQ(errorOf([&] { plugin.evaluate("quil_external", {}); }),
              "the plug-in has not registered a function \"quil_external\"");
}

TEST_F(Host, TurnsWhatAFunctionRaisesIntoACode) {
    Plugin plugin(oddBundle());
    ASSERT_EQ(plugin.initialize(), 52);  // it also found that a number is registered once only
    EXPECT_EQ(plugin.evaluate("Odd_Raise", {}).code, -50);
    EXPECT_EQ(plugin.evaluate("Odd_RaiseOther", {}).code, -1);
}

TEST_F(Host, PassesEveryTextUnchangedAndCountsParameters) {
    Plugin plugin(oddBundle());
    plugin.initialize();
    const std::string large(1U << 20, 'x');
    for (const std::string_view text :
         {std::string_view(), std::string_view("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), std::string_view("a\0b\0", 4),
          std::string_view("\r\n\t"), std::string_view(large)}) {
        EXPECT_EQ(plugin.evaluate("Odd_Join", {text}).text, text);
    }
    EXPECT_EQ(plugin.evaluate("Odd_Join", {"a\xFF"}).text, "a\xEF\xBF\xBD");
    EXPECT_EQ(host::toUtf8(std::u16string_view(u"\xD800x", 2)), "\xEF\xBF\xBDx");
    EXPECT_EQ(plugin.evaluate("Odd_Join", {"a", "b"}, true).text, "a+b");
    EXPECT_NE(errorOf([&] { plugin.evaluate("Odd_Join", {"a", "b", "c"}, true); }), "no error");
    EXPECT_EQ(plugin.evaluate("Odd_JoinAny", {"a", "b", "c"}, true).text, "a+b+c");
}

TEST_F(Host, HoldsSeveralPlugInsOneAfterTheOther) {
    Plugin outer(kBundle);
    outer.initialize();
    {
        Plugin inner(oddBundle());
        inner.initialize();
        EXPECT_EQ(inner.functions().size(), 4U);
        EXPECT_EQ(platform::machine().resources().useBundle(&inner.bundle()), &inner.bundle());
    }
    EXPECT_EQ(platform::machine().resources().useBundle(&outer.bundle()), &outer.bundle());
    outer.shutdown();  // reaches its own registry again
    EXPECT_TRUE(outer.functions().empty());
}

TEST_F(Host, LoadsABundleByAnyPathToItAndTheEnvironmentsFirst) {
    const fs::path before = fs::current_path();
    fs::current_path(fs::path(oddBundle()));
    EXPECT_EQ(Plugin(".").initialize(), 52);
    fs::current_path("..");
    fs::create_directory_symlink("Odd.fmplugin", "Link.fmplugin");
    for (const char* path : {"Odd.fmplugin/", "Link.fmplugin"}) {
        EXPECT_EQ(Plugin(path).initialize(), 52) << path;
    }
    fs::current_path(before);
    ::setenv("QUIL_PLUGIN", "/somewhere/Else.fmplugin", 1);
    EXPECT_EQ(Plugin::defaultBundle(), "/somewhere/Else.fmplugin");
    ::setenv("QUIL_PLUGIN", "", 1);
    EXPECT_EQ(Plugin::defaultBundle(), QUIL_BINARY_DIR "/tests/QUIL.fmplugin");
    ::unsetenv("QUIL_PLUGIN");
}

TEST(FunctionList, HasTheRowsOfTheDispatchTable) {
    const auto list = host::readFunctionList(kBundle);
    const auto table = quil::DispatchTable();
    ASSERT_EQ(list.size(), table.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        const quil::Row& row = *table[i];
        EXPECT_EQ(list[i].name, row.name);
        EXPECT_EQ(list[i].module + "|" + list[i].summary + "|" + list[i].parameter + "|" + list[i].result + "|" +
                      list[i].errors + "|" + list[i].exampleParameter,
                  std::string(row.module) + "|" + row.summary + "|" + row.parameter + "|" + row.result + "|" +
                      row.errors + "|" + row.exampleParameter);
        EXPECT_EQ(list[i].exampleResult.has_value(), row.exampleResult != nullptr);
        EXPECT_EQ(list[i].exampleResult.value_or(""), row.exampleResult == nullptr ? "" : row.exampleResult);
    }
}

TEST(FunctionList, NamesTheFileThatIsMissingOrDamaged) {
    const support::TemporaryFolder folder;
    fs::create_directories(folder.path() / "Contents/Resources");
    const std::string file = folder.file("Contents/Resources/Functions.json");
    for (const char* text : {"(none)", "", "[", "{}", "[1]", R"([{"name": "A"}])", R"([{"name": 1}])"}) {
        if (*text != '(') {
            support::writeFile(file, text);
        }
        const std::string error = errorOf([&] { host::readFunctionList(folder.path().string()); });
        EXPECT_NE(error.find(file), std::string::npos) << text << error;
    }
}

TEST(FunctionList, MakesTheReferenceDocument) {
    const support::TemporaryFolder folder;
    const std::string fresh = folder.file("functions.md");
    ASSERT_EQ(support::run({QUIL_BINARY_DIR "/src/quil_function_list", "markdown", fresh}).status, 0);
    const std::string text = support::readFile(fresh);
    for (const quil::Row* row : quil::DispatchTable()) {
        EXPECT_NE(text.find(std::string("\n### ") + row->name + "\n"), std::string::npos) << row->name;
    }
    EXPECT_TRUE(text == support::readFile(QUIL_SOURCE_DIR "/docs/functions.md"))
        << "docs/functions.md is stale; build the target update-docs";
}

TEST(Suggestions, NameTheNearest) {
    const std::vector<std::string> names{"VSTAVersion", "VSTANewID", "MENU_Version", "HBT_Version", "call"};
    const std::vector<std::string> one{"VSTANewID"};
    EXPECT_EQ(host::nearestNames("VSTANewIDs", names), one);
    EXPECT_EQ(host::nearestNames("vstanewid", names), one);
    EXPECT_EQ(host::nearestNames("VSTANweID", names), one);
    EXPECT_EQ(host::nearestNames("HBTVersion", names).front(), "HBT_Version");
    EXPECT_TRUE(host::nearestNames("something else", names).empty());
    EXPECT_TRUE(host::nearestNames("", names).empty());
    EXPECT_EQ(host::didYouMean({}), "");
    EXPECT_EQ(host::didYouMean({"A"}), " - did you mean A?");
    EXPECT_EQ(host::didYouMean({"A", "B", "C"}), " - did you mean A, B or C?");
}

}  // namespace
