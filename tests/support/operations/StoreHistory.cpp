#include "support/operations/StoreHistory.hpp"

#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509_vfy.h>

namespace foundation::test {

using namespace certificates;

namespace {

CertificateAndKey const& furtherRoot()
{
    static auto const made = makeRoot("further root");
    return made;
}

CrlHandle const& furtherCrl()
{
    static auto const made = makeCrl(furtherRoot());
    return made;
}

void addOutside(TrustStore const& store)
{
    auto const certificate = parseDer(furtherRoot().der());
    require(X509_STORE_add_cert(getOpenSSLStore(store).get(), certificate.get()));
}

} // namespace

std::vector<StoreHistory> const& allStoreHistories()
{
    static std::vector<StoreHistory> const all = {
        StoreHistory::Private,        StoreHistory::Copied,   StoreHistory::HandedOut,
        StoreHistory::ChangedOutside, StoreHistory::HoldsCRL, StoreHistory::CopyOfHandedOut,
    };
    return all;
}

std::ostream& operator<<(std::ostream& out, StoreHistory history)
{
    switch (history) {
    case StoreHistory::Private:
        return out << "Private";
    case StoreHistory::Copied:
        return out << "Copied";
    case StoreHistory::HandedOut:
        return out << "HandedOut";
    case StoreHistory::ChangedOutside:
        return out << "ChangedOutside";
    case StoreHistory::HoldsCRL:
        return out << "HoldsCRL";
    case StoreHistory::CopyOfHandedOut:
        return out << "CopyOfHandedOut";
    }
    return out;
}

std::shared_ptr<void> undergo(TrustStore& store, StoreHistory history)
{
    switch (history) {
    case StoreHistory::Private:
        return nullptr;
    case StoreHistory::Copied:
        return std::make_shared<TrustStore>(store);
    case StoreHistory::HandedOut:
        return getOpenSSLStore(store);
    case StoreHistory::ChangedOutside:
        addOutside(store);
        return getOpenSSLStore(store);
    case StoreHistory::HoldsCRL:
        addCrl(store, furtherCrl());
        return getOpenSSLStore(store);
    case StoreHistory::CopyOfHandedOut: {
        auto const source = std::make_shared<TrustStore>(store);
        addOutside(*source);
        store = *source;
        return source;
    }
    }
    return nullptr;
}

} // namespace foundation::test
