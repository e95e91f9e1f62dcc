#include "Roots.hpp"

#include "CommonOptions.hpp"
#include "Json.hpp"
#include "Terminal.hpp"
#include "Text.hpp"
#include "Times.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/log/severity.hpp>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

#include <iostream>
#include <memory>
#include <vector>

namespace foundation::tools {

using certificates::TrustStore;
using toolkit::Certificate;

namespace {

/// Collects the library's records. The library logs each certificate that it drops, with the reason.
class ReasonCollector : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding>
{
public:
    void consume(boost::log::record_view const& record)
    {
        auto message = boost::log::extract_or_default<std::string>("Message", record, std::string());
        bool const isSummary = message.rfind("Removed ", 0) == 0;
        if (!isSummary) {
            reasons.push_back(std::move(message));
        }
    }

    std::vector<std::string> reasons;
};

/// Adds the system's roots to the store. Returns why some were dropped.
std::vector<std::string> addSystemRoots(TrustStore& store, TrustStore::Usage usage)
{
    using Sink = boost::log::sinks::synchronous_sink<ReasonCollector>;
    auto const collector = boost::make_shared<ReasonCollector>();
    boost::log::core::get()->add_sink(boost::make_shared<Sink>(collector));
    using log::severity;
    log::set_diagnostic_severity_mask(
        log::diagnostic_severity_mask() | static_cast<std::uint32_t>(severity::information));
    store.addSystemCertificates(usage);
    boost::log::core::get()->remove_all_sinks();
    return collector->reasons;
}

void printKept(Certificate const& root, RootsOptions const& options)
{
    if (!options.json) {
        std::cout << printable(root.getSubject()) << ", until " << notAfterOf(root) << '\n';
        return;
    }
    auto record = newRecord("roots");
    record.addText("usage", options.usage);
    record.addBoolean("kept", true);
    record.addText("subject", root.getSubject());
    record.addText("notAfter", notAfterOf(root));
    record.addText("sha256", root.getSHA256Fingerprint());
    std::cout << jsonLine(record);
}

void printDropped(std::string const& reason, RootsOptions const& options)
{
    if (!options.json) {
        std::cout << inRed("Dropped: ") << printable(reason) << '\n';
        return;
    }
    auto record = newRecord("roots");
    record.addText("usage", options.usage);
    record.addBoolean("kept", false);
    record.addText("reason", reason);
    std::cout << jsonLine(record);
}

ExitStatus roots(RootsOptions const& options)
{
    TrustStore store;
    auto const dropped = addSystemRoots(
        store,
        options.usage == "server" ? TrustStore::Usage::ServerAuthentication : TrustStore::Usage::Signing);
    for (auto const& pem : store.getPEMStrings()) {
        printKept(Certificate::fromPEM(pem), options);
    }
    for (auto const& reason : dropped) {
        printDropped(reason, options);
    }
    if (!options.json) {
        std::cout << inBold(
                         std::to_string(store.size()) + " trusted, " + std::to_string(dropped.size()) +
                         " dropped")
                  << '\n';
    }
    return dropped.empty() ? ExitStatus::Good : ExitStatus::Finding;
}

} // namespace

void addRoots(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<RootsOptions>();
    auto& command = *program.add_subcommand(
        "roots", "Prints the roots that this system trusts, and which ones the library drops and why");
    command.add_option("--usage", options->usage, "For which use: server or signing")
        ->type_name("USAGE")
        ->check(CLI::IsMember({"server", "signing"}))
        ->capture_default_str();
    addJsonOption(command, options->json);
    command.callback([options, &action] { action = [options] { return roots(*options); }; });
}

} // namespace foundation::tools
