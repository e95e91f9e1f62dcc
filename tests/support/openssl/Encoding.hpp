#pragma once

#include "support/Text.hpp"
#include "support/openssl/Handles.hpp"

#include <memory>
#include <string>

namespace foundation::test {

/// Returns the DER that one of OpenSSL's `i2d_` functions writes for the object.
template <class Encode, class Object>
Bytes encodedBy(Encode encode, Object* object)
{
    unsigned char* encoded = nullptr;
    auto const size = encode(object, &encoded);
    require(size);
    std::shared_ptr<unsigned char> const owner(encoded, [](unsigned char* bytes) { OPENSSL_free(bytes); });
    return {encoded, encoded + size};
}

/// Returns what one of OpenSSL's `_bio` functions, such as `PEM_write_bio_X509`, writes for the arguments.
template <class Write, class... Arguments>
Bytes writtenBy(Write write, Arguments... arguments)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(write(bio.get(), arguments...));
    return contentOf(bio);
}

} // namespace foundation::test
