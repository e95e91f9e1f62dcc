#pragma once

/// @file
/// Includes all public headers of the library.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>
#include <foundation/certificates/version.hpp>
