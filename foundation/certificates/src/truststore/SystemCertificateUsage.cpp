#include "truststore/SystemCertificateUsage.hpp"

#include "base/DiagnosticLogger.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/objects.h>

#include <exception>
#include <new>
#include <ostream>

namespace foundation::certificates {

namespace {

using Usage = TrustStore::Usage;

struct UsageRow
{
    Usage usage;
    int nid;
    char const* oid;
};

constexpr UsageRow extendedKeyUsages[] = {
    {Usage::ServerAuthentication, NID_server_auth, "1.3.6.1.5.5.7.3.1"},
    {Usage::ServerAuthentication, NID_anyExtendedKeyUsage, "2.5.29.37.0"},
    {Usage::Signing, NID_code_sign, "1.3.6.1.5.5.7.3.3"},
    {Usage::Signing, NID_email_protect, "1.3.6.1.5.5.7.3.4"},
    {Usage::Signing, NID_time_stamp, "1.3.6.1.5.5.7.3.8"},
    {Usage::Signing, NID_anyExtendedKeyUsage, "2.5.29.37.0"},
};

template <class Value>
std::vector<Value> valuesFor(Usage usage, Value UsageRow::*column)
{
    std::vector<Value> values;
    for (UsageRow const& row : extendedKeyUsages) {
        if (row.usage == usage) {
            values.push_back(row.*column);
        }
    }
    return values;
}

/// Calls the function, and again if OpenSSL may have run out of memory.
/// @throws std::bad_alloc if OpenSSL has run out of memory
/// @throws TrustStoreException if the function does so although memory is available
void callWithMemoryAtHand(std::function<void()> const& addCertificate)
{
    std::exception_ptr failure;
    bool const lacksMemory = lacksMemoryFor([&] {
        failure = nullptr;
        try {
            addCertificate();
        } catch (TrustStoreException const&) {
            failure = std::current_exception();
        }
        return failure == nullptr;
    });
    if (lacksMemory) {
        throw std::bad_alloc();
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

} // namespace

std::vector<char const*> extendedKeyUsageOIDs(Usage usage)
{
    return valuesFor(usage, &UsageRow::oid);
}

std::vector<int> extendedKeyUsageNIDs(Usage usage)
{
    return valuesFor(usage, &UsageRow::nid);
}

void addSystemCertificatesOfAllUsages(TrustStore& store)
{
    constexpr bool rethrowOnFailure = false;
    store.addSystemCertificates(Usage::Signing, rethrowOnFailure);
    store.addSystemCertificates(Usage::ServerAuthentication, rethrowOnFailure);
}

void deliver(bool rethrowOnFailure, std::function<void()> const& addCertificate)
{
    try {
        callWithMemoryAtHand(addCertificate);
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
