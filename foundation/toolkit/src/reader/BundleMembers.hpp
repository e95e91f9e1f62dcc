#pragma once

#include "reader/Members.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace foundation::toolkit {

/// Returns the certificates of a PKCS#12 bundle. Private keys stay encrypted. Loads OpenSSL's legacy provider
/// if there is one, because many bundles use its ciphers.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::unique_ptr<Members> membersOfBundle(std::string_view der, std::string const& passphrase);

} // namespace foundation::toolkit
