#pragma once

#include "support/openssl/Handles.hpp"

#include <string>

namespace foundation::test {

/// Returns the object as a PEM block with the header "Proc-Type: 4,ENCRYPTED". OpenSSL asks for the
/// passphrase on the terminal unless it has a callback that refuses.
std::string toEncryptedPem(X509Handle const& certificate);
std::string toEncryptedPem(Pkcs7Handle const& pkcs7);

} // namespace foundation::test
