#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/Issuance.hpp>

#include <openssl/x509.h>

#include <chrono>
#include <string>
#include <vector>

#include <dlfcn.h>

// Without memory an operation throws that, and changes nothing. No request is taken for a forged one, no key
// for the wrong one, and no certificate lacks a part.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

using Kind = AlternativeName::Kind;

/// The source files in which OpenSSL allocates while it decodes ASN.1.
SparedSources::Files const decoder{"a_object.c", "asn1_lib.c", "tasn_dec.c", "tasn_new.c"};

/// Signs without a shortage of memory in the decoder.
///
/// ASN1_item_sign_ctx fills the algorithm identifiers of the signed object with d2i_X509_ALGOR. A decoder
/// that fails frees the object that it was to fill, but these are members of the signed object. If one of the
/// decoder's allocations is refused, OpenSSL passes free() a pointer that malloc() never returned.
template <class Sign, class Object>
int signWithDecoder(Sign* original, Object* object, EVP_PKEY* key, EVP_MD const* digest)
{
    SparedSources const spared(decoder);
    return original(object, key, digest);
}

SecretString const& leafKey()
{
    static SecretString const key(toPem(p256Key("leaf")));
    return key;
}

SecretString const& rootKey()
{
    static SecretString const key(toPem(p256Key("root")));
    return key;
}

Certificate const& root()
{
    static Certificate const certificate = Certificate::fromDER(makeRoot("root").der());
    return certificate;
}

std::vector<AlternativeName> const& names()
{
    static std::vector<AlternativeName> const all{
        {Kind::DNS, "leaf.example"}, {Kind::IPAddress, "192.0.2.1"}, {Kind::Email, "leaf@leaf.example"}};
    return all;
}

CertificateRequest const& request()
{
    static CertificateRequest const made =
        CertificateRequest::make({{"O", "Example"}, {"CN", "leaf"}}, names(), leafKey());
    return made;
}

std::string textOf(std::vector<AlternativeName> const& list)
{
    std::string text;
    for (auto const& name : list) {
        text += std::to_string(static_cast<int>(name.kind)) + " " + name.value + "\n";
    }
    return text;
}

/// What is the same in all certificates for the same contents.
std::string textOf(Certificate const& certificate)
{
    std::string text = certificate.getSubject() + "\n" + certificate.getIssuer() + "\n" +
                       certificate.getSubjectKeyIdentifier() + "\n" +
                       certificate.getAuthorityKeyIdentifier() + "\n" +
                       textOf(certificate.getAlternativeNames());
    for (auto const& usage : certificate.getKeyUsages()) {
        text += usage + "\n";
    }
    for (auto const& usage : certificate.getExtendedKeyUsages()) {
        text += usage + "\n";
    }
    auto const& issuer = certificate.getIssuer() == "CN=root" ? root() : certificate;
    return text + (certificate.isIssuedBy(issuer) ? "signed" : "not signed");
}

std::string textOf(CertificateRequest const& made)
{
    return made.getSubject() + "\n" + textOf(made.getAlternativeNames()) +
           (made.isSignatureValid() ? "signed" : "not signed");
}

/// A result that is rendered when memory is back.
template <class Result>
struct Made
{
    Result result;
};

template <class Result>
std::string rendered(Made<Result> const& made)
{
    return textOf(made.result);
}

template <class Result>
Made<Result> made(Result const& result)
{
    return {result};
}

/// Renders a builder by what it builds.
struct Builder
{
    EndEntityCertificateBuilder builder = EndEntityCertificateBuilder()
                                              .withSubject({{"CN", "leaf"}})
                                              .withAlternativeNames(names())
                                              .withPurposes({Purpose::TLSServer});
};

std::string rendered(Builder const& object)
{
    return textOf(object.builder.signBy(root(), rootKey(), leafKey()));
}

struct Request
{
    CertificateRequest request;
};

std::string rendered(Request const& object)
{
    return textOf(object.request);
}

struct Bundle : Unchanging
{
    PKCS12Certificate bundle;
};

AllowedOutcomes shortage(std::size_t stride = 1)
{
    return failsWith(
        Failures{
            failureBeginning<CertificateException>("Internal error: "),
            failure<X509CertificateException>("Internal error: OpenSSL ran out of memory."), nameUnread(),
            extensionsUnread()},
        stride);
}

/// Returns an operation with many allocations, of which some are refused.
template <class Object, class Function>
OperationOn<Object> longOperation(std::string const& name, Function const& function)
{
    constexpr std::size_t stride = 37;
    return {name, function, shortage(stride), withStride(stride)};
}

std::vector<SweptOperation> requestOperations()
{
    return operationsOn<Request>(
        "CertificateRequest ", [] { return Request{CertificateRequest::fromPEM(request().getAsPEM())}; },
        {
            longOperation<Request>(
                "make",
                [](Request&) {
                    return made(CertificateRequest::make({{"CN", "a"}}, names(), leafKey()));
                }),
            longOperation<Request>(
                "fromPEM",
                [pem = request().getAsPEM()](Request&) { return made(CertificateRequest::fromPEM(pem)); }),
            {"getSubject", [](Request& object) { return object.request.getSubject(); }, shortage()},
            {"getAlternativeNames",
             [](Request& object) { return textOf(object.request.getAlternativeNames()); }, shortage()},
            longOperation<Request>(
                "isSignatureValid", [](Request& object) { return object.request.isSignatureValid(); }),
            {"getAsPEM", [](Request& object) { return object.request.getAsPEM(); }, shortage()},
        });
}

std::vector<SweptOperation> issuingOperations()
{
    auto const now = std::chrono::system_clock::now();
    return operationsOn<Builder>(
        "EndEntityCertificateBuilder ", [] { return Builder(); },
        {
            {"withSubject",
             [](Builder& object) {
                 object.builder.withSubject({{"O", "Example"}, {"CN", "new"}});
                 return true;
             },
             shortage()},
            {"withAlternativeNames",
             [](Builder& object) {
                 object.builder.withAlternativeNames({{Kind::DNS, "new.example"}, {Kind::URI, "urn:a"}});
                 return true;
             },
             shortage()},
            {"withValidity",
             [now](Builder& object) {
                 object.builder.withValidity(now, now + std::chrono::hours(1));
                 return true;
             },
             shortage()},
            longOperation<Builder>(
                "fromRequest",
                [](Builder& object) {
                    object.builder.fromRequest(request());
                    return true;
                }),
            longOperation<Builder>(
                "signSelf", [](Builder& object) { return made(object.builder.signSelf(leafKey())); }),
            longOperation<Builder>(
                "signBy a key",
                [](Builder& object) { return made(object.builder.signBy(root(), rootKey(), leafKey())); }),
            longOperation<Builder>(
                "signBy a request",
                [](Builder& object) { return made(object.builder.signBy(root(), rootKey(), request())); }),
        });
}

std::vector<SweptOperation> keyOperations()
{
    auto const makeBundle = [] {
        Pkcs12Spec spec;
        spec.passphrase = "secret";
        spec.key = p256Key("leaf");
        spec.iterations = 1;
        Bundle bundle;
        bundle.bundle = PKCS12Certificate(toDer(makePkcs12(spec)), "secret");
        return bundle;
    };
    auto outcomes = shortage(7);
    outcomes.failures.push_back(failure<PKCS12CertificateException>("The bundle could not be decrypted."));
    outcomes.failures.push_back(failure<PKCS12CertificateException>("Unable to write out PKCS12 bytes."));
    return operationsOn<Bundle>(
        "Key ", makeBundle,
        {
            {"privateKeyAsPEM",
             [](Bundle& object) { return std::string(privateKeyAsPEM(object.bundle, "secret").view()); },
             outcomes, withStride(3)},
            longOperation<Bundle>(
                "makePrivateKey", [](Bundle&) { return makePrivateKey(KeyChoice::Ed25519).view().size(); }),
            {"SecretString", [](Bundle&) { return std::string(SecretString("secret").view()); }},
        });
}

struct Result : Unchanging
{
    PathResult result;
};

std::vector<SweptOperation> explanations()
{
    auto const makeResult = [] {
        Result result;
        result.result.chain = {root()};
        return result;
    };
    return operationsOn<Result>(
        "Explanation ", makeResult,
        {
            {"explain",
             [](Result& object) {
                 auto const explanation = explain(object.result);
                 return explanation.subject + explanation.message + explanation.check + explanation.advice;
             },
             shortage()},
        });
}

} // namespace

// Replace OpenSSL's functions: call them and exempt the decoder's allocations.

int X509_sign(X509* certificate, EVP_PKEY* key, EVP_MD const* digest)
{
    static auto* const original = reinterpret_cast<decltype(&X509_sign)>(dlsym(RTLD_NEXT, "X509_sign"));
    return signWithDecoder(original, certificate, key, digest);
}

int X509_REQ_sign(X509_REQ* request, EVP_PKEY* key, EVP_MD const* digest)
{
    static auto* const original =
        reinterpret_cast<decltype(&X509_REQ_sign)>(dlsym(RTLD_NEXT, "X509_REQ_sign"));
    return signWithDecoder(original, request, key, digest);
}

FOUNDATION_TEST_ALLOCATION_FAILURE(Requests, requestOperations());
FOUNDATION_TEST_ALLOCATION_FAILURE(Builders, issuingOperations());
FOUNDATION_TEST_ALLOCATION_FAILURE(Keys, keyOperations());
FOUNDATION_TEST_ALLOCATION_FAILURE(Explanations, explanations());
