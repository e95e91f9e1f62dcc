#include "support/assertions/HandleConformance.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <map>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct TrustStoreTraits
{
    using Handle = TrustStore;
    using Failure = TrustStoreException;
    static constexpr char const* uninitializedText = "Error: TrustStore is uninitialized.";

    static TrustStore loaded(std::string const& name)
    {
        static std::map<std::string, Bytes> roots;
        Bytes& der = roots[name];
        if (der.empty()) {
            der = makeRoot(name).der();
        }
        TrustStore store;
        store.addCertificate(X509Certificate(der));
        return store;
    }

    static std::string identity(TrustStore const& store)
    {
        std::string text;
        for (std::string const& pem : store.getPEMStrings()) {
            text += pem;
        }
        return text;
    }

    static std::vector<Operation<TrustStore>> const& operations() { return storeOperations(); }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(TrustStore, HandleConformance, TrustStoreTraits);
