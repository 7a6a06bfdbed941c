// Messages between the plug-in and partner applications: what is sent and in which encoding, what arrives and waits,
// the table of friends, the standard behaviours, launching, and the script functions over them.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "frame/modules.h"
#include "messaging/friends.h"
#include "messaging/named_lists.h"
#include "messaging/transport.h"
#include "platform/machine.h"
#include "support/script_calls.h"

namespace {

using quil::operator""_4;
using Texts = std::vector<std::string>;
using Parameters = std::vector<std::pair<std::string, std::string>>;

class Messaging : public support::ScriptFixture {
  protected:
    void SetUp() override { quil::GLN1_Plugin_Startup(); }
    void TearDown() override { quil::GLN1_Plugin_Shutdown(); }

    static std::string call(const char* name, std::string_view parameter = "") {
        return script(quil::FindRow(name)->handler, parameter);
    }
    void run(Texts signatures) {
        machine().state().running.clear();
        for (const std::string& signature : signatures) {
            machine().state().running.push_back({quil::StringToOSType(signature.c_str()), "Disk:Apps:" + signature});
        }
    }
    int deliver(const Parameters& parameters) {
        platform::Event event{"QUIL"_4, "AEVT"_4, "FMP7"_4, {}};
        for (const auto& [key, text] : parameters) {
            event.parameters.push_back({quil::StringToOSType(key.c_str()), "TEXT"_4, text, false});
        }
        return machine().deliver(event);
    }
    // What was sent since the last call: "receiver: keyword=value ..." with its parameters in wire order.
    static Texts lines(const platform::Effects& effects) {
        Texts lines;
        for (const platform::Event& event : effects.sent) {
            char code[5];
            quil::OSTypeToString(event.target, code);
            std::string line = code + std::string(":");
            for (const platform::EventParameter& parameter : event.parameters) {
                quil::OSTypeToString(parameter.keyword, code);
                line += std::string(" ") + code + "=" + parameter.data;
            }
            lines.push_back(line);
        }
        return lines;
    }
    Texts sent() { return lines(effects()); }
    // The names of the messages that were sent.
    Texts sentNames() {
        Texts names;
        for (const std::string& line : sent()) {
            names.push_back(line.substr(0, 4) + " " + line.substr(11, 4));
        }
        return names;
    }
    // Reads all waiting messages and tells their names.
    static std::string takeMessageNames() {
        std::string names;
        for (std::string name = call("GLN1GetNextMessage"); !name.empty(); name = call("GLN1GetNextMessage")) {
            names += name + " ";
        }
        return names;
    }
};

TEST_F(Messaging, CompleteAndOrderTheParametersOfAMessage) {
    run({"ABCD"});
    call("GLN1SetParameter", "NAME|a|b");
    call("GLN1SetParameter", "ID|7");
    call("GLN1SetParameter", "MSSG|TEST");
    call("GLN1AppendToParameter", "IDS |NODUPES|one\rtwo");
    call("GLN1AppendToParameter", "IDS |NODUPES|two\rthree");
    EXPECT_EQ("", call("GLN1SendMessageTo", "ABCD"));
    EXPECT_EQ(Texts{"ABCD: MSSG=TEST SIGN=FMP7 PSIG=FMP7 XTRA= ID  =7 NAME=a|b NCOD=macRoman IDS =one\rtwo\rthree\r"},
              sent());
    EXPECT_EQ(0, quil::NumDataItemsInList(quil::gOutgoingUserMessageParameterDataNodeList));

    call("GLN1SetSIGNPSIG", "OTHR|VST");
    call("GLN1SetParameter", "MSSG|HOLA");
    call("GLN1SendMessageTo", "ABCD");
    EXPECT_EQ(Texts{"ABCD: MSSG=HOLA SIGN=FMP7 PSIG=VST  XTRA= NCOD=utf-8"}, sent()) << "a greeting of an unknown";
    call("GLN1SetParameter", "NAME|x");
    call("GLN1SendMessageTo", "ABCD");
    EXPECT_EQ(1U, alerts().size()) << "no MSSG";
    call("GLN1SetParameter", "no bar");
    EXPECT_EQ(1U, alerts().size());
}

TEST_F(Messaging, ConvertToWhatTheReceiverReads) {
    run({"GLN1"});
    const auto send = [this](const std::string& text) {
        call("GLN1SetParameter", "MSSG|TEST");
        call("GLN1SetParameter", "NAME|" + text);
        call("GLN1SendMessageTo", "GLN1");
        const auto parameters = effects().sent.at(0).parameters;
        return parameters.at(4).data + "/" + parameters.at(5).data;
    };
    EXPECT_EQ("\x8E/macRoman", send("\xC3\xA9"));
    EXPECT_EQ("/macRoman", send("\xE4\xB8\xAD")) << "no such character";
    call("GLN1SetKnownFriend", "GLN1|Disk:Apps:GEOLENS Server");
    EXPECT_EQ("\x8E/macRoman", send("\xC3\xA9")) << "a new friend is not known to read UTF-8";
    call("GLN1SetKnownFriend", "GLN1|Disk:Apps:GEOLENS Server");
    EXPECT_EQ("\xC3\xA9/utf-8", send("\xC3\xA9"));
    EXPECT_EQ("\xC3\xA9/utf-8", send("\x8E")) << "what is not UTF-8 is Mac Roman";
    EXPECT_EQ("True", call("GLN1GeolensCanAutoplot", "Disk:GEOLENS"));
}

TEST_F(Messaging, KeepArrivingMessagesAsUtf8) {
    EXPECT_EQ(platform::errAEEventNotHandled, deliver({{"MSSG", "TEST"}, {"SIGN", "ABCD"}})) << "messaging is off";
    call("GLN1InitIAC");
    call("GLN1SetHandledMessages", "TEST||MORE");
    struct Case {
        const char* encoding;
        const char* text;
        const char* kept;
        int beeps;
    };
    for (const auto& [encoding, text, kept, beeps] :
         {Case{"utf-8", "plain", "plain", 0}, Case{"macRoman", "\xC3\xA9", "\xC3\xA9", 0},
          Case{"macRoman", "\x8E", "\xC3\xA9", 0}, Case{"Windows-1252", "\xE9", "\xC3\xA9", 0},
          Case{"", "\x8E", "\xC3\xA9", 0}, Case{"utf-8", "\x8E", "", 1},
          Case{"Windows-1252 with something behind it that makes it a longer name", "\x8E", "\xC3\xA9", 0}}) {
        EXPECT_EQ(0, deliver({{"MSSG", "TEST"}, {"SIGN", "ABCD"}, {"NCOD", encoding}, {"NAME", text}, {"TEXT", "t"}}));
        EXPECT_EQ("TEST", call("GLN1GetNextMessage"));
        EXPECT_EQ(kept, call("GLN1GetParameter", "NAME")) << encoding << text;
        EXPECT_EQ("t", call("GLN1GetParameter", "TEXT"));
        EXPECT_EQ(beeps, effects().beeps);
    }
    EXPECT_EQ("", call("GLN1GetNextMessage"));
    EXPECT_EQ("", call("GLN1GetParameter", "TEXT")) << "no message is being read";

    EXPECT_EQ(-1708, deliver({{"MSSG", "TEST"}, {"SIGN", "ABCD"}, {"ZZZZ", ""}})) << "an unknown parameter";
    EXPECT_EQ(0, deliver({{"MSSG", "MORE "}, {"SIGN", "ABCD"}})) << "five bytes";
    EXPECT_EQ(0, deliver({{"MSSG", "ELSE"}, {"SIGN", "ABCD"}})) << "the solution has no script for it";
    EXPECT_EQ(0, deliver({{"MSSG", "TEST!!"}}));
    EXPECT_EQ(-1708, deliver({{"MSSG", "TEST"}, {"NAME", "no SIGN"}}));
    EXPECT_EQ("TEST MORE  ", takeMessageNames());

    deliver({{"MSSG", "TEST"}, {"SIGN", "A"}, {"LAT ", "45.5"}, {"LONG", "-122"}});
    call("GLN1GetNextMessage");
    EXPECT_EQ("45.5 -122", call("GLN1GetParameterLatLong"));
    deliver({{"MSSG", "TEST"}, {"SIGN", "A"}, {"LAT ", std::string(64, '1')}});
    call("GLN1GetNextMessage");
    EXPECT_EQ("", call("GLN1GetParameterLatLong"));
    EXPECT_EQ(1U, alerts().size());
}

TEST_F(Messaging, HoldTwentyMessagesAndQueueTheirScriptOncePerIdle) {
    call("GLN1InitIAC");
    call("GLN1SetHandledMessages", "TEST");
    call("GLN1SetMessageHandlingScriptTo", "Read Messages");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(0, deliver({{"MSSG", "TEST"}, {"SIGN", "ABCD"}, {"NUM ", std::to_string(i)}}));
    }
    EXPECT_EQ(-1708, deliver({{"MSSG", "TEST"}, {"SIGN", "ABCD"}, {"NUM ", "20"}})) << "nothing of it was read";
    quil::GLN1_Plugin_Idle();
    EXPECT_EQ(Texts{"Read Messages"}, effects().scripts);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ("TEST", call("GLN1GetNextMessage"));
        EXPECT_EQ(std::to_string(i), call("GLN1GetParameter", "NUM "));
    }
    quil::GLN1_Plugin_Idle();
    EXPECT_EQ(Texts{}, effects().scripts);
}

TEST_F(Messaging, AnswerGreetingsWithMenusAndMaps) {
    putFile("Maps/Name.map", "");
    run({"GLN1", "SRC5", "OTHR"});
    call("GLN1InitIAC");
    call("GLN1SetGeolensSharingMenu", "Chemicals|Get|Link");
    call("GLN1SetSirocSharingMenu", "Chemicals|Get");
    call("GLN1SetSirocSharingMenu", "Ignored|");
    call("GLN1SetGeolensMapInfo", "Disk:Maps:||");
    call("GLN1SetGeolensMapInfo", "Disk:No map:|DRAGNO|");
    call("GLN1SetGeolensFirstView", "-125 49,-117");
    EXPECT_EQ(Texts{}, sent());
    EXPECT_EQ(0,
              deliver({{"MSSG", "HOLA"}, {"SIGN", "GLN1"}, {"PSIG", "GEOL"}, {"NCOD", "utf-8"}, {"PATH", "Disk:G"}}));
    EXPECT_EQ(
        (Texts{"GLN1: MSSG=OKHI SIGN=FMP7 PSIG=FMP7 XTRA= VERS=2 NAME=Host NCOD=macRoman PATH=" +
                   std::string(support::kHostPath),
               "GLN1: MSSG=MENU SIGN=FMP7 PSIG=FMP7 XTRA= VERS=2 ITMS=Get|Link NCOD=macRoman NAME=Chemicals PATH=" +
                   std::string(support::kHostPath),
               "GLN1: MSSG=MAP  SIGN=FMP7 PSIG=FMP7 XTRA= NCOD=macRoman PATH=Disk:Maps: OPTN=NODEFAULT DELETEYES "
               "MOVEMAPYES MOVELAYERYES DRAGYES ADDYES"}),
        sent());
    deliver({{"MSSG", "OKHI"}, {"SIGN", "GLN1"}, {"PSIG", "GEOL"}, {"NCOD", "utf-8"}});
    EXPECT_EQ(1, quil::FriendCanUseUtf8Iac("GLN1"_4)) << "the second greeting counts";
    EXPECT_EQ("", call("GLN1GetAppPath", "GEOL")) << "and has no path";
    deliver({{"MSSG", "HOLA"}, {"SIGN", "SRC5"}, {"PSIG", "SRC5"}});
    deliver({{"MSSG", "HOLA"}, {"SIGN", "OTHR"}, {"PSIG", "OTHR"}});
    EXPECT_EQ((Texts{"SRC5 OKHI", "SRC5 MENU", "OTHR OKHI"}), sentNames());
    call("GLN1SetHandledMessages", "HOLA");
    machine().state().faults = {{"send", -600, 1, 0}};
    deliver({{"MSSG", "HOLA"}, {"SIGN", "OTHR"}, {"PSIG", "OTHR"}});
    deliver({{"MSSG", "HOLA"}, {"SIGN", "OTHR"}, {"PSIG", "OTHR"}});
    EXPECT_EQ("HOLA ", takeMessageNames()) << "one whose answer cannot be sent is dropped";
    sent();
    run({"GLN1", "OTHR"});
    quil::GLN1_Plugin_Shutdown();
    EXPECT_EQ((Texts{"GLN1 BYE ", "OTHR BYE "}), sentNames());
    EXPECT_EQ(-1708, deliver({{"MSSG", "HOLA"}, {"SIGN", "OTHR"}})) << "the handler went with the plug-in";
}

TEST_F(Messaging, KeepSixFriendsWithoutDoubles) {
    for (const char* signature : {"AAAA", "BBBB", "CCCC", "DDDD", "EEEE", "FFFF", "GGGG"}) {
        call("GLN1SetKnownFriend", std::string(signature) + "|Disk:" + signature);
    }
    EXPECT_EQ("Disk:FFFF", call("GLN1GetAppPath", "FFFF"));
    EXPECT_EQ("", call("GLN1GetAppPath", "GGGG")) << "the seventh is ignored";
    quil::AddFriend("BBBB"_4, "EEEE"_4, "Disk:new", "", -1);
    EXPECT_EQ("BBBB"_4, quil::ConnvertIfPSIG("EEEE"_4)) << "one record holds both";
    EXPECT_EQ("Disk:new", call("GLN1GetAppPath", "EEEE"));
    EXPECT_EQ(-1, quil::FriendCanUseUtf8Iac("BBBB"_4));
    EXPECT_EQ(0, quil::FriendCanUseUtf8Iac("EEEE"_4)) << "by signature alone";
    call("GLN1SetKnownFriend", "GGGG|Disk:GGGG");
    EXPECT_EQ("Disk:GGGG", call("GLN1GetAppPath", "GGGG")) << "in the record that became free";
    struct Case {
        const char* path;
        bool old;
        bool recent;
    };
    for (const auto& [path, old, recent] :
         {Case{"Disk:Apps:Geolens", true, false}, Case{"C:\\G\\geolens.exe", true, false},
          Case{"Disk:GEOLENS:map Server", false, true}, Case{"/opt/geolens/client.bin", false, true},
          Case{"Disk:Client:GEOLENS", true, false}, Case{"Disk:Maps:Server", false, false}}) {
        EXPECT_EQ(old, quil::LooksLikeOldGeolens(path)) << path;
        EXPECT_EQ(recent, quil::LooksLikeNewGeolens(path)) << path;
    }
}

TEST_F(Messaging, ReactToMenuHitsAndSelections) {
    run({"GLN1", "SRC5"});
    call("GLN1InitIAC");
    call("GLN1SetHandledMessages", "MHIT|YROD|RIDS");
    call("GLN1SetGeolensSharingMenuActions", "GETINFO|GOTOME|GETINFOFILE|GETRIDSINFO|LINK|UNLINK||getinfo");
    call("GLN1SetSirocSharingMenuActions", "GETRIDSINFO|GOTOME|GETINFO");
    call("GLN1SetGeolensNoneSelectedGetInfoAlert", "no info");
    call("GLN1SetGeolensNoneSelectedLinkAlert", "no link");
    call("GLN1SetGeolensMoreThanOneSelectedLinkAlert", "many");
    struct Case {
        Parameters parameters;
        const char* sent;  // what stands behind XTRA; empty: nothing was sent
        bool kept;
    };
    const auto hit = [](const char* sign, const char* item) {
        return Parameters{{"MSSG", "MHIT"}, {"SIGN", sign}, {"ITEM", item}};
    };
    const auto selected = [](const char* extra, const char* number, const char* more) {
        return Parameters{{"MSSG", "YROD"}, {"SIGN", "GLN1"}, {"XTRA", extra}, {"NUM ", number}, {"NUMU", more}};
    };
    for (const auto& [parameters, text, kept] :
         {Case{hit("GLN1", "1"), "GETINFO OPTN=SELECTED NCOD=macRoman", false},
          Case{hit("GLN1", "3"), "GETINFOFILE NCOD=macRoman OPTN=FILE SELECTED", false},
          Case{hit("GLN1", "5"), "LINK OPTN=SELECTED NCOD=macRoman", false},
          Case{hit("GLN1", "2"), " NAME= WHO =FMP7 NCOD=macRoman", false}, Case{hit("GLN1", "4"), "", true},
          Case{hit("GLN1", "8"), "", true}, Case{hit("GLN1", "11"), "", true}, Case{hit("GLN1", "0"), "", true},
          Case{hit("ABCD", "1"), "", true}, Case{hit("SRC5", "3"), "", true},
          Case{hit("SRC5", "1"), " NCOD=macRoman", false},
          Case{selected("GETINFOFILE", "0", ""), " ICON=0 TEXT=no info NCOD=macRoman", false},
          Case{selected("LINK", "1", "-1"), " ICON=0 TEXT=no link NCOD=macRoman", false},
          Case{selected("LINK", "1", "1"), " ICON=0 TEXT=many NCOD=macRoman", false},
          Case{selected("LINK", "1", ""), "", true}, Case{selected("UNLINK", "0", ""), "", true},
          Case{selected("GETINFO", "2", ""), "", true},
          Case{{{"MSSG", "RIDS"}, {"SIGN", "SRC5"}}, " NAME= WHO =FMP7 NCOD=macRoman", true}}) {
        const std::string about = parameters.back().first + "=" + parameters.back().second + " " + text;
        EXPECT_EQ(0, deliver(parameters)) << about;
        const Texts lines = sent();
        EXPECT_EQ(*text == 0 ? 0U : 1U, lines.size()) << about;
        if (!lines.empty()) {
            EXPECT_EQ(text, lines[0].substr(lines[0].find("XTRA=") + 5)) << about;
        }
        EXPECT_EQ(kept, !takeMessageNames().empty()) << about;
    }
    run({});
    EXPECT_EQ(0, deliver(hit("GLN1", "1"))) << "GEOLENS left in the meantime";
    EXPECT_EQ("", takeMessageNames());
}

TEST_F(Messaging, LaunchPartnersFromTheRememberedOrTheDefaultPath) {
    machine().state().ticks = 0;
    EXPECT_EQ("AskUserToLaunch", call("GLN1GoToApp", "GLN1"));
    call("GLN1SetParameter", "MSSG|TEST");
    EXPECT_EQ("AskUserToLaunch", call("GLN1SendMessageTo", "GLN1")) << "the message is kept";
    putFile("Far/GEOLENS Server", "");
    machine().state().launches["Disk:Far:GEOLENS Server"] = {"GLN1"_4, 3};
    call("GLN1SetKnownFriend", "GLN1|Disk:Far:GEOLENS Server");
    call("GLN1SetGeolensFirstView", "-125|49|-117|42");
    EXPECT_EQ("", call("GLN1SendMessageTo", "GLN1"));
    platform::Effects done = effects();
    EXPECT_EQ(Texts{"Disk:Far:GEOLENS Server"}, done.launched);
    EXPECT_EQ(180U, machine().input().ticks()) << "waited until it ran";
    const Texts messages = lines(done);
    ASSERT_EQ(3U, messages.size());
    EXPECT_NE(std::string::npos, messages[0].find("MSSG=HOLA"));
    EXPECT_NE(std::string::npos, messages[1].find("MSSG=VIEW")) << messages[1];
    EXPECT_NE(std::string::npos, messages[1].find("LLAT=42 HLAT=49 LLNG=-125 HLNG=-117")) << messages[1];
    EXPECT_NE(std::string::npos, messages[2].find("MSSG=TEST"));
    EXPECT_EQ("Disk:Far:GEOLENS Server", call("GLN1GoToApp", "GLN1"));
    EXPECT_EQ(std::vector{"GLN1"_4}, effects().fronted);
    EXPECT_EQ("TRUE", call("GLN1IsAppRunning", "GLN1"));
    run({});
    machine().state().launches["Disk:Far:GEOLENS Server"] = {"GLN1"_4, 60};
    call("GLN1GoToApp", "GLN1");
    EXPECT_EQ(180U + 480U, machine().input().ticks()) << "gave up waiting after eight seconds";
    machine().state().faults = {{"front", -600, 1, 0}};
    call("GLN1BringMeForward");
    EXPECT_EQ(1U, alerts().size());
}

TEST_F(Messaging, CleanMapListsBeforeTheyAreSent) {
    const std::string one = "0000000000000001\t";
    const std::string two = "000000000000000F\t";
    std::string many;
    std::string manyOnce;
    for (int i = 0; i < 40; ++i) {
        const std::string tail = std::to_string(i % 25);
        many += one + (i < 25 ? "x" : "X") + tail + "\r";
        manyOnce += i < 25 ? one + "x" + tail + "\r" : "";
    }
    for (const auto& [list, cleaned] : std::vector<std::pair<std::string, std::string>>{
             {one + "A\r" + one + "a\r" + one + "B\rXYZ", one + "A\r" + one + "B\r"},
             {"one invalid line", "one invalid line"},
             {"000000000000000f\tA\r" + two + "A", two + "A"},
             {"00000000000000F\tA\r\r" + two + "A\r\r", two + "A\r"},
             {two + "A\r" + one + "A\r" + two + "a", two + "A\r" + one + "A\r"},
             {one + "A\r\n" + one + "B\r\n", one + "A\r\n"},
             {one + "A\n" + two + "B", one + "A\n" + two + "B"},
             {one + "A\x01Z\r" + one + "AZ", one + "AZ\r" + one + "AZ"},
             {many + two, manyOnce + two}}) {
        call("GLN1ClearOutgoingMessage");
        call("GLN1SetParameter", "LST2|" + list);
        call("GLN1ProcessLST2ParameterForGeolens");
        call("GLN1SetParameter", "MSSG|SHOW");
        run({"GLN1"});
        call("GLN1SendMessageTo", "GLN1");
        const platform::Effects done = effects();
        std::string found = "(nothing)";
        for (const platform::EventParameter& parameter : done.sent.at(0).parameters) {
            found = parameter.keyword == "LST2"_4 ? parameter.data : found;
        }
        EXPECT_EQ(cleaned, found) << list;
    }
    call("GLN1ShowOnMap", one + "A\r\n");
    EXPECT_EQ(Texts{"GLN1: MSSG=SHOW SIGN=FMP7 PSIG=FMP7 XTRA= NCOD=macRoman LST2=" + one +
                    "A\r\n OPTN=DRAW YESZOOM YESSELECT"},
              sent());
}

TEST_F(Messaging, ReadMapListsThatArrived) {
    call("GLN1InitIAC");
    call("GLN1SetHandledMessages", "SHOW");
    const std::string list =
        "0000000000000001\tTanks\tCoast\r\n0000000000000002\tonly a layer\nshort\ta\tb\r"
        "0000000000000003\t\tInland\tmore";
    deliver({{"MSSG", "SHOW"}, {"SIGN", "GLN1"}, {"LSTA", list}});
    call("GLN1GetNextMessage");
    EXPECT_EQ("", call("GLN1GetParameterLST2", "GEOLENSID"));
    call("GLN1RenameIncomingLSTAtoLST2");
    EXPECT_EQ("0000000000000001\tTanks\r0000000000000003\t\r",
              call("GLN1GetParameterLST2", "GeolensID tab\tLAYERNAME RETURN"));
    EXPECT_EQ("CoastInland", call("GLN1GetParameterLST2", "MAPNAME NOWORD MAPNAME"));
    EXPECT_EQ("", call("GLN1GetParameterLST2", "GEOLENSID FILE"));
    EXPECT_EQ(1U, alerts().size());
    EXPECT_EQ("short\ta\tb", call("GLN1GetParameterLST2Line", "2"));
    EXPECT_EQ("", call("GLN1GetParameterLST2Line", "-1"));
    call("GLN1CopyIncomingLST2ToOutgoingLST2");
    call("GLN1ClearIncomingMessage");
    call("GLN1SetParameter", "MSSG|SHOW");
    run({"GLN1"});
    call("GLN1SendMessageTo", "GLN1");
    EXPECT_NE(std::string::npos, sent().at(0).find("LST2=" + list)) << "byte for byte";

    EXPECT_EQ("a\"\"b\v\vc", call("GLN1FieldContentsToMerText", "a\"b\r\nc"));
    EXPECT_EQ("1", call("GLN1ShowMessage", "Done"));
    EXPECT_EQ(Texts{"Done"}, alerts());
    for (const char* off : {"no", "", "1"}) {
        call("GLN1SetNoUserInterface", off);
        EXPECT_EQ("", call("GLN1ShowMessage", "Done")) << off;
    }
    call("GLN1SetNoUserInterface", "false");
    EXPECT_EQ("1", call("GLN1ShowMessage", "Done"));
}

}  // namespace
