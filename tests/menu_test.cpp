// Magic menu items, double clicks and windows that want to stay in front.
#include "menu/menu.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/entry.h"
#include "frame/modules.h"
#include "menu/menu_items.h"
#include "messaging/globals.h"
#include "messaging/script_queue.h"
#include "support/failing_allocator.h"
#include "support/script_calls.h"

namespace {

using Texts = std::vector<std::string>;

class Menu : public support::ScriptFixture {
  protected:
    void SetUp() override { quil::Startup(); }
    void TearDown() override { quil::Shutdown(); }

    void setMenu(std::int16_t id, const std::string& title, const Texts& items) {
        platform::Menu menu;
        menu.title = title;
        for (const std::string& item : items) {
            menu.items.push_back({.text = item});
        }
        machine().memoryMenus().setMenu(id, menu);
    }
    static std::string magicItem() {
        quil::MenuItemInfo info;
        char name[quil::kMenuTextSize];
        const bool found = quil::GetMagicMenuItem(&info, name);
        EXPECT_EQ(found, name[0] != 0);
        return name[0] == 0 ? "" : name + (" " + std::to_string(info.menuID)) + " " + std::to_string(info.item);
    }
    // The scripts that wait, taken off the queue.
    static Texts queued() {
        Texts scripts;
        for (auto& slot : quil::gDeferredScript) {
            if (slot[0] != 0) {
                scripts.emplace_back(slot);
                slot[0] = 0;
            }
        }
        return scripts;
    }
    void click(std::uint32_t ticks, platform::Point where, const std::string& parameter) {
        machine().state().ticks = ticks;
        machine().state().mouse = where;
        EXPECT_EQ("", script(quil::MENU_WatchForDoubleClick, parameter));
    }
};

TEST_F(Menu, FindTheMagicItemInItsOrder) {
    EXPECT_EQ("", magicItem());
    setMenu(2, "Scripts", {"First", "***"});
    EXPECT_EQ("*** 2 2", magicItem());
    setMenu(7, "SCRIPT", {"Geolens..."});
    EXPECT_EQ("GEOLENS 7 1", magicItem());
    setMenu(9, "&HBT", {"***", "&GEOLENS"});
    EXPECT_EQ("GEOLENS 9 2", magicItem());
    script(quil::MENU_SetMenuHandlingScript, "Tools|First");
    EXPECT_EQ("First 2 1", magicItem()) << "in the menu Scripts";
    setMenu(29, "&Tools", {"-", "fi&rst..."});
    EXPECT_EQ("First 29 2", magicItem());
    setMenu(3, "Tools", {"Other"});
    EXPECT_EQ("First 2 1", magicItem()) << "the first menu of the title counts";
    script(quil::MENU_SetMenuHandlingScript, "Tools|" + std::string(70, 'x'));
    setMenu(3, "Tools", {std::string(300, 'X')});
    EXPECT_EQ(std::string(63, 'x') + " 3 1", magicItem()) << "texts are cut at 63";
    script(quil::MENU_SetMenuHandlingScript, "|none");
    EXPECT_EQ("GEOLENS 9 2", magicItem());
    setMenu(0, "Scripts", {"none"});
    setMenu(30, "Script", {"none"});
    EXPECT_EQ("GEOLENS 9 2", magicItem()) << "menus 1 to 29 alone";
    EXPECT_TRUE(alerts().empty());
    script(quil::MENU_SetMenuHandlingScript, "none");
    EXPECT_EQ(Texts{"Vertical bar expected in MENU_SetMenuHandlingScript parameter\r\r"}, alerts());
}

TEST_F(Menu, HitTheMagicItemOrTheStarsAlone) {
    bool hit = true;
    bool queuedFlag = true;
    EXPECT_FALSE(quil::HitMagicMenuIfItExists("text", &hit, &queuedFlag));
    EXPECT_FALSE(hit || queuedFlag);
    setMenu(1, "Scripts", {"GEOLENS"});
    EXPECT_FALSE(quil::HitStarStarStarScriptIfItExists("text", &hit, &queuedFlag));
    setMenu(1, "Scripts", {"GEOLENS", "***"});
    EXPECT_TRUE(quil::HitStarStarStarScriptIfItExists(std::string(70, 't').c_str(), &hit, &queuedFlag));
    EXPECT_TRUE(hit && queuedFlag);
    EXPECT_EQ(std::string(63, 't'), script(quil::MENU_GetInterceptedMenuItemString, ""));
    EXPECT_EQ("", script(quil::MENU_GetInterceptedMenuItemString, "")) << "read once";
    EXPECT_TRUE(quil::HitMagicMenuIfItExists("", &hit, &queuedFlag));
    EXPECT_EQ((Texts{"***", "GEOLENS"}), queued());

    char charCode = 1;
    char virtualKey = 1;
    char name[quil::kMenuTextSize];
    for (const auto& [key, code, virtualCode] :
         {std::tuple{'7', '7', 26}, std::tuple{'0', '0', 29}, std::tuple{'A', '\0', 0}}) {
        platform::Menu menu;
        menu.title = "HBT";
        menu.items.push_back({.text = "GEOLENS", .commandKey = key});
        machine().memoryMenus().setMenu(4, menu);
        EXPECT_TRUE(quil::GetMacMagicMenuItemCharCodeAndVirtualKeyCharAndItemName(&charCode, &virtualKey, name));
        EXPECT_EQ(code, charCode);
        EXPECT_EQ(virtualCode, virtualKey);
    }
}

TEST_F(Menu, DecideOnDoubleClicksByTheirExactLimits) {
    const struct {
        std::uint32_t second;
        platform::Point where;
        const char *first, *then;
        bool recognised;
    } cases[] = {
        {1010, {100, 100}, "f|x", "f|x", true},   {1039, {100, 100}, "f|x", "f|x", true},
        {1040, {100, 100}, "f|x", "f|x", false},  {999, {100, 100}, "f|x", "f|x", false},
        {1010, {114, 86}, "f|x", "f|x", true},    {1010, {115, 100}, "f|x", "f|x", false},
        {1010, {100, 85}, "f|x", "f|x", false},   {1010, {100, 100}, "f|x", "f|y", false},
        {1010, {100, 100}, "f|", "f|", false},    {1010, {100, 100}, "f", "f", false},
        {1010, {100, 100}, "f|x|", "f|x", false}, {1010, {100, 100}, "f|x", "other|x", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.second) + " " + c.then + " " + std::to_string(c.where.v));
        quil::ResetMenu();
        click(1000, {100, 100}, c.first);
        EXPECT_EQ(Texts(), queued());
        click(c.second, c.where, c.then);
        EXPECT_EQ(c.recognised ? Texts{"***"} : Texts(), queued());
        EXPECT_EQ(c.recognised ? "x" : "", script(quil::MENU_GetDoubleClickString, ""));
        EXPECT_EQ("", script(quil::MENU_GetDoubleClickString, ""));
    }
    quil::ResetMenu();
    const std::string message(255, 'm');
    click(1000, {}, "f|" + message + "1");
    click(1001, {}, "f|" + message + "2");
    EXPECT_EQ(message.substr(0, 63), script(quil::MENU_GetDoubleClickString, "")) << "compared when cut to 255";
    click(1002, {}, "f|x");
    EXPECT_EQ(Texts{"***"}, queued()) << "a third click begins anew";
    click(1003, {}, "f|x");
    setMenu(1, "Scripts", {"GEOLENS"});
    EXPECT_EQ(Texts{"***"}, queued());
}

TEST_F(Menu, KeepAFoundMessageThreeSecondsWhileItsKeyIsWatched) {
    for (const auto& [watched, at, kept] : {std::tuple{"x", 1181U, true}, std::tuple{"x", 1182U, false},
                                            std::tuple{"y", 1003U, false}, std::tuple{"x|z", 1003U, true}}) {
        quil::ResetMenu();
        click(1000, {}, "f|x");
        click(1001, {}, "f|x");
        EXPECT_TRUE(quil::HaveDoubleClickString());
        click(at, {}, watched);
        EXPECT_EQ(kept, quil::HaveDoubleClickString()) << watched << " " << at;
    }
}

TEST_F(Menu, LetTheMessageScriptRunWhileAFoundMessageIsUnread) {
    script(quil::GLN1SetGlobal, "Handle Message Script|Handle");
    click(1000, {}, "f|x");
    click(1001, {}, "f|x");
    Texts asked;
    const auto idle = [&] {
        quil::DoQuilIdleTasks();
        for (const std::string& name : effects().scripts) {
            asked.push_back(name);
        }
    };
    idle();
    idle();
    script(quil::MENU_GetDoubleClickString, "");
    idle();
    EXPECT_EQ((Texts{"***", "Handle"}), asked);
}

TEST_F(Menu, EnforceAWindowOnceAfterTwoPassesWithAnother) {
    setMenu(1, "Scripts", {"GEOLENS", "***"});
    const auto front = [this](const std::string& title) {
        platform::WindowRecord window;
        window.title = title;
        machine().memoryWindows().setWindows({window});
        quil::MENU_Plugin_Idle();
        return queued();
    };
    EXPECT_EQ(Texts(), front("Report"));
    script(quil::MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement, "Main.fp7");
    EXPECT_EQ(Texts(), front("Main"));
    EXPECT_EQ(Texts(), front("Report")) << "the first pass lets windows settle";
    EXPECT_EQ(Texts(), front("Main.x"));
    EXPECT_EQ(Texts(), front("Main.html")) << "too long for an extension";
    script(quil::MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement, "Main.fp7");
    EXPECT_EQ(Texts(), front("Report")) << "counted anew";
    EXPECT_EQ(Texts{"***"}, front("Report"));
    EXPECT_EQ(Texts(), front("Report")) << "once";
    EXPECT_EQ(Texts(), front("Report"));
    quil::gUserIsQuiting = 1;
    script(quil::MENU_SetWindowTitleOfWindowRequestingModalDialogEnforcement, "Main");
    EXPECT_EQ(Texts(), front("Report"));
    EXPECT_EQ(Texts(), front("Report"));
}

TEST_F(Menu, ReadTheMouseWheelSwitchAndSurviveWantOfMemory) {
    for (const auto& [text, value] : {std::pair{"true", 1}, std::pair{"yes", 0}, std::pair{"1", 1}, std::pair{"", 0}}) {
        script(quil::MENU_DisableMouseWheel, text);
        EXPECT_EQ(value, quil::gDisableMouseWheel) << text;
    }
    quil::ResetMenu();
    support::FailingAllocator memory;
    memory.failCall(3);  // the first two are the parameter's and the result's handles and blocks
    script(quil::MENU_ResetMenuItems, "");
    EXPECT_EQ(Texts{"GetMyGlobalsHandleNotInPatch returned nil\r\r"}, alerts());
    script(quil::MENU_ResetMenuItems, "");
    EXPECT_TRUE(alerts().empty());
    quil::ResetMenu();
}

}  // namespace
