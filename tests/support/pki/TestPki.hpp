#pragma once

#include "support/openssl/Handles.hpp"
#include "support/pki/TestKeys.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The test PKI: certificates with sound defaults and one mutation a case.
///
///     auto const root = makeRoot("root");
///     auto const intermediate = makeIntermediate(root, "intermediate");
///     auto const leaf = makeLeaf(intermediate, "leaf", [](CertificateSpec& spec) {
///         spec.notAfter = TimeSpec::fromNow(-1h);
///     });
///     X509Certificate certificate(leaf.der());
///
/// The default certificates pass OpenSSL's strict validation (X509_V_FLAG_X509_STRICT) and are valid from
/// yesterday for a year. The makers leave the caller's OpenSSL error queue as they found it.
namespace foundation::test {

/// A point in time as a certificate or CRL states it.
class TimeSpec
{
public:
    static TimeSpec fromNow(std::chrono::seconds offset);
    /// Seconds since 1970, also negative. UTCTime from 1950 to 2049, GeneralizedTime elsewhere (from 1900
    /// to 9999).
    static TimeSpec at(std::int64_t secondsSince1970);
    /// Any characters under the given tag (V_ASN1_UTCTIME or V_ASN1_GENERALIZEDTIME), also unreadable ones.
    /// OpenSSL 3.5 reads nothing back of fewer characters than the shortest time has: 13 and 15.
    static TimeSpec raw(int type, std::string text);
    /// "no time at all", which loads and then cannot be understood.
    static TimeSpec unreadable();

    AsnStringHandle toAsn1() const;

private:
    std::optional<int> rawType;
    std::string rawText;
    std::int64_t time = 0;
};

/// One attribute of a name; the bytes of `value` are stored unconverted under the string type `type`.
struct NameEntry
{
    /// A short name such as "CN", or an OID in dotted form.
    std::string field;
    std::string value;
    int type = V_ASN1_UTF8STRING;
};

/// Attributes in encoded order; may hold several of a kind, or none.
using Name = std::vector<NameEntry>;

Name commonName(std::string value);
NameHandle makeName(Name const& name);

struct ExtensionSpec
{
    /// A short name such as "keyUsage", or an OID in dotted form.
    std::string name;
    /// In OpenSSL's configuration language, such as "critical,digitalSignature".
    std::string text = {};
    /// Taken as the extension's content instead of `text` if present; may be damaged.
    std::optional<Bytes> rawContent = std::nullopt;
    bool rawCritical = false;
};

struct CertificateAndKey
{
    X509Handle certificate;
    KeyHandle key;

    Bytes der() const;
    std::string pem() const;
};

enum class PublicKeyFault
{
    None,
    /// The algorithm stays, the key's bits are garbage.
    Undecodable,
    /// The algorithm is an OID that nobody knows.
    UnknownType
};

struct CertificateSpec
{
    Name subject;
    /// Instead of the signer's subject.
    std::optional<Name> issuer;
    /// None: the certificate signs itself.
    std::optional<CertificateAndKey> signer;
    /// Instead of the signer's key: a signature that does not fit the issuer.
    KeyHandle signingKey;
    /// The certificate's own key.
    KeyHandle key;
    /// Decimal, or hexadecimal after "0x"; may be negative, zero or long. Empty: a number of its own.
    std::string serialNumber;
    TimeSpec notBefore = TimeSpec::fromNow(std::chrono::hours(-24));
    TimeSpec notAfter = TimeSpec::fromNow(std::chrono::hours(24 * 365));
    /// As encoded: 0 is version 1, 2 is version 3.
    long version = X509_VERSION_3;
    std::vector<ExtensionSpec> extensions;
    /// Sections that extension texts refer to with "@", in OpenSSL's configuration language.
    std::string extensionSections;
    /// Ignored where the key prescribes it (Ed25519, Ed448).
    EVP_MD const* digest = EVP_sha256();
    /// Sign with RSASSA-PSS although the key is a plain RSA key.
    bool pssSignature = false;
    PublicKeyFault publicKeyFault = PublicKeyFault::None;
    bool damagedSignature = false;
    /// Last touch by the bare API before the certificate is signed.
    std::function<void(X509*)> beforeSigning;

    /// Replaces the extension of that name in its place, or appends it.
    CertificateSpec& setExtension(std::string const& name, std::string const& text);
    CertificateSpec& setRawExtension(std::string const& name, Bytes content, bool critical = false);
    CertificateSpec& removeExtension(std::string const& name);
    /// One distribution point a URI, in order.
    CertificateSpec& setDistributionPoints(std::vector<std::string> const& uris);
};

using Mutation = std::function<void(CertificateSpec&)>;

/// What the convenience makers below start from: the key is `p256Key(name)`, the subject `CN=name`.
CertificateSpec rootSpec(std::string const& name);
CertificateSpec intermediateSpec(CertificateAndKey const& issuer, std::string const& name);
CertificateSpec leafSpec(CertificateAndKey const& issuer, std::string const& name);

/// Signs the certificate as described. The result has been encoded and parsed again, so that nothing that
/// OpenSSL remembers from building it survives.
CertificateAndKey make(CertificateSpec const& spec);

CertificateAndKey makeRoot(std::string const& name, Mutation const& mutate = {});
CertificateAndKey
makeIntermediate(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate = {});
CertificateAndKey
makeLeaf(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate = {});
/// A leaf that signs itself.
CertificateAndKey makeSelfSignedLeaf(std::string const& name, Mutation const& mutate = {});

/// Content of a crlDistributionPoints extension: one inner list a distribution point, each entry a URI.
Bytes distributionPointsContent(std::vector<std::vector<std::string>> const& points);

/// A declared topology: names and edges, and one mutation. A node without issuer is a root, one that issues
/// others an intermediate, any other a leaf. Issuers are declared before what they issue.
///
///     Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, "ca", [](CertificateSpec& spec)
///     {...}); pki["leaf"].der();
class Topology
{
public:
    struct Node
    {
        std::string name;
        std::string issuer;
    };

    explicit Topology(
        std::vector<Node> const& nodes, std::string const& mutated = "", Mutation const& mutate = {});

    CertificateAndKey const& operator[](std::string const& name) const;
    /// The named certificates, in that order, as concatenated PEM.
    std::string pemBundle(std::vector<std::string> const& names) const;

private:
    std::map<std::string, CertificateAndKey> made;
};

Bytes toDer(X509Handle const& certificate);
/// As OpenSSL's PEM writer writes it: 64 columns.
std::string toPem(X509Handle const& certificate);
std::string toPemBundle(std::vector<X509Handle> const& certificates);
std::string toPemBundle(std::vector<CertificateAndKey> const& certificates);
X509Handle parseDer(Bytes const& der);

} // namespace foundation::test
