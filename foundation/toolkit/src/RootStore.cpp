#include "RootStore.hpp"

#include "CertificateAccess.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/StoreEntries.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

std::vector<Certificate> certificatesOf(TrustStore const& roots)
{
    std::vector<Certificate> certificates;
    auto const copy = copyOpenSSLStore(roots);
    if (copy == nullptr) {
        // A trust store that was moved from has no store, and reads as empty.
        if (!roots.empty()) {
            throw X509CertificateException(outOfMemoryText);
        }
        return certificates;
    }
    StoreEntries const entries(copy.get());
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        if (X509_OBJECT_get_type(entry) != X509_LU_X509) {
            continue;
        }
        X509* const root = certificateOf(entry);
        throwIfNotOne<X509CertificateException>(X509_up_ref(root), outOfMemoryText);
        certificates.push_back(CertificateAccess::adopt(makeX509(root)));
    }
    return certificates;
}

} // namespace

X509_STOREUPtr makeRootStore(std::vector<Certificate> const& roots)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto store = makeX509_STORE(X509_STORE_new());
    throwIfNull<X509CertificateException>(store.get(), outOfMemoryText);
    for (auto const& root : roots) {
        throwIfNotOne<X509CertificateException>(
            X509_STORE_add_cert(store.get(), CertificateAccess::get(root)), outOfMemoryText);
    }
    return store;
}

X509_STOREUPtr makeRootStore(TrustStore const& roots)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return makeRootStore(certificatesOf(roots));
}

} // namespace foundation::toolkit
