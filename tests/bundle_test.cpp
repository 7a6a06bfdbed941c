// Strings files and bundles on disk.
#include "platform/bundle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/process.h"

using namespace platform;
namespace fs = std::filesystem;
using std::string;
using std::literals::string_literals::operator""s;

namespace {

TEST(StringsFiles, EntriesEscapesAndCommentsAreRead) {
    const std::pair<string, StringsTable> cases[] = {
        {"", {}},
        {"\xEF\xBB\xBF/* a */ // b \"x\" = \"y\";\r\n", {}},
        {"\"a\" = \"b\";", {{"a", u"b"}}},
        {"\"a\"=\"b\";\"c\"\r=\n/* = */\t\"d\" // ;\n;", {{"a", u"b"}, {"c", u"d"}}},
        {R"("k\"\\" = "\n\r\t\U20AC\U0041;";)", {{"k\"\\", u"\n\r\t\u20ACA;"}}},
        {R"("\U00e9" = "\UD83D\UDE00";)", {{"\xC3\xA9", u"\U0001F600"}}},
        {"\"\" = \"\xF0\x9F\x98\x80 two\nlines\";", {{"", u"\U0001F600 two\nlines"}}},
        {"\"a\" = \"1\"; \"a\" = \"2\";", {{"a", u"2"}}},
    };
    for (const auto& [text, expected] : cases) {
        StringsTable table{{"left", u"over"}};
        EXPECT_EQ(parseStrings(text, table), "");
        EXPECT_EQ(table, expected) << text;
    }
}

TEST(StringsFiles, DamageIsToldWithItsLineAndLeavesNothing) {
    const string escape = R"(line 1: unknown escape; there are \" \\ \n \r \t and \Uxxxx)";
    const std::pair<string, string> cases[] = {
        {"\"a\" = \"b\"", "line 1: expected ';'"},
        {"\"a\" = \"b\";\r\n\r\n\"c\"", "line 3: expected '='"},
        {"\"a\" = \"b\";\r\"c\" = d;", "line 2: expected a value in quotes"},
        {"a = \"b\";", "line 1: expected a key in quotes"},
        {"\n\"a\" = \"b;\n\n", "line 2: a text is not closed"},
        {"\"a\" = \"b\";\n/* x\n", "line 2: a comment is not closed"},
        {"\"a\" = \"b\\", escape},
        {"\"a\" = \"\\x\";", escape},
        {"\"a\" = \"\\U12G4\";", escape},
        {"\"a\" = \"\\UDE00\";", "line 1: half of a surrogate pair"},
        {"\"a\\UD83D\" = \"\";", "line 1: half of a surrogate pair"},
        {"\"a\" = \"\xC0\x80\";", "line 1: not UTF-8"},
        {"\"a\" = \"\xED\xA0\x80\";", "line 1: not UTF-8"},
        {"\0"s, "line 1: expected a key in quotes"},
        {string((4 << 20) + 1, ' '), "line 1: larger than 4 MiB"},
    };
    for (const auto& each : cases) {
        StringsTable table{{"left", u"over"}};
        EXPECT_EQ(parseStrings(each.first, table), each.second) << each.first.substr(0, 40);
        EXPECT_TRUE(table.empty());
    }
    StringsTable table;
    EXPECT_EQ(parseStrings(string(4 << 20, ' '), table), "");
}

class BundleTest : public testing::Test {
  protected:
    BundleTest() : strings_(folder_.path() / "Contents/Resources/English.lproj") { fs::create_directories(strings_); }

    std::unique_ptr<Bundle> open() {
        string error;
        auto bundle = openBundle(folder_.path().string(), error);
        EXPECT_NE(bundle, nullptr) << error;
        return bundle;
    }

    support::TemporaryFolder folder_;
    fs::path strings_;
};

TEST_F(BundleTest, ADamagedFileIsLeftOutAndTheOthersServe) {
    support::writeFile(strings_ / "Localizable.strings", "\"String1\" = \"QUIL\";");
    support::writeFile(strings_ / "Broken.strings", "\n\"a\" = ");
    support::writeFile(strings_ / "Large.strings", string((4 << 20) + 1, ' '));
    support::writeFile(strings_ / "Other.txt", "not strings");
    ASSERT_EQ(::mkfifo((strings_ / "Pipe.strings").c_str(), 0666), 0);
    const auto bundle = open();
    EXPECT_EQ(bundle->problems, strings_.string() + "/Broken.strings: line 2: expected a value in quotes\n" +
                                    strings_.string() + "/Large.strings: larger than 4 MiB\n" + strings_.string() +
                                    "/Pipe.strings: not a file\n");
    ASSERT_EQ(bundle->tables.size(), 1u);
    const auto resources = makeBundleResources();
    EXPECT_EQ(resources->localizedString(bundle.get(), "String1", "Localizable"), u"QUIL");
    EXPECT_EQ(resources->localizedString(bundle.get(), "String9", "Localizable"), u"String9");
    EXPECT_EQ(resources->localizedString(bundle.get(), "String1", "None"), u"String1");
    EXPECT_EQ(resources->localizedString(nullptr, "\xF0\x9F\x98\x80\x8E", "Localizable"), u"\U0001F600\u00E9");
}

TEST_F(BundleTest, ABundleWithoutStringsIsOpenAndAMissingOneIsNot) {
    fs::remove_all(folder_.path() / "Contents");
    EXPECT_EQ(open()->problems, "");
    string error;
    EXPECT_EQ(openBundle(folder_.file("none"), error), nullptr);
    EXPECT_EQ(error, folder_.file("none") + ": No such file or directory");
    support::writeFile(folder_.path() / "file", "");
    EXPECT_EQ(openBundle(folder_.file("file"), error), nullptr);
    EXPECT_EQ(error, folder_.file("file") + ": Not a directory");
}

TEST_F(BundleTest, StringListsVersionsAndDialogsComeFromTheBundleInUse) {
    support::writeFile(strings_ / "StringLists.strings", "\"144.3\" = \"QUIL_External\"; \"-1.1\" = \"caf\xC3\xA9\";");
    support::writeFile(strings_ / "Versions.strings",
                       R"("1.numeric" = "12.3.4 beta 5"; "1.region" = "2"; "1.short" = "12.3.4b5"; "1.long" = "QUIL";
                          "2.numeric" = "1.0"; "3.numeric" = "1.0.0 gold 0"; "4.numeric" = "100.0.0 final 0";
                          "5.numeric" = "1.0.0 final 256"; "6.numeric" = "1.0.0 final 0"; "6.region" = "far";)");
    support::writeFile(strings_ / "Dialogs.strings",
                       R"("9.bounds" = "200 200 290 600"; "9.1" = "button 60 270 80 350"; "9.2" = "empty 0 0 0 0";
                          "9.3" = "user 50 20 50 380"; "9.4" = "icon -10 30 42 62"; "9.5" = "text 15 80 35 240";
                          "9.7" = "button 1 2 3 4"; "10.bounds" = "1 2 3 4"; "11.bounds" = "1 2 3 4"; "11.1" = "knob 1 2 3 4";
                          "12.bounds" = "1 2 3"; "12.1" = "button 1 2 3 4"; "13.bounds" = "1 2 3 40000"; "13.1" = "empty 0 0 0 0";)");
    const auto bundle = open();
    EXPECT_EQ(bundle->problems, "");
    const auto resources = makeBundleResources();
    VersionResource version;
    Dialog dialog;
    EXPECT_EQ(resources->indexedString(144, 3), "");
    EXPECT_EQ(resources->version(1, version), resNotFound);
    EXPECT_EQ(resources->dialogLayout(9, dialog), resNotFound);

    EXPECT_EQ(resources->useBundle(bundle.get()), nullptr);
    EXPECT_EQ(resources->indexedString(144, 3), "QUIL_External");
    EXPECT_EQ(resources->indexedString(-1, 1), "caf\xC3\xA9");
    EXPECT_EQ(resources->indexedString(144, 4), "");
    ASSERT_EQ(resources->version(1, version), noErr);
    const int numeric[] = {0x12, 0x34, 0x60, 5};
    EXPECT_TRUE(std::equal(std::begin(numeric), std::end(numeric), version.numeric));
    EXPECT_EQ(version.region, 2);
    EXPECT_EQ(version.shortVersion, "12.3.4b5");
    EXPECT_EQ(version.longVersion, "QUIL");
    for (std::int16_t damaged : std::initializer_list<std::int16_t>{2, 3, 4, 5, 6, 7}) {
        EXPECT_EQ(resources->version(damaged, version), resNotFound) << damaged;
    }
    ASSERT_EQ(resources->dialogLayout(9, dialog), noErr);
    EXPECT_EQ(dialog.bounds, (Rect{200, 200, 290, 600}));
    ASSERT_EQ(dialog.items.size(), 5u);  // up to the first number that is missing
    EXPECT_EQ(dialog.items[0].rect, (Rect{60, 270, 80, 350}));
    EXPECT_EQ(dialog.items[3].rect.top, -10);
    const ItemKind kinds[] = {ItemKind::button, ItemKind::empty, ItemKind::user, ItemKind::icon, ItemKind::staticText};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(dialog.items[i].kind, kinds[i]);
        EXPECT_EQ(dialog.items[i].enabled, i == 0);
    }
    for (std::int16_t damaged : std::initializer_list<std::int16_t>{10, 11, 12, 13, 14}) {
        EXPECT_EQ(resources->dialogLayout(damaged, dialog), resNotFound) << damaged;
    }
    EXPECT_EQ(dialog.items.size(), 5u);
    EXPECT_EQ(resources->useBundle(nullptr), bundle.get());
}

TEST(OwnBundle, ItsStringsFilesAreWhole) {
    for (const auto& entry : fs::directory_iterator(QUIL_SOURCE_DIR "/resources/English.lproj")) {
        StringsTable table;
        EXPECT_EQ(parseStrings(support::readFile(entry.path()), table), "") << entry.path();
        EXPECT_FALSE(table.empty()) << entry.path();
    }
}

}  // namespace
