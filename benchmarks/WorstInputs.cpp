// Measures the processor time that each reader takes for the worst inputs of 1 MB, and prints it as the table
// of docs/security.md. A cost that grows faster than the input shows in the last column: twice the input
// takes four times as long if the cost grows with the square.
//
//     foundation_worst_inputs [WORD]     measures the rows whose text contains the word

#include "support/pki/TestBundles.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates.hpp>
#include <foundation/toolkit.hpp>

#include <openssl/bn.h>
#include <openssl/core_names.h>

#include <ctime>
#include <exception>
#include <functional>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;
using foundation::toolkit::CertificateRequest;
using foundation::toolkit::PathOptions;
using foundation::toolkit::PathValidator;
using foundation::toolkit::Revocation;

namespace {

using Work = std::function<void()>;

struct Row
{
    std::string input;
    std::string operation;
    /// Makes an input of about that many bytes, and returns the operation on it.
    std::function<Work(std::size_t bytes)> prepare;
};

constexpr std::size_t megabyte = 1000000;
constexpr double tooLong = 0.5; // seconds for 125 KB: inputs of 1 MB are not measured then

std::string textOf(std::string const& part, std::size_t bytes)
{
    std::string text;
    while (text.size() < bytes) {
        text += part;
    }
    return text;
}

Bytes leafWith(Mutation const& mutate)
{
    static auto const root = makeRoot("root");
    return makeLeaf(root, "leaf", mutate).der();
}

Bytes withExtensions(std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) {
        for (std::size_t number = 0; number < bytes / 17; ++number) {
            spec.extensions.push_back({"1.2.3." + std::to_string(number), "", Bytes{0x05, 0x00}});
        }
    });
}

Bytes withName(std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) { spec.subject = Name(bytes / 14, NameEntry{"OU", "u"}); });
}

Bytes withLongName(std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) { spec.subject = commonName(std::string(bytes, '\x01')); });
}

Bytes withSerial(std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) { spec.serialNumber = "0x7" + std::string(2 * bytes, '5'); });
}

Bytes withAlternativeNames(std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) {
        spec.extensionSections = "[names]\n";
        for (std::size_t number = 0; number < bytes / 12; ++number) {
            auto const text = std::to_string(number);
            spec.extensionSections +=
                "DNS." + text + " = " + std::string(8 - text.size(), '0') + text + ".a\n";
        }
        spec.setExtension("subjectAltName", "@names");
    });
}

/// The content of a SEQUENCE that repeats the element.
Bytes sequenceOf(Bytes const& element, std::size_t bytes)
{
    std::size_t const count = bytes / element.size();
    std::size_t const length = count * element.size();
    Bytes content{
        0x30, 0x83, static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 8),
        static_cast<unsigned char>(length)};
    for (std::size_t number = 0; number < count; ++number) {
        content.insert(content.end(), element.begin(), element.end());
    }
    return content;
}

Bytes withExtension(std::string const& name, Bytes const& element, std::size_t bytes)
{
    return leafWith([&](CertificateSpec& spec) { spec.setRawExtension(name, sequenceOf(element, bytes)); });
}

/// A key with a modulus and an exponent of half the size each.
Bytes withHugeKey(std::size_t bytes)
{
    auto const number = own(BN_new());
    require(BN_rand(number.get(), static_cast<int>(bytes * 4), BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD));
    auto const builder = own(OSSL_PARAM_BLD_new());
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, number.get()));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, number.get()));
    auto const key = keyFrom(*builder, "RSA", EVP_PKEY_PUBLIC_KEY);
    return leafWith([&](CertificateSpec& spec) {
        spec.beforeSigning = [&](X509* certificate) { require(X509_set_pubkey(certificate, key.get())); };
    });
}

/// Certificates with one key and one name, of 350 bytes each.
std::vector<X509Handle> manyCertificates(std::size_t bytes)
{
    std::vector<X509Handle> certificates;
    for (std::size_t number = 0; number < bytes / 350; ++number) {
        certificates.push_back(makeRoot("root").certificate);
    }
    return certificates;
}

std::string manyAsPem(std::size_t bytes)
{
    return toPemBundle(manyCertificates(bytes * 3 / 4));
}

Bytes nested(std::size_t bytes)
{
    Bytes der;
    while (der.size() < bytes) {
        der.insert(der.end(), {0x30, 0x80});
    }
    return der;
}

/// Loads and asks everything. A refusal is a result too.
template <class Function>
Work tolerant(Function const& function)
{
    return [=] {
        try {
            function();
        } catch (std::exception const&) {
            return; // damaged input is refused
        }
    };
}

Work load(Bytes const& der)
{
    return tolerant([=] { X509Certificate const loaded(der); });
}

template <class Query>
Work ask(Bytes const& der, Query const& query)
{
    return tolerant([=, certificate = X509Certificate(der)] { query(certificate); });
}

void readAll(std::string const& content)
{
    std::istringstream stream(content);
    CertificateReader reader(stream, "input");
    while (reader.next()) {
    }
}

Work read(std::string const& content)
{
    return tolerant([=] { readAll(content); });
}

std::string asText(Bytes const& bytes)
{
    return {bytes.begin(), bytes.end()};
}

Work verifyManySigners(std::size_t bytes)
{
    auto const signer = makeSelfSignedLeaf("signer");
    SignedDataSpec spec;
    spec.signers = std::vector<CertificateAndKey>(bytes / 700, signer);
    PKCS7Certificate const signedData(toDer(makeSignedData(spec)));
    TrustStore store;
    store.addCertificate(X509Certificate(signer.der()));
    return tolerant([=] { signedData.verifySignature(X509CertificateChain(), store, ByteArray()); });
}

Work openBundle(std::size_t bytes)
{
    auto const leaf = makeSelfSignedLeaf("leaf");
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.keyCipher = spec.certificateCipher = -1;
    spec.furtherCertificates = manyCertificates(bytes);
    auto const bundle = toDer(makePkcs12(spec));
    return tolerant([=] { PKCS12Certificate const loaded(bundle, "secret"); });
}

Work validateWithManyIntermediates(std::size_t bytes)
{
    // No intermediate has the issuer's key identifier, so that OpenSSL looks at each.
    auto const issuer = makeRoot("root", [](CertificateSpec& spec) { spec.key = p256Key("another"); });
    X509Certificate const leaf(makeLeaf(issuer, "leaf").der());
    X509CertificateChain const chain(manyAsPem(bytes));
    TrustStore store;
    store.addCertificate(X509Certificate(makeRoot("other root").der()));
    return tolerant([=] { leaf.validateCertificate(chain, CertificateValidationOptions(), store); });
}

Work validateWithCRL(std::size_t bytes)
{
    auto const root = makeRoot("root");
    std::vector<RevokedEntry> entries;
    for (std::size_t number = 0; number < bytes / 23; ++number) {
        entries.push_back({std::to_string(number + 100000)});
    }
    auto const crl = toDer(makeCrl(root, entries));
    auto const leaf = Certificate::fromDER(makeLeaf(root, "leaf").der());
    PathValidator const validator(std::vector<Certificate>{Certificate::fromDER(root.der())});
    PathOptions options;
    options.crls = {crl};
    options.revocation = Revocation::Leaf;
    return tolerant([=] { validator.validate(leaf, {}, options); });
}

std::vector<Row> rows()
{
    Bytes const policy{0x30, 0x05, 0x06, 0x03, 0x2A, 0x03, 0x04};
    Bytes const usage{0x06, 0x03, 0x2A, 0x03, 0x04};
    Bytes const point{0x30, 0x0A, 0xA0, 0x08, 0xA0, 0x06, 0x86, 0x04, 'h', ':', '/', '/'};
    auto const certificateOf = [](Bytes const& der) { return Certificate::fromDER(der); };
    return {
        {"many extensions", "`X509Certificate`", [](std::size_t n) { return load(withExtensions(n)); }},
        {"many extensions", "`getPolicies`",
         [](std::size_t n) { return ask(withExtensions(n), [](auto const& c) { c.getPolicies(); }); }},
        {"many attributes in the subject", "`X509Certificate`",
         [](std::size_t n) { return load(withName(n)); }},
        {"many attributes in the subject", "`getSubjectName`",
         [](std::size_t n) { return ask(withName(n), [](auto const& c) { c.getSubjectName(); }); }},
        {"many attributes in the subject", "`getSubjectNameAsRDNs`",
         [](std::size_t n) { return ask(withName(n), [](auto const& c) { c.getSubjectNameAsRDNs(); }); }},
        {"long attribute in the subject", "`getSubjectName`",
         [](std::size_t n) { return ask(withLongName(n), [](auto const& c) { c.getSubjectName(); }); }},
        {"long serial number", "`X509Certificate`", [](std::size_t n) { return load(withSerial(n)); }},
        {"long serial number", "`getSerialNumber`",
         [](std::size_t n) { return ask(withSerial(n), [](auto const& c) { c.getSerialNumber(); }); }},
        {"many policies", "`getPolicies`",
         [=](std::size_t n) {
             return ask(
                 withExtension("certificatePolicies", policy, n), [](auto const& c) { c.getPolicies(); });
         }},
        {"many extended usages", "`getExtendedKeyUsages`",
         [=](std::size_t n) {
             return ask(withExtension("extendedKeyUsage", usage, n), [](auto const& c) {
                 c.getExtendedKeyUsages();
             });
         }},
        {"modulus and exponent of 500 KB", "`X509Certificate`",
         [](std::size_t n) { return load(withHugeKey(n)); }},
        {"nested elements", "`X509Certificate`", [](std::size_t n) { return load(nested(n)); }},
        {"many certificates", "`X509CertificateChain`",
         [](std::size_t n) {
             return tolerant([text = manyAsPem(n)] { X509CertificateChain const chain(text); });
         }},
        {"BEGIN lines without END", "`X509CertificateChain`",
         [](std::size_t n) {
             return tolerant([text = textOf("-----BEGIN CERTIFICATE-----\n", n)] {
                 X509CertificateChain const chain(text);
             });
         }},
        {"many intermediates with the issuer's name", "`validateCertificate`", validateWithManyIntermediates},
        {"many certificates", "`PKCS7Certificate`",
         [](std::size_t n) {
             SignedDataSpec spec;
             spec.signers = {makeSelfSignedLeaf("signer")};
             spec.furtherCertificates = manyCertificates(n);
             return tolerant([der = toDer(makeSignedData(spec))] { PKCS7Certificate const loaded(der); });
         }},
        {"many signers", "`verifySignature`", verifyManySigners},
        {"many certificates", "`PKCS12Certificate`", openBundle},
        {"text", "`base64Decode`",
         [](std::size_t n) { return tolerant([text = textOf("QUJD", n)] { base64Decode(text); }); }},
        {"text", "`hexDecode`",
         [](std::size_t n) { return tolerant([text = textOf("4142", n)] { hexDecode(text); }); }},
        {"CRL with many entries", "`PathValidator::validate`", validateWithCRL},
        {"many extensions", "`Certificate`",
         [=](std::size_t n) { return tolerant([=, der = withExtensions(n)] { certificateOf(der); }); }},
        {"many alternative names", "`Certificate`",
         [=](std::size_t n) { return tolerant([=, der = withAlternativeNames(n)] { certificateOf(der); }); }},
        {"many alternative names", "`matchesHost`",
         [=](std::size_t n) {
             return tolerant([c = certificateOf(withAlternativeNames(n))] { c.matchesHost("b.example"); });
         }},
        {"many distribution points", "`getCRLURLs`",
         [=](std::size_t n) {
             return tolerant(
                 [c = certificateOf(withExtension("crlDistributionPoints", point, n))] { c.getCRLURLs(); });
         }},
        {"many certificates", "`CertificateReader`", [](std::size_t n) { return read(manyAsPem(n)); }},
        {"BEGIN lines without END", "`CertificateReader`",
         [](std::size_t n) { return read(textOf("-----BEGIN CERTIFICATE-----\n", n)); }},
        {"nested elements", "`CertificateReader`", [](std::size_t n) { return read(asText(nested(n))); }},
        {"zeros", "`CertificateReader`", [](std::size_t n) { return read(std::string(n, '\0')); }},
        {"many certificates in signed data", "`CertificateReader`",
         [](std::size_t n) {
             SignedDataSpec spec;
             spec.signers = {makeSelfSignedLeaf("signer")};
             spec.furtherCertificates = manyCertificates(n);
             return read(asText(toDer(makeSignedData(spec))));
         }},
        {"nested elements", "`CertificateRequest`",
         [](std::size_t n) { return tolerant([der = nested(n)] { CertificateRequest::fromDER(der); }); }},
    };
}

double secondsOf(Work const& work)
{
    auto const start = std::clock();
    work();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

void measure(Row const& row)
{
    double smaller = secondsOf(row.prepare(megabyte / 8));
    bool const isSlow = smaller > tooLong;
    if (!isSlow) {
        smaller = secondsOf(row.prepare(megabyte / 2));
    }
    double const larger = secondsOf(row.prepare(isSlow ? megabyte / 4 : megabyte));
    double const growth = larger / smaller;
    double const whole = isSlow ? larger * growth * growth : larger;
    std::cout << "| " << row.operation << " | " << row.input << " | " << (isSlow ? "about " : "")
              << std::fixed << std::setprecision(isSlow ? 0 : 3) << whole << " s | ";
    constexpr double tooShort = 0.002; // to tell how it grows
    if (whole < tooShort) {
        std::cout << "-";
    } else {
        std::cout << std::setprecision(1) << growth;
    }
    std::cout << " |" << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    std::string const word = argc > 1 ? argv[1] : "";
    std::cout << "| Operation | Input of 1 MB | Time | Growth if the input doubles |\n|---|---|--:|--:|\n";
    for (Row const& row : rows()) {
        if ((row.operation + row.input).find(word) != std::string::npos) {
            measure(row);
        }
    }
}
