#pragma once

#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// root -> ca -> leaf. The leaf names http://127.0.0.1/leaf.crl, issued by ca, and ca names
/// http://127.0.0.1/ca.crl, issued by root.
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

/// What a server of both CRLs has to offer.
inline std::map<std::string, Bytes> filesOf(CrlHandle const& leafCrl, CrlHandle const& caCrl)
{
    return {{"/leaf.crl", toDer(leafCrl)}, {"/ca.crl", toDer(caCrl)}};
}

} // namespace foundation::test
