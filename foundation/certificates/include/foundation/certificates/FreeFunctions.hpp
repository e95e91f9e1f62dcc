#pragma once

/// @file
/// Encodings of bytes as text, the locations of the operating system's roots, and access to a trust store's
/// OpenSSL store for code that uses OpenSSL itself.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/export.hpp>

#include <iosfwd>
#include <memory>
#include <string>

struct ssl_ctx_st;
struct x509_store_st;

namespace foundation::certificates {

class TrustStore;

/// Returns the bytes in base64 with the alphabet of RFC 4648 ("+" and "/"), with padding and in one line.
/// Returns an empty text for no bytes.
FOUNDATION_CERTIFICATES_EXPORT std::string base64Encode(ByteArray const& data);

/// Returns the bytes of a base64 text, which must not contain line breaks or blanks.
///
/// For each "=" in the text, removes one character from the end of the text, without looking at it. An "="
/// that remains decodes as six zero bits. Bits that do not fill a byte are ignored.
/// @throws boost::archive::iterators::dataflow_exception "attempt to decode a value not in base64 char set"
///     for any other remaining character outside the alphabet, and if a group of one character remains at the
///     end. This class derives from std::exception and not from the library's exceptions.
FOUNDATION_CERTIFICATES_EXPORT ByteArray base64Decode(std::string const& text);

/// Returns two lower-case hexadecimal digits for each byte, without separators.
FOUNDATION_CERTIFICATES_EXPORT std::string hexEncode(ByteArray const& data);

/// Returns the bytes of a text of hexadecimal digits of either case, without prefix, blanks or separators.
/// @throws InvalidArgument "Input string is invalid for hex decoding. It has odd number of characters." This
///     is tested first.
/// @throws InvalidArgument "Input string contains characters which are not in Hex."
FOUNDATION_CERTIFICATES_EXPORT ByteArray hexDecode(std::string const& text);

/// Writes one line: the label and a blank, unless the label is empty; each byte as "0x", two digits and a
/// blank; and a line end. Flushes the stream, and leaves its format state unchanged. Does not test the stream
/// for failures.
FOUNDATION_CERTIFICATES_EXPORT void
prettyPrintBytes(ByteArray const& data, std::string const& label, std::ostream& out);

/// Returns the file from which the operating system's root certificates are read at present; empty if no file
/// is read, and always on Windows. On Unix this is the value of the environment variable SSL_CERT_FILE if
/// that variable or SSL_CERT_DIR is set and not empty. Otherwise it is the system's bundle.
///
/// A privileged process, such as a set-user-ID program, ignores the two variables.
FOUNDATION_CERTIFICATES_EXPORT std::string getSystemCertificatesFile();

/// Returns the folder from which the operating system's root certificates are read at present; empty if no
/// folder is read, and always on Windows. On Unix this is the value of the environment variable SSL_CERT_DIR
/// if that variable or SSL_CERT_FILE is set and not empty. The variable may hold several folders, separated
/// by colons. Otherwise it is the system's folder.
FOUNDATION_CERTIFICATES_EXPORT std::string getSystemCertificatesFolder();

/// Returns a further owner of the trust store's live OpenSSL store; an empty pointer for a trust store that
/// was moved from.
///
/// The trust store's lock is held only during this call. Do not use the pointer while
/// TrustStore::addSystemCertificates removes entries.
///
/// The first call for a trust store duplicates its certificates. So what is changed in the live store reaches
/// no handle and no other store.
/// @throws TrustStoreException as copyOpenSSLStore does, at the first call
FOUNDATION_CERTIFICATES_EXPORT std::shared_ptr<x509_store_st> getOpenSSLStore(TrustStore const& trustStore);

/// Returns an independent OpenSSL store, released with `X509_STORE_free`. It holds a duplicate of each
/// certificate and a reference to each CRL, with OpenSSL's default parameters, flags and lookups. Null for a
/// trust store that was moved from, and if `X509_STORE_new` fails.
///
/// Holds the trust store's lock for the whole copy. Leaves OpenSSL's error queue unchanged.
/// @throws TrustStoreException "Failed to read X509_STORE" if OpenSSL runs out of memory
/// @throws TrustStoreException "Failed to add CRL to store"
/// @throws TrustStoreException "Failed to add certificate to store, CN: " and the certificate's common name
FOUNDATION_CERTIFICATES_EXPORT std::unique_ptr<x509_store_st, void (*)(x509_store_st*)>
copyOpenSSLStore(TrustStore const& trustStore);

/// Gives a TLS context the trust store's live store (`SSL_CTX_set_cert_store`). The context holds a reference
/// of its own: it may outlive the trust store, and it sees certificates that are added later. Does nothing if
/// the trust store was moved from or the context is null.
/// @throws TrustStoreException as getOpenSSLStore does
FOUNDATION_CERTIFICATES_EXPORT void
attachTrustStoreToSSLCTX(TrustStore const& trustStore, ssl_ctx_st* context);

} // namespace foundation::certificates
