#include "support/Text.hpp"
#include "support/allocation/Shortage.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Rendering.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "validation/VerifyErrors.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <exception>
#include <functional>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

/// @file
/// Names while OpenSSL runs out of memory. A shortage that passes for an answer is dangerous here: two names
/// that were not read are equal, and a certificate with equal names counts as self-signed.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Query = std::function<std::string(X509Certificate const&)>;

constexpr char const unreadableName[] = "Internal error: Unable to read the certificate's name.";

/// A series of consecutive allocations that are refused. A second attempt repairs a single refusal.
struct Refusals
{
    std::size_t count;
    /// Distance between the allocations that the series begins with, from run to run.
    std::size_t stride = 1;
};

std::vector<Refusals> const everySeries = {{1}, {2}, {4}, {8}, {16}};

/// For calls with thousands of allocations. Each of them is refused once or twice.
std::vector<Refusals> const adjacentSeries = {{4, 4}, {16, 8}};

/// What a call returned or threw.
struct Outcome
{
    std::string answer;
    std::type_index thrown = typeid(void);

    bool isUnreadableName() const
    {
        return thrown == typeid(X509CertificateException) && answer == unreadableName;
    }
};

bool operator==(Outcome const& left, Outcome const& right)
{
    return left.answer == right.answer && left.thrown == right.thrown;
}

Outcome outcomeOf(std::function<std::string()> const& call)
{
    try {
        return {call()};
    } catch (std::exception const& failure) {
        return {failure.what(), typeid(failure)};
    }
}

struct NamedSubject
{
    char const* description;
    Name subject;
};

/// Names that OpenSSL reads and prints in different ways.
std::vector<NamedSubject> subjects()
{
    constexpr char const longArc[] = "2.25.329800735698586629295641978511506172918";
    return {
        {"several common names",
         {{"C", "US", V_ASN1_PRINTABLESTRING},
          {"O", "organization"},
          {"CN", "first.example"},
          {"CN", "last.example"}}},
        {"string types other than UTF-8",
         {{"O", std::string("\0\xFC\x20\xAC", 4), V_ASN1_BMPSTRING}, {"CN", "\xFC", V_ASN1_T61STRING}}},
        {"an attribute with a number that OpenSSL does not know",
         {{"1.3.6.1.4.1.99999.1", "x"}, {"CN", "a"}}},
        {"an attribute with a long number", {{longArc, "x"}, {"CN", "a"}}},
        {"a last common name that is no text", {{"CN", "a"}, {"CN", "\x01", V_ASN1_BIT_STRING}}},
        {"a long common name", {{"CN", std::string(20000, 'x')}}},
        {"no common name", {{"O", "organization"}}},
        {"nothing", {}},
    };
}

struct NamedQuery
{
    char const* name;
    Query run;
};

std::vector<NamedQuery> nameQueries()
{
    return {
        {"getSubjectName", [](auto& c) { return c.getSubjectName(); }},
        {"getIssuerName", [](auto& c) { return c.getIssuerName(); }},
        {"getSubjectNameAsRDNs", [](auto& c) { return rendered(c.getSubjectNameAsRDNs()); }},
        {"getIssuerNameAsRDNs", [](auto& c) { return rendered(c.getIssuerNameAsRDNs()); }},
        {"getSubjectCommonName", [](auto& c) { return c.getSubjectCommonName(); }},
        {"getIssuerCommonName", [](auto& c) { return c.getIssuerCommonName(); }},
        {"isSelfSigned", [](auto& c) { return rendered(c.isSelfSigned()); }},
    };
}

/// Runs the call again and again, each time with another series of its allocations refused.
void sweep(
    std::function<std::string()> const& call,
    std::function<bool(Outcome const& outcome, Outcome const& atRest)> const& isAllowed,
    std::vector<Refusals> const& allRefusals = everySeries)
{
    CleanErrorQueue const clean;
    auto const atRest = outcomeOf(call);
    for (Refusals const& refusals : allRefusals) {
        bool reached = true;
        for (std::size_t allocation = 0; reached; allocation += refusals.stride) {
            auto const outcome = outcomeOf([&] {
                Shortage const shortage(Memory::OpenSSL, allocation, refusals.count);
                return call();
            });
            reached = Shortage::hasOccurred();
            ASSERT_TRUE(isAllowed(outcome, atRest))
                << refusals.count << " refused from allocation " << allocation << " on: \""
                << outcome.answer.substr(0, 200) << "\" instead of \"" << atRest.answer.substr(0, 200)
                << "\"";
        }
    }
}

bool isWholeOrThrown(Outcome const& outcome, Outcome const& atRest)
{
    return outcome == atRest || outcome.isUnreadableName();
}

} // namespace

TEST(CertificateName, IsWholeOrThrowsWhenOutOfMemory)
{
    static auto const root = makeRoot("root");
    for (auto const& [description, subject] : subjects()) {
        SCOPED_TRACE(description);
        // Issuer and subject differ only in their last attribute.
        auto issuer = subject;
        issuer.push_back({"OU", "unit"});
        X509Certificate const certificate(
            makeLeaf(root, "leaf", [&, &subject = subject](CertificateSpec& spec) {
                spec.subject = subject;
                spec.issuer = issuer;
            }).der());
        ASSERT_FALSE(certificate.isSelfSigned());
        for (auto const& query : nameQueries()) {
            SCOPED_TRACE(query.name);
            sweep([&] { return query.run(certificate); }, isWholeOrThrown);
        }
    }
}

TEST(CertificateName, StaysEqualInBothPlacesWhenOutOfMemory)
{
    for (auto const& [description, subject] : subjects()) {
        SCOPED_TRACE(description);
        X509Certificate const certificate(makeRoot("root", [&, &subject = subject](CertificateSpec& spec) {
                                              spec.subject = subject;
                                          }).der());
        ASSERT_TRUE(certificate.isSelfSigned());
        sweep([&] { return rendered(certificate.isSelfSigned()); }, isWholeOrThrown);
    }
}

TEST(CertificateReport, IsWholeOrThrowsWhenOutOfMemory)
{
    X509Certificate const certificate(makeRoot("root").der());
    sweep(
        [&] { return printed(certificate); },
        [](Outcome const& outcome, Outcome const& atRest) {
            bool const lacksFingerprint =
                outcome.thrown == typeid(X509CertificateException) &&
                outcome.answer == "Internal error: Unable to compute the SHA256 fingerprint.";
            return isWholeOrThrown(outcome, atRest) || lacksFingerprint;
        });
}

TEST(CertificateName, KeepsPrintedPartOrThrowsWhenOutOfMemory)
{
    // OpenSSL loads no certificate with such a name, but a program may build one: half a BMP character.
    auto const name = makeName({{"CN", "xx", V_ASN1_BMPSTRING}, {"O", "organization"}});
    auto* const damaged = changeable(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name.get(), 0)));
    require(ASN1_STRING_set(damaged, "odd", 3));
    ASSERT_EQ(nameAsText(name.get()), "O=organization,CN=");
    sweep([&] { return nameAsText(name.get()); }, isWholeOrThrown);
}

TEST(CommonNameForMessages, IsWholeOrEmptyWhenOutOfMemory)
{
    auto const made = makeRoot("root");
    sweep(
        [&] { return commonNameOf(made.certificate.get()); },
        [](Outcome const& outcome, Outcome const& atRest) {
            return outcome == atRest || outcome == Outcome{""};
        });
}

TEST(VerificationReport, IsWholeOrThrowsWhenOutOfMemory)
{
    auto const made = makeRoot("root");
    auto const context = own(X509_STORE_CTX_new());
    X509_STORE_CTX_set_error(context.get(), X509_V_ERR_CERT_HAS_EXPIRED);
    X509_STORE_CTX_set_current_cert(context.get(), made.certificate.get());
    ASSERT_NE(describeVerifyError(context.get()).find("CN=root"), std::string::npos);
    sweep([&] { return describeVerifyError(context.get()); }, isWholeOrThrown);
}

// OpenSSL compares the names of issuer and subject once, at load, to tell roots of version 1 from leaves.
TEST(CertificateOfVersion1, StaysCAIfMemoryRunsOutAtLoad)
{
    auto const der = makeRoot("root", [](CertificateSpec& spec) {
                         spec.version = X509_VERSION_1;
                         spec.extensions.clear();
                     }).der();
    ASSERT_TRUE(X509Certificate(der).isCACertificate());
    sweep(
        [&] { return rendered(X509Certificate(der).isCACertificate()); },
        [](Outcome const& outcome, Outcome const& atRest) {
            return outcome == atRest || outcome.thrown != typeid(void);
        });
}

TEST(RequiredCRL, IsNeverWaivedWhenOutOfMemory)
{
    using Options = CertificateValidationOptions;
    auto const withCheapKey = [](CertificateSpec& spec) {
        spec.key = ed25519Key(spec.subject.front().value);
    };
    // The leaf names no CRL, so that none can be fetched.
    auto const root = makeRoot("root", withCheapKey);
    X509Certificate const leaf(makeLeaf(root, "leaf", withCheapKey).der());
    TrustStore store;
    store.addCertificate(X509Certificate(root.der()));
    Options const options(
        Options::AllowSelfSignedCertificate::No, Options::AllowExpiredCertificate::No,
        Options::AllowRevokedCertificate::No, Options::CheckCRL::LeafOnly, Options::DownloadCRL::Required);
    auto const validate = [&] {
        auto const results = leaf.validateCertificate({}, options, store);
        return results.getCertificateChainStatus() == CertificateChainStatus::Valid ? "Valid" : "refused";
    };
    ASSERT_EQ(
        outcomeOf(validate).answer,
        "CRL Download Error: Certificate Revocation List Distribution Points not available\n");
    sweep(
        validate, [](Outcome const& outcome, Outcome const& /*atRest*/) { return outcome.answer != "Valid"; },
        adjacentSeries);
}
