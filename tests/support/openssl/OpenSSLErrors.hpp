#pragma once

#include <string>
#include <vector>

namespace foundation::test {

/// True if the calling thread's OpenSSL error queue holds no entry. Removes nothing.
bool queueIsEmpty();

/// Puts an entry that no certificate operation causes ("div by zero" of the big number library) at the end of
/// the calling thread's queue and gives its code as `ERR_peek_error` will show it.
unsigned long queueForeignError();

/// The code of the oldest entry, 0 if there is none. Removes nothing.
unsigned long oldestError();

/// The reason text of the oldest entry; empty if there is no entry or its reason has no text. Removes
/// nothing.
std::string oldestReasonText();

/// OpenSSL's wording of a reason, such as `reasonText(ERR_LIB_PEM, PEM_R_NO_START_LINE)`; empty if it has
/// none.
std::string reasonText(int library, int reason);

/// Empties the queue and gives the codes that stood in it, oldest first.
std::vector<unsigned long> drainErrorQueue();

/// Empties the queue at both ends of a scope, so that neither a test's predecessor nor its successor sees it.
class CleanErrorQueue
{
public:
    CleanErrorQueue();
    ~CleanErrorQueue();
    CleanErrorQueue(CleanErrorQueue const&) = delete;
    CleanErrorQueue& operator=(CleanErrorQueue const&) = delete;
};

/// Drops at its end the entries queued since its start and leaves older ones in place.
class ErrorQueueMark
{
public:
    ErrorQueueMark();
    ~ErrorQueueMark();
    ErrorQueueMark(ErrorQueueMark const&) = delete;
    ErrorQueueMark& operator=(ErrorQueueMark const&) = delete;
};

} // namespace foundation::test
