#include "support/openssl/Handles.hpp"

#include <openssl/err.h>

#include <stdexcept>
#include <string>

namespace foundation::test {

namespace {

[[noreturn]] void throwOpenSSLFailure()
{
    auto const code = ERR_peek_error();
    char const* const reason = ERR_reason_error_string(code);
    throw std::runtime_error(
        std::string("OpenSSL refused while making test data: ") +
        (reason ? std::string(reason) : "error code " + std::to_string(code)));
}

template <class Object, class Deleter>
std::shared_ptr<Object> ownWith(Object* object, Deleter deleter)
{
    if (!object) {
        throwOpenSSLFailure();
    }
    return {object, deleter};
}

void freeStack(STACK_OF(X509) * stack)
{
    sk_X509_pop_free(stack, X509_free);
}

} // namespace

X509Handle own(X509* certificate)
{
    return ownWith(certificate, X509_free);
}

KeyHandle own(EVP_PKEY* key)
{
    return ownWith(key, EVP_PKEY_free);
}

CrlHandle own(X509_CRL* crl)
{
    return ownWith(crl, X509_CRL_free);
}

Pkcs7Handle own(PKCS7* pkcs7)
{
    return ownWith(pkcs7, PKCS7_free);
}

Pkcs12Handle own(PKCS12* pkcs12)
{
    return ownWith(pkcs12, PKCS12_free);
}

BioHandle own(BIO* bio)
{
    return ownWith(bio, BIO_free_all);
}

BigNumberHandle own(BIGNUM* number)
{
    return ownWith(number, BN_free);
}

AsnStringHandle own(ASN1_STRING* string)
{
    return ownWith(string, ASN1_STRING_free);
}

AsnObjectHandle own(ASN1_OBJECT* object)
{
    return ownWith(object, ASN1_OBJECT_free);
}

NameHandle own(X509_NAME* name)
{
    return ownWith(name, X509_NAME_free);
}

ExtensionHandle own(X509_EXTENSION* extension)
{
    return ownWith(extension, X509_EXTENSION_free);
}

RevokedHandle own(X509_REVOKED* revoked)
{
    return ownWith(revoked, X509_REVOKED_free);
}

StoreHandle own(X509_STORE* store)
{
    return ownWith(store, X509_STORE_free);
}

StoreContextHandle own(X509_STORE_CTX* context)
{
    return ownWith(context, X509_STORE_CTX_free);
}

KeyContextHandle own(EVP_PKEY_CTX* context)
{
    return ownWith(context, EVP_PKEY_CTX_free);
}

DigestContextHandle own(EVP_MD_CTX* context)
{
    return ownWith(context, EVP_MD_CTX_free);
}

CurveHandle own(EC_GROUP* curve)
{
    return ownWith(curve, EC_GROUP_free);
}

PointHandle own(EC_POINT* point)
{
    return ownWith(point, EC_POINT_free);
}

ParameterBuilderHandle own(OSSL_PARAM_BLD* builder)
{
    return ownWith(builder, OSSL_PARAM_BLD_free);
}

X509StackHandle makeStack(std::vector<X509Handle> const& certificates)
{
    auto const stack = ownWith(sk_X509_new_null(), freeStack);
    for (auto const& certificate : certificates) {
        require(sk_X509_push(stack.get(), newReference(certificate)));
    }
    return stack;
}

X509Handle share(X509* certificate)
{
    require(X509_up_ref(certificate));
    return own(certificate);
}

X509* newReference(X509Handle const& certificate)
{
    require(X509_up_ref(certificate.get()));
    return certificate.get();
}

void require(long result)
{
    if (result < 1) {
        throwOpenSSLFailure();
    }
}

Bytes contentOf(BioHandle const& bio)
{
    char* data = nullptr;
    auto const size = BIO_get_mem_data(bio.get(), &data);
    return {data, data + size};
}

BioHandle readerOf(Bytes const& bytes)
{
    return own(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

} // namespace foundation::test
