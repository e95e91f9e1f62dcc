#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"

#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using Usage = TrustStore::Usage;

constexpr Usage serverAuthentication = Usage::ServerAuthentication;
constexpr Usage signing = Usage::Signing;
constexpr auto unknownUsage = static_cast<Usage>(2);
constexpr int information = 4;
constexpr int error = 16;

constexpr char const garbageText[] =
    "Failed to parse DER data to X509 certificate. Cert size = 3\nCert Bytes =  0x01 0x02 0x03 \n";

/// Delivers the given bytes in place of an operating system.
class DeliveringAdder : public ISystemCertificateAdder
{
public:
    explicit DeliveringAdder(std::vector<Bytes> content) : certificates(std::move(content)) {}

    ISystemCertificateAdder* clone() const override { return new DeliveringAdder(*this); }

    void addCertificatesTo(TrustStoreImpl& store, Usage /*usage*/, bool rethrowOnFailure) override
    {
        for (Bytes const& der : certificates) {
            deliver(rethrowOnFailure, [&] { store.addDERCertificate(der); });
        }
    }

private:
    std::vector<Bytes> certificates;
};

TrustStore storeFedWith(std::vector<Bytes> certificates)
{
    return TrustStore(std::make_unique<DeliveringAdder>(std::move(certificates)));
}

Bytes derOf(std::string const& name, Mutation const& mutate = {})
{
    return makeRoot(name, mutate).der();
}

Mutation expiredSince(std::chrono::seconds age)
{
    return [age](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-age); };
}

std::string dropped(std::string const& name, bool expired, bool unfit)
{
    return "Certificate (CN: " + name + ") expired or invalid for usage (expired: " + (expired ? "1" : "0") +
           ", invalid for usage: " + (unfit ? "1" : "0") + ")";
}

std::string removed(int count)
{
    return "Removed " + std::to_string(count) + " expired or invalid certificates";
}

std::vector<std::string> namesIn(TrustStore const& store)
{
    std::vector<std::string> names;
    for (X509Certificate const& certificate : store.getCertificates().getCertificates()) {
        names.push_back(certificate.getSubjectCommonName());
    }
    return names;
}

/// A certificate with the given extensions, or without them, and the usages that it fits.
struct UsageRow
{
    explicit UsageRow(std::string nameOfRow) : name(std::move(nameOfRow)) {}

    UsageRow withKeyUsage(std::string const& value) const
    {
        UsageRow row(*this);
        row.keyUsage = value;
        return row;
    }
    UsageRow withExtendedKeyUsage(std::string const& value) const
    {
        UsageRow row(*this);
        row.extendedKeyUsage = value;
        return row;
    }
    UsageRow forServers() const
    {
        UsageRow row(*this);
        row.fitsServerAuthentication = true;
        return row;
    }
    UsageRow forSigning() const
    {
        UsageRow row(*this);
        row.fitsSigning = true;
        return row;
    }

    std::string name;
    std::string keyUsage;
    std::string extendedKeyUsage;
    bool fitsServerAuthentication = false;
    bool fitsSigning = false;
};

X509Handle certificateOf(UsageRow const& row)
{
    return makeRoot(
               row.name,
               [&](CertificateSpec& spec) {
                   spec.removeExtension("keyUsage");
                   if (!row.keyUsage.empty()) {
                       spec.setExtension("keyUsage", row.keyUsage);
                   }
                   if (!row.extendedKeyUsage.empty()) {
                       spec.setExtension("extendedKeyUsage", row.extendedKeyUsage);
                   }
               })
        .certificate;
}

} // namespace

TEST(SystemCertificates, ValidCertificateStaysAndExpiredOneIsRemoved)
{
    TrustStore store = storeFedWith({derOf("expired", expiredSince(24h)), derOf("valid")});
    LogCapture const log;
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(namesIn(store), std::vector<std::string>{"valid"});
    EXPECT_EQ(log.messages(), (std::vector<std::string>{dropped("expired", true, false), removed(1)}));
}

TEST(SystemCertificates, RecordsHaveSeverityAndChannel)
{
    TrustStore store = storeFedWith({derOf("expired", expiredSince(24h)), {1, 2, 3}});
    LogCapture const log;
    store.addSystemCertificates(serverAuthentication);
    std::vector<int> severities;
    for (LogRecord const& record : log.records()) {
        severities.push_back(record.severity);
        EXPECT_EQ(record.channel, "foundation::certificates");
    }
    EXPECT_EQ(severities, (std::vector<int>{error, information, information}));
}

TEST(SystemCertificates, DisabledRecordsAreNotWritten)
{
    TrustStore store = storeFedWith({derOf("expired", expiredSince(24h)), {1, 2, 3}});
    LogCapture const log(63 & ~(information | error));
    store.addSystemCertificates(serverAuthentication);
    EXPECT_TRUE(store.empty());
    EXPECT_EQ(log.messages(), std::vector<std::string>());
}

TEST(SystemCertificates, ExpiredCertificateOfCallerIsRemoved)
{
    TrustStore store = storeFedWith({});
    store.addCertificate(X509Certificate(derOf("added by the caller", expiredSince(1min))));
    store.addCertificate(X509Certificate(derOf("valid")));
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(namesIn(store), std::vector<std::string>{"valid"});
}

TEST(SystemCertificates, NumberOfRemovedCertificatesIsLoggedIfZero)
{
    TrustStore store = storeFedWith({});
    LogCapture const log;
    store.addSystemCertificates(signing);
    EXPECT_EQ(log.messages(), std::vector<std::string>{removed(0)});
}

TEST(SystemCertificates, UnknownUsageEmptiesStore)
{
    TrustStore store = storeFedWith({derOf("a"), derOf("b", expiredSince(24h))});
    store.addCertificate(X509Certificate(derOf("c")));
    LogCapture const log;
    store.addSystemCertificates(unknownUsage);
    EXPECT_TRUE(store.empty());
    auto const messages = log.messages();
    ASSERT_EQ(messages.size(), 4U);
    for (std::string const& expected :
         {dropped("a", false, true), dropped("b", true, true), dropped("c", false, true)}) {
        EXPECT_EQ(std::count(messages.begin(), messages.end(), expected), 1) << expected;
    }
    EXPECT_EQ(messages.back(), removed(3));
}

TEST(SystemCertificates, LaterCallAppliesItsOwnUsage)
{
    auto const codeSigner = [](CertificateSpec& spec) {
        spec.setExtension("extendedKeyUsage", "codeSigning");
    };
    TrustStore store = storeFedWith({derOf("for all"), derOf("for code", codeSigner)});
    store.addSystemCertificates(signing);
    EXPECT_EQ(store.size(), 2U);
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(namesIn(store), std::vector<std::string>{"for all"});
}

TEST(SystemCertificates, CrlsAndEntriesOfNoTypeAreRemoved)
{
    TrustStore store = storeFedWith({derOf("valid")});
    auto const live = getOpenSSLStore(store);
    require(X509_STORE_add_crl(live.get(), makeCrl(makeRoot("issuer")).get()));
    require(sk_X509_OBJECT_push(X509_STORE_get0_objects(live.get()), X509_OBJECT_new()));
    LogCapture const log;
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(namesIn(store), std::vector<std::string>{"valid"});
    std::string const noCertificate =
        "Failed to get certificate: Unsupported object type found in TrustStore";
    EXPECT_EQ(log.messages(), (std::vector<std::string>{noCertificate, noCertificate, removed(2)}));
}

TEST(SystemCertificates, DamagedCertificateIsLoggedAndSkipped)
{
    TrustStore store = storeFedWith({{1, 2, 3}, derOf("valid")});
    store.addCertificate(X509Certificate(derOf("expired", expiredSince(24h))));
    LogCapture const log;
    EXPECT_NO_THROW(store.addSystemCertificates(serverAuthentication, false));
    EXPECT_EQ(namesIn(store), std::vector<std::string>{"valid"});
    EXPECT_EQ(
        log.messages(),
        (std::vector<std::string>{
            "Exception caught: foundation::certificates::TrustStoreException: " + std::string(garbageText),
            dropped("expired", true, false), removed(1)}));
}

TEST(SystemCertificates, DamagedCertificateEndsRunIfFailuresAreRethrown)
{
    TrustStore store = storeFedWith({derOf("first"), {1, 2, 3}, derOf("last")});
    store.addCertificate(X509Certificate(derOf("expired", expiredSince(24h))));
    LogCapture const log;
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, garbageText, store.addSystemCertificates(serverAuthentication, true));
    EXPECT_EQ(namesIn(store), (std::vector<std::string>{"expired", "first"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>());
}

TEST(SystemCertificates, DamagedCertificateIsSkippedByDefault)
{
    LogCapture const log;
    TrustStore store = storeFedWith({{1, 2, 3}, derOf("valid")});
    EXPECT_NO_THROW(store.addSystemCertificates(signing));
    EXPECT_EQ(store.size(), 1U);
}

TEST(SystemCertificates, ErrorQueueIsUnchangedAfterManyDamagedCertificates)
{
    LogCapture const log;
    std::vector<Bytes> const manyDamaged(40, Bytes{1, 2, 3});
    TrustStore store = storeFedWith(manyDamaged);
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    queueForeignError();
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, garbageText, store.addSystemCertificates(serverAuthentication, true));
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(SystemCertificateFilter, ManyUnreadableExtensionsLeaveErrorQueueUnchanged)
{
    LogCapture const log;
    for (Usage const usage : {serverAuthentication, signing}) {
        TrustStore store = storeFedWith({});
        for (int number = 0; number < 40; ++number) {
            auto const damaged = makeRoot("root " + std::to_string(number), [](CertificateSpec& spec) {
                spec.key = ed25519Key();
                spec.setRawExtension("keyUsage", {0x30, 0x05, 0x01});
                spec.setRawExtension("extendedKeyUsage", {0x30, 0x05, 0x01});
            });
            require(X509_STORE_add_cert(getOpenSSLStore(store).get(), damaged.certificate.get()));
        }
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        store.addSystemCertificates(usage);
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    }
}

TEST(SystemCertificateFilter, OnlyEndOfValidityCounts)
{
    struct Row
    {
        std::string name;
        Mutation mutate;
        bool isKept;
    };
    constexpr bool stays = true;
    constexpr bool isRemoved = false;
    std::vector<Row> const rows = {
        {"starts tomorrow", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(24h); }, stays},
        {"ends in a minute", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(1min); }, stays},
        {"ended a second ago", expiredSince(1s), isRemoved},
        {"ended years ago", expiredSince(std::chrono::hours(24 * 365 * 5)), isRemoved},
        {"unreadable end", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); }, isRemoved},
        {"no expiry",
         [](CertificateSpec& spec) {
             spec.notAfter = TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "99991231235959Z");
         },
         stays},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        TrustStore store = storeFedWith({derOf(row.name, row.mutate)});
        LogCapture const log;
        store.addSystemCertificates(serverAuthentication);
        EXPECT_EQ(store.size(), row.isKept ? 1U : 0U);
        if (!row.isKept) {
            EXPECT_EQ(log.messages(), (std::vector<std::string>{dropped(row.name, true, false), removed(1)}));
        }
    }
}

TEST(SystemCertificateFilter, KeyUsageAndExtendedKeyUsageDecide)
{
    std::vector<UsageRow> const rows = {
        UsageRow("neither extension").forServers().forSigning(),
        UsageRow("nonRepudiation").withKeyUsage("nonRepudiation,dataEncipherment"),
        UsageRow("digitalSignature").withKeyUsage("digitalSignature").forServers().forSigning(),
        UsageRow("keyCertSign").withKeyUsage("keyCertSign").forServers().forSigning(),
        UsageRow("cRLSign").withKeyUsage("cRLSign").forSigning(),
        UsageRow("keyEncipherment").withKeyUsage("keyEncipherment").forServers(),
        UsageRow("keyAgreement").withKeyUsage("nonRepudiation,keyAgreement,decipherOnly").forServers(),
        UsageRow("serverAuth").withExtendedKeyUsage("serverAuth").forServers(),
        UsageRow("clientAuth").withExtendedKeyUsage("clientAuth"),
        UsageRow("codeSigning").withExtendedKeyUsage("codeSigning").forSigning(),
        UsageRow("emailProtection").withExtendedKeyUsage("emailProtection").forSigning(),
        UsageRow("timeStamping").withExtendedKeyUsage("timeStamping").forSigning(),
        UsageRow("anyExtendedKeyUsage").withExtendedKeyUsage("anyExtendedKeyUsage").forSigning(),
        UsageRow("two usages").withExtendedKeyUsage("serverAuth,timeStamping").forServers().forSigning(),
        UsageRow("unknown usage").withExtendedKeyUsage("1.2.3.4.5"),
        UsageRow("wrong key usage").withKeyUsage("keyEncipherment").withExtendedKeyUsage("codeSigning"),
    };
    for (UsageRow const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const certificate = certificateOf(row);
        EXPECT_EQ(isValidForUsage(certificate.get(), serverAuthentication), row.fitsServerAuthentication);
        EXPECT_EQ(isValidForUsage(certificate.get(), signing), row.fitsSigning);
        EXPECT_FALSE(isValidForUsage(certificate.get(), unknownUsage));
    }
}

TEST(SystemCertificateFilter, EmptyExtendedKeyUsageIsRefused)
{
    auto const made = makeRoot("no usages", [](CertificateSpec& spec) {
        spec.setRawExtension("extendedKeyUsage", {0x30, 0x00});
    });
    EXPECT_FALSE(isValidForUsage(made.certificate.get(), signing));
}

TEST(SystemCertificateFilter, ServerAuthenticationFollowsOpenSSL)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    auto const clientLeaf = makeLeaf(
        root, "client", [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "clientAuth"); });
    for (auto const& made : {root, leaf, clientLeaf}) {
        X509* const certificate = made.certificate.get();
        bool const expected =
            X509_check_purpose(certificate, X509_PURPOSE_SSL_SERVER, X509_check_ca(certificate)) > 0;
        EXPECT_EQ(isValidForUsage(certificate, serverAuthentication), expected);
    }
    EXPECT_TRUE(isValidForUsage(leaf.certificate.get(), serverAuthentication));
    EXPECT_FALSE(isValidForUsage(clientLeaf.certificate.get(), serverAuthentication));
}

TEST(SystemCertificateFilter, RecordNamesReasonForRemoval)
{
    auto const forClients = [](CertificateSpec& spec) {
        spec.setExtension("extendedKeyUsage", "clientAuth");
    };
    auto const expiredForClients = [&](CertificateSpec& spec) {
        forClients(spec);
        expiredSince(24h)(spec);
    };
    auto const nameless = [&](CertificateSpec& spec) {
        expiredSince(24h)(spec);
        spec.subject = {{"O", "no common name"}};
    };
    std::vector<std::pair<Bytes, std::string>> const rows = {
        {derOf("old", expiredSince(24h)), dropped("old", true, false)},
        {derOf("unfit", forClients), dropped("unfit", false, true)},
        {derOf("both", expiredForClients), dropped("both", true, true)},
        {derOf("nameless", nameless), dropped("", true, false)},
    };
    for (auto const& [der, expected] : rows) {
        TrustStore store = storeFedWith({der});
        LogCapture const log;
        store.addSystemCertificates(serverAuthentication);
        EXPECT_EQ(log.messages(), (std::vector<std::string>{expected, removed(1)}));
    }
}

TEST(SystemCertificateFilter, NeighboringEntriesAreRemoved)
{
    std::vector<Bytes> certificates;
    for (int number = 0; number < 20; ++number) {
        auto const mutate = number % 3 == 0 ? Mutation() : expiredSince(24h);
        certificates.push_back(makeRoot("root", [&](CertificateSpec& spec) {
                                   spec.subject = commonName("root " + std::to_string(number));
                                   if (mutate) {
                                       mutate(spec);
                                   }
                               }).der());
    }
    TrustStore store = storeFedWith(certificates);
    LogCapture const log;
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(store.size(), 7U);
    EXPECT_EQ(log.messages().back(), removed(13));
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(store.size(), 7U);
}

TEST(SystemCertificateUsage, EachUsageHasItsExtendedKeyUsages)
{
    auto const asked = [](Usage usage) {
        auto const oids = extendedKeyUsageOIDs(usage);
        return std::vector<std::string>(oids.begin(), oids.end());
    };
    EXPECT_EQ(asked(serverAuthentication), (std::vector<std::string>{"1.3.6.1.5.5.7.3.1", "2.5.29.37.0"}));
    EXPECT_EQ(
        asked(signing), (std::vector<std::string>{
                            "1.3.6.1.5.5.7.3.3", "1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.8", "2.5.29.37.0"}));
    EXPECT_EQ(asked(unknownUsage), std::vector<std::string>());
}

TEST(SystemCertificateUsage, NIDsAreThoseOfTheOIDs)
{
    for (Usage const usage : {serverAuthentication, signing, unknownUsage}) {
        std::vector<int> expected;
        for (char const* const oid : extendedKeyUsageOIDs(usage)) {
            expected.push_back(OBJ_txt2nid(oid));
        }
        EXPECT_EQ(extendedKeyUsageNIDs(usage), expected);
    }
}

TEST(SystemCertificateDelivery, OnlyTrustStoreExceptionIsHandled)
{
    LogCapture const log;
    for (bool const rethrowOnFailure : {false, true}) {
        EXPECT_THROWS_EXACTLY(CertificateException, "another failure", deliver(rethrowOnFailure, [] {
                                  throw CertificateException("another failure");
                              }));
        EXPECT_THROWS_EXACTLY(std::runtime_error, "a foreign failure", deliver(rethrowOnFailure, [] {
                                  throw std::runtime_error("a foreign failure");
                              }));
    }
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "a failure", deliver(true, [] { throw TrustStoreException("a failure"); }));
    EXPECT_EQ(log.messages(), std::vector<std::string>());
    EXPECT_NO_THROW(deliver(false, [] { throw TrustStoreException("a failure"); }));
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(
        log.records().front().message,
        "Exception caught: foundation::certificates::TrustStoreException: a failure");
    EXPECT_EQ(log.records().front().severity, 16);
}
