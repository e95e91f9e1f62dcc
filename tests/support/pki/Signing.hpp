#pragma once

#include "support/openssl/Handles.hpp"
#include "support/pki/TestPki.hpp"

#include <openssl/conf.h>

#include <memory>
#include <string>

/// What certificates and CRLs are made of alike; tests have no need of it.
namespace foundation::test {

/// Decimal, or hexadecimal after "0x"; a leading minus sign comes first of all.
AsnStringHandle makeSerial(std::string const& number);

/// The sections of a text in OpenSSL's configuration language. Some extensions want this database
/// although they refer to none of its sections.
std::shared_ptr<CONF> parseSections(std::string const& text);

ExtensionHandle makeExtension(ExtensionSpec const& spec, X509V3_CTX& context);

/// The digest is left to the key where the key prescribes it.
DigestContextHandle startSigning(KeyHandle const& key, EVP_MD const* digest, bool pss = false);

} // namespace foundation::test
