// The converters and my_IsUtf8 on texts of 1 MiB, each beside iconv(3) doing the same. The texts keep to characters
// that both sides convert: iconv's tables differ at two bytes of Mac Roman and lack five of Windows-1252.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "util/charset.h"

namespace {

using namespace quil;

constexpr std::size_t kTextSize = std::size_t{1} << 20;

enum class Kind { kAscii, kMixed, kHigh };

// A text in a single-byte set; in a mixed one every eighth byte is high on average.
std::string singleByteText(Kind kind, std::string_view excluded) {
    std::mt19937 random(20);
    std::string text(kTextSize, 0);
    for (char& c : text) {
        const bool high = kind == Kind::kHigh || (kind == Kind::kMixed && random() % 8 == 0);
        do {
            c = static_cast<char>(high ? 0x80 + random() % 0x80 : 0x20 + random() % 0x5F);
        } while (excluded.find(c) != std::string_view::npos);
    }
    return text;
}

constexpr std::string_view kNotInMacintosh = "\xC6\xF0";
constexpr std::string_view kNotInCp1252 = "\x81\x8D\x8F\x90\x9D";

class Iconv {
  public:
    Iconv(const char* to, const char* from) : converter_(iconv_open(to, from)) {
        if (converter_ == reinterpret_cast<iconv_t>(-1)) {
            throw std::runtime_error("iconv has no such conversion");
        }
    }
    ~Iconv() { iconv_close(converter_); }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    // Bytes stored. Throws when the text is not converted whole.
    std::size_t convert(const std::string& text, std::vector<char>& dest) {
        auto* in = const_cast<char*>(text.data());
        std::size_t inLeft = text.size();
        char* out = dest.data();
        std::size_t outLeft = dest.size();
        iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(converter_, &in, &inLeft, &out, &outLeft) != 0) {
            throw std::runtime_error("iconv refused the text");
        }
        return dest.size() - outLeft;
    }

  private:
    iconv_t converter_;
};

std::string toUtf8(const std::string& text, const char* set) {
    std::vector<char> dest(text.size() * 3 + 1);
    const std::size_t size = Iconv("UTF-8", set).convert(text, dest);
    return {dest.data(), size};
}

// About kTextSize bytes of UTF-8 with the characters of a set.
std::string utf8Text(Kind kind, const char* set, std::string_view excluded) {
    std::string text = toUtf8(singleByteText(kind, excluded), set);
    std::size_t size = std::min(text.size(), kTextSize);
    while (size < text.size() && (text[size] & 0xC0) == 0x80) {
        --size;
    }
    return text.substr(0, size);
}

using Convert = std::function<void(const char* src, char* dest, std::size_t size)>;

void runOurs(benchmark::State& state, const std::string& text, const Convert& convert) {
    std::vector<char> dest(text.size() * 3 + 1);
    for (auto _ : state) {
        convert(text.c_str(), dest.data(), dest.size());
        benchmark::DoNotOptimize(dest.data());
        benchmark::ClobberMemory();
    }
    if (!text.empty() && dest[0] == 0) {
        state.SkipWithError("the text was not converted");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void runIconv(benchmark::State& state, const std::string& text, const char* to, const char* from) {
    std::vector<char> dest(text.size() * 4 + 1);
    Iconv converter(to, from);
    for (auto _ : state) {
        converter.convert(text, dest);
        benchmark::DoNotOptimize(dest.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void runIsUtf8(benchmark::State& state, const std::string& text) {
    bool valid = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
        valid = my_IsUtf8(text.c_str()) && valid;
    }
    if (!valid) {
        state.SkipWithError("the text was not taken as UTF-8");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

void addPair(const std::string& name, const std::string& text, const Convert& convert, const char* to,
             const char* from) {
    benchmark::RegisterBenchmark((name + "/quil").c_str(),
                                 [=](benchmark::State& state) { runOurs(state, text, convert); });
    benchmark::RegisterBenchmark((name + "/iconv").c_str(),
                                 [=](benchmark::State& state) { runIconv(state, text, to, from); });
}

const bool registered = [] {
    const struct {
        Kind kind;
        const char* name;
    } kinds[] = {{Kind::kAscii, "ascii"}, {Kind::kMixed, "mixed"}, {Kind::kHigh, "high"}};
    for (const auto& [kind, kindName] : kinds) {
        const std::string suffix = std::string("/") + kindName;
        addPair("MacRomanToUtf8" + suffix, singleByteText(kind, kNotInMacintosh), my_ConvertMacRomanToUtf8, "UTF-8",
                "MACINTOSH");
        addPair("Windows1252ToUtf8" + suffix, singleByteText(kind, kNotInCp1252), my_ConvertWindows1252ToUtf8, "UTF-8",
                "CP1252");
        const auto toMac = [](const char* src, char* dest, std::size_t size) {
            my_ConvertUtf8ToMacRoman(src, dest, static_cast<long>(size));
        };
        const auto toWindows = [](const char* src, char* dest, std::size_t size) {
            my_ConvertUtf8ToWindows1252(src, dest, static_cast<long>(size));
        };
        const std::string utf8Mac = utf8Text(kind, "MACINTOSH", kNotInMacintosh);
        addPair("Utf8ToMacRoman" + suffix, utf8Mac, toMac, "MACINTOSH", "UTF-8");
        addPair("Utf8ToWindows1252" + suffix, utf8Text(kind, "CP1252", kNotInCp1252), toWindows, "CP1252", "UTF-8");

        benchmark::RegisterBenchmark(("IsUtf8" + suffix + "/quil").c_str(),
                                     [=](benchmark::State& state) { runIsUtf8(state, utf8Mac); });
        // To UTF-16 and to UTF-8 again, as a check by conversion may go; the faster of the two is the peer.
        for (const char* to : {"UTF-16LE", "UTF-8"}) {
            benchmark::RegisterBenchmark(("IsUtf8" + suffix + "/iconv to " + to).c_str(),
                                         [=](benchmark::State& state) { runIconv(state, utf8Mac, to, "UTF-8"); });
        }
    }
    return true;
}();

}  // namespace
