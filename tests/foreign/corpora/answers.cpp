#include "foreign/corpora/Verdicts.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/toolkit/Certificate.hpp>

#include <openssl/err.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

using Json = nlohmann::json;

/// Returns the value, or the text of the exception.
Json answerOf(std::function<Json()> const& query)
{
    try {
        return query();
    } catch (std::exception const& failure) {
        return {{"failure", failure.what()}};
    }
}

template <class TimePoint>
std::int64_t secondsOf(TimePoint time)
{
    return std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
}

Json keyOf(X509Certificate const& certificate)
{
    auto const key = certificate.getPublicKeyInfo();
    if (key.getType() == KeyType::RSA) {
        return {
            {"bits", key.getKeySize()},
            {"modulus", hexEncode(key.getRSAModulus())},
            {"exponent", hexEncode(key.getRSAPublicExponent())}};
    }
    return {
        {"curve", key.getECCCurve() == EllipticCurve::Ed25519 ? "Ed25519" : "Prime256v1"},
        {"point", hexEncode(key.getECCPublicPoint())}};
}

Json answersOf(X509Certificate const& certificate)
{
    Json answers;
    auto const add = [&](char const* name, std::function<Json()> const& query) {
        answers[name] = answerOf(query);
    };
    add("subject", [&] { return certificate.getSubjectName(); });
    add("issuer", [&] { return certificate.getIssuerName(); });
    add("subjectAttributes", [&] { return certificate.getSubjectNameAsRDNs(); });
    add("issuerAttributes", [&] { return certificate.getIssuerNameAsRDNs(); });
    add("subjectCommonName", [&] { return certificate.getSubjectCommonName(); });
    add("issuerCommonName", [&] { return certificate.getIssuerCommonName(); });
    add("serialNumber", [&] { return certificate.getSerialNumber(); });
    add("sha256", [&] { return certificate.getSHA256Fingerprint(); });
    add("signatureAlgorithm", [&] { return certificate.getSignatureAlgorithm(); });
    add("notBefore", [&] { return secondsOf(certificate.getValidNotBeforeTimePoint()); });
    add("notAfter", [&] { return secondsOf(certificate.getValidNotAfterTimePoint()); });
    add("key", [&] { return keyOf(certificate); });
    add("extendedKeyUsages", [&] { return certificate.getExtendedKeyUsages(); });
    add("policies", [&] { return certificate.getPolicies(); });
    add("isCA", [&] { return certificate.isCACertificate(); });
    add("isSelfSigned", [&] { return certificate.isSelfSigned(); });
    add("isValidForDigitalSigning", [&] { return certificate.isValidForDigitalSigning(); });
    add("der", [&] { return hexEncode(certificate.getAsBytes()); });
    return answers;
}

Json namesOf(Certificate const& certificate)
{
    Json names = Json::array();
    for (auto const& [kind, value] : certificate.getAlternativeNames()) {
        // Only OpenSSL's own text describes the other kinds.
        names.push_back({static_cast<int>(kind), kind == AlternativeName::Kind::Other ? "" : value});
    }
    return names;
}

Json answersOf(Certificate const& certificate)
{
    Json answers;
    auto const add = [&](char const* name, std::function<Json()> const& query) {
        answers[name] = answerOf(query);
    };
    add("subject", [&] { return certificate.getSubject(); });
    add("issuer", [&] { return certificate.getIssuer(); });
    add("serialNumber", [&] { return certificate.getSerialNumber(); });
    add("notBefore", [&] { return secondsOf(certificate.getNotBefore()); });
    add("notAfter", [&] { return secondsOf(certificate.getNotAfter()); });
    add("keyKind", [&] { return certificate.getKeyKind(); });
    add("keyBits", [&] { return certificate.getKeyBits(); });
    add("signatureAlgorithm", [&] { return certificate.getSignatureAlgorithm(); });
    add("sha256", [&] { return certificate.getSHA256Fingerprint(); });
    add("subjectKeyIdentifier", [&] { return certificate.getSubjectKeyIdentifier(); });
    add("authorityKeyIdentifier", [&] { return certificate.getAuthorityKeyIdentifier(); });
    add("keyUsages", [&] { return certificate.getKeyUsages(); });
    add("extendedKeyUsages", [&] { return certificate.getExtendedKeyUsages(); });
    add("alternativeNames", [&] { return namesOf(certificate); });
    add("issuerURLs", [&] { return certificate.getIssuerURLs(); });
    add("crlURLs", [&] { return certificate.getCRLURLs(); });
    add("isCA", [&] { return certificate.isCA(); });
    add("der", [&] { return hexEncode(certificate.getAsDER()); });
    return answers;
}

/// Invalid UTF-8, which JSON cannot hold, becomes U+FFFD.
void print(Json const& record)
{
    std::cout << record.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
}

void inspect(ByteArray const& der)
{
    print(
        {{"library", answerOf([&] { return answersOf(X509Certificate(der)); })},
         {"toolkit", answerOf([&] { return answersOf(Certificate::fromDER(der)); })}});
}

/// The certificates and CRLs of a folder, as far as OpenSSL reads them.
class Members
{
public:
    void addCertificate(Bytes const& der)
    {
        auto const* position = der.data();
        if (X509* const parsed = d2i_X509(nullptr, &position, static_cast<long>(der.size()))) {
            certificates.push_back(own(parsed));
        }
        ERR_clear_error();
    }

    void addCrl(Bytes const& der)
    {
        auto const* position = der.data();
        if (X509_CRL* const parsed = d2i_X509_CRL(nullptr, &position, static_cast<long>(der.size()))) {
            crls.push_back(own(parsed));
        }
        ERR_clear_error();
    }

    void printVerdicts() const
    {
        auto const verdicts = compareVerdicts(certificates, crls);
        Json counts;
        for (auto const& [status, count] : verdicts.counts) {
            counts[std::to_string(status)] = count;
        }
        print({{"compared", verdicts.compared}, {"counts", counts}, {"differences", verdicts.differences}});
    }

private:
    std::vector<X509Handle> certificates;
    std::vector<CrlHandle> crls;
};

} // namespace

/// Reads lines from the standard input. "certificate HEX" prints what the library says about the certificate,
/// "crl HEX" only adds a CRL to the folder, and "end" prints how the verdicts on the certificates of the
/// folder compare with those of bare OpenSSL. Each answer is one line of JSON.
int main()
{
    Members members;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        std::string hex;
        words >> command >> hex;
        if (command == "certificate") {
            inspect(hexDecode(hex));
            members.addCertificate(hexDecode(hex));
        } else if (command == "crl") {
            members.addCrl(hexDecode(hex));
        } else if (command == "end") {
            members.printVerdicts();
            members = Members();
        } else {
            std::cerr << "unknown line: " << command << "\n";
            return 2;
        }
    }
    return std::cout.flush() ? 0 : 1;
}
