#pragma once

#include <foundation/certificates/CertificateValidation.hpp>

#include <string_view>

namespace foundation::toolkit {

/// What is wrong, how to check that, and what to do.
struct Words
{
    std::string_view message;
    std::string_view check;
    std::string_view advice;
};

/// How to check whether memory ran out.
inline constexpr std::string_view lookAtMemory =
    "Look at the memory that is free, and at the limits of the process.";

/// Returns the words for OpenSSL's code, or those for the verdict if the code has none of its own.
Words wordsFor(certificates::CertificateChainStatus status, int errorCode);

} // namespace foundation::toolkit
