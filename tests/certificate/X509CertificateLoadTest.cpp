#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/EncryptedPem.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/StreamBuffers.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <sstream>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const noContent[] = "The input certificate has no content.";
constexpr char const badStream[] = "The input certificate data stream is invalid.";
constexpr char const notPem[] =
    "Input certificate data was autodetected to be PEM-encoded, but is not in PEM "
    "encoding. Please verify the input data.";
constexpr char const notDer[] =
    "Input certificate data was autodetected to be DER-encoded, but is not in DER "
    "encoding. Please verify the input data.";
constexpr char const loadingFailed[] = "Error: Loading a certificate failed. Reason=";
constexpr char const weakKey[] = "RSA key size does not meet minimum cryptographic requirements";

std::string const beginMarker = "-----BEGIN CERTIFICATE-----";

std::string replaced(std::string text, std::string const& from, std::string const& to)
{
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// Returns the reason that OpenSSL queues first when it reads the data alone.
std::string reasonOf(std::string const& data)
{
    CleanErrorQueue const clean;
    auto const bytes = asBytes(data);
    auto const bio = readerOf(bytes);
    auto const refuse = [](char*, int, int, void*) { return -1; };
    bool const isPem = data.find(beginMarker) != std::string::npos;
    X509_free(
        isPem ? PEM_read_bio_X509(bio.get(), nullptr, refuse, nullptr) : d2i_X509_bio(bio.get(), nullptr));
    return oldestReasonText();
}

CertificateAndKey const& sample()
{
    static auto const made = makeRoot("sample");
    return made;
}

CertificateAndKey withKey(KeyHandle const& key)
{
    return makeRoot("root", [&](CertificateSpec& spec) {
        spec.key = key;
        spec.signer = sample();
    });
}

/// Runs each test with an empty error queue and with an entry of the caller in it. A load that read any bytes
/// leaves the queue empty.
class X509CertificateLoad : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        if (GetParam()) {
            foreignError = queueForeignError();
        }
    }

    void expectEmptyQueue() const { EXPECT_TRUE(queueIsEmpty()); }
    void expectUntouchedQueue() const { EXPECT_EQ(oldestError(), foreignError); }

    /// Expects this certificate from all three forms of input.
    void expectLoads(std::string const& data, X509Handle const& expected)
    {
        auto const der = toDer(expected);
        EXPECT_EQ(X509Certificate(asBytes(data)).getAsBytes(), der);
        expectEmptyQueue();
        EXPECT_EQ(X509Certificate(data).getAsBytes(), der);
        std::istringstream stream(data);
        EXPECT_EQ(X509Certificate(stream).getAsBytes(), der);
        expectEmptyQueue();
    }

    /// Expects this failure of all three forms of input.
    template <class Exception>
    void expectRefused(std::string const& data, std::string const& text)
    {
        EXPECT_THROWS_EXACTLY(Exception, text, X509Certificate(asBytes(data)));
        expectEmptyQueue();
        EXPECT_THROWS_EXACTLY(Exception, text, X509Certificate(data));
        std::istringstream stream(data);
        EXPECT_THROWS_EXACTLY(Exception, text, X509Certificate(stream));
        expectEmptyQueue();
    }

private:
    CleanErrorQueue clean;
    unsigned long foreignError = 0;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(WithForeignError, X509CertificateLoad, testing::Bool());

TEST_P(X509CertificateLoad, ReadsDer)
{
    expectLoads(asText(sample().der()), sample().certificate);
}

TEST_P(X509CertificateLoad, ReadsPem)
{
    expectLoads(sample().pem(), sample().certificate);
}

TEST_P(X509CertificateLoad, ReadsPemWithDosLineEnds)
{
    expectLoads(replaced(sample().pem(), "\n", "\r\n"), sample().certificate);
}

TEST_P(X509CertificateLoad, FindsPemAfterCommentLines)
{
    expectLoads("Bag Attributes\n    friendlyName: x\n\n# comment\n" + sample().pem(), sample().certificate);
}

TEST_P(X509CertificateLoad, SkipsBlocksWithOtherLabels)
{
    expectLoads(toPem(p256Key(), "a passphrase") + toPem(p256Key()) + sample().pem(), sample().certificate);
}

TEST_P(X509CertificateLoad, ReadsFirstOfSeveralCertificates)
{
    auto const other = makeRoot("other");
    expectLoads(sample().pem() + other.pem(), sample().certificate);
    expectLoads(other.pem() + sample().pem(), other.certificate);
    expectLoads(asText(sample().der()) + asText(other.der()), sample().certificate);
}

TEST_P(X509CertificateLoad, IgnoresWhatFollowsCertificate)
{
    expectLoads(asText(sample().der()) + "trailing bytes", sample().certificate);
    expectLoads(sample().pem() + "-----BEGIN CERTIFICATE-----\nbroken", sample().certificate);
    expectLoads(asText(sample().der()) + std::string(1 << 22, '\0'), sample().certificate);
}

TEST_P(X509CertificateLoad, RefusesEmptyInput)
{
    std::istringstream stream("");
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, X509Certificate(ByteArray()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, X509Certificate(std::string()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, X509Certificate(stream));
    expectUntouchedQueue();
}

TEST_P(X509CertificateLoad, ReadsNothingFromFailedStream)
{
    for (auto const state : {std::ios::failbit, std::ios::eofbit, std::ios::badbit}) {
        std::istringstream stream(sample().pem());
        stream.setstate(state);
        EXPECT_THROWS_EXACTLY(InvalidArgument, badStream, X509Certificate(stream));
        stream.clear();
        EXPECT_EQ(stream.tellg(), std::streampos(0));
    }
    expectUntouchedQueue();
}

TEST_P(X509CertificateLoad, RefusesStreamWithoutBuffer)
{
    std::istream stream(nullptr);
    EXPECT_THROWS_EXACTLY(InvalidArgument, badStream, X509Certificate(stream));
    expectUntouchedQueue();
}

TEST_P(X509CertificateLoad, ReportsExceptionOfStreamBuffer)
{
    BrokenBuffer buffer("the disc is broken");
    std::istream stream(&buffer);
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The input certificate data stream is invalid. Reason:the disc is broken",
        X509Certificate(stream));
    expectUntouchedQueue();
}

TEST_P(X509CertificateLoad, ReadsRestOfStreamAndKeepsItsFlags)
{
    std::istringstream stream("skip" + asText(sample().der()));
    stream.ignore(4);
    EXPECT_EQ(X509Certificate(stream).getAsBytes(), sample().der());
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.rdbuf()->in_avail(), 0);
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, X509Certificate(stream));
}

TEST_P(X509CertificateLoad, KeepsWhiteSpaceOfStream)
{
    // Without the PEM marker the data is DER, and a blank is the wrong first byte.
    std::istringstream stream(" " + asText(sample().der()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, notDer, X509Certificate(stream));
    expectEmptyQueue();
}

TEST_P(X509CertificateLoad, RefusesWrongTagAsNotDer)
{
    for (char const* data : {"\x04\x01x", "\x31\x03\x02\x01\x05", "\x30\x03\x02\x01\x05"}) {
        expectRefused<InvalidArgument>(data, notDer);
    }
}

TEST_P(X509CertificateLoad, ReadsPemBlocksWithOtherLabelsAsDer)
{
    for (char const* label : {"TRUSTED CERTIFICATE", "X509 CERTIFICATE", "PRIVATE KEY", "PKCS7"}) {
        auto const data = replaced(sample().pem(), "CERTIFICATE", label);
        expectRefused<InvalidArgument>(data, notDer);
    }
}

TEST_P(X509CertificateLoad, ReadsInputShorterThanMarkerAsDer)
{
    for (std::size_t size = 1; size < beginMarker.size(); ++size) {
        auto const data = beginMarker.substr(0, size);
        ASSERT_NE(reasonOf(data), "");
        expectRefused<X509CertificateException>(data, loadingFailed + reasonOf(data));
    }
}

TEST_P(X509CertificateLoad, ReportsOpenSSLsReasonForTruncatedDer)
{
    auto const data = asText(sample().der());
    for (std::size_t const size : {std::size_t(1), std::size_t(2), std::size_t(10), data.size() - 1}) {
        auto const truncated = data.substr(0, size);
        ASSERT_NE(reasonOf(truncated), "");
        expectRefused<X509CertificateException>(truncated, loadingFailed + reasonOf(truncated));
    }
}

TEST_P(X509CertificateLoad, RefusesMarkerInsideLineAsNotPem)
{
    auto const pem = sample().pem();
    for (std::string const& data : {"text " + pem, "x" + beginMarker + "\n", " " + pem}) {
        expectRefused<InvalidArgument>(data, notPem);
    }
}

TEST_P(X509CertificateLoad, ReadsDerThatContainsMarkerAsPem)
{
    auto const certificate = makeRoot("root", [](CertificateSpec& spec) {
        spec.subject = {{"CN", "root"}, {"O", beginMarker}};
    });
    expectRefused<InvalidArgument>(asText(certificate.der()), notPem);
}

TEST_P(X509CertificateLoad, ReportsOpenSSLsReasonForBrokenBase64)
{
    auto data = sample().pem();
    data[beginMarker.size() + 20] = '!';
    ASSERT_NE(reasonOf(data), "");
    expectRefused<X509CertificateException>(data, loadingFailed + reasonOf(data));
}

TEST_P(X509CertificateLoad, ReportsOpenSSLsReasonForIncompletePem)
{
    auto const pem = sample().pem();
    for (std::string const& data :
         {beginMarker + "\n-----END CERTIFICATE-----\n", beginMarker + "\n", beginMarker,
          pem.substr(0, pem.size() / 2), replaced(pem, "END CERTIFICATE", "END X509 CRL")}) {
        expectRefused<X509CertificateException>(data, loadingFailed + reasonOf(data));
    }
}

TEST_P(X509CertificateLoad, ReportsOpenSSLsReasonForOtherContent)
{
    auto const data = replaced(toPem(p256Key()), "PRIVATE KEY", "CERTIFICATE");
    ASSERT_NE(reasonOf(data), "");
    expectRefused<X509CertificateException>(data, loadingFailed + reasonOf(data));
}

TEST_P(X509CertificateLoad, RefusesEncryptedBlockLikeUnreadableOne)
{
    auto const data = toEncryptedPem(sample().certificate);
    ASSERT_NE(data.find("Proc-Type: 4,ENCRYPTED"), std::string::npos);
    expectRefused<X509CertificateException>(
        data, loadingFailed + reasonText(ERR_LIB_PEM, PEM_R_BAD_PASSWORD_READ));
}

TEST_P(X509CertificateLoad, AcceptsSupportedKeys)
{
    for (auto const& key : {rsaKey(1024), rsaKey(2048), p256Key(), explicitP256Key(), ed25519Key()}) {
        auto const made = withKey(key);
        expectLoads(made.pem(), made.certificate);
    }
}

TEST_P(X509CertificateLoad, RefusesRsaKeysBelow1024Bits)
{
    expectRefused<X509CertificateException>(withKey(rsaKey(1023)).pem(), weakKey);
    expectRefused<X509CertificateException>(asText(withKey(rsaKey(512)).der()), weakKey);
}

TEST_P(X509CertificateLoad, NamesUnsupportedCurve)
{
    std::string const text = "ECC-based key is not using supported ECC Curve. Curve: ";
    expectRefused<UnsupportedEllipticCurve>(withKey(p384Key()).pem(), text + "secp384r1");
    expectRefused<UnsupportedEllipticCurve>(withKey(p521Key()).pem(), text + "secp521r1");
    expectRefused<UnsupportedEllipticCurve>(withKey(secp256k1Key()).pem(), text + "secp256k1");
    expectRefused<UnsupportedEllipticCurve>(
        withKey(ed448Key()).pem(), "Key uses Ed448, which is not currently supported");
}

TEST_P(X509CertificateLoad, RefusesCurveWithoutName)
{
    auto const made =
        makeRoot("root", [](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::NamelessCurve; });
    expectRefused<CertificateException>(
        made.pem(), acceptsNamelessCurves()
                        ? "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC"
                        : "Failed to sanity check EVP_PKEY. Argument is nullptr");
}

TEST_P(X509CertificateLoad, NumbersUnsupportedKeyType)
{
    std::string const text = "Key is not currently supported. OpenSSL type id: ";
    expectRefused<UnsupportedKeyType>(withKey(dsaKey()).pem(), text + "116");
    expectRefused<UnsupportedKeyType>(withKey(x25519Key()).pem(), text + "1034");
    expectRefused<UnsupportedKeyType>(withKey(rsaPssKey(1024)).pem(), text + "912");
}

TEST_P(X509CertificateLoad, RefusesUndecodableKey)
{
    for (auto const& key : {rsaKey(1024), p256Key(), ed25519Key()}) {
        for (auto const fault : {PublicKeyFault::Undecodable, PublicKeyFault::UnknownType}) {
            auto const made = makeRoot("root", [&](CertificateSpec& spec) {
                spec.key = key;
                spec.publicKeyFault = fault;
            });
            expectRefused<CertificateException>(
                asText(made.der()), "Failed to sanity check EVP_PKEY. Argument is nullptr");
        }
    }
}

TEST_P(X509CertificateLoad, AcceptsExtensionsInVersion1)
{
    auto const made = makeRoot("root", [](CertificateSpec& spec) {
        spec.version = X509_VERSION_1;
        spec.setExtension("extendedKeyUsage", "codeSigning");
    });
    expectLoads(made.pem(), made.certificate);
    X509Certificate const certificate(made.der());
    EXPECT_EQ(certificate.getExtendedKeyUsages(), std::vector<std::string>{"1.3.6.1.5.5.7.3.3"});
    EXPECT_EQ(certificate.isCACertificate(), X509_check_ca(made.certificate.get()) > 0);
    EXPECT_EQ(certificate.getAsBytes(), made.der());
}

TEST_P(X509CertificateLoad, ChecksNeitherDatesNorSignature)
{
    auto const made = makeRoot("root", [](CertificateSpec& spec) {
        spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
        spec.damagedSignature = true;
    });
    expectLoads(made.pem(), made.certificate);
}

TEST(X509CertificateImplFromX509, DuplicatesCertificate)
{
    X509CertificateImpl const implementation(sample().certificate.get());
    auto const duplicate = own(implementation.duplicateX509());
    EXPECT_NE(duplicate, sample().certificate);
    EXPECT_EQ(toDer(duplicate), sample().der());
}

TEST(X509CertificateImplFromX509, RefusesUnsupportedKeyAndNull)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, weakKey, X509CertificateImpl(withKey(rsaKey(512)).certificate.get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "Key uses Ed448, which is not currently supported",
        X509CertificateImpl(withKey(ed448Key()).certificate.get()));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509CertificateImpl(static_cast<X509*>(nullptr)));
}

TEST(X509CertificateImplFromX509, HasNoDuplicateWithoutContent)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509CertificateImpl().duplicateX509());
}
