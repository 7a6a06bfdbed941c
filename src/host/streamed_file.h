// Output files that grow piece by piece and appear whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace host {

class StreamedFile {
  public:
    // Opens a temporary beside `path`; a device or pipe is written to directly. Throws HostError that names the file.
    explicit StreamedFile(std::string path);
    ~StreamedFile();  // without finish(): the temporary goes, and the file is as it was
    StreamedFile(const StreamedFile&) = delete;
    StreamedFile& operator=(const StreamedFile&) = delete;

    // Throws HostError when the disk is full or the file cannot be written.
    void append(std::string_view text);
    // Puts what was appended in the file's place.
    void finish();

  private:
    [[noreturn]] void fail(int error);
    void flush();

    std::string path_;
    std::string temporary_;
    std::string waiting_;
    int file_ = -1;
    unsigned mode_ = 0;
};

}  // namespace host
