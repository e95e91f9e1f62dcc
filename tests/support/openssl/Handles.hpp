#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <vector>

namespace foundation::test {

/// Tests make their own witnesses with the bare OpenSSL API. Every object that OpenSSL hands out goes through
/// `own()` in the same statement: it refuses null with a `std::runtime_error` that carries OpenSSL's reason.
using Bytes = std::vector<unsigned char>;

using X509Handle = std::shared_ptr<X509>;
using KeyHandle = std::shared_ptr<EVP_PKEY>;
using CrlHandle = std::shared_ptr<X509_CRL>;
using Pkcs7Handle = std::shared_ptr<PKCS7>;
using Pkcs12Handle = std::shared_ptr<PKCS12>;
using BioHandle = std::shared_ptr<BIO>;
using BigNumberHandle = std::shared_ptr<BIGNUM>;
/// ASN1_INTEGER, ASN1_TIME and all other string-like types are one struct.
using AsnStringHandle = std::shared_ptr<ASN1_STRING>;
using AsnObjectHandle = std::shared_ptr<ASN1_OBJECT>;
using NameHandle = std::shared_ptr<X509_NAME>;
using ExtensionHandle = std::shared_ptr<X509_EXTENSION>;
using RevokedHandle = std::shared_ptr<X509_REVOKED>;
using StoreHandle = std::shared_ptr<X509_STORE>;
using StoreContextHandle = std::shared_ptr<X509_STORE_CTX>;
using KeyContextHandle = std::shared_ptr<EVP_PKEY_CTX>;
using DigestContextHandle = std::shared_ptr<EVP_MD_CTX>;
/// Owns the stack and one reference of each certificate in it.
using X509StackHandle = std::shared_ptr<STACK_OF(X509)>;

X509Handle own(X509* certificate);
KeyHandle own(EVP_PKEY* key);
CrlHandle own(X509_CRL* crl);
Pkcs7Handle own(PKCS7* pkcs7);
Pkcs12Handle own(PKCS12* pkcs12);
BioHandle own(BIO* bio);
BigNumberHandle own(BIGNUM* number);
AsnStringHandle own(ASN1_STRING* string);
AsnObjectHandle own(ASN1_OBJECT* object);
NameHandle own(X509_NAME* name);
ExtensionHandle own(X509_EXTENSION* extension);
RevokedHandle own(X509_REVOKED* revoked);
StoreHandle own(X509_STORE* store);
StoreContextHandle own(X509_STORE_CTX* context);
KeyContextHandle own(EVP_PKEY_CTX* context);
DigestContextHandle own(EVP_MD_CTX* context);

/// A stack of the given certificates in their order, each with a reference of its own.
X509StackHandle makeStack(std::vector<X509Handle> const& certificates);

/// Another handle on an object that someone else keeps, with a reference of its own.
X509Handle share(X509* certificate);

/// A further reference for calls that take ownership (`sk_X509_push`, `X509_STORE` and the like).
X509* newReference(X509Handle const& certificate);

/// For OpenSSL calls that answer below 1 on failure: throws `std::runtime_error` with OpenSSL's reason.
void require(long result);

/// Whole content of a memory BIO.
Bytes contentOf(BioHandle const& bio);

/// A read-only memory BIO over bytes which must outlive it.
BioHandle readerOf(Bytes const& bytes);

} // namespace foundation::test
