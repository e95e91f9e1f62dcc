#include <foundation/log/severity.hpp>

#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

namespace {

/// Takes every record and drops it. Without any sink, Boost.Log writes to the standard output.
struct Discard : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding>
{
    void consume(boost::log::record_view const& /*record*/) {}
};

} // namespace

/// Called by libFuzzer once, before the first input. All severities are on, so that what the library puts
/// into its records is fuzzed as well.
extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/)
{
    boost::log::core::get()->add_sink(
        boost::make_shared<boost::log::sinks::synchronous_sink<Discard>>(boost::make_shared<Discard>()));
    foundation::log::set_diagnostic_severity_mask(~0U);
    return 0;
}
