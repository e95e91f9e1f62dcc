#include "GeneralNames.hpp"

#include "AddressText.hpp"
#include "Asn1Strings.hpp"
#include "CertificateAccess.hpp"
#include "IssuanceHandles.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/x509v3.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

constexpr char const noNamesText[] = "Internal error: The alternative names could not be made.";

/// OpenSSL does not report parts that it had no memory to print. So the name is printed twice, and memory is
/// available in between.
std::string printed(GENERAL_NAME* name)
{
    std::vector<std::string> attempts;
    runUnlessOutOfMemory([&] {
        constexpr bool isCertain = false;
        auto const bio = makeMemoryBIO();
        if (bio != nullptr) {
            GENERAL_NAME_print(bio.get(), name);
        }
        attempts.push_back(contentsAsString(bio.get()));
        return isCertain;
    });
    if (attempts.front() != attempts.back()) {
        throw X509CertificateException(outOfMemoryText);
    }
    return std::move(attempts.back());
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

/// Returns the type of the name within a GENERAL_NAME.
int typeOf(AlternativeName::Kind kind)
{
    switch (kind) {
    case AlternativeName::Kind::DNS:
        return GEN_DNS;
    case AlternativeName::Kind::IPAddress:
        return GEN_IPADD;
    case AlternativeName::Kind::Email:
        return GEN_EMAIL;
    case AlternativeName::Kind::URI:
        return GEN_URI;
    case AlternativeName::Kind::Other:
        break;
    }
    throw InvalidArgument("Alternative names of this kind cannot be made.");
}

/// Returns whether an IA5String can hold the text. A NUL character belongs to ASCII, but readers that stop
/// there would see another name.
bool isNonEmptyASCII(std::string const& text)
{
    return !text.empty() && fitsInInt(text.size()) &&
           std::all_of(text.begin(), text.end(), [](char character) {
               return character != '\0' && static_cast<unsigned char>(character) < 0x80;
           });
}

/// Returns the bytes of the name within a GENERAL_NAME; none for an invalid value.
ByteArray contentOf(AlternativeName const& name)
{
    if (name.kind == AlternativeName::Kind::IPAddress) {
        return addressFromText(name.value).value_or(ByteArray());
    }
    return isNonEmptyASCII(name.value) ? ByteArray(name.value.begin(), name.value.end()) : ByteArray();
}

GENERAL_NAMEUPtr generalNameFrom(AlternativeName const& name)
{
    int const type = typeOf(name.kind);
    auto const content = contentOf(name);
    if (content.empty()) {
        throw InvalidArgument("Invalid alternative name: " + name.value);
    }
    auto string =
        makeASN1_STRING(ASN1_STRING_type_new(type == GEN_IPADD ? V_ASN1_OCTET_STRING : V_ASN1_IA5STRING));
    throwIfNull<CertificateException>(string.get(), noNamesText);
    throwIfNotOne<CertificateException>(
        ASN1_STRING_set(string.get(), content.data(), static_cast<int>(content.size())), noNamesText);
    auto made = makeGENERAL_NAME(GENERAL_NAME_new());
    throwIfNull<CertificateException>(made.get(), noNamesText);
    GENERAL_NAME_set0_value(made.get(), type, string.release());
    return made;
}

} // namespace

std::vector<AlternativeName> alternativeNamesFrom(GENERAL_NAMES const* names)
{
    std::vector<AlternativeName> result;
    result.reserve(static_cast<std::size_t>(std::max(0, sk_GENERAL_NAME_num(names))));
    for (int index = 0; index < sk_GENERAL_NAME_num(names); ++index) {
        result.push_back(asAlternativeName(sk_GENERAL_NAME_value(names, index)));
    }
    return result;
}

GENERAL_NAMEStackUPtr generalNamesFrom(std::vector<AlternativeName> const& names)
{
    auto made = makeGENERAL_NAMEStack(GENERAL_NAMES_new());
    throwIfNull<CertificateException>(made.get(), noNamesText);
    for (auto const& name : names) {
        auto element = generalNameFrom(name);
        throwIfBelowOne<CertificateException>(sk_GENERAL_NAME_push(made.get(), element.get()), noNamesText);
        static_cast<void>(element.release()); // the stack owns it now
    }
    return made;
}

} // namespace foundation::toolkit
