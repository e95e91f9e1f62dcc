#include "support/toolkit/ToolkitOperations.hpp"

#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/toolkit/Paths.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Explanation.hpp>

#include <chrono>
#include <cstdint>
#include <limits>

namespace foundation::toolkit {

std::string rendered(AlternativeName const& name)
{
    return std::to_string(static_cast<int>(name.kind)) + " " + name.value;
}

std::string rendered(Certificate const& certificate)
{
    return certificate.getAsPEM();
}

std::string rendered(PathResult const& result)
{
    return std::to_string(static_cast<int>(result.status)) + " " + std::to_string(result.errorCode) + " " +
           std::to_string(result.errorDepth) + " " + result.text + "\n" + test::rendered(result.chain);
}

} // namespace foundation::toolkit

namespace foundation::test {

using namespace certificates;
using namespace toolkit;

namespace {

AllowedOutcomes const outOfMemory = failsWith(toolkitOutOfMemory());
AllowedOutcomes const noName = failsWith(nameUnread());
AllowedOutcomes const noExtensions = failsWith({extensionsUnread(), toolkitOutOfMemory()});
/// Loading takes some 1,700 allocations, nearly all of them in OpenSSL's decoder of the key.
constexpr std::size_t loadStride = 7;
AllowedOutcomes const notLoaded = failsWith({extensionsUnread(), toolkitOutOfMemory()}, loadStride);
AllowedOutcomes const noTime =
    failsWith(failure<X509CertificateException>("Invalid time format used in the certificate."));

template <class Time>
auto ticksOf(Time time)
{
    return static_cast<long long>(time.time_since_epoch().count());
}

Certificate const& issuerOfLeaf()
{
    static auto const issuer = Certificate::fromDER(toolkitMaterial().intermediate);
    return issuer;
}

std::vector<Operation<Certificate>> certificateFields()
{
    using C = Certificate;
    return {
        FOUNDATION_TEST_QUERY(Certificate, getSubject).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(Certificate, getIssuer).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(Certificate, getSerialNumber),
        query<C>("Certificate::getNotBefore", [](C const& c) { return ticksOf(c.getNotBefore()); })
            .withoutOpenSSLMemory(noTime),
        query<C>("Certificate::getNotAfter", [](C const& c) { return ticksOf(c.getNotAfter()); })
            .withoutOpenSSLMemory(noTime),
        FOUNDATION_TEST_QUERY(Certificate, getKeyKind).withoutOpenSSLMemory(outOfMemory),
        FOUNDATION_TEST_QUERY(Certificate, getKeyBits),
        FOUNDATION_TEST_QUERY(Certificate, getSignatureAlgorithm),
        FOUNDATION_TEST_QUERY(Certificate, getSHA256Fingerprint).withoutOpenSSLMemory(outOfMemory),
        FOUNDATION_TEST_QUERY(Certificate, getSubjectKeyIdentifier).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getAuthorityKeyIdentifier).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getKeyUsages).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getExtendedKeyUsages).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getAlternativeNames).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getIssuerURLs).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, getCRLURLs).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(Certificate, isCA),
        query<C>("Certificate::isIssuedBy", [](C const& c) { return c.isIssuedBy(issuerOfLeaf()); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::isIssuedBy, another", [](C const& c) { return c.isIssuedBy(c); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::matchesHost", [](C const& c) { return c.matchesHost("leaf.example"); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::matchesHost, another", [](C const& c) { return c.matchesHost("x.example"); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::matchesAddress", [](C const& c) { return c.matchesAddress("192.0.2.1"); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::matchesAddress, another", [](C const& c) { return c.matchesAddress("::1"); })
            .withoutOpenSSLMemory(outOfMemory),
    };
}

std::vector<Operation<Certificate>> certificateOutputs()
{
    using C = Certificate;
    return {
        query<C>("Certificate::getX509", [](C const& c) { return c.getX509() != nullptr; }),
        query<C>(
            "Certificate::duplicateX509",
            [](C const& c) { return X509_get0_pubkey(c.duplicateX509().get()) != nullptr; })
            .withoutOpenSSLMemory(failsWith({toolkitOutOfMemory()}, loadStride)),
        FOUNDATION_TEST_QUERY(Certificate, getAsDER).withoutOpenSSLMemory(outOfMemory),
        FOUNDATION_TEST_QUERY(Certificate, getAsPEM).withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::toX509Certificate", [](C const& c) { return c.toX509Certificate(); })
            .dropsForeignErrors()
            .withoutOpenSSLMemory(
                failsWith(certificateUnloaded() + Failures{toolkitOutOfMemory()}, loadStride)),
        query<C>("Certificate::Certificate, copy", [](C const& c) { return C(c); }),
        query<C>("operator==", [](C const& c) { return c == issuerOfLeaf(); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("operator!=", [](C const& c) { return c != issuerOfLeaf(); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>(
            "CertificateLess::operator()", [](C const& c) { return CertificateLess()(c, issuerOfLeaf()); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("CertificateHash::operator()", [](C const& c) { return CertificateHash()(c); })
            .withoutOpenSSLMemory(outOfMemory),
        query<C>("Certificate::fromDER", [](C const&) { return C::fromDER(toolkitMaterial().leaf); })
            .withoutOpenSSLMemory(notLoaded),
        query<C>("Certificate::fromPEM", [](C const&) { return C::fromPEM(issuerOfLeaf().getAsPEM()); })
            .withoutOpenSSLMemory(notLoaded),
        query<C>("Certificate::fromX509", [](C const& c) { return C::fromX509(c.getX509()); })
            .withoutOpenSSLMemory(notLoaded),
    };
}

/// Returns options that check everything.
PathOptions everyCheck()
{
    PathOptions options;
    options.host = "leaf.example";
    options.address = "192.0.2.1";
    options.purpose = Purpose::TLSServer;
    options.time = std::chrono::system_clock::now();
    options.revocation = Revocation::WholeChain;
    options.crls = toolkitMaterial().crls;
    return options;
}

/// OpenSSL 3.0 leaks a certificate of the untrusted set if an allocation fails while it builds a chain.
AllowedOutcomes unvalidated(std::size_t stride)
{
    auto outcomes = failsWith(
        {toolkitOutOfMemory(), nameUnread(), extensionsUnread(),
         failure<X509CertificateException>("Internal error: OpenSSL could not verify the certificate.")},
        stride);
    outcomes.isLeaky = true;
    return outcomes;
}

/// A validation, with what it gets.
Operation<PathValidator>
validation(std::string const& name, std::function<void(PathOptions&)> const& change, std::size_t stride)
{
    auto options = everyCheck();
    change(options);
    return query<PathValidator>(
               "PathValidator::validate, " + name,
               [options](PathValidator const& validator) {
                   static auto const leaf = Certificate::fromDER(toolkitMaterial().leaf);
                   return validator.validate(leaf, {issuerOfLeaf()}, options);
               })
        .withoutOpenSSLMemory(unvalidated(stride))
        .withoutHeap(withStride(3));
}

} // namespace

Failure toolkitOutOfMemory()
{
    return failure<X509CertificateException>("Internal error: OpenSSL ran out of memory.");
}

ToolkitMaterial const& toolkitMaterial()
{
    static ToolkitMaterial const material = [] {
        auto const root = makeRoot("root", [](CertificateSpec& spec) { spec.key = rsaKey(2048); });
        auto const intermediate =
            makeIntermediate(root, "intermediate", [](CertificateSpec& spec) { spec.key = p384Key(); });
        auto const leaf = makeLeaf(intermediate, "leaf", [](CertificateSpec& spec) {
            spec.setExtension(
                "subjectAltName", "DNS:leaf.example,IP:192.0.2.1,email:a@leaf.example,RID:1.2.3");
            spec.setExtension("extendedKeyUsage", "serverAuth,clientAuth");
            spec.setExtension("authorityInfoAccess", "caIssuers;URI:http://leaf.example/ca.crt");
            spec.setDistributionPoints({"http://leaf.example/ca.crl"});
        });
        return ToolkitMaterial{
            leaf.der(), intermediate.der(), root.der(), {toDer(makeCrl(root)), toDer(makeCrl(intermediate))}};
    }();
    return material;
}

std::vector<Operation<Certificate>> const& toolkitCertificateOperations()
{
    static std::vector<Operation<Certificate>> const table = [] {
        auto all = certificateFields();
        for (auto const& operation : certificateOutputs()) {
            all.push_back(operation);
        }
        return all;
    }();
    return table;
}

std::vector<Operation<PathValidator>> const& pathValidatorOperations()
{
    static std::vector<Operation<PathValidator>> const table = {
        validation(
            "valid", [](PathOptions&) {}, 29),
        validation(
            "wrong host", [](PathOptions& options) { options.host = "x.example"; }, 61),
        validation(
            "wrong purpose", [](PathOptions& options) { options.purpose = Purpose::CodeSigning; }, 61),
        validation(
            "expired",
            [](PathOptions& options) {
                // the last time of systems with 32 bits
                options.time =
                    std::chrono::system_clock::from_time_t(std::numeric_limits<std::int32_t>::max());
            },
            61),
        validation(
            "missing CRL", [](PathOptions& options) { options.crls.pop_back(); }, 61),
    };
    return table;
}

std::vector<Operation<PathResult>> const& pathResultOperations()
{
    static std::vector<Operation<PathResult>> const table{
        query<PathResult>(
            "explain",
            [](PathResult const& result) {
                auto const explanation = explain(result);
                return explanation.subject + "\n" + explanation.message + "\n" + explanation.check + "\n" +
                       explanation.advice;
            })
            .withoutOpenSSLMemory(noName),
        query<PathResult>("PathResult::isValid", [](PathResult const& result) { return result.isValid(); }),
    };
    return table;
}

} // namespace foundation::test
