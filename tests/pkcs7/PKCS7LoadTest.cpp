#include "support/Text.hpp"
#include "support/allocation/RefusedAllocation.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/StreamBuffers.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <sstream>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const noContent[] = "The provided PKCS7 certificate has no content.";
constexpr char const badStream[] = "The input PKCS7 certificate data stream is invalid.";
constexpr char const notPem[] =
    "Input certificate data was autodetected to be PEM-encoded, but is not in PEM "
    "encoding. Please verify the input data.";
constexpr char const notDer[] =
    "Input certificate data was autodetected to be DER-encoded, but is not in DER "
    "encoding. Please verify the input data.";
constexpr char const loadingFailed[] = "Error: Loading a certificate failed. Reason=";
constexpr char const wrongType[] =
    "Input PKCS7 certificate is corrupt. It doesn't have the right type field.";
constexpr char const certificateRefused[] =
    "Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.";

std::string const beginMarker = "-----BEGIN PKCS7-----";

CertificateAndKey const& signer()
{
    static auto const made = makeLeaf(makeRoot("root"), "signer");
    return made;
}

CertificateAndKey const& recipient()
{
    static auto const made =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    return made;
}

Pkcs7Handle const& signedData()
{
    static auto const made = makeSignedData("content", signer());
    return made;
}

/// Returns the first reason that OpenSSL queues when it reads the data.
std::string reasonOf(std::string const& data)
{
    CleanErrorQueue const clean;
    auto const bytes = asBytes(data);
    auto const bio = readerOf(bytes);
    auto const refuse = [](char*, int, int, void*) { return -1; };
    bool const isPem = data.find(beginMarker) != std::string::npos;
    PKCS7_free(
        isPem ? PEM_read_bio_PKCS7(bio.get(), nullptr, refuse, nullptr) : d2i_PKCS7_bio(bio.get(), nullptr));
    return oldestReasonText();
}

Pkcs7Handle readByBIO(Bytes const& der)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(BIO_write(bio.get(), der.data(), static_cast<int>(der.size())));
    return {d2i_PKCS7_bio(bio.get(), nullptr), PKCS7_free};
}

bool decodesFromMemory(Bytes const& der)
{
    CleanErrorQueue const clean;
    unsigned char const* position = der.data();
    return Pkcs7Handle(d2i_PKCS7(nullptr, &position, static_cast<long>(der.size())), PKCS7_free) != nullptr;
}

/// Returns what a load must do according to OpenSSL's decoder for BIOs: the text of the failure, or "loaded".
std::string outcomeByBIO(Bytes const& der)
{
    CleanErrorQueue const clean;
    auto const structure = readByBIO(der);
    if (ERR_GET_REASON(ERR_peek_error()) == ASN1_R_WRONG_TAG) {
        return notDer;
    }
    if (structure == nullptr || ERR_peek_error() != 0) {
        return loadingFailed + oldestReasonText();
    }
    int const type = OBJ_obj2nid(structure->type);
    return type == NID_pkcs7_signed || type == NID_pkcs7_signedAndEnveloped ? "loaded" : wrongType;
}

/// Returns what a load does.
std::string outcomeOfLoad(Bytes const& der)
{
    try {
        PKCS7Certificate const loaded(der);
        return "loaded";
    } catch (CertificateException const& failure) {
        return failure.what();
    }
}

Bytes withoutCertificates()
{
    SignedDataSpec spec;
    spec.signers = {signer()};
    spec.withoutCertificates = true;
    return toDer(makeSignedData(spec));
}

/// Returns the content of an element whose length takes the given number of bytes after the first one.
Bytes contentOf(Bytes const& element)
{
    std::size_t const lengthField = element.at(1) < 0x80 ? 0U : element.at(1) - 0x80U;
    return Bytes(element.begin() + 2 + static_cast<std::ptrdiff_t>(lengthField), element.end());
}

/// Returns a sequence whose length has leading zeros, so that it takes the given number of bytes.
Bytes withLengthField(Bytes const& content, int size)
{
    Bytes header{0x30, static_cast<unsigned char>(0x80 + size)};
    for (int index = size - 1; index >= 0; --index) {
        bool const isZero = index >= static_cast<int>(sizeof(std::size_t));
        header.push_back(isZero ? 0 : static_cast<unsigned char>(content.size() >> (8 * index)));
    }
    return joined({header, content});
}

Bytes withIndefiniteLength(int tag, Bytes const& content)
{
    return joined({{static_cast<unsigned char>(tag), 0x80}, content, {0, 0}});
}

/// Returns signed data without signers, in elements of indefinite length. The certificates are a set without
/// elements, or absent.
Bytes indefiniteSignedData(bool hasEmptyCertificates)
{
    auto const type = contentInfoWithoutContent(NID_pkcs7_signed);
    Bytes const version{0x02, 0x01, 0x01};
    Bytes const emptySet{0x31, 0x00};
    Bytes const certificates = hasEmptyCertificates ? Bytes{0xA0, 0x00} : Bytes();
    auto const content = contentInfoWithoutContent(NID_pkcs7_data);
    auto const body =
        withIndefiniteLength(0x30, joined({version, emptySet, content, certificates, emptySet}));
    return withIndefiniteLength(0x30, joined({contentOf(type), withIndefiniteLength(0xA0, body)}));
}

} // namespace

TEST(PKCS7Load, BytesStringAndStreamLoadInBothEncodings)
{
    for (auto const& data : {asText(toDer(signedData())), toPem(signedData())}) {
        std::istringstream stream(data);
        for (auto const& loaded :
             {PKCS7Certificate(asBytes(data)), PKCS7Certificate(data), PKCS7Certificate(stream)}) {
            EXPECT_EQ(derOf(loaded.getCertificates()), std::vector<Bytes>{signer().der()});
            EXPECT_EQ(asText(loaded.getSignedData()), "content");
        }
    }
}

TEST(PKCS7Load, EncodingsHaveFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(CertificateEncoding::PEM), 0);
    EXPECT_EQ(static_cast<int>(CertificateEncoding::DER), 1);
}

TEST(PKCS7Load, EmptyInputIsRefused)
{
    std::istringstream stream;
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, PKCS7Certificate(ByteArray()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, PKCS7Certificate(std::string()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, noContent, PKCS7Certificate(stream));
}

TEST(PKCS7Load, StreamThatIsNotGoodIsNotRead)
{
    for (auto const state : {std::ios::failbit, std::ios::badbit, std::ios::eofbit}) {
        std::istringstream stream(toPem(signedData()));
        stream.setstate(state);
        EXPECT_THROWS_EXACTLY(InvalidArgument, badStream, PKCS7Certificate(stream));
        EXPECT_EQ(stream.rdbuf()->sgetc(), '-');
    }
}

TEST(PKCS7Load, StreamIsReadThroughItsBuffer)
{
    // Formatted input would skip the leading white space.
    std::istringstream stream(" \n" + toPem(signedData()));
    PKCS7Certificate const loaded(stream);
    EXPECT_EQ(loaded.getNumCertificates(), 1u);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.rdbuf()->sgetc(), std::char_traits<char>::eof());
}

TEST(PKCS7Load, UnreadableStreamReportsItsCause)
{
    BrokenBuffer buffer("the connection is gone");
    std::istream stream(&buffer);
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The input PKCS7 certificate data stream is invalid. Reason:the connection is gone",
        PKCS7Certificate(stream));
}

TEST(PKCS7Load, StringThatCannotBeCopiedReportsItsCause)
{
    std::string const data(123457, 'x');
    RefusedAllocation const refused(data.size());
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The input PKCS7 certificate data string is invalid. Reason:std::bad_alloc",
        PKCS7Certificate(data));
}

TEST(PKCS7Load, MarkerAnywhereSelectsPem)
{
    std::string const pem = toPem(signedData());
    std::string withCarriageReturns;
    for (char const character : pem) {
        withCarriageReturns.append(character == '\n' ? "\r\n" : std::string(1, character));
    }
    std::vector<std::string> const loadable{
        "a comment\n\nand another\n" + pem,
        toPem(signer().key) + pem, // OpenSSL skips a block of another kind
        pem + toPem(makeSignedData("second", signer())),
        pem + "trailing text",
        withCarriageReturns,
    };
    for (auto const& data : loadable) {
        EXPECT_EQ(asText(PKCS7Certificate(data).getSignedData()), "content") << data;
    }
}

TEST(PKCS7Load, MarkerWithoutPemBlockIsRefused)
{
    std::vector<std::string> const unloadable{
        "in the middle of a line " + toPem(signedData()),
        asText(toDer(makeSignedData(beginMarker, signer()))), // DER with the marker in its content
        "\x01" + beginMarker + "\n",
    };
    for (auto const& data : unloadable) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, notPem, PKCS7Certificate(data));
    }
}

TEST(PKCS7Load, WrongTagWithoutMarkerIsRefused)
{
    std::vector<std::string> const unloadable{
        signer().pem(),
        asText(signer().der()),
        "-----BEGIN PKCS #7 SIGNED DATA-----\n" + toPem(signedData()).substr(beginMarker.size() + 1),
        "-----BEGIN CMS-----\n" + toPem(signedData()).substr(beginMarker.size() + 1),
        std::string(200, 'a'),
    };
    for (auto const& data : unloadable) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, notDer, PKCS7Certificate(data));
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(PKCS7Load, InputShorterThanTheMarkerIsReadAsDer)
{
    std::string const oneCharacterShort = beginMarker.substr(0, 20);
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException, loadingFailed + reasonOf(oneCharacterShort),
        PKCS7Certificate(oneCharacterShort));
    EXPECT_THROWS_EXACTLY(InvalidArgument, notDer, PKCS7Certificate(std::string("\x04\x00", 2)));
}

TEST(PKCS7Load, UnreadableInputReportsOpenSSLsReason)
{
    auto const der = toDer(signedData());
    std::string damagedBase64 = toPem(signedData());
    damagedBase64[beginMarker.size() + 10] = '*';
    std::vector<std::string> const unloadable{
        asText(Bytes(der.begin(), der.end() - 1)),
        asText(Bytes(der.begin(), der.begin() + 1)),
        beginMarker,
        damagedBase64,
        signer().pem() + toPem(signedData()), // OpenSSL also reads this label as signed data
        toPem(signedData()).substr(0, 200),
    };
    for (auto const& data : unloadable) {
        auto const reason = reasonOf(data);
        EXPECT_NE(reason, "");
        EXPECT_THROWS_EXACTLY(PKCS7CertificateException, loadingFailed + reason, PKCS7Certificate(data));
        EXPECT_TRUE(queueIsEmpty());
    }
}

// OpenSSL decodes an element from memory and from a BIO by different rules. The rules for a BIO hold.

TEST(PKCS7Load, DamagedHeaderGetsTheOutcomeOfABIO)
{
    constexpr std::size_t lastChanged = 40;
    auto const whole = withoutCertificates();
    ASSERT_EQ(outcomeOfLoad(whole), "loaded");
    for (std::size_t index = 0; index < lastChanged; ++index) {
        for (int value = 0; value <= 0xFF; ++value) {
            auto damaged = whole;
            damaged[index] = static_cast<unsigned char>(value);
            EXPECT_EQ(outcomeOfLoad(damaged), outcomeByBIO(damaged))
                << "byte " << index << " changed to " << value;
        }
    }
}

TEST(PKCS7Load, TruncationGetsTheOutcomeOfABIO)
{
    auto const whole = withoutCertificates();
    for (std::size_t size = 1; size <= whole.size(); ++size) {
        Bytes const part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(outcomeOfLoad(part), outcomeByBIO(part)) << size;
    }
}

TEST(PKCS7Load, LongLengthFieldGetsTheOutcomeOfABIO)
{
    auto const content = contentOf(withoutCertificates());
    for (int size = 2; size <= 20; ++size) {
        auto const data = withLengthField(content, size);
        EXPECT_EQ(outcomeOfLoad(data), outcomeByBIO(data)) << size;
    }
    EXPECT_EQ(outcomeOfLoad(withLengthField(content, 5)), "loaded");
    // OpenSSL 3.0 refuses this one from a BIO, later releases do not.
    EXPECT_TRUE(decodesFromMemory(withLengthField(content, 6)));
}

TEST(PKCS7Load, IndefiniteLengthGetsTheOutcomeOfABIO)
{
    auto const plain = indefiniteSignedData(false);
    EXPECT_EQ(outcomeOfLoad(plain), "loaded");
    EXPECT_EQ(outcomeByBIO(plain), "loaded");

    // OpenSSL takes the empty element for the end when it reads from a BIO.
    auto const withEmptyElement = indefiniteSignedData(true);
    EXPECT_TRUE(decodesFromMemory(withEmptyElement));
    EXPECT_EQ(outcomeOfLoad(withEmptyElement), outcomeByBIO(withEmptyElement));
    EXPECT_NE(outcomeOfLoad(withEmptyElement), "loaded");
}

TEST(PKCS7Load, TrailingBytesAreIgnored)
{
    auto der = toDer(signedData());
    der.insert(der.end(), {0x30, 0x80, 0xFF});
    EXPECT_EQ(PKCS7Certificate(der).getNumCertificates(), 1u);
}

TEST(PKCS7Load, EarlierErrorInTheQueueHasNoEffect)
{
    CleanErrorQueue const clean;
    queueForeignError();
    EXPECT_EQ(PKCS7Certificate(toDer(signedData())).getNumCertificates(), 1u);
    EXPECT_TRUE(queueIsEmpty());
}

TEST(PKCS7Load, OtherContentTypesAreRefused)
{
    std::vector<Bytes> const others{
        toDer(makePlainData("content")),
        toDer(makeDigestedData("content")),
        toDer(makeEncryptedData()),
        toDer(makeEnvelopedData("content", recipient())),
        contentInfoWithoutContent(NID_pkcs7_data),
        contentInfoWithoutContent(NID_pkcs7_enveloped),
        contentInfoWithoutContent(NID_pkcs7_digest),
        contentInfoWithoutContent(NID_pkcs7_encrypted),
        contentInfoWithoutContent(NID_commonName),
    };
    for (auto const& der : others) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, wrongType, PKCS7Certificate(der));
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(PKCS7Load, SignedAndEnvelopedDataLoads)
{
    PKCS7Certificate const loaded(toDer(makeSignedAndEnvelopedData("content", signer(), recipient())));
    EXPECT_EQ(derOf(loaded.getCertificates()), std::vector<Bytes>{signer().der()});
}

TEST(PKCS7Load, SignedDataWithoutCertificatesLoads)
{
    SignedDataSpec spec;
    spec.signers = {signer()};
    spec.withoutCertificates = true;
    PKCS7Certificate const loaded(toDer(makeSignedData(spec)));
    EXPECT_EQ(loaded.getNumCertificates(), 0u);
    EXPECT_TRUE(loaded.empty());
}

TEST(PKCS7Load, EmbeddedCertificateWithUnsupportedKeyIsRefused)
{
    struct Row
    {
        KeyHandle key;
        std::string reason;
    };
    std::vector<Row> const rows{
        {rsaKey(1023), "RSA key size does not meet minimum cryptographic requirements"},
        {p384Key(), "ECC-based key is not using supported ECC Curve. Curve: secp384r1"},
        {ed448Key(), "Key uses Ed448, which is not currently supported"},
    };
    for (auto const& row : rows) {
        auto const unsupported =
            makeSelfSignedLeaf("unsupported", [&](CertificateSpec& spec) { spec.key = row.key; });
        auto const data = toDer(makeSignedData("content", signer(), {unsupported.certificate}));
        EXPECT_THROWS_EXACTLY(
            PKCS7CertificateException, certificateRefused + row.reason, PKCS7Certificate(data));
        EXPECT_TRUE(queueIsEmpty());
    }
}
