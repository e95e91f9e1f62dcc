#include "truststore/windows/WindowsHeader.hpp"

#include "truststore/windows/SystemCertificateAdder.hpp"

#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace foundation::certificates::windows {

namespace {

struct CloseStore
{
    void operator()(void* store) const { CertCloseStore(store, 0); }
};
using StoreUPtr = std::unique_ptr<void, CloseStore>;

struct FreeContext
{
    void operator()(CERT_CONTEXT const* context) const { CertFreeCertificateContext(context); }
};
using ContextUPtr = std::unique_ptr<CERT_CONTEXT const, FreeContext>;

struct FreeLocal
{
    void operator()(char* characters) const { LocalFree(characters); }
};
using LocalCharsUPtr = std::unique_ptr<char, FreeLocal>;

/// Returns the thread's last error on one line, such as "(5) Access is denied."
std::string win32ErrorText()
{
    DWORD const code = GetLastError();
    char* buffer = nullptr;
    // If Windows has no text for the code, the buffer stays null and the result is the code alone.
    FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
        code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&buffer), 0, nullptr);
    LocalCharsUPtr const systemText(buffer);
    std::string text = "(" + std::to_string(code) + ") " + (systemText == nullptr ? "" : systemText.get());
    text.erase(
        std::remove_if(
            text.begin(), text.end(), [](char character) { return character == '\n' || character == '\r'; }),
        text.end());
    return text;
}

StoreUPtr openRootStore()
{
    StoreUPtr store(CertOpenSystemStoreA(0, "ROOT"));
    if (store == nullptr) {
        store.reset(CertOpenStore(
            CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG,
            L"ROOT"));
    }
    if (store == nullptr) {
        throw TrustStoreException("Failed to open system certificate store: " + win32ErrorText());
    }
    return store;
}

/// Returns the next certificate for one of the usages, and frees the previous one. Null at the end and on any
/// failure: the error code is ignored.
ContextUPtr findNext(void* store, CERT_ENHKEY_USAGE const& usages, ContextUPtr previous)
{
    return ContextUPtr(CertFindCertificateInStore(
        store, X509_ASN_ENCODING, CERT_FIND_OPTIONAL_ENHKEY_USAGE_FLAG | CERT_FIND_OR_ENHKEY_USAGE_FLAG,
        CERT_FIND_ENHKEY_USAGE, &usages, previous.release()));
}

} // namespace

ISystemCertificateAdder* SystemCertificateAdder::clone() const
{
    return new SystemCertificateAdder();
}

void SystemCertificateAdder::addCertificatesTo(
    TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure)
{
    auto const rootStore = openRootStore();
    std::vector<char const*> const oids = extendedKeyUsageOIDs(usage);
    // CERT_ENHKEY_USAGE has pointers to mutable characters. Windows only reads them.
    std::vector<char*> identifiers;
    for (char const* const oid : oids) {
        identifiers.push_back(const_cast<char*>(oid));
    }
    CERT_ENHKEY_USAGE usages{};
    usages.cUsageIdentifier = static_cast<DWORD>(identifiers.size());
    usages.rgpszUsageIdentifier = identifiers.empty() ? nullptr : identifiers.data();
    ContextUPtr current = findNext(rootStore.get(), usages, nullptr);
    while (current != nullptr) {
        ByteArray const der(current->pbCertEncoded, current->pbCertEncoded + current->cbCertEncoded);
        deliver(rethrowOnFailure, [&] { store.addDERCertificate(der); });
        current = findNext(rootStore.get(), usages, std::move(current));
    }
}

} // namespace foundation::certificates::windows
