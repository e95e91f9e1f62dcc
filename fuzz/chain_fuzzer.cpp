/// Loads a chain from text. An input with a PEM marker is used unchanged. Otherwise each DER element of the
/// input becomes a PEM block.

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
    require(!members.empty() && !chain.empty(), "a loaded chain is not empty");
    require(members.size() == chain.getNumCertificates(), "a chain reports its number of members");
    X509CertificateChain rebuilt;
    for (auto const& member : members) {
        checkOutputLoads(member);
        rebuilt.addCertificate(member);
    }
    require(rebuilt == chain, "chains of the same members are equal");
}

void checkOutput(X509CertificateChain const& chain)
{
    auto const text = chain.getAsString();
    auto const again = mustSucceed("a written chain loads", [&] { return X509CertificateChain(text); });
    require(again == chain && !(again != chain), "a chain loaded from its text is equal");
    require(again.getAsString() == text, "a chain loaded from its text is written identically");

    std::ostringstream printed;
    printed << chain;
    std::ostringstream expected;
    expected << "Printing certificate chain.\n---------------------------\n";
    for (auto const& member : chain.getCertificates()) {
        expected << member << "\n";
    }
    require(printed.str() == expected.str(), "the report of a chain holds the reports of its members");
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
    require(popped.has_value() == (leaf != members.end()), "a chain returns its leaf if it has one");
    if (popped) {
        require(*popped == *leaf, "the leaf is the first certificate that is not a CA");
        members.erase(leaf);
    }
    require(rest.getCertificates() == members, "the other members keep their order");
}

void check(std::string const& text)
{
    auto const chain = load(text);
    std::istringstream stream(text);
    require(load(stream) == chain, "text and stream give the same result");
    if (chain) {
        checkMembers(*chain);
        mustSucceed("a loaded chain can be written", [&] { checkOutput(*chain); });
        mustSucceed("a loaded chain can be taken apart", [&] { checkLeaf(*chain); });
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
