#include "GeneralNames.hpp"

#include "AddressText.hpp"
#include "Asn1Strings.hpp"
#include "CertificateAccess.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/x509v3.h>

#include <string>
#include <utility>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

std::string printed(GENERAL_NAME* name)
{
    std::string text;
    auto const print = [&] {
        auto const bio = makeMemoryBIO();
        bool const isPrinted = bio != nullptr && GENERAL_NAME_print(bio.get(), name) == 1;
        text = contentsAsString(bio.get());
        return isPrinted;
    };
    if (lacksMemoryFor(print)) {
        throw X509CertificateException(outOfMemoryText);
    }
    return text;
}

AlternativeName asAlternativeName(GENERAL_NAME* name)
{
    using Kind = AlternativeName::Kind;
    int type = -1;
    auto const* const value = static_cast<ASN1_STRING const*>(GENERAL_NAME_get0_value(name, &type));
    switch (type) {
    case GEN_DNS:
        return {Kind::DNS, asText(value)};
    case GEN_EMAIL:
        return {Kind::Email, asText(value)};
    case GEN_URI:
        return {Kind::URI, asText(value)};
    case GEN_IPADD:
        if (auto address = addressAsText(asBytes(value))) {
            return {Kind::IPAddress, std::move(*address)};
        }
        break;
    default:
        break;
    }
    return {Kind::Other, printed(name)};
}

} // namespace

std::vector<AlternativeName> alternativeNamesFrom(GENERAL_NAMES const* names)
{
    std::vector<AlternativeName> result;
    for (int index = 0; index < sk_GENERAL_NAME_num(names); ++index) {
        result.push_back(asAlternativeName(sk_GENERAL_NAME_value(names, index)));
    }
    return result;
}

} // namespace foundation::toolkit
