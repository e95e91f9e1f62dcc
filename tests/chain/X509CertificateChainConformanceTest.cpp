#include "support/assertions/HandleConformance.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <map>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct X509CertificateChainTraits
{
    using Handle = X509CertificateChain;
    using Failure = X509CertificateChainException;
    static constexpr char const* uninitializedText = "Error: X509CertificateChain is uninitialized.";

    static X509CertificateChain loaded(std::string const& name)
    {
        static std::map<std::string, std::string> bundles;
        std::string& bundle = bundles[name];
        if (bundle.empty()) {
            Topology const pki({{"root of " + name, ""}, {name, "root of " + name}});
            bundle = pki.pemBundle({name, "root of " + name});
        }
        return X509CertificateChain(bundle);
    }

    static std::string identity(X509CertificateChain const& chain) { return chain.getAsString(); }

    static std::vector<Operation<X509CertificateChain>> const& operations() { return chainOperations(); }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(X509CertificateChain, HandleConformance, X509CertificateChainTraits);
