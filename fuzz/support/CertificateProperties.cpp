#include "support/CertificateProperties.hpp"

#include "libcrypto/OpenSSLHandles.hpp"
#include "support/Properties.hpp"
#include "support/operations/OperationTable.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/sha.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::X509Certificate;

constexpr std::string_view pemHeader = "-----BEGIN CERTIFICATE-----\n";
constexpr std::string_view pemFooter = "-----END CERTIFICATE-----\n";

/// Returns the result of the query, or nothing if it throws one of the library's exceptions.
template <typename Query>
auto answerOf(Query&& query) -> std::optional<decltype(query())>
{
    std::optional<decltype(query())> answer;
    succeeds([&] { answer.emplace(query()); });
    return answer;
}

/// Returns the same certificate as bare OpenSSL reads it.
certificates::X509UPtr bareCopyOf(X509Certificate const& certificate)
{
    ByteArray const der = certificate.getAsBytes();
    unsigned char const* position = der.data();
    return certificates::makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
}

std::optional<std::string>
entryOf(std::unordered_map<std::string, std::string> const& attributes, std::string const& name)
{
    auto const found = attributes.find(name);
    return found == attributes.end() ? std::nullopt : std::optional<std::string>(found->second);
}

void checkNames(X509Certificate const& certificate)
{
    auto const subject = certificate.getSubjectName();
    auto const issuer = certificate.getIssuerName();
    require(
        certificate.isSelfSigned() == (subject == issuer),
        "a certificate is self-signed if its names are equal");
    require(
        answerOf([&] { return certificate.getSubjectCommonName(); }) ==
            entryOf(certificate.getSubjectNameAsRDNs(), "CN"),
        "the subject's common name is that of its attributes");
    require(
        answerOf([&] { return certificate.getIssuerCommonName(); }) ==
            entryOf(certificate.getIssuerNameAsRDNs(), "CN"),
        "the issuer's common name is that of its attributes");
}

bool isDecimal(std::string_view text)
{
    if (!text.empty() && text.front() == '-') {
        text.remove_prefix(1);
    }
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Returns the C library's count of 100 ns ticks since 1970.
std::optional<long long> ticksOf(ASN1_TIME const* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        return std::nullopt;
    }
    return static_cast<long long>(timegm(&parts)) * 10000000;
}

template <typename Text, typename Point>
void checkTime(Text const& text, Point const& point, ASN1_TIME const* bare)
{
    auto const written = answerOf(text);
    auto const read = answerOf(point);
    auto const expected = ticksOf(bare);
    require(
        read ? expected == read->time_since_epoch().count() : !expected,
        "the time point is the one that OpenSSL reads");
    require(!written || !written->empty(), "a written time is not empty");
    require(!read || written, "a time that can be read can be written");
}

void checkSerialNumberAndTimes(X509Certificate const& certificate)
{
    auto const serial = answerOf([&] { return certificate.getSerialNumber(); });
    require(!serial || isDecimal(*serial), "a serial number is decimal");

    auto const bare = bareCopyOf(certificate);
    require(bare != nullptr, "OpenSSL reads the written certificate");
    checkTime(
        [&] { return certificate.getValidNotBefore(); },
        [&] { return certificate.getValidNotBeforeTimePoint(); }, X509_get0_notBefore(bare.get()));
    checkTime(
        [&] { return certificate.getValidNotAfter(); },
        [&] { return certificate.getValidNotAfterTimePoint(); }, X509_get0_notAfter(bare.get()));
}

/// Returns the number of bits of a big-endian number without leading zero bytes.
std::size_t bitsIn(ByteArray const& number)
{
    std::size_t bits = number.size() * 8;
    for (unsigned mask = 0x80U; !number.empty() && mask != 0 && (number.front() & mask) == 0; mask >>= 1U) {
        --bits;
    }
    return bits;
}

void checkKey(X509Certificate const& certificate)
{
    using certificates::EllipticCurve;
    using certificates::KeyType;

    auto const key = mustSucceed(
        "the key of a loaded certificate can be read", [&] { return certificate.getPublicKeyInfo(); });
    require(certificate.getKeySize() == key.getKeySize(), "the sizes of the key agree");
    auto const modulus = answerOf([&] { return certificate.getModulus(); });
    auto const exponent = answerOf([&] { return certificate.getPublicExponent(); });
    if (key.getType() == KeyType::RSA) {
        require(key.getKeySize() >= 1024, "an RSA key has at least 1024 bits");
        require(modulus == key.getRSAModulus(), "the moduli agree");
        require(exponent == key.getRSAPublicExponent(), "the exponents agree");
        require(bitsIn(*modulus) == key.getKeySize(), "an RSA key has the size of its modulus");
    } else {
        require(!modulus && !exponent, "only an RSA key has a modulus and an exponent");
        require(
            key.getECCCurve() != EllipticCurve::Ed25519 || key.getECCPublicPoint().size() == 32,
            "an Ed25519 key has 32 bytes");
    }
}

bool isOID(std::string const& text)
{
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
}

void checkUsages(X509Certificate const& certificate)
{
    auto const usages = answerOf([&] { return certificate.getExtendedKeyUsages(); });
    auto const policies = answerOf([&] { return certificate.getPolicies(); });
    require(
        !usages || std::all_of(usages->begin(), usages->end(), isOID),
        "extended key usages are object identifiers");
    require(
        !policies || std::all_of(policies->begin(), policies->end(), isOID),
        "policies are object identifiers");
    bool const signsCode = !usages || usages->empty() ||
                           std::find(usages->begin(), usages->end(), "1.3.6.1.5.5.7.3.3") != usages->end();
    require(
        !certificate.isValidForDigitalSigning() || signsCode,
        "a certificate restricted to other usages is not valid for signing");
    succeeds([&] { certificate.getSignatureAlgorithm(); });
}

void checkFingerprint(X509Certificate const& certificate, ByteArray const& der)
{
    ByteArray digest(SHA256_DIGEST_LENGTH);
    SHA256(der.data(), der.size(), digest.data());
    require(
        certificate.getSHA256Fingerprint() == certificates::hexEncode(digest),
        "the fingerprint is that of the encoding");
}

void checkLines(std::string_view pem)
{
    require(pem.substr(0, pemHeader.size()) == pemHeader, "PEM text begins with its marker");
    pem.remove_prefix(pemHeader.size());
    while (pem != pemFooter) {
        auto const length = pem.find('\n');
        require(length != std::string_view::npos && length >= 1, "PEM text has no empty line");
        bool const isLast = pem.substr(length + 1) == pemFooter;
        require(isLast ? length <= 63 : length == 63, "a line of PEM text has 63 characters");
        pem.remove_prefix(length + 1);
    }
}

void checkReport(X509Certificate const& certificate)
{
    std::ostringstream printed;
    printed << certificate;
    std::ostringstream expected;
    expected << "Certificate Details:\n--------------------\nSubject Name: " << certificate.getSubjectName()
             << ";\nIssuer Name: " << certificate.getIssuerName()
             << ";\nSHA256 Fingerprint: " << certificate.getSHA256Fingerprint()
             << ";\nisSelfSigned: " << certificate.isSelfSigned()
             << ";\nisCA: " << certificate.isCACertificate() << ";\n\n";
    require(printed.str() == expected.str(), "the report agrees with the queries");
}

bool holdsMarker(ByteArray const& der)
{
    std::string_view const text(reinterpret_cast<char const*>(der.data()), der.size());
    return text.find(pemHeader.substr(0, pemHeader.size() - 1)) != std::string_view::npos;
}

} // namespace

void checkOutputLoads(X509Certificate const& certificate)
{
    ByteArray const der =
        mustSucceed("a loaded certificate can be written", [&] { return certificate.getAsBytes(); });
    std::string const base64 = certificate.getAsString();
    std::string const pem = certificate.getAsPEMString();
    require(base64 == certificates::base64Encode(der), "the text is the DER in base64");
    checkLines(pem);
    checkFingerprint(certificate, der);

    auto const fromPEM = mustSucceed("written PEM loads", [&] { return X509Certificate(pem); });
    require(
        fromPEM == certificate && !(fromPEM != certificate), "a certificate loaded from its PEM is equal");
    require(fromPEM.getAsBytes() == der, "a certificate loaded from its PEM is written identically");
    // The library reads DER as PEM if it holds the PEM marker.
    if (!holdsMarker(der)) {
        auto const fromDER = mustSucceed("written DER loads", [&] { return X509Certificate(der); });
        require(fromDER == certificate, "a certificate loaded from its DER is equal");
    }
    clearErrorQueue();
}

namespace {

/// Compares the answers of every query on the certificate and on its copy. A query may fail with one of the
/// library's exceptions, but then it fails on both.
void checkQueries(X509Certificate const& certificate, X509Certificate const& copy)
{
    static auto const queries = test::operationsWithoutOthers(test::certificateOperations());
    static test::Objects const noOthers{};
    auto original = certificate;
    auto other = copy;
    for (auto const& query : queries) {
        require(
            answerOf([&] { return query.answer(original, noOthers); }) ==
                answerOf([&] { return query.answer(other, noOthers); }),
            "a copy answers as its original");
    }
}

} // namespace

void checkCertificate(X509Certificate const& certificate)
{
    require(!certificate.empty(), "a loaded certificate is not empty");
    mustSucceed("names, times, key and usages can be queried", [&] {
        checkNames(certificate);
        checkSerialNumberAndTimes(certificate);
        checkKey(certificate);
        checkUsages(certificate);
        checkReport(certificate);
    });
    X509Certificate const copy(certificate);
    require(copy == certificate, "a copy is equal");
    checkQueries(certificate, copy);
    checkOutputLoads(certificate);
}

} // namespace foundation::fuzz
