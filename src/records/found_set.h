// Sets of record IDs: the found set, four boolean sets and a saved set, kept between script calls.
//
// A set is an array of 28-byte items in the order in which the IDs were added. IDs have at most 23 bytes; they compare
// by their first 22, as signed bytes, from both ends inwards (0, 21, 1, 20, ...), because IDs made one after the other
// share a long prefix. That order decides which IDs are equal and how sets are walked; what comes back keeps the order
// of adding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/windows.h"

namespace quil {

inline constexpr std::size_t kFoundIDSize = 24;      // bytes of the ID field, terminator included
inline constexpr std::size_t kComparedIDBytes = 22;  // of which so many take part in comparisons
inline constexpr int kBooleanSets = 4;

struct FoundItem {
    char id[kFoundIDSize];    // zero-filled
    std::uint32_t tempIndex;  // position while the set is sorted
};
static_assert(sizeof(FoundItem) == 28);

struct FoundSet {
    std::uint32_t capacity;              // slots allocated; also the total that the progress box tells
    std::uint32_t count;                 // slots in use
    FoundItem* items;                    // owned
    std::uint32_t startTick;             // when the set was initialised
    std::int16_t lastPercent;            // last drawn in the progress box
    std::uint8_t progressShown;          // the box has been drawn at least once
    platform::WindowRef progressWindow;  // the window that it was drawn in
};

extern FoundSet gFoundSet;
extern FoundSet gSavedSet;
extern FoundSet gBooleanSet[kBooleanSets];
// Sets are compared by a hash table; when it looks at more places than this for each ID, it is given up and the sets
// are sorted. One is what a table without any collision takes.
extern std::uint32_t gTableSteps;

// Makes an empty set of `capacity` slots. -108 when memory cannot be had; the set is empty then. A block of 4 GiB or
// more is never to be had.
std::int32_t AllocateSet(FoundSet& set, std::uint32_t capacity);
void DisposeSet(FoundSet& set);
// Disposes `to` and moves the items of `from` there.
void TransferSetFromTo(FoundSet& from, FoundSet& to);
// Adds an ID, cut at 23 bytes; dropped when the set is full.
void AppendID(FoundSet& set, std::string_view id);
// Bytes of an item's ID, 0 to 23.
std::size_t LengthOfID(const FoundItem& item);

// Comparators of the shape that qsort takes, over FoundItem.
int CompareIDStrOnly(const void* a, const void* b);
int CompareIDStrThenTempIndex(const void* a, const void* b);
int CompareTempIndex(const void* a, const void* b);

// Numbers the items 0, 1, 2, ... in their present order.
void SetTempIndex(FoundSet& set);

// Each ID once, at its first occurrence, in the order of adding. Needs no memory, but is faster with some.
void SortAndRemoveDuplicates(FoundSet& set);
// a := the IDs of a that are in b too, once each, in a's order; b is disposed. Returns 0; memory as above.
std::int32_t AndBooleanSets(FoundSet& a, FoundSet& b);
// a := the IDs of a, then those that b adds, once each; b is disposed. 0, or -108 with a empty.
std::int32_t OrBooleanSets(FoundSet& a, FoundSet& b);

// Draws or updates the progress box in the front window, when its time has come.
void ShowFoundSetProgress(FoundSet& set);

// Disposes every set.
void ResetFoundSets();

}  // namespace quil
