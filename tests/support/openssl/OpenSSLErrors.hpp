#pragma once

#include <string>
#include <vector>

namespace foundation::test {

/// Whether the calling thread's OpenSSL error queue is empty. Removes nothing.
bool queueIsEmpty();

/// Appends an entry that no certificate operation causes: "div by zero" of the big number library. Returns
/// its code as `ERR_peek_error` shows it.
unsigned long queueForeignError();

/// Returns the code of the oldest entry, or 0 if the queue is empty. Removes nothing.
unsigned long oldestError();

/// Returns the reason text of the oldest entry. Returns "" without an entry, and for a reason without a text.
/// Removes nothing.
std::string oldestReasonText();

/// Returns OpenSSL's text for a reason, such as `reasonText(ERR_LIB_PEM, PEM_R_NO_START_LINE)`. Returns ""
/// for a reason without a text.
std::string reasonText(int library, int reason);

/// Empties the queue. Returns the codes that were in it, oldest first.
std::vector<unsigned long> drainErrorQueue();

/// Empties the queue at the start and at the end of a scope, so that tests do not see each other's errors.
class CleanErrorQueue
{
public:
    CleanErrorQueue();
    ~CleanErrorQueue();
    CleanErrorQueue(CleanErrorQueue const&) = delete;
    CleanErrorQueue& operator=(CleanErrorQueue const&) = delete;
};

/// At the end of the scope, removes the entries that were queued within it. Older entries stay.
class ErrorQueueMark
{
public:
    ErrorQueueMark();
    ~ErrorQueueMark();
    ErrorQueueMark(ErrorQueueMark const&) = delete;
    ErrorQueueMark& operator=(ErrorQueueMark const&) = delete;
};

} // namespace foundation::test
