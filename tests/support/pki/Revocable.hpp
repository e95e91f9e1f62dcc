#pragma once

#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// root -> ca -> leaf. The leaf's CRL is at http://127.0.0.1/leaf.crl and is issued by ca. The CRL of ca is
/// at http://127.0.0.1/ca.crl and is issued by root.
struct Revocable
{
    explicit Revocable(Mutation const& mutateLeaf = {}, Mutation const& mutateCa = {})
        : root(makeRoot("root")),
          ca(makeIntermediate(
              root, "ca",
              [&](CertificateSpec& spec) {
                  spec.setDistributionPoints({"http://127.0.0.1/ca.crl"});
                  if (mutateCa) {
                      mutateCa(spec);
                  }
              })),
          leaf(makeLeaf(ca, "leaf", [&](CertificateSpec& spec) {
              spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
              if (mutateLeaf) {
                  mutateLeaf(spec);
              }
          }))
    {}

    using CrlMutation = std::function<void(CrlSpec&)>;

    CrlHandle leafCrl(std::vector<RevokedEntry> revoked = {}, CrlMutation const& mutate = {}) const
    {
        return makeCrl(ca, std::move(revoked), mutate);
    }

    CrlHandle caCrl(std::vector<RevokedEntry> revoked = {}, CrlMutation const& mutate = {}) const
    {
        return makeCrl(root, std::move(revoked), mutate);
    }

    CertificateAndKey root;
    CertificateAndKey ca;
    CertificateAndKey leaf;
};

/// Returns both CRLs by the paths that a server offers them at.
inline std::map<std::string, Bytes> filesOf(CrlHandle const& leafCrl, CrlHandle const& caCrl)
{
    return {{"/leaf.crl", toDer(leafCrl)}, {"/ca.crl", toDer(caCrl)}};
}

} // namespace foundation::test
