// Windows in memory whose progress box is one line on the terminal.
#pragma once

#include "platform/memory_windows.h"

namespace platform {

// Draws progress as "text: N %" on the descriptor `output`, each time over the last one, and takes it away when the
// work is finished (a box without a bar), before other output to a terminal, or when this object goes. Nothing when
// `output` is no terminal.
class TerminalWindows : public MemoryWindows {
  public:
    explicit TerminalWindows(int output);
    ~TerminalWindows() override;
    TerminalWindows(const TerminalWindows&) = delete;
    TerminalWindows& operator=(const TerminalWindows&) = delete;

    void drawProgress(WindowRef window, const ProgressBox& box) override;
    void beforeOutput(int output) override;

  private:
    void clear();

    int output_;
    bool drawn_ = false;
};

}  // namespace platform
