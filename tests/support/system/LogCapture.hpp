#pragma once

#include <boost/log/sinks/sink.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace foundation::test {

/// One diagnostic record, as a sink of the logging core receives it.
struct LogRecord
{
    int severity;
    std::string channel;
    std::string message;
    std::set<std::string> attributes; ///< the names of all attribute values, "Message" among them
};

inline bool operator==(LogRecord const& left, LogRecord const& right)
{
    return left.severity == right.severity && left.channel == right.channel &&
           left.message == right.message && left.attributes == right.attributes;
}

/// Collects the process's diagnostic records during a scope, with the severities of `mask` enabled. Restores
/// the previous mask at the end.
class LogCapture
{
public:
    static constexpr std::uint32_t everySeverity = 63;

    explicit LogCapture(std::uint32_t mask = everySeverity);
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    /// Returns the records so far, in the order of writing.
    std::vector<LogRecord> records() const;

    /// Returns the messages of `records()`.
    std::vector<std::string> messages() const;

private:
    struct Recorder;

    std::uint32_t previousMask;
    boost::shared_ptr<Recorder> recorder;
    boost::shared_ptr<boost::log::sinks::sink> sink;
};

} // namespace foundation::test
