#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

/// @file
/// Renders values as texts that are equal exactly where the values are. A list has a line for each member.

namespace foundation::test {

std::string rendered(std::string text);
std::string rendered(bool value);
std::string rendered(certificates::ByteArray const& bytes);
std::string rendered(certificates::X509Certificate::TimePoint time);
std::string rendered(std::unordered_map<std::string, std::string> const& attributes);
std::string rendered(certificates::PublicKeyInfo const& key);
std::string rendered(certificates::PrivateKeyInfo const& key);
/// The encoding, and what OpenSSL caches of the key and the extensions.
std::string rendered(certificates::X509Certificate const& certificate);
std::string rendered(certificates::X509CertificateChain const& chain);
/// The encodings of all entries, sorted, since OpenSSL keeps them in an order of its own.
std::string rendered(certificates::TrustStore const& store);
std::string rendered(certificates::PKCS7Certificate const& data);
std::string rendered(certificates::PKCS12Certificate const& bundle);
std::string rendered(certificates::CertificateRevocationResults const& results);
std::string rendered(certificates::CertificateValidationResults const& results);
std::string rendered(certificates::PKCS7CertificateValidationResults const& results);

template <class Value, class = std::enable_if_t<std::is_arithmetic_v<Value> || std::is_enum_v<Value>>>
std::string rendered(Value value)
{
    if constexpr (std::is_enum_v<Value>) {
        return std::to_string(static_cast<std::underlying_type_t<Value>>(value));
    } else {
        return std::to_string(value);
    }
}

template <class Value>
std::string rendered(std::vector<Value> const& values);
template <class Value>
std::string rendered(std::optional<Value> const& value);
template <class First, class Second>
std::string rendered(std::pair<First, Second> const& pair);

template <class Value>
std::string rendered(std::vector<Value> const& values)
{
    std::string text;
    for (auto const& value : values) {
        text += rendered(value) + "\n";
    }
    return text;
}

template <class Value>
std::string rendered(std::optional<Value> const& value)
{
    return value ? rendered(*value) : "none";
}

template <class First, class Second>
std::string rendered(std::pair<First, Second> const& pair)
{
    return rendered(pair.first) + rendered(pair.second);
}

/// Ends the text of a stream that reports a failure: it may have lost what was written last.
constexpr char const streamFailed[] = "[stream failed]";

/// The text that the function writes to a stream.
template <class Write>
std::string writtenBy(Write const& write)
{
    std::ostringstream out;
    write(out);
    return out.str() + (out ? "" : streamFailed);
}

} // namespace foundation::test
