#pragma once

/// @file
/// The owning handles of OpenSSL objects that only the toolkit uses, most of them to make keys, requests and
/// certificates. As in libcrypto/OpenSSLHandles.hpp, each object that OpenSSL returns goes into a handle in
/// the same statement.

#include "libcrypto/OpenSSLHandles.hpp"

namespace foundation::toolkit {

using certificates::OpenSSLHandle;

inline OpenSSLHandle<X509_SIG> makeX509_SIG(X509_SIG* pointer)
{
    return {pointer, X509_SIG_free};
}

inline OpenSSLHandle<ASN1_OBJECT> makeASN1_OBJECT(ASN1_OBJECT* pointer)
{
    return {pointer, ASN1_OBJECT_free};
}

/// All string types are the same struct, so this owns an ASN1_IA5STRING and an ASN1_OCTET_STRING too.
inline OpenSSLHandle<ASN1_STRING> makeASN1_STRING(ASN1_STRING* pointer)
{
    return {pointer, ASN1_STRING_free};
}

inline OpenSSLHandle<BASIC_CONSTRAINTS> makeBASIC_CONSTRAINTS(BASIC_CONSTRAINTS* pointer)
{
    return {pointer, BASIC_CONSTRAINTS_free};
}

inline OpenSSLHandle<AUTHORITY_KEYID> makeAUTHORITY_KEYID(AUTHORITY_KEYID* pointer)
{
    return {pointer, AUTHORITY_KEYID_free};
}

} // namespace foundation::toolkit
