#include "support/pki/TestPki.hpp"

#include <ctime>

namespace foundation::test {

TimeSpec TimeSpec::fromNow(std::chrono::seconds offset)
{
    return at(std::time(nullptr) + offset.count());
}

TimeSpec TimeSpec::at(std::int64_t secondsSince1970)
{
    TimeSpec result;
    result.time = secondsSince1970;
    return result;
}

TimeSpec TimeSpec::raw(int type, std::string text)
{
    TimeSpec result;
    result.rawType = type;
    result.rawText = std::move(text);
    return result;
}

TimeSpec TimeSpec::unreadable()
{
    return raw(V_ASN1_UTCTIME, "no time at all");
}

AsnStringHandle TimeSpec::toAsn1() const
{
    if (!rawType) {
        // Passes days and seconds, because a 32-bit `time_t` cannot hold every time.
        constexpr std::int64_t secondsPerDay = 86400;
        return own(ASN1_TIME_adj(
            nullptr, 0, static_cast<int>(time / secondsPerDay), static_cast<long>(time % secondsPerDay)));
    }
    auto string = own(ASN1_STRING_type_new(*rawType));
    require(ASN1_STRING_set(string.get(), rawText.data(), static_cast<int>(rawText.size())));
    return string;
}

Name commonName(std::string value)
{
    return {{"CN", std::move(value)}};
}

NameHandle makeName(Name const& name)
{
    auto result = own(X509_NAME_new());
    for (auto const& entry : name) {
        auto const object = own(OBJ_txt2obj(entry.field.c_str(), 0));
        auto const* const bytes = reinterpret_cast<unsigned char const*>(entry.value.data());
        auto const size = static_cast<int>(entry.value.size());
        require(X509_NAME_add_entry_by_OBJ(result.get(), object.get(), entry.type, bytes, size, -1, 0));
    }
    return result;
}

} // namespace foundation::test
