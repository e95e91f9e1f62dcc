#pragma once

#include "support/openssl/Handles.hpp"
#include "support/pki/TestPki.hpp"

#include <optional>
#include <string>
#include <vector>

namespace foundation::test {

struct SignedDataSpec
{
    std::string content = "signed content";
    /// Each signer's certificate is embedded, in this order, unless `withoutCertificates`. May be empty.
    std::vector<CertificateAndKey> signers;
    /// Embedded after the signers' certificates, in this order.
    std::vector<X509Handle> furtherCertificates;
    bool detached = false;
    bool withoutCertificates = false;
    bool withoutAttributes = false;
    EVP_MD const* digest = EVP_sha256();
};

/// PKCS#7 signed data.
Pkcs7Handle makeSignedData(SignedDataSpec const& spec);
/// Signed by one signer, with the further certificates embedded after the signer's.
Pkcs7Handle makeSignedData(
    std::string const& content, CertificateAndKey const& signer,
    std::vector<X509Handle> const& furtherCertificates = {});

/// The same structure with the first byte of its embedded content changed, so that no digest fits it.
Pkcs7Handle withTamperedContent(Pkcs7Handle const& signedData);
/// The same structure with one bit of its first signature changed.
Pkcs7Handle withDamagedSignature(Pkcs7Handle const& signedData);

/// The other content types. Recipients of enveloped data need RSA keys.
Pkcs7Handle makePlainData(std::string const& content);
Pkcs7Handle makeDigestedData(std::string const& content);
Pkcs7Handle makeEncryptedData();
Pkcs7Handle makeEnvelopedData(std::string const& content, CertificateAndKey const& recipient);
/// The signer's certificate is embedded.
Pkcs7Handle makeSignedAndEnvelopedData(
    std::string const& content, CertificateAndKey const& signer, CertificateAndKey const& recipient);
/// A ContentInfo that names the given type and has no content at all: OpenSSL parses it to null members.
Bytes contentInfoWithoutContent(int typeNid);

Bytes toDer(Pkcs7Handle const& pkcs7);
std::string toPem(Pkcs7Handle const& pkcs7);
Pkcs7Handle parsePkcs7(Bytes const& der);

struct Pkcs12Spec
{
    std::string passphrase;
    /// What the bundle holds; each may be missing. Key and certificate need not belong together.
    X509Handle certificate;
    KeyHandle key;
    /// After the certificate, in this order.
    std::vector<X509Handle> furtherCertificates;
    std::optional<std::string> friendlyName;
    /// Ciphers by NID; 0 is AES-256, -1 is none. Those of the legacy provider work too.
    int keyCipher = 0;
    int certificateCipher = 0;
    bool withoutMac = false;
    EVP_MD const* macDigest = EVP_sha256();
    /// Few, to keep tests fast.
    int iterations = 16;
};

Pkcs12Handle makePkcs12(Pkcs12Spec const& spec);
Pkcs12Handle makePkcs12(CertificateAndKey const& content, std::string const& passphrase);

Bytes toDer(Pkcs12Handle const& pkcs12);

} // namespace foundation::test
