/// A chain from text: the input as it is if it holds a marker of PEM text, else a block of each of its
/// elements of DER.

#include "support/CertificateProperties.hpp"
#include "support/DerElements.hpp"
#include "support/Properties.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

namespace foundation::fuzz {

namespace {

using certificates::X509Certificate;
using certificates::X509CertificateChain;

std::string textOf(Bytes const& input)
{
    std::string text(input.begin(), input.end());
    if (text.find("-----BEGIN") != std::string::npos) {
        return text;
    }
    text.clear();
    for (auto const& element : elementsIn(input)) {
        text += "-----BEGIN CERTIFICATE-----\n" + certificates::base64Encode(element) +
                "\n-----END CERTIFICATE-----\n";
    }
    return text;
}

template <typename Source>
std::optional<X509CertificateChain> load(Source&& source)
{
    std::optional<X509CertificateChain> chain;
    loads([&] { chain.emplace(source); });
    return chain;
}

void checkMembers(X509CertificateChain const& chain)
{
    auto const members = chain.getCertificates();
    require(!members.empty() && !chain.empty(), "a chain that was loaded is not empty");
    require(members.size() == chain.getNumCertificates(), "a chain has as many members as it says");
    X509CertificateChain rebuilt;
    for (auto const& member : members) {
        checkOutputLoads(member);
        rebuilt.addCertificate(member);
    }
    require(rebuilt == chain, "a chain of the same members is equal");
}

void checkOutput(X509CertificateChain const& chain)
{
    auto const text = chain.getAsString();
    auto const again =
        mustSucceed("a chain that was written loads", [&] { return X509CertificateChain(text); });
    require(again == chain && !(again != chain), "what loads from a chain's text is equal");
    require(again.getAsString() == text, "what loads from a chain's text is written alike");

    std::ostringstream printed;
    printed << chain;
    std::ostringstream expected;
    expected << "Printing certificate chain.\n---------------------------\n";
    for (auto const& member : chain.getCertificates()) {
        expected << member << "\n";
    }
    require(printed.str() == expected.str(), "a chain's report is made of its members'");
}

void checkLeaf(X509CertificateChain const& chain)
{
    auto members = chain.getCertificates();
    auto const leaf = std::find_if(members.begin(), members.end(), [](X509Certificate const& member) {
        return !member.isCACertificate();
    });
    X509CertificateChain rest(chain);
    require(rest == chain, "a copy is equal");
    std::optional<X509Certificate> popped;
    succeeds([&] { popped.emplace(rest.popLeafCertificate()); });
    require(popped.has_value() == (leaf != members.end()), "a chain gives up a leaf if it has one");
    if (popped) {
        require(*popped == *leaf, "the leaf is the first certificate that is no CA's");
        members.erase(leaf);
    }
    require(rest.getCertificates() == members, "the others stay in their order");
}

void check(std::string const& text)
{
    auto const chain = load(text);
    std::istringstream stream(text);
    require(load(stream) == chain, "both forms load alike");
    if (chain) {
        checkMembers(*chain);
        mustSucceed("a chain is written", [&] { checkOutput(*chain); });
        mustSucceed("a chain is taken apart", [&] { checkLeaf(*chain); });
    }
    clearErrorQueue();
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    using namespace foundation::fuzz;
    check(textOf(Bytes(input, input + size)));
    return 0;
}
