#include "support/operations/OperationTable.hpp"

#include "support/Text.hpp"
#include "support/openssl/Handles.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace foundation::test {

using namespace certificates;

namespace {

using Options = CertificateValidationOptions;

template <class Object>
std::string printedText(Object const& object)
{
    return writtenBy([&](std::ostream& out) { object.print(out); });
}

template <class Object>
std::string streamedText(Object const& object)
{
    return writtenBy([&](std::ostream& out) { out << object; });
}

template <class Object>
Object assignedFrom(Object const& source)
{
    Object target;
    target = source;
    return target;
}

std::string numObjectsIn(X509_STORE* store)
{
    return store == nullptr ? "null" : std::to_string(sk_X509_OBJECT_num(X509_STORE_get0_objects(store)));
}

/// A certificate that was built. The key and the dates differ each time: only the rest is rendered.
struct Built
{
    X509Certificate certificate;
    bool hasKey;
};

template <class Key>
Built built(std::pair<X509Certificate, Key>&& made)
{
    return {std::move(made.first), !made.second.empty()};
}

std::string rendered(Built const& made)
{
    return made.certificate.getSubjectName() + "\n" +
           test::rendered(made.certificate.getExtendedKeyUsages()) + (made.hasKey ? "key" : "");
}

/// What the objects below write when OpenSSL has no memory for it.
AllowedOutcomes const noFingerprint = failsWith(fingerprintUnknown());
AllowedOutcomes const noName = failsWith(nameUnread());
AllowedOutcomes const noExtensions = failsWith(extensionsUnread());
AllowedOutcomes const noReport = failsWith({nameUnread(), fingerprintUnknown()});
AllowedOutcomes const noDate =
    failsWith(failure<X509CertificateException>("Error: printing the ASN1 time failed."));
AllowedOutcomes const noTimePoint =
    failsWith(failure<X509CertificateException>("Invalid time format used in the certificate."));
AllowedOutcomes const noSerialNumber = failsWith({
    failure<X509CertificateException>("Internal error: Unable to get serial number."),
    failure<X509CertificateException>("Internal error: Unable to get serial number from BN."),
});

// The parts of the table. A query is one line: FOUNDATION_TEST_QUERY(Class, name).

std::vector<Operation<X509Certificate>> certificateNames()
{
    return {
        FOUNDATION_TEST_QUERY(X509Certificate, getSubjectName).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, getIssuerName).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, getSubjectNameAsRDNs).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, getIssuerNameAsRDNs).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, getSubjectCommonName).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, getIssuerCommonName).withoutOpenSSLMemory(noName),
        FOUNDATION_TEST_QUERY(X509Certificate, isSelfSigned).withoutOpenSSLMemory(noName),
    };
}

std::vector<Operation<X509Certificate>> certificateFields()
{
    return {
        FOUNDATION_TEST_QUERY(X509Certificate, getSerialNumber).withoutOpenSSLMemory(noSerialNumber),
        FOUNDATION_TEST_QUERY(X509Certificate, getSHA256Fingerprint).withoutOpenSSLMemory(noFingerprint),
        FOUNDATION_TEST_QUERY(X509Certificate, getSignatureAlgorithm),
        FOUNDATION_TEST_QUERY(X509Certificate, getValidNotBefore).withoutOpenSSLMemory(noDate),
        FOUNDATION_TEST_QUERY(X509Certificate, getValidNotAfter).withoutOpenSSLMemory(noDate),
        FOUNDATION_TEST_QUERY(X509Certificate, getValidNotBeforeTimePoint).withoutOpenSSLMemory(noTimePoint),
        FOUNDATION_TEST_QUERY(X509Certificate, getValidNotAfterTimePoint).withoutOpenSSLMemory(noTimePoint),
        FOUNDATION_TEST_QUERY(X509Certificate, getKeySize),
        FOUNDATION_TEST_QUERY(X509Certificate, getModulus).withoutOpenSSLMemory(failsWith(keyUnread())),
        FOUNDATION_TEST_QUERY(X509Certificate, getPublicExponent)
            .withoutOpenSSLMemory(failsWith(keyUnread())),
        FOUNDATION_TEST_QUERY(X509Certificate, getPublicKeyInfo).withoutOpenSSLMemory(failsWith(keyUnread())),
        FOUNDATION_TEST_QUERY(X509Certificate, getExtendedKeyUsages).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(X509Certificate, getPolicies).withoutOpenSSLMemory(noExtensions),
        FOUNDATION_TEST_QUERY(X509Certificate, isCACertificate),
        FOUNDATION_TEST_QUERY(X509Certificate, isValidForDigitalSigning).withoutOpenSSLMemory(noExtensions),
    };
}

std::vector<Operation<X509Certificate>> certificateOutputs()
{
    using C = X509Certificate;
    return {
        FOUNDATION_TEST_QUERY(X509Certificate, getAsBytes),
        FOUNDATION_TEST_QUERY(X509Certificate, getAsString),
        FOUNDATION_TEST_QUERY(X509Certificate, getAsPEMString),
        query<C>("X509Certificate::print", printedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("X509Certificate::operator<<", streamedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("X509Certificate::operator==", [](C const& c) { return c == c; }),
        query<C>("X509Certificate::operator!=", [](C const& c) { return c != c; }),
    };
}

/// OpenSSL 3.0 leaks a certificate of the untrusted set if an allocation fails while it builds a chain.
AllowedOutcomes unvalidated()
{
    auto outcomes = failsWith(validationUnfinished(), 41);
    outcomes.otherAnswers = isStricterVerdict;
    outcomes.isLeaky = true;
    return outcomes;
}

std::vector<Operation<X509Certificate>> certificateValidations()
{
    using C = X509Certificate;
    // The leaf is put in front of the chain. For that it is loaded, which empties the queue.
    return {
        queryWithOthers<C>(
            "X509Certificate::validateCertificate",
            [](C const& c, Objects const& others) {
                return c.validateCertificate(others.chain, Options(), others.store);
            })
            .dropsForeignErrors()
            .withoutOpenSSLMemory(unvalidated())
            .withoutHeap(withStride(3)),
        queryWithOthers<C>(
            "X509Certificate::getRootCACertificate",
            [](C const& c, Objects const& others) {
                return c.getRootCACertificate(others.chain, others.store);
            })
            .dropsForeignErrors()
            .withoutOpenSSLMemory(unvalidated())
            .withoutHeap(withStride(3)),
    };
}

std::vector<Operation<X509Certificate>> certificateTable()
{
    using C = X509Certificate;
    std::vector<Operation<C>> all;
    for (auto const& part :
         {certificateNames(), certificateFields(), certificateOutputs(), certificateValidations()}) {
        for (auto const& operation : part) {
            all.push_back(operation.throwsOnDefaultObject(certificateWithoutContent()));
        }
    }
    all.push_back(FOUNDATION_TEST_QUERY(X509Certificate, empty));
    all.push_back(query<C>("X509Certificate::X509Certificate, copy", [](C const& c) { return C(c); }));
    all.push_back(query<C>("X509Certificate::operator=, copy", assignedFrom<C>));
    return all;
}

std::vector<Operation<X509CertificateChain>> chainTable()
{
    using C = X509CertificateChain;
    return {
        FOUNDATION_TEST_QUERY(X509CertificateChain, empty),
        FOUNDATION_TEST_QUERY(X509CertificateChain, getNumCertificates),
        FOUNDATION_TEST_QUERY(X509CertificateChain, getCertificates),
        FOUNDATION_TEST_QUERY(X509CertificateChain, getAsString),
        query<C>("X509CertificateChain::print", printedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("X509CertificateChain::operator<<", streamedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("X509CertificateChain::operator==", [](C const& c) { return c == c; }),
        query<C>(
            "X509CertificateChain::operator==, on the left of an empty chain",
            [](C const& c) { return c == C(); }),
        query<C>("X509CertificateChain::operator!=", [](C const& c) { return c != c; }),
        query<C>(
            "X509CertificateChain::operator!=, on the right of an empty chain",
            [](C const& c) { return C() != c; }),
        query<C>("X509CertificateChain::X509CertificateChain, copy", [](C const& c) { return C(c); }),
        query<C>("X509CertificateChain::operator=, copy", assignedFrom<C>),
        change<C>(
            "X509CertificateChain::addCertificate",
            [](C& c, Objects const& others) { c.addCertificate(others.certificate); })
            .acceptsMovedFrom(),
        change<C>(
            "X509CertificateChain::popLeafCertificate",
            [](C& c, Objects const&) { return c.popLeafCertificate(); })
            .throwsOnDefaultObject(
                failure<X509CertificateChainException>("X509CertificateChain has no content.")),
    };
}

AllowedOutcomes notCopied(std::size_t stride)
{
    return failsWith(
        storeUnread() +
            Failures{
                failure<TrustStoreException>("Failed to create X509_STORE"),
                failure<TrustStoreException>("Failed to add CRL to store"),
                failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: "),
            },
        stride);
}

/// A store that is a copy gets its own entries before the first change.
AllowedOutcomes const notAdded = failsWith(
    notCopied(1).failures + Failures{failure<TrustStoreException>("Failed to add certificate to store")});

/// Returns a context that is made once for each thread, so that a sweep refuses no allocation of its
/// construction. The list owns it, because a thread's own objects with destructors are not reliable in
/// programs of MinGW.
SSL_CTX* contextOfThisThread()
{
    static std::mutex mutex;
    static std::vector<std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)>> all;
    thread_local SSL_CTX* context = nullptr;
    if (context == nullptr) {
        std::lock_guard<std::mutex> const lock(mutex);
        all.emplace_back(SSL_CTX_new(TLS_method()), SSL_CTX_free);
        context = all.back().get();
    }
    return context;
}

std::vector<Operation<TrustStore>> storeQueries()
{
    auto noOpenSSLCopy = notCopied(3);
    noOpenSSLCopy.otherAnswers = [](std::string const& answer, std::string const&) {
        return answer == "null";
    };
    return {
        FOUNDATION_TEST_QUERY(TrustStore, empty).withoutOpenSSLMemory(failsWith(storeUnread())),
        FOUNDATION_TEST_QUERY(TrustStore, size).withoutOpenSSLMemory(failsWith(storeUnread())),
        FOUNDATION_TEST_QUERY(TrustStore, getCertificates)
            .withoutOpenSSLMemory(failsWith(storeUnread() + certificateUntaken(), 3)),
        FOUNDATION_TEST_QUERY(TrustStore, getPEMStrings)
            .withoutOpenSSLMemory(failsWith(
                storeUnread() + Failures{failure<TrustStoreException>("Failed to convert X509 to PEM")})),
        query<TrustStore>(
            "getOpenSSLStore",
            [](TrustStore const& store) { return numObjectsIn(getOpenSSLStore(store).get()); })
            .withoutOpenSSLMemory(notCopied(3)),
        query<TrustStore>(
            "copyOpenSSLStore",
            [](TrustStore const& store) { return numObjectsIn(copyOpenSSLStore(store).get()); })
            .withoutOpenSSLMemory(noOpenSSLCopy),
        query<TrustStore>(
            "attachTrustStoreToSSLCTX",
            [](TrustStore const& store) {
                SSL_CTX* const context = contextOfThisThread();
                attachTrustStoreToSSLCTX(store, context);
                auto* const attached = SSL_CTX_get_cert_store(context);
                return numObjectsIn(attached) +
                       (attached == getOpenSSLStore(store).get() ? " shared" : " copied");
            })
            .withoutOpenSSLMemory(notCopied(3)),
    };
}

/// A trust store that was moved from reads as an empty one and can be added to; only copying it fails.
std::vector<Operation<TrustStore>> storeTable()
{
    auto const changes = std::vector<Operation<TrustStore>>{
        change<TrustStore>(
            "TrustStore::addCertificate",
            [](TrustStore& store, Objects const& others) { store.addCertificate(others.certificate); })
            .withoutOpenSSLMemory(notAdded),
        change<TrustStore>(
            "TrustStore::addCertificates",
            [](TrustStore& store, Objects const& others) { store.addCertificates(others.chain); })
            .withoutOpenSSLMemory(withStride(7, notAdded))
            .mayLeavePart(),
        change<TrustStore>(
            "TrustStore::addSystemCertificates",
            [](TrustStore& store, Objects const&) {
                store.addSystemCertificates(TrustStore::Usage::Signing);
            })
            .costly(),
    };
    std::vector<Operation<TrustStore>> all;
    for (auto const& part : {storeQueries(), changes}) {
        for (auto const& operation : part) {
            all.push_back(operation.acceptsMovedFrom());
        }
    }
    all.push_back(query<TrustStore>("TrustStore::TrustStore, copy", [](TrustStore const& store) {
                      return TrustStore(store);
                  }).withoutOpenSSLMemory(notCopied(3)));
    all.push_back(query<TrustStore>("TrustStore::operator=, copy", assignedFrom<TrustStore>)
                      .withoutOpenSSLMemory(notCopied(3)));
    return all;
}

AllowedOutcomes const noStructureCopy = failsWith(
    {failure<PKCS7CertificateException>("Internal error: The PKCS7 structure could not be copied.")}, 3);
AllowedOutcomes const noStructureText =
    failsWith(failure<PKCS7CertificateException>("Unable to write out the PKCS7 data"));

/// A signature that cannot be checked counts as bad. A chain that cannot be checked is not trusted.
AllowedOutcomes unverified()
{
    auto outcomes = failsWith(validationUnfinished() + noStructureCopy.failures, 41);
    outcomes.otherAnswers = isStricterVerification;
    outcomes.isLeaky = true;
    return outcomes;
}

std::vector<Operation<PKCS7Certificate>> signedDataTable()
{
    using C = PKCS7Certificate;
    return {
        FOUNDATION_TEST_QUERY(PKCS7Certificate, empty),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getAsBytes).withoutOpenSSLMemory(noStructureText),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getAsString).withoutOpenSSLMemory(noStructureText),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getCertificates),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getNumCertificates),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getSignedData)
            .withoutOpenSSLMemory(withStride(3, orEmptyAnswer())),
        FOUNDATION_TEST_QUERY(PKCS7Certificate, getSignerCerts)
            .withoutOpenSSLMemory(
                orEmptyAnswer(failsWith(certificateUntaken() + noStructureCopy.failures, 3))),
        queryWithOthers<C>(
            "PKCS7Certificate::verifySignature",
            [](C const& c, Objects const& others) {
                return c.verifySignature(others.chain, others.store, ByteArray());
            })
            .withoutOpenSSLMemory(unverified())
            .withoutHeap(withStride(3)),
        query<C>("PKCS7Certificate::print", printedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("PKCS7Certificate::operator<<", streamedText<C>)
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("PKCS7Certificate::operator==", [](C const& c) { return c == c; }),
        query<C>(
            "PKCS7Certificate::operator==, on the left of an empty object",
            [](C const& c) { return c == C(); }),
        query<C>(
            "PKCS7Certificate::operator==, on the right of an empty object",
            [](C const& c) { return C() == c; }),
        query<C>("PKCS7Certificate::operator!=", [](C const& c) { return c != c; }),
        query<C>(
            "PKCS7Certificate::operator!=, on the left of an empty object",
            [](C const& c) { return c != C(); }),
        query<C>("PKCS7Certificate::PKCS7Certificate, copy", [](C const& c) { return C(c); })
            .withoutOpenSSLMemory(noStructureCopy),
        query<C>("PKCS7Certificate::operator=, copy", assignedFrom<C>).withoutOpenSSLMemory(noStructureCopy),
        change<C>(
            "PKCS7Certificate::addCertificate",
            [](C& c, Objects const& others) { c.addCertificate(others.certificate); })
            .acceptsMovedFrom(),
    };
}

/// Printing and comparing need the certificate, and fail as it does on a default object.
std::vector<Operation<PKCS12Certificate>> bundleTable()
{
    using C = PKCS12Certificate;
    auto const noBytes = failsWith(failure<PKCS12CertificateException>("Unable to write out PKCS12 bytes."));
    return {
        FOUNDATION_TEST_QUERY(PKCS12Certificate, empty),
        FOUNDATION_TEST_QUERY(PKCS12Certificate, getAsBytes).withoutOpenSSLMemory(noBytes),
        FOUNDATION_TEST_QUERY(PKCS12Certificate, getCertificate),
        FOUNDATION_TEST_QUERY(PKCS12Certificate, getCAChain),
        FOUNDATION_TEST_QUERY(PKCS12Certificate, getPrivateExponent),
        FOUNDATION_TEST_QUERY(PKCS12Certificate, getPrivateKeyInfo),
        query<C>("PKCS12Certificate::print", printedText<C>)
            .throwsOnDefaultObject(certificateWithoutContent())
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("PKCS12Certificate::operator<<", streamedText<C>)
            .throwsOnDefaultObject(certificateWithoutContent())
            .withoutOpenSSLMemory(noReport)
            .withoutHeap(orFailedStream()),
        query<C>("PKCS12Certificate::operator==", [](C const& c) { return c == c; })
            .throwsOnDefaultObject(certificateWithoutContent()),
        query<C>("PKCS12Certificate::operator!=", [](C const& c) { return c != C(c); })
            .throwsOnDefaultObject(certificateWithoutContent()),
        query<C>("PKCS12Certificate::PKCS12Certificate, copy", [](C const& c) { return C(c); }),
        query<C>("PKCS12Certificate::operator=, copy", assignedFrom<C>),
    };
}

/// A failure while a certificate and its key are made, or while the certificate is loaded.
AllowedOutcomes const notBuilt = failsWith(
    certificateUnloaded() +
        Failures{
            failureBeginning<std::runtime_error>("Failed to generate a certificate: "),
            failure<InvalidArgument>("The input certificate has no content."),
        },
    23);
AllowedOutcomes const notLoaded = failsWith(
    failure<InvalidArgument>("The input certificate data string is invalid. Reason:std::bad_alloc"));

#define FOUNDATION_TEST_SETTER(name, ...)                                                                    \
    change<SelfSignedCertBuilder>(                                                                           \
        "SelfSignedCertBuilder::" #name,                                                                     \
        [](SelfSignedCertBuilder& builder, Objects const&) { builder.name(__VA_ARGS__); })

std::vector<Operation<SelfSignedCertBuilder>> builderTable()
{
    using C = SelfSignedCertBuilder;
    return {
        FOUNDATION_TEST_SETTER(withPrivateKeySize, RSAPrivateKeySize::Bits1024),
        FOUNDATION_TEST_SETTER(withPrivateKeyPassphrase, "a passphrase longer than the buffer in a string"),
        FOUNDATION_TEST_SETTER(withCommonName, "a-name-longer-than-the-buffer-in-a-string.example"),
        FOUNDATION_TEST_SETTER(withAdditionalSubjectAltNames, {"DNS:a.example", "DNS:b.example"}),
        FOUNDATION_TEST_SETTER(withValidityPeriod, 10),
        FOUNDATION_TEST_SETTER(withValidityPeriodOffset, -1),
        FOUNDATION_TEST_SETTER(withSerialNumber, 7),
        FOUNDATION_TEST_SETTER(withAdditionalKeyUsage, {X509Certificate::KeyUsage::KeyEncipherment}),
        FOUNDATION_TEST_SETTER(withAdditionalExtendedKeyUsage, {"serverAuth", "clientAuth"}),
        FOUNDATION_TEST_SETTER(resetToDefaults, ),
        query<C>("SelfSignedCertBuilder::build", [](C const& builder) { return built(builder.build()); })
            .costly()
            .dropsForeignErrors() // the certificate is loaded at the end
            .withoutOpenSSLMemory(notBuilt)
            .withoutHeap(notLoaded),
        query<C>(
            "SelfSignedCertBuilder::buildAndGetKeyBytesInPKCS12",
            [](C const& builder) { return built(builder.buildAndGetKeyBytesInPKCS12()); })
            .costly()
            .dropsForeignErrors()
            .withoutOpenSSLMemory(notBuilt)
            .withoutHeap(notLoaded),
    };
}

#undef FOUNDATION_TEST_SETTER

std::vector<Operation<Encoded>> encodingTable()
{
    return {
        query<Encoded>("base64Encode", [](Encoded const& input) { return base64Encode(input.bytes); }),
        query<Encoded>("base64Decode", [](Encoded const& input) { return base64Decode(input.base64); }),
        query<Encoded>("hexEncode", [](Encoded const& input) { return hexEncode(input.bytes); }),
        query<Encoded>("hexDecode", [](Encoded const& input) { return hexDecode(input.hex); }),
        query<Encoded>(
            "prettyPrintBytes",
            [](Encoded const& input) {
                return writtenBy(
                    [&](std::ostream& out) { prettyPrintBytes(input.bytes, "a label for the bytes", out); });
            })
            .withoutHeap(orFailedStream()),
        query<Encoded>(
            "getSystemCertificatesFile", [](Encoded const&) { return getSystemCertificatesFile(); }),
        query<Encoded>(
            "getSystemCertificatesFolder", [](Encoded const&) { return getSystemCertificatesFolder(); }),
    };
}

#define FOUNDATION_TEST_MEMBER(Class, member, name)                                                          \
    query<Values>(#Class "::" #name, [](Values const& values) { return values.member.name(); })

std::vector<Operation<Values>> keyRecordOperations()
{
    return {
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, rsaKey, getType),
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, rsaKey, getKeySize),
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, rsaKey, getRSAPublicExponent),
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, rsaKey, getRSAModulus),
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, eccKey, getECCPublicPoint),
        FOUNDATION_TEST_MEMBER(PublicKeyInfo, eccKey, getECCCurve),
        query<Values>("PublicKeyInfo::operator==", [](Values const& v) { return v.rsaKey == v.rsaKey; }),
        query<Values>("PublicKeyInfo::operator!=", [](Values const& v) { return v.rsaKey != v.eccKey; }),
        FOUNDATION_TEST_MEMBER(PrivateKeyInfo, rsaPrivateKey, getType),
        FOUNDATION_TEST_MEMBER(PrivateKeyInfo, rsaPrivateKey, getRSAPrivateExponent),
        FOUNDATION_TEST_MEMBER(PrivateKeyInfo, eccPrivateKey, getECCPrivateInteger),
        FOUNDATION_TEST_MEMBER(PrivateKeyInfo, eccPrivateKey, getECCCurve),
        query<Values>(
            "PrivateKeyInfo::operator==", [](Values const& v) { return v.rsaPrivateKey == v.rsaPrivateKey; }),
        query<Values>(
            "PrivateKeyInfo::operator!=", [](Values const& v) { return v.rsaPrivateKey != v.eccPrivateKey; }),
    };
}

std::vector<Operation<Values>> resultOperations()
{
    return {
        FOUNDATION_TEST_MEMBER(CertificateRevocationResults, revocation, getRevocationStatus),
        FOUNDATION_TEST_MEMBER(CertificateRevocationResults, revocation, getRevocationDateString),
        FOUNDATION_TEST_MEMBER(CertificateRevocationResults, revocation, getRevokedSerialNumberString),
        FOUNDATION_TEST_MEMBER(CertificateValidationResults, validation, getCertificateChainStatus),
        FOUNDATION_TEST_MEMBER(CertificateValidationResults, validation, getValidationErrorString),
        FOUNDATION_TEST_MEMBER(CertificateValidationResults, validation, getCertificateRevocationResults),
        FOUNDATION_TEST_MEMBER(CertificateValidationResults, validation, getRootCertificate),
        change<Values>(
            "CertificateValidationResults::setCertificateRevocationResults",
            [](Values& v, Objects const&) {
                v.validation.setCertificateRevocationResults(CertificateRevocationResults());
            }),
        change<Values>(
            "CertificateValidationResults::setRootCertificate",
            [](Values& v, Objects const& others) { v.validation.setRootCertificate(others.certificate); }),
        FOUNDATION_TEST_MEMBER(
            PKCS7CertificateValidationResults, verification, getSignatureVerificationStatus),
        FOUNDATION_TEST_MEMBER(PKCS7CertificateValidationResults, verification, getCertificateChainStatus),
        FOUNDATION_TEST_MEMBER(PKCS7CertificateValidationResults, verification, getValidationErrorString),
        FOUNDATION_TEST_MEMBER(PKCS7CertificateValidationResults, verification, isValidSignature),
    };
}

#undef FOUNDATION_TEST_MEMBER

std::vector<Operation<Values>> valueTable()
{
    auto all = keyRecordOperations();
    for (auto const& operation : resultOperations()) {
        all.push_back(operation);
    }
    return all;
}

// The bound operations

template <class Object>
BoundOperation bound(Operation<Object> const& operation, std::string owner, Object Objects::*member)
{
    return {operation.name,
            std::move(owner),
            operation.access,
            operation.isCostly,
            operation.foreignErrors,
            [operation, member](Objects& all) { return operation.answer(all.*member, all); }};
}

/// For operations on objects that are made for the call.
template <class Object>
BoundOperation bound(Operation<Object> const& operation, Object (*make)())
{
    return {
        operation.name,
        "",
        operation.access,
        operation.isCostly,
        operation.foreignErrors,
        [operation, make](Objects& all) {
            auto object = make();
            return operation.answer(object, all);
        }};
}

BoundOperation reading(std::string name, std::string owner, std::function<std::string(Objects&)> answer)
{
    return {std::move(name), std::move(owner), Access::Reads, false, ForeignErrors::Stay, std::move(answer)};
}

/// Reads that combine the objects in other ways than the rows of the table.
std::vector<BoundOperation> combinations()
{
    return {
        reading(
            "X509Certificate::validateCertificate, chain with leaf", "certificate",
            [](Objects& all) {
                return test::rendered(
                    all.certificate.validateCertificate(all.chainWithLeaf, Options(), all.store));
            }),
        reading(
            "X509Certificate::operator!=, certificate of a bundle", "certificate",
            [](Objects& all) { return test::rendered(all.certificate != all.bundle.getCertificate()); }),
        reading(
            "X509CertificateChain::operator!=, other chain", "chain",
            [](Objects& all) { return test::rendered(all.chain != all.chainWithLeaf); }),
        reading(
            "PKCS7Certificate::verifySignature, detached content", "detached",
            [](Objects& all) {
                return test::rendered(
                    all.detached.verifySignature(all.chain, all.store, asBytes(signedContent)));
            }),
        reading(
            "PKCS7Certificate::operator!=, other signed data", "signedData",
            [](Objects& all) { return test::rendered(all.signedData != all.detached); }),
    };
}

std::vector<BoundOperation> boundTable()
{
    std::vector<BoundOperation> all;
    for (auto const& operation : certificateOperations()) {
        all.push_back(bound(operation, "certificate", &Objects::certificate));
    }
    for (auto const& operation : chainOperations()) {
        all.push_back(bound(operation, "chain", &Objects::chain));
    }
    for (auto const& operation : storeOperations()) {
        all.push_back(bound(operation, "store", &Objects::store));
    }
    for (auto const& operation : signedDataOperations()) {
        all.push_back(bound(operation, "signedData", &Objects::signedData));
    }
    for (auto const& operation : bundleOperations()) {
        all.push_back(bound(operation, "bundle", &Objects::bundle));
    }
    for (auto const& operation : builderOperations()) {
        all.push_back(bound(operation, "", &Objects::builder));
    }
    for (auto const& operation : encodingOperations()) {
        all.push_back(bound(operation, &makeEncoded));
    }
    for (auto const& operation : valueOperations()) {
        all.push_back(bound(operation, &makeValues));
    }
    return all;
}

} // namespace

Encoded makeEncoded()
{
    auto const bytes = asBytes("longer than the buffer that every string has");
    return {bytes, base64Encode(bytes), hexEncode(bytes)};
}

Values makeValues()
{
    ByteArray const bytes(64, 7);
    std::string const text = "longer than the buffer that every string has";
    CertificateRevocationResults const revocation(
        CertificateRevocationResults::RevocationStatus::Revoked, text, text);
    return {
        PublicKeyInfo(1024, ByteArray{3}, bytes),
        PublicKeyInfo(256, bytes, EllipticCurve::Ed25519),
        PrivateKeyInfo(bytes),
        PrivateKeyInfo(bytes, EllipticCurve::Prime256v1),
        revocation,
        CertificateValidationResults(CertificateChainStatus::Revoked, text),
        PKCS7CertificateValidationResults(true, CertificateChainStatus::Valid, text),
    };
}

std::vector<Operation<X509Certificate>> const& certificateOperations()
{
    static auto const all = certificateTable();
    return all;
}

std::vector<Operation<X509CertificateChain>> const& chainOperations()
{
    static auto const all = chainTable();
    return all;
}

std::vector<Operation<TrustStore>> const& storeOperations()
{
    static auto const all = storeTable();
    return all;
}

std::vector<Operation<PKCS7Certificate>> const& signedDataOperations()
{
    static auto const all = signedDataTable();
    return all;
}

std::vector<Operation<PKCS12Certificate>> const& bundleOperations()
{
    static auto const all = bundleTable();
    return all;
}

std::vector<Operation<SelfSignedCertBuilder>> const& builderOperations()
{
    static auto const all = builderTable();
    return all;
}

std::vector<Operation<Encoded>> const& encodingOperations()
{
    static auto const all = encodingTable();
    return all;
}

std::vector<Operation<Values>> const& valueOperations()
{
    static auto const all = valueTable();
    return all;
}

std::vector<BoundOperation> const& allOperations()
{
    static auto const all = boundTable();
    return all;
}

std::vector<BoundOperation> const& readOperations()
{
    static auto const reads = [] {
        std::vector<BoundOperation> chosen = combinations();
        for (auto const& operation : allOperations()) {
            if (operation.access == Access::Reads && !operation.isCostly) {
                chosen.push_back(operation);
            }
        }
        return chosen;
    }();
    return reads;
}

} // namespace foundation::test
