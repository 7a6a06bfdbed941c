// `quil years` and `quil renumber`: the submission years in the identifiers of files.

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#include "host/commands.h"
#include "host/private_session.h"
#include "host/shown_text.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/names.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr char kLink[] = "file";

// What a run does with the files that it is given, as it goes on.
struct Watch {
    bool keepsFiles = false;    // nothing is written
    std::uint64_t changed = 0;  // identifiers of the present file that got another year
    std::size_t total = 0;      // bytes of the present file
    std::size_t done = 0;       // of these, read
    ProgressLine* progress = nullptr;
};

// The real files, watched: what is read counts as progress, and what an update writes is compared with what it read. A
// part of a file that stays as it is is not written.
class WatchedFiles : public platform::LinuxFiles {
  public:
    WatchedFiles(const platform::LinuxOptions& options, Watch& watch) : LinuxFiles(options), watch_(watch) {}

    platform::Status openForUpdate(const platform::FSSpec& spec, platform::FileRef& ref) override {
        const platform::Status status = LinuxFiles::openForUpdate(spec, ref);
        if (status == platform::noErr) {
            update_ = ref;
            unwritten_.clear();
            written_ = 0;
            watch_.changed = 0;
            lastChange_ = -2;
        }
        return status;
    }

    platform::Status read(platform::FileRef ref, std::span<char> buffer, std::size_t& count) override {
        const platform::Status status = LinuxFiles::read(ref, buffer, count);
        if (ref == update_) {
            try {
                unwritten_.append(buffer.data(), count);
            } catch (const std::bad_alloc&) {
                return platform::memFullErr;
            }
        }
        watch_.done += count;
        if (watch_.progress != nullptr) {
            watch_.progress->showNow(watch_.done, watch_.total);
        }
        return status;
    }

    platform::Status write(platform::FileRef ref, std::span<const char> bytes, std::size_t& count) override {
        if (ref != update_) {
            return LinuxFiles::write(ref, bytes, count);
        }
        const bool differs = compare(bytes);
        if (watch_.keepsFiles || !differs) {
            count = bytes.size();
            return platform::noErr;
        }
        return LinuxFiles::write(ref, bytes, count);
    }

    platform::Status close(platform::FileRef ref) override {
        if (ref != update_) {
            return LinuxFiles::close(ref);
        }
        update_ = 0;
        return watch_.keepsFiles ? LinuxFiles::discard(ref) : LinuxFiles::close(ref);
    }

  private:
    // Counts the places where the bytes differ from those read; the two digits of one year are one place, also when
    // they come in two parts. False when none differs.
    bool compare(std::span<const char> bytes) {
        static_assert(std::endian::native == std::endian::little);
        const std::size_t count = std::min(bytes.size(), unwritten_.size());
        const char* const fresh = bytes.data();
        const char* const old = unwritten_.data();
        bool differs = false;
        const auto compareAt = [&](std::size_t at, std::size_t size) {
            std::uint64_t a = 0;
            std::uint64_t b = 0;
            std::memcpy(&a, fresh + at, size);
            std::memcpy(&b, old + at, size);
            for (std::uint64_t rest = a ^ b; rest != 0;) {
                const int byte = std::countr_zero(rest) / 8;
                const std::int64_t place = written_ + static_cast<std::int64_t>(at) + byte;
                watch_.changed += place - lastChange_ > 1 ? 1 : 0;
                lastChange_ = place;
                differs = true;
                rest &= ~(std::uint64_t{0xFF} << 8 * byte);
            }
        };
        std::size_t at = 0;
        for (; at + sizeof(std::uint64_t) <= count; at += sizeof(std::uint64_t)) {
            compareAt(at, sizeof(std::uint64_t));
        }
        compareAt(at, count - at);
        unwritten_.erase(0, count);
        written_ += static_cast<std::int64_t>(count);
        return differs;
    }

    Watch& watch_;
    platform::FileRef update_ = 0;
    std::string unwritten_;  // what was read and not written yet
    std::int64_t written_ = 0;
    std::int64_t lastChange_ = 0;
};

// The classic path of a file where "/" is the volume Work; empty when it has none that a parameter can hold.
std::string classicPath(const std::string& file) {
    constexpr std::size_t kLongest = 255;
    std::error_code error;
    const std::filesystem::path path(file);
    const std::filesystem::path folder =
        std::filesystem::canonical(path.has_parent_path() ? path.parent_path() : ".", error);
    const std::string full = (folder / path.filename()).string();
    if (error || full.size() + sizeof "Work" - 1 > kLongest || full.find_first_of("|\r") != std::string::npos ||
        !platform::isUtf8(full)) {
        return "";
    }
    return "Work" + platform::exchanged(full);
}

// The plug-in with files of the user's. Where one of them has no path that a parameter can hold, because Linux allows
// longer ones and any character, all are reached by a link in the session's folder.
class FileSession {
  public:
    FileSession(const Context& context, const std::vector<std::string>& files)
        : links_(std::any_of(files.begin(), files.end(),
                             [](const std::string& file) { return classicPath(file).empty(); })),
          session_(context, links_, [this](const platform::LinuxOptions& options) {
              return std::make_unique<WatchedFiles>(options, watch);
          }) {}

    // The answer of a script function about the file; `parameter` is what stands before its path. Throws HostError.
    std::string call(const char* function, const std::string& parameter, const std::string& file, bool writes) {
        struct stat status {};
        if (::stat(file.c_str(), &status) != 0) {
            throw HostError(file + ": " + std::strerror(errno));
        }
        if (!S_ISREG(status.st_mode)) {
            throw HostError(file + ": is " + (S_ISDIR(status.st_mode) ? "a folder" : "no regular file") +
                            "; name files");
        }
        if (writes && (status.st_mode & S_IWUSR) == 0) {
            throw HostError(file + ": is locked; unlock it with chmod u+w");
        }
        if (::access(file.c_str(), writes ? R_OK | W_OK : R_OK) != 0) {
            throw HostError(file + ": cannot be " + (writes ? "read and written" : "read") + ": " +
                            std::strerror(errno));
        }
        const std::string path = links_ ? linkTo(file) : classicPath(file);
        ProgressLine progress(shown(file));
        watch.total = static_cast<std::size_t>(status.st_size);
        watch.done = 0;
        watch.changed = 0;
        watch.progress = &progress;
        std::string answer = session_.call(function, parameter + path);
        watch.progress = nullptr;
        if (const std::string message = session_.alerts(); !message.empty()) {
            throw HostError(file + ": " + message);
        }
        return answer;
    }

    Watch watch;

  private:
    std::string linkTo(const std::string& file) {
        const std::string link = session_.folder() + "/" + kLink;
        ::unlink(link.c_str());
        if (::symlink(std::filesystem::absolute(file).c_str(), link.c_str()) != 0) {
            throw HostError(link + ": " + std::strerror(errno) +
                            "; name another place in the environment variable TMPDIR");
        }
        return std::string("Work:") + kLink;
    }

    bool links_;
    PrivateSession session_;
};

// Does `each` with every file; one that fails is told, and the others have their turn.
template <typename Each>
void forEachFile(const std::vector<std::string>& files, Context& context, Each each) {
    for (const std::string& file : files) {
        try {
            each(file);
        } catch (const HostError& error) {
            std::fprintf(stderr, "quil: %s\n", shownOn(STDERR_FILENO, error.what()).c_str());
            context.status = 1;
        }
    }
}

void years(const std::vector<std::string>& files, Context& context) {
    FileSession session(context, files);
    forEachFile(files, context, [&](const std::string& file) {
        const std::string found = session.call("GLN1GetTorvaneYearsFromIDs", "", file, false);
        writeOutput(shownOn(STDOUT_FILENO, file) + ": " + (found.empty() ? "no years" : found) + "\n");
    });
}

struct RenumberOptions {
    int year = 0;
    std::vector<std::string> files;
    bool dryRun = false;
};

void renumber(const RenumberOptions& options, Context& context) {
    FileSession session(context, options.files);
    session.watch.keepsFiles = options.dryRun;
    const std::string year = std::to_string(options.year);
    forEachFile(options.files, context, [&](const std::string& file) {
        const std::string refusal = session.call("GLN1ChangeTorvaneIDsInFile", year + "|", file, true);
        if (!refusal.empty()) {
            throw HostError(file + ": " + refusal);
        }
        const std::uint64_t count = session.watch.changed;
        writeOutput(shownOn(STDOUT_FILENO, file) + ": " + std::to_string(count) +
                    (count == 1 ? " identifier " : " identifiers ") + (options.dryRun ? "would change" : "changed") +
                    " to " + year + "\n");
    });
}

}  // namespace

void addYearsCommands(CLI::App& app, Context& context) {
    constexpr char kFooter[] =
        "An identifier is 8 bytes anywhere in a file, such as CKTR2015, FATR2012 or PHTR2008. Only the years 2000 to\n"
        "2019 count, and a file of less than 20 bytes holds none.";
    const auto files = std::make_shared<std::vector<std::string>>();
    CLI::App* list = app.add_subcommand("years", "Tell the years in the identifiers of submission files");
    list->add_option("FILE", *files, "Files")->required()->type_name("");
    list->footer(kFooter);
    list->callback([files, &context] { years(*files, context); });

    const auto options = std::make_shared<RenumberOptions>();
    CLI::App* change = app.add_subcommand("renumber", "Give the identifiers of submission files another year");
    change->add_option("YEAR", options->year, "2000 to 2019")->required()->check(CLI::Range(2000, 2019))->type_name("");
    change->add_option("FILE", options->files, "Files")->required()->type_name("");
    change->add_flag("-n,--dry-run", options->dryRun, "Tell how many would change, and change nothing");
    change->footer(std::string(kFooter) +
                   " A file stays as it was until its new content\nis complete, unless it has other names (hard "
                   "links), another owner, or the disk no room for both.");
    change->callback([options, &context] { renumber(*options, context); });
}

}  // namespace host
