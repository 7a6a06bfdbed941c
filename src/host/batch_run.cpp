#include "host/batch_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "host/csv_stream.h"
#include "host/footprint_map.h"
#include "host/plugin.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::size_t kBlock = std::size_t{1} << 16;

volatile std::sig_atomic_t interruptingSignal = 0;

void onSignal(int signal) {
    interruptingSignal = signal;
}

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Standard output, in whole rows: when the disk is full, a row that was cut is taken back.
class RowOutput {
  public:
    std::string& buffer() { return buffer_; }
    void rowEnded() { ends_.push_back(buffer_.size()); }
    bool isFull() const { return buffer_.size() >= kBlock; }
    bool isEmpty() const { return buffer_.empty(); }

    void flush() {
        std::size_t written = 0;
        while (written < buffer_.size()) {
            const ssize_t count = ::write(STDOUT_FILENO, buffer_.data() + written, buffer_.size() - written);
            if (count > 0) {
                written += static_cast<std::size_t>(count);
            } else if (count == 0 || errno != EINTR) {
                fail(count == 0 ? EIO : errno, written);
            }
        }
        rows_ += ends_.size();
        buffer_.clear();
        ends_.clear();
    }

  private:
    [[noreturn]] void fail(int error, std::size_t written) {
        const auto whole = std::upper_bound(ends_.begin(), ends_.end(), written);
        const std::size_t kept = whole == ends_.begin() ? 0 : *(whole - 1);
        rows_ += static_cast<std::size_t>(whole - ends_.begin());
        struct stat status = {};
        bool torn = kept != written;
        if (torn && ::fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
            const off_t end = ::lseek(STDOUT_FILENO, 0, SEEK_CUR);
            torn = end < 0 || ::ftruncate(STDOUT_FILENO, end - static_cast<off_t>(written - kept)) != 0;
        }
        throw HostError(std::string("cannot write to standard output: ") + std::strerror(error) + "; " +
                        groupedCount(rows_ == 0 ? 0 : rows_ - 1) + " rows are written whole" +
                        (torn ? ", and the beginning of one more" : ""));
    }

    std::string buffer_;
    std::vector<std::size_t> ends_;
    std::size_t rows_ = 0;  // written, with the header
};

class CsvBatch {
  public:
    CsvBatch(const BatchOptions& options, const Calculator& calculator)
        : options_(options), calculator_(calculator), reader_([this](const CsvRow& row) { take(row); }) {
        if (!options.geojson.empty()) {
            maps_.push_back(std::make_unique<MapFile>(MapFile::Kind::geojson, options.geojson));
        }
        if (!options.kml.empty()) {
            maps_.push_back(std::make_unique<MapFile>(MapFile::Kind::kml, options.kml));
        }
    }

    void run(int file, const std::string& name, double size) {
        BatchProgress progress(size);
        std::vector<char> block(kBlock);
        double done = 0;
        while (InterruptWatch::signal() == 0) {
            pollfd ready{file, POLLIN, 0};
            if (!out_.isEmpty() && (out_.isFull() || ::poll(&ready, 1, 0) == 0)) {
                out_.flush();  // nobody waits for rows that are done
            }
            const ssize_t count = ::read(file, block.data(), block.size());
            if (count < 0) {
                if (errno == EINTR) {
                    continue;
                }
                const std::string reason = std::strerror(errno);
                finish();
                throw HostError(name + ": cannot be read: " + reason);
            }
            if (count == 0) {
                reader_.finish();
                if (!rows_) {
                    throw HostError(
                        "the table is empty; it begins with the names of its columns, such as "
                        "state,amount,level-of-concern");
                }
                break;
            }
            reader_.feed({block.data(), static_cast<std::size_t>(count)});
            done += static_cast<double>(count);
            progress.show(count_, done);
        }
        finish();
    }

    // Writes the rows that are done, after a failure elsewhere.
    void rescue() {
        try {
            out_.flush();
        } catch (const HostError&) {
            return;  // the first failure is the one to tell
        }
    }

    std::size_t count() const { return count_; }
    std::size_t bad() const { return bad_; }
    std::size_t offMap() const { return offMap_; }

  private:
    void finish() {
        out_.flush();
        for (const std::unique_ptr<MapFile>& map : maps_) {
            map->finish();
        }
    }

    void take(const CsvRow& row) {
        std::span<const std::string_view> cells = row.cells;
        if (options_.encoding != CsvEncoding::utf8 && row.problem.empty()) {
            cells = decoded(cells);
        }
        if (!rows_) {
            takeHeader(row, cells);
            return;
        }
        ++count_;
        if (row.problem.empty()) {
            rows_->answer(cells, calculator_, answer_);
        } else {
            answer_ = {{}, {}, kBadRow, std::string(row.problem)};
        }
        if (!maps_.empty() && answer_.code == 0) {
            addToMaps(cells);
        }
        bad_ += answer_.code != 0;
        write(cells, row.plain);
        if (out_.isFull()) {
            out_.flush();
        }
    }

    void takeHeader(const CsvRow& row, std::span<const std::string_view> cells) {
        if (!row.problem.empty()) {
            throw HostError("the table's header: " + std::string(row.problem));
        }
        rows_.emplace(cells, options_.values);
        if (!maps_.empty() && !rows_->hasPosition() && !options_.at) {
            throw HostError(
                "the table has no columns lat and lon (or at), so nothing can be put on a map; --at gives one "
                "position to all rows");
        }
        for (const std::string& warning : rows_->warnings()) {
            std::fprintf(stderr, "quil: %s\n", warning.c_str());
        }
        std::string& out = out_.buffer();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            out += i == 0 ? "" : ",";
            appendCsvCell(out, cells[i]);
        }
        for (std::size_t i = 0; i < kAnswerColumns.size(); ++i) {
            if (const std::optional<std::size_t> column = rows_->earlierAnswer(i)) {
                replaced_.resize(cells.size());
                replaced_[*column] = i + 1;
            } else {
                out += ',';
                out += kAnswerColumns[i];
            }
        }
        out += '\n';
        out_.rowEnded();
    }

    void appendAnswer(std::string& out, std::size_t answer) const {
        if (answer == 0) {
            out += answer_.distance;
        } else if (answer == 1) {
            out += answer_.unit;
        } else if (answer == 2) {
            char digits[16];
            out.append(digits, std::to_chars(digits, digits + sizeof digits, answer_.code).ptr);
        } else {
            appendCsvCell(out, answer_.message);
        }
    }

    // As many cells as the header has, whatever the row has, and the answer.
    void write(std::span<const std::string_view> cells, bool plain) {
        std::string& out = out_.buffer();
        for (std::size_t i = 0; i < rows_->columns(); ++i) {
            if (i > 0) {
                out += ',';
            }
            if (i < replaced_.size() && replaced_[i] != 0) {
                appendAnswer(out, replaced_[i] - 1);
            } else if (i < cells.size() && plain) {
                appendPlainCell(out, cells[i]);
            } else if (i < cells.size()) {
                appendCsvCell(out, cells[i]);
            }
        }
        for (std::size_t i = 0; i < kAnswerColumns.size(); ++i) {
            if (!rows_->earlierAnswer(i)) {
                out += ',';
                appendAnswer(out, i);
            }
        }
        out += '\n';
        out_.rowEnded();
    }

    void addToMaps(std::span<const std::string_view> cells) {
        std::string problem;
        std::optional<GeoPosition> at = rows_->position(cells, problem);
        if (!at && problem.empty()) {
            at = options_.at;
        }
        if (!at) {
            ++offMap_;
            answer_.message = problem.empty() ? "" : "not on the map: " + problem;
            return;
        }
        const std::optional<Scenario> scenario = rows_->scenario(cells, problem);
        if (!scenario) {
            ++offMap_;
            answer_.message = "not on the map: " + problem;
            return;
        }
        const ScreeningResult result = runScreening(*scenario, calculator_);
        if (!result.footprint) {
            ++offMap_;
            answer_.message = "not on the map: " + result.problem;
            return;
        }
        for (const std::unique_ptr<MapFile>& map : maps_) {
            map->add(*scenario, result, *at);
        }
    }

    std::span<const std::string_view> decoded(std::span<const std::string_view> cells) {
        texts_.resize(std::max(texts_.size(), cells.size()));
        decoded_.clear();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            texts_[i].clear();
            for (const char c : cells[i]) {
                const auto byte = static_cast<unsigned char>(c);
                if (byte < 0x80) {
                    texts_[i] += c;
                } else {
                    platform::appendUtf8(
                        texts_[i], options_.encoding == CsvEncoding::latin1 ? byte : platform::characterOfMacRoman(c));
                }
            }
            decoded_.emplace_back(texts_[i]);
        }
        return decoded_;
    }

    const BatchOptions& options_;
    const Calculator& calculator_;
    CsvReader reader_;
    RowOutput out_;
    std::vector<std::unique_ptr<MapFile>> maps_;
    std::optional<BatchRows> rows_;      // from the header on
    std::vector<std::size_t> replaced_;  // by column: 1 and the answer that stands there, or 0
    BatchAnswer answer_;
    std::vector<std::string> texts_;
    std::vector<std::string_view> decoded_;
    std::size_t count_ = 0;
    std::size_t bad_ = 0;
    std::size_t offMap_ = 0;
};

}  // namespace

InterruptWatch::InterruptWatch() {
    interruptingSignal = 0;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags =
        static_cast<int>(SA_RESETHAND);  // no SA_RESTART: a read that waits is woken; a second signal ends the program
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], &action, &previous_[i]);
        if (previous_[i].sa_handler == SIG_IGN) {
            sigaction(kSignals[i], &previous_[i], nullptr);  // as nohup asks
        }
    }
}

InterruptWatch::~InterruptWatch() {
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], &previous_[i], nullptr);
    }
}

int InterruptWatch::signal() {
    return interruptingSignal;
}

BatchProgress::BatchProgress(double total)
    : total_(total), start_(now()), last_(start_), terminal_(::isatty(STDERR_FILENO) == 1) {}

BatchProgress::~BatchProgress() {
    if (drawn_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
    }
}

void BatchProgress::show(std::size_t rows, double done) {
    constexpr double kBetween = 0.2;
    if (!terminal_) {
        return;
    }
    const double time = now();
    if (time - last_ < kBetween) {
        return;
    }
    last_ = time;
    drawn_ = true;
    const double seconds = time - start_;
    std::string line = groupedCount(rows) + " rows, " +
                       groupedCount(static_cast<std::size_t>(static_cast<double>(rows) / seconds)) + " rows/s";
    if (total_ > 0 && done > 0) {
        constexpr std::size_t kWidth = 24;
        const double part = std::min(done / total_, 1.0);
        const auto full = static_cast<std::size_t>(part * kWidth);
        const auto left = std::lround(seconds / part - seconds);
        char clock[32];
        std::snprintf(clock, sizeof clock, "%ld:%02ld:%02ld left", left / 3600, left / 60 % 60, left % 60);
        line = "[" + std::string(full, '#') + std::string(kWidth - full, '.') + "] " +
               std::to_string(static_cast<int>(part * 100)) + " %  " + line + ", " + clock;
    }
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

std::string groupedCount(std::size_t count) {
    std::string digits = std::to_string(count);
    for (std::size_t i = digits.size(); i > 3;) {
        i -= 3;
        digits.insert(i, ",");
    }
    return digits;
}

int runCsvBatch(const std::string& path, const BatchOptions& options, const Calculator& calculator) {
    const bool standard = path == "-";
    const std::string name = standard ? "standard input" : path;
    struct File {
        int number;
        bool close;
        ~File() {
            if (close && number >= 0) {
                ::close(number);
            }
        }
    } file{standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC), !standard};
    if (file.number < 0) {
        throw HostError(path + ": cannot be read: " + std::strerror(errno));
    }
    struct stat status = {};
    const bool regular = ::fstat(file.number, &status) == 0 && S_ISREG(status.st_mode);
    const InterruptWatch watch;
    CsvBatch batch(options, calculator);
    try {
        batch.run(file.number, name, regular ? static_cast<double>(status.st_size) : 0);
    } catch (const HostError& error) {
        const std::string_view text = error.what();
        if (!text.starts_with("cannot write")) {
            batch.rescue();
        }
        const bool named = text.starts_with(name) || text.starts_with("cannot write") || batch.count() > 0;
        throw HostError(named ? std::string(text) : name + ": " + std::string(text));
    }
    if (batch.bad() > 0) {
        std::fprintf(stderr, "quil: %s of %s rows have no distance; their error-message tells why\n",
                     groupedCount(batch.bad()).c_str(), groupedCount(batch.count()).c_str());
    }
    if (batch.offMap() > 0) {
        std::fprintf(stderr, "quil: %s rows with a distance are not on the map\n",
                     groupedCount(batch.offMap()).c_str());
    }
    if (const int signal = InterruptWatch::signal(); signal != 0) {
        std::fprintf(stderr, "quil: interrupted; %s rows are written whole\n", groupedCount(batch.count()).c_str());
        return 128 + signal;
    }
    return 0;
}

}  // namespace host
