#include "Comparison.hpp"
#include "Material.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace foundation::benchmarks {

namespace {

constexpr double copyTarget = 0.1;
constexpr double buildTarget = 1.2;
constexpr double certificatesTarget = 30;
constexpr double duplicatesTarget = 1.1;
constexpr double systemTarget = 1.1;
/// The size of a system's list of roots. The targets hold from here.
constexpr std::size_t typicalCount = 150;

/// The same roots in the form of both sides.
struct Roots
{
    std::vector<CertificateAndKey> certificates;
    X509CertificateChain chain;
    TrustStore store;
    std::shared_ptr<X509_STORE> bareStore;
};

Lazy<Roots> makeRoots(std::size_t count)
{
    return Lazy<Roots>([count] {
        auto const certificates = roots(count);
        return Roots{certificates, chainOf(certificates), storeOf(certificates), bareStore(certificates)};
    });
}

/// Returns references to all certificates. Checks their keys, as the library does.
X509StackUPtr bareCertificates(X509_STORE* store)
{
    auto certificates = makeX509Stack(X509_STORE_get1_all_certs(store));
    for (int index = 0; index < sk_X509_num(certificates.get()); ++index) {
        if (!hasFitKey(sk_X509_value(certificates.get(), index))) {
            return makeX509Stack(nullptr);
        }
    }
    return certificates;
}

TrustStore build(X509CertificateChain const& chain)
{
    TrustStore built;
    built.addCertificates(chain);
    return built;
}

void addStoresOf(std::size_t count)
{
    auto const made = makeRoots(count);
    std::string const size = ", " + rootsText(count);
    auto const fromTypical = [count](double target) {
        return count < typicalCount ? std::nullopt : std::optional<double>(target);
    };
    auto const& built = compare(
        "build" + size, fromTypical(buildTarget), [made] { return build(made->chain); },
        [made] { return bareStore(made->certificates); });
    auto const& copied = compare(
        "copy" + size, fromTypical(copyTarget), [made] { return TrustStore(made->store); },
        [made] { return bareCopy(made->bareStore.get()); });
    compare(
        "certificates" + size, fromTypical(certificatesTarget),
        [made] { return made->store.getCertificates(); },
        [made] { return bareCertificates(made->bareStore.get()); });
    auto const& handedOut = compare(
        "copy and first hand-out" + size, std::nullopt,
        [made] {
            TrustStore copy(made->store);
            static_cast<void>(getOpenSSLStore(copy));
            return copy;
        },
        [made] { return bareDeepCopy(made->bareStore.get()); });
    compare(
        "copy for OpenSSL" + size, duplicatesTarget, [made] { return copyOpenSSLStore(made->store); },
        [made] { return bareDeepCopy(made->bareStore.get()); });
    if (count == typicalCount) {
        constexpr std::int64_t beyondCertificates = 10L * 1024;
        noteMemory("store of 150 roots of a chain", Quantity::Kept, built, beyondCertificates);
        noteMemory("copy of that store", Quantity::Kept, copied, beyondCertificates);
        noteMemory("copy that was handed out", Quantity::Kept, handedOut);
    }
}

/// Reads the roots for TLS servers: those that have not expired and pass OpenSSL's check of the purpose.
X509_STOREUPtr bareSystemStore(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    std::string const bundle = content.str();
    auto const bio = makeBIO(BIO_new_mem_buf(bundle.data(), static_cast<int>(bundle.size())));
    auto store = makeX509_STORE(X509_STORE_new());
    for (;;) {
        auto const certificate = makeX509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (certificate == nullptr) {
            ERR_clear_error(); // the end of the file
            return store;
        }
        if (X509_check_purpose(certificate.get(), X509_PURPOSE_SSL_SERVER, 1) > 0 &&
            X509_cmp_current_time(X509_get0_notAfter(certificate.get())) > 0) {
            X509_STORE_add_cert(store.get(), certificate.get());
        }
    }
}

void addSystemStore()
{
    std::string const path = getSystemCertificatesFile();
    if (path.empty() || !getSystemCertificatesFolder().empty()) {
        return; // OpenSSL's side reads one file
    }
    compare(
        "system's roots", systemTarget,
        [] {
            TrustStore store;
            store.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
            return store;
        },
        [path] { return bareSystemStore(path); });
}

} // namespace

void addStoreBenchmarks()
{
    beginGroup(
        "Trust store",
        "A build adds the roots of a chain. OpenSSL's side shares the parsed certificates by reference, and\n"
        "so does its copy: a new `X509_STORE` to which `X509_STORE_add_cert` adds each root. It sorts the\n"
        "store at each addition, which dominates the largest store. A copy in the library shares everything\n"
        "with its source until one of the two changes.\n"
        "\n"
        "The certificates are those of `X509_STORE_get1_all_certs`, one stack of references. Both sides "
        "check\n"
        "the keys, because a store may hold certificates with keys that the library refuses. The library\n"
        "returns a chain of handles. Each of them has memory and a lock of its own, and this remains.\n"
        "\n"
        "What the library hands out shares nothing with it, so a hand-out duplicates each root, which is a\n"
        "parse. Both sides of those rows do this. The last row reads the operating system's bundle from its\n"
        "file, and leaves out the roots that have expired or do not fit TLS servers.");
    for (std::size_t const count : {1U, 10U, 150U, 1000U}) {
        if (count <= typicalCount || !eachRunsOnce()) {
            addStoresOf(count);
        }
    }
    addSystemStore();
}

} // namespace foundation::benchmarks
