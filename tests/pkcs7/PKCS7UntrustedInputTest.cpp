#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

// Signed data from an attacker. No operation on it may crash or leak, and no such signature may verify.

namespace {

constexpr char const wrongType[] =
    "Input PKCS7 certificate is corrupt. It doesn't have the right type field.";

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

CertificateAndKey const& signer()
{
    static auto const made = makeLeaf(root(), "signer");
    return made;
}

CertificateAndKey const& intermediate()
{
    static auto const made = makeIntermediate(root(), std::string(64, 'i'));
    return made;
}

/// A signer whose issuer has a long name, so that its SignerInfo is long too.
CertificateAndKey const& longNamedSigner()
{
    static auto const made = makeLeaf(intermediate(), "long-named signer");
    return made;
}

CertificateAndKey const& recipient()
{
    static auto const made =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    return made;
}

TrustStore const& trusted()
{
    static auto const store = storeOf({root()});
    return store;
}

PKCS7CertificateValidationResults verify(PKCS7Certificate const& loaded, std::string const& content)
{
    CleanErrorQueue const clean;
    return loaded.verifySignature(
        X509CertificateChain(), trusted(), ByteArray(content.begin(), content.end()));
}

/// Runs all operations on the object. None may throw: only the output of an object without structure does,
/// and these objects have one.
void useAll(PKCS7Certificate const& loaded)
{
    CleanErrorQueue const clean;
    PKCS7Certificate const copy(loaded);
    EXPECT_TRUE(copy == loaded);
    EXPECT_EQ(copy.getAsBytes().empty(), copy.empty());
    EXPECT_EQ(copy.getAsString().empty(), copy.empty());
    EXPECT_EQ(copy.getCertificates().size(), copy.getNumCertificates());
    EXPECT_LE(copy.getSignerCerts().getNumCertificates(), 100u);
    copy.getSignedData();
    verify(copy, "");
    verify(copy, "content");
    std::ostringstream() << copy;
}

/// Returns the object if the bytes load. Fails the test unless a refusal is a documented one.
std::optional<PKCS7Certificate> loadOrRefuse(Bytes const& bytes)
{
    try {
        return PKCS7Certificate(bytes);
    } catch (InvalidArgument const&) {
        EXPECT_TRUE(queueIsEmpty());
    } catch (PKCS7CertificateException const&) {
        EXPECT_TRUE(queueIsEmpty());
    }
    return std::nullopt;
}

/// Whether the signatures verify in OpenSSL.
bool verifiesInOpenSSL(Bytes const& bytes)
{
    CleanErrorQueue const clean;
    std::shared_ptr<PKCS7> const pkcs7(d2i_PKCS7_bio(readerOf(bytes).get(), nullptr), PKCS7_free);
    return pkcs7 && pkcs7->d.ptr != nullptr &&
           PKCS7_verify(pkcs7.get(), nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY) == 1;
}

Bytes signedData()
{
    return toDer(makeSignedData("content", signer()));
}

/// Returns signed data after a change to its structure.
Bytes withChange(std::function<void(PKCS7_SIGNED&)> const& change)
{
    auto const pkcs7 = makeSignedData("content", signer());
    change(*pkcs7->d.sign);
    return toDer(pkcs7);
}

void withoutCertificates(PKCS7_SIGNED& body)
{
    sk_X509_pop_free(body.cert, X509_free);
    body.cert = nullptr;
}

void withoutSigners(PKCS7_SIGNED& body)
{
    sk_PKCS7_SIGNER_INFO_pop_free(body.signer_info, PKCS7_SIGNER_INFO_free);
    body.signer_info = sk_PKCS7_SIGNER_INFO_new_null();
}

void withoutContent(PKCS7_SIGNED& body)
{
    ASN1_OCTET_STRING_free(body.contents->d.data);
    body.contents->d.data = nullptr;
}

void withoutDigests(PKCS7_SIGNED& body)
{
    sk_X509_ALGOR_pop_free(body.md_algs, X509_ALGOR_free);
    body.md_algs = sk_X509_ALGOR_new_null();
}

void withoutAttributes(PKCS7_SIGNED& body)
{
    auto* const info = sk_PKCS7_SIGNER_INFO_value(body.signer_info, 0);
    sk_X509_ATTRIBUTE_pop_free(info->auth_attr, X509_ATTRIBUTE_free);
    info->auth_attr = nullptr;
}

void withUnknownDigest(PKCS7_SIGNED& body)
{
    auto* const info = sk_PKCS7_SIGNER_INFO_value(body.signer_info, 0);
    require(X509_ALGOR_set0(info->digest_alg, OBJ_nid2obj(NID_commonName), V_ASN1_NULL, nullptr));
    require(X509_ALGOR_set0(
        sk_X509_ALGOR_value(body.md_algs, 0), OBJ_nid2obj(NID_commonName), V_ASN1_NULL, nullptr));
}

void withEmptySignature(PKCS7_SIGNED& body)
{
    ASN1_STRING_set(sk_PKCS7_SIGNER_INFO_value(body.signer_info, 0)->enc_digest, "", 0);
}

/// Replaces the content by signed data.
void withNestedSignedData(PKCS7_SIGNED& body)
{
    PKCS7_free(body.contents);
    body.contents = PKCS7_dup(makeSignedData("inner", signer()).get());
}

void withContentOfAnotherType(PKCS7_SIGNED& body)
{
    PKCS7_free(body.contents);
    body.contents = PKCS7_dup(makeEnvelopedData("inner", recipient()).get());
}

struct Row
{
    char const* name;
    void (*change)(PKCS7_SIGNED&);
    std::size_t certificates;
};

std::vector<Row> structuresWithMissingMembers()
{
    return {
        {"no certificates", withoutCertificates, 0},
        {"no signers", withoutSigners, 1},
        {"no content", withoutContent, 1},
        {"no digest algorithms", withoutDigests, 1},
        {"no signed attributes", withoutAttributes, 1},
        {"unknown digest algorithm", withUnknownDigest, 1},
        {"empty signature", withEmptySignature, 1},
        {"signed data inside", withNestedSignedData, 1},
        {"enveloped data inside", withContentOfAnotherType, 1},
        {"no member",
         [](PKCS7_SIGNED& body) {
             withoutCertificates(body);
             withoutSigners(body);
             withoutContent(body);
             withoutDigests(body);
         },
         0},
    };
}

/// Returns signed data around the given content, without certificates and signers.
Bytes signedAround(Bytes const& content)
{
    Bytes const version{0x02, 0x01, 0x01};
    Bytes const emptySet{0x31, 0x00};
    auto const type = contentInfoWithoutContent(NID_pkcs7_signed);
    auto const body = derElement(0x30, joined({version, emptySet, content, emptySet}));
    return derElement(0x30, joined({Bytes(type.begin() + 2, type.end()), derElement(0xA0, body)}));
}

/// Returns signed data whose message digest attribute has a value of the given type, not an octet string.
Bytes withDigestAttribute(int type, void* value)
{
    return withChange([&](PKCS7_SIGNED& body) {
        auto* const info = sk_PKCS7_SIGNER_INFO_value(body.signer_info, 0);
        require(PKCS7_add_signed_attribute(info, NID_pkcs9_messageDigest, type, value));
    });
}

using SignerChange = void (*)(PKCS7_SIGNER_INFO&);

void leaveSigner(PKCS7_SIGNER_INFO&) {}

void mistypeDigest(PKCS7_SIGNER_INFO& signer)
{
    require(PKCS7_add_signed_attribute(
        &signer, NID_pkcs9_messageDigest, V_ASN1_OBJECT, OBJ_nid2obj(NID_commonName)));
}

/// The digest fits no content, and the signature does not fit the attributes: OpenSSL compares the digest
/// first.
void changeDigest(PKCS7_SIGNER_INFO& signer)
{
    std::string const digest(32, 'd');
    require(PKCS7_add1_attrib_digest(
        &signer, reinterpret_cast<unsigned char const*>(digest.data()), static_cast<int>(digest.size())));
}

/// The digest fits the content, and the signature does not fit the attributes.
void changeAttributes(PKCS7_SIGNER_INFO& signer)
{
    require(PKCS7_add0_attrib_signing_time(&signer, ASN1_TIME_set(nullptr, 0)));
}

enum class SignerOrder
{
    Encoding, ///< as DER sorts the signers
    Reversed
};

/// Returns signed data with two signers. With every change, one has a shorter encoding than the other, so
/// that DER sorts it first.
Bytes twoSigners(SignerChange changeFirst, SignerChange changeSecond, SignerOrder order)
{
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {signer(), longNamedSigner()};
    spec.furtherCertificates = {intermediate().certificate};
    auto const pkcs7 = parsePkcs7(toDer(makeSignedData(spec)));
    auto* const infos = pkcs7->d.sign->signer_info;
    auto* const shorter = sk_PKCS7_SIGNER_INFO_value(infos, 0);
    auto* const longer = sk_PKCS7_SIGNER_INFO_value(infos, 1);
    bool const inOrder = order == SignerOrder::Encoding;
    (inOrder ? changeFirst : changeSecond)(*shorter);
    (inOrder ? changeSecond : changeFirst)(*longer);
    return inOrder ? toDer(pkcs7) : withTwoSignersReversed(pkcs7);
}

/// OpenSSL's error codes, oldest first.
using ErrorCodes = std::vector<unsigned long>;

unsigned long pkcs7Error(int reason)
{
    return ERR_PACK(ERR_LIB_PKCS7, 0, reason);
}

/// What OpenSSL queues for a message digest attribute that is missing or not an octet string.
ErrorCodes digestNotFound()
{
    return {pkcs7Error(PKCS7_R_UNABLE_TO_FIND_MESSAGE_DIGEST), pkcs7Error(PKCS7_R_SIGNATURE_FAILURE)};
}

ErrorCodes wrongDigest()
{
    return {pkcs7Error(PKCS7_R_DIGEST_FAILURE), pkcs7Error(PKCS7_R_SIGNATURE_FAILURE)};
}

/// What OpenSSL queues for a signature that does not fit the attributes. Some releases begin with an entry of
/// the provider.
ErrorCodes wrongSignature()
{
    CleanErrorQueue const clean;
    auto const pkcs7 = parsePkcs7(twoSigners(changeAttributes, leaveSigner, SignerOrder::Encoding));
    EXPECT_EQ(PKCS7_verify(pkcs7.get(), nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY), 0);
    return drainErrorQueue();
}

/// Both operations that check signatures leave exactly these errors, with verifySignature taking the oldest
/// one as its text.
void expectSignatureErrors(PKCS7Certificate const& loaded, ErrorCodes const& errors)
{
    ASSERT_FALSE(errors.empty());
    CleanErrorQueue const clean;
    EXPECT_EQ(loaded.getSignedData(), ByteArray());
    EXPECT_EQ(drainErrorQueue(), errors);
    auto const results = loaded.verifySignature(X509CertificateChain(), trusted(), ByteArray());
    EXPECT_FALSE(results.getSignatureVerificationStatus());
    EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Failed);
    EXPECT_EQ(results.getValidationErrorString(), ERR_reason_error_string(errors.front()));
    EXPECT_EQ(drainErrorQueue(), ErrorCodes(errors.begin() + 1, errors.end()));
}

/// The changes of two signers, and the errors that OpenSSL reports.
struct SignersRow
{
    explicit SignersRow(char const* theName) : name(theName) {}

    SignersRow& first(SignerChange value)
    {
        changeOfFirst = value;
        return *this;
    }

    SignersRow& second(SignerChange value)
    {
        changeOfSecond = value;
        return *this;
    }

    SignersRow& reports(ErrorCodes const& value)
    {
        errors = value;
        return *this;
    }

    char const* name;
    SignerChange changeOfFirst{};
    SignerChange changeOfSecond{};
    ErrorCodes errors;
};

} // namespace

TEST(PKCS7UntrustedInput, TypeWithoutBodyHasNoContent)
{
    auto const blob = contentInfoWithoutContent(NID_pkcs7_signed);
    ASSERT_EQ(blob.size(), 13u);
    PKCS7Certificate const loaded(blob);
    EXPECT_TRUE(loaded.empty());
    EXPECT_EQ(loaded.getNumCertificates(), 0u);
    EXPECT_EQ(loaded.getSignedData(), ByteArray());
    {
        CleanErrorQueue const clean;
        EXPECT_TRUE(loaded.getSignerCerts().empty());
        EXPECT_EQ(drainErrorQueue(), ErrorCodes{pkcs7Error(PKCS7_R_NO_SIGNERS)});
    }
    for (auto const& content : {std::string(), std::string("content")}) {
        auto const results = verify(loaded, content);
        EXPECT_FALSE(results.getSignatureVerificationStatus());
        EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Failed);
        EXPECT_EQ(
            results.getValidationErrorString(),
            reasonText(ERR_LIB_PKCS7, content.empty() ? PKCS7_R_NO_CONTENT : PKCS7_R_NO_SIGNATURES_ON_DATA));
    }
    useAll(loaded);
}

TEST(PKCS7UntrustedInput, TypeWithoutBodyCanBeCopiedAndWritten)
{
    PKCS7Certificate loaded(contentInfoWithoutContent(NID_pkcs7_signed));
    loaded.addCertificate(X509Certificate(signer().der()));
    PKCS7Certificate const copy(loaded);
    EXPECT_EQ(copy.getAsString(), toPem(parsePkcs7(contentInfoWithoutContent(NID_pkcs7_signed))));
    useAll(copy);
}

TEST(PKCS7UntrustedInput, SignedAndEnvelopedTypeWithoutBodyLoads)
{
    PKCS7Certificate const loaded(contentInfoWithoutContent(NID_pkcs7_signedAndEnveloped));
    EXPECT_TRUE(loaded.empty());
    EXPECT_EQ(
        verify(loaded, "").getValidationErrorString(), reasonText(ERR_LIB_PKCS7, PKCS7_R_WRONG_CONTENT_TYPE));
    useAll(loaded);
}

TEST(PKCS7UntrustedInput, OtherTypeWithoutBodyIsRefused)
{
    for (int const type :
         {NID_pkcs7_data, NID_pkcs7_enveloped, NID_pkcs7_digest, NID_pkcs7_encrypted, NID_rsaEncryption}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, wrongType, PKCS7Certificate(contentInfoWithoutContent(type)));
    }
}

TEST(PKCS7UntrustedInput, MissingMemberDoesNotVerify)
{
    for (auto const& row : structuresWithMissingMembers()) {
        SCOPED_TRACE(row.name);
        PKCS7Certificate const loaded(withChange(row.change));
        EXPECT_EQ(loaded.getNumCertificates(), row.certificates);
        for (auto const& content : {std::string(), std::string("other content")}) {
            auto const results = verify(loaded, content);
            EXPECT_FALSE(results.getSignatureVerificationStatus());
            EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Failed);
            EXPECT_NE(results.getValidationErrorString(), "");
        }
        EXPECT_EQ(loaded.getSignedData(), ByteArray());
        useAll(loaded);
    }
}

TEST(PKCS7UntrustedInput, EmptySignedAndEnvelopedBodyIsHarmless)
{
    auto const pkcs7 = makeSignedAndEnvelopedData("content", signer(), recipient());
    auto& body = *pkcs7->d.signed_and_enveloped;
    sk_X509_pop_free(body.cert, X509_free);
    body.cert = nullptr;
    sk_PKCS7_SIGNER_INFO_pop_free(body.signer_info, PKCS7_SIGNER_INFO_free);
    body.signer_info = sk_PKCS7_SIGNER_INFO_new_null();
    PKCS7Certificate const loaded(toDer(pkcs7));
    EXPECT_TRUE(loaded.empty());
    useAll(loaded);
    useAll(PKCS7Certificate(toDer(makeSignedAndEnvelopedData("content", signer(), recipient()))));
}

TEST(PKCS7UntrustedInput, MistypedMessageDigestCountsAsMissing)
{
    auto const text = [](int type) {
        auto* const string = ASN1_STRING_type_new(type);
        require(ASN1_STRING_set(string, "text", 4));
        return string;
    };
    struct DigestRow
    {
        char const* name;
        Bytes data;
    };
    std::vector<DigestRow> const rows{
        {"boolean", withDigestAttribute(V_ASN1_BOOLEAN, reinterpret_cast<void*>(0xFF))},
        {"null", withDigestAttribute(V_ASN1_NULL, nullptr)},
        {"object", withDigestAttribute(V_ASN1_OBJECT, OBJ_nid2obj(NID_commonName))},
        {"text", withDigestAttribute(V_ASN1_UTF8STRING, text(V_ASN1_UTF8STRING))},
        {"bits", withDigestAttribute(V_ASN1_BIT_STRING, text(V_ASN1_BIT_STRING))},
        {"sequence", withDigestAttribute(
                         V_ASN1_SEQUENCE,
                         [&] {
                             auto* const string = text(V_ASN1_SEQUENCE);
                             require(ASN1_STRING_set(string, "\x30\x00", 2));
                             return string;
                         }())},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        PKCS7Certificate const loaded(row.data);
        expectSignatureErrors(loaded, digestNotFound());
        useAll(loaded);
    }
}

TEST(PKCS7UntrustedInput, MistypedMessageDigestHidesLaterOnes)
{
    // OpenSSL reads the first attribute of this type. The correct second one must not replace it.
    PKCS7Certificate const loaded(withChange([](PKCS7_SIGNED& body) {
        auto* const attributes = sk_PKCS7_SIGNER_INFO_value(body.signer_info, 0)->auth_attr;
        auto* const mistyped =
            X509_ATTRIBUTE_create(NID_pkcs9_messageDigest, V_ASN1_OBJECT, OBJ_nid2obj(NID_commonName));
        require(sk_X509_ATTRIBUTE_insert(attributes, mistyped, 0));
    }));
    expectSignatureErrors(loaded, digestNotFound());
}

TEST(PKCS7UntrustedInput, OnlyAttributeMistypedDoesNotVerifyOverTheContent)
{
    // Without signed attributes, OpenSSL would check the signature over the content itself.
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {signer()};
    spec.withoutAttributes = true;
    auto const pkcs7 = makeSignedData(spec);
    mistypeDigest(*sk_PKCS7_SIGNER_INFO_value(pkcs7->d.sign->signer_info, 0));
    expectSignatureErrors(PKCS7Certificate(toDer(pkcs7)), digestNotFound());
}

TEST(PKCS7UntrustedInput, MistypedMessageDigestIsReportedInSignerOrder)
{
    std::vector<SignersRow> const rows = {
        SignersRow("first mistyped, second valid")
            .first(mistypeDigest)
            .second(leaveSigner)
            .reports(digestNotFound()),
        SignersRow("first valid, second mistyped")
            .first(leaveSigner)
            .second(mistypeDigest)
            .reports(digestNotFound()),
        SignersRow("both mistyped").first(mistypeDigest).second(mistypeDigest).reports(digestNotFound()),
        SignersRow("first with another digest, second mistyped")
            .first(changeDigest)
            .second(mistypeDigest)
            .reports(wrongDigest()),
        SignersRow("first mistyped, second with another digest")
            .first(mistypeDigest)
            .second(changeDigest)
            .reports(digestNotFound()),
        SignersRow("first with another signing time, second mistyped")
            .first(changeAttributes)
            .second(mistypeDigest)
            .reports(wrongSignature()),
    };
    for (auto const& row : rows) {
        for (auto const order : {SignerOrder::Encoding, SignerOrder::Reversed}) {
            SCOPED_TRACE(row.name);
            SCOPED_TRACE(order == SignerOrder::Encoding ? "in DER order" : "against DER order");
            PKCS7Certificate const loaded(twoSigners(row.changeOfFirst, row.changeOfSecond, order));
            expectSignatureErrors(loaded, row.errors);
            useAll(loaded);
        }
    }
}

TEST(PKCS7UntrustedInput, AssignmentCopiesOwnStructureInDerOrder)
{
    auto const textOf = [](PKCS7CertificateImpl const& implementation) {
        CleanErrorQueue const clean;
        auto const results = implementation.verifySignature(X509CertificateChain(), trusted(), ByteArray());
        return results.getValidationErrorString();
    };
    std::string const first = ERR_reason_error_string(wrongDigest().front());
    std::string const firstInDerOrder = ERR_reason_error_string(wrongSignature().front());
    PKCS7CertificateImpl target(twoSigners(changeDigest, changeAttributes, SignerOrder::Reversed));
    EXPECT_EQ(textOf(target), first);

    PKCS7CertificateImpl const withoutStructure;
    target = withoutStructure;
    EXPECT_EQ(textOf(target), first);

    PKCS7CertificateImpl const other(toDer(makeSignedData("other", signer())));
    target = other;
    EXPECT_EQ(textOf(target), firstInDerOrder);
}

TEST(PKCS7UntrustedInput, SignersInAnotherOrderComeInDerOrder)
{
    std::vector<Bytes> const expected{signer().der(), longNamedSigner().der()};
    for (auto const order : {SignerOrder::Encoding, SignerOrder::Reversed}) {
        SCOPED_TRACE(order == SignerOrder::Encoding ? "in DER order" : "against DER order");
        PKCS7Certificate const loaded(twoSigners(leaveSigner, leaveSigner, order));
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        EXPECT_EQ(derOf(loaded.getSignerCerts()), expected);
        EXPECT_EQ(derOf(PKCS7Certificate(loaded).getSignerCerts()), expected);
        EXPECT_EQ(drainErrorQueue(), ErrorCodes{foreign});
        EXPECT_TRUE(verify(loaded, "").isValidSignature());
    }
}

TEST(PKCS7UntrustedInput, TruncationIsRefused)
{
    auto const whole = signedData();
    for (std::size_t size = 1; size < whole.size(); ++size) {
        EXPECT_FALSE(loadOrRefuse(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)))) << size;
    }
    auto const pem = toPem(makeSignedData("content", signer()));
    for (std::size_t size = 1; size < pem.size(); ++size) {
        auto const loaded = loadOrRefuse(Bytes(pem.begin(), pem.begin() + static_cast<long>(size)));
        EXPECT_TRUE(!loaded || size == pem.size() - 1) << size; // only the last line end may be missing
    }
}

TEST(PKCS7UntrustedInput, DamagedByteGetsOpenSSLsVerdict)
{
    auto const whole = signedData();
    auto const certificate = signer().der();
    auto const begin = std::search(whole.begin(), whole.end(), certificate.begin(), certificate.end());
    ASSERT_NE(begin, whole.end());
    auto const first = static_cast<std::size_t>(begin - whole.begin());
    for (std::size_t index = 0; index < whole.size(); ++index) {
        bool const insideCertificate = index >= first && index < first + certificate.size();
        for (int const change :
             insideCertificate ? std::vector<int>{0x01} : std::vector<int>{0x01, 0x20, 0x80, 0xFF}) {
            SCOPED_TRACE("byte " + std::to_string(index) + " changed by " + std::to_string(change));
            auto damaged = whole;
            damaged[index] = static_cast<unsigned char>(damaged[index] ^ change);
            auto const loaded = loadOrRefuse(damaged);
            if (!loaded) {
                continue;
            }
            auto const results = verify(*loaded, "");
            if (insideCertificate) { // the damage can also break the chain
                EXPECT_TRUE(verifiesInOpenSSL(damaged) || !results.getSignatureVerificationStatus());
                EXPECT_FALSE(results.isValidSignature());
            } else {
                EXPECT_EQ(results.getSignatureVerificationStatus(), verifiesInOpenSSL(damaged));
            }
            loaded->getSignedData();
            EXPECT_EQ(PKCS7Certificate(*loaded).getAsString(), loaded->getAsString());
            EXPECT_LE(loaded->getSignerCerts().getNumCertificates(), 1u);
        }
    }
}

TEST(PKCS7UntrustedInput, DamagedDetachedDataNeverVerifiesOtherContent)
{
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {signer()};
    spec.detached = true;
    auto const whole = toDer(makeSignedData(spec));
    EXPECT_TRUE(verify(PKCS7Certificate(whole), "content").isValidSignature());
    for (std::size_t index = 0; index < whole.size(); ++index) {
        auto damaged = whole;
        damaged[index] = static_cast<unsigned char>(damaged[index] ^ 0x01);
        if (auto const loaded = loadOrRefuse(damaged)) {
            EXPECT_FALSE(verify(*loaded, "other content").getSignatureVerificationStatus()) << index;
            verify(*loaded, "content");
        }
    }
}

TEST(PKCS7UntrustedInput, DamagedSignedAndEnvelopedDataNeverVerifies)
{
    auto const whole = toDer(makeSignedAndEnvelopedData("content", signer(), recipient()));
    for (std::size_t index = 0; index < whole.size(); ++index) {
        auto damaged = whole;
        damaged[index] = static_cast<unsigned char>(damaged[index] ^ 0x01);
        if (auto const loaded = loadOrRefuse(damaged)) {
            EXPECT_FALSE(verify(*loaded, "").getSignatureVerificationStatus()) << index;
            loaded->getSignerCerts();
        }
    }
}

TEST(PKCS7UntrustedInput, DeepNestingIsRefusedOrHarmless)
{
    auto nested = toDer(makePlainData("content"));
    for (int depth = 1; depth <= 3; ++depth) {
        nested = signedAround(nested);
        auto const loaded = loadOrRefuse(nested);
        ASSERT_TRUE(loaded) << depth;
        useAll(*loaded);
    }
    for (int depth = 4; depth <= 3000; ++depth) {
        nested = signedAround(nested);
        if (depth <= 60 || depth % 500 == 0) {
            if (auto const loaded = loadOrRefuse(nested)) {
                useAll(*loaded);
            }
        }
    }
    EXPECT_FALSE(loadOrRefuse(nested));
}

TEST(PKCS7UntrustedInput, DeepNestingOfIndefiniteLengthIsRefused)
{
    Bytes nested;
    for (int depth = 0; depth < 100000; ++depth) {
        nested.insert(nested.end(), {0x30, 0x80});
    }
    EXPECT_FALSE(loadOrRefuse(nested));
    auto inside = contentInfoWithoutContent(NID_pkcs7_signed);
    inside[1] = 0x80;
    inside.insert(inside.end(), {0xA0, 0x80});
    inside.insert(inside.end(), nested.begin(), nested.end());
    EXPECT_FALSE(loadOrRefuse(inside));
}

TEST(PKCS7UntrustedInput, ManySignersAreAllRead)
{
    std::vector<CertificateAndKey> signers;
    for (int index = 0; index < 20; ++index) {
        signers.push_back(makeLeaf(root(), "signer " + std::to_string(index)));
    }
    SignedDataSpec spec;
    spec.signers = signers;
    PKCS7Certificate const loaded(toDer(makeSignedData(spec)));
    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(loaded.getSignerCerts().getNumCertificates(), 20u);
    }
    EXPECT_TRUE(verify(loaded, "").isValidSignature());
}
