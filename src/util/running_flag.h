// A flag that stands while a hook runs, also when something raised ends the hook.
#pragma once

#include <cstdint>

namespace quil {

class RunningFlag {
  public:
    explicit RunningFlag(std::uint8_t& flag) : flag_(flag) { flag_ = 1; }
    ~RunningFlag() { flag_ = 0; }
    RunningFlag(const RunningFlag&) = delete;
    RunningFlag& operator=(const RunningFlag&) = delete;

  private:
    std::uint8_t& flag_;
};

}  // namespace quil
