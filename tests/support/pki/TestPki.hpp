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

/// The test PKI: certificates with valid defaults, and one mutation per case.
///
///     auto const root = makeRoot("root");
///     auto const intermediate = makeIntermediate(root, "intermediate");
///     auto const leaf = makeLeaf(intermediate, "leaf", [](CertificateSpec& spec) {
///         spec.notAfter = TimeSpec::fromNow(-1h);
///     });
///     X509Certificate certificate(leaf.der());
///
/// The default certificates pass OpenSSL's strict validation (X509_V_FLAG_X509_STRICT) and are valid from
/// yesterday for a year. The makers do not change the caller's OpenSSL error queue.
namespace foundation::test {

/// A point in time as a certificate or CRL encodes it.
class TimeSpec
{
public:
    static TimeSpec fromNow(std::chrono::seconds offset);
    /// Takes seconds since 1970, also negative, for the years 1900 to 9999. Encodes UTCTime from 1950 to 2049
    /// and GeneralizedTime otherwise.
    static TimeSpec at(std::int64_t secondsSince1970);
    /// Takes any characters for the tag V_ASN1_UTCTIME or V_ASN1_GENERALIZEDTIME, also unreadable ones.
    /// OpenSSL 3.5 does not parse a text that is shorter than the shortest time of its type: 13 or 15
    /// characters.
    static TimeSpec raw(int type, std::string text);
    /// Returns the text "no time at all". It loads, but no time can be read from it.
    static TimeSpec unreadable();

    AsnStringHandle toAsn1() const;

private:
    std::optional<int> rawType;
    std::string rawText;
    std::int64_t time = 0;
};

/// One attribute of a name. The bytes of `value` are stored unconverted with the string type `type`.
struct NameEntry
{
    /// A short name such as "CN", or a dotted OID.
    std::string field;
    std::string value;
    int type = V_ASN1_UTF8STRING;
};

/// Attributes in encoded order. May be empty or repeat a kind.
using Name = std::vector<NameEntry>;

Name commonName(std::string value);
NameHandle makeName(Name const& name);

struct ExtensionSpec
{
    /// A short name such as "keyUsage", or a dotted OID.
    std::string name;
    /// In OpenSSL's configuration language, such as "critical,digitalSignature".
    std::string text = {};
    /// Replaces `text` with these bytes, which may be damaged.
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
    /// The algorithm stays, but the key's bits are garbage.
    Undecodable,
    /// The algorithm is an unknown OID.
    UnknownType,
    /// The curve has no name. Some builds of OpenSSL decode such a key, see acceptsNamelessCurves.
    NamelessCurve
};

struct CertificateSpec
{
    Name subject;
    /// Replaces the signer's subject.
    std::optional<Name> issuer;
    /// Without a signer, the certificate is self-signed.
    std::optional<CertificateAndKey> signer;
    /// Replaces the signer's key, so that the signature does not fit the issuer.
    KeyHandle signingKey;
    /// The certificate's own key.
    KeyHandle key;
    /// Decimal, or hexadecimal after "0x". May be negative, zero or long. If empty, a unique number is
    /// chosen.
    std::string serialNumber;
    TimeSpec notBefore = TimeSpec::fromNow(std::chrono::hours(-24));
    TimeSpec notAfter = TimeSpec::fromNow(std::chrono::hours(24 * 365));
    /// The encoded value: 0 means version 1, 2 means version 3.
    long version = X509_VERSION_3;
    std::vector<ExtensionSpec> extensions;
    /// Sections in OpenSSL's configuration language, to which extension texts refer with "@".
    std::string extensionSections;
    /// Ignored for keys that prescribe a digest (Ed25519, Ed448).
    EVP_MD const* digest = EVP_sha256();
    /// Signs with RSASSA-PSS, although the key is a plain RSA key.
    bool pssSignature = false;
    PublicKeyFault publicKeyFault = PublicKeyFault::None;
    bool damagedSignature = false;
    /// Called right before the certificate is signed, for changes that no field covers.
    std::function<void(X509*)> beforeSigning;

    /// Replaces the extension of that name in place, or appends it.
    CertificateSpec& setExtension(std::string const& name, std::string const& text);
    CertificateSpec& setRawExtension(std::string const& name, Bytes content, bool critical = false);
    CertificateSpec& removeExtension(std::string const& name);
    /// Writes one distribution point per URI, in order.
    CertificateSpec& setDistributionPoints(std::vector<std::string> const& uris);
};

using Mutation = std::function<void(CertificateSpec&)>;

/// Return the defaults of the makers below: the key is `p256Key(name)`, the subject `CN=name`.
CertificateSpec rootSpec(std::string const& name);
CertificateSpec intermediateSpec(CertificateAndKey const& issuer, std::string const& name);
CertificateSpec leafSpec(CertificateAndKey const& issuer, std::string const& name);

/// Makes and signs the certificate. The result is encoded and parsed again, so that OpenSSL caches nothing
/// from the construction.
CertificateAndKey make(CertificateSpec const& spec);

CertificateAndKey makeRoot(std::string const& name, Mutation const& mutate = {});
CertificateAndKey
makeIntermediate(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate = {});
CertificateAndKey
makeLeaf(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate = {});
/// Makes a self-signed certificate that is not a CA.
CertificateAndKey makeSelfSignedLeaf(std::string const& name, Mutation const& mutate = {});

/// Returns the content of a crlDistributionPoints extension. Each inner list holds the URIs of one
/// distribution point.
Bytes distributionPointsContent(std::vector<std::vector<std::string>> const& points);

/// A declared hierarchy: names, edges, and at most one mutation. A node without issuer is a root. A node that
/// issues others is an intermediate, any other node is a leaf. An issuer comes before the nodes that it
/// issues.
///
///     Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, "ca", damageSignature);
///     pki["leaf"].der();
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
    /// Returns the named certificates in that order as PEM blocks.
    std::string pemBundle(std::vector<std::string> const& names) const;

private:
    std::map<std::string, CertificateAndKey> made;
};

Bytes toDer(X509Handle const& certificate);
/// Returns the PEM text of OpenSSL's writer, with 64 columns.
std::string toPem(X509Handle const& certificate);
std::string toPemBundle(std::vector<X509Handle> const& certificates);
std::string toPemBundle(std::vector<CertificateAndKey> const& certificates);
X509Handle parseDer(Bytes const& der);

} // namespace foundation::test
