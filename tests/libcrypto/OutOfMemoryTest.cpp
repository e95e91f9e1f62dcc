#include "libcrypto/OutOfMemory.hpp"

#include "certificate/X509CertificateImpl.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Codes = std::vector<unsigned long>;

/// OpenSSL keeps that many entries and drops the oldest of more.
constexpr int queueCapacity = 15;

constexpr int attemptReason = 108;  // no start line
constexpr int earlierReason = 1000; // and the numbers that follow, so that each entry is another one

void queueEarlierErrors(int count)
{
    for (int index = 0; index < count; ++index) {
        ERR_raise(ERR_LIB_USER, earlierReason + index);
    }
}

/// What the queue holds after the work, which starts with that many entries of the caller.
Codes queueAfter(int earlierErrors, std::function<void()> const& work)
{
    CleanErrorQueue const clean;
    queueEarlierErrors(earlierErrors);
    work();
    return drainErrorQueue();
}

/// As above, but the caller has set a mark before the work, and goes back to it.
Codes queueAtMarkAfter(int earlierErrors, std::function<void()> const& work)
{
    CleanErrorQueue const clean;
    queueEarlierErrors(earlierErrors);
    ERR_set_mark();
    work();
    ERR_pop_to_mark();
    return drainErrorQueue();
}

Codes earlierCodes(int count)
{
    return queueAfter(count, [] {});
}

struct AttemptRow
{
    int earlierErrors;
    int errorsOfAttempt;
};

std::vector<AttemptRow> attempts()
{
    std::vector<AttemptRow> rows;
    for (int const earlierErrors : {0, 1, 2, 4, 12, queueCapacity}) {
        for (int const errorsOfAttempt : {0, 1, 7, queueCapacity - 1, queueCapacity, 20}) {
            rows.push_back({earlierErrors, errorsOfAttempt});
        }
    }
    return rows;
}

/// A step that queues errors; it fails the given number of times and succeeds afterwards.
class Step
{
public:
    Step(int errors, int failures) : errorCount(errors), failuresLeft(failures) {}

    bool operator()()
    {
        for (int count = 0; count < errorCount; ++count) {
            ERR_raise(ERR_LIB_PEM, attemptReason);
        }
        return failuresLeft-- <= 0;
    }

private:
    int errorCount;
    int failuresLeft;
};

Bytes const wrongTag = {0x05, 0x01, 0x00};

/// Certificate policies: their innermost value is no number of a notice.
Bytes damagedPolicies()
{
    Bytes const policyId = {0x06, 0x03, 0x2A, 0x03, 0x04};
    Bytes const userNoticeId = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x02, 0x02};
    Bytes const organization = {0x0C, 0x01, 0x41};
    constexpr int sequence = 0x30;
    auto const noticeReference = derElement(sequence, joined({organization, derElement(sequence, wrongTag)}));
    auto const qualifier =
        derElement(sequence, joined({userNoticeId, derElement(sequence, noticeReference)}));
    auto const policy = derElement(sequence, joined({policyId, derElement(sequence, qualifier)}));
    return derElement(sequence, policy);
}

/// CRL distribution points: the innermost value is no general name.
Bytes damagedDistributionPoints()
{
    constexpr int sequence = 0x30;
    constexpr int firstChoice = 0xA0;
    auto const name = derElement(firstChoice, derElement(firstChoice, derElement(firstChoice, wrongTag)));
    return derElement(sequence, derElement(sequence, name));
}

CertificateAndKey withExtension(std::string const& extension, Bytes const& content)
{
    return makeRoot("root", [&](CertificateSpec& spec) { spec.setRawExtension(extension, content); });
}

/// Numbers of the caller's entries that leave room for the entries of one attempt, but not of two.
constexpr int earlierErrorCounts[] = {2, 4};

/// The number of the caller's entries that fit beside those of one parse. OpenSSL drops the latter itself and
/// queues one in their place, so a second parse has room for one less.
int earlierErrorsBesideOneParse(CertificateAndKey const& made)
{
    auto const decode = [&] {
        EXPECT_EQ(
            X509_get_ext_d2i(made.certificate.get(), NID_crl_distribution_points, nullptr, nullptr), nullptr);
    };
    return queueCapacity - static_cast<int>(queueAfter(0, decode).size());
}

void parseExtensions(CertificateAndKey const& made)
{
    constexpr int noPurpose = -1;
    EXPECT_NE(X509_check_purpose(parseDer(made.der()).get(), noPurpose, 0), 1);
}

} // namespace

TEST(OutOfMemory, QueueHoldsWhatOneAttemptLeaves)
{
    for (AttemptRow const& row : attempts()) {
        SCOPED_TRACE(std::to_string(row.earlierErrors) + " and " + std::to_string(row.errorsOfAttempt));
        auto const oneAttempt = [&] { Step(row.errorsOfAttempt, 1)(); };
        for (int const failures : {0, 1, 2}) {
            SCOPED_TRACE(failures);
            auto const step = [&] {
                Step attempt(row.errorsOfAttempt, failures);
                EXPECT_FALSE(lacksMemoryFor([&] { return attempt(); }));
            };
            EXPECT_EQ(queueAfter(row.earlierErrors, step), queueAfter(row.earlierErrors, oneAttempt));
            EXPECT_EQ(
                queueAtMarkAfter(row.earlierErrors, step), queueAtMarkAfter(row.earlierErrors, oneAttempt));
        }
    }
}

TEST(OutOfMemory, StepThatSucceedsRunsOnce)
{
    int runs = 0;
    EXPECT_FALSE(lacksMemoryFor([&] { return ++runs > 0; }));
    EXPECT_EQ(runs, 1);
}

TEST(OutOfMemory, StepThatFailsRunsTwice)
{
    int runs = 0;
    EXPECT_FALSE(lacksMemoryFor([&] { return ++runs == 0; }));
    EXPECT_EQ(runs, 2);
}

TEST(OutOfMemory, StepThatThrowsLeavesNoMark)
{
    CleanErrorQueue const clean;
    queueForeignError();
    auto const step = []() -> bool { throw std::bad_alloc(); };
    EXPECT_THROW(lacksMemoryFor(step), std::bad_alloc);
    EXPECT_EQ(ERR_pop_to_mark(), 0);
}

// The same rule, seen from certificates whose extensions are damaged at depth. OpenSSL queues an entry for
// each level.

TEST(OutOfMemory, QueryLeavesWhatOneCallOfOpenSSLLeaves)
{
    auto const made = withExtension("certificatePolicies", damagedPolicies());
    X509Certificate const certificate(made.der());
    auto const bareCall = [&] {
        EXPECT_EQ(
            X509_get_ext_d2i(made.certificate.get(), NID_certificate_policies, nullptr, nullptr), nullptr);
    };
    auto const query = [&] { EXPECT_EQ(certificate.getPolicies(), std::vector<std::string>()); };
    for (int const earlier : earlierErrorCounts) {
        SCOPED_TRACE(earlier);
        ASSERT_GT(
            static_cast<std::size_t>(earlier) + 2 * queueAfter(0, bareCall).size(),
            std::size_t(queueCapacity));
        EXPECT_EQ(queueAfter(earlier, query), queueAfter(earlier, bareCall));
        EXPECT_EQ(queueAtMarkAfter(earlier, query), earlierCodes(earlier));
    }
}

TEST(OutOfMemory, LoadKeepsErrorsOfCaller)
{
    auto const made = withExtension("crlDistributionPoints", damagedDistributionPoints());
    int const earlier = earlierErrorsBesideOneParse(made);
    ASSERT_EQ(queueAtMarkAfter(earlier, [&] { parseExtensions(made); }), earlierCodes(earlier));
    auto const load = [&] { EXPECT_FALSE(X509CertificateImpl(parseDer(made.der()).get()).empty()); };
    EXPECT_EQ(queueAfter(earlier, load), earlierCodes(earlier));
    EXPECT_EQ(queueAtMarkAfter(earlier, load), earlierCodes(earlier));
}

TEST(OutOfMemory, FilterOfTrustStoreKeepsErrorsOfCaller)
{
    auto const made = withExtension("crlDistributionPoints", damagedDistributionPoints());
    int const earlier = earlierErrorsBesideOneParse(made);
    ASSERT_EQ(queueAtMarkAfter(earlier, [&] { parseExtensions(made); }), earlierCodes(earlier));
    auto const filter = [&] {
        TrustStoreImpl store;
        store.addDERCertificate(made.der());
        store.removeUnsuitableCertificates(TrustStore::Usage::ServerAuthentication);
        EXPECT_EQ(store.size(), 0U);
    };
    EXPECT_EQ(queueAfter(earlier, filter), earlierCodes(earlier));
    EXPECT_EQ(queueAtMarkAfter(earlier, filter), earlierCodes(earlier));
}
