#include "support/Dice.hpp"
#include "support/Text.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/differential/RandomPki.hpp"
#include "support/differential/TwinStores.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/openssl/ReferenceValidator.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>

#include <openssl/err.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Trust stores with random histories: filled, copied, handed out, changed behind the library's back. Each has
// a twin, a bare OpenSSL store with the same history. Every validation must end as the reference validator's
// does: verdict, text, root and error queue.
//
// FOUNDATION_TEST_SEED sets the seed, and FOUNDATION_TEST_CASES the number of validations.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

std::uint64_t chosenSeed()
{
    static auto const seed = numberFromEnvironment("FOUNDATION_TEST_SEED", 20240229);
    return seed;
}

constexpr int numCasesPerHistory = 80;

std::uint64_t chosenNumHistories()
{
    static auto const numCases = numberFromEnvironment("FOUNDATION_TEST_CASES", 2400);
    return numCases / numCasesPerHistory;
}

// The verdicts

ReferenceVerdict failureOf(std::exception const& failure)
{
    ReferenceVerdict verdict;
    std::string const text = failure.what();
    verdict.failure = beginsWith(text, "CRL ") ? "required CRL" : text;
    return verdict;
}

ReferenceVerdict verdictOf(CertificateValidationResults const& results)
{
    ReferenceVerdict verdict;
    verdict.status = static_cast<int>(results.getCertificateChainStatus());
    verdict.text = results.getValidationErrorString();
    if (auto const root = results.getRootCertificate()) {
        verdict.root = root->getAsBytes();
    }
    return verdict;
}

template <class Work>
ReferenceVerdict outcomeOf(Work const& work)
{
    try {
        return work();
    } catch (CertificateException const& failure) {
        return failureOf(failure);
    } catch (TrustStoreException const& failure) {
        return failureOf(failure);
    }
}

struct QueuedError
{
    unsigned long code;
    std::string data;

    bool operator==(QueuedError const& other) const { return code == other.code && data == other.data; }
};

std::ostream& operator<<(std::ostream& out, QueuedError const& error)
{
    char const* const reason = ERR_reason_error_string(error.code);
    return out << ERR_GET_LIB(error.code) << ':' << (reason == nullptr ? "" : reason) << ':' << error.data;
}

std::vector<QueuedError> drainErrorsWithData()
{
    std::vector<QueuedError> errors;
    char const* data = nullptr;
    int flags = 0;
    while (auto const code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags)) {
        errors.push_back({code, (flags & ERR_TXT_STRING) != 0 ? data : ""});
    }
    return errors;
}

/// The roots that take the place of an empty store: those in a file of this program.
StoreHandle const& systemRoots()
{
    static auto const store = [] {
        auto made = own(X509_STORE_new());
#ifndef _WIN32
        std::string bundle;
        for (auto const* name : {"alpha", "system"}) {
            auto const root = makeRoot(name, [&](CertificateSpec& spec) { spec.key = ed25519Key(name); });
            require(X509_STORE_add_cert(made.get(), duplicateOf(root.certificate).get()));
            bundle += root.pem();
        }
        static TemporaryFolder const folder;
        static ScopedVariable const file("SSL_CERT_FILE", folder.write("roots.pem", bundle).string());
        static ScopedVariable const noFolder("SSL_CERT_DIR", folder.path().string());
#endif
        return made;
    }();
    return store;
}

/// What is to be validated, apart from the store.
struct Subject
{
    X509Certificate leaf;
    X509CertificateChain chain;
    /// The same for the reference.
    ReferenceValidator reference;
};

/// Counts the outcomes, which are worth nothing if they are all alike.
using Outcomes = std::map<std::string, int>;

std::string keyOf(ReferenceVerdict const& verdict)
{
    if (verdict.failure) {
        return *verdict.failure;
    }
    auto const begin = verdict.text.find("Error code ");
    auto const code =
        begin == std::string::npos ? "" : verdict.text.substr(begin, verdict.text.find("  at") - begin);
    return "status " + std::to_string(verdict.status) + " " + code;
}

void expectVariety(Outcomes const& outcomes, std::size_t atLeast)
{
    for (auto const& [outcome, count] : outcomes) {
        std::cout << count << " times " << outcome << '\n';
    }
    EXPECT_GE(outcomes.size(), atLeast);
}

/// Random stores, and validations against them.
class History
{
public:
    History(std::uint64_t seed, Outcomes& theOutcomes)
        : dice(seed),
          pki(dice),
          stores(dice, pki),
          outcomes(theOutcomes)
    {}

    /// Validates the number of times, with events between.
    void validateBetweenEvents(int numValidations)
    {
        while (numValidations > 0 && !testing::Test::HasFailure()) {
            for (int left = 1 + dice.below(4); left > 0; --left) {
                stores.happen();
            }
            for (int left = 1 + dice.below(3); left > 0; --left) {
                judge(stores.any());
                --numValidations;
            }
            // A change of one store must not have reached another one.
            if (dice.oneIn(4)) {
                for (auto& each : stores.all()) {
                    judge(each);
                    --numValidations;
                }
            }
            if (dice.oneIn(12)) {
                stores.renew();
            }
        }
    }

    /// Validates in threads while one of them changes the store. Each verdict must be that before or that
    /// after the change, and the latter after the change.
    void validateDuringChange()
    {
        for (int left = dice.below(12); left > 0; --left) {
            stores.happen();
        }
        auto& chosen = stores.all().front();
        if (!chosen.canBeCopied()) {
            return;
        }
        std::vector<Subject> subjects;
        for (int left = 4; left > 0; --left) {
            subjects.push_back(anySubject());
            subjects.back().reference.tolerances = anyTolerances();
        }
        auto const before = verdictsOn(subjects, chosen.reference);
        auto const change = anyChange(chosen, subjects, before);
        auto const after = verdictsOn(subjects, chosen.reference);
        for (std::size_t index = 0; index < subjects.size(); ++index) {
            ++outcomes[before[index] == after[index] ? "same after the change" : "other after the change"];
        }
        bool const handsOut = dice.oneIn(2);
        std::atomic<bool> isChanged{false};
        inParallel(4, [&](int thread) {
            if (thread == 0) {
                if (handsOut) {
                    getOpenSSLStore(*chosen.store);
                }
                change();
                isChanged = true;
                return;
            }
            for (bool wasChanged = false; !wasChanged;) {
                wasChanged = isChanged;
                for (std::size_t index = 0; index < subjects.size(); ++index) {
                    auto const verdict = validate(subjects[index], chosen);
                    EXPECT_TRUE(verdict == after[index] || (!wasChanged && verdict == before[index]))
                        << verdict << "\nbefore: " << before[index] << "\nafter: " << after[index] << '\n'
                        << describe(chosen, subjects[index]);
                }
            }
        });
    }

private:
    Tolerances anyTolerances() { return {dice.oneIn(3), dice.oneIn(3), dice.oneIn(4)}; }

    Subject anySubject()
    {
        auto const& leaf = pki.anyLoaded();
        Subject subject{pki.handleOf(leaf), X509CertificateChain(), {}};
        subject.reference.leaf = leaf.made.certificate;
        subject.reference.systemRoots = systemRoots();
        std::vector<Member const*> members;
        if (dice.oneIn(2)) {
            members = pki.issuersOf(leaf.made.certificate);
        }
        for (int left = dice.below(4); left > 0; --left) {
            members.push_back(&pki.anyLoaded());
        }
        if (dice.oneIn(3)) {
            members.insert(members.begin(), &leaf);
        }
        if (dice.oneIn(4)) {
            dice.shuffle(members);
        }
        for (auto const* const member : members) {
            subject.chain.addCertificate(pki.handleOf(*member));
            subject.reference.chain.push_back(member->made.certificate);
        }
        return subject;
    }

    /// Replaces the chain by the issuers, most of which have a CRL.
    void completeChain(Subject& subject)
    {
        auto const issuers = pki.issuersOf(subject.reference.leaf);
        if (issuers.empty() || dice.oneIn(4)) {
            return;
        }
        subject.chain = X509CertificateChain();
        subject.reference.chain.clear();
        for (auto const* const issuer : issuers) {
            subject.chain.addCertificate(pki.handleOf(*issuer));
            subject.reference.chain.push_back(issuer->made.certificate);
        }
    }

    void judge(Twins const& chosen)
    {
        auto subject = anySubject();
        subject.reference.store = chosen.reference;
        if (dice.oneIn(6)) {
            judgeSignedData(subject, chosen);
        } else if (dice.oneIn(6)) {
            judgeRoot(subject, chosen);
        } else {
            judgeValidation(subject, chosen);
        }
    }

    void judgeValidation(Subject& subject, Twins const& chosen)
    {
        auto& reference = subject.reference;
        reference.tolerances = anyTolerances();
        std::optional<HttpFileServer> server;
        auto check = CheckCRL::None;
        auto download = DownloadCRL::None;
        if (dice.oneIn(6)) {
            completeChain(subject);
            server.emplace("127.0.0.1", pki.served());
            check = static_cast<CheckCRL>(dice.below(3));
            download = dice.oneIn(2) ? DownloadCRL::BestEffort : DownloadCRL::Required;
            reference.crlScope = static_cast<CrlScope>(check);
            reference.crlDownload = static_cast<CrlDownload>(download);
            reference.download = [&](X509Handle const& certificate) { return pki.crlFor(certificate); };
        }
        std::shared_ptr<TrustStore const> fallback;
        if (dice.oneIn(4)) {
            auto const& other = stores.any();
            fallback = std::shared_ptr<TrustStore const>(other.store.get(), [](TrustStore const*) {});
            reference.fallback = other.reference;
        }
        auto const options = optionsWith(reference.tolerances, check, download, fallback);
        compare(
            chosen, subject, !server.has_value(),
            [&] {
                auto const results = subject.leaf.validateCertificate(subject.chain, options, *chosen.store);
                if (auto const root = results.getRootCertificate()) {
                    pki.keep(*root);
                }
                return verdictOf(results);
            },
            [&] { return reference.validate(); });
    }

    void judgeRoot(Subject const& subject, Twins const& chosen)
    {
        constexpr bool comparesQueues = true;
        compare(
            chosen, subject, comparesQueues,
            [&] {
                ReferenceVerdict verdict;
                auto const root = subject.leaf.getRootCACertificate(subject.chain, *chosen.store);
                verdict.root = root.getAsBytes();
                pki.keep(root);
                return verdict;
            },
            [&] { return subject.reference.findRoot(); });
    }

    void judgeSignedData(Subject const& subject, Twins const& chosen)
    {
        auto const& signer = pki.anyLoaded();
        if (!chosen.canBeCopied() || EVP_PKEY_get_base_id(signer.made.key.get()) != EVP_PKEY_EC) {
            return;
        }
        auto signedData = makeSignedData("content", signer.made);
        if (dice.oneIn(8)) {
            signedData = withDamagedSignature(signedData);
        }
        PKCS7Certificate const data(toDer(signedData));
        ERR_clear_error();
        auto const results = data.verifySignature(subject.chain, *chosen.store, {});
        ERR_clear_error();
        ReferenceVerification const verification{
            results.getSignatureVerificationStatus(), static_cast<int>(results.getCertificateChainStatus()),
            results.getValidationErrorString()};
        auto const expected = subject.reference.verify(parsePkcs7(toDer(signedData)));
        ERR_clear_error();
        EXPECT_EQ(verification, expected) << "signer: " << subjectOf(signer.made.certificate.get()) << '\n'
                                          << describe(chosen, subject);
        ++outcomes
            ["signed data: " + std::to_string(expected.signature) + " " + std::to_string(expected.status)];
    }

    template <class Library, class Reference>
    void compare(
        Twins const& chosen, Subject const& subject, bool comparesQueues, Library const& library,
        Reference const& reference)
    {
        int const numForeign = dice.oneIn(4) ? 1 + dice.below(2) : 0;
        auto const prepareQueue = [&] {
            ERR_clear_error();
            for (int left = numForeign; left > 0; --left) {
                queueForeignError();
            }
        };
        prepareQueue();
        auto const verdict = outcomeOf(library);
        auto const queue = drainErrorsWithData();
        prepareQueue();
        auto const expected = outcomeOf(reference);
        auto const expectedQueue = drainErrorsWithData();
        EXPECT_EQ(verdict, expected) << describe(chosen, subject);
        if (comparesQueues) {
            EXPECT_EQ(queue, expectedQueue) << expected << '\n' << describe(chosen, subject);
        }
        ++outcomes[keyOf(expected)];
    }

    static ReferenceVerdict validate(Subject const& subject, Twins const& chosen)
    {
        auto const leaf = subject.leaf;
        return outcomeOf([&] {
            return verdictOf(leaf.validateCertificate(
                subject.chain, optionsWith(subject.reference.tolerances), *chosen.store));
        });
    }

    static std::vector<ReferenceVerdict>
    verdictsOn(std::vector<Subject> const& subjects, StoreHandle const& store)
    {
        ErrorQueueMark const mark;
        std::vector<ReferenceVerdict> verdicts;
        for (auto const& subject : subjects) {
            auto reference = subject.reference;
            reference.store = store;
            verdicts.push_back(reference.validate());
        }
        return verdicts;
    }

    /// Changes the reference, and returns the same change of the store. Prefers one that changes a verdict.
    std::function<void()> anyChange(
        Twins& chosen, std::vector<Subject> const& subjects, std::vector<ReferenceVerdict> const& before)
    {
        if (dice.oneIn(4)) {
            chosen.filterReference();
            return [&] { chosen.filterStore(); };
        }
        constexpr int maxAttempts = 10;
        Member const* member = nullptr;
        for (int attempt = 0; attempt < maxAttempts; ++attempt) {
            member = &pki.anyLoaded();
            Twins changed;
            changed.reference = duplicateOf(chosen.reference);
            changed.addToReference(*member);
            if (verdictsOn(subjects, changed.reference) != before) {
                break;
            }
        }
        chosen.addToReference(*member);
        return [&chosen, member] { chosen.store->addCertificate(*member->loaded); };
    }

    static std::string describe(Twins const& chosen, Subject const& subject)
    {
        auto text = "leaf:\n" + toPem(subject.reference.leaf) + "chain:\n";
        for (auto const& member : subject.reference.chain) {
            text += toPem(member);
        }
        return text + chosen.describe();
    }

    Dice dice;
    RandomPki pki;
    TwinStores stores;
    Outcomes& outcomes;
};

} // namespace

TEST(StoreHistoryDifferential, EveryValidationEqualsReference)
{
    std::cout << "Seed: " << chosenSeed() << '\n';
    Outcomes outcomes;
    for (std::uint64_t number = 0; number < chosenNumHistories() && !HasFailure(); ++number) {
        SCOPED_TRACE("History " + std::to_string(number) + " of seed " + std::to_string(chosenSeed()));
        History(chosenSeed() + number, outcomes).validateBetweenEvents(numCasesPerHistory);
    }
    expectVariety(outcomes, 15);
}

TEST(StoreHistoryDifferential, ValidationDuringChangeEqualsReferenceBeforeOrAfter)
{
    std::cout << "Seed: " << chosenSeed() << '\n';
    constexpr std::uint64_t distance = 1000000;
    Outcomes outcomes;
    for (std::uint64_t number = 0; number < chosenNumHistories() && !HasFailure(); ++number) {
        SCOPED_TRACE("History " + std::to_string(number) + " of seed " + std::to_string(chosenSeed()));
        History(chosenSeed() + distance + number, outcomes).validateDuringChange();
    }
    expectVariety(outcomes, 2);
}
