#include "truststore/SystemCertificateUsage.hpp"

#include "base/DiagnosticLogger.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <ostream>

namespace foundation::certificates {

namespace {

constexpr char const serverAuth[] = "1.3.6.1.5.5.7.3.1";
constexpr char const codeSigning[] = "1.3.6.1.5.5.7.3.3";
constexpr char const emailProtection[] = "1.3.6.1.5.5.7.3.4";
constexpr char const timeStamping[] = "1.3.6.1.5.5.7.3.8";
constexpr char const anyExtendedKeyUsage[] = "2.5.29.37.0";

} // namespace

std::vector<char const*> extendedKeyUsagesFor(TrustStore::Usage usage)
{
    switch (usage) {
    case TrustStore::Usage::ServerAuthentication:
        return {serverAuth, anyExtendedKeyUsage};
    case TrustStore::Usage::Signing:
        return {codeSigning, emailProtection, timeStamping, anyExtendedKeyUsage};
    }
    return {};
}

void deliver(bool rethrowOnFailure, std::function<void()> const& addCertificate)
{
    try {
        addCertificate();
    } catch (TrustStoreException const&) {
        if (rethrowOnFailure) {
            throw;
        }
        diagnosticLogger().write(log::severity::error, [](std::ostream& out) {
            out << "Exception caught: " << log::detail::current_exception_chain_as_string();
        });
    }
}

} // namespace foundation::certificates
