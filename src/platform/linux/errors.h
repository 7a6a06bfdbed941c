// System error numbers as the machine's statuses.
#pragma once

#include <new>

#include "platform/types.h"

namespace platform {

// The status that stands for a system error number. Nothing else in the machine looks at what a number means to a
// caller.
Status statusOf(int systemError);

// Runs `work`; memory that cannot be had is a status as well, so that no exception leaves a manager.
template <typename Work>
Status guarded(Work work) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return memFullErr;
    } catch (...) {
        return ioErr;
    }
}

}  // namespace platform
