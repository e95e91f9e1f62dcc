#pragma once

/// @file
/// The exceptions of the library. Each failure is thrown by value as one of these classes. Its what() is one
/// readable sentence; the classes carry nothing else. A validation that ends with a bad verdict does not
/// throw. It throws only if it cannot reach a verdict.
///
/// All classes except TrustStoreException derive from CertificateException. Catch std::runtime_error to
/// handle both.

#include <foundation/certificates/export.hpp>

#include <stdexcept>
#include <string>

namespace foundation::certificates {

/// The base class. Thrown itself where no derived class fits, mostly by operations on keys.
class FOUNDATION_CERTIFICATES_EXPORT CertificateException : public std::runtime_error
{
public:
    /// Creates an exception whose what() returns the text.
    CertificateException(std::string const& message);
    /// Copies the text. A move copies too, so its source keeps the text.
    CertificateException(CertificateException const&) = default;
    /// Copies the text. A move copies too.
    CertificateException& operator=(CertificateException const&) = default;
    ~CertificateException() override;
};

/// The input cannot be used: it is empty or wrongly encoded, has an odd number of hexadecimal digits, or has
/// no common name.
class FOUNDATION_CERTIFICATES_EXPORT InvalidArgument : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// An operation for RSA keys was called for another key.
class FOUNDATION_CERTIFICATES_EXPORT NotRSAKey : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// An operation for elliptic-curve keys was called for another key.
class FOUNDATION_CERTIFICATES_EXPORT NotECCKey : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// The library does not support the key's type.
class FOUNDATION_CERTIFICATES_EXPORT UnsupportedKeyType : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// The library does not support the key's curve.
class FOUNDATION_CERTIFICATES_EXPORT UnsupportedEllipticCurve : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// For code that uses the library. No operation of the library throws it.
class FOUNDATION_CERTIFICATES_EXPORT NotImplemented : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A certificate operation failed. Internal failures of OpenSSL are reported with this class too.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateException : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A chain operation failed.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChainException : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A PKCS#7 operation failed.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7CertificateException : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A PKCS#12 operation failed.
class FOUNDATION_CERTIFICATES_EXPORT PKCS12CertificateException : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A PKCS#12 bundle could not be opened with the given passphrase.
class FOUNDATION_CERTIFICATES_EXPORT IncorrectPassphrase : public CertificateException
{
public:
    /// Creates an exception whose what() returns the text.
    using CertificateException::CertificateException;
};

/// A trust store operation failed. This class does not derive from CertificateException, so a handler for
/// that class does not catch it.
class FOUNDATION_CERTIFICATES_EXPORT TrustStoreException : public std::runtime_error
{
public:
    /// Creates an exception whose what() returns the text.
    TrustStoreException(std::string const& message);
    /// Copies the text. A move copies too, so its source keeps the text.
    TrustStoreException(TrustStoreException const&) = default;
    /// Copies the text. A move copies too.
    TrustStoreException& operator=(TrustStoreException const&) = default;
    ~TrustStoreException() override;
};

} // namespace foundation::certificates
