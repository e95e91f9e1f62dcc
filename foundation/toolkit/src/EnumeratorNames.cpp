#include <foundation/toolkit/Explanation.hpp>

// Each switch has no default: the compiler reports an enumerator without a name.

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr std::string_view unknown = "unknown";

} // namespace

std::string_view toString(CertificateChainStatus status)
{
    using Value = CertificateChainStatus;
    switch (status) {
    case Value::Valid:
        return "Valid";
    case Value::Untrusted:
        return "Untrusted";
    case Value::SelfSigned:
        return "SelfSigned";
    case Value::CRLError:
        return "CRLError";
    case Value::Revoked:
        return "Revoked";
    case Value::Expired:
        return "Expired";
    case Value::BadSignature:
        return "BadSignature";
    case Value::Failed:
        return "Failed";
    }
    return unknown;
}

std::string_view toString(CertificateValidationOptions::AllowSelfSignedCertificate option)
{
    using Value = CertificateValidationOptions::AllowSelfSignedCertificate;
    switch (option) {
    case Value::No:
        return "No";
    case Value::Yes:
        return "Yes";
    }
    return unknown;
}

std::string_view toString(CertificateValidationOptions::AllowExpiredCertificate option)
{
    using Value = CertificateValidationOptions::AllowExpiredCertificate;
    switch (option) {
    case Value::No:
        return "No";
    case Value::Yes:
        return "Yes";
    }
    return unknown;
}

std::string_view toString(CertificateValidationOptions::AllowRevokedCertificate option)
{
    using Value = CertificateValidationOptions::AllowRevokedCertificate;
    switch (option) {
    case Value::No:
        return "No";
    case Value::Yes:
        return "Yes";
    }
    return unknown;
}

std::string_view toString(CertificateValidationOptions::CheckCRL option)
{
    using Value = CertificateValidationOptions::CheckCRL;
    switch (option) {
    case Value::None:
        return "None";
    case Value::LeafOnly:
        return "LeafOnly";
    case Value::WholeChain:
        return "WholeChain";
    }
    return unknown;
}

std::string_view toString(CertificateValidationOptions::DownloadCRL option)
{
    using Value = CertificateValidationOptions::DownloadCRL;
    switch (option) {
    case Value::None:
        return "None";
    case Value::BestEffort:
        return "BestEffort";
    case Value::Required:
        return "Required";
    }
    return unknown;
}

std::string_view toString(CertificateRevocationResults::RevocationStatus status)
{
    using Value = CertificateRevocationResults::RevocationStatus;
    switch (status) {
    case Value::NotRevoked:
        return "NotRevoked";
    case Value::Revoked:
        return "Revoked";
    }
    return unknown;
}

std::string_view toString(CertificateEncoding encoding)
{
    using Value = CertificateEncoding;
    switch (encoding) {
    case Value::PEM:
        return "PEM";
    case Value::DER:
        return "DER";
    }
    return unknown;
}

std::string_view toString(KeyType type)
{
    using Value = KeyType;
    switch (type) {
    case Value::RSA:
        return "RSA";
    case Value::ECC:
        return "ECC";
    }
    return unknown;
}

std::string_view toString(EllipticCurve curve)
{
    using Value = EllipticCurve;
    switch (curve) {
    case Value::Prime256v1:
        return "Prime256v1";
    case Value::Ed25519:
        return "Ed25519";
    }
    return unknown;
}

std::string_view toString(RSAPrivateKeySize size)
{
    using Value = RSAPrivateKeySize;
    switch (size) {
    case Value::Bits1024:
        return "Bits1024";
    case Value::Bits2048:
        return "Bits2048";
    case Value::Bits3072:
        return "Bits3072";
    case Value::Bits4096:
        return "Bits4096";
    case Value::Bits8192:
        return "Bits8192";
    }
    return unknown;
}

std::string_view toString(TrustStore::Usage usage)
{
    using Value = TrustStore::Usage;
    switch (usage) {
    case Value::ServerAuthentication:
        return "ServerAuthentication";
    case Value::Signing:
        return "Signing";
    }
    return unknown;
}

std::string_view toString(X509Certificate::KeyUsage usage)
{
    using Value = X509Certificate::KeyUsage;
    switch (usage) {
    case Value::DigitalSignature:
        return "DigitalSignature";
    case Value::NonRepudiation:
        return "NonRepudiation";
    case Value::KeyEncipherment:
        return "KeyEncipherment";
    case Value::DataEncipherment:
        return "DataEncipherment";
    case Value::KeyAgreement:
        return "KeyAgreement";
    case Value::KeyCertSign:
        return "KeyCertSign";
    case Value::CRLSign:
        return "CRLSign";
    case Value::EncipherOnly:
        return "EncipherOnly";
    case Value::DecipherOnly:
        return "DecipherOnly";
    }
    return unknown;
}

std::string_view toString(AlternativeName::Kind kind)
{
    using Value = AlternativeName::Kind;
    switch (kind) {
    case Value::DNS:
        return "DNS";
    case Value::IPAddress:
        return "IPAddress";
    case Value::Email:
        return "Email";
    case Value::URI:
        return "URI";
    case Value::Other:
        return "Other";
    }
    return unknown;
}

std::string_view toString(Purpose purpose)
{
    using Value = Purpose;
    switch (purpose) {
    case Value::Any:
        return "Any";
    case Value::TLSServer:
        return "TLSServer";
    case Value::TLSClient:
        return "TLSClient";
    case Value::CodeSigning:
        return "CodeSigning";
    case Value::EmailProtection:
        return "EmailProtection";
    case Value::TimeStamping:
        return "TimeStamping";
    }
    return unknown;
}

std::string_view toString(Revocation revocation)
{
    using Value = Revocation;
    switch (revocation) {
    case Value::NotChecked:
        return "NotChecked";
    case Value::Leaf:
        return "Leaf";
    case Value::WholeChain:
        return "WholeChain";
    }
    return unknown;
}

std::string_view toString(KeyChoice choice)
{
    using Value = KeyChoice;
    switch (choice) {
    case Value::Prime256v1:
        return "Prime256v1";
    case Value::Secp384r1:
        return "Secp384r1";
    case Value::Ed25519:
        return "Ed25519";
    case Value::RSA2048:
        return "RSA2048";
    case Value::RSA3072:
        return "RSA3072";
    case Value::RSA4096:
        return "RSA4096";
    }
    return unknown;
}

} // namespace foundation::toolkit
