#pragma once

#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <string>

namespace foundation::test {

/// A P-256 leaf under a P-384 intermediate under an RSA root.
struct MixedChain
{
    explicit MixedChain(std::string const& alternativeNames)
        : leaf(makeLeaf(intermediate, "leaf", [&](CertificateSpec& spec) {
              spec.setExtension("subjectAltName", alternativeNames);
          }))
    {}

    CertificateAndKey const root = makeRoot("root", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    CertificateAndKey const intermediate =
        makeIntermediate(root, "intermediate", [](CertificateSpec& spec) { spec.key = p384Key(); });
    CertificateAndKey const leaf;
};

} // namespace foundation::test
