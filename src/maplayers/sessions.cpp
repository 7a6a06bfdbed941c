#include "maplayers/sessions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>

#include "platform/machine.h"
#include "util/alerts.h"
#include "util/app_path.h"
#include "util/fhandle.h"
#include "util/file_io.h"
#include "util/memory.h"
#include "util/numbers.h"
#include "util/result.h"
#include "util/text.h"

namespace quil {

// State of this file.
char** gHbtIDsH = nullptr;         // the one list of all sessions
std::int32_t gNumHbtIDs = 0;       // records in it
char gMapName[kMapNameSize] = "";  // of the show-on-map session
bool gDebugLst2Files = false;      // write every list to a file, keep handed-over files

static constexpr std::int32_t kOutOfMemory = -108;
static constexpr std::int32_t kWriteFailed = -1;
static constexpr std::int32_t kNoSuchFile = -4;           // how a missing list file is told
static constexpr std::int32_t kAlreadyReported = -12321;  // nothing more is said to the user
static constexpr std::size_t kLongestSortedPath = 248;    // leaves room for ".sorted"

static void endSession() {
    DisposeAndClearFHandle(&gHbtIDsH);
    gNumHbtIDs = 0;
}

void ResetSessions() {
    endSession();
    gMapName[0] = 0;
    gDebugLst2Files = false;
}

static void report(long funcNum, std::int32_t error) {
    if (error != 0 && error != kAlreadyReported) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
}

// Opens an empty list. 0 or -108, reported.
static std::int32_t openList(long funcNum) {
    endSession();
    gHbtIDsH = NewFHandle(0);
    const std::int32_t error = gHbtIDsH == nullptr ? kOutOfMemory : 0;
    report(funcNum, error);
    return error;
}

static std::span<HbtID> list() {
    if (gHbtIDsH == nullptr) {
        return {};
    }
    return {reinterpret_cast<HbtID*>(*gHbtIDsH), static_cast<std::size_t>(gNumHbtIDs)};
}

std::int32_t WriteStringToFile(const char* path, const char* text) {
    return WriteWholeFile(path, text, std::strlen(text)) == 0 ? 0 : kWriteFailed;
}

void HBT_Plugin_Startup() {
    char path[256];
    GetAppFolderPathWithDelimiter(path);
    const std::size_t length = std::strlen(path);
    my_strncpy(path + length, "DebugLst2.yes", sizeof path - length);
    gDebugLst2Files = FileExists(path);
}

// A folder stays, even an empty one: only a file is handed over.
static void removeFile(const char* path) {
    FSSpec spec;
    if (GetFSSpecFromFullPath(path, &spec) == 0 && !IsFolder(spec)) {
        platform::machine().files().remove(spec);
    }
}

std::int32_t HBT_ShowOnMapInit(long funcNum, char** paramHandle, char** /*resultHandle*/) {
    endSession();
    char path[256];
    removeFile(PathWhereWeWriteLst2File(path));
    char name[64];
    strcpyFHandleToCStr(name, sizeof name, paramHandle);
    const std::size_t length = std::strlen(name);
    if (length < 1 || length >= kMapNameSize) {
        ReportErrorMsgToUser("HBT_ShowOnMapInit error: Map name must be between 1 and 41 chars");
        return 0;
    }
    copyInto(gMapName, name);
    return openList(funcNum);
}

// Ends the session with a message.
static std::int32_t refuse(long funcNum, char** resultHandle, const char* functionName, const char* before,
                           const char* after) {
    char message[256];
    std::size_t length = 0;
    for (const char* part : {before, functionName, after}) {
        my_strncpy(message + length, part, sizeof message - length);
        length = std::strlen(message);
    }
    ReportErrorMsgToUser(message);
    endSession();
    return Answer(funcNum, resultHandle, "Error");
}

std::int32_t ApendHbtID(long funcNum, char** paramHandle, char** resultHandle, const char* functionName) {
    const std::string_view text = FHandleText(paramHandle);
    if (text.size() >= 32) {
        return refuse(funcNum, resultHandle, functionName, "Parameter sent to ", " is too long.");
    }
    if (gHbtIDsH == nullptr) {
        return 0;
    }
    char parameter[34] = ":\r";
    my_strncpy(parameter + 2, text, sizeof parameter - 2);
    const HbtID id = HbtStr2ID(parameter + 2);
    if (IsBadHbtID(id)) {
        return refuse(funcNum, resultHandle, functionName, "Bad HBT ID sent to ", parameter);
    }
    if (gNumHbtIDs > 0 && CompareHbtIDs(&list().back(), &id) == 0) {
        return 0;
    }
    if (const std::int32_t error = AppendStructToHandle(gHbtIDsH, &id, sizeof id); error != 0) {
        report(funcNum, error);
        endSession();
        SetResultsHandle(resultHandle, "Error");
        return error;
    }
    ++gNumHbtIDs;
    return 0;
}

std::int32_t HBT_ShownOnMapAppendID(long funcNum, char** paramHandle, char** resultHandle) {
    return ApendHbtID(funcNum, paramHandle, resultHandle, "HBT_ShownOnMapAppendID");
}

std::int32_t HBT_FindIDsAppendID(long funcNum, char** paramHandle, char** resultHandle) {
    return ApendHbtID(funcNum, paramHandle, resultHandle, "HBT_FindIDsAppendID");
}

// A light shuffle before each sort, so that a list that is sorted already, the usual case, is none for the sort. The
// last record is never chosen, deliberately: the modulus is count - 1.
template <class T>
static void mixUpSome(std::span<T> records) {
    const std::size_t modulus = records.size() - 1;
    for (std::size_t times = records.size() / 40 + 1; times > 0; --times) {
        const std::size_t i = static_cast<std::size_t>(std::rand()) % modulus;
        const std::size_t j = static_cast<std::size_t>(std::rand()) % modulus;
        if (i != j) {
            std::swap(records[i], records[j]);
        }
    }
}

void SortAndRemoveDuplicateHbtIDs() {
    const std::span<HbtID> ids = list();
    if (ids.size() < 2) {
        return;
    }
    mixUpSome(ids);
    std::sort(ids.begin(), ids.end(), [](const HbtID& a, const HbtID& b) { return CompareHbtIDs(&a, &b) < 0; });
    const auto end =
        std::unique(ids.begin(), ids.end(), [](const HbtID& a, const HbtID& b) { return CompareHbtIDs(&a, &b) == 0; });
    gNumHbtIDs = static_cast<std::int32_t>(end - ids.begin());
    SetFHandleSize(gHbtIDsH, static_cast<unsigned long>(gNumHbtIDs) * sizeof(HbtID));
}

namespace {

// A GEOLENS ID as one number whose order is that of CompareGeolensIDs: group 10 bits, kind 2, record 14, layer without
// its coding 4, layer 7, object 17. The bad ID is 0.
using PackedID = std::uint64_t;

PackedID pack(const GeolensID& id) {
    const auto field = [](auto value, int shift) { return static_cast<std::uint64_t>(value) << shift; };
    if (IsBadGeolensID(id)) {
        return 0;
    }
    return field(id.groupNum, 44) | field(id.kind == 'S' ? 2 : 1, 42) | field(id.recordNum, 28) |
           field(LayerNumMinusSpecialCoding(id.layerNum), 24) | field(id.layerNum, 17) | field(id.objectNum, 0);
}

GeolensID unpack(PackedID packed) {
    const auto field = [packed](int shift, int bits) {
        return static_cast<std::int32_t>(packed >> shift & ((1U << bits) - 1));
    };
    if (packed == 0) {
        return {};
    }
    return {field(0, 17), static_cast<std::int16_t>(field(44, 10)), static_cast<std::int16_t>(field(28, 14)),
            static_cast<std::int16_t>(field(17, 7)), field(42, 2) == 2 ? 'S' : 'B'};
}

struct Release {
    void operator()(PackedID* block) const { allocator().release(block); }
};

// The IDs of a list file, one a line, in the order of the lines; a malformed line is the bad ID.
struct ObjectList {
    std::unique_ptr<PackedID[], Release> storage;
    std::size_t count = 0;
    std::span<PackedID> ids() { return {storage.get(), count}; }
};

// Reads the list file. Its text ends at the first NUL.
std::int32_t readObjects(const char* path, ObjectList& objects) {
    char** content = ReadFileIntoTerminatedFHandle(path, true);
    if (content == nullptr) {
        return kAlreadyReported;
    }
    const char* line = *content;
    const auto lines = static_cast<std::size_t>(NumLinesInText(line));
    objects.storage.reset(static_cast<PackedID*>(allocator().allocateZeroed(lines * sizeof(PackedID))));
    if (objects.storage != nullptr) {
        objects.count = lines;
        for (PackedID& id : objects.ids()) {
            id = pack(GeolensStr2ID(line));
            line += std::strcspn(line, "\r\n");
            line += line[0] == '\r' && line[1] == '\n' ? 2 : (line[0] == 0 ? 0 : 1);
        }
    }
    DisposeAndClearFHandle(&content);
    return objects.storage == nullptr ? kOutOfMemory : 0;
}

bool strictlyAscending(std::span<const PackedID> ids) {
    return std::adjacent_find(ids.begin(), ids.end(), [](PackedID a, PackedID b) { return a >= b; }) == ids.end();
}

// Sorts the objects and leaves them beside the list file, so that the next reader finds them sorted.
std::int32_t sortObjects(const char* path, std::span<PackedID> ids) {
    mixUpSome(ids);
    std::sort(ids.begin(), ids.end());
    static constexpr std::size_t kLine = kGeolensTextSize - 1 + 2;
    std::string text(ids.size() * kLine + 1, '\0');
    char* out = text.data();
    for (const PackedID id : ids) {
        GeolensID2Str(unpack(id), out);
        std::memcpy(out + kGeolensTextSize - 1, "\r\n", 2);
        out += kLine;
    }
    text.pop_back();
    if (std::strlen(path) > kLongestSortedPath) {
        return kWriteFailed;
    }
    return WriteStringToFile((std::string(path) + ".sorted").c_str(), text.c_str());
}

// The objects whose record is in the list, in their order, as LST2 lines.
std::string mergeIntoLST2(std::span<const HbtID> wanted, std::span<const PackedID> objects) {
    std::string text;
    std::size_t i = 0;
    for (std::size_t j = 0; i < wanted.size() && j < objects.size();) {
        const GeolensID object = unpack(objects[j]);
        const HbtID record = GeolensID2HbtID(object);
        const int order = CompareHbtIDs(&wanted[i], &record);
        if (order < 0) {
            ++i;
            continue;
        }
        if (order == 0) {
            char id[kGeolensTextSize];
            char layer[kLayerNameSize] = "";
            GeolensID2Str(object, id);
            text.append(id).append("\t").append(LayerNum2Str(object.layerNum, layer)).append("\t");
            text.append(gMapName).append("\r\n");
        }
        ++j;
    }
    return text;
}

// The answer itself, or the path of the file that holds it when it is too long (or when debugging).
std::int32_t answerLST2(long funcNum, char** resultHandle, const std::string& text) {
    if (text.size() <= kLongestResultText && !gDebugLst2Files) {
        return Answer(funcNum, resultHandle, text);
    }
    char path[256];
    if (WriteStringToFile(PathWhereWeWriteLst2File(path), text.c_str()) != 0) {
        ReportErrorMsgToUser("Error writing the list of IDs to the disk.");
        SetFHandleSize(resultHandle, 0);
        return kAlreadyReported;
    }
    return Answer(funcNum, resultHandle, path);
}

std::int32_t showOnMap(long funcNum, const char* path, char** resultHandle) {
    if (gNumHbtIDs == 0) {
        return 0;
    }
    ObjectList objects;
    if (const std::int32_t error = readObjects(path, objects); error != 0) {
        report(funcNum, error);
        SetFHandleSize(resultHandle, 0);
        return error;
    }
    if (objects.count > 1 && !strictlyAscending(objects.ids()) && sortObjects(path, objects.ids()) != 0) {
        ReportErrorMsgToUser("Error writing sorted list of IDs to the disk.");
        return kAlreadyReported;
    }
    SortAndRemoveDuplicateHbtIDs();
    return answerLST2(funcNum, resultHandle, mergeIntoLST2(list(), objects.ids()));
}

}  // namespace

std::int32_t HBT_ShowOnMapGetLST2(long funcNum, char** paramHandle, char** resultHandle) {
    char path[256];
    strcpyFHandleToCStr(path, sizeof path, paramHandle);
    std::int32_t error = 0;
    if (FileExists(path)) {
        try {
            error = showOnMap(funcNum, path, resultHandle);
        } catch (const std::bad_alloc&) {
            SetFHandleSize(resultHandle, 0);
            error = kOutOfMemory;
            report(funcNum, error);
        }
    } else {
        char message[320] = "File does not exist:\r";
        const std::size_t length = std::strlen(message);
        my_strncpy(message + length, path, sizeof message - length);
        ReportErrorMsgToUser(message);
        error = kNoSuchFile;
        report(funcNum, error);
        SetFHandleSize(resultHandle, 0);
    }
    endSession();
    return error;
}

namespace {

// The distinct HBT IDs of one group become the list.
std::int32_t collectGroup(std::int32_t group, std::span<const PackedID> objects) {
    endSession();
    gHbtIDsH = NewFHandle(objects.size() * sizeof(HbtID));
    if (gHbtIDsH == nullptr) {
        return kOutOfMemory;
    }
    for (const PackedID packed : objects) {
        const GeolensID object = unpack(packed);
        const HbtID id = GeolensID2HbtID(object);
        if (packed == 0 || object.groupNum != group || IsBadHbtID(id) ||
            (gNumHbtIDs > 0 && CompareHbtIDs(&list().back(), &id) == 0)) {
            continue;
        }
        ++gNumHbtIDs;
        list().back() = id;
    }
    SetFHandleSize(gHbtIDsH, static_cast<unsigned long>(gNumHbtIDs) * sizeof(HbtID));
    SortAndRemoveDuplicateHbtIDs();
    return 0;
}

std::int32_t writeDebugList(const char* path) {
    std::string text;
    for (const HbtID& id : list()) {
        char line[kHbtTextSize];
        HbtID2Str(id, line);
        text.append(line).append("\r\n");
    }
    if (WriteStringToFile((std::string(path) + ".hbtIDs").c_str(), text.c_str()) == 0) {
        return 0;
    }
    ReportErrorMsgToUser("Error writing sorted list of IDs to the disk.");
    return kAlreadyReported;
}

std::int32_t getInfo(std::string_view parameter) {
    const std::size_t bar = parameter.find('|');
    if (bar == std::string_view::npos) {
        ReportErrorMsgToUser("Missing vertical bar in HBT_GetInfoInit parameter");
        return kAlreadyReported;
    }
    char group[16];
    char path[256];
    my_strncpy(group, parameter.substr(0, bar), sizeof group);
    my_strncpy(path, parameter.substr(bar + 1), sizeof path);
    ObjectList objects;
    std::int32_t error = readObjects(path, objects);
    if (!gDebugLst2Files) {
        removeFile(path);  // a one-shot hand-over, gone whether or not it could be read
    }
    if (error == 0) {
        error = collectGroup(DecimalPrefix(group), objects.ids());
    }
    if (error == 0 && gDebugLst2Files) {
        error = writeDebugList(path);
    }
    return error;
}

}  // namespace

std::int32_t HBT_GetInfoInit(long funcNum, char** paramHandle, char** resultHandle) {
    std::int32_t error = kOutOfMemory;
    try {
        char parameter[1024];
        strcpyFHandleToCStr(parameter, sizeof parameter, paramHandle);
        error = getInfo(parameter);
    } catch (const std::bad_alloc&) {
    }
    if (error == 0) {
        return AnswerNumber(funcNum, resultHandle, gNumHbtIDs);
    }
    endSession();
    report(funcNum, error);
    return error;
}

std::int32_t HBT_GetInfoGetID(long funcNum, char** paramHandle, char** resultHandle) {
    char text[64];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const std::int32_t index = DecimalPrefix(text);
    if (index < 1 || index > gNumHbtIDs || gHbtIDsH == nullptr) {
        return 0;
    }
    char id[kHbtTextSize];
    HbtID2Str(list()[static_cast<std::size_t>(index) - 1], id);
    const std::int32_t error = Answer(funcNum, resultHandle, id);
    if (error != 0) {
        SetFHandleSize(resultHandle, 0);
    }
    return error;
}

std::int32_t HBT_GetInfoDispose(long /*funcNum*/, char** /*paramHandle*/, char** /*resultHandle*/) {
    endSession();
    return 0;
}

std::int32_t HBT_FindIDsInit(long funcNum, char** /*paramHandle*/, char** /*resultHandle*/) {
    return openList(funcNum);
}

std::int32_t HBT_FindIDsGetNumIDs(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    SortAndRemoveDuplicateHbtIDs();
    return AnswerNumber(funcNum, resultHandle, gNumHbtIDs);
}

std::int32_t HBT_FindIDsGetID(long funcNum, char** paramHandle, char** resultHandle) {
    return HBT_GetInfoGetID(funcNum, paramHandle, resultHandle);
}

std::int32_t HBT_FindIDsDispose(long funcNum, char** paramHandle, char** resultHandle) {
    return HBT_GetInfoDispose(funcNum, paramHandle, resultHandle);
}

}  // namespace quil
