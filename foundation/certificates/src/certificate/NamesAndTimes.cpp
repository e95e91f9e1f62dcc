#include "certificate/NamesAndTimes.hpp"

#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <array>
#include <utility>
#include <vector>

namespace foundation::certificates {

namespace {

/// What one attempt to read a name returned, and whether running out of memory can have changed it.
template <typename Value>
struct Attempt
{
    Value value;
    bool isCertain;
};

/// Returns what the step reads. An uncertain value counts only if a second attempt, made while memory is
/// available, returns the same.
template <typename Value, typename Step>
Value readName(Step const& step)
{
    std::vector<Attempt<Value>> attempts;
    bool const lacksMemory = lacksMemoryFor([&] {
        attempts.push_back(step());
        return attempts.back().isCertain;
    });
    bool const isConfirmed = attempts.back().isCertain || attempts.front().value == attempts.back().value;
    if (lacksMemory || !isConfirmed) {
        throw X509CertificateException("Internal error: Unable to read the certificate's name.");
    }
    return std::move(attempts.back().value);
}

/// Whether an attribute's type has no name in OpenSSL. OpenSSL prints such a type as a number. It does not
/// report that it ran out of memory for the number.
bool hasUnknownAttribute(X509_NAME const* name)
{
    for (int index = 0; index < X509_NAME_entry_count(name); ++index) {
        if (OBJ_obj2nid(X509_NAME_ENTRY_get_object(X509_NAME_get_entry(name, index))) == NID_undef) {
            return true;
        }
    }
    return false;
}

std::optional<std::string> valueOf(X509_NAME_ENTRY const* attribute)
{
    return readName<std::optional<std::string>>([&] {
        auto text = asUTF8(X509_NAME_ENTRY_get_data(attribute));
        bool const isCertain = text.has_value();
        return Attempt<std::optional<std::string>>{std::move(text), isCertain};
    });
}

} // namespace

std::string nameAsText(X509_NAME const* name)
{
    return readName<std::string>([&] {
        auto const bio = makeMemoryBIO();
        // Without a BIO the printer only counts.
        bool const isPrinted = bio != nullptr && X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) >= 0;
        return Attempt<std::string>{contentsAsString(bio.get()), isPrinted && !hasUnknownAttribute(name)};
    });
}

std::unordered_map<std::string, std::string> nameAsRDNs(X509_NAME const* name)
{
    std::unordered_map<std::string, std::string> attributes;
    int const count = name == nullptr ? 0 : X509_NAME_entry_count(name);
    for (int index = 0; index < count; ++index) {
        X509_NAME_ENTRY const* entry = X509_NAME_get_entry(name, index);
        if (entry == nullptr) {
            continue;
        }
        char const* key = OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry)));
        auto value = valueOf(entry);
        if (key != nullptr && value) {
            attributes[key] = std::move(*value);
        }
    }
    return attributes;
}

std::string lastCommonNameIn(X509_NAME const* name, char const* missingText)
{
    for (int index = X509_NAME_entry_count(name) - 1; index >= 0; --index) {
        X509_NAME_ENTRY const* entry = X509_NAME_get_entry(name, index);
        if (entry == nullptr || OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry)) != NID_commonName) {
            continue;
        }
        if (auto value = valueOf(entry)) {
            return std::move(*value);
        }
    }
    throw InvalidArgument(missingText);
}

std::string commonNameOf(X509* certificate)
{
    X509_NAME const* subject = certificate == nullptr ? nullptr : X509_get_subject_name(certificate);
    int const index = subject == nullptr ? -1 : X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    X509_NAME_ENTRY const* entry = index < 0 ? nullptr : X509_NAME_get_entry(subject, index);
    ASN1_STRING const* value = entry == nullptr ? nullptr : X509_NAME_ENTRY_get_data(entry);
    return asUTF8(value).value_or(std::string());
}

std::optional<std::string> asUTF8(ASN1_STRING const* value)
{
    unsigned char* buffer = nullptr;
    int const length = value == nullptr ? -1 : ASN1_STRING_to_UTF8(&buffer, value);
    auto const bytes = makeOpenSSLBytes(buffer);
    if (length < 0 || bytes == nullptr) {
        return std::nullopt;
    }
    return std::string(bytes.get(), bytes.get() + length);
}

std::string serialToDecimalString(ASN1_INTEGER const* serial)
{
    auto const number = makeBIGNUM(serial == nullptr ? nullptr : ASN1_INTEGER_to_BN(serial, nullptr));
    throwIfNull<X509CertificateException>(number.get(), "Internal error: Unable to get serial number.");
    auto const digits = makeOpenSSLChars(BN_bn2dec(number.get()));
    return throwIfNull<X509CertificateException>(
        digits.get(), "Internal error: Unable to get serial number from BN.");
}

std::string asn1TimeToString(ASN1_TIME const* time)
{
    auto const bio = makeMemoryBIO();
    throwIfBelowOne<X509CertificateException>(
        time == nullptr ? 0 : ASN1_TIME_print(bio.get(), time), "Error: printing the ASN1 time failed.");
    std::array<char, 1024> line{};
    throwIfBelowOne<X509CertificateException>(
        BIO_gets(bio.get(), line.data(), static_cast<int>(line.size())),
        "Error: Could not get the ASN1 time in string format.");
    return line.data();
}

X509Certificate::TimePoint asn1TimeToTimePoint(ASN1_TIME const* time)
{
    constexpr char const invalidText[] = "Invalid time format used in the certificate.";
    constexpr long long secondsPerDay = 86400;
    constexpr long long ticksPerSecond = 10000000;

    // ASN1_TIME_diff reads a null time as the present, which is never intended here.
    auto const epoch = makeASN1_TIME(ASN1_UTCTIME_set(nullptr, 0));
    throwIfNull<X509CertificateException>(epoch.get(), invalidText);
    throwIfNull<X509CertificateException>(time, invalidText);
    int days = 0;
    int seconds = 0;
    throwIfBelowOne<X509CertificateException>(
        ASN1_TIME_diff(&days, &seconds, epoch.get(), time), invalidText);
    return X509Certificate::TimePoint(
        X509Certificate::TimePoint::duration((days * secondsPerDay + seconds) * ticksPerSecond));
}

std::string oidToString(ASN1_OBJECT const* object)
{
    std::array<char, 128> shortText{};
    int const length = OBJ_obj2txt(shortText.data(), static_cast<int>(shortText.size()), object, 1);
    if (length < 1) {
        throw X509CertificateException("OID has invalid length: " + std::to_string(length));
    }
    if (length < static_cast<int>(shortText.size())) {
        return std::string(shortText.data(), static_cast<std::size_t>(length));
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    int const written = OBJ_obj2txt(text.data(), length + 1, object, 1);
    if (written != length) {
        throw X509CertificateException(
            "Could not convert OID into text. Expected: " + std::to_string(length) +
            ". Got: " + std::to_string(written));
    }
    text.pop_back();
    return text;
}

} // namespace foundation::certificates
