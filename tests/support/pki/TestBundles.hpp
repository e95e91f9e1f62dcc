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
    /// Each signer's certificate is embedded in this order, unless `withoutCertificates` is set. May be
    /// empty.
    std::vector<CertificateAndKey> signers;
    /// Embedded after the signers' certificates, in this order.
    std::vector<X509Handle> furtherCertificates;
    bool detached = false;
    bool withoutCertificates = false;
    bool withoutAttributes = false;
    EVP_MD const* digest = EVP_sha256();
};

/// Makes PKCS#7 signed data.
Pkcs7Handle makeSignedData(SignedDataSpec const& spec);
/// Makes signed data by one signer. The further certificates are embedded after the signer's.
Pkcs7Handle makeSignedData(
    std::string const& content, CertificateAndKey const& signer,
    std::vector<X509Handle> const& furtherCertificates = {});

/// Returns a copy in which the last bit of the embedded content is flipped, so that no digest fits.
Pkcs7Handle withTamperedContent(Pkcs7Handle const& signedData);
/// Returns a copy in which the last bit of the first signature is flipped.
Pkcs7Handle withDamagedSignature(Pkcs7Handle const& signedData);

/// Returns the encoding with its two signers in reverse, which BER allows and DER does not.
Bytes withTwoSignersReversed(Pkcs7Handle const& signedData);

/// Make the other content types. Recipients of enveloped data need RSA keys.
Pkcs7Handle makePlainData(std::string const& content);
Pkcs7Handle makeDigestedData(std::string const& content);
Pkcs7Handle makeEncryptedData();
Pkcs7Handle makeEnvelopedData(std::string const& content, CertificateAndKey const& recipient);
/// Embeds the signer's certificate.
Pkcs7Handle makeSignedAndEnvelopedData(
    std::string const& content, CertificateAndKey const& signer, CertificateAndKey const& recipient);
/// Returns a ContentInfo of the given type without content. OpenSSL parses it into null members.
Bytes contentInfoWithoutContent(int typeNid);

Bytes toDer(Pkcs7Handle const& pkcs7);
std::string toPem(Pkcs7Handle const& pkcs7);
Pkcs7Handle parsePkcs7(Bytes const& der);

struct Pkcs12Spec
{
    std::string passphrase;
    /// Each part is optional. The key need not belong to the certificate.
    X509Handle certificate;
    KeyHandle key;
    /// Stored after the certificate, in this order.
    std::vector<X509Handle> furtherCertificates;
    std::optional<std::string> friendlyName;
    /// NIDs of ciphers, including those of the legacy provider. 0 selects AES-256, -1 no encryption.
    int keyCipher = 0;
    int certificateCipher = 0;
    bool withoutMac = false;
    EVP_MD const* macDigest = EVP_sha256();
    /// A small count keeps tests fast.
    int iterations = 16;
};

Pkcs12Handle makePkcs12(Pkcs12Spec const& spec);
Pkcs12Handle makePkcs12(CertificateAndKey const& content, std::string const& passphrase);

Bytes toDer(Pkcs12Handle const& pkcs12);

} // namespace foundation::test
