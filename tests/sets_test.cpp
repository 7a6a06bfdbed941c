// Sets of record IDs: order of comparison, set operations against plain oracles, the script functions, the progress
// box.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "records/found_set.h"
#include "records/records.h"
#include "support/failing_allocator.h"
#include "support/script_calls.h"
#include "util/fhandle.h"

namespace {

using quil::FoundSet;
using quil::gBooleanSet;
using quil::gFoundSet;
using IDs = std::vector<std::string>;

class Sets : public support::ScriptFixture {
  protected:
    void showWindows(const IDs& titles) {
        std::vector<platform::WindowRecord> windows(titles.size());
        for (std::size_t i = 0; i < titles.size(); ++i) {
            windows[i].title = titles[i];
            windows[i].width = 800;
            windows[i].height = 600;
        }
        machine().memoryWindows().setWindows(windows);
    }
    void collect(const IDs& ids, int capacity = -1) {
        script(quil::VSTA_InitFoundSet, std::to_string(capacity < 0 ? static_cast<int>(ids.size()) : capacity));
        for (const std::string& id : ids) {
            script(quil::VSTA_SetNextFoundID, id);
        }
    }
    IDs found() {
        IDs ids;
        const std::string text = script(quil::VSTA_GetFoundID, "1|99999999");
        for (std::size_t at = 0; !text.empty() && at <= text.size();) {
            const std::size_t end = std::min(text.find('\r', at), text.size());
            ids.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return ids;
    }
    void makeBooleanSets(const std::vector<IDs>& sets) {
        for (std::size_t i = 0; i < sets.size(); ++i) {
            collect(sets[i]);
            script(quil::VSTA_TransferFoundSetToBooleanSet, std::to_string(i + 1));
        }
    }
    IDs combine(const std::vector<IDs>& sets, const std::string& operators) {
        makeBooleanSets(sets);
        script(quil::VSTA_MakeFoundSetFromBooleanSets, operators);
        for (const FoundSet& set : gBooleanSet) {
            EXPECT_EQ(nullptr, set.items);
        }
        return found();
    }
};

// The first 22 bytes, which decide whether two IDs are the same.
std::string compared(std::string id) {
    id.resize(quil::kFoundIDSize - 1);
    return id.substr(0, quil::kComparedIDBytes);
}

IDs distinct(const IDs& ids) {
    IDs kept;
    std::set<std::string> seen;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(kept),
                 [&seen](const std::string& id) { return seen.insert(compared(id)).second; });
    return kept;
}

IDs both(const IDs& a, const IDs& b) {
    std::set<std::string> inB;
    std::transform(b.begin(), b.end(), std::inserter(inB, inB.end()), compared);
    IDs kept;
    std::copy_if(a.begin(), a.end(), std::back_inserter(kept),
                 [&inB](const std::string& id) { return inB.count(compared(id)) != 0; });
    return distinct(kept);
}

IDs either(IDs a, const IDs& b) {
    a.insert(a.end(), b.begin(), b.end());
    return distinct(a);
}

IDs randomIDs(std::mt19937& random, std::size_t count) {
    IDs ids(count);
    for (std::string& id : ids) {
        id.resize(random() % 8 == 0 ? 23 : 1 + random() % 22, 'x');
        for (std::size_t i = 0; i < std::min<std::size_t>(id.size(), 2); ++i) {
            id[i] = static_cast<char>(random() % 3 == 0 ? 0x80 + random() % 3 : 'a' + random() % 3);
        }
        if (id.size() == 23) {
            id[22] = static_cast<char>('0' + random() % 10);  // takes no part in comparisons
        }
    }
    return ids;
}

quil::FoundItem item(const std::string& id, std::uint32_t index = 0) {
    quil::FoundItem result{};
    std::memcpy(result.id, id.data(), std::min<std::size_t>(id.size(), 23));
    result.tempIndex = index;
    return result;
}

int compare(const std::string& a, const std::string& b) {
    const auto itemA = item(a);
    const auto itemB = item(b);
    EXPECT_EQ(-quil::CompareIDStrOnly(&itemA, &itemB), quil::CompareIDStrOnly(&itemB, &itemA));
    return quil::CompareIDStrOnly(&itemA, &itemB);
}

TEST_F(Sets, CompareIDsFromBothEndsAsSignedBytes) {
    const std::string id(22, 'm');
    const auto with = [&id](std::size_t at, char c) {
        std::string copy = id;
        copy[at] = c;
        return copy;
    };
    const std::size_t order[] = {0, 21, 1, 20, 2, 19, 3, 18, 4, 17, 5, 16, 6, 15, 7, 14, 8, 13, 9, 12, 10, 11};
    for (std::size_t i = 0; i + 1 < std::size(order); ++i) {
        std::string a = with(order[i], 'a');
        a[order[i + 1]] = 'z';
        std::string b = with(order[i], 'b');
        b[order[i + 1]] = 'a';
        EXPECT_EQ(-1, compare(a, b)) << order[i] << " decides before " << order[i + 1];
    }
    EXPECT_EQ(-1, compare("\xE9", "a"));
    EXPECT_EQ(-1, compare("a", "ab"));
    EXPECT_EQ(0, compare(id + "1", id + "2")) << "the 23rd byte takes no part";
    auto first = item("x", 1);
    auto second = item("x", 2);
    EXPECT_EQ(-1, quil::CompareIDStrThenTempIndex(&first, &second));
    EXPECT_EQ(1, quil::CompareTempIndex(&second, &first));
}

TEST_F(Sets, DedupeAndCombineLikePlainOracles) {
    std::mt19937 random(41);
    for (int round = 0; round < 200; ++round) {
        const IDs a = randomIDs(random, random() % 60);
        const IDs b = randomIDs(random, random() % 60);
        const IDs c = randomIDs(random, random() % 30);
        const IDs d = randomIDs(random, random() % 30);
        collect(a);
        script(quil::VSTA_RemoveDuplicateFoundIDs, "");
        ASSERT_EQ(distinct(a), found());
        ASSERT_EQ(both(a, b), combine({a, b}, "and"));
        ASSERT_EQ(either(a, b), combine({a, b}, " Or "));
        ASSERT_EQ(a, combine({a, b}, ""));
        ASSERT_EQ(both(either(a, b), c), combine({a, b, c}, "OR\tAND"));
        ASSERT_EQ(either(both(a, b), either(c, d)), combine({a, b, c, d}, "ANDOROR")) << "pairs first";
        ASSERT_EQ(both(either(a, b), both(c, d)), combine({a, b, c, d}, "or and and xor")) << "the rest is ignored";
    }
}

TEST_F(Sets, AreComparedAlikeByTableAndBySorting) {
    std::mt19937 random(43);
    const std::uint32_t steps = quil::gTableSteps;
    for (const std::size_t count : {33U, 200U, 3000U}) {
        const IDs a = randomIDs(random, count);
        const IDs b = randomIDs(random, count / 2);
        // Enough steps, so few that the table is given up half-way, none; and no memory for it.
        for (const std::uint32_t allowed : {steps, 2U, 1U, 0U}) {
            quil::gTableSteps = allowed;
            collect(a);
            script(quil::VSTA_RemoveDuplicateFoundIDs, "");
            ASSERT_EQ(distinct(a), found()) << allowed;
            ASSERT_EQ(both(a, b), combine({a, b}, "and")) << allowed;
            ASSERT_EQ(either(a, b), combine({a, b}, "or")) << allowed;
        }
        quil::gTableSteps = steps;
        FoundSet set{};
        ASSERT_EQ(0, quil::AllocateSet(set, static_cast<std::uint32_t>(count)));
        for (const std::string& id : a) {
            quil::AppendID(set, id);
        }
        {
            support::FailingAllocator memory;
            memory.failCall(1);
            quil::SortAndRemoveDuplicates(set);
            EXPECT_TRUE(memory.failed());
        }
        quil::TransferSetFromTo(set, gFoundSet);
        ASSERT_EQ(distinct(a), found());
    }
}

TEST_F(Sets, KeepTheOrderOfAdding) {
    collect({"A", "B", "A", "C", "B"}, 10);
    script(quil::VSTA_RemoveDuplicateFoundIDs, "");
    EXPECT_EQ((IDs{"A", "B", "C"}), found());
    EXPECT_EQ(10U, gFoundSet.capacity) << "the capacity stays";
    EXPECT_EQ((IDs{"B", "C"}), combine({{"A", "B", "B", "C"}, {"B", "C", "D"}}, "AND"));
    EXPECT_EQ((IDs{"C", "A", "B"}), combine({{"C", "A"}, {"B", "A"}}, "OR"));
}

TEST_F(Sets, RefuseOtherOperatorsWithTheWholeText) {
    makeBooleanSets({{"A"}, {"B"}});
    script(quil::VSTA_MakeFoundSetFromBooleanSets, "And xor");
    EXPECT_EQ((std::vector<std::string>{"Bad parameter in VSTA_MakeFoundSetFromBooleanSets:AND XOR\r\r"}), alerts());
    EXPECT_EQ(nullptr, gBooleanSet[0].items);
    EXPECT_EQ(0U, gFoundSet.count);
}

TEST_F(Sets, ReadRanges) {
    collect({"A", "B", "C", "D", "E"});
    const std::vector<std::pair<std::string, std::string>> ranges = {
        {"3", "C"}, {"2|99", "B\rC\rD\rE"}, {"6|7", ""}, {"-1", ""}, {"1|1", "A"}, {" 5|5x", "E"}, {"4294967295", ""}};
    for (const auto& [range, answer] : ranges) {
        EXPECT_EQ(answer, script(quil::VSTA_GetFoundID, range)) << range;
        EXPECT_TRUE(alerts().empty()) << range;
    }
    for (const char* range : {"", "0", "x", "0|3"}) {
        EXPECT_EQ("", script(quil::VSTA_GetFoundID, range));
        EXPECT_EQ((IDs{"startingIndex1Relative must be positive in VSTA_GetFoundID\r\r"}), alerts());
    }
    for (const char* range : {"3|2", "3|", "-1|5"}) {
        EXPECT_EQ("", script(quil::VSTA_GetFoundID, range));
        EXPECT_EQ((IDs{"startingIndex1Relative must be <= endingIndex1Relative in VSTA_GetFoundID\r\r"}), alerts());
    }
}

TEST_F(Sets, CutIDsAndDropWhatDoesNotFit) {
    for (const std::size_t length : {0U, 19U, 20U, 22U, 23U, 24U, 31U, 32U, 1000U}) {
        collect({std::string(length, 'i')});
        EXPECT_EQ(std::string(std::min<std::size_t>(length, 23), 'i'), script(quil::VSTA_GetFoundID, "1")) << length;
    }
    collect({"A", "B", "C"}, 2);
    EXPECT_EQ("2", script(quil::VSTA_GetNumFoundIDs, ""));
    for (const char* capacity : {"0", "-5", "", "abc"}) {
        script(quil::VSTA_InitFoundSet, capacity);
        script(quil::VSTA_SetNextFoundID, "A");
        EXPECT_EQ("0", script(quil::VSTA_GetNumFoundIDs, "")) << capacity;
    }
    EXPECT_TRUE(alerts().empty());
    for (const char* capacity : {"4294967295", "2147483647", "153391690"}) {
        EXPECT_EQ("Error", script(quil::VSTA_InitFoundSet, capacity)) << capacity;
        EXPECT_EQ(1U, alerts().size());
        EXPECT_EQ(nullptr, gFoundSet.items);
    }
}

TEST_F(Sets, MoveAndCopy) {
    collect({"A", "B"});
    script(quil::VSTA_TransferFoundSetToSavedSet, "");
    EXPECT_EQ("0", script(quil::VSTA_GetNumFoundIDs, ""));
    script(quil::VSTA_CopySavedSetToFoundSet, "");
    EXPECT_EQ((IDs{"A", "B"}), found());
    script(quil::VSTA_TransferSavedSetToFoundSet, "");
    EXPECT_EQ((IDs{"A", "B"}), found());
    EXPECT_EQ(0U, quil::gSavedSet.count);
    script(quil::VSTA_CopySavedSetToFoundSet, "");
    EXPECT_EQ(0U, gFoundSet.count) << "copying an empty set";
    collect({"A"});
    for (const char* number : {"0", "5", "x", ""}) {
        script(quil::VSTA_TransferFoundSetToBooleanSet, number);
        EXPECT_EQ((IDs{"Error: num1Relative must be between 1 and 4 in VSTA_TransferFoundSetToBooleanSet\r\r"}),
                  alerts());
        EXPECT_EQ(1U, gFoundSet.count);
    }
}

TEST_F(Sets, DrawTheProgressBoxAfterTwoSeconds) {
    machine().state().ticks = 1000;
    showWindows({"Main"});
    collect({}, 64);
    script(quil::VSTA_SetNextFoundID, "1");
    EXPECT_TRUE(effects().drawn.empty()) << "too early";
    machine().state().ticks = 1120;
    for (int i = 2; i <= 64; ++i) {
        script(quil::VSTA_SetNextFoundID, std::to_string(i));
    }
    script(quil::VSTA_SetNextFoundID, "one too many");
    const auto drawn = effects().drawn;
    ASSERT_EQ(63U, drawn.size()) << "once a percent";
    EXPECT_EQ("Main", drawn[0].window);
    EXPECT_EQ("Collecting 64 found IDs", drawn[0].text);
    EXPECT_DOUBLE_EQ(2.0 / 64, drawn[0].fraction.value());
    EXPECT_EQ("Processing found IDs", drawn.back().text);
    EXPECT_FALSE(drawn.back().fraction.has_value());
}

TEST_F(Sets, StartNoProgressBoxPastAThirdNorInAnotherWindow) {
    machine().state().ticks = 0;
    showWindows({"Main"});
    collect(IDs(34, "x"), 100);
    machine().state().ticks = 120;
    script(quil::VSTA_SetNextFoundID, "late");
    EXPECT_TRUE(effects().drawn.empty());

    machine().state().ticks = 0;
    collect({}, 1000);
    machine().state().ticks = 500;
    script(quil::VSTA_SetNextFoundID, "a");
    EXPECT_EQ(1U, effects().drawn.size());
    showWindows({"Other", "Main"});
    for (int i = 0; i < 20; ++i) {
        script(quil::VSTA_SetNextFoundID, "b");
    }
    EXPECT_TRUE(effects().drawn.empty());
    showWindows({"Main"});
    for (int i = 0; i < 20; ++i) {
        script(quil::VSTA_SetNextFoundID, "b");
    }
    EXPECT_FALSE(effects().drawn.empty()) << "the same window again";
}

TEST_F(Sets, SurviveEveryFailingAllocation) {
    const IDs a = {"C", "A", "C"};
    const IDs b = {"B", "A", "D"};
    for (const auto& [operators, whole] : {std::pair<const char*, IDs>{"AND", {"A"}}, {"OR", {"C", "A", "B", "D"}}}) {
        for (long nth = 5;; ++nth) {  // the first four make the handles of the call
            ASSERT_LT(nth, 50);
            makeBooleanSets({a, b});
            const bool failed = [&, text = operators] {  // clang 14 does not capture the binding itself
                support::FailingAllocator memory;
                memory.failCall(nth);
                script(quil::VSTA_MakeFoundSetFromBooleanSets, text);
                return memory.failed();
            }();
            for (const FoundSet& set : gBooleanSet) {
                EXPECT_EQ(nullptr, set.items) << operators << nth;
            }
            if (failed && !alerts().empty()) {
                EXPECT_EQ(0U, gFoundSet.count) << operators << nth;
            } else {
                EXPECT_EQ(whole, found()) << operators << nth;
            }
            if (!failed) {
                break;
            }
        }
    }
}

}  // namespace
