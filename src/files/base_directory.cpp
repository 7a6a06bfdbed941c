#include "files/base_directory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "files/parameters.h"
#include "messaging/globals.h"
#include "platform/machine.h"
#include "util/alerts.h"
#include "util/paths.h"
#include "util/result.h"
#include "util/toolbox.h"

namespace quil {

// State of this file.
// The base directory, without its closing ':'; empty: the application's folder.
static char sBaseDirectoryForRelativePathWithoutDelimiter[kPathSize] = "";

static constexpr std::int32_t kNotFound = -1;
static constexpr std::int32_t kAmbiguous = -2;
static constexpr char kListFile[] = ":BaseDirectoryList.txt";

static void cutAtLastColon(char* path) {
    char* const colon = std::strrchr(path, ':');
    if (colon != nullptr) {  // the volume has nothing above it
        *colon = 0;
    }
}

// Resolves against a folder without closing ':'.
static char* resolve(const char* path, std::string_view folder, char* out) {
    char copy[kPathSize];
    copyInto(copy, path == nullptr ? "" : path);
    if (copy[0] != ':' && copy[0] != '\\') {
        my_strncpy(out, copy, kPathSize);
        return out;
    }
    for (char* c = copy; *c != 0; ++c) {
        if (*c == '\\' && c[1] != ':') {  // deliberate: one directly before a ':' stays
            *c = ':';
        }
    }
    const std::size_t levels = std::strspn(copy + 1, ":");
    my_strncpy(out, folder, kPathSize);
    for (std::size_t i = 0; i < levels; ++i) {
        cutAtLastColon(out);
    }
    const std::size_t length = std::strlen(out);
    my_strncpy(out + length, copy + levels, kPathSize - length);
    return out;
}

char* ResolvePathRelativeToApplication(const char* path, char* out) {
    char folder[kPathSize];
    GetGlobalInListAsStr("App Folder with Delim", folder, sizeof folder);
    cutAtLastColon(folder);
    return resolve(path, folder, out);
}

char* ResolvePathRelativeToBaseDirectory(const char* path, char* out) {
    return sBaseDirectoryForRelativePathWithoutDelimiter[0] == 0
               ? ResolvePathRelativeToApplication(path, out)
               : resolve(path, sBaseDirectoryForRelativePathWithoutDelimiter, out);
}

namespace {

// The lines of an open text file, which is closed at the end. Lines end with CR, LF or both; empty ones are passed
// over, and of each only the first 254 bytes count. A byte order mark is no part of the first.
class Lines {
  public:
    explicit Lines(platform::FileRef file) : file_(file) {
        static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (fill() && std::string_view(buffer_, count_).starts_with(kByteOrderMark)) {
            at_ = kByteOrderMark.size();
        }
    }
    ~Lines() { platform::machine().files().close(file_); }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    bool next(char (&line)[kPathSize]) {
        std::size_t length = 0;
        for (;;) {
            if (at_ == count_ && !fill()) {
                line[length] = 0;
                return length != 0;
            }
            const char c = buffer_[at_++];
            if (c != '\r' && c != '\n') {
                if (length < kLongestLine) {
                    line[length++] = c;
                }
            } else if (length != 0) {
                line[length] = 0;
                return true;
            }
        }
    }

  private:
    static constexpr std::size_t kLongestLine = 254;

    // A file that cannot be read further ends there.
    bool fill() {
        at_ = 0;
        platform::machine().files().read(file_, buffer_, count_);
        return count_ != 0;
    }

    platform::FileRef file_;
    char buffer_[4096];
    std::size_t at_ = 0;
    std::size_t count_ = 0;
};

bool existsUnderBaseDirectory(const char* path) {
    char full[kPathSize];
    return FileExists(ResolvePathRelativeToBaseDirectory(path, full));
}

// Shows `words` and the reference file in quotes.
void reportReference(const char* words, const char* referenceFile) {
    char message[2 * kPathSize];
    std::snprintf(message, sizeof message, "%s \"%s\"", words, referenceFile);
    ReportErrorMsgToUser(message);
}

}  // namespace

std::int32_t DetermineBaseDirectoryFromTheReferenceFile(const char* referenceFile) {
    auto& base = sBaseDirectoryForRelativePathWithoutDelimiter;
    char reference[kPathSize];
    copyInto(reference, referenceFile == nullptr ? "" : referenceFile);
    char full[kPathSize];
    if (reference[0] == 0 || FileExists(ResolvePathRelativeToApplication(reference, full))) {
        base[0] = 0;
        return 0;
    }
    if (base[0] != 0 && existsUnderBaseDirectory(reference)) {
        return 0;
    }
    base[0] = 0;
    platform::FileRef file = 0;
    if (my_fopen(ResolvePathRelativeToApplication(kListFile, full), platform::PosixMode::read, file) !=
        platform::noErr) {
        return 0;  // an installation without a list uses the application's folder
    }
    char found[kPathSize] = "";
    Lines lines(file);
    while (lines.next(base)) {
        const std::size_t length = std::strlen(base);
        if (length != 0 && (base[length - 1] == ':' || base[length - 1] == '\\')) {
            base[length - 1] = 0;
        }
        if (base[0] == 0 || !existsUnderBaseDirectory(reference)) {
            continue;
        }
        if (found[0] != 0) {
            // The base directory stays at this line.
            reportReference(
                "Error: more than one base directory listed in BaseDirectoryList.txt contains the reference file",
                reference);
            return kAmbiguous;
        }
        copyInto(found, base);
    }
    copyInto(base, found);
    if (base[0] == 0) {
        reportReference("Error: base directory could not be found containing the reference file", reference);
        return kNotFound;
    }
    return 0;
}

std::int32_t ResolvePossiblePartialPath(const char* path, const char* referenceFile, bool /*flag*/, char* out) {
    const std::int32_t error = DetermineBaseDirectoryFromTheReferenceFile(referenceFile);
    if (error == 0) {
        ResolvePathRelativeToBaseDirectory(path, out);
    }
    return error;
}

std::int32_t GLN1ResolveRelativePath(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    const PathFields given(fields);
    if (DetermineBaseDirectoryFromTheReferenceFile(given.reference) != 0) {
        return Answer(funcNum, resultHandle, "Error: DetermineBaseDirectoryFromTheReferenceFile returned an error");
    }
    char full[kPathSize];
    return Answer(funcNum, resultHandle, ResolvePathRelativeToBaseDirectory(given.path, full));
}

std::int32_t GLN1SetStartupDocument(long funcNum, char** paramHandle, char** resultHandle) {
    Fields fields(paramHandle);
    const PathFields given(fields);
    char document[kPathSize] = "";
    if (given.path[0] != 0 && ResolvePossiblePartialPath(given.path, given.reference, false, document) != 0) {
        Answer(funcNum, resultHandle, "Error: ResolvePossiblePartialPath returned an error");
    }
    const std::int32_t error = SetGlobalFromStr("App DOC", 1, document);
    if (error != 0) {
        ReportErrorToUser(funcNum, static_cast<short>(error));
    }
    return error;
}

void ResetBaseDirectory() {
    sBaseDirectoryForRelativePathWithoutDelimiter[0] = 0;
}

}  // namespace quil
