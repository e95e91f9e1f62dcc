#include <foundation/log/basic_diagnostic_logger.hpp>

#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>

#include <utility>

namespace foundation::log {

namespace sources = boost::log::sources;

template <typename CharT>
struct basic_diagnostic_logger<CharT>::source
{
    explicit source(std::string const& name) : logger(boost::log::keywords::channel = name) {}

    sources::severity_channel_logger_mt<int, std::string> logger;
};

template <typename CharT>
basic_diagnostic_logger<CharT>::basic_diagnostic_logger(std::string const& name)
    : source_(std::make_unique<source>(name))
{}

template <typename CharT>
basic_diagnostic_logger<CharT>::~basic_diagnostic_logger() = default;

template <typename CharT>
void basic_diagnostic_logger<CharT>::write_enabled(
    severity level, std::function<void(std::basic_ostream<CharT>&)> const& compose)
{
    // Opening asks the core first whether logging is enabled at all, and only then takes the logger's lock.
    auto record = source_->logger.open_record(boost::log::keywords::severity = static_cast<int>(level));
    if (!record) {
        return;
    }
    boost::log::basic_record_ostream<CharT> text(record);
    text.unsetf(std::ios_base::boolalpha); // Boost's record streams, unlike the standard's, start with it
    compose(text.stream());
    text.flush();
    source_->logger.push_record(std::move(record));
}

template class basic_diagnostic_logger<char>;

} // namespace foundation::log
