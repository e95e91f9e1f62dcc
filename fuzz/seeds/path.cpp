#include "seeds/Seeds.hpp"
#include "support/FixedPki.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

namespace {

test::CrlHandle crlOf(test::CertificateAndKey const& issuer)
{
    return test::makeCrl(issuer, {}, [](test::CrlSpec& spec) {
        spec.thisUpdate = startOfTime();
        spec.nextUpdate = endOfTime();
    });
}

} // namespace

Seeds pathSeeds()
{
    auto const& [root, ca, leaf] = fixedPki();
    auto const signer = test::makeLeaf(ca, "leaf", [](test::CertificateSpec& spec) {
        fixed("leaf", "77")(spec);
        spec.setExtension("subjectAltName", "DNS:leaf.example,IP:192.0.2.1");
        spec.setExtension("extendedKeyUsage", "codeSigning");
    });
    Seeds seeds;
    seeds["valid"] = test::joined({leaf.der(), ca.der()});
    seeds["incomplete"] = leaf.der();
    seeds["root"] = root.der();
    seeds["signer-with-crls"] =
        test::joined({signer.der(), ca.der(), test::toDer(crlOf(ca)), test::toDer(crlOf(root))});
    for (auto const& [name, certificate] : certificatesOfManyKinds()) {
        seeds["kind-" + name] = test::joined({certificate, ca.der()});
    }
    return seeds;
}

} // namespace foundation::fuzz
