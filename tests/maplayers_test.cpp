// Map object IDs, layer names, and the three sessions over one list.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "frame/modules.h"
#include "maplayers/map_ids.h"
#include "maplayers/sessions.h"
#include "support/process.h"
#include "support/script_calls.h"
#include "util/fhandle.h"

namespace {

using Texts = std::vector<std::string>;

class MapLayers : public support::ScriptFixture {
  protected:
    void append(const Texts& ids) {
        for (const std::string& id : ids) {
            EXPECT_EQ("", script(quil::HBT_ShownOnMapAppendID, id)) << id;
        }
    }
    // The answer of a show-on-map session over a list file of these lines.
    std::string show(const Texts& ids, const std::string& file, const std::string& map = "Coast") {
        putFile("objects.txt", file);
        script(quil::HBT_ShowOnMapInit, map);
        append(ids);
        return script(quil::HBT_ShowOnMapGetLST2, "Disk:objects.txt");
    }
};

std::string geolensText(const quil::GeolensID& id) {
    char text[quil::kGeolensTextSize];
    quil::GeolensID2Str(id, text);
    return text;
}

std::string hbtText(const quil::HbtID& id) {
    char text[quil::kHbtTextSize];
    quil::HbtID2Str(id, text);
    return text;
}

int compareGeolens(const std::string& a, const std::string& b) {
    const quil::GeolensID idA = quil::GeolensStr2ID(a.c_str());
    const quil::GeolensID idB = quil::GeolensStr2ID(b.c_str());
    EXPECT_EQ(-quil::CompareGeolensIDs(&idB, &idA), quil::CompareGeolensIDs(&idA, &idB));
    return quil::CompareGeolensIDs(&idA, &idB);
}

TEST_F(MapLayers, ReadAndWriteObjectIDs) {
    const quil::GeolensID id = quil::GeolensStr2ID("1100010020300001 and more");
    EXPECT_EQ(1, id.recordNum);
    EXPECT_EQ(2, id.groupNum);
    EXPECT_EQ(3, id.layerNum);
    EXPECT_EQ(1, id.objectNum);
    EXPECT_EQ('B', id.kind);
    for (const char* text : {"1100010020300001", "1199999991199999", "1100010011000001"}) {
        EXPECT_EQ(text, geolensText(quil::GeolensStr2ID(text)));
    }
    EXPECT_EQ('S', quil::GeolensStr2ID("1100010021000001").kind);
    EXPECT_EQ('S', quil::GeolensStr2ID("1100010021100001").kind);
    EXPECT_EQ('B', quil::GeolensStr2ID("1100010021200001").kind);
    for (const char* bad : {"", "11", "110001002030000", "1000010020300001", "0100010020300001", "11x0010020300001",
                            "1100000020300001", "1100010000300001", "1100010020000001", "1100010020300000",
                            "110001002030000x", "1100010 20300001", "11-0010020300001"}) {
        EXPECT_TRUE(quil::IsBadGeolensID(quil::GeolensStr2ID(bad))) << bad;
    }
    EXPECT_EQ("1100000000000000", geolensText({}));
}

TEST_F(MapLayers, ReadAndWriteRecordIDs) {
    for (const char* text : {"B1000001", "S7000042", "B12000345", "x999032767",
                             "\xE9"
                             "1000001"}) {
        EXPECT_EQ(text, hbtText(quil::HbtStr2ID(text)));
    }
    EXPECT_EQ("B1000001", hbtText(quil::HbtStr2ID("B01000001"))) << "leading zeros go";
    EXPECT_EQ(1, quil::HbtStr2ID("B1065537").recordNum) << "six digits wrap in 16 bits";
    for (const char* bad : {"", "B000001", "B0100001", "B1000000", "B1234000001", "Bx000001", "B10000x1", "B1032768",
                            "B1065536", "B100000 "}) {
        EXPECT_TRUE(quil::IsBadHbtID(quil::HbtStr2ID(bad))) << bad;
    }
    EXPECT_EQ("B", hbtText({0, 0, 'B'}).substr(0, 1));
    EXPECT_EQ("B000000", hbtText({0, 0, 'B'})) << "group 0 writes no digits";
}

TEST_F(MapLayers, SortObjectsLikeTheirRecords) {
    EXPECT_EQ(-1, compareGeolens("1100010020300001", "1100010020400001")) << "layer";
    EXPECT_EQ(-1, compareGeolens("1100010020300009", "1100010021300001")) << "13 stands behind 3";
    EXPECT_EQ(-1, compareGeolens("1100010021300001", "1100010020400001")) << "and before 4";
    EXPECT_EQ(-1, compareGeolens("1199990010300001", "1100010020300001")) << "group first";
    EXPECT_EQ(-1, compareGeolens("1199990010300001", "1100010011000001")) << "then kind";
    EXPECT_EQ(-1, compareGeolens("1100010019900001", "1100020010100001")) << "then record";
    EXPECT_EQ(-1, compareGeolens("1100010010300001", "1100010010300002")) << "object last";
    EXPECT_EQ(10, quil::LayerNumMinusSpecialCoding(10));
    EXPECT_EQ(5, quil::LayerNumMinusSpecialCoding(25));
    EXPECT_EQ(0, quil::LayerNumMinusSpecialCoding(30));
    EXPECT_EQ(-3, quil::LayerNumMinusSpecialCoding(-13));
}

TEST_F(MapLayers, NameLayers) {
    const auto name = [](std::int16_t layer) {
        char text[quil::kLayerNameSize] = "untouched";
        quil::LayerNum2Str(layer, text);
        return std::string(text);
    };
    EXPECT_EQ("FISH", name(12));
    EXPECT_EQ("SOCECON", name(10));
    EXPECT_EQ("untouched", name(20));
    EXPECT_EQ("untouched", name(0));
    EXPECT_EQ("untouched", name(-1));
    EXPECT_EQ("", script(quil::HBT_SetLayerName, "3|" + std::string(31, 'O')));
    EXPECT_TRUE(alerts().empty());
    EXPECT_EQ(std::string(31, 'O'), name(3));
    const std::pair<std::string, std::string> bad[] = {
        {"3 OTTERS", "Missing vertical bar in HBT_SetLayerName parameter"},
        {"3|A|B",
         "Only one vertical bar is allowed in HBT_SetLayerName parameter.  Use a separate call for each layer "
         "you wish to set."},
        {"99|A|B",
         "Only one vertical bar is allowed in HBT_SetLayerName parameter.  Use a separate call for each "
         "layer you wish to set."},
        {"12|X", "Bad layer number in HBT_SetLayerName parameter"},
        {"0|", "Bad layer number in HBT_SetLayerName parameter"},
        {"3|", "Bad layer name in HBT_SetLayerName parameter"},
        {"3|" + std::string(32, 'x'), "Bad layer name in HBT_SetLayerName parameter"},
    };
    for (const auto& [parameter, message] : bad) {
        EXPECT_EQ("", script(quil::HBT_SetLayerName, parameter));
        EXPECT_EQ((Texts{message + "\r\r"}), alerts()) << parameter;
    }
    EXPECT_EQ(std::string(31, 'O'), name(3));
}

TEST_F(MapLayers, CollectDistinctIDs) {
    EXPECT_EQ("", script(quil::HBT_FindIDsAppendID, "B1000001")) << "no session";
    EXPECT_EQ("0", script(quil::HBT_FindIDsGetNumIDs, ""));
    script(quil::HBT_FindIDsInit, "");
    for (const char* id : {"S2000001", "B1000001", "B1000001", "S2000001", "B2000009"}) {
        EXPECT_EQ("", script(quil::HBT_FindIDsAppendID, id));
    }
    EXPECT_EQ(4, quil::gNumHbtIDs) << "an immediate repetition is not stored";
    EXPECT_EQ("3", script(quil::HBT_FindIDsGetNumIDs, ""));
    EXPECT_EQ("B1000001", script(quil::HBT_FindIDsGetID, "1"));
    EXPECT_EQ("B2000009", script(quil::HBT_FindIDsGetID, "2"));
    EXPECT_EQ("S2000001", script(quil::HBT_GetInfoGetID, " 3x"));
    for (const char* index : {"0", "", "4", "-1", "99999999999"}) {
        EXPECT_EQ("", script(quil::HBT_FindIDsGetID, index)) << index;
    }
    script(quil::HBT_FindIDsDispose, "");
    EXPECT_EQ("", script(quil::HBT_FindIDsGetID, "1"));
    EXPECT_TRUE(alerts().empty());
}

TEST_F(MapLayers, EndASessionAtABadID) {
    const std::pair<std::string, std::string> bad[] = {
        {"X", "Bad HBT ID sent to HBT_ShownOnMapAppendID:\rX\r\r"},
        {"", "Bad HBT ID sent to HBT_ShownOnMapAppendID:\r\r\r"},
        {std::string(31, '1'), "Bad HBT ID sent to HBT_ShownOnMapAppendID:\r" + std::string(31, '1') + "\r\r"},
        {std::string(32, '1'), "Parameter sent to HBT_ShownOnMapAppendID is too long.\r\r"},
        {std::string(1000, '1'), "Parameter sent to HBT_ShownOnMapAppendID is too long.\r\r"},
    };
    for (const auto& [id, message] : bad) {
        script(quil::HBT_ShowOnMapInit, "Coast");
        append({"B1000001"});
        EXPECT_EQ("Error", script(quil::HBT_ShownOnMapAppendID, id));
        EXPECT_EQ((Texts{message}), alerts());
        append({"B1000001"});
        EXPECT_EQ(nullptr, quil::gHbtIDsH) << "further IDs are ignored";
    }
}

TEST_F(MapLayers, TakeMapNamesOf1To41Characters) {
    for (const std::size_t length : {1U, 41U}) {
        script(quil::HBT_ShowOnMapInit, std::string(length, 'm'));
        EXPECT_NE(nullptr, quil::gHbtIDsH) << length;
        EXPECT_TRUE(alerts().empty());
    }
    for (const std::size_t length : {0U, 42U, 64U}) {
        script(quil::HBT_ShowOnMapInit, std::string(length, 'm'));
        EXPECT_EQ(nullptr, quil::gHbtIDsH) << length;
        EXPECT_EQ((Texts{"HBT_ShowOnMapInit error: Map name must be between 1 and 41 chars\r\r"}), alerts());
    }
}

TEST_F(MapLayers, ShowTheObjectsOfCollectedRecords) {
    const std::string sorted = "1100010010300001\r\n1100010010400001\r\n1100020010300007\r\n1100010031000001";
    const std::string answer =
        "1100010010300001\tHABITATS\tCoast\r\n1100010010400001\tM_"
        "MAMMAL\tCoast\r\n1100010031000001\tSOCECON\tCoast\r\n";
    EXPECT_EQ(answer, show({"S3000001", "B1000001", "B9000009", "B1000001"}, sorted));
    EXPECT_FALSE(isThere("objects.txt.sorted"));
    EXPECT_EQ(nullptr, quil::gHbtIDsH) << "the session is over";

    const std::string mixed =
        "1100010031000001\rgarbage\n1100020010300007\n\n1100010010400001\r\n1100010010300001\t x\r\n";
    EXPECT_EQ(answer, show({"S3000001", "B1000001"}, mixed));
    EXPECT_EQ(
        "1100000000000000\r\n1100000000000000\r\n1100010010300001\r\n1100010010400001\r\n1100020010300007\r\n"
        "1100010031000001\r\n",
        fileText("objects.txt.sorted"));
    EXPECT_EQ("1100010012000001\t\tCoast\r\n", show({"B1000001"}, "1100010012000001")) << "a layer without a name";
    EXPECT_EQ("", show({"B1000001"}, ""));
    EXPECT_EQ("", show({}, sorted)) << "nothing collected";
    EXPECT_TRUE(alerts().empty());
}

TEST_F(MapLayers, MergeLikeAPlainOracle) {
    std::mt19937 random(7);
    for (int round = 0; round < 100; ++round) {
        Texts lines(random() % 200);
        for (std::string& line : lines) {
            const quil::GeolensID id = {
                1 + static_cast<std::int32_t>(random() % 3), static_cast<std::int16_t>(1 + random() % 3),
                static_cast<std::int16_t>(1 + random() % 3), static_cast<std::int16_t>(1 + random() % 25), 0};
            line = random() % 10 == 0 ? "bad line" : geolensText(id);
        }
        Texts wanted(random() % 8);
        for (std::string& id : wanted) {
            id = hbtText({static_cast<std::int16_t>(1 + random() % 3), static_cast<std::int16_t>(1 + random() % 3),
                          random() % 2 == 0 ? 'B' : 'S'});
        }
        Texts expected;
        for (const std::string& line : lines) {
            const quil::GeolensID id = quil::GeolensStr2ID(line.c_str());
            if (!quil::IsBadGeolensID(id) &&
                std::count(wanted.begin(), wanted.end(), hbtText(quil::GeolensID2HbtID(id))) != 0) {
                expected.push_back(line);
            }
        }
        std::sort(expected.begin(), expected.end(),
                  [](const std::string& a, const std::string& b) { return compareGeolens(a, b) < 0; });
        std::string file;
        for (const std::string& line : lines) {
            file += line + "\r\n";
        }
        const std::string answer = show(wanted, file);
        Texts shown;
        for (std::size_t at = 0; at < answer.size(); at = answer.find('\n', at) + 1) {
            shown.push_back(answer.substr(at, 16));
        }
        ASSERT_EQ(expected, shown);
    }
}

TEST_F(MapLayers, SendLongAnswersThroughAFile) {
    // One line of the answer is 16 + 1 + 8 + 1 + name + 2 bytes.
    const auto fileOf = [](int lines) {
        std::string file;
        for (int i = 1; i <= lines; ++i) {
            file += geolensText({i, 1, 1, 3, 'B'}) + "\r\n";
        }
        return file;
    };
    // 1,000 lines of 16+1+8+1+36+2 = 64 bytes are 64,000; with a name one shorter, 63,000.
    const std::string text = show({"B1000001"}, fileOf(1000), std::string(35, 'm'));
    EXPECT_EQ(63000U, text.size());
    const std::string path = show({"B1000001"}, fileOf(1000), std::string(36, 'm'));
    char expected[256];
    EXPECT_EQ(quil::PathWhereWeWriteLst2File(expected), path);
    EXPECT_EQ(64000U, fileText("Apps/LST2.txt").size());
    script(quil::HBT_ShowOnMapInit, "Coast");
    EXPECT_FALSE(isThere("Apps/LST2.txt")) << "deleted by the next session";
    EXPECT_TRUE(alerts().empty());
}

TEST_F(MapLayers, TellWhichFileIsMissing) {
    script(quil::HBT_ShowOnMapInit, "Coast");
    append({"B1000001"});
    EXPECT_EQ("", script(quil::HBT_ShowOnMapGetLST2, "Disk:none"));
    EXPECT_EQ(nullptr, quil::gHbtIDsH);
    const Texts shown = alerts();
    ASSERT_EQ(2U, shown.size());
    EXPECT_EQ("File does not exist:\rDisk:none\r\r", shown[0]);
    EXPECT_EQ("An error occurred in the plug-in function QUIL_External.\r\rError: -4\r\r", shown[1]);
    EXPECT_EQ("", script(quil::HBT_GetInfoInit, "Disk:none"));
    EXPECT_EQ((Texts{"Missing vertical bar in HBT_GetInfoInit parameter\r\r"}), alerts());
    EXPECT_EQ("", script(quil::HBT_GetInfoInit, "1|Disk:none"));
    EXPECT_EQ((Texts{"Unable to open file: \rDisk:none\r\r"}), alerts());
}

TEST_F(MapLayers, EmptyTheResultAfterAFault) {
    makeFolder("objects");
    makeFolder("Apps/LST2.txt");
    putFile("Apps/LST2.txt/x", "");  // so that it cannot be removed
    std::string lines;
    for (int i = 0; i < 4000; ++i) {
        lines += "1100010020300001\r\n";
    }
    putFile("many.txt", lines);
    putFile("many.txt.sorted", lines);
    for (const char* path : {"Disk:none", "Disk:objects", "Disk:many.txt"}) {
        script(quil::HBT_ShowOnMapInit, "Coast");
        append({"B2000001"});
        char** parameter = quil::NewFHandle(0);
        char** result = quil::NewFHandle(0);
        quil::SetResultsHandle(parameter, path);
        quil::SetResultsHandle(result, "before");
        EXPECT_NE(0, quil::HBT_ShowOnMapGetLST2(2, parameter, result)) << path;
        EXPECT_EQ("", quil::FHandleText(result)) << path;
        EXPECT_FALSE(alerts().empty()) << path;
        quil::DisposeAndClearFHandle(&parameter);
        quil::DisposeAndClearFHandle(&result);
    }
}

TEST_F(MapLayers, ReadOddObjectFiles) {
    const std::string line = "1100010020300001\tHABITATS\tCoast\r\n";
    const std::string object = "1100010020300001";
    const std::string other = "1100010020400001";
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {object, line},
        {object + other, line},
        {object + std::string(10 << 20, 'x') + "\r" + other, line + other + "\tM_MAMMAL\tCoast\r\n"},
        {std::string(10 << 20, '1'), ""},
        {object + std::string(1, '\0') + "\r\n" + other, line},
        {std::string(1, '\0') + object, ""}};
    for (const auto& [file, shown] : cases) {
        EXPECT_EQ(show({"B2000001"}, file), shown) << file.substr(0, 40);
        putFile("objects.txt", file);
        EXPECT_EQ(script(quil::HBT_GetInfoInit, "2|Disk:objects.txt"), shown.empty() ? "0" : "1") << file.substr(0, 40);
    }
    EXPECT_TRUE(alerts().empty());
}

TEST_F(MapLayers, TellThatAFileCannotBeReadOrWritten) {
    putFile("objects.txt", "1100010030300001");
    std::filesystem::permissions(posix("objects.txt"), std::filesystem::perms::owner_write);
    const support::Outcome unreadable = support::quil(
        {"call", "--volume", "Disk=" + disk(), "HBT_GetInfoInit", "3|Disk:objects.txt"}, {.withoutOverride = true});
    EXPECT_EQ(unreadable.output, "\n");
    EXPECT_NE(unreadable.errors.find("Unable to open file: \nDisk:objects.txt"), std::string::npos)
        << unreadable.errors;
    EXPECT_FALSE(isThere("objects.txt")) << "it was handed over";

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const std::string unsorted = "1100010030300002\r1100010030300001\r";
    putFile("objects.txt", unsorted);
    script(quil::HBT_ShowOnMapInit, "Coast");
    append({"B3000001"});
    const rlimit full{30, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    const std::string answer = script(quil::HBT_ShowOnMapGetLST2, "Disk:objects.txt");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(answer, "");
    EXPECT_EQ(alerts(), (Texts{"Error writing sorted list of IDs to the disk.\r\r"}));
    EXPECT_EQ(quil::gHbtIDsH, nullptr) << "the session is over";
    EXPECT_EQ(fileText("objects.txt"), unsorted);
    EXPECT_FALSE(isThere("objects.txt.sorted"));
}

TEST_F(MapLayers, LeaveFoldersWhereFilesAreDeleted) {
    makeFolder("objects");
    EXPECT_EQ("", script(quil::HBT_GetInfoInit, "1|Disk:objects"));
    EXPECT_FALSE(alerts().empty());
    EXPECT_TRUE(isThere("objects"));
    makeFolder("Apps/LST2.txt");
    script(quil::HBT_ShowOnMapInit, "Coast");
    EXPECT_TRUE(isThere("Apps/LST2.txt"));
}

TEST_F(MapLayers, ReadTheRecordsOfOneGroup) {
    const std::string file =
        "1100050031000001\r\n1100010030300001\r\n1100010030400001\r\n1100010040300001\r\nbad\r\n1100010030300009";
    putFile("objects.txt", file);
    EXPECT_EQ("2", script(quil::HBT_GetInfoInit, "3|Disk:objects.txt"));
    EXPECT_EQ("B3000001", script(quil::HBT_GetInfoGetID, "1"));
    EXPECT_EQ("S3000005", script(quil::HBT_GetInfoGetID, "2"));
    EXPECT_FALSE(isThere("objects.txt")) << "handed over once";
    script(quil::HBT_GetInfoDispose, "");
    putFile("objects.txt", file);
    EXPECT_EQ("0", script(quil::HBT_GetInfoInit, "9|Disk:objects.txt"));
}

TEST_F(MapLayers, KeepEverythingWhenDebugging) {
    putFile("Apps/DebugLst2.yes", "");
    quil::HBT_Plugin_Startup();
    ASSERT_TRUE(quil::gDebugLst2Files);
    putFile("objects.txt", "1100010030300001\r\n1100050030300001\r\n");
    EXPECT_EQ("2", script(quil::HBT_GetInfoInit, "3|Disk:objects.txt"));
    EXPECT_TRUE(isThere("objects.txt"));
    EXPECT_EQ("B3000001\r\nB3000005\r\n", fileText("objects.txt.hbtIDs"));
    char path[256];
    EXPECT_EQ(quil::PathWhereWeWriteLst2File(path), show({"B3000001"}, "1100010030300001"));
    EXPECT_EQ("1100010030300001\tHABITATS\tCoast\r\n", fileText("Apps/LST2.txt"));
}

}  // namespace
