#include "platform/bundle.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/text.h"

namespace platform {

static constexpr std::size_t maxStringsFile = std::size_t{4} << 20;

// --- strings files -------------------------------------------------------------------------------------------------

namespace {

class StringsParser {
  public:
    explicit StringsParser(std::string_view text) : text_(text) {}

    std::string parse(StringsTable& table) {
        if (text_.starts_with("\xEF\xBB\xBF")) {
            at_ = 3;
        }
        while (skipBlanks() && at_ < text_.size()) {
            std::u16string key;
            std::u16string value;
            if (!quoted(key, "a key in quotes") || !sign('=') || !quoted(value, "a value in quotes") || !sign(';')) {
                break;
            }
            // A key given twice has its last value, so that an overriding line can stand below.
            table.insert_or_assign(utf8Of(key), std::move(value));
        }
        return error_;
    }

  private:
    // Counts the lines only when something is wrong: LF, CR and CR LF end one.
    bool fail(std::size_t where, const std::string& what) {
        std::size_t line = 1;
        for (std::size_t i = 0; i < where && i < text_.size(); ++i) {
            line += text_[i] == '\n' || (text_[i] == '\r' && text_.substr(i + 1, 1) != "\n");
        }
        error_ = "line " + std::to_string(line) + ": " + what;
        return false;
    }

    // Blanks and comments; false when a comment does not end.
    bool skipBlanks() {
        while (at_ < text_.size()) {
            const std::string_view rest = text_.substr(at_);
            if (std::string_view(" \t\r\n\v\f").find(rest[0]) != std::string_view::npos) {
                ++at_;
            } else if (rest.starts_with("//")) {
                at_ = std::min(text_.find_first_of("\r\n", at_), text_.size());
            } else if (rest.starts_with("/*")) {
                const std::size_t end = text_.find("*/", at_ + 2);
                if (end == std::string_view::npos) {
                    return fail(at_, "a comment is not closed");
                }
                at_ = end + 2;
            } else {
                break;
            }
        }
        return true;
    }

    bool sign(char wanted) {
        if (!skipBlanks()) {
            return false;
        }
        if (at_ >= text_.size() || text_[at_] != wanted) {
            return fail(at_, std::string("expected '") + wanted + "'");
        }
        ++at_;
        return true;
    }

    bool quoted(std::u16string& value, const char* what) {
        if (!skipBlanks()) {
            return false;
        }
        const std::size_t start = at_;
        if (at_ >= text_.size() || text_[at_] != '"') {
            return fail(at_, std::string("expected ") + what);
        }
        ++at_;
        while (at_ < text_.size() && text_[at_] != '"') {
            if (text_[at_] == '\\') {
                if (!escape(value)) {
                    return false;
                }
                continue;
            }
            const char32_t character = nextCharacter(text_, at_);
            if (character == noCharacter) {
                return fail(at_, "not UTF-8");
            }
            if (character >= 0x10000) {
                value += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
                value += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
            } else {
                value += static_cast<char16_t>(character);
            }
        }
        if (at_ >= text_.size()) {
            return fail(start, "a text is not closed");
        }
        ++at_;
        return pairsWhole(value) || fail(start, "half of a surrogate pair");
    }

    bool escape(std::u16string& value) {
        static constexpr std::string_view codes = "\"\\nrt";
        static constexpr std::u16string_view meanings = u"\"\\\n\r\t";
        const std::string_view rest = text_.substr(at_ + 1);
        const std::size_t simple = rest.empty() ? std::string_view::npos : codes.find(rest[0]);
        if (simple != std::string_view::npos) {
            value += meanings[simple];
            at_ += 2;
            return true;
        }
        std::uint16_t unit = 0;
        if (rest.size() >= 5 && rest[0] == 'U') {
            const auto [end, status] = std::from_chars(rest.data() + 1, rest.data() + 5, unit, 16);
            if (status == std::errc() && end == rest.data() + 5) {
                value += static_cast<char16_t>(unit);
                at_ += 6;
                return true;
            }
        }
        return fail(at_, "unknown escape; there are \\\" \\\\ \\n \\r \\t and \\Uxxxx");
    }

    static bool pairsWhole(std::u16string_view value) {
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] < 0xD800 || value[i] > 0xDFFF) {
                continue;
            }
            if (value[i] > 0xDBFF || i + 1 == value.size() || value[i + 1] < 0xDC00 || value[i + 1] > 0xDFFF) {
                return false;
            }
            ++i;
        }
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string error_;
};

}  // namespace

std::string parseStrings(std::string_view text, StringsTable& table) {
    table.clear();
    if (text.size() > maxStringsFile) {
        return "line 1: larger than 4 MiB";
    }
    std::string error = StringsParser(text).parse(table);
    if (!error.empty()) {
        table.clear();
    }
    return error;
}

// --- bundles -------------------------------------------------------------------------------------------------------

static std::string readStringsFile(const std::filesystem::path& path, StringsTable& table) {
    std::error_code error;
    // Before it is opened: a pipe would make the open wait.
    if (!std::filesystem::is_regular_file(path, error)) {
        return error ? error.message() : "not a file";
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return "cannot be opened";
    }
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        return error.message();
    }
    if (size > maxStringsFile) {
        return "larger than 4 MiB";
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad()) {
        return "cannot be read";
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    return parseStrings(text, table);
}

std::unique_ptr<Bundle> openBundle(const std::string& directory, std::string& error) try {
    namespace fs = std::filesystem;
    error.clear();
    std::error_code code;
    fs::directory_iterator readable(directory, code);
    if (code) {
        error = directory + ": " + code.message();
        return nullptr;
    }
    auto bundle = std::make_unique<Bundle>();
    bundle->directory = directory;
    const fs::path folder = fs::path(directory) / "Contents" / "Resources" / "English.lproj";
    std::vector<fs::path> files;
    fs::directory_iterator entry(folder, code);
    for (; !code && entry != fs::directory_iterator(); entry.increment(code)) {
        if (entry->path().extension() == ".strings") {
            files.push_back(entry->path());
        }
    }
    if (code && code != std::errc::no_such_file_or_directory) {
        bundle->problems = folder.string() + ": " + code.message() + "\n";
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        StringsTable table;
        const std::string problem = readStringsFile(file, table);
        if (problem.empty()) {
            bundle->tables.insert_or_assign(file.stem().string(), std::move(table));
        } else {
            bundle->problems += file.string() + ": " + problem + "\n";
        }
    }
    return bundle;
} catch (const std::exception& failure) {
    error = directory + ": " + failure.what();
    return nullptr;
}

// --- resources -----------------------------------------------------------------------------------------------------

namespace {

// Whole numbers, words and version parts of a value, separated by blanks.
std::vector<std::string> words(const std::string& value) {
    std::istringstream in(value);
    std::vector<std::string> list;
    for (std::string word; in >> word;) {
        list.push_back(word);
    }
    return list;
}

template <typename Number>
bool number(std::string_view text, Number& value, Number most) {
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    return status == std::errc() && end == text.data() + text.size() && value <= most;
}

bool rectangle(const std::vector<std::string>& parts, std::size_t first, Rect& rect) {
    constexpr std::int16_t most = INT16_MAX;
    return parts.size() == first + 4 && number(parts[first], rect.top, most) &&
           number(parts[first + 1], rect.left, most) && number(parts[first + 2], rect.bottom, most) &&
           number(parts[first + 3], rect.right, most);
}

// "major.minor.fix stage release": major is binary-coded decimal, minor and fix are one such digit each.
bool numericVersion(const std::string& value, std::uint8_t (&numeric)[4]) {
    static constexpr struct {
        const char* name;
        std::uint8_t code;
    } stages[] = {{"development", 0x20}, {"alpha", 0x40}, {"beta", 0x60}, {"final", 0x80}};
    std::vector<std::string> parts = words(value);
    if (parts.size() != 3) {
        return false;
    }
    std::replace(parts[0].begin(), parts[0].end(), '.', ' ');
    const std::vector<std::string> digits = words(parts[0]);
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint8_t fix = 0;
    std::uint8_t release = 0;
    if (digits.size() != 3 || !number(digits[0], major, std::uint8_t{99}) ||
        !number(digits[1], minor, std::uint8_t{9}) || !number(digits[2], fix, std::uint8_t{9}) ||
        !number(parts[2], release, std::uint8_t{255})) {
        return false;
    }
    for (const auto& stage : stages) {
        if (parts[1] == stage.name) {
            numeric[0] = static_cast<std::uint8_t>(major / 10 * 16 + major % 10);
            numeric[1] = static_cast<std::uint8_t>(minor * 16 + fix);
            numeric[2] = stage.code;
            numeric[3] = release;
            return true;
        }
    }
    return false;
}

bool dialogItem(const std::string& value, DialogItem& item) {
    static constexpr struct {
        const char* name;
        ItemKind kind;
    } kinds[] = {{"button", ItemKind::button},
                 {"empty", ItemKind::empty},
                 {"user", ItemKind::user},
                 {"icon", ItemKind::icon},
                 {"text", ItemKind::staticText}};
    const std::vector<std::string> parts = words(value);
    for (const auto& kind : kinds) {
        if (!parts.empty() && parts[0] == kind.name) {
            item.kind = kind.kind;
            item.enabled = kind.kind == ItemKind::button;
            return rectangle(parts, 1, item.rect);
        }
    }
    return false;
}

class BundleResources : public Resources {
  public:
    std::u16string localizedString(BundleRef bundle, std::string_view key, std::string_view table) override try {
        if (const std::u16string* value = find(bundle, table, key)) {
            return *value;
        }
        std::u16string same;
        for (std::size_t at = 0; at < key.size();) {
            const char32_t character = nextCharacter(key, at);
            if (character == noCharacter) {
                same += static_cast<char16_t>(characterOfMacRoman(key[at++]));
            } else if (character >= 0x10000) {
                same += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
                same += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
            } else {
                same += static_cast<char16_t>(character);
            }
        }
        return same;
    } catch (const std::bad_alloc&) {
        return {};
    }

    std::string indexedString(std::int16_t listID, std::int16_t index) override try {
        return text("StringLists", listID, std::to_string(index));
    } catch (const std::bad_alloc&) {
        return {};
    }

    Status version(std::int16_t resourceID, VersionResource& version) override try {
        VersionResource found;
        const std::string region = text("Versions", resourceID, "region");
        if (!numericVersion(text("Versions", resourceID, "numeric"), found.numeric) ||
            (!region.empty() && !number(region, found.region, std::int16_t{INT16_MAX}))) {
            return resNotFound;
        }
        found.shortVersion = text("Versions", resourceID, "short");
        found.longVersion = text("Versions", resourceID, "long");
        version = std::move(found);
        return noErr;
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }

    Status dialogLayout(std::int16_t dialogID, Dialog& dialog) override try {
        Rect bounds;
        if (!rectangle(words(text("Dialogs", dialogID, "bounds")), 0, bounds)) {
            return resNotFound;
        }
        std::vector<DialogItem> items;
        for (std::string value; !(value = text("Dialogs", dialogID, std::to_string(items.size() + 1))).empty();) {
            DialogItem item;
            if (!dialogItem(value, item)) {
                return resNotFound;
            }
            items.push_back(item);
        }
        if (items.empty()) {
            return resNotFound;
        }
        dialog.bounds = bounds;
        dialog.items = std::move(items);
        return noErr;
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }

    BundleRef useBundle(BundleRef bundle) override { return std::exchange(current_, bundle); }

  private:
    static const std::u16string* find(BundleRef bundle, std::string_view table, std::string_view key) {
        if (bundle == nullptr) {
            return nullptr;
        }
        const auto entries = bundle->tables.find(table);
        if (entries == bundle->tables.end()) {
            return nullptr;
        }
        const auto entry = entries->second.find(key);
        return entry == entries->second.end() ? nullptr : &entry->second;
    }

    // The value of "id.name" in a table of the current bundle; empty when there is none.
    std::string text(std::string_view table, std::int16_t id, const std::string& name) {
        const std::u16string* value = find(current_, table, std::to_string(id) + "." + name);
        return value == nullptr ? std::string() : utf8Of(std::u16string_view(*value));
    }

    BundleRef current_ = nullptr;
};

}  // namespace

std::unique_ptr<Resources> makeBundleResources() {
    return std::make_unique<BundleResources>();
}

}  // namespace platform
