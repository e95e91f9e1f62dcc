// Makes the values that GdbPrintersTest looks at, and calls stopHere.
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <openssl/x509_vfy.h>

#include <string>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;
using foundation::toolkit::Certificate;
using foundation::toolkit::PathResult;
using foundation::toolkit::PathValidator;

namespace {

CertificateAndKey made(std::string const& serialNumber, CertificateSpec spec)
{
    spec.serialNumber = serialNumber;
    spec.notBefore = TimeSpec::at(1700000000);
    spec.notAfter = TimeSpec::at(2600000000);
    return make(spec);
}

} // namespace

// Has a name that a debugger finds.
__attribute__((noinline)) void stopHere(void const* values)
{
    asm volatile("" : : "r"(values) : "memory");
}

int main()
{
    auto const madeRoot = made("0x1a2b", rootSpec("root"));
    auto leafDefaults = leafSpec(madeRoot, "leaf");
    leafDefaults.subject = {{"O", "a\nb, c"}, {"CN", "l\xC3\xA4rm"}};
    leafDefaults.key = rsaKey();
    auto const madeLeaf = made("7", leafDefaults);
    auto leafWithOtherKey = leafSpec(madeRoot, "other");
    leafWithOtherKey.key = p384Key();
    Certificate const other = Certificate::fromDER(made("0xfe", leafWithOtherKey).der());

    X509Certificate const root(madeRoot.der());
    X509Certificate const leaf(madeLeaf.der());
    X509Certificate const empty;
    X509Certificate source(madeRoot.der());
    X509Certificate const target(std::move(source));

    X509CertificateChain const emptyChain;
    X509CertificateChain chain;
    chain.addCertificate(leaf);
    chain.addCertificate(root);

    TrustStore const emptyStore;
    TrustStore store;
    store.addCertificate(root);
    TrustStore storeWithCRL = store;
    X509_STORE_add_crl(getOpenSSLStore(storeWithCRL).get(), makeCrl(madeRoot).get());

    CertificateValidationResults valid(CertificateChainStatus::Valid);
    valid.setRootCertificate(root);
    CertificateValidationResults revoked(CertificateChainStatus::Revoked, "certificate revoked");
    revoked.setCertificateRevocationResults(CertificateRevocationResults(
        CertificateRevocationResults::RevocationStatus::Revoked, "Jan  1 00:00:00 2026 GMT", "7"));
    PKCS7CertificateValidationResults const refused(false, CertificateChainStatus::Untrusted, "no root");

    PathValidator const validator({Certificate(root)});
    PathResult path;
    path.status = CertificateChainStatus::Valid;
    path.chain = {Certificate(leaf), Certificate(root)};
    PathResult untrusted;
    untrusted.status = CertificateChainStatus::Untrusted;
    untrusted.errorCode = X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY;
    untrusted.errorDepth = 1;

    // Points to itself, so that it looks like a handle whose content makes no sense.
    void* misleading[64] = {misleading, misleading + 1};
    stopHere(misleading);
}
