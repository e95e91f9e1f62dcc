#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/export.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct x509_store_st;

namespace foundation::toolkit {

/// What a certificate is used for. Each certificate of the chain must allow it.
enum class Purpose : int
{
    Any = 0,             ///< no purpose is checked
    TLSServer = 1,       ///< the server of a TLS connection (`X509_PURPOSE_SSL_SERVER`)
    TLSClient = 2,       ///< the client of a TLS connection (`X509_PURPOSE_SSL_CLIENT`)
    CodeSigning = 3,     ///< signed code; see PathOptions::purpose
    EmailProtection = 4, ///< signed mail (`X509_PURPOSE_SMIME_SIGN`)
    TimeStamping = 5     ///< signed time stamps (`X509_PURPOSE_TIMESTAMP_SIGN`)
};

/// Which certificates of the chain are checked against the CRLs that are given.
enum class Revocation : int
{
    NotChecked = 0, ///< none; the CRLs are not applied
    Leaf = 1,       ///< the leaf (`X509_V_FLAG_CRL_CHECK`)
    WholeChain = 2  ///< every certificate of the chain (also `X509_V_FLAG_CRL_CHECK_ALL`)
};

/// What a validation checks and tolerates. The defaults tolerate nothing and check no name, no purpose and no
/// revocation.
struct PathOptions
{
    /// A DNS name that the leaf must match (Certificate::matchesHost).
    std::optional<std::string> host;
    /// An IP address that the leaf must match (Certificate::matchesAddress). With a host, it must match both.
    std::optional<std::string> address;
    /// What the chain is used for. For CodeSigning the leaf must have extended key usages, and those of every
    /// certificate that has some must name code signing. If the leaf has a key usage, that must contain
    /// digitalSignature.
    Purpose purpose = Purpose::Any;
    /// The time at which the certificates and CRLs must be valid; the present if not given.
    std::optional<std::chrono::system_clock::time_point> time;
    /// Which certificates must be covered by `crls`. One that is not has the verdict `CRLError`.
    Revocation revocation = Revocation::NotChecked;
    /// CRLs in DER encoding. Nothing is downloaded. A CRL counts only if the chain's own CA signed it.
    std::vector<foundation::certificates::ByteArray> crls;
    /// Whether a self-signed certificate passes although it is not trusted.
    bool allowSelfSigned = false;
    /// Whether expired certificates pass. A certificate that is not yet valid never passes.
    bool allowExpired = false;
    /// Whether the chain may end at a trusted certificate that is not self-signed
    /// (`X509_V_FLAG_PARTIAL_CHAIN`).
    bool allowTrustedIntermediate = false;
    /// OpenSSL's security level, from 0 to 5, which sets the least strength of keys and signatures. Level 0
    /// judges as foundation::certificates::X509Certificate::validateCertificate does. Level 1 refuses
    /// signatures with SHA-1 and RSA keys below 1024 bits, level 2 also RSA keys below 2048 bits.
    int minimumSecurityLevel = 1;
};

/// The outcome of a validation.
struct PathResult
{
    /// The verdict, by the rules of X509Certificate::validateCertificate.
    foundation::certificates::CertificateChainStatus status =
        foundation::certificates::CertificateChainStatus::Failed;
    /// The first error that is not tolerated, as an `X509_V_ERR_...` code of OpenSSL; 0 if the chain is
    /// valid.
    int errorCode = 0;
    /// The position of the error in the chain: 0 is the leaf.
    int errorDepth = 0;
    /// The text of CertificateValidationResults::getValidationErrorString for the same failure.
    std::string text;
    /// The chain, the leaf first. After a failure, the chain as far as it was built; always with the leaf.
    std::vector<Certificate> chain;

    /// Whether the chain is valid. This is the check for callers.
    FOUNDATION_TOOLKIT_EXPORT bool isValid() const;
};

/// Validates chains of certificates with any key against a snapshot of trusted roots.
///
/// The roots are copied once, at construction. Later changes of the trust store have no effect, and an empty
/// store trusts nobody: the operating system's roots are never used in its place. CRLs in a trust store are
/// ignored. Copies share the roots, and a move is a copy. Any number of threads may use one object at once.
///
/// Flags, tolerances, verdicts and texts are those of X509Certificate::validateCertificate, except that proxy
/// certificates are refused. Leaves OpenSSL's error queue as it was.
class FOUNDATION_TOOLKIT_EXPORT PathValidator
{
public:
    /// Trusts the certificates of the trust store. A trust store that was moved from is empty.
    /// @throws TrustStoreException "Failed to read X509_STORE" and "Failed to add certificate to store, CN: "
    ///     and the common name, if OpenSSL runs out of memory
    /// @throws X509CertificateException "Internal error: OpenSSL ran out of memory.", "Internal error: Unable
    ///     to read the certificate's extensions."
    explicit PathValidator(foundation::certificates::TrustStore const& roots);
    /// Trusts the certificates, which may have any key. They are shared, not copied.
    /// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
    explicit PathValidator(std::vector<Certificate> const& roots);
    /// Trusts the operating system's roots for the usage, as they are at present.
    /// @throws TrustStoreException as TrustStore::addSystemCertificates does
    static PathValidator withSystemRoots(
        foundation::certificates::TrustStore::Usage usage =
            foundation::certificates::TrustStore::Usage::ServerAuthentication);

    /// Shares the roots.
    PathValidator(PathValidator const& other);
    /// Shares the roots.
    PathValidator& operator=(PathValidator const& other);
    ~PathValidator();

    /// Returns whether the leaf is valid, and the chain that was built.
    ///
    /// @param leaf the certificate to validate
    /// @param intermediates certificates that may complete the chain, in any order. They are not trusted
    /// @param options what is checked and tolerated
    ///
    /// A validation that fails runs twice, to tell a bad chain from running out of memory.
    /// @throws InvalidArgument as Certificate::matchesHost and Certificate::matchesAddress do
    /// @throws InvalidArgument "OpenSSL refuses the host name.": OpenSSL 4 takes only what can be a host
    ///     name, so it refuses a dot at the end
    /// @throws InvalidArgument "The bytes are not a CRL in DER encoding."
    /// @throws InvalidArgument "The purpose is unknown.", "The kind of revocation check is unknown.", "The
    ///     security level is not between 0 and 5.", and on systems whose `time_t` has 32 bits "The time is
    ///     outside of this system's range."
    /// @throws X509CertificateException if there is no verdict: "Internal error: OpenSSL ran out of memory.",
    ///     "Internal error: OpenSSL could not verify the certificate.", "Internal error: Unable to read the
    ///     certificate's name.", "Internal error: Unable to read the certificate's extensions."
    PathResult validate(
        Certificate const& leaf, std::vector<Certificate> const& intermediates,
        PathOptions const& options = {}) const;

private:
    std::shared_ptr<x509_store_st> store;
};

} // namespace foundation::toolkit
