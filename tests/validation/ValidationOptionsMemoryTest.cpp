#include "support/allocation/MayLeak.hpp"
#include "support/allocation/Shortage.hpp"
#include "support/assertions/Failures.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Rendering.hpp"
#include "support/pki/Revocable.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// Validates certificates under many sets of options while memory runs out. A shortage may end in an exception
// or in a stricter verdict. It never makes a certificate valid that is not. With BestEffort a shortage may
// lose a CRL: then the verdict is the one without CRLs.
//
// The sets cover every pair of option values. If the variable FOUNDATION_TEST_ALL_OPTIONS is set, all sets
// run.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

// The sets of options

/// Each option's value as a number.
enum Option : std::size_t
{
    SelfSigned,
    Expired,
    Revoked,
    Check,
    Download,
    Fallback
};

using OptionSet = std::array<int, 6>;

constexpr OptionSet numbersOfValues{2, 2, 2, 3, 3, 2};

/// Two options with their values.
using ValuePair = std::tuple<std::size_t, int, std::size_t, int>;

std::vector<OptionSet> allOptionSets()
{
    std::vector<OptionSet> sets{{}};
    for (std::size_t option = 0; option < numbersOfValues.size(); ++option) {
        std::vector<OptionSet> longer;
        for (auto const& set : sets) {
            for (int value = 0; value < numbersOfValues[option]; ++value) {
                longer.push_back(set);
                longer.back()[option] = value;
            }
        }
        sets = std::move(longer);
    }
    return sets;
}

std::set<ValuePair> pairsIn(OptionSet const& set)
{
    std::set<ValuePair> pairs;
    for (std::size_t left = 0; left < set.size(); ++left) {
        for (auto right = left + 1; right < set.size(); ++right) {
            pairs.insert({left, set[left], right, set[right]});
        }
    }
    return pairs;
}

/// Adds the set with the most missing pairs until no pair is missing.
std::vector<OptionSet> pairwiseOptionSets()
{
    auto const all = allOptionSets();
    std::set<ValuePair> missing;
    for (auto const& set : all) {
        missing.merge(pairsIn(set));
    }
    auto const numMissingIn = [&](OptionSet const& set) {
        auto const pairs = pairsIn(set);
        return std::count_if(
            pairs.begin(), pairs.end(), [&](ValuePair const& pair) { return missing.count(pair) != 0; });
    };
    std::vector<OptionSet> chosen;
    while (!missing.empty()) {
        chosen.push_back(*std::max_element(all.begin(), all.end(), [&](auto const& left, auto const& right) {
            return numMissingIn(left) < numMissingIn(right);
        }));
        for (auto const& pair : pairsIn(chosen.back())) {
            missing.erase(pair);
        }
    }
    return chosen;
}

std::vector<OptionSet> optionSets()
{
    return std::getenv("FOUNDATION_TEST_ALL_OPTIONS") == nullptr ? pairwiseOptionSets() : allOptionSets();
}

// The certificates

/// A certificate and the input of its validation.
struct Subject
{
    std::string name;
    CertificateAndKey leaf;
};

/// root -> ca -> leaf. A server has the CRLs of both issuers; that of the ca revokes one of the leaves.
class Pki
{
public:
    Pki()
    {
        for (auto const& [name, mutation] : mutations()) {
            subjects.push_back({name, leaf(revocable.ca, name, mutation)});
        }
        subjects.push_back({"UnknownRoot", leaf(makeRoot("unknown"), "unknown", {})});
        subjects.push_back({"SelfSigned", makeSelfSignedLeaf("self-signed")});
    }

    CertificateAndKey const& operator[](std::string const& name) const
    {
        auto const found = std::find_if(
            subjects.begin(), subjects.end(), [&](Subject const& subject) { return subject.name == name; });
        return found->leaf;
    }

    Revocable revocable;
    std::vector<Subject> subjects;

private:
    static std::vector<std::pair<std::string, Mutation>> mutations()
    {
        return {
            {"Sound", {}},
            {"Revoked", {}},
            {"Expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); }},
            {"BadSignature", [](CertificateSpec& spec) { spec.damagedSignature = true; }},
        };
    }

    static CertificateAndKey
    leaf(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutation)
    {
        return makeLeaf(issuer, name, [&](CertificateSpec& spec) {
            spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
            if (mutation) {
                mutation(spec);
            }
        });
    }
};

Pki const& pki()
{
    static Pki const made;
    return made;
}

void serveCrls()
{
    auto const& revocable = pki().revocable;
    static HttpFileServer const server(
        "127.0.0.1", filesOf(revocable.leafCrl({revoke(pki()["Revoked"])}), revocable.caCrl()));
}

Options optionsOf(OptionSet const& set, DownloadCRL download)
{
    Tolerances tolerances;
    tolerances.selfSigned = set[SelfSigned] != 0;
    tolerances.expired = set[Expired] != 0;
    tolerances.revoked = set[Revoked] != 0;
    auto const fallback =
        set[Fallback] == 0 ? nullptr : std::make_shared<TrustStore const>(storeOf({pki().revocable.root}));
    return optionsWith(tolerances, static_cast<CheckCRL>(set[Check]), download, fallback);
}

/// What the sweep calls again and again.
struct Validation
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    Options options;

    CertificateValidationResults run() const { return leaf.validateCertificate(chain, options, store); }
};

Validation validationOf(std::string const& subject, OptionSet const& set, DownloadCRL download)
{
    // With a fallback the first store does not lead to the root, so that both stores are used.
    auto const anchor = set[Fallback] == 0 ? pki().revocable.root : makeRoot("other root");
    return {load(pki()[subject]), chainOf({pki().revocable.ca}), storeOf({anchor}), optionsOf(set, download)};
}

Failures unfinished()
{
    return validationUnfinished() +
           Failures{
               failure<std::bad_alloc>(std::bad_alloc().what()),
               failure<TrustStoreException>("Failed to add CRL to store"),
               failureBeginning<X509CertificateException>("CRL Download Error: "),
               failureBeginning<X509CertificateException>("CRL Verification Error: "),
               failure<X509CertificateException>("Internal error: Unable to get serial number."),
               failure<X509CertificateException>("Internal error: Unable to get serial number from BN."),
               failure<X509CertificateException>("Error: printing the ASN1 time failed."),
               failure<X509CertificateException>("Invalid time format used in the certificate."),
           };
}

// The sweep

/// The verdict with all its details, or class and text of the exception.
struct Outcome
{
    bool isVerdict = false;
    bool isValid = false;
    std::string text{};
    bool isListedFailure = false;
};

Outcome outcomeOf(CertificateValidationResults const& results)
{
    return {true, results.getCertificateChainStatus() == Status::Valid, rendered(results)};
}

template <class Prepare>
Outcome outcomeOf(Validation const& validation, Prepare const& prepare)
{
    static auto const listed = unfinished();
    try {
        auto const results = [&] {
            [[maybe_unused]] auto const shortage = prepare();
            return validation.run();
        }();
        return outcomeOf(results);
    } catch (std::exception const& failure) {
        bool const isListed = std::any_of(listed.begin(), listed.end(), [&](Failure const& candidate) {
            return candidate.fits(typeid(failure), failure.what());
        });
        return {false, false, describe(typeid(failure), failure.what()), isListed};
    }
}

Outcome outcomeAtRest(Validation const& validation)
{
    return outcomeOf(validation, [] { return 0; });
}

using Parameter = std::tuple<std::string, OptionSet, Memory>;

class ValidationOutOfMemory : public testing::TestWithParam<Parameter>
{
public:
    static std::string nameOf(testing::TestParamInfo<Parameter> const& info)
    {
        auto const& [subject, set, memory] = info.param;
        std::string name = subject + "_";
        for (int const value : set) {
            name += std::to_string(value);
        }
        return name + (memory == Memory::OpenSSL ? "_OpenSSL" : "_Heap");
    }

protected:
    ValidationOutOfMemory() : temporaryDirectory("TMPDIR", folder.path().string()) { serveCrls(); }

    /// Few runs for each number of refusals keep the whole suite short. Other numbers hit other allocations.
    static constexpr std::size_t runsPerNumber = 12;

    void expectAcceptable(Outcome const& outcome) const
    {
        if (outcome.isVerdict) {
            bool const isWithoutCrls = isBestEffort && outcome.text == withoutCrls.text;
            EXPECT_TRUE(!outcome.isValid || outcome.text == atRest.text || isWithoutCrls) << outcome.text;
        } else {
            EXPECT_TRUE(outcome.isListedFailure || outcome.text == atRest.text) << outcome.text;
        }
    }

    TemporaryFolder folder;
    ScopedVariable temporaryDirectory;
    bool isBestEffort = false;
    Outcome atRest;
    Outcome withoutCrls;
};

std::vector<std::string> subjects()
{
    return {"Sound", "Revoked", "Expired", "BadSignature", "UnknownRoot", "SelfSigned"};
}

} // namespace

TEST_P(ValidationOutOfMemory, MakesNoCertificateValid)
{
    MayLeak const openSSLLeaksCertificates;
    auto const& [subject, set, memory] = GetParam();
    auto const download = static_cast<DownloadCRL>(set[Download]);
    auto const validation = validationOf(subject, set, download);
    isBestEffort = download == DownloadCRL::BestEffort;
    CleanErrorQueue const clean;
    withoutCrls = outcomeAtRest(validationOf(subject, set, DownloadCRL::None));
    atRest = outcomeOf(validation, [memory = memory] { return Shortage(memory, unlimited); });
    auto const numAllocations = Shortage::numGranted();

    for (std::size_t const numRefused : {1U, 2U, 4U, 8U, 16U}) {
        auto const stride = std::max(numAllocations / runsPerNumber, std::size_t{1}) + numRefused - 1;
        for (auto first = 3 * numRefused % stride; first < numAllocations; first += stride) {
            SCOPED_TRACE(
                "allocation " + std::to_string(first) + " refused, " + std::to_string(numRefused) +
                " in all");
            expectAcceptable(
                outcomeOf(validation, [&, memory = memory] { return Shortage(memory, first, numRefused); }));
            CleanErrorQueue const cleanAfterwards;
        }
    }

    EXPECT_EQ(outcomeAtRest(validation).text, atRest.text);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

INSTANTIATE_TEST_SUITE_P(
    Options, ValidationOutOfMemory,
    testing::Combine(
        testing::ValuesIn(subjects()), testing::ValuesIn(optionSets()),
        testing::Values(Memory::OpenSSL, Memory::Heap)),
    ValidationOutOfMemory::nameOf);
