#include <foundation/toolkit/StandardErrorLog.hpp>

#include <foundation/log/severity.hpp>

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_value_set.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record_view.hpp>
#include <boost/log/sinks/sink.hpp>
#include <boost/log/utility/value_ref.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <atomic>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace foundation::toolkit {

namespace {

constexpr std::string_view channel = "foundation::certificates";

std::string_view nameOf(int severity)
{
    switch (static_cast<log::severity>(severity)) {
    case log::severity::trace:
        return "trace";
    case log::severity::debug:
        return "debug";
    case log::severity::information:
        return "information";
    case log::severity::warning:
        return "warning";
    case log::severity::error:
        return "error";
    case log::severity::fatal:
        return "fatal";
    }
    return "record";
}

bool isControl(char character)
{
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
}

/// Appends the message without characters that would start a new line or control a terminal.
void appendEscaped(std::string& line, std::string_view message)
{
    constexpr std::string_view digits = "0123456789abcdef";
    for (char const character : message) {
        auto const code = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if (isControl(character)) {
            line += "\\x";
            line += digits[code / 16];
            line += digits[code % 16];
        } else {
            line += character;
        }
    }
}

/// A sink without a frontend of Boost.Log. A frontend has thread-specific data, which Boost.Log may destroy
/// before the last record of a process.
class StandardErrorSink : public boost::log::sinks::sink
{
public:
    StandardErrorSink() : sink(false) {}

    void setMask(std::uint32_t mask) { enabledSeverities = mask; }

    bool will_consume(boost::log::attribute_value_set const& attributes) override
    {
        auto const severity = boost::log::extract<int>(severityName, attributes);
        auto const channelOfRecord = boost::log::extract<std::string>(channelName, attributes);
        return severity && channelOfRecord && *channelOfRecord == channel &&
               (enabledSeverities & static_cast<std::uint32_t>(*severity)) != 0;
    }

    void consume(boost::log::record_view const& record) override
    {
        auto const message = boost::log::extract_or_default<std::string>(messageName, record, std::string());
        auto const severity = boost::log::extract_or_default<int>(severityName, record, 0);
        std::string line(channel);
        line += ' ';
        line += nameOf(severity);
        line += ": ";
        appendEscaped(line, message);
        line += '\n';
        write(line);
    }

    void flush() override {}

private:
    /// Writes past the stream itself, whose state flags belong to the program. There is nobody to tell that
    /// standard error cannot be written.
    void write(std::string const& line)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        std::streambuf* const target = std::cerr.rdbuf();
        if (target != nullptr) {
            static_cast<void>(target->sputn(line.data(), static_cast<std::streamsize>(line.size())));
            static_cast<void>(target->pubsync());
        }
    }

    boost::log::attribute_name const severityName{"Severity"};
    boost::log::attribute_name const channelName{"Channel"};
    boost::log::attribute_name const messageName{"Message"};
    std::atomic<std::uint32_t> enabledSeverities{0};
    std::mutex mutex;
};

/// The sink and what was added to the mask of the process.
class StandardErrorLog
{
public:
    void write(std::uint32_t severityMask)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        boost::log::core::get()->add_sink(sink); // nothing happens if it is there already
        sink->setMask(severityMask);
        std::uint32_t const ofProgram = log::diagnostic_severity_mask() & ~added;
        log::set_diagnostic_severity_mask(ofProgram | severityMask);
        added = severityMask & ~ofProgram;
    }

private:
    std::mutex mutex;
    boost::shared_ptr<StandardErrorSink> const sink = boost::make_shared<StandardErrorSink>();
    std::uint32_t added = 0;
};

/// Never destroyed, because records may come while the process ends.
StandardErrorLog& standardErrorLog()
{
    // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): one log for the process
    static auto* const instance = std::make_unique<StandardErrorLog>().release();
    return *instance;
}

} // namespace

void logToStandardError(std::uint32_t severityMask)
{
    standardErrorLog().write(severityMask);
}

void silenceLog()
{
    // The sink stays, because Boost.Log's default sink would write if there were none.
    standardErrorLog().write(0);
}

} // namespace foundation::toolkit
