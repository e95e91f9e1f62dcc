#include "support/Dice.hpp"
#include "support/Text.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/RandomHierarchies.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <optional>

// Random hierarchies with random faults, validated by the library and by bare OpenSSL: the same verdict, the
// same text, the same root. Another seed than the default one comes from FOUNDATION_TEST_SEED.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

constexpr int numHierarchies = 500;

// The reference: the expected result, found with the bare API

std::vector<X509Handle> handlesOf(std::vector<CertificateAndKey> const& members)
{
    std::vector<X509Handle> handles;
    for (auto const& member : members) {
        handles.push_back(member.certificate);
    }
    return handles;
}

bool isSelfIssued(X509Handle const& certificate)
{
    return subjectOf(certificate.get()) == [&] {
        auto const bio = own(BIO_new(BIO_s_mem()));
        X509_NAME_print_ex(bio.get(), X509_get_issuer_name(certificate.get()), 0, XN_FLAG_RFC2253);
        return asText(contentOf(bio));
    }();
}

class Reference
{
public:
    explicit Reference(Hierarchy const& hierarchy_) : hierarchy(hierarchy_)
    {
        list = handlesOf(hierarchy.chain);
        auto const& leaf = hierarchy.members.front();
        if (list.empty() || X509_cmp(list.front().get(), leaf.certificate.get()) != 0) {
            list.insert(list.begin(), leaf.certificate);
        }
        verifier.leaf = leaf.certificate;
        verifier.untrusted = list;
        verifier.trusted = handlesOf(hierarchy.anchors);
        verifier.crls = hierarchy.trustedCrls;
        verifier.tolerances = hierarchy.tolerances;
    }

    /// None if a required CRL is missing and the validation throws.
    std::optional<ReferenceOutcome> answer()
    {
        auto const ready = hierarchy.download != DownloadCRL::None && collectCrls();
        if (hierarchy.download == DownloadCRL::Required && !ready && list.size() > 1) {
            return std::nullopt;
        }
        if (ready && !hierarchy.tolerances.revoked) {
            verifier.flags |= hierarchy.check == CheckCRL::LeafOnly     ? X509_V_FLAG_CRL_CHECK
                              : hierarchy.check == CheckCRL::WholeChain ? 0xCUL
                                                                        : 0UL;
        }
        return verifier.verify();
    }

private:
    bool collectCrls()
    {
        if (!isSelfIssued(list.back()) && !appendRoot() && hierarchy.download == DownloadCRL::Required) {
            list.resize(2); // a root that must be there is not: this, too, is thrown
            return false;
        }
        for (std::size_t level = 0; level + 1 < list.size(); ++level) {
            auto const crl = crlFor(list[level]);
            if (crl == nullptr || !isUsable(crl, list[level + 1])) {
                return false;
            }
            verifier.crls.push_back(crl);
            if (hierarchy.check == CheckCRL::LeafOnly) {
                return true;
            }
        }
        return list.size() > 1;
    }

    bool appendRoot()
    {
        auto lookup = verifier;
        lookup.tolerances = everyTolerance();
        auto const outcome = lookup.verify();
        if (outcome.result != 1) {
            return false;
        }
        list.push_back(outcome.chain.back());
        return true;
    }

    CrlHandle crlFor(X509Handle const& certificate) const
    {
        for (std::size_t level = 0; level + 1 < hierarchy.members.size(); ++level) {
            auto const found = hierarchy.served.find(pathOfCrl(level));
            if (found != hierarchy.served.end() &&
                X509_cmp(hierarchy.members[level].certificate.get(), certificate.get()) == 0) {
                return found->second;
            }
        }
        return nullptr;
    }

    static bool isUsable(CrlHandle const& crl, X509Handle const& issuer)
    {
        ErrorQueueMark const mark;
        auto const key = own(X509_get_pubkey(issuer.get()));
        auto const* const nextUpdate = X509_CRL_get0_nextUpdate(crl.get());
        return X509_CRL_verify(crl.get(), key.get()) == 1 && nextUpdate != nullptr &&
               X509_cmp_current_time(nextUpdate) > 0;
    }

    Hierarchy const& hierarchy;
    std::vector<X509Handle> list;
    ReferenceVerifier verifier;
};

// The comparison

std::optional<CertificateValidationResults> validate(Hierarchy const& hierarchy)
{
    std::map<std::string, Bytes> files;
    for (auto const& [path, crl] : hierarchy.served) {
        files[path] = toDer(crl);
    }
    std::optional<HttpFileServer> server;
    if (hierarchy.download != DownloadCRL::None) {
        server.emplace("127.0.0.1", files);
    }
    auto trustStore = storeOf(hierarchy.anchors);
    for (auto const& crl : hierarchy.trustedCrls) {
        addCrl(trustStore, crl);
    }
    try {
        return load(hierarchy.members.front())
            .validateCertificate(
                chainOf(hierarchy.chain),
                optionsWith(hierarchy.tolerances, hierarchy.check, hierarchy.download), trustStore);
    } catch (X509CertificateException const&) {
        return std::nullopt;
    }
}

} // namespace

TEST(ValidationDifferential, AgreesWithOpenSslOnRandomHierarchies)
{
    auto const seed = numberFromEnvironment("FOUNDATION_TEST_SEED", 20240229);
    std::cout << "Seed: " << seed << "\n";
    std::map<std::string, int> verdicts;
    for (int number = 0; number < numHierarchies; ++number) {
        SCOPED_TRACE("Hierarchy " + std::to_string(number) + " of seed " + std::to_string(seed));
        Dice dice(seed * numHierarchies + static_cast<std::uint64_t>(number));
        auto const hierarchy = makeHierarchy(dice);

        auto const results = validate(hierarchy);
        auto const outcome = Reference(hierarchy).answer();

        ASSERT_EQ(results.has_value(), outcome.has_value());
        if (outcome) {
            expectSame(*results, *outcome);
            ++verdicts["code " + std::to_string(outcome->result == 1 ? 0 : outcome->code)];
        } else {
            ++verdicts["required CRL missing"];
        }
    }
    for (auto const& [verdict, count] : verdicts) {
        std::cout << verdict << ": " << count << "\n";
    }
    // The hierarchies are worth nothing if they are all alike.
    EXPECT_GE(verdicts.size(), 10U);
    EXPECT_GE(verdicts["code 0"], numHierarchies / 10);
}
