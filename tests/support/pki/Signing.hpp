#pragma once

#include "support/openssl/Handles.hpp"
#include "support/pki/TestPki.hpp"

#include <openssl/conf.h>

#include <memory>
#include <string>

/// Shared by the makers of certificates and CRLs. Tests do not use it.
namespace foundation::test {

/// Reads a decimal number, or a hexadecimal one after "0x". A minus sign comes before either.
AsnStringHandle makeSerial(std::string const& number);

/// Returns the sections of a text in OpenSSL's configuration language. Some extensions require this database
/// even if they refer to no section.
std::shared_ptr<CONF> parseSections(std::string const& text);

ExtensionHandle makeExtension(ExtensionSpec const& spec, X509V3_CTX& context);

/// Ignores the digest for keys that prescribe one.
DigestContextHandle startSigning(KeyHandle const& key, EVP_MD const* digest, bool pss = false);

/// Returns the signature of the bytes with the context that `startSigning` made.
Bytes signatureOf(Bytes const& bytes, DigestContextHandle const& context);

} // namespace foundation::test
