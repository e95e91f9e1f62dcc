#pragma once

#include "support/openssl/Encoding.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <functional>
#include <string>
#include <vector>

/// Shared by the tests of the builder: small keys, and the built certificate as bare OpenSSL reads it.
namespace foundation::test {

/// Returns a builder with the smallest key, which keeps tests fast.
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

inline Bytes toDer(X509_EXTENSION const* extension)
{
    return encodedBy(i2d_X509_EXTENSION, extension);
}

/// Returns the DER of the whole extension, including its criticality.
inline Bytes extensionOf(X509Handle const& certificate, int nid)
{
    return toDer(X509_get_ext(certificate.get(), X509_get_ext_by_NID(certificate.get(), nid, -1)));
}

/// Returns the DER of the extension that OpenSSL makes from a text in its configuration language.
inline Bytes extensionFrom(int nid, std::string const& text)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, nullptr, nullptr, nullptr, nullptr, 0);
    return toDer(own(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str())).get());
}

/// Returns the text of a failed build whose oldest OpenSSL error is the one that the call causes.
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

/// Returns the text of a build that fails because OpenSSL refuses the text of an extension.
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

/// Returns the seconds from the first time to the second.
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

/// Returns the seconds from now. The time may have been made a little earlier, so allow for some slack.
inline long secondsFromNow(ASN1_TIME const* time)
{
    return secondsBetween(own(X509_gmtime_adj(nullptr, 0)).get(), time);
}

} // namespace foundation::test
