#include "truststore/VerificationStore.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/StoreEntries.hpp"
#include "truststore/TrustStoreImpl.hpp"
#include "truststore/TrustedCertificates.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/x509_vfy.h>

#include <memory>
#include <mutex>
#include <utility>

namespace foundation::certificates {

struct TrustStoreAccess
{
    /// Returns null for a trust store that was moved from.
    static SharedTrustedCertificates certificatesOf(TrustStore const& trustStore)
    {
        std::lock_guard<std::mutex> const lock(trustStore.mutex);
        return trustStore.impl == nullptr ? nullptr : trustStore.impl->trustedCertificates();
    }
};

namespace {

constexpr char const noStoreText[] = "Failed to create X509_STORE";

/// What the look-up method of one store knows.
struct LookUpState
{
    SharedTrustedCertificates certificates;
    /// The certificate that could not be added because memory ran out, or null. Borrowed.
    X509* missing = nullptr;
};

LookUpState& stateOf(X509_LOOKUP const* lookUp)
{
    return *static_cast<LookUpState*>(X509_LOOKUP_get_method_data(lookUp));
}

/// Adds all certificates with the subject. Returns the first, borrowed from the store if that had no
/// certificate with the subject before. Returns null if it finds none or if memory ran out.
X509* addCertificates(X509_STORE* store, LookUpState& state, X509_NAME const* subject)
{
    // To find duplicates, OpenSSL compares certificates of equal names. It may queue that it cannot read one.
    RAIIOpenSSLErrorRemover const errors(false);
    X509* first = nullptr;
    auto const range = state.certificates->withSubject(subject);
    for (int position = range.begin; position < range.end; ++position) {
        auto const certificate = forVerification(state.certificates->at(position));
        if (X509_STORE_add_cert(store, certificate.get()) != 1) {
            state.missing = state.certificates->at(position);
            return nullptr;
        }
        first = first == nullptr ? certificate.get() : first;
    }
    return first;
}

/// OpenSSL calls this if the store has no certificate with the subject. It then examines all certificates of
/// this subject that the store has. It also calls this for CRLs, all of which the store has already.
int findBySubject(X509_LOOKUP* lookUp, X509_LOOKUP_TYPE type, X509_NAME const* subject, X509_OBJECT* result)
{
    constexpr int notFound = 0;
    constexpr int found = 1;
    X509* const certificate = type == X509_LU_X509
                                  ? addCertificates(X509_LOOKUP_get_store(lookUp), stateOf(lookUp), subject)
                                  : nullptr;
    if (certificate == nullptr || X509_OBJECT_set1_X509(result, certificate) != 1) {
        return notFound;
    }
    // OpenSSL takes another reference and releases only that, so the result's own one ends here.
    auto const reference = makeX509(certificate);
    return found;
}

void releaseState(X509_LOOKUP* lookUp)
{
    std::default_delete<LookUpState>()(static_cast<LookUpState*>(X509_LOOKUP_get_method_data(lookUp)));
}

X509_LOOKUP_METHOD* makeLookUpMethod()
{
    X509_LOOKUP_METHOD* const method =
        throwIfNull<TrustStoreException>(X509_LOOKUP_meth_new("certificates of a trust store"), noStoreText);
    X509_LOOKUP_meth_set_get_by_subject(method, findBySubject);
    X509_LOOKUP_meth_set_free(method, releaseState);
    return method;
}

/// Never destroyed: the program may validate while it ends.
X509_LOOKUP_METHOD* lookUpMethod()
{
    // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): OpenSSL does not change it
    static X509_LOOKUP_METHOD* const method = makeLookUpMethod();
    return method;
}

void addLookUp(X509_STORE* store, SharedTrustedCertificates certificates)
{
    auto state = std::make_unique<LookUpState>();
    state->certificates = std::move(certificates);
    X509_LOOKUP* const lookUp =
        throwIfNull<TrustStoreException>(X509_STORE_add_lookup(store, lookUpMethod()), noStoreText);
    X509_LOOKUP_set_method_data(lookUp, state.release());
}

/// Returns the state of a store that has the look-up method. OpenSSL adds a method only once.
LookUpState& stateOf(X509_STORE* store)
{
    return stateOf(X509_STORE_add_lookup(store, lookUpMethod()));
}

} // namespace

X509_STOREUPtr makeVerificationStore(TrustStore const& trustStore)
{
    return makeVerificationStore(TrustStoreAccess::certificatesOf(trustStore));
}

X509_STOREUPtr makeVerificationStore(SharedTrustedCertificates certificates)
{
    if (certificates == nullptr) {
        return makeX509_STORE(nullptr);
    }
    RAIIOpenSSLErrorRemover const errors(false);
    auto store = makeStore();
    throwIfNull<TrustStoreException>(store.get(), noStoreText);
    for (auto const& crl : certificates->crls()) {
        throwIfNotOne<TrustStoreException>(
            X509_STORE_add_crl(store.get(), crl.get()), "Failed to add CRL to store");
    }
    addLookUp(store.get(), std::move(certificates));
    return store;
}

void addTrustedCertificate(X509_STORE* store, X509* certificate)
{
    addCertificates(store, stateOf(store), X509_get_subject_name(certificate));
    throwIfIncomplete(store);
    X509_STORE_add_cert(store, certificate);
}

void throwIfIncomplete(X509_STORE* store)
{
    X509* const missing = stateOf(store).missing;
    if (missing != nullptr) {
        throw TrustStoreException("Failed to add certificate to store, CN: " + commonNameOf(missing));
    }
}

} // namespace foundation::certificates
