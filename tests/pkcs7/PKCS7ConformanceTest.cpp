#include "support/assertions/HandleConformance.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <map>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct PKCS7CertificateTraits
{
    using Handle = PKCS7Certificate;
    using Failure = PKCS7CertificateException;
    static constexpr char const* uninitializedText = "Error: PKCS7Certificate is uninitialized.";

    static PKCS7Certificate loaded(std::string const& name)
    {
        static std::map<std::string, Bytes> encodings;
        Bytes& der = encodings[name];
        if (der.empty()) {
            der = toDer(makeSignedData(name, makeSelfSignedLeaf(name)));
        }
        return PKCS7Certificate(der);
    }

    static std::string identity(PKCS7Certificate const& certificate) { return certificate.getAsString(); }

    static std::vector<Operation<PKCS7Certificate>> const& operations() { return signedDataOperations(); }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(PKCS7Certificate, HandleConformance, PKCS7CertificateTraits);
