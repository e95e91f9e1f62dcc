#pragma once

/// @file
/// How much work the passphrase of a PKCS#12 bundle takes. The bundle sets the number of rounds, and OpenSSL
/// has no limit.

#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>

#include <cstdint>

namespace foundation::toolkit {

/// The most rounds that the reader spends on one bundle: several seconds of work.
constexpr std::int64_t mostDerivationRounds = 10'000'000;

/// Returns the rounds that the bundle's MAC takes; 0 without a MAC. A number above the limit counts as one
/// more than the limit, and so does an unreadable one.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::int64_t roundsOfMAC(PKCS12 const* bundle);

/// Returns the rounds that decrypting a part of the bundle takes, in the form of roundsOfMAC; 0 for a part
/// that is not encrypted, and for one with damaged parameters, which OpenSSL refuses.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::int64_t roundsOfPart(PKCS7 const* part);

} // namespace foundation::toolkit
