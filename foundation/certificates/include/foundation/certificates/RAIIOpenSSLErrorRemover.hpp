#pragma once

#include <foundation/certificates/export.hpp>

#include <string>

/// A scope guard over OpenSSL's error queue of the calling thread.
///
/// The two flavours differ in what survives the scope:
/// - `false` sets a mark (`ERR_set_mark`). Entries queued before the guard survive, entries queued inside
///   its scope are dropped at the end. It suits a scope that may run inside somebody else's error handling.
/// - `true` empties the queue (`ERR_clear_error`), so that the scope sees only what it caused itself. It
///   sets no mark, and the marks of enclosing guards go with the entries that they stood at: its end removes
///   everything down to a mark that was set in its scope, and all there is where none was.
///
/// The queue is per thread: a guard must be destroyed on the thread that made it, and lives in one scope.
class FOUNDATION_CERTIFICATES_EXPORT RAIIOpenSSLErrorRemover
{
public:
    /// Sets a mark, or empties the queue if clearQueue is set.
    RAIIOpenSSLErrorRemover(bool clearQueue = false);
    /// `ERR_pop_to_mark`, in both flavours.
    ~RAIIOpenSSLErrorRemover();

    /// A copy would drop entries a second time.
    RAIIOpenSSLErrorRemover(RAIIOpenSSLErrorRemover const&) = delete;
    /// Does nothing: what a guard remembers lives in the queue and not in the object.
    RAIIOpenSSLErrorRemover& operator=(RAIIOpenSSLErrorRemover const& other);

    /// Takes the oldest entry off the queue (`ERR_get_error`) and gives its reason text alone
    /// (`ERR_reason_error_string`): empty if the queue is empty or the code has no registered text.
    std::string getErrorString();
};
