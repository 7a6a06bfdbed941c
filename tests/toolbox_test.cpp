#include "util/toolbox.h"

#include <gtest/gtest.h>

#include <string>

#include "support/machine_fixture.h"

namespace {

using platform::Rect;

class Toolbox : public support::MachineFixture {
  protected:
    char text[256] = "before";
    const std::string longText = std::string(300, 'x');
    const std::string cutText = std::string(255, 'x');
};

TEST(ToolboxText, ConvertsInPlaceBetweenTerminatedAndLengthPrefixed) {
    for (const std::size_t length : {0U, 1U, 254U, 255U, 256U, 400U}) {
        std::string buffer(length, 'a');
        buffer.resize(512);
        const unsigned char* counted = quil::my_c2pstr(buffer.data());
        const std::size_t kept = std::min<std::size_t>(length, 255);
        EXPECT_EQ(counted[0], kept);
        EXPECT_EQ(std::string(buffer, 1, kept), std::string(kept, 'a'));
        EXPECT_EQ(quil::my_p2cstr(reinterpret_cast<unsigned char*>(buffer.data())), std::string(kept, 'a'));
    }
}

TEST(ToolboxText, NumbersGoBothWays) {
    const std::pair<const char*, long> rows[] = {{nullptr, 0},      {"12", 12},
                                                 {"-7", -7},        {"+7", 7},
                                                 {"-", 0},          {"12ab", 12},
                                                 {" 1", 0},         {"2147483647", 2147483647},
                                                 {"4294967297", 1}, {"-2147483648", -2147483648L}};
    for (const auto& [digits, expected] : rows) {
        long number = 99;
        quil::my_stringtonum(digits, &number);
        EXPECT_EQ(number, expected);
    }
    for (const auto& [value, expected] :
         {std::pair{0L, "0"}, {-43L, "-43"}, {2147483647L, "2147483647"}, {-2147483648L, "-2147483648"}}) {
        char text[12];
        quil::my_numtostring(value, text);
        EXPECT_STREQ(text, expected);
    }
}

TEST_F(Toolbox, ControlsHaveATitleAndAState) {
    platform::DialogItem control;
    quil::my_setcontroltitle(control, "Save");
    quil::my_getcontroltitle(control, text);
    EXPECT_STREQ(text, "Save");
    quil::my_setcontroltitle(control, longText.c_str());
    EXPECT_EQ(control.text, cutText);
    quil::my_setcontroltitle(control, nullptr);
    EXPECT_EQ(control.text, "");
    EXPECT_TRUE(quil::MyIsControlEnabled(control));
    control.enabled = false;
    EXPECT_FALSE(quil::MyIsControlEnabled(control));
}

TEST_F(Toolbox, WindowsAreMadeNamedClippedAndInvalidated) {
    platform::WindowRef window = quil::mynewwindow({10, 20, 110, 220}, "Made", platform::userKind);
    ASSERT_NE(window, nullptr);
    quil::mygetwtitle(window, text);
    EXPECT_STREQ(text, "Made");
    quil::mysetwtitle(window, longText.c_str());
    quil::mygetwtitle(window, text);
    EXPECT_EQ(text, cutText);
    EXPECT_EQ(quil::MyGetWindowPortRect(window), (Rect{0, 0, 100, 200}));

    machine().windows().setClip(window, {1, 1, 2, 2});
    quil::ClipRectToWindowPortRect(window);
    EXPECT_EQ(window->clip, (Rect{0, 0, 100, 200}));
    quil::MyInvalWindowRect(window, {1, 2, 3, 4});
    EXPECT_EQ(window->invalid, (std::vector<Rect>{{1, 2, 3, 4}}));
    quil::MyValidWindowRect(window, {0, 0, 50, 50});
    EXPECT_TRUE(window->invalid.empty());
    quil::EraseWindowPortRect(window);
    quil::mydrawstring(window, {5, 5}, "text");
    const Rect screen = quil::MyGetQDScreenBitsBounds();
    EXPECT_EQ(screen, machine().windows().screenBounds());
    EXPECT_GT(screen.right, 0);
}

TEST_F(Toolbox, ANullWindowHasNoTitleAndNoArea) {
    quil::mygetwtitle(nullptr, text);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(quil::MyGetWindowPortRect(nullptr), Rect());
    quil::mysetwtitle(nullptr, "title");
    quil::ClipRectToWindowPortRect(nullptr);
    quil::EraseWindowPortRect(nullptr);
    quil::MyInvalWindowRect(nullptr, {});
    quil::MyValidWindowRect(nullptr, {});
    quil::mydrawstring(nullptr, {}, "text");
}

TEST_F(Toolbox, TextsAreMeasuredUpTo255Bytes) {
    EXPECT_EQ(quil::my_stringwidth(""), 0);
    EXPECT_EQ(quil::my_stringwidth(nullptr), 0);
    EXPECT_GT(quil::my_stringwidth("ab"), quil::my_stringwidth("a"));
    EXPECT_EQ(quil::my_stringwidth(longText.c_str()), quil::my_stringwidth(cutText.c_str()));
}

TEST_F(Toolbox, ParameterTextsStandForTheirMarks) {
    quil::my_paramtext("a", nullptr, "^0", longText.c_str());
    EXPECT_EQ(quil::withParamTexts("^0 ^1.^2 ^4 ^"), "a .^0 ^4 ^");
    EXPECT_EQ(quil::withParamTexts("^3"), cutText);
    quil::ResetToolbox();
    EXPECT_EQ(quil::withParamTexts("[^0^3]"), "[]");
}

TEST_F(Toolbox, MenusAreReadGrownAndSwitched) {
    machine().memoryMenus().setMenus({{5, {"Scripts", true, {{"GEOLENS", '1', true}}}}});
    quil::my_getmenutitle(5, text);
    EXPECT_STREQ(text, "Scripts");
    quil::my_getmenuitemtext(5, 1, text);
    EXPECT_STREQ(text, "GEOLENS");
    quil::my_appendmenu(5, longText.c_str());
    EXPECT_EQ(machine().menus().itemCount(5), 2);
    quil::my_getmenuitemtext(5, 2, text);
    EXPECT_EQ(text, cutText);
    quil::MyDisableMenuItem(5, 2);
    EXPECT_FALSE(machine().menus().itemEnabled(5, 2));
    EXPECT_TRUE(machine().menus().itemEnabled(5, 1));
    quil::MyEnableMenuItem(5, 2);
    EXPECT_TRUE(machine().menus().itemEnabled(5, 2));
    quil::my_getmenutitle(6, text);
    EXPECT_STREQ(text, "");
    quil::my_getmenuitemtext(5, 3, text);
    EXPECT_STREQ(text, "");
}

TEST_F(Toolbox, StringListsAnswerTheirEntriesOrNothing) {
    quil::my_getindstring(text, 144, 3);
    EXPECT_STREQ(text, "QUIL_External");
    for (const auto& [list, index] : {std::pair{144, 0}, {144, 4}, {144, -1}, {145, 1}}) {
        quil::my_getindstring(text, static_cast<short>(list), static_cast<short>(index));
        EXPECT_STREQ(text, "") << list << " " << index;
    }
}

TEST_F(Toolbox, FilesAreOpenedByClassicPath) {
    putFile("Work/a.txt", "content");
    platform::FileRef ref = 0;
    ASSERT_EQ(quil::my_fopen("Disk:Work:a.txt", platform::PosixMode::read, ref), 0);
    char bytes[7];
    std::size_t count = 0;
    EXPECT_EQ(machine().files().read(ref, bytes, count), 0);
    EXPECT_EQ(std::string(bytes, count), "content");
    EXPECT_EQ(machine().files().close(ref), 0);

    EXPECT_EQ(quil::my_fopen("Disk:Work:none.txt", platform::PosixMode::read, ref), platform::fnfErr);
    EXPECT_FALSE(isThere("Work/none.txt"));
    ASSERT_EQ(quil::my_fopen("Disk:Work:new.txt", platform::PosixMode::replace, ref), 0);
    EXPECT_EQ(machine().files().close(ref), 0);
    EXPECT_EQ(fileText("Work/new.txt"), "");
    EXPECT_EQ(quil::my_fopen("Disk:None:new.txt", platform::PosixMode::append, ref), platform::dirNFErr);
    EXPECT_EQ(ref, 0);
}

}  // namespace
