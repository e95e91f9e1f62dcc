#include "support/system/LogCapture.hpp"

#include <foundation/log/severity.hpp>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

#include <algorithm>
#include <iterator>
#include <mutex>

namespace foundation::test {

struct LogCapture::Recorder : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding>
{
    void consume(boost::log::record_view const& record)
    {
        LogRecord taken{
            boost::log::extract_or_default<int>("Severity", record, 0),
            boost::log::extract_or_default<std::string>("Channel", record, std::string()),
            boost::log::extract_or_default<std::string>("Message", record, std::string()),
            {}};
        for (auto const& attribute : record.attribute_values()) {
            taken.attributes.insert(attribute.first.string());
        }
        std::lock_guard<std::mutex> const lock(mutex);
        records.push_back(std::move(taken));
    }

    mutable std::mutex mutex;
    std::vector<LogRecord> records;
};

LogCapture::LogCapture(std::uint32_t mask)
    : previousMask(log::diagnostic_severity_mask()),
      recorder(boost::make_shared<Recorder>()),
      sink(boost::make_shared<boost::log::sinks::synchronous_sink<Recorder>>(recorder))
{
    boost::log::core::get()->add_sink(sink);
    log::set_diagnostic_severity_mask(mask);
}

LogCapture::~LogCapture()
{
    log::set_diagnostic_severity_mask(previousMask);
    boost::log::core::get()->remove_sink(sink);
}

std::vector<LogRecord> LogCapture::records() const
{
    std::lock_guard<std::mutex> const lock(recorder->mutex);
    return recorder->records;
}

std::vector<std::string> LogCapture::messages() const
{
    auto const taken = records();
    std::vector<std::string> result;
    std::transform(taken.begin(), taken.end(), std::back_inserter(result), [](LogRecord const& record) {
        return record.message;
    });
    return result;
}

} // namespace foundation::test
