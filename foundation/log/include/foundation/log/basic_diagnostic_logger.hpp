#pragma once

#include <foundation/log/export.hpp>
#include <foundation/log/severity.hpp>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace foundation::log {

/// A named source of diagnostic records, which go to the sinks of the process's Boost.Log core.
///
/// A record carries the attributes "Severity" (an `int`, the number of its `severity`), "Channel" (the name
/// of the logger) and "Message" (its text), and no source location.
///
/// Threads may share a logger. It holds no lock of its own while it opens a record, composes the text or
/// passes the record to the sinks. A logger that is not destroyed may be used until the process ends, in
/// destructors of global objects too.
///
/// `CharT` is `char`. The library contains only that instance.
template <typename CharT>
class FOUNDATION_LOG_EXPORT basic_diagnostic_logger
{
public:
    /// Creates a logger whose records go to the channel `name`.
    explicit basic_diagnostic_logger(std::string const& name);
    ~basic_diagnostic_logger();

    basic_diagnostic_logger(basic_diagnostic_logger const&) = delete;
    basic_diagnostic_logger& operator=(basic_diagnostic_logger const&) = delete;

    /// Writes one record. Its text is what `compose(std::basic_ostream<CharT>&)` writes to the stream, which
    /// starts in the default format of streams: a `bool` prints as 0 or 1.
    ///
    /// Calls `compose` at most once. Does not call it if the severity's bit is clear in
    /// `diagnostic_severity_mask()`; such a record costs only that test. Does not call it either if logging
    /// is disabled in the core, or if the core's filter rejects the record. If `compose` throws, the record
    /// is dropped and the exception passes through.
    template <typename Compose>
    void write(severity level, Compose&& compose)
    {
        if ((diagnostic_severity_mask() & static_cast<std::uint32_t>(level)) != 0) {
            write_enabled(level, std::ref(compose));
        }
    }

private:
    struct source;

    void write_enabled(severity level, std::function<void(std::basic_ostream<CharT>&)> const& compose);

    std::unique_ptr<source> source_;
};

extern template class basic_diagnostic_logger<char>;

namespace detail {

/// Returns a description of the exception being handled and of each exception nested in it: "type: what()",
/// outermost first, joined by " <- ". An exception that is not derived from `std::exception` is described by
/// its type alone. Outside of a handler, returns "no exception".
FOUNDATION_LOG_EXPORT std::string current_exception_chain_as_string();

} // namespace detail

} // namespace foundation::log
