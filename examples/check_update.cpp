// check_update FILE SIGNATURE --root FILE: checks that an update was signed with a code signing certificate
// of the vendor, whose root the program knows.
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::ByteArray;
using foundation::certificates::PKCS7Certificate;
using foundation::certificates::TrustStore;
using foundation::certificates::X509CertificateChain;
using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;
using foundation::toolkit::PathOptions;
using foundation::toolkit::PathValidator;
using foundation::toolkit::Purpose;

namespace {

constexpr char const usageText[] =
    "Usage: check_update FILE SIGNATURE --root FILE\n"
    "\n"
    "  FILE         the update\n"
    "  SIGNATURE    its detached signature, PKCS#7 in PEM or DER\n"
    "  --root FILE  the vendor's root certificate. The roots of the operating system are not trusted.\n"
    "\n"
    "Exit status: 0 if the update may be installed, 1 if not, 2 for any failure.\n";

ByteArray contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    ByteArray content(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>{});
    // The library takes empty content for content that is inside of the signature.
    if (content.empty()) {
        throw std::runtime_error(path + ": cannot be read, or is empty");
    }
    return content;
}

std::vector<Certificate> certificatesIn(std::string const& path)
{
    std::vector<Certificate> certificates;
    CertificateReader reader(path);
    while (auto const read = reader.next()) {
        if (!read->certificate) {
            throw std::runtime_error(read->source + ": " + read->failure);
        }
        certificates.push_back(*read->certificate);
    }
    return certificates;
}

/// Returns whether the bytes have the signature. Who signed is not checked.
bool isSigned(
    ByteArray const& update, PKCS7Certificate const& signature, std::vector<Certificate> const& roots)
{
    TrustStore trustStore;
    for (auto const& root : roots) {
        trustStore.addCertificate(root.toX509Certificate());
    }
    return signature.verifySignature(X509CertificateChain(), trustStore, update)
        .getSignatureVerificationStatus();
}

/// Returns whether every signer has a certificate of the vendor for signing code.
bool areSignersTrusted(
    PKCS7Certificate const& signature, std::vector<Certificate> const& embedded,
    std::vector<Certificate> const& roots)
{
    PathValidator const validator(roots);
    PathOptions options;
    options.purpose = Purpose::CodeSigning;
    auto const signers = signature.getSignerCerts().getCertificates();
    for (auto const& signer : signers) {
        auto const result = validator.validate(Certificate(signer), embedded, options);
        if (!result.isValid()) {
            std::cout << "Refused: " << signer.getSubjectName() << '\n' << result.text;
            return false;
        }
        std::cout << "Signed by " << signer.getSubjectName() << '\n';
    }
    return !signers.empty();
}

int run(std::string const& updateFile, std::string const& signatureFile, std::string const& rootFile)
{
    auto const roots = certificatesIn(rootFile);
    auto const update = contentOf(updateFile);
    PKCS7Certificate const signature(contentOf(signatureFile));
    if (!isSigned(update, signature, roots)) {
        std::cout << "Refused: the signature is not valid for this file\n";
        return 1;
    }
    if (!areSignersTrusted(signature, certificatesIn(signatureFile), roots)) {
        return 1;
    }
    std::cout << "The update may be installed\n";
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> const words(argv + 1, argv + argc);
        if (words.size() == 4 && words[2] == "--root") {
            return run(words[0], words[1], words[3]);
        }
        std::cerr << usageText;
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
    }
    return 2;
}
