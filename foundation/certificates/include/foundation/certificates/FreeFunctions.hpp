#pragma once

/// @file
/// The byte and text encodings, where the operating system keeps its roots, and the access to a trust
/// store's OpenSSL store for code that speaks OpenSSL.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/export.hpp>

#include <iosfwd>
#include <memory>
#include <string>

struct ssl_ctx_st;
struct x509_store_st;

namespace foundation::certificates {

class TrustStore;

/// Base64 of the bytes with the alphabet of RFC 4648 ("+" and "/"), padded, on one line. Empty for no
/// bytes.
FOUNDATION_CERTIFICATES_EXPORT std::string base64Encode(ByteArray const& data);

/// The bytes of a base64 text, which must be free of line breaks and blanks.
///
/// As many characters as the text holds "=" are cut off its end, whatever they are; an "=" that stays
/// decodes as six zero bits. Left-over bits are dropped without a check.
/// @throws boost::archive::iterators::dataflow_exception (a std::exception outside the library's family)
///     with "attempt to decode a value not in base64 char set" for any other character outside the
///     alphabet, and for a text that leaves a single character over.
FOUNDATION_CERTIFICATES_EXPORT ByteArray base64Decode(std::string const& text);

/// Two lower-case hexadecimal digits a byte, without separators.
FOUNDATION_CERTIFICATES_EXPORT std::string hexEncode(ByteArray const& data);

/// The bytes of a text of hexadecimal digits of either case; no prefix, blank or separator is tolerated.
/// @throws InvalidArgument "Input string is invalid for hex decoding. It has odd number of characters.",
///     tested first
/// @throws InvalidArgument "Input string contains characters which are not in Hex."
FOUNDATION_CERTIFICATES_EXPORT ByteArray hexDecode(std::string const& text);

/// Writes one line: the label and a blank if there is a label, each byte as "0x", two digits and a blank,
/// and a line end with a flush. The stream's format state is as before afterwards; stream failures are
/// neither tested nor reported.
FOUNDATION_CERTIFICATES_EXPORT void
prettyPrintBytes(ByteArray const& data, std::string const& label, std::ostream& out);

/// Returns the file from which the operating system's root certificates are read at present. On Unix this is
/// the value of the environment variable SSL_CERT_FILE if that or SSL_CERT_DIR names the places, and
/// otherwise the system's bundle. Empty if no file is read, and always on Windows.
///
/// A privileged process, such as a set-user-ID program, ignores the two variables.
FOUNDATION_CERTIFICATES_EXPORT std::string getSystemCertificatesFile();

/// Returns the folder from which the operating system's root certificates are read at present. On Unix this
/// is the value of the environment variable SSL_CERT_DIR, which may hold several folders separated by colons,
/// if that or SSL_CERT_FILE names the places, and otherwise the system's folder. Empty if no folder is read,
/// and always on Windows.
FOUNDATION_CERTIFICATES_EXPORT std::string getSystemCertificatesFolder();

/// Returns a further owner of the trust store's live OpenSSL store; an empty pointer for a trust store that
/// was moved from.
///
/// The trust store's lock is held only during this call. Do not use the pointer while an operation of the
/// trust store changes that store.
FOUNDATION_CERTIFICATES_EXPORT std::shared_ptr<x509_store_st> getOpenSSLStore(TrustStore const& trustStore);

/// Returns an independent OpenSSL store, released with `X509_STORE_free`. It holds a duplicate of each
/// certificate and a reference to each CRL, with OpenSSL's default parameters, flags and lookups. Null for a
/// trust store that was moved from, and if `X509_STORE_new` fails.
///
/// Holds the trust store's lock for the whole copy. Leaves OpenSSL's error queue unchanged.
/// @throws TrustStoreException "Failed to add CRL to store"
/// @throws TrustStoreException "Failed to add certificate to store, CN: " and the certificate's common name
FOUNDATION_CERTIFICATES_EXPORT std::unique_ptr<x509_store_st, void (*)(x509_store_st*)>
copyOpenSSLStore(TrustStore const& trustStore);

/// Gives a TLS context the trust store's live store (`SSL_CTX_set_cert_store`). The context holds a reference
/// of its own: it may outlive the trust store, and it sees certificates that are added later. Does nothing if
/// the trust store was moved from or the context is null.
FOUNDATION_CERTIFICATES_EXPORT void
attachTrustStoreToSSLCTX(TrustStore const& trustStore, ssl_ctx_st* context);

} // namespace foundation::certificates
