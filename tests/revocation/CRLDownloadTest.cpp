#include "certificate/X509CertificateImpl.hpp"

#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <regex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using DownloadCRL = CertificateValidationOptions::DownloadCRL;

constexpr DownloadCRL everyMode[] = {DownloadCRL::None, DownloadCRL::BestEffort, DownloadCRL::Required};
constexpr DownloadCRL tolerantModes[] = {DownloadCRL::None, DownloadCRL::BestEffort};

constexpr std::int64_t lastSecondOf9999 = 253402300799; // in seconds since 1970

constexpr char const notFetchedText[] =
    "CRL Download Error: Unable to get Certificate Revocation List HTTP data. "
    "CRL Download Error: CRL HTTP data is empty\n\n";
constexpr char const invalidText[] = "CRL Download Error: Invalid Certificate Revocation List\n";
constexpr char const signatureText[] =
    "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n";
constexpr char const noNextUpdateText[] =
    "CRL Verification Error: Failed to retrieve the next update date from the Certificate Revocation List\n";
constexpr char const expiredText[] = "CRL Verification Error: Certificate Revocation List has expired\n";

/// What one download reads and writes.
struct Download
{
    X509_STOREUPtr store = makeX509_STORE(X509_STORE_new());
    X509CertificateImpl::CRLs crls;
    EVP_PKEYUPtr issuerKey = makeEVP_PKEY(nullptr);

    explicit Download(EVP_PKEYUPtr key) : issuerKey(std::move(key)) {}
    explicit Download(CertificateAndKey const& issuer)
        : issuerKey(makeEVP_PKEY(X509_get_pubkey(issuer.certificate.get())))
    {}

    bool run(X509Certificate const& certificate, DownloadCRL mode)
    {
        return X509CertificateImpl().downloadCRL(certificate, store, crls, mode, issuerKey);
    }

    std::vector<X509_CRL*> crlsInStore() const
    {
        std::vector<X509_CRL*> found;
        auto* const objects = X509_STORE_get0_objects(store.get());
        for (int index = 0; index < sk_X509_OBJECT_num(objects); ++index) {
            if (auto* crl = X509_OBJECT_get0_X509_CRL(sk_X509_OBJECT_value(objects, index))) {
                found.push_back(crl);
            }
        }
        return found;
    }
};

Script answerWith(std::string const& answer)
{
    return {readRequest(), send(answer)};
}

Script answerWith(Bytes const& body)
{
    return answerWith(httpOk(body));
}

Script answerWith(CrlHandle const& crl)
{
    return answerWith(toDer(crl));
}

std::function<void(CrlSpec&)> withNextUpdate(TimeSpec const& time)
{
    return [time](CrlSpec& spec) { spec.nextUpdate = time; };
}

/// The URIs of a certificate, and the path that the download asks for.
struct RequestRow
{
    RequestRow& uris(std::vector<std::string> const& value)
    {
        urisOfLeaf = value;
        return *this;
    }

    RequestRow& asksFor(std::string const& value)
    {
        path = value;
        return *this;
    }

    std::vector<std::string> urisOfLeaf;
    std::string path;
};

class CRLDownload : public LeavesNoTrace
{
protected:
    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const unrelated = makeRoot("other");

    X509Certificate leafNaming(std::vector<std::string> const& uris) const
    {
        auto const setURIs = [&](CertificateSpec& spec) { spec.setDistributionPoints(uris); };
        return X509Certificate(makeLeaf(root, "leaf", setURIs).der());
    }

    X509Certificate const leaf = leafNaming({"http://127.0.0.2/root.crl"});

    void expectSuccess(X509Certificate const& certificate, CrlHandle const& expected) const
    {
        for (auto const mode : everyMode) {
            Download download(root);
            EXPECT_TRUE(download.run(certificate, mode));
            ASSERT_EQ(download.crls.size(), 1u);
            EXPECT_EQ(X509_CRL_cmp(download.crls[0].get(), expected.get()), 0);
            ASSERT_EQ(download.crlsInStore().size(), 1u);
            EXPECT_EQ(download.crlsInStore()[0], download.crls[0].get());
        }
    }

    /// Expects an exception if CRLs are required and `false` if not. Both lists stay unchanged.
    void expectFailure(X509Certificate const& certificate, Download& download, std::string const& text) const
    {
        for (auto const mode : tolerantModes) {
            EXPECT_FALSE(download.run(certificate, mode));
        }
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, text, download.run(certificate, DownloadCRL::Required));
        EXPECT_TRUE(download.crls.empty());
        EXPECT_TRUE(download.crlsInStore().empty());
    }

    void expectFailure(X509Certificate const& certificate, std::string const& text) const
    {
        Download download(root);
        expectFailure(certificate, download, text);
    }

    void expectFailureInEveryMode(X509Certificate const& certificate, std::string const& text) const
    {
        for (auto const mode : everyMode) {
            Download download(root);
            EXPECT_THROWS_EXACTLY(X509CertificateException, text, download.run(certificate, mode));
            EXPECT_TRUE(download.crls.empty());
            EXPECT_TRUE(download.crlsInStore().empty());
        }
    }
};

} // namespace

TEST_F(CRLDownload, AddsCRLToStoreAndList)
{
    auto const crl = makeCrl(root, {{"17"}, {"18"}});
    ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});

    expectSuccess(leaf, crl);

    std::string const request =
        "GET /root.crl HTTP/1.0\r\nHost: 127.0.0.2\r\nAccept: */*\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(server.requests(), (std::vector<std::string>{request, request, request}));
}

TEST_F(CRLDownload, AcceptsEveryValidCRL)
{
    std::vector<RevokedEntry> manyEntries;
    for (int serialNumber = 1; serialNumber <= 100000; ++serialNumber) {
        manyEntries.push_back({std::to_string(serialNumber)});
    }
    struct
    {
        char const* name;
        CrlHandle crl;
    } const rows[] = {
        {"nothing revoked", makeCrl(root)},
        {"a hundred thousand entries", makeCrl(root, manyEntries)},
        {"negative serial number", makeCrl(root, {{"-5"}})},
        {"next update in a minute", makeCrl(root, {}, withNextUpdate(TimeSpec::fromNow(1min)))},
        {"next update in the year 9999", makeCrl(root, {}, withNextUpdate(TimeSpec::at(lastSecondOf9999)))},
        {"next update with a time zone",
         makeCrl(root, {}, withNextUpdate(TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "29991231235959Z")))},
        {"not yet valid", makeCrl(root, {}, [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::fromNow(24h); })},
        {"unreadable this update",
         makeCrl(root, {}, [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::unreadable(); })},
        {"another issuer's name",
         makeCrl(root, {}, [](CrlSpec& spec) { spec.issuerName = commonName("another"); })},
        {"unreadable date of revocation", makeCrl(root, {{"5", TimeSpec::unreadable()}})},
        {"version 1", makeCrl(root, {}, [](CrlSpec& spec) { spec.version = X509_CRL_VERSION_1; })},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer const server("127.0.0.2", 80, {answerWith(row.crl)});
        expectSuccess(leaf, row.crl);
    }
}

TEST_F(CRLDownload, AcceptsEveryToleratedFormOfAnswer)
{
    auto const crl = makeCrl(root);
    auto const der = toDer(crl);
    std::string const body(der.begin(), der.end());
    struct
    {
        char const* name;
        Script script;
    } const rows[] = {
        {"HTTP/1.1", answerWith("HTTP/1.1 200 OK\r\nServer: x\r\n\r\n" + body)},
        {"first word is not HTTP", answerWith("ICY 200 OK\r\n\r\n" + body)},
        {"one byte at a time", {readRequest(), sendByteByByte("HTTP/1.0 200 OK\r\n\r\n" + body, 0ms)}},
        {"bytes behind the CRL", answerWith("HTTP/1.0 200 OK\r\n\r\n" + body + "\r\n")},
        {"reset behind the CRL",
         {readRequest(), send("HTTP/1.0 200 OK\r\n\r\n" + body), wait(300ms), reset()}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer const server("127.0.0.2", 80, {row.script});
        expectSuccess(leaf, crl);
    }
}

TEST_F(CRLDownload, AcceptsSignatureOfEveryKeyType)
{
    KeyHandle const keys[] = {rsaKey(), ed25519Key(), p384Key()};
    for (auto const& key : keys) {
        auto const issuer = CertificateAndKey{root.certificate, key};
        auto const crl = makeCrl(issuer);
        ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
        EVP_PKEY_up_ref(key.get());
        Download download(makeEVP_PKEY(key.get()));

        EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
        EXPECT_EQ(download.crls.size(), 1u);
    }
}

TEST_F(CRLDownload, FailsWithoutDistributionPoints)
{
    constexpr char const text[] =
        "CRL Download Error: Certificate Revocation List Distribution Points not available\n";

    expectFailure(X509Certificate(makeLeaf(root, "leaf").der()), text);
    auto const garbage = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setRawExtension("crlDistributionPoints", asBytes("garbage"));
    });
    expectFailure(X509Certificate(garbage.der()), text);
    auto const nameless = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        // One distribution point of two reasons and no name.
        spec.setRawExtension("crlDistributionPoints", Bytes{0x30, 0x06, 0x30, 0x04, 0x81, 0x02, 0x05, 0x60});
    });
    expectFailure(X509Certificate(nameless.der()), text);
}

TEST_F(CRLDownload, FailsWithoutPlainHttpURL)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    std::vector<std::string> const rows[] = {
        {""},
        {"ldap://127.0.0.2/cn=root?certificateRevocationList"},
        {"https://127.0.0.2/root.crl"},
        {"HTTP://127.0.0.2/root.crl"},
        {"http://127.0.0.2"},
        {" http://127.0.0.2/root.crl"},
        {"http://127.0.0.2/root.crl\n"},
        {"http:/127.0.0.2/root.crl", "127.0.0.2/root.crl"},
        {"http://" + std::string(200000, 'a')},
    };
    for (auto const& uris : rows) {
        SCOPED_TRACE(uris[0].substr(0, 80));
        expectFailure(
            leafNaming(uris),
            "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n");
    }
    EXPECT_EQ(server.numConnections(), 0u);
}

TEST_F(CRLDownload, UsesFirstPlainHttpURL)
{
    auto const crl = makeCrl(root);
    RequestRow const rows[] = {
        RequestRow().uris({"ldap://127.0.0.2/cn=root", "http://127.0.0.2/second.crl"}).asksFor("/second.crl"),
        RequestRow()
            .uris({"http://127.0.0.2/first.crl", "http://127.0.0.2/second.crl"})
            .asksFor("/first.crl"),
        RequestRow().uris({"http://127.0.0.2/"}).asksFor("/"),
        RequestRow().uris({"http://127.0.0.2/a/b%20c?d=e/f#g"}).asksFor("/a/b%20c?d=e/f#g"),
    };
    for (auto const& row : rows) {
        ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
        expectSuccess(leafNaming(row.urisOfLeaf), crl);
        ASSERT_EQ(server.requests().size(), 3u);
        auto const requestLine = "GET " + row.path + " HTTP/1.0\r\n";
        EXPECT_EQ(server.requests()[0].substr(0, requestLine.size()), requestLine);
    }
}

TEST_F(CRLDownload, DoesNotTrySecondURL)
{
    ScriptedServer const second("127.0.0.3", 80, {answerWith(makeCrl(root))});

    // Nobody listens at the first address.
    expectFailure(leafNaming({"http://127.0.0.99/root.crl", "http://127.0.0.3/root.crl"}), notFetchedText);
    EXPECT_EQ(second.numConnections(), 0u);

    ScriptedServer const first("127.0.0.2", 80, {answerWith("HTTP/1.0 404 Not Found\r\n\r\n")});
    expectFailure(leafNaming({"http://127.0.0.2/root.crl", "http://127.0.0.3/root.crl"}), notFetchedText);
    EXPECT_EQ(first.numConnections(), 3u);
    EXPECT_EQ(second.numConnections(), 0u);
}

TEST_F(CRLDownload, ReportsEmptyBodyForEveryBadAnswer)
{
    auto const der = toDer(makeCrl(root));
    std::string const body(der.begin(), der.end());
    struct
    {
        char const* name;
        Script script;
    } const rows[] = {
        {"closes at once", {}},
        {"resets at once", {reset()}},
        {"reads the request and closes", {readRequest()}},
        {"redirects",
         answerWith("HTTP/1.0 301 Moved Permanently\r\nLocation: http://127.0.0.3/root.crl\r\n\r\n" + body)},
        {"does not find it", answerWith("HTTP/1.0 404 Not Found\r\n\r\n" + body)},
        {"fails", answerWith("HTTP/1.0 500 Internal Server Error\r\n\r\n" + body)},
        {"has no content", answerWith("HTTP/1.0 204 No Content\r\n\r\n")},
        {"has an empty body", answerWith("HTTP/1.0 200 OK\r\n\r\n")},
        {"speaks no HTTP", answerWith(body)},
        {"has bare line feeds", answerWith("HTTP/1.0 200 OK\nServer: x\n\n" + body)},
        {"has no end of headers", answerWith("HTTP/1.0 200 OK\r\nServer: " + std::string(1000000, 'x'))},
    };
    ScriptedServer const target("127.0.0.3", 80, {answerWith(makeCrl(root))});
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer const server("127.0.0.2", 80, {row.script});
        expectFailure(leaf, notFetchedText);
    }
    EXPECT_EQ(target.numConnections(), 0u);
}

TEST_F(CRLDownload, EmptyBodyQueuesNoError)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith("HTTP/1.0 200 OK\r\n\r\n")});
    CleanErrorQueue const clean;
    Download download(root);

    EXPECT_FALSE(download.run(leaf, DownloadCRL::BestEffort));
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(CRLDownload, ReportsEmptyBodyWithoutConnection)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    for (auto const& uri : {
             std::string("http://127.0.0.99/root.crl"),
             std::string("http://127.0.0.2:80/root.crl"),
             std::string("http://no-such-host.invalid/root.crl"),
             std::string("http:///root.crl"),
             "http://" + std::string(200000, 'a') + "/root.crl",
         }) {
        SCOPED_TRACE(uri.substr(0, 80));
        expectFailure(leafNaming({uri}), notFetchedText);
    }
    EXPECT_EQ(server.numConnections(), 0u);
}

TEST_F(CRLDownload, RefusesBodyThatIsNoCRL)
{
    auto const crl = makeCrl(root);
    auto const der = toDer(crl);
    struct
    {
        char const* name;
        Bytes body;
    } const rows[] = {
        {"HTML", asBytes("<html><body>Not found</body></html>")},
        {"PEM", asBytes(toPem(crl))},
        {"certificate", root.der()},
        {"cut short", Bytes(der.begin(), der.end() - 1)},
        {"first byte alone", Bytes(der.begin(), der.begin() + 1)},
        {"zero bytes", Bytes(100, 0)},
        {"length of four gigabytes", Bytes{0x30, 0x84, 0xff, 0xff, 0xff, 0xff, 0x30}},
        {"a hundred thousand sequences of no length",
         [] {
             Bytes nested;
             for (int depth = 0; depth < 100000; ++depth) {
                 nested.insert(nested.end(), {0x30, 0x80});
             }
             return nested;
         }()},
        {"line feed before the CRL",
         [&] {
             Bytes shifted = der;
             shifted.insert(shifted.begin(), '\n');
             return shifted;
         }()},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer const server("127.0.0.2", 80, {answerWith(row.body)});
        expectFailure(leaf, invalidText);
    }
}

TEST_F(CRLDownload, RefusesCRLNotSignedByIssuer)
{
    struct
    {
        char const* name;
        CrlHandle crl;
    } const rows[] = {
        {"another key", makeCrl(root, {}, [&](CrlSpec& spec) { spec.signingKey = unrelated.key; })},
        {"another kind of key", makeCrl(root, {}, [](CrlSpec& spec) { spec.signingKey = rsaKey(); })},
        {"another issuer", makeCrl(unrelated)},
        {"damaged signature", makeCrl(root, {}, [](CrlSpec& spec) { spec.damagedSignature = true; })},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer const server("127.0.0.2", 80, {answerWith(row.crl)});
        expectFailure(leaf, signatureText);
    }
}

TEST_F(CRLDownload, RefusesEveryCRLWithoutIssuerKey)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    Download download(makeEVP_PKEY(nullptr));

    expectFailure(leaf, download, signatureText);
}

TEST_F(CRLDownload, RefusesCRLWithoutNextUpdate)
{
    auto const crl = makeCrl(root, {}, [](CrlSpec& spec) { spec.nextUpdate.reset(); });
    ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});

    expectFailure(leaf, noNextUpdateText);
}

TEST_F(CRLDownload, UnreadableExtensionQueuesErrorsOnce)
{
    auto const makeUnreadable = [&] {
        return makeCrl(root, {}, [](CrlSpec& spec) {
            spec.extensions.push_back({"issuingDistributionPoint", "", asBytes("damaged"), true});
        });
    };
    if (OPENSSL_VERSION_MAJOR >= 4) { // does not read such a CRL
        EXPECT_THROW(makeUnreadable(), std::runtime_error);
        return;
    }
    auto const crl = makeUnreadable();
    CleanErrorQueue const clean;
    auto const bio = own(BIO_new(BIO_s_mem()));
    auto const der = toDer(crl);
    ASSERT_GT(BIO_write(bio.get(), der.data(), static_cast<int>(der.size())), 0);
    drainErrorQueue();
    ASSERT_TRUE(makeX509_CRL(d2i_X509_CRL_bio(bio.get(), nullptr)));
    auto const errorsOfOpenSSL = drainErrorQueue();
    ASSERT_FALSE(errorsOfOpenSSL.empty());
    ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
    Download download(root);
    drainErrorQueue();

    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
    EXPECT_EQ(drainErrorQueue(), errorsOfOpenSSL);
}

TEST_F(CRLDownload, RefusesExpiredCRL)
{
    struct
    {
        char const* name;
        TimeSpec nextUpdate;
    } const rows[] = {
        {"the present second", TimeSpec::at(std::time(nullptr))},
        {"a second ago", TimeSpec::fromNow(-1s)},
        {"a day ago", TimeSpec::fromNow(-24h)},
        {"1970", TimeSpec::at(0)},
        {"1969", TimeSpec::at(-1)},
        {"1676, beyond the range of nanoseconds in 64 bits",
         TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "16761231000000Z")},
        {"the year 0", TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "00000101000000Z")},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const crl = makeCrl(root, {}, withNextUpdate(row.nextUpdate));
        ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
        expectFailure(leaf, expiredText);
    }
}

TEST_F(CRLDownload, ReportsFirstOfSeveralFaults)
{
    auto const withOtherKeyAnd = [&](std::function<void(CrlSpec&)> const& mutate) {
        return makeCrl(root, {}, [&](CrlSpec& spec) {
            spec.signingKey = unrelated.key;
            mutate(spec);
        });
    };
    CrlHandle const rows[] = {
        withOtherKeyAnd([](CrlSpec& spec) { spec.nextUpdate.reset(); }),
        withOtherKeyAnd(withNextUpdate(TimeSpec::fromNow(-24h))),
        withOtherKeyAnd(withNextUpdate(TimeSpec::unreadable())),
    };
    for (auto const& crl : rows) {
        ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
        expectFailure(leaf, signatureText);
    }
}

TEST_F(CRLDownload, UnreadableNextUpdateThrowsInEveryMode)
{
    for (auto const& time : {
             TimeSpec::unreadable(),
             TimeSpec::raw(V_ASN1_UTCTIME, "             "),
             TimeSpec::raw(V_ASN1_UTCTIME, "991331000000Z"),
             TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "9999 and no more"),
         }) {
        auto const crl = makeCrl(root, {}, withNextUpdate(time));
        ScriptedServer const server("127.0.0.2", 80, {answerWith(crl)});
        expectFailureInEveryMode(leaf, "Invalid time format used in the certificate.");
    }
}

TEST_F(CRLDownload, CertificateWithoutContentThrowsInEveryMode)
{
    X509Certificate source;
    X509Certificate const target(std::move(source));

    expectFailureInEveryMode(X509Certificate(), "Error: X509Certificate has no content.");
    expectFailureInEveryMode(source, "Error: X509Certificate is uninitialized.");
}

TEST_F(CRLDownload, MissingTemporaryDirectoryThrowsInEveryMode)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    {
        ScopedVariable const nowhere(temporaryDirectoryVariable(), "/nonexistent/directory");
        for (auto const mode : everyMode) {
            Download download(root);
            EXPECT_THROW(download.run(leaf, mode), std::filesystem::filesystem_error);
        }
        // A failure that comes before the file is needed stays the same.
        expectFailure(
            leafNaming({"ldap://127.0.0.2/cn=root"}),
            "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n");
    }
    EXPECT_EQ(server.numConnections(), 0u);
}

TEST_F(CRLDownload, FailsWithoutTemporaryFile)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    ScopedVariable const unwritable(temporaryDirectoryVariable(), "/proc");

    expectFailure(leaf, invalidText);
    EXPECT_EQ(server.numConnections(), 3u);
}

TEST_F(CRLDownload, ListsCRLThatStoreRefuses)
{
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    for (auto const mode : everyMode) {
        Download download(root);
        download.store.reset();
        EXPECT_FALSE(download.run(leaf, mode));
        EXPECT_EQ(download.crls.size(), 1u);
    }
}

TEST_F(CRLDownload, KeepsContentOfStoreAndList)
{
    auto const other = makeCrl(root, {{"1"}});
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root)), answerWith(other)});
    Download download(root);

    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
    // The store already has this CRL. Adding it again succeeds.
    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));

    ASSERT_EQ(download.crls.size(), 3u);
    EXPECT_EQ(X509_CRL_cmp(download.crls[1].get(), other.get()), 0);
    EXPECT_EQ(X509_CRL_cmp(download.crls[2].get(), other.get()), 0);
    EXPECT_EQ(download.crlsInStore().size(), 2u);
}

TEST_F(CRLDownload, HasEmptyFileWhileItWaits)
{
    std::vector<std::filesystem::path> files;
    std::uintmax_t size = 1;
    auto const answer = httpOk(toDer(makeCrl(root)));
    ScriptedServer server("127.0.0.2", 80, {{readRequest(), respondWith([&](std::string const&) {
                                                 files = temporaryFiles();
                                                 size = std::filesystem::file_size(files.at(0));
                                                 return answer;
                                             })}});
    Download download(root);

    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
    server.stop(); // joins the thread that writes the variables

    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(std::regex_match(files[0].filename().string(), std::regex("certCRL_[A-Za-z0-9]{6}")));
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(CRLDownload, IgnoresEarlierErrors)
{
    CleanErrorQueue const clean;
    ScriptedServer const server("127.0.0.2", 80, {answerWith(makeCrl(root))});
    queueForeignError();
    Download download(root);

    EXPECT_TRUE(download.run(leaf, DownloadCRL::Required));
}

TEST_F(CRLDownload, RunsInSeveralThreads)
{
    auto const crl = makeCrl(root, {{"1"}});
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), wait(50ms), send(httpOk(toDer(crl)))}});

    std::vector<std::future<bool>> outcomes;
    for (int thread = 0; thread < 8; ++thread) {
        outcomes.push_back(std::async(std::launch::async, [&] {
            X509Certificate const own(leaf);
            Download download(root);
            return download.run(own, DownloadCRL::Required) &&
                   X509_CRL_cmp(download.crls.at(0).get(), crl.get()) == 0;
        }));
    }

    for (auto& outcome : outcomes) {
        EXPECT_TRUE(outcome.get());
    }
}
