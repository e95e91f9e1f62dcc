#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "truststore/TrustStoreImpl.hpp"
#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/pem.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

using namespace foundation::certificates;
using namespace foundation::test;
namespace fs = std::filesystem;

namespace {

using posix::SystemCertificateAdder;
using Usage = TrustStore::Usage;

constexpr Usage serverAuthentication = Usage::ServerAuthentication;
constexpr Usage signing = Usage::Signing;
constexpr auto unknownUsage = static_cast<Usage>(2);

std::string rootPem(std::string const& name)
{
    return makeRoot(name).pem();
}

/// Returns the common names of the delivered certificates. No filter runs.
std::set<std::string>
delivered(SystemCertificateAdder adder, Usage usage = serverAuthentication, bool rethrowOnFailure = true)
{
    TrustStoreImpl store;
    adder.addCertificatesTo(store, usage, rethrowOnFailure);
    std::set<std::string> names;
    for (unsigned index = 0; index < store.size(); ++index) {
        names.insert(commonNameOf(store.x509At(index)));
    }
    return names;
}

using Names = std::set<std::string>;

SystemCertificateAdder bundleAdder(fs::path const& file)
{
    return SystemCertificateAdder({{file.string()}, {}});
}

SystemCertificateAdder folderAdder(fs::path const& folder)
{
    return SystemCertificateAdder({{}, {folder.string()}});
}

/// Delivers the given content as a bundle.
Names deliveredFrom(
    std::string const& content, Usage usage = serverAuthentication, bool rethrowOnFailure = true)
{
    TemporaryFolder const folder;
    return delivered(bundleAdder(folder.write("bundle.pem", content)), usage, rethrowOnFailure);
}

std::string relabelled(std::string pem, std::string const& label)
{
    for (std::string const marker : {"-----BEGIN ", "-----END "}) {
        auto const start = pem.find(marker) + marker.size();
        pem.replace(start, pem.find("-----", start) - start, label);
    }
    return pem;
}

/// Returns the certificate with trust settings, in OpenSSL's own form.
std::string
trustedPem(std::string const& name, std::vector<int> const& trusted, std::vector<int> const& rejected)
{
    auto const made = makeRoot(name);
    auto const object = [](int nid) { return OBJ_nid2obj(nid); };
    for (int const nid : trusted) {
        require(X509_add1_trust_object(made.certificate.get(), object(nid)));
    }
    for (int const nid : rejected) {
        require(X509_add1_reject_object(made.certificate.get(), object(nid)));
    }
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509_AUX(bio.get(), made.certificate.get()));
    return asText(contentOf(bio));
}

struct DamageRow
{
    std::string name;
    std::string block;
    std::string reportedLabel; ///< empty if the trust store refuses the block's content
};

std::vector<DamageRow> damagedBlocks()
{
    std::string const good = rootPem("damaged");
    std::string const garbage = "-----BEGIN CERTIFICATE-----\nAQID\n-----END CERTIFICATE-----\n";
    std::string badBase64 = good;
    badBase64[badBase64.size() / 2] = '*';
    std::string const header = "-----BEGIN CERTIFICATE-----\n";
    auto const key = p256Key("stray key");
    std::string encrypted = good;
    encrypted.insert(
        header.size(), "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n");
    std::string const refusedByTrustStore;
    return {
        {"garbage in DER", garbage, refusedByTrustStore},
        {"bad base64", badBase64, "CERTIFICATE"},
        {"no END line", good.substr(0, good.size() / 2) + "\n", "CERTIFICATE"},
        {"BEGIN line only", header, "CERTIFICATE"},
        {"END line of another label", good.substr(0, good.find("-----END")) + "-----END NOVELTY-----\n",
         "CERTIFICATE"},
        {"no content", header + "-----END CERTIFICATE-----\n", "CERTIFICATE"},
        {"encrypted", encrypted, "CERTIFICATE"},
        {"private key", toPem(key), "PRIVATE KEY"},
        {"CRL", toPem(makeCrl(makeRoot("issuer"))), "X509 CRL"},
        {"unknown label", relabelled(good, "NOVELTY"), "NOVELTY"},
        {"trust settings of garbage", relabelled(garbage, "TRUSTED CERTIFICATE"), "TRUSTED CERTIFICATE"},
    };
}

/// The usages for which a certificate is delivered.
enum class Fit
{
    Neither,
    Servers,
    Signing,
    Both
};

bool fitsServers(Fit fit)
{
    return fit == Fit::Servers || fit == Fit::Both;
}

bool fitsSigning(Fit fit)
{
    return fit == Fit::Signing || fit == Fit::Both;
}

std::string pemFor(std::string const& name, std::string const& extendedKeyUsage)
{
    return makeRoot(
               name,
               [&](CertificateSpec& spec) {
                   if (!extendedKeyUsage.empty()) {
                       spec.setExtension("extendedKeyUsage", extendedKeyUsage);
                   }
               })
        .pem();
}

/// A root's trust settings, and the usages that it fits.
struct TrustRow
{
    explicit TrustRow(std::string theName) : name(std::move(theName)) {}

    TrustRow& trustedFor(std::vector<int> const& usages)
    {
        trusted = usages;
        return *this;
    }

    TrustRow& rejectedFor(std::vector<int> const& usages)
    {
        rejected = usages;
        return *this;
    }

    TrustRow& fits(Fit value)
    {
        fit = value;
        return *this;
    }

    std::string name;
    std::vector<int> trusted;
    std::vector<int> rejected;
    Fit fit = Fit::Neither;
};

} // namespace

TEST(PosixSystemCertificateLocations, FirstExistingFileIsRead)
{
    TemporaryFolder const folder;
    auto const first = folder.write("first.pem", rootPem("first")).string();
    auto const second = folder.write("second.pem", rootPem("second")).string();
    auto const link = (folder.path() / "link.pem").string();
    fs::create_symlink(first, link);
    auto const missing = (folder.path() / "missing.pem").string();
    auto const dangling = (folder.path() / "dangling.pem").string();
    fs::create_symlink(missing, dangling);
    auto const noFile = folder.path().string();

    EXPECT_EQ(delivered(SystemCertificateAdder({{first, second}, {noFile}})), Names{"first"});
    EXPECT_EQ(
        delivered(SystemCertificateAdder({{missing, dangling, noFile, second, first}, {}})), Names{"second"});
    EXPECT_EQ(delivered(SystemCertificateAdder({{link}, {}})), Names{"first"});

    SystemCertificateAdder const adder({{missing, second}, {noFile}});
    EXPECT_EQ(adder.file(), second);
    EXPECT_EQ(adder.folder(), "");
}

TEST(PosixSystemCertificateLocations, FirstExistingFolderIsReadIfThereIsNoFile)
{
    TemporaryFolder const first;
    TemporaryFolder const second;
    first.write("a.pem", rootPem("first"));
    second.write("a.pem", rootPem("second"));
    auto const missing = (first.path() / "missing").string();
    auto const noFolder = (first.path() / "a.pem").string();

    SystemCertificateAdder const adder(
        {{missing}, {missing, noFolder, first.path().string(), second.path().string()}});
    EXPECT_EQ(adder.file(), "");
    EXPECT_EQ(adder.folder(), first.path().string());
    EXPECT_EQ(delivered(adder), Names{"first"});
}

TEST(PosixSystemCertificateLocations, ExceptionNamesAllMissingPlaces)
{
    TemporaryFolder const folder;
    std::string const missing = folder.path().string() + "/";
    SystemCertificateAdder const adder(
        {{missing + "a.pem", missing + "b.pem"}, {missing + "c", missing + "d"}});
    std::string const expected = "Failed to open system certificate store: " + missing + "a.pem, " + missing +
                                 "b.pem, " + missing + "c, " + missing + "d";
    for (bool const rethrowOnFailure : {false, true}) {
        EXPECT_THROWS_EXACTLY(
            TrustStoreException, expected, delivered(adder, serverAuthentication, rethrowOnFailure));
    }
    EXPECT_EQ(adder.file() + adder.folder(), "");
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to open system certificate store: ",
        delivered(SystemCertificateAdder(posix::SystemCertificateLocations())));
}

TEST(PosixSystemCertificateLocations, FilterDoesNotRunIfAllPlacesAreMissing)
{
    TrustStore store(std::make_unique<SystemCertificateAdder>(posix::SystemCertificateLocations()));
    store.addCertificate(X509Certificate(makeRoot("expired", [](CertificateSpec& spec) {
                                             spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
                                         }).der()));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException,
        "Failed to open system certificate store: ", store.addSystemCertificates(signing));
    EXPECT_EQ(store.size(), 1U);
}

TEST(PosixSystemCertificateLocations, FreeFunctionsReportPlacesOfDefaultAdder)
{
    SystemCertificateAdder const adder;
    EXPECT_EQ(getSystemCertificatesFile(), adder.file());
    EXPECT_EQ(getSystemCertificatesFolder(), adder.folder());
    ScopedVariable const noFile("SSL_CERT_FILE", "");
    ScopedVariable const noFolder("SSL_CERT_DIR", "");
    EXPECT_TRUE(getSystemCertificatesFile().empty() || getSystemCertificatesFolder().empty());
}

TEST(PosixSystemCertificateLocations, CloneKeepsPlaces)
{
    TemporaryFolder const folder;
    SystemCertificateAdder const adder = bundleAdder(folder.write("bundle.pem", rootPem("root")));
    std::unique_ptr<ISystemCertificateAdder> const clone(adder.clone());
    TrustStoreImpl store;
    clone->addCertificatesTo(store, serverAuthentication, true);
    EXPECT_EQ(store.size(), 1U);
}

TEST(PosixSystemCertificateFolder, FileWithSeveralLinksIsReadOnce)
{
    TemporaryFolder const folder;
    TemporaryFolder const elsewhere;
    auto const file = folder.write("a.pem", rootPem("a"));
    // Each read of this file writes a record.
    auto const damaged = elsewhere.write("damaged.pem", std::string("-----BEGIN CERTIFICATE-----\n"));
    fs::create_symlink("a.pem", folder.path() / "01234567.0");
    fs::create_symlink(file, folder.path() / "89abcdef.0");
    fs::create_symlink(damaged, folder.path() / "damaged.pem");
    fs::create_symlink("damaged.pem", folder.path() / "76543210.0");
    fs::create_symlink(damaged, folder.path() / "76543210.1");

    LogCapture const log;
    EXPECT_EQ(delivered(folderAdder(folder.path()), serverAuthentication, false), Names{"a"});
    EXPECT_EQ(
        log.messages(), std::vector<std::string>{
                            "Exception caught: foundation::certificates::TrustStoreException: Unusable PEM "
                            "block in " +
                            fs::canonical(damaged).string() + ": CERTIFICATE"});
}

TEST(PosixSystemCertificateFolder, OnlyRegularFilesAreRead)
{
    TemporaryFolder const folder;
    folder.write("root.crt", rootPem("root"));
    folder.write("README", std::string("no certificate"));
    folder.write("empty.pem", std::string());
    fs::create_directory(folder.path() / "subfolder.pem");
    fs::create_symlink("missing.pem", folder.path() / "dangling.pem");
    fs::create_symlink("circle.pem", folder.path() / "circle.pem");
    // Reading from a pipe would wait for a writer.
    ASSERT_EQ(mkfifo((folder.path() / "pipe.pem").c_str(), 0600), 0);
    EXPECT_EQ(delivered(folderAdder(folder.path())), Names{"root"});
}

#ifdef __linux__
// The memory of the process opens like a regular file. Address 0 cannot be read.
TEST(PosixSystemCertificateFolder, FileThatFailsWhileItIsReadIsLoggedAndSkipped)
{
    TemporaryFolder const folder;
    folder.write("a.pem", rootPem("a"));
    fs::create_symlink("/proc/self/mem", folder.path() / "failing.pem");
    auto const reason = "Failed to read " + fs::canonical("/proc/self/mem").string();
    LogCapture const log;
    EXPECT_EQ(delivered(folderAdder(folder.path()), serverAuthentication, false), Names{"a"});
    EXPECT_EQ(
        log.messages(), std::vector<std::string>{
                            "Exception caught: foundation::certificates::TrustStoreException: " + reason});

    EXPECT_THROWS_EXACTLY(TrustStoreException, reason, delivered(folderAdder(folder.path())));
}
#endif

TEST(PosixSystemCertificateFolder, EmptyFolderIsAllowed)
{
    TemporaryFolder const folder;
    EXPECT_EQ(delivered(folderAdder(folder.path())), Names());
}

TEST(PosixSystemCertificateFolder, BundlesInFolderAreRead)
{
    TemporaryFolder const folder;
    folder.write("bundle.crt", rootPem("a") + rootPem("b"));
    folder.write("a.pem", rootPem("a"));
    folder.write("c.pem", rootPem("c"));
    EXPECT_EQ(delivered(folderAdder(folder.path())), (Names{"a", "b", "c"}));
}

TEST(PosixSystemCertificateBundle, TextAroundBlocksIsIgnored)
{
    std::string windowsLineEnds;
    for (char const character : rootPem("b")) {
        windowsLineEnds += character == '\n' ? std::string("\r\n") : std::string(1, character);
    }
    std::string lastWithoutLineEnd = rootPem("c");
    lastWithoutLineEnd.pop_back();
    EXPECT_EQ(
        deliveredFrom(
            "# a heading\n" + rootPem("a") + "\n\nText between\n" + windowsLineEnds + lastWithoutLineEnd),
        (Names{"a", "b", "c"}));
    EXPECT_EQ(deliveredFrom(""), Names());
    EXPECT_EQ(deliveredFrom("no block at all\n-----END CERTIFICATE-----\n"), Names());
}

TEST(PosixSystemCertificateBundle, OlderLabelIsAccepted)
{
    EXPECT_EQ(deliveredFrom(relabelled(rootPem("a"), "X509 CERTIFICATE") + rootPem("b")), (Names{"a", "b"}));
}

TEST(PosixSystemCertificateBundle, WeakKeyIsDelivered)
{
    auto const weak = makeRoot("weak", [](CertificateSpec& spec) { spec.key = rsaKey(1023); });
    EXPECT_EQ(deliveredFrom(weak.pem()), Names{"weak"});
}

TEST(PosixSystemCertificateBundle, DamagedBlockIsLoggedAndSkipped)
{
    for (DamageRow const& row : damagedBlocks()) {
        SCOPED_TRACE(row.name);
        TemporaryFolder const folder;
        auto const file = folder.write("bundle.pem", rootPem("before") + row.block + rootPem("after"));
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        LogCapture const log;
        EXPECT_EQ(delivered(bundleAdder(file), serverAuthentication, false), (Names{"before", "after"}));
        std::string const reason = row.reportedLabel.empty()
                                       ? "Failed to parse DER data to X509 certificate. Cert size = 3\nCert "
                                         "Bytes =  0x01 0x02 0x03 \n"
                                       : "Unusable PEM block in " + file.string() + ": " + row.reportedLabel;
        ASSERT_EQ(log.records().size(), 1U);
        EXPECT_EQ(log.records().front().severity, 16);
        EXPECT_EQ(
            log.messages().front(),
            "Exception caught: foundation::certificates::TrustStoreException: " + reason);
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});

        EXPECT_THROWS_EXACTLY(TrustStoreException, reason, delivered(bundleAdder(file)));
        EXPECT_EQ(log.records().size(), 1U);
    }
}

TEST(PosixSystemCertificateBundle, PrivateKeyIsNotLogged)
{
    auto const key = p256Key("stray key");
    LogCapture const log;
    deliveredFrom(toPem(key), serverAuthentication, false);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages().front().find("0x"), std::string::npos);
}

TEST(PosixSystemCertificateBundle, ErrorQueueIsUnchangedAfterManyDamagedBlocks)
{
    std::string content;
    for (int count = 0; count < 40; ++count) {
        content += "-----BEGIN CERTIFICATE-----\nAQID\n-----END CERTIFICATE-----\n";
    }
    TemporaryFolder const folder;
    TrustStore store(
        std::make_unique<SystemCertificateAdder>(bundleAdder(folder.write("bundle.pem", content))));
    LogCapture const log;
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    store.addSystemCertificates(serverAuthentication);
    EXPECT_EQ(log.records().size(), 41U);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(PosixSystemCertificateUsage, ExtendedKeyUsageDecides)
{
    struct Row
    {
        std::string extendedKeyUsage;
        Fit fit;
    };
    std::vector<Row> const rows = {
        {"serverAuth", Fit::Servers},
        {"codeSigning", Fit::Signing},
        {"emailProtection", Fit::Signing},
        {"timeStamping", Fit::Signing},
        {"anyExtendedKeyUsage", Fit::Both},
        {"clientAuth", Fit::Neither},
        {"clientAuth,serverAuth", Fit::Servers},
        {"1.2.3.4,timeStamping", Fit::Signing},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.extendedKeyUsage);
        std::string const pem = pemFor("root", row.extendedKeyUsage);
        EXPECT_EQ(deliveredFrom(pem, serverAuthentication).size(), fitsServers(row.fit) ? 1U : 0U);
        EXPECT_EQ(deliveredFrom(pem, signing).size(), fitsSigning(row.fit) ? 1U : 0U);
        EXPECT_EQ(deliveredFrom(pem, unknownUsage), Names());
    }
}

TEST(PosixSystemCertificateUsage, UnrestrictedCertificateFitsEveryUsage)
{
    for (Usage const usage : {serverAuthentication, signing, unknownUsage}) {
        EXPECT_EQ(deliveredFrom(rootPem("unrestricted"), usage), Names{"unrestricted"});
    }
}

TEST(PosixSystemCertificateUsage, UnreadableRestrictionFitsNoUsage)
{
    for (Bytes const& content : {Bytes{0x30, 0x00}, Bytes{0x04, 0x01, 0x00}, Bytes{0x30, 0x7F}}) {
        auto const made = makeRoot(
            "odd", [&](CertificateSpec& spec) { spec.setRawExtension("extendedKeyUsage", content); });
        LogCapture const log;
        EXPECT_EQ(deliveredFrom(made.pem(), signing), Names());
        EXPECT_EQ(log.messages(), std::vector<std::string>());
    }
}

TEST(PosixSystemCertificateTrustSettings, SettingsRestrictUsageAndAreNotDelivered)
{
    std::vector<TrustRow> const rows = {
        TrustRow("no settings").fits(Fit::Both),
        TrustRow("trusted for servers").trustedFor({NID_server_auth}).fits(Fit::Servers),
        TrustRow("trusted for mail").trustedFor({NID_email_protect}).fits(Fit::Signing),
        TrustRow("trusted for all").trustedFor({NID_anyExtendedKeyUsage}).fits(Fit::Both),
        TrustRow("rejected for servers").rejectedFor({NID_server_auth}).fits(Fit::Signing),
        TrustRow("rejected for time stamps")
            .trustedFor({NID_server_auth, NID_code_sign})
            .rejectedFor({NID_time_stamp})
            .fits(Fit::Servers),
        TrustRow("rejected for all").rejectedFor({NID_anyExtendedKeyUsage}).fits(Fit::Neither),
    };
    for (TrustRow const& row : rows) {
        SCOPED_TRACE(row.name);
        std::string const pem = trustedPem(row.name, row.trusted, row.rejected);
        ASSERT_EQ(pem.rfind("-----BEGIN TRUSTED CERTIFICATE-----\n", 0), 0U);
        EXPECT_EQ(deliveredFrom(pem, serverAuthentication).size(), fitsServers(row.fit) ? 1U : 0U);
        EXPECT_EQ(deliveredFrom(pem, signing).size(), fitsSigning(row.fit) ? 1U : 0U);
    }
    TemporaryFolder const folder;
    auto adder = bundleAdder(folder.write("b.pem", trustedPem("root", {NID_server_auth}, {})));
    TrustStoreImpl store;
    adder.addCertificatesTo(store, serverAuthentication, true);
    EXPECT_EQ(X509_get0_trust_objects(store.x509At(0)), nullptr);
}
