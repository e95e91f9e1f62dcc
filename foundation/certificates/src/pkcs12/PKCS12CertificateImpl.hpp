#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/PKCS12Certificate.hpp>

#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace foundation::certificates {

/// The implementation of PKCS12Certificate. Shares ownership of the parsed bundle, and owns its decrypted
/// parts as values of the library. The constructors set everything, and nothing changes afterwards.
///
/// Has no lock; the handle calls it under the handle's lock. Opens an error scope only while it loads.
/// PKCS12Certificate documents the operations and their failures.
class PKCS12CertificateImpl
{
public:
    PKCS12CertificateImpl();
    PKCS12CertificateImpl(ByteArray const& bytes, std::string const& passphrase);
    PKCS12CertificateImpl(std::istream& stream, std::string const& passphrase);
    /// Shares the source's parsed bundle. The guard proves that the caller holds the lock of the source's
    /// handle.
    PKCS12CertificateImpl(PKCS12CertificateImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    ~PKCS12CertificateImpl();

    bool empty() const;
    ByteArray getAsBytes() const;
    X509Certificate getCertificate() const;
    X509CertificateChain getCAChain() const;
    ByteArray getPrivateExponent() const;
    std::optional<PrivateKeyInfo> getPrivateKeyInfo() const;
    void print(std::ostream& out) const;
    bool operator==(PKCS12CertificateImpl const& other) const;

    /// @throws PKCS12CertificateException "PKCS12Certificate has no content."
    void throwIfEmpty() const;

private:
    void init(ByteArray const& bytes, std::string const& passphrase);
    void takeCertificates(X509* matchingTheKey, STACK_OF(X509) const* others);

    std::optional<PrivateKeyInfo> privateKey;
    std::shared_ptr<PKCS12> pkcs12;
    X509Certificate certificate;
    X509CertificateChain caChain;
};

} // namespace foundation::certificates
