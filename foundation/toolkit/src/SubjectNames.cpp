#include "SubjectNames.hpp"

#include "IssuanceHandles.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/objects.h>

#include <algorithm>
#include <string>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr char const noSubjectText[] = "Internal error: The subject could not be made.";

unsigned char const* bytesOf(std::string const& text)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): OpenSSL takes characters as bytes
    return reinterpret_cast<unsigned char const*>(text.data());
}

[[noreturn]] void refuseValueOf(std::string const& attribute)
{
    throw InvalidArgument("Invalid value of the attribute " + attribute);
}

OpenSSLHandle<ASN1_OBJECT> typeOf(std::string const& attribute)
{
    auto type = makeASN1_OBJECT(nullptr);
    bool const isText = attribute.find('\0') == std::string::npos;
    auto const find = [&] {
        type = makeASN1_OBJECT(isText ? OBJ_txt2obj(attribute.c_str(), 0) : nullptr);
        return type != nullptr;
    };
    throwIfLacksMemoryFor<CertificateException>(find, noSubjectText);
    throwIfNull<InvalidArgument>(type.get(), ("Unknown attribute: " + attribute).c_str());
    return type;
}

/// OpenSSL converts the value to a string type that the attribute allows, and checks its length.
void addAttribute(X509_NAME* name, std::string const& attribute, std::string const& value)
{
    auto const type = typeOf(attribute);
    bool isAdded = false;
    auto const add = [&] {
        isAdded =
            X509_NAME_add_entry_by_OBJ(
                name, type.get(), MBSTRING_UTF8, bytesOf(value), static_cast<int>(value.size()), -1, 0) == 1;
        return isAdded;
    };
    bool const isUsable = !value.empty() && fitsInInt(value.size()) && value.find('\0') == std::string::npos;
    if (isUsable) {
        throwIfLacksMemoryFor<CertificateException>(add, noSubjectText);
    }
    if (!isAdded) {
        refuseValueOf(attribute);
    }
}

ByteArray encoded(X509_NAME const* name)
{
    unsigned char* bytes = nullptr;
    int const size = i2d_X509_NAME(name, &bytes);
    auto const owner = makeOpenSSLBytes(bytes);
    throwIfBelowOne<CertificateException>(size, noSubjectText);
    return {bytes, bytes + size};
}

void refuseNulIn(X509_NAME_ENTRY const* entry)
{
    unsigned char* bytes = nullptr;
    int size = -1;
    auto const convert = [&] {
        size = ASN1_STRING_to_UTF8(&bytes, X509_NAME_ENTRY_get_data(entry));
        return size >= 0;
    };
    throwIfLacksMemoryFor<CertificateException>(convert, noSubjectText);
    auto const owner = makeOpenSSLBytes(bytes);
    if (size >= 0 && std::find(bytes, bytes + size, 0) != bytes + size) {
        refuseValueOf(OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry))));
    }
}

} // namespace

ByteArray subjectFrom(Attributes const& attributes)
{
    auto const name = makeX509_NAME(X509_NAME_new());
    throwIfNull<CertificateException>(name.get(), noSubjectText);
    for (auto const& [attribute, value] : attributes) {
        addAttribute(name.get(), attribute, value);
    }
    return encoded(name.get());
}

ByteArray subjectFrom(X509_NAME const* name)
{
    for (int index = 0; index < X509_NAME_entry_count(name); ++index) {
        refuseNulIn(X509_NAME_get_entry(name, index));
    }
    return encoded(name);
}

X509_NAMEUPtr nameFrom(ByteArray const& subject)
{
    auto const* position = subject.data();
    auto name = makeX509_NAME(d2i_X509_NAME(nullptr, &position, static_cast<long>(subject.size())));
    throwIfNull<CertificateException>(name.get(), noSubjectText);
    return name;
}

} // namespace foundation::toolkit
