// `quil screen --batch`: a table of scenarios in, the same table with the answers out. CSV passes as a stream; a table
// of a database is read and answered in one transaction.
#pragma once

#include <csignal>
#include <optional>
#include <string>

#include "host/batch_rows.h"
#include "host/screening_run.h"

namespace host {

enum class CsvEncoding { utf8, latin1, macRoman };

struct BatchOptions {
    BatchValues values;
    std::optional<GeoPosition> at;  // of rows without a position of their own
    std::string geojson;            // files; empty: none
    std::string kml;
    CsvEncoding encoding = CsvEncoding::utf8;  // of the input; the output is UTF-8, or what the input was
    std::string key;                           // the column that names a row of a database's table; empty: its own key
};

// SIGINT, SIGTERM and SIGHUP while this lives: remembered instead of ending the program, and a read or write that waits
// is woken.
class InterruptWatch {
  public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // The signal's number, or 0.
    static int signal();

  private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction previous_[3];
};

// Rows, their rate and the time that remains, as one line on standard error when that is a terminal.
class BatchProgress {
  public:
    // `total` of what `done` counts: bytes or rows; 0 when it is not known.
    explicit BatchProgress(double total);
    ~BatchProgress();
    BatchProgress(const BatchProgress&) = delete;
    BatchProgress& operator=(const BatchProgress&) = delete;

    void show(std::size_t rows, double done);

  private:
    double total_;
    double start_;
    double last_;
    bool terminal_;
    bool drawn_ = false;
};

// "1,234,567".
std::string groupedCount(std::size_t count);

// Answers the rows of the CSV file `path` ("-" is standard input) on standard output. Returns the exit status: 0, also
// when rows are bad, or 128 and the signal's number when a signal ended it; what was finished is written then. Throws
// HostError for a header that is none and for files that cannot be read or written; rows that are written are whole.
int runCsvBatch(const std::string& path, const BatchOptions& options, const Calculator& calculator);

// Answers the rows of a table or view of an SQLite database in its table TABLE_screening: key, the answer's columns
// with
// '_' for '-', time and plug-in version. Returns the exit status as above; after a signal the database is as it was.
int runTableBatch(const std::string& database, const std::string& table, const BatchOptions& options,
                  const Calculator& calculator, const std::string& pluginVersion);

}  // namespace host
