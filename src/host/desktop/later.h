// Work for the event loop.
#pragma once

#include <functional>

class QObject;

namespace host::desktop {

// Does the job when the events that wait now have been handled, unless `context` is gone by then.
void later(QObject* context, std::function<void()> job);

}  // namespace host::desktop
