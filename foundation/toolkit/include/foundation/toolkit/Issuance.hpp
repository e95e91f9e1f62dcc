#pragma once

/// @file
/// New keys, certificate requests (PKCS#10) and end-entity certificates.
///
/// Attributes and alternative names are values: a comma, a colon or a line end in a value never becomes
/// syntax. A value that its type cannot hold is refused.
///
/// Private keys are PEM texts, as makePrivateKey and privateKeyAsPEM return them. Other unencrypted PEM forms
/// that OpenSSL reads are accepted as well. All functions leave OpenSSL's error queue as it was.
///
/// If OpenSSL fails or runs out of memory, a function throws CertificateException with a text that begins
/// with "Internal error: ". The comments below do not repeat this failure.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>
#include <foundation/toolkit/PrivateKeys.hpp>
#include <foundation/toolkit/export.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct X509_req_st;
struct evp_pkey_st;

namespace foundation::toolkit {

struct CertificateContents;

/// The attributes of a subject, in encoded order: `{{"C", "SE"}, {"CN", "device 7"}}`. The first member is
/// OpenSSL's short or long name of the attribute or a dotted OID; the second is its value in UTF-8.
using Attributes = std::vector<std::pair<std::string, std::string>>;

/// The kinds of key that makePrivateKey makes.
enum class KeyChoice : int
{
    Prime256v1 = 0, ///< an elliptic-curve key that every client accepts; the usual choice
    Secp384r1 = 1,  ///< a larger elliptic-curve key
    Ed25519 = 2,    ///< fast and small; many TLS clients do not accept it in certificates
    RSA2048 = 3,    ///< for clients without elliptic curves
    RSA3072 = 4,    ///< about as strong as Prime256v1
    RSA4096 = 5     ///< takes a second or more to make
};

/// Returns a new private key as PKCS#8 PEM text.
/// @throws InvalidArgument "Unknown choice of key." for a value that is not an enumerator
FOUNDATION_TOOLKIT_EXPORT SecretString makePrivateKey(KeyChoice choice);

/// A certificate request in the form of PKCS#10, as an immutable value. Copies share the parsed request and
/// are cheap. Any number of threads may use one object and its copies at the same time.
///
/// A request comes from somebody else. Its signature proves only that its sender has the private key: check
/// subject and names before you sign a certificate for it.
class FOUNDATION_TOOLKIT_EXPORT CertificateRequest
{
public:
    /// Loads the first request of the text. Both labels are read: "CERTIFICATE REQUEST" and "NEW CERTIFICATE
    /// REQUEST". Checks no signature.
    /// @throws InvalidArgument "The text holds no certificate request.", "The alternative names of the
    ///     request are unreadable."
    static CertificateRequest fromPEM(std::string_view text);
    /// Loads the request from the bytes, and refuses bytes after it. Checks no signature.
    /// @throws InvalidArgument "The bytes are no certificate request.", "The alternative names of the
    ///     request are unreadable."
    static CertificateRequest fromDER(certificates::ByteArray const& der);
    /// Makes a request and signs it with the key.
    /// @param attributes the subject; may be empty if there are names
    /// @param names the alternative names; may be empty if there are attributes
    /// @param key the private key as unencrypted PEM text
    /// @throws InvalidArgument "Neither subject nor alternative names are given."; as
    ///     EndEntityCertificateBuilder::withSubject, withAlternativeNames and signSelf do about attributes,
    ///     names and the key
    static CertificateRequest
    make(Attributes const& attributes, std::vector<AlternativeName> const& names, SecretString const& key);

    // A move copies, so a moved-from request stays usable.

    /// Shares the parsed request.
    CertificateRequest(CertificateRequest const&) = default;
    /// Shares the parsed request.
    CertificateRequest& operator=(CertificateRequest const&) = default;
    ~CertificateRequest() = default;

    /// Returns the subject in the form of Certificate::getSubject.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if OpenSSL
    ///     runs out of memory
    std::string getSubject() const;
    /// Returns the alternative names that the request asks for, in its order.
    std::vector<AlternativeName> getAlternativeNames() const;
    /// Whether the request is signed with the private key of its public key. False too for a key or an
    /// algorithm that OpenSSL does not know.
    bool isSignatureValid() const;
    /// Returns PEM text with the label "CERTIFICATE REQUEST" and lines of 64 characters.
    std::string getAsPEM() const;

private:
    friend class EndEntityCertificateBuilder;

    explicit CertificateRequest(std::shared_ptr<X509_req_st> theRequest);

    std::shared_ptr<X509_req_st> request;
};

/// Builds certificates for servers, clients and signers: end entities, which issue no certificates.
///
///     auto const key = makePrivateKey(KeyChoice::Prime256v1);
///     auto const certificate = EndEntityCertificateBuilder()
///                                  .withSubject({{"CN", "device 7"}})
///                                  .withAlternativeNames({{AlternativeName::Kind::DNS, "seven.example"}})
///                                  .withPurposes({Purpose::TLSServer})
///                                  .signBy(authority, authorityKey, key);
///
/// Each certificate is of version 3 and passes OpenSSL's strict checks (`X509_V_FLAG_X509_STRICT`). It has a
/// random serial number of 128 bits and these extensions: basic constraints (critical, no CA), key usage
/// (critical), extended key usage if purposes are set, both key identifiers, and the alternative names, which
/// are critical if the subject is empty. The key usage fits the kind of key and the purposes.
///
/// A builder is a plain value without a lock. It can sign more than once, and signing does not change it.
/// Each setter replaces the earlier value. A setter that throws changes nothing.
class FOUNDATION_TOOLKIT_EXPORT EndEntityCertificateBuilder
{
public:
    using Attributes = foundation::toolkit::Attributes;       ///< the attributes of a subject
    using time_point = std::chrono::system_clock::time_point; ///< a point in time of the system's clock

    /// Sets the subject; empty by default.
    /// @throws InvalidArgument "Unknown attribute: " and the name; "Invalid value of the attribute " and the
    ///     name, for a value that is empty, holds NUL, is not UTF-8, or is not allowed for this attribute:
    ///     "C" takes two letters, "CN" at most 64 characters
    EndEntityCertificateBuilder& withSubject(Attributes attributes);
    /// Sets the alternative names; none by default.
    /// @throws InvalidArgument "Invalid alternative name: " and the value, for a value that is empty, holds
    ///     NUL or is not ASCII, and for an address that is no IP address; "Alternative names of this kind
    ///     cannot be made." for AlternativeName::Kind::Other
    EndEntityCertificateBuilder& withAlternativeNames(std::vector<AlternativeName> names);
    /// Sets the purposes, which become the extended key usages. Without purposes, and with Purpose::Any
    /// alone, there is no such extension and every purpose is allowed. With others, Purpose::Any adds
    /// anyExtendedKeyUsage. For Purpose::TimeStamping the extension is critical, as RFC 3161 requires.
    /// @throws InvalidArgument "A certificate for time stamping has no other purpose.", "Unknown purpose."
    ///     for a value that is not an enumerator
    EndEntityCertificateBuilder& withPurposes(std::set<Purpose> purposes);
    /// Sets start and end of validity, both included and rounded down to seconds. By default the certificate
    /// is valid for 365 days from the time of signing.
    /// @throws InvalidArgument "The validity ends before it starts.", "The validity is outside of the years
    ///     0 to 9999."
    EndEntityCertificateBuilder& withValidity(time_point notBefore, time_point notAfter);
    /// Sets subject, alternative names and public key to those of the request. Its other extensions are
    /// ignored. Setters that are called later win.
    ///
    /// From then on only the key of this request can be used to sign.
    /// @throws InvalidArgument "The signature of the request does not verify."; "Invalid value of the
    ///     attribute " and the name, for a value with NUL; as withAlternativeNames
    EndEntityCertificateBuilder& fromRequest(CertificateRequest const& request);

    /// Returns a certificate for the key that is signed with the same key.
    /// @param privateKey the private key as unencrypted PEM text
    /// @throws InvalidArgument "Neither subject nor alternative names are given.", "A self-signed
    ///     certificate needs a subject."; about the key: "The text holds no private key that can be read
    ///     without a passphrase.", "The key is of a kind that certificates are not made for.", "The key is
    ///     too weak.", "The key has explicit curve parameters.", "The key is not that of the request.", "The
    ///     key cannot sign.", also for a damaged key whose two halves do not match
    Certificate signSelf(SecretString const& privateKey) const;
    /// Returns a certificate for the key that is signed by the authority.
    /// @param authority the CA's certificate
    /// @param authorityKey the CA's private key as unencrypted PEM text
    /// @param privateKey the private key of the new certificate, of which only the public part is used
    /// @throws InvalidArgument "The authority is no CA.", also for a CA of version 1; "The authority has no
    ///     subject.", "The key is not that of the authority."; as signSelf about the keys and names
    Certificate signBy(
        Certificate const& authority, SecretString const& authorityKey, SecretString const& privateKey) const;
    /// Returns a certificate for the request's key that is signed by the authority. A builder with neither
    /// subject nor alternative names takes both from the request, as fromRequest does. Otherwise only the key
    /// is taken, so that a request cannot add names to those that were set.
    /// @throws InvalidArgument "The signature of the request does not verify."; as signBy with a private key
    Certificate signBy(
        Certificate const& authority, SecretString const& authorityKey,
        CertificateRequest const& request) const;

private:
    CertificateContents contentsFor(evp_pkey_st* key) const;

    std::optional<certificates::ByteArray> subject; // in DER form
    std::optional<std::vector<AlternativeName>> alternativeNames;
    std::set<Purpose> allowedPurposes;
    std::optional<std::pair<time_point, time_point>> validity;
    std::shared_ptr<evp_pkey_st> requestKey;
};

} // namespace foundation::toolkit
