// The program `quil` as it is built: texts, statuses and messages of its commands.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "frame/dispatch_table.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;
using support::quil;

constexpr char kBundle[] = QUIL_BINARY_DIR "/QUIL.fmplugin";
constexpr char kFunction[] = "VSTACalculatePlumeDistance";
constexpr char kScenario[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";

testing::AssertionResult fails(const Outcome& outcome, int status, const std::string& message) {
    if (outcome.status == status && outcome.errors.starts_with("quil: ") &&
        outcome.errors.find(message) != std::string::npos) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "status " << outcome.status << ", errors: " << outcome.errors;
}

// A copy of the built bundle to damage.
class Bundle : public testing::Test {
  protected:
    Bundle() { fs::copy(kBundle, path_, fs::copy_options::recursive); }
    Outcome call(const support::RunOptions& options = {}) {
        return quil({"call", kFunction, kScenario, "--plugin", path_.string()}, options);
    }
    // The same bundle with the test's own plug-in in it.
    void exchangeLibrary() {
        fs::remove(library_);
        fs::copy_file(QUIL_BINARY_DIR "/tests/odd_plugin.so", library_);
    }

    support::TemporaryFolder folder_;
    const fs::path path_ = folder_.path() / "QUIL.fmplugin";
    const fs::path library_ = path_ / "Contents/Linux/QUIL.so";
    const fs::path strings_ = path_ / "Contents/Resources/English.lproj/Localizable.strings";
};

TEST(Call, PrintsTheResultAsLinesOrAsItIs) {
    const Outcome distance = quil({"call", kFunction, kScenario});
    EXPECT_EQ(distance.status, 0) << distance.errors;
    EXPECT_EQ(distance.output, "1.9\n");
    EXPECT_EQ(distance.errors, "");
    const Outcome raw = quil({"call", "--raw", kFunction, kScenario});
    EXPECT_EQ(raw.status, 0);
    EXPECT_EQ(raw.output, "1.9");
    const Outcome points = quil({"call", "VSTAGetPlumePoints", kScenario});
    const Outcome rawPoints = quil({"call", "VSTAGetPlumePoints", kScenario, "--raw"});
    EXPECT_EQ(points.output.find('\r'), std::string::npos);
    std::string lines = rawPoints.output;
    std::replace(lines.begin(), lines.end(), '\r', '\n');
    EXPECT_EQ(points.output, lines + "\n");
}

TEST(Call, AnswersEveryExampleOfTheTable) {
    for (const quil::Row* row : quil::DispatchTable()) {
        const Outcome outcome = quil({"call", "--raw", row->name, "--", row->exampleParameter});
        const bool isError = outcome.output.starts_with("Error") || outcome.output.starts_with("ERROR ");
        EXPECT_EQ(outcome.status, isError ? 1 : 0) << row->name << outcome.errors;
        if (row->exampleResult != nullptr) {
            EXPECT_EQ(outcome.output, row->exampleResult) << row->name;
        }
    }
}

TEST(Call, ReadsTheParameterFromStandardInputByteForByte) {
    EXPECT_EQ(quil({"call", kFunction, "-"}, {.input = kScenario}).output, "1.9\n");
    EXPECT_EQ(quil({"call", kFunction, "-"}, {.input = ""}).output, quil({"call", kFunction}).output);
    const std::string large(20'000'000, '|');  // three times what the plug-in converts
    const Outcome outcome = quil({"call", kFunction, "-"}, {.input = large});
    EXPECT_EQ(outcome.output, quil({"call", kFunction, ""}).output);
    EXPECT_EQ(outcome.status, 1);
}

TEST(Call, RefusesAParameterThatIsNotUtf8) {
    EXPECT_TRUE(fails(quil({"call", kFunction, "-"}, {.input = "\xC3\x80|\xFF"}), 1, "not a text in UTF-8"));
    EXPECT_TRUE(fails(quil({"call", kFunction, "\xED\xA0\x80"}), 1, "not a text in UTF-8"));
}

TEST(Call, TellsAnEchoOfTheNoMatchTextFromAnUnknownName) {
    const std::string words = "Function name does not match a supported function.";
    const Outcome outcome = quil({"call", "VSTA_StripCharsIllegalInXML", words});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, words + "\n");
}

TEST(Call, EndsWithOneWhenTheResultIsAnError) {
    const Outcome outcome = quil({"call", kFunction, "|||"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.starts_with("ERROR 2 ")) << outcome.output;
}

TEST(Call, SuggestsNamesForOneThatDoesNotExist) {
    for (const char* name :
         {"VSTACalculatePlumeDistanc", "vstacalculateplumedistance", "VSTACalculatePlumeDistance "}) {
        const Outcome outcome = quil({"call", name, kScenario});
        EXPECT_TRUE(fails(outcome, 1, "did you mean VSTACalculatePlumeDistance?")) << name;
        EXPECT_EQ(outcome.output, "Function name does not match a supported function.\n");
    }
    EXPECT_TRUE(fails(quil({"call", "\xFF"}), 1, "no script function is named"));
    EXPECT_TRUE(fails(quil({"call", ""}), 1, "no script function is named \"\""));
    EXPECT_TRUE(fails(quil({"call", std::string(100'000, 'a')}), 1, "no script function is named"));
}

TEST(Call, AsksForDashesBeforeAParameterThatLooksLikeAnOption) {
    EXPECT_TRUE(fails(quil({"call", kFunction, "-x|"}), 2, "put -- before a parameter"));
    EXPECT_EQ(quil({"call", kFunction, "--", "-x|"}).status, 1);
    EXPECT_EQ(quil({"call", kFunction, "-5|"}).status, 1);  // a number is no option
    EXPECT_EQ(quil({"call", "functions"}).output, "Function name does not match a supported function.\n");
}

TEST(Call, SaysWhenStandardOutputCannotBeWritten) {
    EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, {.outputFile = "/dev/full"}), 1, "No space left on device"));
}

TEST(Functions, AreListedInDispatchOrder) {
    std::string names;
    std::set<std::string> modules;
    for (const quil::Row* row : quil::DispatchTable()) {
        names += row->name + std::string("\n");
        modules.insert(row->module);
    }
    EXPECT_EQ(quil({"functions", "--names"}).output, names);
    std::size_t lines = 0;
    for (const std::string& module : modules) {
        const std::string listed = quil({"functions", module}).output;
        lines += static_cast<std::size_t>(std::count(listed.begin(), listed.end(), '\n'));
    }
    EXPECT_EQ(lines, quil::DispatchTable().size());
    EXPECT_EQ(quil({"functions", "vsta"}).output, quil({"functions", "VSTA"}).output);
    EXPECT_TRUE(fails(quil({"functions", "VST"}), 2, "VSTA"));
}

TEST(Help, ExplainsFunctionsCommandsAndTheProgram) {
    for (const quil::Row* row : quil::DispatchTable()) {
        const Outcome outcome = quil({"help", row->name});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(outcome.output.starts_with(row->name));
        EXPECT_NE(outcome.output.find(row->summary), std::string::npos) << row->name;
    }
    const std::string general = quil({"help"}).output;
    for (const char* command : {"call", "functions", "help", "rpc", "screen"}) {
        EXPECT_NE(general.find(std::string("\n  ") + command), std::string::npos) << command;
        EXPECT_EQ(quil({"help", command}).output, quil({command, "--help"}).output);
    }
    EXPECT_EQ(general, quil({"--help"}).output);
    EXPECT_TRUE(fails(quil({"help", "VSTAGetPlumePoint"}), 1, "did you mean VSTAGetPlumePoints?"));
}

TEST(Program, PrintsThePlugInsVersion) {
    const Outcome outcome = quil({"--version"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const std::string strings = support::readFile(QUIL_SOURCE_DIR "/resources/English.lproj/Localizable.strings");
    ASSERT_GT(outcome.output.size(), 1U);
    EXPECT_NE(strings.find("\"String3\" = \"" + outcome.output.substr(0, outcome.output.size() - 1) + "\";"),
              std::string::npos);
}

TEST(Program, RefusesWrongUsageWithTwo) {
    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } cases[] = {
        {{}, "name a command"},
        {{"cal"}, "unknown command \"cal\" - did you mean call?"},
        {{"frobnicate"}, "unknown command \"frobnicate\""},
        {{"call"}, "NAME is required"},
        {{"call", kFunction, "a", "b"}, "\"b\" is one argument too many"},
        {{"functions", "--nams"}, "unknown option \"--nams\" - did you mean --names?"},
        {{"--plugin"}, "--plugin"},
        {{"call", kFunction, "--volume", "X"}, "--volume"},
        {{"call", kFunction, "--volume", "=/tmp"}, "--volume"},
        {{"call", kFunction, "--volume", "A:B=/tmp"}, "A:B"},
        {{"call", kFunction, "--volume", "X=/no/such/folder"}, "/no/such/folder"},
        {{"call", kFunction, "--volume", "X=/tmp", "--volume", "X=/"}, "--volume"},
        {{"call", kFunction, "--signature", "ABC"}, "--signature"},
    };
    for (const auto& item : cases) {
        EXPECT_TRUE(fails(quil(item.arguments), 2, item.message)) << item.message;
    }
}

TEST(Program, TakesGlobalOptionsBeforeAndAfterTheCommand) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--volume", "X=/tmp", "--volume", "Y=/", "--signature", "ABCD", "call", kFunction,
                                   kScenario},
          {"call", "--volume", "X=/tmp", kFunction, "--application", "X:a", kScenario, "--applications", "X:b:"}}) {
        const Outcome outcome = quil(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.output, "1.9\n");
    }
}

TEST(Program, TakesVolumesFromTheEnvironment) {
    EXPECT_EQ(quil({"call", kFunction, kScenario}, {.environment = {{"QUIL_VOLUMES", "X=/tmp;Y=/"}}}).output, "1.9\n");
    const support::RunOptions wrong{.environment = {{"QUIL_VOLUMES", "X=/tmp;Y=/no/such"}}};
    EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, wrong), 1, "QUIL_VOLUMES"));
    EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, wrong), 1, "/no/such"));
    EXPECT_EQ(quil({"call", kFunction, kScenario, "--volume", "X=/"}, wrong).status, 0);  // the option wins
}

TEST_F(Bundle, IsTakenFromTheOptionOrTheEnvironment) {
    EXPECT_EQ(call().output, "1.9\n");
    const support::RunOptions named{.environment = {{"QUIL_PLUGIN", path_.string()}}};
    EXPECT_EQ(quil({"call", kFunction, kScenario}, named).output, "1.9\n");
    fs::remove_all(path_);
    EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, named), 1, path_.string()));
    EXPECT_EQ(quil({"call", kFunction, kScenario, "--plugin", kBundle}, named).output, "1.9\n");
}

TEST_F(Bundle, ThatIsMissingOrNoneIsTold) {
    fs::remove(library_);
    EXPECT_TRUE(fails(call(), 1, "has no library \"" + library_.string() + "\""));
    fs::remove_all(path_ / "Contents");
    EXPECT_TRUE(fails(call(), 1, "it has no folder Contents"));
    fs::remove_all(path_);
    EXPECT_TRUE(fails(call(), 1, "the plug-in bundle \"" + path_.string() + "\" does not exist"));
    EXPECT_TRUE(fails(quil({"functions", "--plugin", path_.string()}), 1, path_.string()));
    support::writeFile(path_, "a file");
    EXPECT_TRUE(fails(call(), 1, "is not a plug-in bundle"));
}

TEST_F(Bundle, ThatCannotBeReadIsTold) {
    fs::permissions(library_, fs::perms::none);
    EXPECT_TRUE(
        fails(call({.withoutOverride = true}), 1, "cannot read the plug-in library \"" + library_.string() + "\""));
    fs::permissions(path_, fs::perms::none);
    EXPECT_TRUE(fails(call({.withoutOverride = true}), 1, "cannot read the plug-in bundle \"" + path_.string() + "\""));
    fs::permissions(path_, fs::perms::owner_all);
}

TEST_F(Bundle, WithADamagedLibraryIsTold) {
    const std::string whole = support::readFile(library_);
    for (const std::string& text :
         {std::string(), std::string("no library"), whole.substr(0, 1000), whole.substr(0, whole.size() / 2)}) {
        support::writeFile(library_, text);
        EXPECT_TRUE(fails(call(), 1, "the plug-in library \"" + library_.string() + "\" cannot be loaded: "));
    }
    fs::remove(library_);
    fs::copy_file(QUIL_BINARY_DIR "/tests/no_plugin.so", library_);
    EXPECT_TRUE(fails(call(), 1, "it has no entry point FMExternCallProc"));
}

TEST_F(Bundle, WhosePlugInRefusesToStartIsTold) {
    exchangeLibrary();
    EXPECT_TRUE(
        fails(call({.environment = {{"ODD_PLUGIN_RESULT", "-1"}}}), 1, "refuses this host, which speaks version 60"));
    EXPECT_TRUE(fails(call({.environment = {{"ODD_PLUGIN_RESULT", "-2"}}}), 1, "could not start (result -2)"));
    EXPECT_TRUE(fails(call({.environment = {{"ODD_PLUGIN_RESULT", "0"}}}), 1, "could not start (result 0)"));
    EXPECT_TRUE(fails(call(), 1, "has not registered a function \"QUIL_External\""));
}

TEST_F(Bundle, WithoutStringsNamesTheMissingFile) {
    support::writeFile(strings_, "\"String1\" = ");
    EXPECT_TRUE(fails(call(), 1, strings_.string() + ": line 1"));
    fs::remove(strings_);
    EXPECT_TRUE(fails(call(), 1, "\"" + strings_.string() + "\" is missing"));
    fs::remove_all(path_ / "Contents/Resources");
    EXPECT_TRUE(fails(call(), 1, "\"" + strings_.string() + "\" is missing"));
    EXPECT_TRUE(fails(quil({"--version", "--plugin", path_.string()}), 1, strings_.string()));
    EXPECT_TRUE(fails(quil({"functions", "--plugin", path_.string()}), 1, "Functions.json"));
    EXPECT_TRUE(fails(quil({"help", kFunction, "--plugin", path_.string()}), 1, "Functions.json"));
}

TEST(Installation, RunsFromAnywhereAndCanBeMoved) {
    const support::TemporaryFolder folder;
    const std::string prefix = folder.file("first place");
    const Outcome install = support::run({"cmake", "--install", QUIL_BINARY_DIR, "--prefix", prefix});
    ASSERT_EQ(install.status, 0) << install.output << install.errors;
    EXPECT_TRUE(fs::exists(prefix + "/share/doc/quil/functions.md"));
    const std::string moved = folder.file("second");
    for (const std::string& place : {prefix, moved}) {
        if (place == moved) {
            fs::rename(prefix, moved);
        }
        const std::string program = place + "/bin/quil";
        // Nothing of the build may be needed; the map of the process tells what was loaded.
        const support::RunOptions elsewhere{.environment = {{"LD_DEBUG", "files"}}, .folder = "/"};
        const Outcome outcome = support::run({program, "call", kFunction, kScenario}, elsewhere);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, "1.9\n");
        EXPECT_EQ(outcome.errors.find(QUIL_BINARY_DIR), std::string::npos) << "the build folder was used";
        EXPECT_NE(outcome.errors.find("libquilplatform.so.1"), std::string::npos);
        EXPECT_EQ(support::run({program, "--version"}, {.folder = "/"}).output, quil({"--version"}).output);
        EXPECT_EQ(support::run({program, "functions"}, {.folder = "/tmp"}).output, quil({"functions"}).output);
    }
}

}  // namespace
