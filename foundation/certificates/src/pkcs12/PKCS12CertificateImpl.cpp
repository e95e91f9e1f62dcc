#include "pkcs12/PKCS12CertificateImpl.hpp"

#include "certificate/X509CertificateImpl.hpp"
#include "keys/KeyExtraction.hpp"
#include "keys/RSAKeySize.hpp"
#include "libcrypto/InputReading.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/LegacyProvider.hpp"
#include "libcrypto/OpenSSLCleanup.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/core_names.h>
#include <openssl/err.h>

#include <cstdint>
#include <ostream>

namespace foundation::certificates {

namespace {

/// The parts of a bundle. Each part can be null.
struct BundleContents
{
    EVP_PKEYUPtr key;
    X509UPtr certificate;
    X509StackUPtr others;
};

/// Whether the MAC matches the passphrase. OpenSSL takes the length as int, so no bundle has a longer one.
bool macMatches(PKCS12* bundle, std::string const& passphrase)
{
    return fitsInInt(passphrase.size()) &&
           PKCS12_verify_mac(bundle, passphrase.c_str(), static_cast<int>(passphrase.size())) != 0;
}

/// Whether PKCS12_parse has returned the certificate that matches the key among the others. This is the only
/// sign that OpenSSL ran out of memory when it read or compared the certificate's key. Checks duplicates,
/// because a certificate caches its key.
bool hasMissedCertificate(BundleContents const& contents)
{
    if (contents.key == nullptr || contents.certificate != nullptr) {
        return false;
    }
    RAIIOpenSSLErrorRemover const errors(false);
    for (int index = 0; index < sk_X509_num(contents.others.get()); ++index) {
        auto const duplicate = makeX509(X509_dup(sk_X509_value(contents.others.get(), index)));
        if (duplicate == nullptr || X509_check_private_key(duplicate.get(), contents.key.get()) == 1) {
            return true;
        }
    }
    return false;
}

BundleContents decrypt(PKCS12* bundle, std::string const& passphrase, RAIIOpenSSLErrorRemover& errors)
{
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* others = nullptr;
    int const result = PKCS12_parse(bundle, passphrase.c_str(), &key, &certificate, &others);
    // A failed call can also leave parts to release.
    BundleContents contents{makeEVP_PKEY(key), makeX509(certificate), makeX509Stack(others)};
    if (result == 0 || hasMissedCertificate(contents)) {
        throw PKCS12CertificateException(
            "Error: Parsing PKSC12 certificate failed." + errors.getErrorString());
    }
    return contents;
}

PrivateKeyInfo eccPrivateKey(EVP_PKEY* key)
{
    EllipticCurve const curve = getECCCurveFromEVPKey(key);
    return PrivateKeyInfo(getECCPrivateIntegerFromEVPKey(key), curve);
}

PrivateKeyInfo rsaPrivateKey(EVP_PKEY* key, RAIIOpenSSLErrorRemover& errors)
{
    auto const exponent = makeBIGNUM(BN_new());
    constexpr char failure[] = "Failed to get the private exponent for the private key";
    BIGNUM* target = throwIfNull<PKCS12CertificateException>(exponent.get(), failure);
    throwIfBelowOne<PKCS12CertificateException>(
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &target), failure);
    int const expected = BN_num_bytes(exponent.get());
    ByteArray bytes(static_cast<std::size_t>(expected));
    if (BN_bn2bin(exponent.get(), bytes.data()) != expected) {
        throw PKCS12CertificateException(
            "Error: Unable to read private key from PKCS12 certificate." + errors.getErrorString());
    }
    PrivateKeyInfo record(bytes);
    throwIfWeakRSAKey<PKCS12CertificateException>(static_cast<std::uint64_t>(EVP_PKEY_get_bits(key)));
    return record;
}

PrivateKeyInfo privateKeyOf(EVP_PKEY* key, RAIIOpenSSLErrorRemover& errors)
{
    switch (sanityCheckEVPKey(key)) {
    case KeyType::RSA:
        return rsaPrivateKey(key, errors);
    case KeyType::ECC:
        return eccPrivateKey(key);
    }
    throw InvalidArgument("PKCS12Certificate only supports RSA and ECC at this time.");
}

} // namespace

PKCS12CertificateImpl::PKCS12CertificateImpl()
{
    registerOpenSSLCleanup();
}

PKCS12CertificateImpl::PKCS12CertificateImpl(ByteArray const& bytes, std::string const& passphrase)
    : PKCS12CertificateImpl()
{
    init(bytes, passphrase);
}

PKCS12CertificateImpl::PKCS12CertificateImpl(std::istream& stream, std::string const& passphrase)
    : PKCS12CertificateImpl()
{
    init(
        bytesOfStream(
            stream, "The input PKCS12 certificate data stream is invalid.",
            "The input PKCS12 certificate data stream is invalid. Reason:"),
        passphrase);
}

PKCS12CertificateImpl::PKCS12CertificateImpl(
    PKCS12CertificateImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : privateKey(other.privateKey),
      pkcs12(other.pkcs12),
      certificate(other.certificate),
      caChain(other.caChain)
{}

PKCS12CertificateImpl::~PKCS12CertificateImpl() = default;

void PKCS12CertificateImpl::init(ByteArray const& bytes, std::string const& passphrase)
{
    if (bytes.empty()) {
        throw InvalidArgument("The provided PKCS12 certificate bytearray has no content.");
    }
    RAIIOpenSSLErrorRemover errors(true);
    auto const bio = bufferOf<PKCS12CertificateException>(bytes, InputForm::DER);
    pkcs12 = makePKCS12(d2i_PKCS12_bio(bio.get(), nullptr));
    throwIfLoadingFailed<PKCS12CertificateException>(
        pkcs12 != nullptr, errors, "Error: Loading PKSC12 certificate failed. Reason=");
    if (!macMatches(pkcs12.get(), passphrase)) {
        throw IncorrectPassphrase(
            "Input passphrase is incorrect. OpenSSL error message=" + errors.getErrorString());
    }
    if (!loadLegacyProvider()) {
        throw PKCS12CertificateException("Error: Loading legacy provider failed." + errors.getErrorString());
    }
    auto const contents = decrypt(pkcs12.get(), passphrase, errors);
    takeCertificates(contents.certificate.get(), contents.others.get());
    if (contents.key != nullptr) {
        privateKey = privateKeyOf(contents.key.get(), errors);
    }
}

void PKCS12CertificateImpl::takeCertificates(X509* matchingTheKey, STACK_OF(X509) const* others)
{
    try {
        if (matchingTheKey != nullptr) {
            certificate = X509Certificate(X509CertificateImpl::adopt(matchingTheKey));
        }
        for (int index = 0; index < sk_X509_num(others); ++index) {
            caChain.addCertificate(X509Certificate(X509CertificateImpl::adopt(sk_X509_value(others, index))));
        }
    } catch (UnsupportedEllipticCurve const& failure) {
        throw UnsupportedEllipticCurve(
            std::string("Unsupported elliptic curve in X509 Certificate in PKCS12: ") + failure.what());
    } catch (CertificateException const& failure) {
        throw PKCS12CertificateException(
            std::string("Error: Unable to parse X509 certificate(s) inside PKCS12 certificate.") +
            failure.what());
    }
}

bool PKCS12CertificateImpl::empty() const
{
    return pkcs12 == nullptr;
}

ByteArray PKCS12CertificateImpl::getAsBytes() const
{
    if (pkcs12 == nullptr) {
        return {};
    }
    auto const bio = makeMemoryBIO();
    throwIfBelowOne<PKCS12CertificateException>(
        i2d_PKCS12_bio(bio.get(), pkcs12.get()), "Unable to write out PKCS12 bytes.");
    return contentsAsBytes(bio.get());
}

X509Certificate PKCS12CertificateImpl::getCertificate() const
{
    return certificate;
}

X509CertificateChain PKCS12CertificateImpl::getCAChain() const
{
    return caChain;
}

ByteArray PKCS12CertificateImpl::getPrivateExponent() const
{
    return privateKey ? privateKey->getRSAPrivateExponent() : ByteArray();
}

std::optional<PrivateKeyInfo> PKCS12CertificateImpl::getPrivateKeyInfo() const
{
    return privateKey;
}

void PKCS12CertificateImpl::print(std::ostream& out) const
{
    out << "Printing PKCS12 certificate.\n"
        << "Certificate: \n"
        << certificate << std::endl
        << "CA Chain: \n"
        << caChain << std::endl;
}

bool PKCS12CertificateImpl::operator==(PKCS12CertificateImpl const& other) const
{
    return certificate == other.certificate && caChain == other.caChain && privateKey == other.privateKey;
}

void PKCS12CertificateImpl::throwIfEmpty() const
{
    if (pkcs12 == nullptr) {
        throw PKCS12CertificateException("PKCS12Certificate has no content.");
    }
}

} // namespace foundation::certificates
