#include "certificate/X509CertificateImpl.hpp"

#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;
using DownloadCRL = CertificateValidationOptions::DownloadCRL;

/// An exchange has one minute for all of it, however often bytes come in.
class CRLDeadline : public LeavesNoTrace
{
protected:
    struct Outcome
    {
        /// The body fetched; for a download "added", "not added" or the text of the exception.
        std::string result;
        Clock::duration duration{};
    };

    CertificateAndKey const root = makeRoot("root");
    TrustStore const trustStore = storeOf({root});

    static std::future<Outcome> start(std::function<std::string()> operation)
    {
        return std::async(std::launch::async, [operation = std::move(operation)] {
            auto const begin = Clock::now();
            auto result = operation();
            return Outcome{std::move(result), Clock::now() - begin};
        });
    }

    static std::future<Outcome> startFetch(std::string const& host)
    {
        return start([host] {
            return X509CertificateImpl().fetchHttpResponse(host, "/root.crl", DownloadCRL::Required);
        });
    }

    std::future<Outcome> startDownload(std::string const& host) const
    {
        auto const leaf = makeLeaf(root, "leaf", [&](CertificateSpec& spec) {
            spec.setDistributionPoints({"http://" + host + "/root.crl"});
        });
        return start([leaf, issuer = root.certificate] {
            auto store = makeX509_STORE(X509_STORE_new());
            auto issuerKey = makeEVP_PKEY(X509_get_pubkey(issuer.get()));
            X509CertificateImpl::CRLs crls;
            try {
                return std::string(
                    X509CertificateImpl().downloadCRL(
                        X509Certificate(leaf.der()), store, crls, DownloadCRL::Required, issuerKey)
                        ? "added"
                        : "not added");
            } catch (X509CertificateException const& failure) {
                return std::string(failure.what());
            }
        });
    }

    /// Validates a leaf whose CRL is on the host. Returns "verdict" and its number, or the text of the
    /// exception.
    std::future<Outcome> startValidation(std::string const& host, DownloadCRL mode) const
    {
        auto const leaf = makeLeaf(root, "leaf", [&](CertificateSpec& spec) {
            spec.setDistributionPoints({"http://" + host + "/root.crl"});
            spec.serialNumber = "77";
        });
        return start([this, leaf, mode] {
            try {
                auto const results = load(leaf).validateCertificate(
                    X509CertificateChain(), optionsWith({}, Options::CheckCRL::WholeChain, mode), trustStore);
                return "verdict " + std::to_string(static_cast<int>(results.getCertificateChainStatus()));
            } catch (X509CertificateException const& failure) {
                return std::string(failure.what());
            }
        });
    }

    /// The piece again and again, for longer than an exchange lasts.
    static Script endlessly(std::string const& head, std::string const& piece)
    {
        Script script{readRequest(), send(head)};
        for (int time = 0; time < 800; ++time) {
            script.push_back(send(piece));
            script.push_back(wait(100ms));
        }
        return script;
    }

    static Outcome outcomeAfterAMinute(std::future<Outcome>& pending)
    {
        auto outcome = pending.get();
        EXPECT_GE(outcome.duration, 59s);
        EXPECT_LT(outcome.duration, 75s);
        return outcome;
    }
};

} // namespace

TEST_F(CRLDeadline, EndsEveryExchangeAfterOneMinute)
{
    std::string const head = "HTTP/1.0 200 OK\r\n\r\n";
    auto const der = toDer(makeCrl(root, {{"77"}}));
    std::string const crl(der.begin(), der.end());
    std::string const endless(1000, '.');
    ScriptedServer const silent("127.0.0.2", 80, {{waitForPeer()}});
    ScriptedServer const slowHead("127.0.0.3", 80, {{readRequest(), sendByteByByte(head + endless, 5s)}});
    ScriptedServer const endlessHeaders(
        "127.0.0.4", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\nX: "), sendByteByByte(endless, 500ms)}});
    ScriptedServer const slowBody(
        "127.0.0.5", 80, {{readRequest(), send(head + "body"), sendByteByByte(endless, 500ms)}});
    ScriptedServer const keptOpen("127.0.0.6", 80, {{readRequest(), send(head + crl), waitForPeer()}});
    ScriptedServer const cutShort(
        "127.0.0.7", 80, {{readRequest(), send(head + crl.substr(0, crl.size() / 2)), waitForPeer()}});
    ScriptedServer const silentToDownload("127.0.0.8", 80, {{waitForPeer()}});

    ScriptedServer const manyHeaders(
        "127.0.0.9", 80, {endlessly("HTTP/1.0 200 OK\r\n", "X-Header: " + endless + "\r\n")});
    ScriptedServer const hugeBody("127.0.0.10", 80, {endlessly(head + crl, std::string(1 << 14, '\0'))});
    ScriptedServer const noise("127.0.0.11", 80, {endlessly(head, std::string(1 << 14, 'x'))});
    ScriptedServer const drip("127.0.0.12", 80, {{readRequest(), send(head), sendByteByByte(crl, 1s)}});

    auto fromSilent = startFetch("127.0.0.2");
    auto fromSlowHead = startFetch("127.0.0.3");
    auto fromEndlessHeaders = startFetch("127.0.0.4");
    auto fromSlowBody = startFetch("127.0.0.5");
    auto fromKeptOpen = startDownload("127.0.0.6");
    auto fromCutShort = startDownload("127.0.0.7");
    auto fromSilentToDownload = startDownload("127.0.0.8");

    auto fromManyHeaders = startValidation("127.0.0.9", DownloadCRL::Required);
    auto fromManyHeadersIfPossible = startValidation("127.0.0.9", DownloadCRL::BestEffort);
    auto fromHugeBody = startValidation("127.0.0.10", DownloadCRL::Required);
    auto fromNoise = startValidation("127.0.0.11", DownloadCRL::Required);
    auto fromNoiseIfPossible = startValidation("127.0.0.11", DownloadCRL::BestEffort);
    auto fromDrip = startValidation("127.0.0.12", DownloadCRL::Required);

    EXPECT_EQ(outcomeAfterAMinute(fromSilent).result, "");
    EXPECT_EQ(outcomeAfterAMinute(fromSlowHead).result, "");
    EXPECT_EQ(outcomeAfterAMinute(fromEndlessHeaders).result, "");

    // The part of the body that arrived counts as the whole body.
    auto const body = outcomeAfterAMinute(fromSlowBody).result;
    EXPECT_GT(body.size(), 4u + 20u);
    EXPECT_LT(body.size(), 4u + 130u);
    EXPECT_EQ(body, "body" + std::string(body.size() - 4, '.'));

    EXPECT_EQ(outcomeAfterAMinute(fromKeptOpen).result, "added");
    EXPECT_EQ(
        outcomeAfterAMinute(fromCutShort).result,
        "CRL Download Error: Invalid Certificate Revocation List\n");
    EXPECT_EQ(
        outcomeAfterAMinute(fromSilentToDownload).result,
        "CRL Download Error: Unable to get Certificate Revocation List HTTP data. "
        "CRL Download Error: CRL HTTP data is empty\n\n");

    EXPECT_EQ(
        outcomeAfterAMinute(fromManyHeaders).result,
        "CRL Download Error: Unable to get Certificate Revocation List HTTP data. "
        "CRL Download Error: CRL HTTP data is empty\n\n");
    EXPECT_EQ(outcomeAfterAMinute(fromManyHeadersIfPossible).result, "verdict 0");
    // The CRL is at the start of the body. The bytes after it do not matter.
    EXPECT_EQ(outcomeAfterAMinute(fromHugeBody).result, "verdict 4");
    EXPECT_EQ(
        outcomeAfterAMinute(fromNoise).result, "CRL Download Error: Invalid Certificate Revocation List\n");
    EXPECT_EQ(outcomeAfterAMinute(fromNoiseIfPossible).result, "verdict 0");
    EXPECT_EQ(
        outcomeAfterAMinute(fromDrip).result, "CRL Download Error: Invalid Certificate Revocation List\n");
}
