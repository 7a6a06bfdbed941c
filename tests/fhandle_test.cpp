// Byte handles: exact growth, both text forms, the codes when memory runs out.
#include "util/fhandle.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/failing_allocator.h"

namespace {

using namespace quil;
using namespace std::string_literals;

// A handle with given bytes, released at the end.
class Handle {
  public:
    explicit Handle(const std::string& bytes = "") : handle_(NewFHandle(bytes.size())) {
        if (handle_ != nullptr) {
            bytes.copy(*handle_, bytes.size());
        }
    }
    ~Handle() { DisposeAndClearFHandle(&handle_); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    operator char**() const { return handle_; }
    std::string bytes() const { return {*handle_, static_cast<std::size_t>(GetFHandleSize(handle_))}; }

  private:
    char** handle_;
};

TEST(FHandle, NewHandlesAreZeroFilledAndNeverWithoutABlock) {
    EXPECT_EQ(Handle(""s).bytes(), "");
    char** handle = NewFHandle(0);
    ASSERT_NE(*handle, nullptr);
    EXPECT_EQ((*handle)[0], 0);
    DisposeAndClearFHandle(&handle);
    EXPECT_EQ(handle, nullptr);
    DisposeAndClearFHandle(&handle);
    DisposeAndClearFHandle(nullptr);

    char** large = NewFHandle(1000);
    EXPECT_EQ(GetFHandleSize(large), 1000);
    EXPECT_EQ(std::string(*large, 1000), std::string(1000, 0));
    DisposeAndClearFHandle(&large);
    EXPECT_EQ(NewFHandle(0x100000000UL), nullptr) << "sizes are 32-bit";
}

TEST(FHandle, GrowsByExactlyOneStepAndZeroesWhatItGains) {
    support::FailingAllocator memory;
    {
        Handle handle("abcdef");
        const char* block = *handle;
        EXPECT_EQ(SetFHandleSize(handle, 2), 0);
        EXPECT_EQ(*static_cast<char**>(handle), block) << "shrinking keeps the block";
        EXPECT_EQ((*handle)[5], 'f') << "and what lies behind the size";
        EXPECT_EQ(SetFHandleSize(handle, 6), 0);
        EXPECT_EQ(handle.bytes(), "ab\0\0\0\0"s) << "regained bytes are zero";
        const std::size_t bytes = memory.liveBytes();
        EXPECT_EQ(SetFHandleSize(handle, 1000), 0);
        EXPECT_EQ(memory.liveBytes(), bytes + 994) << "no spare capacity";
        EXPECT_EQ(SetFHandleSize(handle, 0x100000000UL), -108);
        EXPECT_EQ(GetFHandleSize(handle), 1000);
        EXPECT_EQ(memory.liveBlocks(), 2U);
    }
    EXPECT_EQ(memory.liveBlocks(), 0U);
}

TEST(FHandle, RoomInTheRecordChangesNothingThatCallersSee) {
    support::FailingAllocator memory;
    char** handle = NewFHandleWithRoom(8);
    EXPECT_EQ(GetFHandleSize(handle), 0);
    memory.failCall(1);
    EXPECT_EQ(SetResultsHandle(handle, "abcdefgh"), 0) << "what fits takes no block";
    EXPECT_EQ(EnsureHandleIsNullTerminated(handle), -108);
    EXPECT_EQ(std::string(*handle, 8), "abcdefgh");
    EXPECT_EQ(SetFHandleSize(handle, 2), 0);
    EXPECT_EQ(SetFHandleSize(handle, 8), 0);
    EXPECT_EQ(std::string(*handle, 8), "ab\0\0\0\0\0\0"s) << "regained bytes are zero";
    EXPECT_EQ(SetFHandleSize(handle, 12), 0);
    EXPECT_EQ(std::string(*handle, 12), "ab"s + std::string(10, 0));
    EXPECT_EQ(memory.liveBlocks(), 2U);
    DisposeAndClearFHandle(&handle);
    EXPECT_EQ(memory.liveBlocks(), 0U);
}

TEST(FHandle, LargeBlocksGrowWithTheirContent) {
    const std::string content(3'000'000, 'x');
    char** handle = NewFHandle(0);
    EXPECT_EQ(SetResultsHandleText(handle, content), 0);
    EXPECT_EQ(SetFHandleSize(handle, 2'000'000), 0);
    EXPECT_EQ(EnsureHandleIsNullTerminated(handle), 0);
    EXPECT_EQ(SetFHandleSize(handle, 5'000'000), 0);
    EXPECT_EQ(std::string(*handle, 5'000'000), content.substr(0, 2'000'000) + std::string(3'000'000, 0));
    DisposeAndClearFHandle(&handle);
}

TEST(FHandle, RecordsOfDisposedHandlesComeBackEmpty) {
    for (int round = 0; round < 3; ++round) {
        char** first = NewFHandleWithRoom(64);
        char** second = NewFHandleWithRoom(500);
        ASSERT_NE(first, second);
        for (char** handle : {first, second}) {
            EXPECT_EQ(GetFHandleSize(handle), 0);
            EXPECT_STREQ(*handle, "") << "reads as the empty text";
            EXPECT_EQ(SetFHandleSize(handle, 8), 0);
            EXPECT_EQ(std::string(*handle, 8), std::string(8, 0)) << round;
            EXPECT_EQ(SetResultsHandleText(handle, std::string(round == 1 ? 4000 : 40, 'x')), 0);
        }
        DisposeAndClearFHandle(&first);
        DisposeAndClearFHandle(&second);
    }
    ReleaseKeptHandles();
}

TEST(FHandle, NullArgumentsAreTolerated) {
    char text[] = "a";
    char dest[4] = "xyz";
    Handle handle("ab");
    EXPECT_EQ(GetFHandleSize(nullptr), 0);
    EXPECT_EQ(SetFHandleSize(nullptr, 1), -1);
    EXPECT_EQ(SetResultsHandle(nullptr, "a"), -1);
    EXPECT_EQ(SetResultsHandleText(nullptr, "a"), -1);
    EXPECT_EQ(SetHandleContentsAndIncludeTerminator(nullptr, "a"), -1);
    EXPECT_EQ(EnsureHandleIsNullTerminated(nullptr), -1);
    RemoveTrailingNullTerminator(nullptr);
    EXPECT_EQ(CatHandleContents(nullptr, "a"), -1);
    EXPECT_EQ(CatHandleContents(handle, nullptr), -1);
    EXPECT_EQ(MergeHandleContents(nullptr, text), -1);
    EXPECT_EQ(MergeHandleContents(handle, nullptr), -1);
    EXPECT_EQ(AppendStructToHandle(nullptr, "a", 1), -1);
    EXPECT_EQ(strcpyFHandleToCStr(dest, 4, nullptr), 0U);
    EXPECT_STREQ(dest, "");
    EXPECT_EQ(CopyFHandleToResultHandle(handle, nullptr), -1);
    EXPECT_EQ(FHandleText(nullptr), "");
    EXPECT_EQ(handle.bytes(), "ab");
}

TEST(FHandle, EachOperationLeavesTheFormOfTextThatItPromises) {
    const struct {
        std::string before;
        std::function<std::int32_t(char**)> act;
        std::string after;
    } cases[] = {
        {"old text\0"s, [](auto h) { return SetResultsHandle(h, "new"); }, "new"},
        {"o", [](auto h) { return SetResultsHandle(h, "a new text"); }, "a new text"},
        {"old", [](auto h) { return SetResultsHandle(h, nullptr); }, "old"},
        {"old", [](auto h) { return SetResultsHandleText(h, std::string_view("a\0b", 3)); }, "a\0b"s},
        {"old text", [](auto h) { return SetHandleContentsAndIncludeTerminator(h, "new"); }, "new\0"s},
        {"old", [](auto h) { return SetHandleContentsAndIncludeTerminator(h, nullptr); }, "\0"s},
        {"", [](auto h) { return EnsureHandleIsNullTerminated(h); }, "\0"s},
        {"abc", [](auto h) { return EnsureHandleIsNullTerminated(h); }, "abc\0"s},
        {"abc\0"s, [](auto h) { return EnsureHandleIsNullTerminated(h); }, "abc\0"s},
        {"\0"s, [](auto h) { return RemoveTrailingNullTerminator(h), 0; }, "\0"s},
        {"a\0\0"s, [](auto h) { return RemoveTrailingNullTerminator(h), 0; }, "a\0"s},
        {"ab", [](auto h) { return RemoveTrailingNullTerminator(h), 0; }, "ab"},
        {"abc\0"s, [](auto h) { return CatHandleContents(h, "de"); }, "abcde\0"s},
        {"abc", [](auto h) { return CatHandleContents(h, "de"); }, "abcde"},
        {"", [](auto h) { return CatHandleContents(h, ""); }, "\0"s},
        {"ab\0"s, [](auto h) { return AppendStructToHandle(h, "\1\0\2", 3); }, "ab\0\1\0\2"s},
    };
    for (const auto& c : cases) {
        Handle handle(c.before);
        EXPECT_EQ(c.act(handle), 0) << c.before;
        EXPECT_EQ(handle.bytes(), c.after) << c.before;
    }
}

TEST(FHandle, MergeAddsOnlyTheLinesThatAreNotThere) {
    const struct {
        std::string list;
        std::string lines;
        std::int32_t code;
        std::string merged;
    } cases[] = {
        {"yz\r\0"s, "x\ryz", 0, "yz\rx\r\0"s},
        {"", "a\rb\ra", 0, "a\rb\r\0"s},
        {"xyz\r\0"s, "yz", 0, "xyz\r\0"s},          // the tail of a longer line counts as present
        {"yz\r\0"s, "xyz", 0, "yz\rxyz\r\0"s},      // a longer line does not
        {"yz\0"s, "yz", 0, "yzyz\r\0"s},            // nor one without its CR
        {"a\r\0"s, "\r\r\rb\r\r", 0, "a\rb\r\0"s},  // empty pieces
        {"a\r\0"s, "", 0, "a\r\0"s},
        {"", "a\r" + std::string(510, 'n'), 0, "a\r" + std::string(510, 'n') + "\r\0"s},
        {"", "a\r" + std::string(511, 'n') + "\rb", -345, "a\r\0"s},
    };
    for (const auto& c : cases) {
        for (const std::size_t empty : {0U, 20U}) {  // many lines, be they empty, are looked up in another way
            Handle handle(c.list);
            std::string lines = std::string(empty, '\r') + c.lines;
            EXPECT_EQ(MergeHandleContents(handle, lines.data()), c.code);
            EXPECT_EQ(handle.bytes(), c.merged);
        }
    }
}

TEST(FHandle, MergesManyLinesAsOneByOne) {
    std::mt19937 random(20265);
    for (int round = 0; round < 500; ++round) {
        std::string texts[2];  // short lines of few letters, often the end of another
        for (std::string& text : texts) {
            for (auto i = random() % 200; i != 0; --i) {
                text += "ab\r"[random() % 3];
            }
        }
        Handle together(texts[0]);
        Handle single(texts[0]);
        std::string lines = texts[1];
        EXPECT_EQ(MergeHandleContents(together, lines.data()), 0);
        std::istringstream pieces(texts[1]);
        for (std::string piece; std::getline(pieces, piece, '\r');) {
            EXPECT_EQ(MergeHandleContents(single, piece.data()), 0);
        }
        ASSERT_EQ(together.bytes(), single.bytes());
    }
}

TEST(FHandle, ComparesBytesAsSignedAndPadsWithZeros) {
    const struct {
        std::string a, b;
        int order;
    } cases[] = {{"", "", 0},      {"a", "a\0"s, 0}, {"a", "b", -1},   {"ab", "a", 1},
                 {"a", "\xE9", 1}, {"\xE9", "", -1}, {"", "\x01", -1}, {"\x7F", "\x80", 1}};
    for (const auto& c : cases) {
        EXPECT_EQ(strcmpFHandles(Handle(c.a), Handle(c.b)), c.order) << c.a << " " << c.b;
        EXPECT_EQ(strcmpFHandles(Handle(c.b), Handle(c.a)), -c.order) << c.a << " " << c.b;
    }
    EXPECT_EQ(strcmpFHandles(nullptr, nullptr), 0);
    EXPECT_EQ(strcmpFHandles(nullptr, Handle("\0"s)), 0);
}

TEST(FHandle, CopiesToTextsAreBoundedAndAnswerTheWholeLength) {
    char dest[8];
    for (unsigned long size = 1; size <= sizeof dest; ++size) {
        std::fill(std::begin(dest), std::end(dest), '#');
        EXPECT_EQ(strcpyFHandleToCStr(dest, size, Handle("abcdef\0"s)), 6U);
        EXPECT_EQ(std::string(dest), "abcdef"s.substr(0, size - 1));
        EXPECT_TRUE(size == sizeof dest || dest[size] == '#');
    }
    EXPECT_EQ(strcpyFHandleToCStr(nullptr, 0, Handle("abc")), 3U);
    EXPECT_EQ(strcpyFHandleToCStr(dest, 4, Handle("\0"s)), 0U);
    EXPECT_STREQ(dest, "");

    Handle result("old");
    EXPECT_EQ(CopyFHandleToResultHandle(Handle("abc\0"s), result), 0);
    EXPECT_EQ(result.bytes(), "abc");
    EXPECT_EQ(CopyFHandleToResultHandle(result, result), 0);
    EXPECT_EQ(result.bytes(), "abc");
    EXPECT_EQ(CopyFHandleToResultHandle(nullptr, result), 0);
    EXPECT_EQ(result.bytes(), "");
    EXPECT_EQ(FHandleText(Handle("ab\0c"s)), "ab");
    EXPECT_EQ(FHandleText(Handle("abc")), "abc");
}

TEST(FHandle, WritesNumbersInDecimal) {
    std::vector<long> values = {0, -1, 9, 10, -10, INT_MAX, INT_MIN + 1L};
    for (std::mt19937 random(2); values.size() < 1000;) {
        values.push_back(static_cast<std::int32_t>(random()) >> (random() % 31));
    }
    for (const long value : values) {
        char dest[12] = "###########";
        mylong2str(value, dest);
        EXPECT_EQ(std::string(dest), std::to_string(value));
    }
}

TEST(FHandle, LineBreaksAreRewrittenAtEachCall) {
    gReturnString[0] = gIbmReturnString[1] = gMacReturnString[0] = 'x';
    EXPECT_STREQ(ReturnString(), "\r");
    EXPECT_STREQ(IbmReturnString(), "\r\n");
    EXPECT_STREQ(MacReturnString(), "\r");
    EXPECT_EQ(ReturnString(), gReturnString);
    EXPECT_EQ(IbmReturnString(), gIbmReturnString);
    EXPECT_EQ(MacReturnString(), gMacReturnString);
}

TEST(FHandle, FailedGrowthAnswersOutOfMemoryAndChangesNothing) {
    using Act = std::function<std::int32_t(char**)>;
    const Handle source("a longer text");
    const std::pair<const char*, Act> acts[] = {
        {"SetFHandleSize", [](auto h) { return SetFHandleSize(h, 9); }},
        {"SetResultsHandle", [](auto h) { return SetResultsHandle(h, "a longer text"); }},
        {"SetHandleContents", [](auto h) { return SetHandleContentsAndIncludeTerminator(h, "a longer text"); }},
        {"Ensure", [](auto h) { return EnsureHandleIsNullTerminated(h); }},
        {"Cat", [](auto h) { return CatHandleContents(h, "x"); }},
        {"Merge", [](auto h) { return MergeHandleContents(h, std::string("x\ry").data()); }},
        {"Append", [](auto h) { return AppendStructToHandle(h, "x", 1); }},
        {"Copy", [&source](auto h) { return CopyFHandleToResultHandle(source, h); }},
    };
    support::FailingAllocator memory;
    for (const auto& [name, act] : acts) {
        Handle handle("abc");
        const char* block = *handle;
        memory.failCall(1);
        EXPECT_EQ(act(handle), -108) << name;
        EXPECT_TRUE(memory.failed()) << name;
        EXPECT_EQ(handle.bytes(), "abc") << name;
        EXPECT_EQ(*static_cast<char**>(handle), block) << name;
        EXPECT_EQ(act(handle), 0) << name;
    }
    for (long n = 1; n <= 2; ++n) {
        memory.failCall(n);
        EXPECT_EQ(NewFHandle(5), nullptr);
    }
    EXPECT_EQ(memory.liveBlocks(), 0U);
}

TEST(FHandle, ARunOfRandomStepsAgreesWithAString) {
    std::mt19937 random(3);
    Handle handle;
    std::string model;
    for (int i = 0; i < 20000; ++i) {
        const std::size_t count = random() % 40;
        const std::string text(count, static_cast<char>('a' + random() % 26));
        switch (random() % 6) {
            case 0:
                SetFHandleSize(handle, count);
                model.resize(count, '\0');
                break;
            case 1:
                CatHandleContents(handle, text.c_str());
                model = model.empty()       ? text + '\0'
                        : model.back() != 0 ? model + text
                                            : model.insert(model.size() - 1, text);
                break;
            case 2:
                AppendStructToHandle(handle, text.data(), static_cast<long>(count));
                model += text;
                break;
            case 3:
                EnsureHandleIsNullTerminated(handle);
                model += model.empty() || model.back() != 0 ? "\0"s : "";
                break;
            case 4:
                RemoveTrailingNullTerminator(handle);
                model.resize(model.size() - (model.size() > 1 && model.back() == 0 ? 1 : 0));
                break;
            default:
                SetResultsHandle(handle, text.c_str());
                model = text;
        }
        ASSERT_EQ(handle.bytes(), model);
    }
}

}  // namespace
