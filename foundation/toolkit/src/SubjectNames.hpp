#pragma once

/// @file
/// Makes subjects from values. No value passes through OpenSSL's configuration
/// language, so no character of a value is syntax.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/toolkit/Issuance.hpp>

namespace foundation::toolkit {

/// Returns the DER encoding of the subject with these attributes in their order, one in each relative name.
/// @throws certificates::InvalidArgument "Unknown attribute: " and the name; "Invalid value of the attribute
///     " and the name
/// @throws certificates::CertificateException "Internal error: The subject could not be made."
certificates::ByteArray subjectFrom(Attributes const& attributes);

/// Returns the DER encoding of another party's subject.
/// @throws certificates::InvalidArgument "Invalid value of the attribute " and the attribute's short name,
///     for a value with a NUL character: readers that stop there would see another name
/// @throws certificates::CertificateException "Internal error: The subject could not be made."
certificates::ByteArray subjectFrom(X509_NAME const* name);

/// Returns the name that subjectFrom has encoded, never null.
/// @throws certificates::CertificateException "Internal error: The subject could not be made."
certificates::X509_NAMEUPtr nameFrom(certificates::ByteArray const& subject);

} // namespace foundation::toolkit
