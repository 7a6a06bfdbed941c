#include "maplayers/map_ids.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>

#include "util/alerts.h"
#include "util/app_path.h"
#include "util/fhandle.h"
#include "util/numbers.h"
#include "util/result.h"
#include "util/text.h"

namespace quil {

static constexpr const char* kInitialLayerNames[kLayers] = {"zero",     "BIRDS",    "FISH",     "HABITATS",
                                                            "M_MAMMAL", "NESTS",    "REPTILES", "INVERT",
                                                            "SPECIAL",  "T_MAMMAL", "SOCECON",  "MGT"};

// State of this file: the layer names, index 0 never looked up.
char gLayerNames[kLayers][kLayerNameSize] = {"zero",     "BIRDS",  "FISH",    "HABITATS", "M_MAMMAL", "NESTS",
                                             "REPTILES", "INVERT", "SPECIAL", "T_MAMMAL", "SOCECON",  "MGT"};

void ResetMapIDs() {
    for (int i = 0; i < kLayers; ++i) {
        copyInto(gLayerNames[i], kInitialLayerNames[i]);
    }
}

namespace {

// The value of `text`, all of it digits, or -1.
std::int32_t digitsOf(std::string_view text) {
    std::int32_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return -1;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

// The low `count` decimal digits of a number, leading zeros included.
void writeDigits(char* out, std::int32_t value, int count) {
    auto rest = static_cast<std::uint32_t>(value);
    for (int i = count - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
}

template <class T>
int order(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

int order(char a, char b) {
    return order<int>(static_cast<signed char>(a), static_cast<signed char>(b));
}

// The first difference decides.
int firstOf(std::initializer_list<int> results) {
    const auto* found = std::find_if(results.begin(), results.end(), [](int r) { return r != 0; });
    return found == results.end() ? 0 : *found;
}

char kindOfLayer(std::int16_t layer) {
    return layer == 10 || layer == 11 ? 'S' : 'B';
}

}  // namespace

GeolensID GeolensStr2ID(const char* text) {
    static constexpr std::size_t kLength = kGeolensTextSize - 1;
    const std::string_view id(text, strnlen(text, kLength));
    if (id.size() < kLength || id[0] != '1' || id[1] != '1') {
        return {};
    }
    const std::int32_t record = digitsOf(id.substr(2, 4));
    const std::int32_t group = digitsOf(id.substr(6, 3));
    const std::int32_t layer = digitsOf(id.substr(9, 2));
    const std::int32_t object = digitsOf(id.substr(11, 5));
    if (record <= 0 || group <= 0 || layer <= 0 || object <= 0) {
        return {};
    }
    return {object, static_cast<std::int16_t>(group), static_cast<std::int16_t>(record),
            static_cast<std::int16_t>(layer), kindOfLayer(static_cast<std::int16_t>(layer))};
}

void GeolensID2Str(const GeolensID& id, char* buffer) {
    buffer[0] = buffer[1] = '1';
    writeDigits(buffer + 2, id.recordNum, 4);
    writeDigits(buffer + 6, id.groupNum, 3);
    writeDigits(buffer + 9, id.layerNum, 2);
    writeDigits(buffer + 11, id.objectNum, 5);
    buffer[16] = 0;
}

HbtID HbtStr2ID(const char* text) {
    const std::size_t length = strnlen(text, kHbtTextSize);
    if (length < 8 || length > 10) {
        return {};
    }
    const std::string_view id(text, length);
    // Six digits go into 16 bits, deliberately: a value that wraps to a positive number is kept as wrapped.
    const std::int32_t groupDigits = digitsOf(id.substr(1, length - 7));
    const std::int32_t recordDigits = digitsOf(id.substr(length - 6));
    const auto group = static_cast<std::int16_t>(groupDigits);
    const auto record = static_cast<std::int16_t>(recordDigits);
    if (groupDigits < 0 || recordDigits < 0 || group <= 0 || record <= 0) {
        return {};
    }
    return {group, record, id[0]};
}

void HbtID2Str(const HbtID& id, char* buffer) {
    char group[3];
    writeDigits(group, id.groupNum, 3);
    *buffer++ = id.kind;
    const char* first = std::find_if(group, group + 3, [](char c) { return c != '0'; });
    buffer = std::copy(first, static_cast<const char*>(group + 3), buffer);
    writeDigits(buffer, id.recordNum, 6);
    buffer[6] = 0;
}

HbtID GeolensID2HbtID(const GeolensID& id) {
    return {id.groupNum, id.recordNum, id.kind};
}

std::int16_t LayerNumMinusSpecialCoding(std::int16_t layer) {
    return layer == 10 || layer == 11 ? layer : static_cast<std::int16_t>(layer % 10);
}

int CompareGeolensIDs(const void* pa, const void* pb) {
    const auto& a = *static_cast<const GeolensID*>(pa);
    const auto& b = *static_cast<const GeolensID*>(pb);
    return firstOf({order(a.groupNum, b.groupNum), order(a.kind, b.kind), order(a.recordNum, b.recordNum),
                    order(LayerNumMinusSpecialCoding(a.layerNum), LayerNumMinusSpecialCoding(b.layerNum)),
                    order(a.layerNum, b.layerNum), order(a.objectNum, b.objectNum)});
}

int CompareHbtIDs(const void* pa, const void* pb) {
    const auto& a = *static_cast<const HbtID*>(pa);
    const auto& b = *static_cast<const HbtID*>(pb);
    return firstOf({order(a.groupNum, b.groupNum), order(a.kind, b.kind), order(a.recordNum, b.recordNum)});
}

bool IsBadGeolensID(const GeolensID& id) {
    static constexpr GeolensID kBad{};
    return CompareGeolensIDs(&id, &kBad) == 0;
}

bool IsBadHbtID(const HbtID& id) {
    static constexpr HbtID kBad{};
    return CompareHbtIDs(&id, &kBad) == 0;
}

char* LayerNum2Str(std::int16_t layer, char* dst) {
    const int index = layer > 11 ? layer % 10 : layer;
    if (index >= 1 && index < kLayers) {
        my_strncpy(dst, gLayerNames[index], kLayerNameSize);
    }
    return dst;
}

char* PathWhereWeWriteLst2File(char* dst) {
    GetAppFolderPathWithDelimiter(dst);
    const std::size_t length = std::strlen(dst);
    my_strncpy(dst + length, "LST2.txt", 256 - length);
    return dst;
}

std::int32_t HBT_Version(long funcNum, char** /*paramHandle*/, char** resultHandle) {
    return Answer(funcNum, resultHandle, "HBT plugin ver 8.0");
}

std::int32_t HBT_SetLayerName(long /*funcNum*/, char** paramHandle, char** /*resultHandle*/) {
    char text[64];
    strcpyFHandleToCStr(text, sizeof text, paramHandle);
    const char* bar = std::strchr(text, '|');
    if (bar == nullptr) {
        ReportErrorMsgToUser("Missing vertical bar in HBT_SetLayerName parameter");
        return 0;
    }
    const std::string_view name(bar + 1);
    const std::int32_t layer = DecimalPrefix(text);
    if (name.find('|') != std::string_view::npos) {
        ReportErrorMsgToUser(
            "Only one vertical bar is allowed in HBT_SetLayerName parameter.  Use a separate call for each layer you "
            "wish to set.");
    } else if (layer < 1 || layer >= kLayers) {
        ReportErrorMsgToUser("Bad layer number in HBT_SetLayerName parameter");
    } else if (name.empty() || name.size() >= kLayerNameSize) {
        ReportErrorMsgToUser("Bad layer name in HBT_SetLayerName parameter");
    } else {
        copyInto(gLayerNames[layer], bar + 1);
    }
    return 0;
}

}  // namespace quil
