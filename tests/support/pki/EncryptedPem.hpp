#pragma once

#include "support/openssl/Handles.hpp"

#include <string>

namespace foundation::test {

/// The object as a PEM block under a passphrase ("Proc-Type: 4,ENCRYPTED"), which OpenSSL asks for on the
/// terminal unless it is told not to.
std::string toEncryptedPem(X509Handle const& certificate);
std::string toEncryptedPem(Pkcs7Handle const& pkcs7);

} // namespace foundation::test
