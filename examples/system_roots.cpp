#include "system_roots.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/log/severity.hpp>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace logging = boost::log;

using foundation::certificates::TrustStore;

namespace {

// A sink that collects the library's records. The library logs each removed certificate with the reason.
class ReasonCollector : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding>
{
public:
    void consume(logging::record_view const& record)
    {
        auto message = logging::extract_or_default<std::string>("Message", record, std::string());
        // The last record of a run is a summary.
        bool const isSummary = message.rfind("Removed ", 0) == 0;
        if (!isSummary) {
            reasons.push_back(std::move(message));
        }
    }

    std::vector<std::string> const& collected() const { return reasons; }

private:
    std::vector<std::string> reasons;
};

// Collects records from its construction to its destruction.
class Listener
{
public:
    Listener()
        : collector(boost::make_shared<ReasonCollector>()),
          sink(boost::make_shared<logging::sinks::synchronous_sink<ReasonCollector>>(collector)),
          previousMask(foundation::log::diagnostic_severity_mask())
    {
        using foundation::log::severity;
        logging::core::get()->add_sink(sink);
        // Records of this severity are off by default.
        foundation::log::set_diagnostic_severity_mask(
            previousMask | static_cast<std::uint32_t>(severity::information));
    }
    ~Listener()
    {
        foundation::log::set_diagnostic_severity_mask(previousMask);
        logging::core::get()->remove_sink(sink);
    }
    Listener(Listener const&) = delete;
    Listener& operator=(Listener const&) = delete;

    std::vector<std::string> const& reasons() const { return collector->collected(); }

private:
    boost::shared_ptr<ReasonCollector> collector;
    boost::shared_ptr<logging::sinks::synchronous_sink<ReasonCollector>> sink;
    std::uint32_t previousMask;
};

void printRootsFor(TrustStore::Usage usage, std::string const& title, std::ostream& out)
{
    Listener const listener;
    TrustStore store;
    store.addSystemCertificates(usage);
    out << title << ": " << store.size() << " kept, " << listener.reasons().size() << " dropped\n";
    for (std::string const& reason : listener.reasons()) {
        out << "  " << reason << '\n';
    }
}

} // namespace

void printSystemRoots(std::ostream& out)
{
    printRootsFor(TrustStore::Usage::ServerAuthentication, "TLS servers", out);
    printRootsFor(TrustStore::Usage::Signing, "Signing", out);
}
