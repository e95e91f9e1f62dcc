#pragma once

#include <foundation/certificates/export.hpp>

#include <string>

/// A scope guard for OpenSSL's error queue of the calling thread.
///
/// The two kinds of guard differ in what survives the scope:
/// - `false` sets a mark (`ERR_set_mark`). Entries from before the guard survive. Entries that are queued
///   within the scope are removed at its end. Use it where the caller may have entries of its own in the
///   queue.
/// - `true` empties the queue (`ERR_clear_error`), so that the scope sees only its own errors. It sets no
///   mark, and the marks of enclosing guards are lost with their entries. Its end removes the entries down to
///   a mark that was set within the scope, or all entries without such a mark.
///
/// The queue belongs to the thread, so a guard must be destroyed on the thread that made it.
class FOUNDATION_CERTIFICATES_EXPORT RAIIOpenSSLErrorRemover
{
public:
    /// Sets a mark, or empties the queue if clearQueue is true.
    RAIIOpenSSLErrorRemover(bool clearQueue = false);
    /// Removes entries (`ERR_pop_to_mark`), for both kinds of guard.
    ~RAIIOpenSSLErrorRemover();

    /// Not copyable: a copy would remove entries a second time.
    RAIIOpenSSLErrorRemover(RAIIOpenSSLErrorRemover const&) = delete;
    /// Does nothing, since the state of a guard is in the queue and not in the object.
    RAIIOpenSSLErrorRemover& operator=(RAIIOpenSSLErrorRemover const& other);

    /// Removes the oldest entry from the queue (`ERR_get_error`) and returns its reason text
    /// (`ERR_reason_error_string`). Returns an empty text if the queue is empty or the code has no text.
    std::string getErrorString();
};
