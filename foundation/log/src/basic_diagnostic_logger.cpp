#include <foundation/log/basic_diagnostic_logger.hpp>

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/attribute_value.hpp>
#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>

#include <sstream>
#include <utility>

namespace foundation::log {

namespace attributes = boost::log::attributes;

// A source of records that uses neither the loggers nor the record streams of Boost.Log. Those depend on
// objects that Boost.Log destroys while the process ends, and a record may come later than that. The source
// keeps the core alive and holds all that a record needs. It is constant, so it needs no lock.
template <typename CharT>
struct basic_diagnostic_logger<CharT>::source
{
    explicit source(std::string const& name) : channel(name) {}

    boost::log::core_ptr const core = boost::log::core::get();
    boost::log::attribute_name const severityName{"Severity"};
    boost::log::attribute_name const channelName{"Channel"};
    boost::log::attribute_name const messageName{"Message"};
    attributes::constant<std::string> const channel;
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
    boost::log::attribute_set ofRecord;
    ofRecord.insert(source_->severityName, attributes::constant<int>(static_cast<int>(level)));
    ofRecord.insert(source_->channelName, source_->channel);
    // The core tells here whether logging is enabled and whether a sink accepts the record.
    auto record = source_->core->open_record(ofRecord);
    if (!record) {
        return;
    }
    std::basic_ostringstream<CharT> text;
    compose(text);
    auto message = attributes::make_attribute_value(text.str());
    auto const [place, isNew] = record.attribute_values().insert(source_->messageName, message);
    if (!isNew) {
        // The program has an attribute of that name. Boost.Log's record streams replace it too.
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the set has no function for it
        const_cast<boost::log::attribute_value&>(place->second).swap(message);
    }
    source_->core->push_record(std::move(record));
}

template class basic_diagnostic_logger<char>;

} // namespace foundation::log
