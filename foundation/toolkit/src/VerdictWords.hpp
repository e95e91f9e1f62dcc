#pragma once

#include <foundation/certificates/CertificateValidation.hpp>

#include <string_view>

namespace foundation::toolkit {

/// What is wrong and what to do, in one sentence each.
struct Words
{
    std::string_view message;
    std::string_view advice;
};

/// Returns the words for OpenSSL's code, or those for the verdict if the code has none of its own.
Words wordsFor(certificates::CertificateChainStatus status, int errorCode);

} // namespace foundation::toolkit
