// Makes a certificate, validates it against a trust store that holds it, and prints the root. Fails for a
// wrong result, and if a handler for its class does not catch an exception that a library throws.
#include <foundation/certificates.hpp>
#include <foundation/log/basic_diagnostic_logger.hpp>

#include <iostream>
#include <stdexcept>
#include <string>
#include <typeinfo>

using namespace foundation::certificates;

namespace {

// Runs the operation. Fails unless it throws exactly this class with this text.
template <typename Expected, typename Operation>
void expectThrown(std::string const& text, Operation operation)
{
    try {
        operation();
    } catch (Expected const& error) {
        if (typeid(error) != typeid(Expected) || error.what() != text) {
            throw std::logic_error(std::string("Thrown: ") + typeid(error).name() + " " + error.what());
        }
        return;
    }
    throw std::logic_error("Not thrown: " + text);
}

void printRoot()
{
    auto const certificate = SelfSignedCertBuilder().withCommonName("consumer.example").build().first;
    TrustStore roots;
    roots.addCertificate(certificate);
    X509CertificateChain chain;
    chain.addCertificate(certificate);
    auto const results = certificate.validateCertificate(chain, CertificateValidationOptions(), roots);
    if (results.getCertificateChainStatus() != CertificateChainStatus::Valid) {
        throw std::logic_error("Not valid: " + results.getValidationErrorString());
    }
    std::cout << versionString << ": " << results.getRootCertificate().value().getSubjectName() << '\n';
}

void describeException()
{
    std::string description;
    try {
        hexDecode("0");
    } catch (InvalidArgument const&) {
        description = foundation::log::detail::current_exception_chain_as_string();
    }
    if (description.rfind("foundation::certificates::InvalidArgument: Input string is invalid", 0) != 0) {
        throw std::logic_error("Described as: " + description);
    }
}

} // namespace

int main()
{
    try {
        printRoot();
        expectThrown<InvalidArgument>("The input certificate has no content.", [] {
            X509Certificate const certificate{std::string()};
        });
        expectThrown<X509CertificateException>(
            "Certificate validity period must be within the range of 1 and 397 days.",
            [] { SelfSignedCertBuilder().withValidityPeriod(398); });
        expectThrown<TrustStoreException>(
            "Input certificate is empty.", [] { TrustStore().addCertificate(X509Certificate()); });
        describeException();
    } catch (std::exception const& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
