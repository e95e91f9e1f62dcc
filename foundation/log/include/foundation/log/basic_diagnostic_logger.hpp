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
/// A record carries the attributes "Severity" (an `int`, the number of its `severity`) and "Channel"
/// (the logger's name) and its message, and no source location. Loggers may be shared between threads:
/// the logger's lock is held while a record is opened, never while its text is composed or while it is
/// handed to the sinks.
///
/// `CharT` is `char`; the library holds that one instance.
template <typename CharT>
class FOUNDATION_LOG_EXPORT basic_diagnostic_logger
{
public:
    /// A logger whose records go to the channel `name`.
    explicit basic_diagnostic_logger(std::string const& name);
    ~basic_diagnostic_logger();

    basic_diagnostic_logger(basic_diagnostic_logger const&) = delete;
    basic_diagnostic_logger& operator=(basic_diagnostic_logger const&) = delete;

    /// Writes one record, whose text is what `compose(std::basic_ostream<CharT>&)` puts into the stream.
    /// The stream starts in the standard format of streams (a `bool` prints as 0 or 1).
    ///
    /// `compose` is called at most once, and not at all if the severity's bit is clear in
    /// `diagnostic_severity_mask()`, which is all that such a record costs, or if the core has logging
    /// disabled or filters the record out. If `compose` throws, the record is dropped and the
    /// exception passes through.
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

/// Describes the exception being handled, and each exception nested in it, as "type: what()", outermost
/// first, joined by " <- ". An exception that is no `std::exception` is described by its type alone.
/// Outside of a handler the answer is "no exception".
FOUNDATION_LOG_EXPORT std::string current_exception_chain_as_string();

} // namespace detail

} // namespace foundation::log
