#pragma once

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <functional>
#include <string>
#include <vector>

namespace foundation::test {

/// One object of each class, fit to be used with one another: the certificate is valid under the trust store
/// through the chain, has signed the data and stands in the bundle. Copied and moved as the objects are.
struct Objects
{
    certificates::X509Certificate certificate;
    /// The certificate's issuer and the root.
    certificates::X509CertificateChain chain;
    /// The certificate and its issuer.
    certificates::X509CertificateChain chainWithLeaf;
    certificates::TrustStore store;
    certificates::PKCS7Certificate signedData;
    /// Its content lies apart.
    certificates::PKCS7Certificate detached;
    certificates::PKCS12Certificate bundle;
};

Objects makeObjects();

/// What becomes of the entries that stand in OpenSSL's queue before an operation that succeeds.
enum class ForeignErrors
{
    /// They stay, and nothing is added.
    Stay,
    /// The queue is empty afterwards.
    Go
};

struct ReadOperation
{
    std::string name;
    /// Runs the operation and gives its answer as a text.
    std::function<std::string(Objects const&)> answer;
    ForeignErrors foreignErrors = ForeignErrors::Stay;
};

/// Every operation that reads objects, of every class.
std::vector<ReadOperation> const& readOperations();

} // namespace foundation::test
