// IDs of map objects and of the records that group them, and the names of the map layers.
#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

namespace quil {

// A map object as the mapping application names it: 16 digits, "11", record (4), group (3), layer (2), object (5).
struct GeolensID {
    std::int32_t objectNum;
    std::int16_t groupNum;
    std::int16_t recordNum;
    std::int16_t layerNum;  // above 11: a layer from 0 to 9 and a multiple of ten
    char kind;              // 'S' for layers 10 and 11, else 'B'
};

// A record that groups map objects: kind, group without leading zeros, record in six digits (B12000345).
struct HbtID {
    std::int16_t groupNum;
    std::int16_t recordNum;
    char kind;
};

inline constexpr int kGeolensTextSize = 17;  // with terminator
inline constexpr int kHbtTextSize = 11;
inline constexpr int kLayers = 12;
inline constexpr int kLayerNameSize = 32;

extern char gLayerNames[kLayers][kLayerNameSize];

// Parsers: the all-zero ID for anything malformed. GeolensStr2ID looks at the first 16 characters alone.
GeolensID GeolensStr2ID(const char* text);
HbtID HbtStr2ID(const char* text);
void GeolensID2Str(const GeolensID& id, char* buffer);  // 17 bytes
void HbtID2Str(const HbtID& id, char* buffer);          // 11 bytes
bool IsBadGeolensID(const GeolensID& id);
bool IsBadHbtID(const HbtID& id);
HbtID GeolensID2HbtID(const GeolensID& id);

// -1, 0 or 1. Group, kind, record, then for objects the layer without and with its coding, and the object number:
// sorted objects are sorted by the record that they belong to.
int CompareGeolensIDs(const void* a, const void* b);
int CompareHbtIDs(const void* a, const void* b);

std::int16_t LayerNumMinusSpecialCoding(std::int16_t layer);
// Copies the layer's name to `dst` (32 bytes); a layer without a name leaves it alone.
char* LayerNum2Str(std::int16_t layer, char* dst);
// Full path of "LST2.txt" in the application's folder; `dst` holds 256 bytes.
char* PathWhereWeWriteLst2File(char* dst);

std::int32_t HBT_Version(long funcNum, char** paramHandle, char** resultHandle);
std::int32_t HBT_SetLayerName(long funcNum, char** paramHandle, char** resultHandle);

// Puts the layer names back to what they are at load.
void ResetMapIDs();

}  // namespace quil
