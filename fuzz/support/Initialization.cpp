#include <foundation/log/severity.hpp>

#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

namespace {

/// Discards every record. Without a sink, Boost.Log would write to the standard output.
struct Discard : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding>
{
    void consume(boost::log::record_view const& /*record*/) {}
};

} // namespace

/// libFuzzer calls it once before the first input. Enables all severities, so that the code that builds
/// records is fuzzed, too.
extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/)
{
    boost::log::core::get()->add_sink(
        boost::make_shared<boost::log::sinks::synchronous_sink<Discard>>(boost::make_shared<Discard>()));
    foundation::log::set_diagnostic_severity_mask(~0U);
    return 0;
}
