#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

// For every behaviour of a CRL server, a validation asks once and ends in the documented verdict or failure.
// It leaves no open file and no temporary file.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

constexpr char const notFetchedText[] =
    "CRL Download Error: Unable to get Certificate Revocation List HTTP data. "
    "CRL Download Error: CRL HTTP data is empty\n\n";
constexpr char const invalidText[] = "CRL Download Error: Invalid Certificate Revocation List\n";
constexpr char const signatureText[] =
    "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n";

constexpr char const okHead[] = "HTTP/1.0 200 OK\r\n\r\n";

std::string repeated(std::string const& text, int times)
{
    std::string all;
    all.reserve(text.size() * static_cast<std::size_t>(times));
    for (int time = 0; time < times; ++time) {
        all += text;
    }
    return all;
}

Script answer(std::string text)
{
    return {readRequest(), send(std::move(text))};
}

class HostileServer : public LeavesNoTrace
{
protected:
    Revocable const pki;
    X509Certificate const leaf = load(pki.leaf);
    X509CertificateChain const chain = chainOf({pki.ca});
    TrustStore const trustStore = storeOf({pki.root});
    /// What an honest server would say: the leaf is revoked.
    std::string const crl = asText(toDer(pki.leafCrl({revoke(pki.leaf)})));

    CertificateValidationResults validate(DownloadCRL download) const
    {
        return leaf.validateCertificate(chain, optionsWith({}, CheckCRL::LeafOnly, download), trustStore);
    }

    /// A CRL that is required stops the validation, one that is not is done without; the server is asked
    /// once.
    void expectFailure(Script const& script, std::string const& text) const
    {
        expectNoTrace([&] {
            ScriptedServer const server("127.0.0.1", 80, {script});
            EXPECT_THROWS_EXACTLY(X509CertificateException, text, validate(DownloadCRL::Required));
            EXPECT_EQ(server.numConnections(), 1U);
            EXPECT_EQ(validate(DownloadCRL::BestEffort).getCertificateChainStatus(), Status::Valid);
            EXPECT_EQ(server.numConnections(), 2U);
        });
    }

    void expectRevoked(Script const& script) const
    {
        expectNoTrace([&] {
            ScriptedServer const server("127.0.0.1", 80, {script});
            for (auto const download : {DownloadCRL::Required, DownloadCRL::BestEffort}) {
                EXPECT_EQ(validate(download).getCertificateChainStatus(), Status::Revoked);
            }
            EXPECT_EQ(server.numConnections(), 2U);
        });
    }

    template <typename Work>
    void expectNoTrace(Work const& work) const
    {
        auto const descriptors = openDescriptors();
        work();
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(temporaryFiles().empty());
    }
};

} // namespace

TEST_F(HostileServer, CannotPassMalformedAnswer)
{
    std::string const redirect = "HTTP/1.0 301 Moved\r\nLocation: http://127.0.0.1/leaf.crl\r\n\r\n";
    struct
    {
        char const* name;
        Script script;
    } const rows[] = {
        {"resets before it answers", {readRequest(), reset()}},
        {"resets within the headers", {readRequest(), send("HTTP/1.0 200 OK\r\nX: "), wait(20ms), reset()}},
        {"ten thousand redirects", answer(repeated(redirect, 10000) + okHead + crl)},
        {"a redirect that carries the CRL", answer(redirect + crl)},
        {"another answer before the answer", answer("HTTP/1.0 100 Continue\r\n\r\n"s + okHead + crl)},
        {"a status beyond all numbers", answer("HTTP/1.0 " + std::string(100000, '2') + "\r\n\r\n" + crl)},
        {"a status that is 200 in 32 bits", answer("HTTP/1.0 4294967496 OK\r\n\r\n" + crl)},
        {"a first word without end", answer(std::string(8 << 20, 'H'))},
        {"a status line without end", answer("HTTP/1.0 200 " + std::string(8 << 20, 'O'))},
        {"a header without end", answer("HTTP/1.0 200 OK\r\nX: " + std::string(8 << 20, 'x'))},
        {"headers without end", answer("HTTP/1.0 200 OK\r\n" + repeated("X: 1\r\n", 1 << 20))},
        {"blank space alone", answer(std::string(8 << 20, ' '))},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(row.script, notFetchedText);
    }
}

TEST_F(HostileServer, CannotPassMalformedCrl)
{
    std::string const half = okHead + crl.substr(0, crl.size() / 2);
    struct
    {
        char const* name;
        Script script;
    } const rows[] = {
        {"resets within the body", {readRequest(), send(half), wait(100ms), reset()}},
        {"closes within the body", answer(half)},
        {"a page", answer(okHead + "<html>Log in to use this network</html>"s)},
        {"a certificate", answer(okHead + asText(pki.ca.der()))},
        {"the CRL as PEM", answer(okHead + toPem(pki.leafCrl()))},
        {"the CRL in chunks", answer(okHead + "1a\r\n"s + crl + "\r\n0\r\n\r\n")},
        {"the answer twice", answer(okHead + std::string(okHead) + crl)},
        {"64 MiB of nothing", answer(okHead + std::string(64 << 20, '\0'))},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(row.script, invalidText);
    }
}

TEST_F(HostileServer, CannotPassCrlOfOtherIssuer)
{
    CertificateAndKey const impostor{pki.ca.certificate, p256Key("impostor")};
    struct
    {
        char const* name;
        CrlHandle crl;
    } const rows[] = {
        {"that of the issuer's issuer", pki.caCrl()},
        {"another issuer's CRL", makeCrl(makeRoot("other"))},
        {"one in the issuer's name", makeCrl(impostor)},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(answer(okHead + asText(toDer(row.crl))), signatureText);
    }
}

TEST_F(HostileServer, MayBeSlowOrVerbose)
{
    expectRevoked({readRequest(), sendByteByByte(okHead + crl, 1ms)});
    expectRevoked({readRequest(), send(okHead + crl), wait(100ms), reset()});
    expectRevoked(answer(okHead + crl + std::string(8 << 20, '\0')));
    expectRevoked(answer("HTTP/1.0 200 OK\r\n" + repeated("X: 1\r\n", 1 << 18) + "\r\n" + crl));
}

// Validations at once, each of a certificate of its own at a server of its own: each gets its own CRL.
TEST_F(HostileServer, DoesNotAffectConcurrentValidation)
{
    constexpr int numServers = 8;
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<X509Certificate> leaves;
    for (int number = 0; number < numServers; ++number) {
        auto const host = "127.0.1." + std::to_string(number + 1);
        auto const named = makeLeaf(pki.ca, "leaf" + std::to_string(number), [&](CertificateSpec& spec) {
            spec.setDistributionPoints({"http://" + host + "/leaf.crl"});
        });
        leaves.push_back(load(named));
        auto const bytes = toDer(number % 2 == 0 ? pki.leafCrl({revoke(named)}) : pki.leafCrl());
        servers.push_back(std::make_unique<ScriptedServer>(
            host, std::uint16_t{80},
            std::vector<Script>{{readRequest(), send(okHead + asText(bytes)), wait(20ms)}}));
    }
    std::atomic<int> wrong{0};
    inParallel(numServers, [&](int number) {
        auto const expected = number % 2 == 0 ? Status::Revoked : Status::Valid;
        auto const options = optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required);
        for (int round = 0; round < 5; ++round) {
            auto const results =
                leaves[static_cast<std::size_t>(number)].validateCertificate(chain, options, trustStore);
            wrong += results.getCertificateChainStatus() == expected ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

// Names that hold a zero character: nothing is cut at it.

TEST_F(HostileServer, ReceivesWholePathWithZeroCharacter)
{
    auto const named = makeLeaf(pki.ca, "leaf", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.1/leaf.crl\0/../other.crl"s});
    });
    auto const bytes = toDer(pki.leafCrl({revoke(named)}));
    ScriptedServer const server("127.0.0.1", 80, {answer(okHead + asText(bytes))});
    auto const options = optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required);

    auto const results = load(named).validateCertificate(chain, options, trustStore);

    EXPECT_EQ(results.getCertificateChainStatus(), Status::Revoked);
    EXPECT_EQ(
        server.requests(),
        std::vector<std::string>{
            "GET /leaf.crl\0/../other.crl HTTP/1.0\r\nHost: 127.0.0.1\r\nAccept: */*\r\nConnection: close\r\n\r\n"s});
}

TEST_F(HostileServer, IsNotReachedByNameWithZeroCharacter)
{
    ScriptedServer const server("127.0.0.1", 80, {answer(okHead + crl)});
    for (auto const& host :
         {"127.0.0.1\0"s, "127.0.0.1\0.example"s, "\0"s, "\0"s + "127.0.0.1", "localhost\0x"s}) {
        auto const named = makeLeaf(pki.ca, "leaf", [&](CertificateSpec& spec) {
            spec.setDistributionPoints({"http://" + host + "/leaf.crl"});
        });
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, notFetchedText,
            load(named).validateCertificate(
                chain, optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required), trustStore));
    }
    EXPECT_EQ(server.numConnections(), 0U);
}
