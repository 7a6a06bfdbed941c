// The program `quil` as it is built: texts, statuses and messages of its commands.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

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
    // The same bundle with a library of the tests in it.
    void exchangeLibrary(const std::string& name) {
        fs::remove(library_);
        fs::copy_file(QUIL_BINARY_DIR "/tests/" + name, library_);
    }

    support::TemporaryFolder folder_;
    const fs::path path_ = folder_.path() / "QUIL.fmplugin";
    const fs::path library_ = path_ / "Contents/Linux/QUIL.so";
    const fs::path strings_ = path_ / "Contents/Resources/English.lproj/Localizable.strings";
};

TEST(Call, PrintsTheResultAsLinesOrAsItIs) {
    const Outcome distance = quil({"call", kFunction, kScenario});
    EXPECT_EQ(distance.status, 0);
    EXPECT_EQ(distance.output, "1.9\n");
    EXPECT_EQ(distance.errors, "");
    std::string lines = quil({"call", "VSTAGetPlumePoints", kScenario, "--raw"}).output;
    std::replace(lines.begin(), lines.end(), '\r', '\n');
    EXPECT_EQ(quil({"call", "VSTAGetPlumePoints", kScenario}).output, lines + "\n");
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
    const std::string none = quil({"call", kFunction}).output;
    EXPECT_EQ(quil({"call", kFunction, "-"}, {.input = ""}).output, none);
    const std::string large(20'000'000, '|');  // three times what the plug-in converts
    const Outcome outcome = quil({"call", kFunction, "-"}, {.input = large});
    EXPECT_EQ(outcome.output, none);
    EXPECT_EQ(outcome.status, 1);
}

TEST(Call, TellsErrorsByItsStatus) {
    EXPECT_TRUE(fails(quil({"call", kFunction, "-"}, {.input = "\xC3\x80|\xFF"}), 1, "not a text in UTF-8"));
    EXPECT_TRUE(fails(quil({"call", kFunction, "\xED\xA0\x80"}), 1, "not a text in UTF-8"));
    EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, {.outputFile = "/dev/full"}), 1, "No space left on device"));
    const Outcome outcome = quil({"call", kFunction, "|||"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.starts_with("ERROR 2 ")) << outcome.output;
    EXPECT_TRUE(fails(quil({"call", kFunction, "-x|"}), 2, "put -- before a parameter"));
    EXPECT_EQ(quil({"call", kFunction, "--", "-x|"}).status, 1);
    EXPECT_EQ(quil({"call", kFunction, "-5|"}).status, 1);  // a number is no option
}

TEST(Call, SuggestsNamesForOneThatDoesNotExist) {
    const std::string words = "Function name does not match a supported function.";
    for (const char* name : {"VSTACalculatePlumeDistanc", "vstacalculateplumedistance"}) {
        const Outcome outcome = quil({"call", name, kScenario});
        EXPECT_TRUE(fails(outcome, 1, "did you mean VSTACalculatePlumeDistance?")) << name;
        EXPECT_EQ(outcome.output, words + "\n");
    }
    for (const std::string& name : {std::string("\xFF"), std::string(), std::string(100'000, 'a')}) {
        EXPECT_TRUE(fails(quil({"call", name}), 1, "no script function is named"));
    }
    const Outcome echo = quil({"call", "VSTA_StripCharsIllegalInXML", words});
    EXPECT_EQ(echo.status, 0) << "the same words as a result: " << echo.errors;
    EXPECT_EQ(echo.output, words + "\n");
}

TEST(Functions, AreListedInDispatchOrder) {
    std::string names;
    std::string vsta;
    for (const quil::Row* row : quil::DispatchTable()) {
        names += row->name + std::string("\n");
        vsta += row->module == std::string_view("VSTA") ? "." : "";
    }
    EXPECT_EQ(quil({"functions", "--names"}).output, names);
    const std::string listed = quil({"functions", "VSTA"}).output;
    EXPECT_EQ(static_cast<std::size_t>(std::count(listed.begin(), listed.end(), '\n')), vsta.size());
    EXPECT_EQ(quil({"functions", "vsta"}).output, listed);
    EXPECT_TRUE(fails(quil({"functions", "VST"}), 2, "VSTA"));
}

TEST(Help, ExplainsFunctionsCommandsAndTheProgram) {
    const quil::Row& row = *quil::DispatchTable().front();
    const std::string text = quil({"help", row.name}).output;
    EXPECT_TRUE(text.starts_with(row.name));
    EXPECT_NE(text.find(row.summary), std::string::npos);
    const std::string general = quil({"help"}).output;
    for (const char* command : {"call", "functions", "help", "rpc", "screen"}) {
        EXPECT_NE(general.find(std::string("\n  ") + command), std::string::npos) << command;
        EXPECT_EQ(quil({"help", command}).output, quil({command, "--help"}).output);
    }
    EXPECT_EQ(general, quil({"--help"}).output);
    EXPECT_TRUE(fails(quil({"help", "VSTAGetPlumePoint"}), 1, "did you mean VSTAGetPlumePoints?"));
    const std::string nested = quil({"help", "sets", "combine"}).output;
    EXPECT_NE(nested.find("EXPRESSION"), std::string::npos);
    EXPECT_EQ(nested, quil({"sets", "combine", "--help"}).output);
    EXPECT_TRUE(fails(quil({"help", "sets", "split"}), 2, "\"sets\" has no command \"split\""));
    EXPECT_TRUE(fails(quil({"help", "VSTANewID", "x"}), 2, "\"VSTANewID\" has no command"));
    const std::string page = support::readFile(QUIL_BINARY_DIR "/help/quil-sets.1");
    for (const char* part : {"\\fBcombine\\fR \\fIEXPRESSION\\fR \\fIFILE\\fR...\n", "the pairs come first",
                             "\\fBEXPRESSION\\fR\nFor example", "\\fBFILE\\fR\nOne to four lists"}) {
        EXPECT_NE(page.find(part), std::string::npos) << part;
    }
}

TEST(Program, PrintsThePlugInsVersion) {
    const Outcome outcome = quil({"--version"});
    ASSERT_GT(outcome.output.size(), 1U) << outcome.errors;
    const std::string strings = support::readFile(QUIL_SOURCE_DIR "/resources/English.lproj/Localizable.strings");
    EXPECT_NE(strings.find("\"String3\" = \"" + outcome.output.substr(0, outcome.output.size() - 1) + "\";"),
              std::string::npos);
}

TEST(Program, RefusesWrongUsageWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "name a command"},
        {{"cal"}, "unknown command \"cal\" - did you mean call?"},
        {{"call"}, "NAME is required"},
        {{"call", kFunction, "a", "b"}, "\"b\" is one argument too many"},
        {{"functions", "--nams"}, "unknown option \"--nams\" - did you mean --names?"},
        {{"--plugin"}, "--plugin"},
        {{"call", kFunction, "--volume", "X"}, "--volume"},
        {{"call", kFunction, "--volume", "A:B=/tmp"}, "A:B"},
        {{"call", kFunction, "--volume", "X=/no/such/folder"}, "/no/such/folder"},
        {{"call", kFunction, "--volume", "X=/tmp", "--volume", "X=/"}, "--volume"},
        {{"call", kFunction, "--signature", "ABC"}, "--signature"}};
    for (const auto& [arguments, message] : cases) {
        EXPECT_TRUE(fails(quil(arguments), 2, message)) << message;
    }
}

TEST(Program, TakesGlobalOptionsAnywhereAndVolumesFromTheEnvironment) {
    EXPECT_EQ(quil({"--volume", "X=/tmp", "--volume", "Y=/", "--signature", "ABCD", "call", kFunction, "--application",
                    "X:a", kScenario, "--applications", "X:b:"})
                  .output,
              "1.9\n");
    EXPECT_EQ(quil({"call", kFunction, kScenario}, {.environment = {{"QUIL_VOLUMES", "X=/tmp;Y=/"}}}).output, "1.9\n");
    const support::RunOptions wrong{.environment = {{"QUIL_VOLUMES", "X=/tmp;Y=/no/such"}}};
    for (const char* message : {"QUIL_VOLUMES", "/no/such"}) {
        EXPECT_TRUE(fails(quil({"call", kFunction, kScenario}, wrong), 1, message));
    }
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

TEST_F(Bundle, ThatIsMissingNoneOrUnreadableIsTold) {
    fs::permissions(library_, fs::perms::none);
    const support::RunOptions plain{.withoutOverride = true};
    EXPECT_TRUE(fails(call(plain), 1, "cannot read the plug-in library \"" + library_.string() + "\""));
    fs::permissions(path_, fs::perms::none);
    EXPECT_TRUE(fails(call(plain), 1, "cannot read the plug-in bundle \"" + path_.string() + "\""));
    fs::permissions(path_, fs::perms::owner_all);
    fs::remove(library_);
    EXPECT_TRUE(fails(call(), 1, "has no library \"" + library_.string() + "\""));
    fs::remove_all(path_ / "Contents");
    EXPECT_TRUE(fails(call(), 1, "it has no folder Contents"));
    fs::remove_all(path_);
    EXPECT_TRUE(fails(call(), 1, "the plug-in bundle \"" + path_.string() + "\" does not exist"));
    support::writeFile(path_, "a file");
    EXPECT_TRUE(fails(call(), 1, "is not a plug-in bundle"));
}

TEST_F(Bundle, WithADamagedOrForeignLibraryIsTold) {
    const std::string whole = support::readFile(library_);
    for (const std::string& text : {std::string(), std::string("no library"), whole.substr(0, whole.size() / 2)}) {
        support::writeFile(library_, text);
        EXPECT_TRUE(fails(call(), 1, "the plug-in library \"" + library_.string() + "\" cannot be loaded: "));
    }
    exchangeLibrary("no_plugin.so");
    EXPECT_TRUE(fails(call(), 1, "it has no entry point FMExternCallProc"));
    exchangeLibrary("odd_plugin.so");
    for (const auto& [result, message] : {std::pair{"-1", "refuses this host, which speaks version 60"},
                                          {"-2", "could not start (result -2)"},
                                          {"0", "could not start (result 0)"},
                                          {"52", "has not registered a function \"QUIL_External\""}}) {
        EXPECT_TRUE(fails(call({.environment = {{"ODD_PLUGIN_RESULT", result}}}), 1, message));
    }
}

TEST_F(Bundle, WithoutStringsNamesTheMissingFile) {
    support::writeFile(strings_, "\"String1\" = ");
    EXPECT_TRUE(fails(call(), 1, strings_.string() + ": line 1"));
    fs::remove(strings_);
    EXPECT_TRUE(fails(call(), 1, "\"" + strings_.string() + "\" is missing"));
    fs::remove_all(path_ / "Contents/Resources");
    EXPECT_TRUE(fails(quil({"--version", "--plugin", path_.string()}), 1, strings_.string()));
    EXPECT_TRUE(fails(quil({"functions", "--plugin", path_.string()}), 1, "Functions.json"));
}

TEST(Installation, RunsFromAnywhereAfterItWasMoved) {
    const support::TemporaryFolder folder;
    const std::string prefix = folder.file("first place");
    const Outcome install = support::run({"cmake", "--install", QUIL_BINARY_DIR, "--prefix", prefix});
    ASSERT_EQ(install.status, 0) << install.output << install.errors;
    const std::string moved = folder.file("second");
    fs::rename(prefix, moved);
    EXPECT_TRUE(fs::exists(moved + "/share/doc/quil/functions.md"));
    // Nothing of the build may be needed; the loader tells what it took.
    const support::RunOptions elsewhere{.environment = {{"LD_DEBUG", "files"}}, .folder = "/"};
    const Outcome outcome = support::run({moved + "/bin/quil", "call", kFunction, kScenario}, elsewhere);
    EXPECT_EQ(outcome.output, "1.9\n");
    EXPECT_EQ(outcome.errors.find(QUIL_BINARY_DIR), std::string::npos) << "the build folder was used";
    EXPECT_NE(outcome.errors.find("libquilplatform.so.1"), std::string::npos);
    EXPECT_EQ(support::run({moved + "/bin/quil", "functions"}, {.folder = "/"}).output, quil({"functions"}).output);
}

}  // namespace
