#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/SelfSigned.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/x509.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <dlfcn.h>

namespace {

/// Where OpenSSL allocates when it decodes ASN.1.
foundation::test::SparedSources::Files const decoder{"a_object.c", "asn1_lib.c", "tasn_dec.c", "tasn_new.c"};

} // namespace

/// Takes the place of OpenSSL's function, and calls that with memory for all that it decodes.
///
/// ASN1_item_sign_ctx has d2i_X509_ALGOR fill the two algorithm identifiers of the certificate with what the
/// provider has encoded. A decoder that fails releases the object that it was to fill, and these two are
/// parts of the X509: if one of the decoder's allocations is refused, OpenSSL hands free() a pointer that
/// malloc() has never returned.
int X509_sign_ctx(X509* certificate, EVP_MD_CTX* context)
{
    static auto* const original =
        reinterpret_cast<decltype(&X509_sign_ctx)>(dlsym(RTLD_NEXT, "X509_sign_ctx"));
    foundation::test::SparedSources const spared(decoder);
    return original(certificate, context);
}

namespace foundation::test {

namespace {

using namespace certificates;

struct Builder : Unchanging
{
    SelfSignedCertBuilder builder;
};

Builder builder()
{
    Builder made{{}, fastBuilder()};
    made.builder.withSerialNumber(7).withCommonName("build.example");
    return made;
}

Builder builderWithPassphrase()
{
    auto made = builder();
    made.builder.withPrivateKeyPassphrase("secret");
    return made;
}

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

/// What all certificates of this builder have in common: the key is another one each time.
std::string rendered(Built const& made)
{
    return made.certificate.getSubjectName() + "\n" +
           test::rendered(made.certificate.getExtendedKeyUsages()) + (made.hasKey ? "key" : "");
}

/// Whatever OpenSSL finds no memory for, while a certificate and a key are made or the certificate is loaded.
Shortcomings unmade(std::size_t stride)
{
    return failsWith(
        Failures{
            failureBeginning<std::runtime_error>("Failed to generate a certificate: "),
            failure<InvalidArgument>("The input certificate has no content."),
            failure<X509CertificateException>(
                "Internal error: The given certificate data could not be written to a buffer."),
            failureBeginning<X509CertificateException>("Error: Loading a certificate failed. Reason="),
            failure<CertificateException>("Failed to sanity check EVP_PKEY. Argument is nullptr"),
            failure<X509CertificateException>("Failed to get the modulus for the public key"),
            failure<X509CertificateException>("Failed to get the public exponent for the public key"),
            failure<X509CertificateException>(
                "RSA key size does not meet minimum cryptographic requirements"),
            failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions."),
        },
        stride);
}

Shortcomings const notLoaded = failsWith(
    failure<InvalidArgument>("The input certificate data string is invalid. Reason:std::bad_alloc"));

std::vector<OperationOn<Builder>> plainBuilds()
{
    return {{"build", [](auto& b) { return built(b.builder.build()); }, unmade(23), notLoaded}};
}

/// Most of what these allocate goes into the thousands of rounds that make a key of the passphrase.
std::vector<OperationOn<Builder>> encryptedBuilds()
{
    constexpr std::size_t stride = 307;
    return {
        {"build", [](auto& b) { return built(b.builder.build()); }, unmade(stride), notLoaded},
        {"buildAndGetKeyBytesInPKCS12",
         [](auto& b) { return built(b.builder.buildAndGetKeyBytesInPKCS12()); }, unmade(stride), notLoaded},
    };
}

FOUNDATION_TEST_WITHOUT_MEMORY(Plain, operationsOn<Builder>("", builder, plainBuilds()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    Encrypted, operationsOn<Builder>("", builderWithPassphrase, encryptedBuilds()));

} // namespace

} // namespace foundation::test
