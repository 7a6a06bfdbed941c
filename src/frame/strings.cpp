#include "frame/strings.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "frame/entry.h"
#include "platform/machine.h"

namespace quil {

platform::BundleRef GetPluginBundle() {
    return static_cast<platform::BundleRef>(gFMX_ExternCallPtr->instance);
}

unsigned long Sub_OSXLoadString(long stringNumber, unsigned short* buffer, long size) {
    if (buffer == nullptr || size <= 1) {
        return 0;
    }
    char key[32];
    const int length = std::snprintf(key, sizeof key, "String%d", static_cast<int>(stringNumber));
    const std::u16string value = platform::machine().resources().localizedString(GetPluginBundle(), key, "Localizable");
    const bool isKey = std::equal(value.begin(), value.end(), key, key + length,
                                  [](char16_t unit, char c) { return unit == static_cast<unsigned char>(c); });
    if (isKey || value.size() >= static_cast<std::size_t>(size) - 1) {
        return 0;
    }
    *std::copy(value.begin(), value.end(), buffer) = 0;
    return value.size();
}

void ReadString(unsigned short* buffer, unsigned long size, long stringNumber) {
    buffer[0] = 0;
    Sub_OSXLoadString(stringNumber, buffer, static_cast<long>(size));
}

unsigned long Do_GetString(unsigned long stringNumber, unsigned long /*ignored*/, long size, unsigned short* buffer) {
    return Sub_OSXLoadString(static_cast<long>(stringNumber), buffer, size);
}

void Do_GetString(unsigned long stringNumber, fmx::TextAutoPtr& text, bool stripAfterParen) {
    static constexpr long kUnits = 1024;
    unsigned short buffer[kUnits] = {};
    Do_GetString(stringNumber, 0, kUnits, buffer);
    text->AssignUnicode(buffer);
    if (stripAfterParen) {
        fmx::TextAutoPtr paren;
        paren->Assign("(");
        if (const std::uint32_t at = text->Find(*paren); at != fmx::Text::kNotFound) {
            text->DeleteText(at);
        }
    }
}

}  // namespace quil
