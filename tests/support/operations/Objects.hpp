#pragma once

#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

namespace foundation::test {

/// One object of each class. They belong together: the certificate is valid under the trust store through the
/// chain, has signed the data and is in the bundle. Copied and moved as the objects are.
struct Objects
{
    certificates::X509Certificate certificate;
    /// The certificate's issuer and the root.
    certificates::X509CertificateChain chain;
    /// The certificate and its issuer.
    certificates::X509CertificateChain chainWithLeaf;
    certificates::TrustStore store;
    certificates::PKCS7Certificate signedData;
    /// Without its content, which is `signedContent`.
    certificates::PKCS7Certificate detached;
    certificates::PKCS12Certificate bundle;
    certificates::SelfSignedCertBuilder builder;
};

constexpr char const signedContent[] = "content";

Objects makeObjects();

/// One set of objects for the whole process.
Objects const& sharedObjects();

} // namespace foundation::test
