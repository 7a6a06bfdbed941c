#include "frame/dispatcher.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "frame/dispatch_table.h"
#include "frame/strings.h"
#include "util/alerts.h"
#include "util/charset.h"
#include "util/fhandle.h"

namespace quil {

using Encoding = fmx::Text::Encoding;

static constexpr std::uint32_t kVersionUnits = 256;
static constexpr std::uint32_t kAnswerRoom = 64;  // numbers, words and IDs
static constexpr std::uint32_t kTextRoom = 512;

// Sets a text result; `locale` is that of the answer.
static fmx::errcode setText(fmx::Data& result, const fmx::Text& text, const fmx::Locale& locale) {
    return result.SetAsText(text, locale, fmx::Data::NativeType::text);
}

static void assignLocalisedString(fmx::Text& text, long stringNumber) {
    unsigned short units[kVersionUnits] = {};
    ReadString(units, kVersionUnits, stringNumber);
    text.AssignUnicode(units);
}

// The row that the host's name is equal to, or null. The index gives the one candidate that can match; the decision is
// the host's equality.
static const Row* findRow(const fmx::Text& name) {
    // Scripts call the same function many times in a row, so the candidate of the last match is kept.
    static fmx::TextAutoPtr sCandidate;
    static const Row* sCandidateRow = nullptr;
    if (sCandidateRow != nullptr && *sCandidate == name) {
        return sCandidateRow;
    }
    char bytes[128];
    if (name.GetSize() >= sizeof bytes) {
        return nullptr;
    }
    fmx::_fmxcpt::Check(name.GetBytes(bytes, sizeof bytes, 0, name.GetSize(), Encoding::native));
    bytes[sizeof bytes - 1] = 0;
    const Row* row = FindRow(bytes);
    if (row == nullptr) {
        return nullptr;
    }
    if (sCandidateRow != row) {
        sCandidateRow = nullptr;
        sCandidate->Assign(row->name, Encoding::native);
        sCandidateRow = row;
    }
    return *sCandidate == name ? row : nullptr;
}

// Nothing leaves a handler: want of memory inside one, or what nobody foresaw, is told like any other error.
static void runHandler(const Row& row, short funcId, char** parameter, char** result) noexcept {
    try {
        row.handler(funcId, parameter, result);
    } catch (const std::bad_alloc&) {
        SetFHandleSize(result, 0);
        ReportErrorToUser(funcId, -108);
    } catch (...) {
        SetFHandleSize(result, 0);
        ReportErrorToUser(funcId, -1);
    }
}

// A handle for a host text, long ones aside without a block of its own.
static char** newTextHandle(const fmx::Text& text) {
    const std::uint32_t bytes = text.GetSize() == 0 ? 0 : text.GetSize() * 3 + 1;
    return NewFHandleWithRoom(bytes <= kTextRoom ? bytes : 0);
}

fmx::errcode QUIL_External(short funcId, const fmx::ExprEnv& /*env*/, const fmx::DataVect& params, fmx::Data& result) {
    fmx::TextAutoPtr resultText;
    if (params.Size() != 2) {
        resultText->Assign(
            "Usage: first parameter shoud be a function name. Second parameter should be a parameter string for the "
            "function.");
    } else {
        const fmx::Text& name = params.AtAsText(0);
        const fmx::Text& parameter = params.AtAsText(1);
        char** nameHandle = newTextHandle(name);
        char** parameterHandle = newTextHandle(parameter);
        char** resultHandle = NewFHandleWithRoom(kAnswerRoom);
        MyCopyParameterString_UTF8(nameHandle, name);
        MyCopyParameterString_UTF8(parameterHandle, parameter);
        if (const Row* row = findRow(name)) {
            runHandler(*row, funcId, parameterHandle, resultHandle);
        } else {
            SetResultsHandle(resultHandle, "Function name does not match a supported function.");
        }
        // Want of memory here ends the call at once and leaves the three handles behind, deliberately.
        if (const std::int32_t error = EnsureHandleIsNullTerminated(resultHandle); error != 0) {
            return static_cast<fmx::errcode>(error);
        }
        if (const std::string_view answer = FHandleText(resultHandle); !answer.empty()) {
            resultText->AssignBytes(answer, my_IsUtf8(answer) ? Encoding::utf8 : Encoding::macRoman);
        }
        DisposeAndClearFHandle(&nameHandle);
        DisposeAndClearFHandle(&parameterHandle);
        DisposeAndClearFHandle(&resultHandle);
    }
    const fmx::LocaleAutoPtr locale(fmx::Locale::Type::system);
    return result.SetAsText(std::move(*resultText), *locale);
}

fmx::errcode QUIL_Version(short /*funcId*/, const fmx::ExprEnv& /*env*/, const fmx::DataVect& /*params*/,
                          fmx::Data& result) {
    fmx::TextAutoPtr text;
    assignLocalisedString(*text, 3);
    const fmx::LocaleAutoPtr locale(fmx::Locale::Type::system);
    return setText(result, *text, *locale);
}

fmx::errcode PluginVersionByOption(short /*funcId*/, const fmx::ExprEnv& /*env*/, const fmx::DataVect& params,
                                   fmx::Data& result) {
    fmx::TextAutoPtr text;
    if (params.Size() == 0) {
        assignLocalisedString(*text, 3);
        const fmx::LocaleAutoPtr locale(fmx::Locale::Type::system);
        return setText(result, *text, *locale);
    }
    const fmx::Text& option = params.AtAsText(0);
    const auto is = [&option](const char* word) {
        fmx::TextAutoPtr candidate;
        candidate->Assign(word);
        return *candidate == option;
    };
    if (is("") || is("short")) {
        assignLocalisedString(*text, 3);
    } else if (is("long")) {
        assignLocalisedString(*text, 1);
        for (const char* part : {" ", "1.0"}) {
            fmx::TextAutoPtr tail;
            tail->Assign(part);
            text->AppendText(*tail);
        }
    } else if (is("platform")) {
        text->Assign("Mac OS X");
    } else if (is("autoupdate")) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%02d%02d%02d%02d", 1, 0, 0, 0);
        text->Assign(digits);
    }
    return setText(result, *text, params.At(0).GetLocale());
}

static void copyParameter(char** handle, const fmx::Text& text, unsigned long bytesPerUnit, Encoding encoding) {
    const std::uint32_t units = text.GetSize();
    if (units == 0 || units > kMaxParameterUnits) {
        return;
    }
    const unsigned long size = bytesPerUnit * units + 1;
    const bool fresh = GetFHandleSize(handle) == 0;
    SetFHandleSize(handle, size);
    if (handle == nullptr || *handle == nullptr || static_cast<unsigned long>(GetFHandleSize(handle)) != size) {
        return;
    }
    if (!fresh) {  // what is grown from nothing is zeros already
        std::memset(*handle, 0, size);
    }
    fmx::_fmxcpt::Check(text.GetBytes(*handle, static_cast<std::uint32_t>(size), 0, units, encoding));
}

void MyCopyParameterString_UTF8(char** handle, const fmx::Text& text) {
    copyParameter(handle, text, 3, Encoding::utf8);
}

void MyCopyParameterString_ASCII_Mac(char** handle, const fmx::Text& text) {
    copyParameter(handle, text, 1, Encoding::macRoman);
}

}  // namespace quil
