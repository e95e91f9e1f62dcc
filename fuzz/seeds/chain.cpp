#include "seeds/Seeds.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

Seeds chainSeeds()
{
    auto const root = test::makeRoot("root");
    auto const intermediate = test::makeIntermediate(root, "intermediate");
    auto const leaf = test::makeLeaf(intermediate, "leaf");

    Seeds seeds;
    seeds["der"] = test::joined({leaf.der(), intermediate.der(), root.der()});
    for (auto const& [name, certificate] : certificatesOfManyKinds()) {
        seeds["der-" + name] = test::joined({certificate, leaf.der()});
    }
    seeds["pem"] = bytesOf(leaf.pem() + intermediate.pem() + root.pem());
    seeds["pem-with-text"] = bytesOf("one\n" + leaf.pem() + "\ntwo\n" + root.pem() + "three");
    seeds["pem-with-key"] = bytesOf(leaf.pem() + test::toPem(leaf.key));
    seeds["pem-with-encrypted-key"] = bytesOf(leaf.pem() + test::toPem(leaf.key, "secret"));
    seeds["pem-with-nul"] = bytesOf(leaf.pem() + std::string(1, '\0') + root.pem());
    seeds["pem-cut-off"] = bytesOf(leaf.pem() + root.pem().substr(0, 100));
    return seeds;
}

} // namespace foundation::fuzz
