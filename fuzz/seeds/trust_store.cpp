#include "seeds/Seeds.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

namespace {

using test::Bytes;

/// Returns the certificates followed by the variation, whose low bits say how many of them are trusted.
Bytes seedOf(std::vector<Bytes> certificates, unsigned char variation)
{
    certificates.push_back({variation});
    return test::joined(certificates);
}

} // namespace

Seeds trustStoreSeeds()
{
    Seeds seeds;
    for (auto const& [name, certificate] : certificatesOfManyKinds()) {
        seeds["trusted-" + name] = seedOf({certificate, certificate}, 0x01);
        seeds["untrusted-" + name] = seedOf({certificate}, 0x10);
    }
    auto const root = test::makeRoot("root");
    auto const intermediate = test::makeIntermediate(root, "intermediate");
    auto const leaf = test::makeLeaf(intermediate, "leaf");
    auto const expired = test::makeLeaf(intermediate, "leaf", [](test::CertificateSpec& spec) {
        spec.notAfter = test::TimeSpec::fromNow(std::chrono::hours(-1));
    });
    // The two highest bits select the kind of validation.
    for (int const validation : {0x00, 0x40, 0x80, 0xC0}) {
        auto const choice = [&](int rest) { return static_cast<unsigned char>(validation | rest); };
        auto const suffix = "-" + std::to_string(validation);
        seeds["chain" + suffix] = seedOf({root.der(), intermediate.der(), leaf.der()}, choice(0x01));
        seeds["chain-expired" + suffix] =
            seedOf({root.der(), intermediate.der(), expired.der()}, choice(0x01));
        seeds["chain-without-root" + suffix] =
            seedOf({root.der(), intermediate.der(), leaf.der()}, choice(0x00));
        seeds["self-signed" + suffix] = seedOf({root.der()}, choice(0x00));
    }
    seeds["chain-for-signing"] = seedOf({root.der(), intermediate.der(), leaf.der()}, 0x09);
    seeds["trusted-intermediate"] = seedOf({intermediate.der(), leaf.der()}, 0x01);
    seeds["not-a-certificate"] = seedOf({{0x30, 0x03, 0x02, 0x01, 0x00}, root.der()}, 0x11);
    return seeds;
}

} // namespace foundation::fuzz
