#include "support/Text.hpp"
#include "support/allocation/Shortage.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/TemporaryFolder.hpp"

#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/pem.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

void withCheapKey(CertificateSpec& spec)
{
    spec.key = ed25519Key(spec.subject.front().value);
}

void forServersOnly(CertificateSpec& spec)
{
    withCheapKey(spec);
    spec.setExtension("extendedKeyUsage", "serverAuth");
}

std::string trustedPem(CertificateAndKey const& root)
{
    require(X509_add1_trust_object(root.certificate.get(), OBJ_nid2obj(NID_server_auth)));
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509_AUX(bio.get(), root.certificate.get()));
    return asText(contentOf(bio));
}

/// A bundle with certificates of all kinds.
struct Bundle
{
    TemporaryFolder folder;
    std::string const file = folder
                                 .write(
                                     "bundle.pem", makeRoot("plain", withCheapKey).pem() +
                                                       makeRoot("servers", forServersOnly).pem() +
                                                       trustedPem(makeRoot("trusted", forServersOnly)))
                                 .string();
    std::size_t const numCertificates = 3;
};

enum class Outcome
{
    Complete,
    Exception,
    MissesCertificates
};

/// Reads the bundle while OpenSSL gets no memory for the given allocations.
Outcome outcomeOf(Bundle const& bundle, std::size_t allocation, std::size_t refusals)
{
    posix::SystemCertificateLocations locations;
    locations.files = {bundle.file};
    TrustStore store(std::make_unique<posix::SystemCertificateAdder>(locations));
    try {
        Shortage const shortage(Memory::OpenSSL, allocation, refusals);
        store.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
    } catch (std::exception const&) {
        return Outcome::Exception;
    }
    return store.size() == bundle.numCertificates ? Outcome::Complete : Outcome::MissesCertificates;
}

/// Adds nothing, so that only the filter runs.
class NoCertificates : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override { return new NoCertificates(*this); }
    void addCertificatesTo(TrustStoreImpl& /*store*/, TrustStore::Usage /*usage*/, bool /*rethrow*/) override
    {}
};

/// Filters a store with one certificate while OpenSSL gets no memory for one allocation.
Outcome outcomeOfFilter(Bytes const& der, TrustStore::Usage usage, std::size_t allocation)
{
    auto const certificate = parseDer(der); // OpenSSL has not parsed its extensions yet
    TrustStore store(std::make_unique<NoCertificates>());
    require(X509_STORE_add_cert(getOpenSSLStore(store).get(), certificate.get()));
    try {
        Shortage const shortage(Memory::OpenSSL, allocation);
        store.addSystemCertificates(usage);
    } catch (std::exception const&) {
        return Outcome::Exception;
    }
    return store.size() == 1 ? Outcome::Complete : Outcome::MissesCertificates;
}

} // namespace

TEST(SystemCertificateShortage, CertificateIsNotSkippedIfMemoryRunsOut)
{
    constexpr std::size_t stride = 11; // the sweep of all allocations would take minutes
    Bundle const bundle;
    LogCapture const log(LogCapture::everySeverity); // prints no record
    for (std::size_t const refusals : {1U, 4U, 16U}) {
        std::size_t allocation = 0;
        do {
            EXPECT_NE(outcomeOf(bundle, allocation, refusals), Outcome::MissesCertificates)
                << refusals << " refusals from allocation " << allocation << " on";
            allocation += stride;
        } while (Shortage::hasOccurred());
        RecordProperty("allocations", static_cast<int>(allocation));
    }
}

TEST(SystemCertificateShortage, FilterKeepsSoundCertificateWithoutAnyOneAllocation)
{
    LogCapture const log(LogCapture::everySeverity); // prints no record
    auto const der = makeRoot("root", withCheapKey).der();
    for (auto const usage : {TrustStore::Usage::ServerAuthentication, TrustStore::Usage::Signing}) {
        ASSERT_EQ(outcomeOfFilter(der, usage, unlimited), Outcome::Complete);
        std::size_t allocation = 0;
        do {
            EXPECT_NE(outcomeOfFilter(der, usage, allocation), Outcome::MissesCertificates)
                << "without allocation " << allocation;
            ++allocation;
        } while (Shortage::hasOccurred());
        EXPECT_GT(allocation, 2U);
    }
}
