#include "support/pki/TestBundles.hpp"

#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Der.hpp"

#include <openssl/pem.h>

#include <algorithm>

namespace foundation::test {

namespace {

BioHandle readerOf(std::string const& text)
{
    return own(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

int flagsFor(SignedDataSpec const& spec)
{
    return PKCS7_BINARY | PKCS7_PARTIAL | (spec.detached ? PKCS7_DETACHED : 0) |
           (spec.withoutCertificates ? PKCS7_NOCERTS : 0) | (spec.withoutAttributes ? PKCS7_NOATTR : 0);
}

/// Encodes and parses the structure, because OpenSSL keeps additional state in a structure that it built.
Pkcs7Handle parsedAgain(Pkcs7Handle const& pkcs7)
{
    return parsePkcs7(toDer(pkcs7));
}

Pkcs7Handle makeOfType(int type)
{
    auto pkcs7 = own(PKCS7_new());
    require(PKCS7_set_type(pkcs7.get(), type));
    return pkcs7;
}

/// Writes the content through the structure's filters: digests, ciphers, signatures.
void fill(Pkcs7Handle const& pkcs7, std::string const& content)
{
    auto const filters = own(PKCS7_dataInit(pkcs7.get(), nullptr));
    require(BIO_write(filters.get(), content.data(), static_cast<int>(content.size())));
    require(BIO_flush(filters.get()));
    require(PKCS7_dataFinal(pkcs7.get(), filters.get()));
}

void flipLastBit(ASN1_OCTET_STRING* string)
{
    auto const* const data = ASN1_STRING_get0_data(string);
    Bytes bytes(data, data + ASN1_STRING_length(string));
    bytes.back() ^= 1;
    require(ASN1_STRING_set(string, bytes.data(), static_cast<int>(bytes.size())));
}

} // namespace

Pkcs7Handle makeSignedData(SignedDataSpec const& spec)
{
    ErrorQueueMark const mark;
    auto const flags = flagsFor(spec);
    auto const content = readerOf(spec.content);
    auto const pkcs7 = own(PKCS7_sign(nullptr, nullptr, nullptr, content.get(), flags));
    for (auto const& signer : spec.signers) {
        auto* const added = PKCS7_sign_add_signer(
            pkcs7.get(), signer.certificate.get(), signer.key.get(), spec.digest, flags);
        require(added ? 1 : 0);
    }
    for (auto const& certificate : spec.furtherCertificates) {
        require(PKCS7_add_certificate(pkcs7.get(), certificate.get()));
    }
    require(PKCS7_final(pkcs7.get(), content.get(), flags));
    return parsedAgain(pkcs7);
}

Pkcs7Handle makeSignedData(
    std::string const& content, CertificateAndKey const& signer,
    std::vector<X509Handle> const& furtherCertificates)
{
    SignedDataSpec spec;
    spec.content = content;
    spec.signers = {signer};
    spec.furtherCertificates = furtherCertificates;
    return makeSignedData(spec);
}

Pkcs7Handle withTamperedContent(Pkcs7Handle const& signedData)
{
    auto const copy = parsedAgain(signedData);
    flipLastBit(copy->d.sign->contents->d.data);
    return parsedAgain(copy);
}

Pkcs7Handle withDamagedSignature(Pkcs7Handle const& signedData)
{
    auto const copy = parsedAgain(signedData);
    flipLastBit(sk_PKCS7_SIGNER_INFO_value(copy->d.sign->signer_info, 0)->enc_digest);
    return parsedAgain(copy);
}

Bytes withTwoSignersReversed(Pkcs7Handle const& signedData)
{
    auto whole = toDer(signedData);
    auto const parsed = parsePkcs7(whole);
    auto const encodingOf = [&](int index) {
        return encodedBy(
            i2d_PKCS7_SIGNER_INFO, sk_PKCS7_SIGNER_INFO_value(parsed->d.sign->signer_info, index));
    };
    auto const first = encodingOf(0);
    auto const second = encodingOf(1);
    auto const both = joined({first, second});
    auto const found = std::search(whole.begin(), whole.end(), both.begin(), both.end());
    require(found != whole.end());
    auto const reversed = joined({second, first});
    std::copy(reversed.begin(), reversed.end(), found);
    return whole;
}

Pkcs7Handle makePlainData(std::string const& content)
{
    ErrorQueueMark const mark;
    auto const pkcs7 = makeOfType(NID_pkcs7_data);
    require(ASN1_STRING_set(pkcs7->d.data, content.data(), static_cast<int>(content.size())));
    return parsedAgain(pkcs7);
}

Pkcs7Handle makeDigestedData(std::string const& content)
{
    ErrorQueueMark const mark;
    auto const pkcs7 = makeOfType(NID_pkcs7_digest);
    require(PKCS7_set_digest(pkcs7.get(), EVP_sha256()));
    require(PKCS7_content_new(pkcs7.get(), NID_pkcs7_data));
    fill(pkcs7, content);
    return parsedAgain(pkcs7);
}

Pkcs7Handle makeEncryptedData()
{
    ErrorQueueMark const mark;
    auto const pkcs7 = makeOfType(NID_pkcs7_encrypted);
    auto* const content = pkcs7->d.encrypted->enc_data;
    content->algorithm->algorithm = OBJ_nid2obj(NID_aes_256_cbc);
    content->enc_data = ASN1_OCTET_STRING_new();
    std::string const cipherText(32, 'x');
    require(ASN1_STRING_set(content->enc_data, cipherText.data(), static_cast<int>(cipherText.size())));
    return parsedAgain(pkcs7);
}

Pkcs7Handle makeEnvelopedData(std::string const& content, CertificateAndKey const& recipient)
{
    ErrorQueueMark const mark;
    auto const recipients = makeStack({recipient.certificate});
    auto const reader = readerOf(content);
    auto const pkcs7 = own(PKCS7_encrypt(recipients.get(), reader.get(), EVP_aes_256_cbc(), PKCS7_BINARY));
    return parsedAgain(pkcs7);
}

Pkcs7Handle makeSignedAndEnvelopedData(
    std::string const& content, CertificateAndKey const& signer, CertificateAndKey const& recipient)
{
    ErrorQueueMark const mark;
    auto const pkcs7 = makeOfType(NID_pkcs7_signedAndEnveloped);
    require(PKCS7_set_cipher(pkcs7.get(), EVP_aes_256_cbc()));
    auto* const added =
        PKCS7_add_signature(pkcs7.get(), signer.certificate.get(), signer.key.get(), EVP_sha256());
    require(added ? 1 : 0);
    require(PKCS7_add_certificate(pkcs7.get(), signer.certificate.get()));
    require(PKCS7_add_recipient(pkcs7.get(), recipient.certificate.get()) ? 1 : 0);
    fill(pkcs7, content);
    return parsedAgain(pkcs7);
}

Bytes contentInfoWithoutContent(int typeNid)
{
    return derElement(sequenceTag, encodedBy(i2d_ASN1_OBJECT, OBJ_nid2obj(typeNid)));
}

Bytes toDer(Pkcs7Handle const& pkcs7)
{
    return encodedBy(i2d_PKCS7, pkcs7.get());
}

std::string toPem(Pkcs7Handle const& pkcs7)
{
    return asText(writtenBy(PEM_write_bio_PKCS7, pkcs7.get()));
}

Pkcs7Handle parsePkcs7(Bytes const& der)
{
    ErrorQueueMark const mark;
    return own(d2i_PKCS7_bio(readerOf(der).get(), nullptr));
}

} // namespace foundation::test
