#include "truststore/windows/WindowsHeader.hpp"

#include "support/system/windows/SystemStores.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace foundation::test {

namespace {

/// A context that the search returns instead of one of Windows'.
struct StandIn
{
    CERT_CONTEXT context{};
    Bytes content;
    PCCERT_CONTEXT original = nullptr;
};

struct State
{
    DWORD usersStoreError = 0;
    DWORD machinesStoreError = 0;
    std::map<Bytes, Bytes> replacements;
    std::vector<Bytes> found;
    std::map<PCCERT_CONTEXT, std::unique_ptr<StandIn>> standIns;
    std::vector<std::string> calls;
    int numOpenStores = 0;
    int numOpenContexts = 0;
};

State state;

/// Returns the function of CRYPT32 that this program replaces.
template <class Function>
Function* windows(Function* /*type*/, char const* name)
{
    auto* const address = GetProcAddress(LoadLibraryA("crypt32.dll"), name);
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
}

#define WINDOWS(name) windows(static_cast<decltype(&name)>(nullptr), #name)

template <class... Arguments>
void note(Arguments const&... arguments)
{
    std::ostringstream text;
    (text << ... << arguments);
    state.calls.push_back(text.str());
}

std::string joined(CERT_ENHKEY_USAGE const& usages)
{
    std::string text = usages.rgpszUsageIdentifier == nullptr ? "no array" : "";
    for (DWORD index = 0; index < usages.cUsageIdentifier; ++index) {
        text += (index == 0 ? "" : " ") + std::string(usages.rgpszUsageIdentifier[index]);
    }
    return text;
}

/// Whether the certificate is restricted to usages, by its extension or by a setting in Windows. Collects the
/// usages.
bool isRestricted(PCCERT_CONTEXT certificate, std::vector<std::string>& usages)
{
    DWORD size = 0;
    CertGetEnhancedKeyUsage(certificate, 0, nullptr, &size);
    std::vector<CERT_ENHKEY_USAGE> buffer(size / sizeof(CERT_ENHKEY_USAGE) + 1);
    SetLastError(0);
    if (!CertGetEnhancedKeyUsage(certificate, 0, buffer.data(), &size)) {
        return true; // the usages cannot be read
    }
    bool const anyUsage =
        buffer[0].cUsageIdentifier == 0 && GetLastError() == static_cast<DWORD>(CRYPT_E_NOT_FOUND);
    for (DWORD index = 0; index < buffer[0].cUsageIdentifier; ++index) {
        usages.emplace_back(buffer[0].rgpszUsageIdentifier[index]);
    }
    return !anyUsage;
}

/// Implements the documentation of CERT_FIND_ENHKEY_USAGE: without wanted usages, every restricted
/// certificate fits.
bool fits(PCCERT_CONTEXT certificate, DWORD flags, CERT_ENHKEY_USAGE const& wanted)
{
    std::vector<std::string> usages;
    if (!isRestricted(certificate, usages)) {
        return (flags & CERT_FIND_OPTIONAL_ENHKEY_USAGE_FLAG) != 0;
    }
    auto const isNamed = [&](char const* usage) {
        return std::find(usages.begin(), usages.end(), usage) != usages.end();
    };
    auto* const* const begin = wanted.rgpszUsageIdentifier;
    auto* const* const end = begin + wanted.cUsageIdentifier;
    bool const anyOf = (flags & CERT_FIND_OR_ENHKEY_USAGE_FLAG) != 0;
    return begin == end || (anyOf ? std::any_of(begin, end, isNamed) : std::all_of(begin, end, isNamed));
}

Bytes contentOf(PCCERT_CONTEXT certificate)
{
    return {certificate->pbCertEncoded, certificate->pbCertEncoded + certificate->cbCertEncoded};
}

PCCERT_CONTEXT handOut(PCCERT_CONTEXT found)
{
    ++state.numOpenContexts;
    if (state.replacements.empty()) {
        return found; // allocates nothing, for tests in which memory runs out
    }
    state.found.push_back(contentOf(found));
    auto const replacement = state.replacements.find(state.found.back());
    if (replacement == state.replacements.end()) {
        return found;
    }
    auto standIn = std::make_unique<StandIn>();
    standIn->context = *found;
    standIn->content = replacement->second;
    standIn->context.pbCertEncoded = standIn->content.data();
    standIn->context.cbCertEncoded = static_cast<DWORD>(standIn->content.size());
    standIn->original = found;
    return state.standIns.emplace(&standIn->context, std::move(standIn)).first->first;
}

/// Returns Windows' own context for one that `handOut` returned.
PCCERT_CONTEXT takeBack(PCCERT_CONTEXT context)
{
    --state.numOpenContexts;
    auto const standIn = state.standIns.find(context);
    if (standIn == state.standIns.end()) {
        return context;
    }
    PCCERT_CONTEXT const original = standIn->second->original;
    state.standIns.erase(standIn);
    return original;
}

PCCERT_CONTEXT WINAPI findCertificate(
    HCERTSTORE store, DWORD encoding, DWORD flags, DWORD type, void const* parameter, PCCERT_CONTEXT previous)
{
    if (type != CERT_FIND_ENHKEY_USAGE) {
        return WINDOWS(CertFindCertificateInStore)(store, encoding, flags, type, parameter, previous);
    }
    auto const& wanted = *static_cast<CERT_ENHKEY_USAGE const*>(parameter);
    if (previous == nullptr) {
        note(
            "CertFindCertificateInStore(", encoding, ", 0x", std::hex, flags, ", 0x", type, ", ", std::dec,
            wanted.cUsageIdentifier, ": ", joined(wanted), ")");
    } else {
        previous = takeBack(previous);
    }
    // Each step frees the context from which it starts.
    PCCERT_CONTEXT current = CertEnumCertificatesInStore(store, previous);
    while (current != nullptr && !fits(current, flags, wanted)) {
        current = CertEnumCertificatesInStore(store, current);
    }
    return current == nullptr ? nullptr : handOut(current);
}

BOOL WINAPI freeContext(PCCERT_CONTEXT context)
{
    return WINDOWS(CertFreeCertificateContext)(takeBack(context));
}

HCERTSTORE counted(HCERTSTORE store)
{
    state.numOpenStores += store == nullptr ? 0 : 1;
    return store;
}

HCERTSTORE WINAPI openSystemStore(HCRYPTPROV_LEGACY provider, LPCSTR name)
{
    note("CertOpenSystemStoreA(", provider, ", ", name, ")");
    if (state.usersStoreError != 0) {
        SetLastError(state.usersStoreError);
        return nullptr;
    }
    return counted(WINDOWS(CertOpenSystemStoreA)(provider, name));
}

HCERTSTORE WINAPI openStore(
    LPCSTR storeProvider, DWORD encoding, HCRYPTPROV_LEGACY provider, DWORD flags, void const* parameter)
{
    std::wstring const name = static_cast<wchar_t const*>(parameter);
    note(
        "CertOpenStore(", reinterpret_cast<std::uintptr_t>(storeProvider), ", ", encoding, ", ", provider,
        ", 0x", std::hex, flags, ", ", std::string(name.begin(), name.end()), ")");
    if (state.machinesStoreError != 0) {
        SetLastError(state.machinesStoreError);
        return nullptr;
    }
    return counted(WINDOWS(CertOpenStore)(storeProvider, encoding, provider, flags, parameter));
}

BOOL WINAPI closeStore(HCERTSTORE store, DWORD flags)
{
    note("CertCloseStore(", flags, ")");
    --state.numOpenStores;
    return WINDOWS(CertCloseStore)(store, flags);
}

} // namespace

SystemStores::SystemStores()
{
    state = State();
}

SystemStores::~SystemStores()
{
    state = State();
}

void SystemStores::failToOpenTheUsersStore(unsigned long error)
{
    state.usersStoreError = error;
}

void SystemStores::failToOpenTheMachinesStore(unsigned long error)
{
    state.machinesStoreError = error;
}

void SystemStores::replace(Bytes const& certificate, Bytes const& content)
{
    state.replacements[certificate] = content;
}

std::vector<std::string> const& SystemStores::calls() const
{
    return state.calls;
}

std::vector<Bytes> const& SystemStores::found() const
{
    return state.found;
}

int SystemStores::numOpenStores() const
{
    return state.numOpenStores;
}

int SystemStores::numOpenContexts() const
{
    return state.numOpenContexts;
}

namespace {

/// The physical root store of the current user. The store that programs open is a view of it. Changes take
/// effect when it is closed.
class RootStore
{
public:
    RootStore()
        : store(WINDOWS(CertOpenStore)(
              CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"ROOT"))
    {}
    ~RootStore() { WINDOWS(CertCloseStore)(store, 0); }
    RootStore(RootStore const&) = delete;
    RootStore& operator=(RootStore const&) = delete;

    void add(Bytes const& der)
    {
        if (!CertAddEncodedCertificateToStore(
                store, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()), CERT_STORE_ADD_NEW,
                nullptr)) {
            throw std::runtime_error(
                "Cannot add a certificate to the user's store: " + std::to_string(GetLastError()));
        }
    }

    void remove(Bytes const& der)
    {
        PCCERT_CONTEXT root = nullptr;
        while ((root = CertEnumCertificatesInStore(store, root)) != nullptr) {
            if (contentOf(root) == der) {
                CertDeleteCertificateFromStore(root); // frees the context, too
                return;
            }
        }
    }

private:
    HCERTSTORE store;
};

} // namespace

PlantedRoot::PlantedRoot(Bytes der) : planted(std::move(der))
{
    RootStore().add(planted);
}

PlantedRoot::~PlantedRoot()
{
    RootStore().remove(planted);
}

std::string windowsErrorText(unsigned long error)
{
    std::array<char, 1024> buffer{};
    DWORD const size = FormatMessageA(
        FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0x400, buffer.data(),
        static_cast<DWORD>(buffer.size()), nullptr);
    std::string text(buffer.data(), size);
    for (char const lineEnd : {'\r', '\n'}) {
        text.erase(std::remove(text.begin(), text.end(), lineEnd), text.end());
    }
    return text;
}

} // namespace foundation::test

// The pointers through which a program calls the functions of a DLL. The linker uses these definitions
// instead of those of CRYPT32's import library.
extern "C" {
extern decltype(&CertFindCertificateInStore) __imp_CertFindCertificateInStore;
extern decltype(&CertFreeCertificateContext) __imp_CertFreeCertificateContext;
extern decltype(&CertOpenSystemStoreA) __imp_CertOpenSystemStoreA;
extern decltype(&CertOpenStore) __imp_CertOpenStore;
extern decltype(&CertCloseStore) __imp_CertCloseStore;
decltype(&CertFindCertificateInStore) __imp_CertFindCertificateInStore = foundation::test::findCertificate;
decltype(&CertFreeCertificateContext) __imp_CertFreeCertificateContext = foundation::test::freeContext;
decltype(&CertOpenSystemStoreA) __imp_CertOpenSystemStoreA = foundation::test::openSystemStore;
decltype(&CertOpenStore) __imp_CertOpenStore = foundation::test::openStore;
decltype(&CertCloseStore) __imp_CertCloseStore = foundation::test::closeStore;
}
