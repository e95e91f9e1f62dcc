// Makes a certificate, validates it with the toolkit, and prints the chain. Fails for a wrong result, and if
// a handler for its class does not catch an exception that the toolkit throws.
#include <foundation/certificates.hpp>
#include <foundation/toolkit.hpp>

#include <iostream>
#include <stdexcept>
#include <string>
#include <typeinfo>

using namespace foundation::certificates;
using namespace foundation::toolkit;

namespace {

void printChain()
{
    Certificate const certificate(SelfSignedCertBuilder().withCommonName("consumer.example").build().first);
    PathResult const result = PathValidator({certificate}).validate(certificate, {});
    if (!result.isValid()) {
        throw std::logic_error("Not valid: " + result.text);
    }
    for (auto const& member : result.chain) {
        std::cout << versionString << ": " << member.getSubject() << ", " << member.getKeyKind() << '\n';
    }
}

void expectRefusal()
{
    std::string const text = "The text contains no certificate in PEM encoding.";
    try {
        Certificate::fromPEM("no certificate");
    } catch (InvalidArgument const& error) {
        if (typeid(error) != typeid(InvalidArgument) || error.what() != text) {
            throw std::logic_error(std::string("Thrown: ") + typeid(error).name() + " " + error.what());
        }
        return;
    }
    throw std::logic_error("Not thrown: " + text);
}

} // namespace

int main()
{
    try {
        printChain();
        expectRefusal();
    } catch (std::exception const& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
