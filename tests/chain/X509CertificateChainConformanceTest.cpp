#include "support/Text.hpp"
#include "support/assertions/HandleConformance.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace foundation::test {

namespace {

using certificates::X509CertificateChain;

struct X509CertificateChainTraits
{
    using Handle = X509CertificateChain;
    using Failure = certificates::X509CertificateChainException;
    static constexpr char const* uninitializedText = "Error: X509CertificateChain is uninitialized.";
    static constexpr char const* noContentText = "X509CertificateChain has no content.";

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

    static std::vector<Operation<X509CertificateChain>> operations()
    {
        auto const answers = OnDefaultObject::Answers;
        return {
            {"empty", [](X509CertificateChain& chain) { chain.empty(); }, answers},
            {"getNumCertificates", [](X509CertificateChain& chain) { chain.getNumCertificates(); }, answers},
            {"getCertificates", [](X509CertificateChain& chain) { chain.getCertificates(); }, answers},
            {"getAsString", [](X509CertificateChain& chain) { chain.getAsString(); }, answers},
            {"print", [](X509CertificateChain& chain) { printed(chain); }, answers},
            {"operator<<", [](X509CertificateChain& chain) { std::ostringstream() << chain; }, answers},
            {"operator== on the left",
             [](X509CertificateChain& chain) { static_cast<void>(chain == X509CertificateChain()); },
             answers},
            {"operator!= on the right",
             [](X509CertificateChain& chain) { static_cast<void>(X509CertificateChain() != chain); },
             answers},
            {"popLeafCertificate", [](X509CertificateChain& chain) { chain.popLeafCertificate(); }},
        };
    }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(X509CertificateChain, HandleConformance, X509CertificateChainTraits);

} // namespace foundation::test
