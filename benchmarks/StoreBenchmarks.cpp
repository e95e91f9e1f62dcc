#include "Comparison.hpp"
#include "Material.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <memory>

namespace foundation::benchmarks {

namespace {

constexpr double copyTarget = 1.1;

void addStoresOf(std::size_t count)
{
    auto const certificates = std::make_shared<std::vector<CertificateAndKey>>(roots(count));
    auto const chain = std::make_shared<X509CertificateChain>(chainOf(*certificates));
    auto const store = std::make_shared<TrustStore>(storeOf(*certificates));
    std::shared_ptr<X509_STORE> const bare(bareStore(*certificates));
    std::string const size = std::to_string(count) + (count == 1 ? " root" : " roots");
    compare(
        "build, " + size, std::nullopt,
        [chain] {
            TrustStore built;
            built.addCertificates(*chain);
            return built;
        },
        [certificates] { return bareStore(*certificates); });
    compare(
        "copy, " + size, copyTarget, [store] { return TrustStore(*store); },
        [bare] { return bareCopy(bare.get()); });
    compare(
        "OpenSSL copy, " + size, copyTarget, [store] { return copyOpenSSLStore(*store); },
        [bare] { return bareCopy(bare.get()); });
}

} // namespace

void addStoreBenchmarks()
{
    beginGroup(
        "Trust store",
        "A store holds duplicates, and each duplicate is a parse, on both sides. OpenSSL sorts the store's\n"
        "objects again at each addition. The largest store makes this visible.");
    for (std::size_t const count : {1U, 10U, 150U, 1000U}) {
        addStoresOf(count);
    }
}

} // namespace foundation::benchmarks
