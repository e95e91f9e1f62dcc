#pragma once

#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

/// @file
/// Values as texts that are equal where the values are. Lists have a line for each member.

namespace foundation::test {

inline std::string rendered(std::string text)
{
    return text;
}

template <class Number, class = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string rendered(Number number)
{
    return std::to_string(number);
}

inline std::string rendered(certificates::ByteArray const& bytes)
{
    return {bytes.begin(), bytes.end()};
}

inline std::string rendered(certificates::X509Certificate::TimePoint time)
{
    return std::to_string(time.time_since_epoch().count());
}

inline std::string rendered(std::unordered_map<std::string, std::string> const& attributes)
{
    std::string text;
    for (auto const& [key, value] :
         std::map<std::string, std::string>(attributes.begin(), attributes.end())) {
        text += key + "=" + value + "\n";
    }
    return text;
}

inline std::string rendered(certificates::PublicKeyInfo const& key)
{
    return std::to_string(key.getKeySize()) + " bits\n" +
           (key.getType() == certificates::KeyType::RSA
                ? rendered(key.getRSAPublicExponent()) + rendered(key.getRSAModulus())
                : rendered(key.getECCPublicPoint()) + std::to_string(static_cast<int>(key.getECCCurve())));
}

inline std::string rendered(certificates::PrivateKeyInfo const& key)
{
    return key.getType() == certificates::KeyType::RSA
               ? rendered(key.getRSAPrivateExponent())
               : rendered(key.getECCPrivateInteger()) + std::to_string(static_cast<int>(key.getECCCurve()));
}

/// Not the encoding alone: OpenSSL keeps in memory what it has made of the key and the extensions.
inline std::string rendered(certificates::X509Certificate const& certificate)
{
    return certificate.empty() ? "none"
                               : certificate.getAsString() + " " + std::to_string(certificate.getKeySize()) +
                                     " bits" + (certificate.isCACertificate() ? " CA" : "");
}

template <class Value>
std::string rendered(std::vector<Value> const& values)
{
    std::string text;
    for (auto const& value : values) {
        text += rendered(value) + "\n";
    }
    return text;
}

inline std::string rendered(certificates::X509CertificateChain const& chain)
{
    return rendered(chain.getCertificates());
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

/// The encodings of all entries, which OpenSSL keeps in an order of its own.
inline std::string rendered(certificates::TrustStore const& store)
{
    auto const openSSLStore = certificates::getOpenSSLStore(store);
    auto* const entries = openSSLStore == nullptr ? nullptr : X509_STORE_get0_objects(openSSLStore.get());
    std::set<std::string> lines;
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        X509_OBJECT* const entry = sk_X509_OBJECT_value(entries, index);
        auto* const crl = X509_OBJECT_get0_X509_CRL(entry);
        lines.insert(certificates::hexEncode(
            crl == nullptr ? toDer(share(X509_OBJECT_get0_X509(entry)))
                           : certificates::ByteArray{'C', 'R', 'L'}));
    }
    return rendered(std::vector<std::string>(lines.begin(), lines.end()));
}

inline std::string rendered(certificates::PKCS7Certificate const& data)
{
    return data.getAsString() + rendered(data.getCertificates());
}

inline std::string rendered(certificates::PKCS12Certificate const& bundle)
{
    return rendered(bundle.getAsBytes()) + rendered(bundle.getCertificate()) + rendered(bundle.getCAChain()) +
           rendered(bundle.getPrivateKeyInfo());
}

} // namespace foundation::test
