#pragma once

/// @file
/// Turns the plain fields of certificates and CRLs into text and numbers: names, serial numbers, times and
/// object identifiers.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <optional>
#include <string>
#include <unordered_map>

namespace foundation::certificates {

/// Returns the name on one line in the form of RFC 2253 (`X509_NAME_print_ex` with `XN_FLAG_RFC2253`). A name
/// that OpenSSL cannot print gives the part that was printed.
/// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if out of
///     memory: two names that were not read must not count as equal
std::string nameAsText(X509_NAME const* name);

/// Returns the name's attributes as UTF-8, keyed by OpenSSL's short names. Of several attributes with one
/// key, the last in encoded order wins. Skips attributes that OpenSSL cannot convert. Empty for a null name.
/// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if out of memory
std::unordered_map<std::string, std::string> nameAsRDNs(X509_NAME const* name);

/// Returns the last common name in encoded order that OpenSSL can convert to UTF-8: the "CN" of nameAsRDNs.
/// @throws InvalidArgument missingText if the name has none
/// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if out of memory
std::string lastCommonNameIn(X509_NAME const* name, char const* missingText);

/// Returns the first common name of the certificate's subject in UTF-8, for messages. Empty for a null
/// certificate, without a common name, and if OpenSSL cannot convert it or runs out of memory.
std::string commonNameOf(X509* certificate);

/// Returns the string in UTF-8; nothing for a null pointer, and if OpenSSL cannot convert it or runs out of
/// memory.
std::optional<std::string> asUTF8(ASN1_STRING const* value);

/// Returns the serial number in decimal digits. Takes time with the square of the number's length.
/// @throws X509CertificateException "Internal error: Unable to get serial number.", "Internal error: Unable
///     to get serial number from BN."
std::string serialToDecimalString(ASN1_INTEGER const* serial);

/// Returns the time as `ASN1_TIME_print` writes it.
/// @throws X509CertificateException "Error: printing the ASN1 time failed.", "Error: Could not get the ASN1
///     time in string format."
std::string asn1TimeToString(ASN1_TIME const* time);

/// Returns the time as a point of the system clock.
/// @throws X509CertificateException "Invalid time format used in the certificate."
X509Certificate::TimePoint asn1TimeToTimePoint(ASN1_TIME const* time);

/// Returns the object identifier in dotted digits, never as a name.
/// @throws X509CertificateException "OID has invalid length: " and the length; "Could not convert OID into
///     text. Expected: " and a length, ". Got: " and another
std::string oidToString(ASN1_OBJECT const* object);

} // namespace foundation::certificates
