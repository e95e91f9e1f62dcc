#pragma once

/// @file
/// The exception family. Every failure of the library reaches the caller as one of these, thrown by value,
/// with one readable sentence as its what(); the classes carry nothing else. A verdict, good or bad, is
/// never an exception: exceptions are for what prevents a verdict.
///
/// All classes but TrustStoreException derive from CertificateException. Code that wants both families in
/// one handler catches std::runtime_error.

#include <foundation/certificates/export.hpp>

#include <stdexcept>
#include <string>

namespace foundation::certificates {

/// The root of the family; raised directly where no narrower class fits, mostly in key handling.
class FOUNDATION_CERTIFICATES_EXPORT CertificateException : public std::runtime_error
{
public:
    /// With the text that what() gives.
    CertificateException(std::string const& message);
    /// Moving copies as well: the source of a move keeps its text.
    CertificateException(CertificateException const&) = default;
    /// Moving copies as well.
    CertificateException& operator=(CertificateException const&) = default;
    ~CertificateException() override;
};

/// The caller's input is unusable: no content, wrong encoding, odd hexadecimal, no common name.
class FOUNDATION_CERTIFICATES_EXPORT InvalidArgument : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// An RSA-only operation was asked of a key that is not RSA.
class FOUNDATION_CERTIFICATES_EXPORT NotRSAKey : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// An ECC-only operation was asked of a key that is not ECC.
class FOUNDATION_CERTIFICATES_EXPORT NotECCKey : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// The key's type is outside what the library handles.
class FOUNDATION_CERTIFICATES_EXPORT UnsupportedKeyType : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// The key's curve is outside what the library handles.
class FOUNDATION_CERTIFICATES_EXPORT UnsupportedEllipticCurve : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// Part of the family for its users; no operation of the library raises it.
class FOUNDATION_CERTIFICATES_EXPORT NotImplemented : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A certificate operation failed; internal OpenSSL failures are reported so, too.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateException : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A chain operation failed.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChainException : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A PKCS#7 operation failed.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7CertificateException : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A PKCS#12 operation failed.
class FOUNDATION_CERTIFICATES_EXPORT PKCS12CertificateException : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A PKCS#12 bundle could not be opened with the given passphrase.
class FOUNDATION_CERTIFICATES_EXPORT IncorrectPassphrase : public CertificateException
{
public:
    /// With the text that what() gives.
    using CertificateException::CertificateException;
};

/// A trust store operation failed. Deliberately not a CertificateException: a handler for that
/// does not catch it.
class FOUNDATION_CERTIFICATES_EXPORT TrustStoreException : public std::runtime_error
{
public:
    /// With the text that what() gives.
    TrustStoreException(std::string const& message);
    /// Moving copies as well: the source of a move keeps its text.
    TrustStoreException(TrustStoreException const&) = default;
    /// Moving copies as well.
    TrustStoreException& operator=(TrustStoreException const&) = default;
    ~TrustStoreException() override;
};

} // namespace foundation::certificates
