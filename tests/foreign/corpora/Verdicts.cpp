#include "foreign/corpora/Verdicts.hpp"

#include "support/differential/ValidationOutcomes.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/ExpectedVerdicts.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/X509CertificateChain.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>
#include <optional>
#include <set>

namespace foundation::test {

using namespace certificates;
using namespace toolkit;

namespace {

using Handles = std::vector<X509Handle>;

/// Counts among the statuses: there was an exception instead.
constexpr int noVerdict = -1;

/// The certificates of a group that one of the two interfaces loads.
struct Group
{
    Handles all;
    /// Those that may have issued another one.
    Handles intermediates;
    /// Those that issued themselves. The first one is of no chain: an empty store would mean the operating
    /// system's roots.
    Handles anchors{makeRoot("unrelated").certificate};
};

bool isSelfIssued(X509Handle const& certificate)
{
    return X509_NAME_cmp(X509_get_subject_name(certificate.get()), X509_get_issuer_name(certificate.get())) ==
           0;
}

/// Whether the library's own class loads the certificate.
bool isLoaded(X509Handle const& certificate)
{
    try {
        X509Certificate const loaded(toDer(certificate));
        return true;
    } catch (std::exception const&) {
        return false;
    }
}

template <class Predicate>
Group groupOf(Handles const& certificates, Predicate const& belongs)
{
    Group group;
    std::copy_if(certificates.begin(), certificates.end(), std::back_inserter(group.all), belongs);
    std::set<Bytes> issuers;
    for (auto const& certificate : group.all) {
        issuers.insert(encodedBy(i2d_X509_NAME, X509_get_issuer_name(certificate.get())));
    }
    for (auto const& certificate : group.all) {
        if (isSelfIssued(certificate)) {
            group.anchors.push_back(certificate);
        }
        if (issuers.count(encodedBy(i2d_X509_NAME, X509_get_subject_name(certificate.get()))) != 0) {
            group.intermediates.push_back(certificate);
        }
    }
    return group;
}

void compare(
    Verdicts& verdicts, char const* what, X509Handle const& leaf, ReferenceVerdict const& own,
    ReferenceVerdict const& reference)
{
    ++verdicts.compared;
    ++verdicts.counts[own.failure ? noVerdict : own.status];
    if (own != reference) {
        verdicts.differences.push_back(
            std::string(what) + " " + subjectOf(leaf.get()) + ": " + streamed(own) + ", but OpenSSL says " +
            streamed(reference));
    }
}

StoreHandle storeWith(Handles const& anchors)
{
    auto store = own(X509_STORE_new());
    for (auto const& anchor : anchors) {
        require(X509_STORE_add_cert(store.get(), anchor.get()));
    }
    return store;
}

X509CertificateChain chainWith(Handles const& members)
{
    X509CertificateChain chain;
    for (auto const& member : members) {
        chain.addCertificate(X509Certificate(toDer(member)));
    }
    return chain;
}

TrustStore trustStoreWith(Handles const& anchors)
{
    TrustStore store;
    for (auto const& anchor : anchors) {
        store.addCertificate(X509Certificate(toDer(anchor)));
    }
    return store;
}

/// Compares validateCertificate with the reference.
void compareValidations(Group const& group, Verdicts& verdicts)
{
    auto const chain = chainWith(group.intermediates);
    auto const trustStore = trustStoreWith(group.anchors);
    ReferenceValidator validator;
    validator.chain = group.intermediates;
    validator.store = storeWith(group.anchors);
    for (auto const& leaf : group.all) {
        X509Certificate const loaded(toDer(leaf));
        validator.leaf = leaf;
        for (auto const& tolerances : allTolerances()) {
            if (tolerances.revoked) {
                continue; // no CRL is fetched
            }
            validator.tolerances = tolerances;
            compare(
                verdicts, "validateCertificate", leaf,
                verdictOf(loaded, chain, optionsWith(tolerances), trustStore), validator.validate());
        }
    }
}

/// Returns the middle of the certificate's validity, when its own chain is most often valid, too.
std::optional<std::time_t> middleOf(X509Handle const& certificate)
{
    std::tm from{};
    std::tm until{};
    if (ASN1_TIME_to_tm(X509_get0_notBefore(certificate.get()), &from) != 1 ||
        ASN1_TIME_to_tm(X509_get0_notAfter(certificate.get()), &until) != 1) {
        return {};
    }
    auto const start = timegm(&from);
    return start + (timegm(&until) - start) / 2;
}

/// One way to validate a path, for both sides.
struct Setting
{
    PathOptions options;
    ReferenceVerifier reference;
};

std::vector<Setting> settingsFor(X509Handle const& leaf, std::vector<CrlHandle> const& crls)
{
    Setting plain;
    plain.options.minimumSecurityLevel = 0;
    plain.options.time = std::chrono::system_clock::now();
    if (auto const middle = middleOf(leaf)) {
        plain.options.time = std::chrono::system_clock::from_time_t(*middle);
    }
    plain.reference.time = std::chrono::system_clock::to_time_t(*plain.options.time);
    plain.reference.flags &= ~static_cast<unsigned long>(X509_V_FLAG_ALLOW_PROXY_CERTS);

    auto tolerant = plain;
    tolerant.options.allowSelfSigned = true;
    tolerant.options.allowExpired = true;
    tolerant.reference.tolerances.selfSigned = true;
    tolerant.reference.tolerances.expired = true;

    auto partial = plain;
    partial.options.allowTrustedIntermediate = true;
    partial.reference.flags |= X509_V_FLAG_PARTIAL_CHAIN;

    std::vector<Setting> settings{plain, tolerant, partial};
    if (!crls.empty()) {
        plain.options.revocation = Revocation::WholeChain;
        for (auto const& crl : crls) {
            plain.options.crls.push_back(toDer(crl));
        }
        plain.reference.flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
        plain.reference.crls = crls;
        settings.push_back(plain);
    }
    return settings;
}

std::vector<Certificate> certificatesOf(Handles const& handles)
{
    std::vector<Certificate> certificates;
    for (auto const& handle : handles) {
        certificates.push_back(Certificate::fromX509(handle.get()));
    }
    return certificates;
}

/// Compares PathValidator with OpenSSL at a time when the certificate was valid.
void comparePaths(Group const& group, std::vector<CrlHandle> const& crls, Verdicts& verdicts)
{
    auto const intermediates = certificatesOf(group.intermediates);
    PathValidator const validator(certificatesOf(group.anchors));
    for (auto const& leaf : group.all) {
        for (auto& [options, reference] : settingsFor(leaf, crls)) {
            reference.leaf = leaf;
            reference.untrusted = group.intermediates;
            reference.trusted = group.anchors;
            compare(
                verdicts, "PathValidator", leaf,
                verdictOf(validator, Certificate::fromX509(leaf.get()), intermediates, options),
                verdictOf(reference.verify()));
        }
    }
}

} // namespace

Verdicts compareVerdicts(Handles const& certificates, std::vector<CrlHandle> const& crls)
{
    CleanErrorQueue const cleanQueue;
    Verdicts verdicts;
    compareValidations(groupOf(certificates, isLoaded), verdicts);
    comparePaths(groupOf(certificates, [](X509Handle const&) { return true; }), crls, verdicts);
    return verdicts;
}

} // namespace foundation::test
