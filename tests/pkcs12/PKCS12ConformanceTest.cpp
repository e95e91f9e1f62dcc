#include "support/assertions/HandleConformance.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <map>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct PKCS12CertificateTraits
{
    using Handle = PKCS12Certificate;
    using Failure = PKCS12CertificateException;
    static constexpr char const* uninitializedText = "Error: PKCS12Certificate is uninitialized.";

    static PKCS12Certificate loaded(std::string const& name)
    {
        static std::map<std::string, Bytes> bundles;
        Bytes& bundle = bundles[name];
        if (bundle.empty()) {
            auto const leaf =
                makeSelfSignedLeaf(name, [](CertificateSpec& spec) { spec.key = rsaKey(1024); });
            bundle = toDer(makePkcs12(leaf, "secret"));
        }
        return PKCS12Certificate(bundle, "secret");
    }

    static std::string identity(PKCS12Certificate const& bundle) { return hexEncode(bundle.getAsBytes()); }

    static std::vector<Operation<PKCS12Certificate>> const& operations() { return bundleOperations(); }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(PKCS12Certificate, HandleConformance, PKCS12CertificateTraits);
