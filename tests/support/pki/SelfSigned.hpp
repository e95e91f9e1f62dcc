#pragma once

#include "support/openssl/Handles.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <functional>
#include <string>
#include <vector>

/// What the tests of the builder of self-signed certificates share: small keys, and a look at what was built
/// through bare OpenSSL.
namespace foundation::test {

/// A builder with a key size that keeps tests fast.
inline certificates::SelfSignedCertBuilder fastBuilder()
{
    certificates::SelfSignedCertBuilder builder;
    builder.withPrivateKeySize(certificates::RSAPrivateKeySize::Bits1024);
    return builder;
}

inline X509Handle parsed(certificates::X509Certificate const& certificate)
{
    return parseDer(certificate.getAsBytes());
}

inline X509Handle built(certificates::SelfSignedCertBuilder const& builder)
{
    return parsed(builder.build().first);
}

inline Bytes toDer(X509_EXTENSION* extension)
{
    unsigned char* encoded = nullptr;
    int const length = i2d_X509_EXTENSION(extension, &encoded);
    require(length);
    Bytes bytes(encoded, encoded + length);
    OPENSSL_free(encoded);
    return bytes;
}

/// The whole extension, criticality included.
inline Bytes extensionOf(X509Handle const& certificate, int nid)
{
    return toDer(X509_get_ext(certificate.get(), X509_get_ext_by_NID(certificate.get(), nid, -1)));
}

/// The extension that OpenSSL makes of a text in its configuration language.
inline Bytes extensionFrom(int nid, std::string const& text)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, nullptr, nullptr, nullptr, nullptr, 0);
    return toDer(own(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str())).get());
}

/// The text of a failed build whose oldest error is that of the given call.
inline std::string failureTextAfter(std::function<void()> const& failingCall)
{
    CleanErrorQueue const queue;
    failingCall();
    return "Failed to generate a certificate: " + std::to_string(oldestError());
}

/// Makes an extension from a text in OpenSSL's configuration language, and discards it.
inline void tryExtension(int nid, std::string const& text)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, nullptr, nullptr, nullptr, nullptr, 0);
    X509_EXTENSION_free(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str()));
}

/// The text of a build that fails at an extension's value.
inline std::string failureTextOfExtension(int nid, std::string const& text)
{
    return failureTextAfter([&] { tryExtension(nid, text); });
}

/// The errors that OpenSSL queues for an extension's value, oldest first.
inline std::vector<unsigned long> errorsOfExtension(int nid, std::string const& text)
{
    CleanErrorQueue const queue;
    tryExtension(nid, text);
    return drainErrorQueue();
}

/// Seconds from one time to the other.
inline long secondsBetween(ASN1_TIME const* from, ASN1_TIME const* to)
{
    int days = 0;
    int seconds = 0;
    require(ASN1_TIME_diff(&days, &seconds, from, to));
    return days * 86400L + seconds;
}

inline long lifetimeOf(X509Handle const& certificate)
{
    return secondsBetween(X509_get0_notBefore(certificate.get()), X509_get0_notAfter(certificate.get()));
}

/// Seconds from now; the clock may have gone on a little since the time was made.
inline long secondsFromNow(ASN1_TIME const* time)
{
    return secondsBetween(own(X509_gmtime_adj(nullptr, 0)).get(), time);
}

} // namespace foundation::test
