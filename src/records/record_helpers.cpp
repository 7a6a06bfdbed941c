// Record helpers: IDs, stored lookup and link information, the edit switch, repairs of exported files.

#include <algorithm>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>

#include "platform/machine.h"
#include "records/found_set.h"
#include "records/records.h"
#include "util/alerts.h"
#include "util/fhandle.h"
#include "util/file_io.h"
#include "util/result.h"
#include "util/text.h"

namespace quil {

// State of this file.
std::uint32_t gNewIDCounter = 0;        // sequence number within one second
char** gRidsLookupInfoH = nullptr;      // stored lookup information
char** gRidsLinkInfoH = nullptr;        // stored link information
std::uint8_t gUserIsAllowedToEdit = 1;  // whether the user may edit records
std::uint8_t gInVestaPlugin_Idle = 0;   // the idle hook is running

static constexpr short kOutOfMemory = -108;
static constexpr short kFileNotFound = -43;
static constexpr std::size_t kIDLength = 20;
static constexpr std::size_t kPrefixLength = 8;
static constexpr std::uint32_t kThreeDigits = 34 * 34 * 34;

void ResetRecords() {
    ResetFoundSets();
    gNewIDCounter = 0;
    DisposeAndClearFHandle(&gRidsLookupInfoH);
    DisposeAndClearFHandle(&gRidsLinkInfoH);
    gUserIsAllowedToEdit = 1;
    gInVestaPlugin_Idle = 0;
}

void VSTA_Plugin_Idle() {
    if (gInVestaPlugin_Idle != 0) {
        return;
    }
    gInVestaPlugin_Idle = 1;
    // No idle work at present.
    gInVestaPlugin_Idle = 0;
}

std::int32_t VSTAVersion(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "VESTA plugin ver 8.0");
}

void GetNumAsBase34Str(std::uint32_t number, int digits, char* dest) {
    static constexpr char kDigits[] = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ";
    dest[digits] = 0;
    for (int i = digits - 1; i >= 0; --i) {
        dest[i] = kDigits[number % 34];
        number /= 34;
    }
}

std::uint32_t SecondsSince2000() {
    std::tm start{};
    start.tm_year = 100;
    start.tm_mday = 1;
    start.tm_isdst = -1;
    const double seconds = std::difftime(platform::machine().input().seconds(), std::mktime(&start));
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(seconds));
}

std::int32_t VSTANewID(long funcNum, char** paramHandle, char** resultHandle) {
    char prefix[32];
    strcpyFHandleToCStr(prefix, sizeof prefix, paramHandle);
    char id[kIDLength + 1] = "00000000";
    std::memcpy(id, prefix, std::min(std::strlen(prefix), kPrefixLength));
    std::uint32_t seconds = SecondsSince2000();
    if (++gNewIDCounter > kThreeDigits - 1) {
        gNewIDCounter = 1;  // the ID that wraps the counter, and it alone, takes the next second
        ++seconds;
    }
    GetNumAsBase34Str(seconds, 6, id + kPrefixLength);
    GetNumAsBase34Str(gNewIDCounter, 3, id + kPrefixLength + 6);
    GetNumAsBase34Str(platform::machine().input().ticks() % kThreeDigits, 3, id + kPrefixLength + 9);
    if (std::strlen(id) != kIDLength) {
        ReportErrorMsgToUser("Programmer err: strlen(newID) != 20");
    }
    return Answer(funcNum, resultHandle, id);
}

namespace {

// A kind of pipe-separated information that scripts store and read by keyword.
struct InfoKind {
    char*** stored;
    std::span<const char* const> keywords;
    std::ptrdiff_t bars;  // at least so many '|'
    int optionalField;    // field that may be missing, or -1
    const char* tooFewBars;
    const char* unknownKeyword;
    const char* missingField;
};

constexpr const char* kLookupKeywords[] = {"CB_NUMBER", "CN_NUMBER", "CAS_NUMBER", "CHEMICALNAME", "PREFEREDLAYOUT"};
constexpr const char* kLinkKeywords[] = {"RECORDID", "LINKTYPE", "CB_NUMBER", "CAS_NUMBER", "CHEMICALNAME"};

const InfoKind kLookupInfo = {
    &gRidsLookupInfoH,
    kLookupKeywords,
    3,
    4,
    "Programmer error, there must be 3 vertical bars in the VSTA_SetRidsLookupInfo parameter.",
    "Programmer error, parameter does not match keyword in VSTA_GetRidsLookupInfo.",
    "Programmer error, field not found in VSTA_GetRidsLookupInfo."};

const InfoKind kLinkInfo = {&gRidsLinkInfoH,
                            kLinkKeywords,
                            4,
                            -1,
                            "Programmer error, there must be 4 vertical bars in the VSTA_SetRidsLinkInfo parameter.",
                            "Programmer error, parameter does not match keyword in VSTA_GetRidsLinkInfo.",
                            "Programmer error, field not found in VSTA_GetRidsLinkInfo."};

std::int32_t programmerError(long funcNum, char** resultHandle, const char* message) {
    ReportErrorMsgToUser(message);
    return Answer(funcNum, resultHandle, "Error");
}

std::int32_t storeInfo(const InfoKind& kind, long funcNum, char** paramHandle, char** resultHandle) {
    DisposeAndClearFHandle(kind.stored);
    const std::string_view text = FHandleText(paramHandle);
    if (text.empty()) {
        return 0;
    }
    if (std::count(text.begin(), text.end(), '|') < kind.bars) {
        return programmerError(funcNum, resultHandle, kind.tooFewBars);
    }
    char** copy = NewFHandle(0);
    if (copy == nullptr || CopyFHandleToResultHandle(paramHandle, copy) != 0 ||
        EnsureHandleIsNullTerminated(copy) != 0) {
        DisposeAndClearFHandle(&copy);
        return AnswerOutOfMemory(funcNum, resultHandle);
    }
    *kind.stored = copy;
    return 0;
}

std::int32_t readInfo(const InfoKind& kind, long funcNum, char** paramHandle, char** resultHandle) {
    char keyword[64];
    strcpyFHandleToCStr(keyword, sizeof keyword, paramHandle);
    StrToUpper(keyword);
    const auto found = std::find(kind.keywords.begin(), kind.keywords.end(), std::string_view(keyword));
    if (found == kind.keywords.end()) {
        return programmerError(funcNum, resultHandle, kind.unknownKeyword);
    }
    if (*kind.stored == nullptr) {
        return 0;
    }
    const int field = static_cast<int>(found - kind.keywords.begin());
    std::string_view text = FHandleText(*kind.stored);
    for (int i = 0; i < field; ++i) {
        const std::size_t bar = text.find('|');
        if (bar == std::string_view::npos) {
            return field == kind.optionalField ? 0 : programmerError(funcNum, resultHandle, kind.missingField);
        }
        text.remove_prefix(bar + 1);
    }
    return Answer(funcNum, resultHandle, text.substr(0, text.find('|')));
}

}  // namespace

std::int32_t VSTA_SetRidsLookupInfo(long funcNum, char** paramHandle, char** resultHandle) {
    return storeInfo(kLookupInfo, funcNum, paramHandle, resultHandle);
}

std::int32_t VSTA_GetRidsLookupInfo(long funcNum, char** paramHandle, char** resultHandle) {
    return readInfo(kLookupInfo, funcNum, paramHandle, resultHandle);
}

std::int32_t VSTA_SetRidsLinkInfo(long funcNum, char** paramHandle, char** resultHandle) {
    return storeInfo(kLinkInfo, funcNum, paramHandle, resultHandle);
}

std::int32_t VSTA_GetRidsLinkInfo(long funcNum, char** paramHandle, char** resultHandle) {
    return readInfo(kLinkInfo, funcNum, paramHandle, resultHandle);
}

std::int32_t VSTA_UserIsAllowedToEdit(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, gUserIsAllowedToEdit != 0 ? "TRUE" : "FALSE");
}

std::int32_t VSTA_SetUserIsAllowedToEdit(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    char text[256];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const std::string_view word = StrToUpper(text);
    if (word == "TRUE" || word == "FALSE") {
        gUserIsAllowedToEdit = word == "TRUE" ? 1 : 0;
    } else {
        // The message has always named the function so.
        ReportErrorMsgToUser("Programmer error: MENU_SetUserIsAllowedToEdit parameter must be either TRUE or FALSE");
    }
    return 0;
}

std::int32_t VSTA_GetReactivityCodes(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "No longer supported");
}

std::int32_t VSTA_ReactivityCodesToText(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "no longer supported");
}

bool AllowedFilemakerMerChar(unsigned char byte) {
    return byte >= 32 || byte == '\t' || byte == '\n' || byte == '\v' || byte == '\r' || byte == 29;
}

static bool allowed(char c) {
    return AllowedFilemakerMerChar(static_cast<unsigned char>(c));
}

std::int32_t VSTA_StripCharsIllegalInXML(long funcNum, char** paramHandle, char** resultHandle) {
    const auto size = static_cast<unsigned long>(GetFHandleSize(paramHandle));
    if (SetFHandleSize(resultHandle, size + 1) != 0) {
        ReportErrorToUser(funcNum, kOutOfMemory);
        return kOutOfMemory;
    }
    char* end = *resultHandle;
    if (size != 0) {
        end = std::copy_if(*paramHandle, *paramHandle + size, *resultHandle, allowed);
    }
    *end = 0;
    return SetFHandleSize(resultHandle, static_cast<unsigned long>(end - *resultHandle) + 1);
}

namespace {

// Drops the bytes that are not allowed and, with `mendLineEnds`, the first CR of every CR CR LF of the file's own
// bytes. Returns how many bytes are kept.
std::size_t repair(std::span<char> bytes, bool mendLineEnds) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool doubled =
            mendLineEnds && bytes[i] == '\r' && i + 2 < bytes.size() && bytes[i + 1] == '\r' && bytes[i + 2] == '\n';
        if (!doubled && allowed(bytes[i])) {
            bytes[kept++] = bytes[i];
        }
    }
    return kept;
}

// Repairs a file and writes it back when it became shorter. 0 or the error.
std::int32_t repairFile(const char* path, bool mendLineEnds) {
    char** content = ReadFileIntoTerminatedFHandle(path, false);
    if (content == nullptr) {
        return kOutOfMemory;
    }
    const auto size = static_cast<std::size_t>(GetFHandleSize(content)) - 1;
    const std::size_t kept = repair({*content, size}, mendLineEnds);
    const std::int32_t error = kept < size ? WriteBufferToFile(path, *content, kept) : 0;
    DisposeAndClearFHandle(&content);
    return error;
}

std::int32_t answerFailure(long funcNum, char** resultHandle, const char* message, const char* path) {
    char text[512];
    my_strncpy(text, message, sizeof text);
    const std::size_t length = std::strlen(text);
    my_strncpy(text + length, path, sizeof text - length);
    return Answer(funcNum, resultHandle, text);
}

}  // namespace

std::int32_t VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug(long funcNum, char** paramHandle, char** resultHandle) {
    char path[256];
    strcpyFHandleToCStr(path, sizeof path, paramHandle);
    const std::int32_t error = FileExists(path) ? repairFile(path, true) : kFileNotFound;
    if (error != 0) {
        answerFailure(funcNum, resultHandle, "Error: Function failed. VSTA_FixFilemakerXmlFile_CRCRLFStyleSheetBug ",
                      path);
    }
    return error;
}

std::int32_t VSTA_FixFilemakerMerFile_StripUnallowedChars(long funcNum, char** paramHandle, char** resultHandle) {
    char path[256];
    strcpyFHandleToCStr(path, sizeof path, paramHandle);
    const std::int32_t error = FileExists(path) ? repairFile(path, false) : 0;  // a missing file is no error here
    if (error != 0) {
        answerFailure(funcNum, resultHandle, "Error: Function failed. VSTA_FixFilemakerMerFile_StripUnallowedChars ",
                      path);
    }
    return error;
}

}  // namespace quil
