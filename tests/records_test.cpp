// Record helpers: IDs, stored information, the edit switch, repairs of exported files.
#include "records/records.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "frame/modules.h"
#include "support/script_calls.h"

namespace {

using Texts = std::vector<std::string>;

using Records = support::ScriptFixture;

std::string base34(std::uint32_t number, int digits) {
    char text[9];
    quil::GetNumAsBase34Str(number, digits, text);
    return text;
}

TEST_F(Records, WriteNumbersInBase34WithoutIAndO) {
    EXPECT_EQ("010", base34(34, 3));
    EXPECT_EQ("H", base34(17, 1));
    EXPECT_EQ("J", base34(18, 1));
    EXPECT_EQ("P", base34(23, 1));
    EXPECT_EQ("Z", base34(33, 1));
    EXPECT_EQ("000", base34(39304, 3)) << "higher digits are dropped";
    EXPECT_EQ("02SHZKMH", base34(4294967295U, 8));
}

TEST_F(Records, MakeIDsOfPrefixSecondsCounterAndTicks) {
    machine().state().seconds = 946684800 + 34 * 34;  // 2000-01-01 00:19:16 UTC
    machine().state().ticks = 39304 + 35;
    EXPECT_EQ("CH000000000100001011", script(quil::VSTANewID, "CH"));
    EXPECT_EQ("ABCDEFGH000100002011", script(quil::VSTANewID, "ABCDEFGHIJ"));
    EXPECT_EQ("00000000000100003011", script(quil::VSTANewID, ""));
}

TEST_F(Records, KeepIDsDistinctWhenTheCounterWraps) {
    machine().state().seconds = 946684800;
    machine().state().ticks = 0;
    std::set<std::string> ids;
    for (int i = 0; i < 39303; ++i) {
        ids.insert(script(quil::VSTANewID, "X"));
    }
    const std::string wrapped = script(quil::VSTANewID, "X");
    EXPECT_EQ("X0000000000001001000", wrapped) << "the next second, the counter at 1";
    ids.insert(wrapped);
    EXPECT_EQ(39304U, ids.size());
    EXPECT_EQ("X0000000000000002000", script(quil::VSTANewID, "X")) << "only the ID that wraps is ahead";
}

TEST_F(Records, StoreAndReadLookupInformation) {
    EXPECT_EQ("", script(quil::VSTA_GetRidsLookupInfo, "CB_NUMBER")) << "nothing stored";
    EXPECT_EQ("", script(quil::VSTA_SetRidsLookupInfo, "1|2|3|4"));
    EXPECT_EQ("3", script(quil::VSTA_GetRidsLookupInfo, "cas_number"));
    EXPECT_EQ("4", script(quil::VSTA_GetRidsLookupInfo, "CHEMICALNAME"));
    EXPECT_EQ("", script(quil::VSTA_GetRidsLookupInfo, "PREFEREDLAYOUT")) << "optional";
    script(quil::VSTA_SetRidsLookupInfo, "1|2|3|4|Main|more");
    EXPECT_EQ("Main", script(quil::VSTA_GetRidsLookupInfo, "PREFEREDLAYOUT"));
    EXPECT_TRUE(alerts().empty());
    EXPECT_EQ("Error", script(quil::VSTA_GetRidsLookupInfo, "PREFERREDLAYOUT"));
    EXPECT_EQ("Error", script(quil::VSTA_SetRidsLookupInfo, "1|2|3"));
    EXPECT_EQ((Texts{"Programmer error, parameter does not match keyword in VSTA_GetRidsLookupInfo.\r\r",
                     "Programmer error, there must be 3 vertical bars in the VSTA_SetRidsLookupInfo parameter.\r\r"}),
              alerts());
    EXPECT_EQ("", script(quil::VSTA_GetRidsLookupInfo, "CB_NUMBER")) << "a refused text clears what was stored";
}

TEST_F(Records, StoreAndReadLinkInformation) {
    EXPECT_EQ("Error", script(quil::VSTA_SetRidsLinkInfo, "1|2|3|4"));
    EXPECT_EQ("", script(quil::VSTA_SetRidsLinkInfo, "r|t|c|a|n"));
    EXPECT_EQ("r", script(quil::VSTA_GetRidsLinkInfo, "RecordID"));
    EXPECT_EQ("n", script(quil::VSTA_GetRidsLinkInfo, "CHEMICALNAME"));
    EXPECT_EQ("Error", script(quil::VSTA_GetRidsLinkInfo, "CN_NUMBER"));
    script(quil::VSTA_SetRidsLinkInfo, "");
    EXPECT_EQ("", script(quil::VSTA_GetRidsLinkInfo, "RecordID")) << "cleared";
    EXPECT_EQ((Texts{"Programmer error, there must be 4 vertical bars in the VSTA_SetRidsLinkInfo parameter.\r\r",
                     "Programmer error, parameter does not match keyword in VSTA_GetRidsLinkInfo.\r\r"}),
              alerts());
}

TEST_F(Records, SwitchEditing) {
    EXPECT_EQ("TRUE", script(quil::VSTA_UserIsAllowedToEdit, ""));
    script(quil::VSTA_SetUserIsAllowedToEdit, "False");
    EXPECT_EQ("FALSE", script(quil::VSTA_UserIsAllowedToEdit, ""));
    EXPECT_TRUE(alerts().empty());
    script(quil::VSTA_SetUserIsAllowedToEdit, "yes");
    EXPECT_EQ((Texts{"Programmer error: MENU_SetUserIsAllowedToEdit parameter must be either TRUE or FALSE\r\r"}),
              alerts());
    EXPECT_EQ("FALSE", script(quil::VSTA_UserIsAllowedToEdit, ""));
}

TEST_F(Records, GuardTheIdleHookAgainstReentry) {
    quil::VSTA_Plugin_Idle();
    EXPECT_EQ(0, quil::gInVestaPlugin_Idle);
    quil::gInVestaPlugin_Idle = 1;
    quil::VSTA_Plugin_Idle();
    EXPECT_EQ(1, quil::gInVestaPlugin_Idle) << "left alone while it runs";
}

const std::string kDirty("a\0b\x01\t\n\v\f\r\x1C\x1D\x1E\x1F \x7F\x80\xFF", 17);
const std::string kClean("ab\t\n\v\r\x1D \x7F\x80\xFF");

TEST_F(Records, RepairExportedFiles) {
    struct Case {
        quil::Handler repair;
        std::string before, after;
    };
    const Case cases[] = {
        {quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, "a\r\r\nb\r\r\n", "a\r\nb\r\n"},
        {quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, "\r\r\r\n\r\r", "\r\r\n\r\r"},
        {quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, std::string("\r\0\r\n\r\r\0\n", 8), "\r\r\n\r\r\n"},
        {quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, kDirty, kClean},
        {quil::VSTA_FixFilemakerMerFile_StripUnallowedChars, kDirty + "\r\r\n", kClean + "\r\r\n"},
        {quil::VSTA_FixFilemakerMerFile_StripUnallowedChars, "", ""},
    };
    for (const Case& c : cases) {
        putFile("f.xml", c.before);
        EXPECT_EQ("", script(c.repair, "Disk:f.xml"));
        EXPECT_EQ(c.after, fileText("f.xml"));
        const auto modified = std::filesystem::last_write_time(posix("f.xml"));
        EXPECT_EQ("", script(c.repair, "Disk:f.xml"));
        if (c.after.find("\r\r\n") == std::string::npos) {
            EXPECT_EQ(modified, std::filesystem::last_write_time(posix("f.xml")))
                << "a file without faults is not written";
        }
    }
    EXPECT_TRUE(alerts().empty());
}

TEST_F(Records, TellWhatCannotBeRepaired) {
    makeFolder("folder");
    const std::string xml = "Error: Function failed. VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug ";
    const std::string mer = "Error: Function failed. VSTA_FixFilemakerMerFile_StripUnallowedChars ";
    EXPECT_EQ(xml + "Disk:none", script(quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, "Disk:none"));
    EXPECT_EQ("", script(quil::VSTA_FixFilemakerMerFile_StripUnallowedChars, "Disk:none"));
    EXPECT_EQ(xml + "Disk:folder", script(quil::VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug, "Disk:folder"));
    EXPECT_EQ(mer + "Disk:folder", script(quil::VSTA_FixFilemakerMerFile_StripUnallowedChars, "Disk:folder"));
}

TEST_F(Records, StripCharactersThatXMLForbids) {
    EXPECT_EQ("ab\t\n\v\r\x1D\x7F\xC3\xA9", script(quil::VSTA_StripCharsIllegalInXML,
                                                   "a\x01"
                                                   "b\t\n\v\f\r\x1D\x1E\x7F\xC3\xA9"));
    EXPECT_EQ("", script(quil::VSTA_StripCharsIllegalInXML, ""));
}

}  // namespace
