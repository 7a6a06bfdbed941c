#include "platform/linux/names.h"

#include <dirent.h>
#include <locale.h>
#include <wctype.h>

#include <cerrno>
#include <memory>

#include "platform/text.h"

namespace platform {

std::string exchanged(std::string_view name) {
    std::string other(name);
    for (char& character : other) {
        character = character == '/' ? ':' : character == ':' ? '/' : character;
    }
    return other;
}

static char32_t fold(char32_t character) {
    // Not the process's locale: names match alike whatever the user's language is.
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (character < 0x80) {
        return character >= 'A' && character <= 'Z' ? character + 32 : character;
    }
    // The dotted capital I and the dotless small i fold to themselves except in Turkic languages.
    if (unicode == nullptr || character == 0x130 || character == 0x131) {
        return character;
    }
    // By way of the capital, so that the two small sigmas, or s and long s, are one letter.
    return static_cast<char32_t>(towlower_l(towupper_l(static_cast<wint_t>(character), unicode), unicode));
}

NameMatcher::NameMatcher(std::string_view name) {
    std::u32string characters;
    for (std::size_t at = 0; at < name.size();) {
        const char32_t character = nextCharacter(name, at);
        if (character == noCharacter) {
            characters.clear();
            for (char byte : name) {
                characters += characterOfMacRoman(byte);
            }
            break;
        }
        characters += character;
    }
    for (char32_t character : characters) {
        folded_ += fold(character);
    }
}

bool NameMatcher::matches(std::string_view name) const {
    std::size_t at = 0;
    std::size_t count = 0;
    bool same = true;
    while (same && at < name.size()) {
        const char32_t character = nextCharacter(name, at);
        if (character == noCharacter) {
            break;
        }
        same = count < folded_.size() && fold(character) == folded_[count];
        ++count;
    }
    if (same && at == name.size()) {
        return count == folded_.size();
    }
    if (name.size() != folded_.size() || isUtf8(name)) {
        return false;
    }
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (fold(characterOfMacRoman(name[i])) != folded_[i]) {
            return false;
        }
    }
    return true;
}

// Whether the folder has the item under exactly this name: 0 or a system error number.
static int look(const std::string& directory, std::string_view name, std::string& found, struct stat& status) {
    found.assign(directory).append("/").append(name);
    if (lstat(found.c_str(), &status) != 0) {
        return errno;
    }
    found = name;
    return 0;
}

int findItem(const std::string& directory, std::string_view name, std::string& found, struct stat& status) {
    int error = look(directory, name, found, status);
    if (error != ENOENT && error != ENAMETOOLONG) {
        return error;
    }
    if (!isUtf8(name)) {
        error = look(directory, utf8Of(name), found, status);
        if (error != ENOENT && error != ENAMETOOLONG) {
            return error;
        }
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(directory.empty() ? "/" : directory.c_str()), closedir);
    if (folder == nullptr) {
        // A folder that may be passed through but not read holds no item but those that are named exactly.
        return errno == EACCES ? ENOENT : errno == ENOENT ? ENOTDIR : errno;
    }
    const NameMatcher wanted(name);
    std::string first;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string_view candidate = entry->d_name;
        if (candidate != "." && candidate != ".." && (first.empty() || candidate < first) &&
            wanted.matches(candidate)) {
            first = candidate;
        }
    }
    return first.empty() ? ENOENT : look(directory, first, found, status);
}

}  // namespace platform
