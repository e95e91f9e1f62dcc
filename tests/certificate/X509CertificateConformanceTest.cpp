#include "support/assertions/HandleConformance.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <map>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct X509CertificateTraits
{
    using Handle = X509Certificate;
    using Failure = X509CertificateException;
    static constexpr char const* uninitializedText = "Error: X509Certificate is uninitialized.";

    static X509Certificate loaded(std::string const& name)
    {
        static std::map<std::string, Bytes> encodings;
        Bytes& der = encodings[name];
        if (der.empty()) {
            der = makeRoot(name, [](CertificateSpec& spec) { spec.key = rsaKey(1024); }).der();
        }
        return X509Certificate(der);
    }

    static std::string identity(X509Certificate const& certificate)
    {
        return certificate.empty() ? "" : certificate.getSHA256Fingerprint();
    }

    static std::vector<Operation<X509Certificate>> const& operations() { return certificateOperations(); }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(X509Certificate, HandleConformance, X509CertificateTraits);
