#include "reader/BundleMembers.hpp"

#include "CertificateAccess.hpp"
#include "reader/DerivationRounds.hpp"

#include "libcrypto/IntRange.hpp"
#include "libcrypto/LegacyProvider.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <openssl/objects.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

constexpr char const damaged[] = "The PKCS#12 bundle is damaged.";
constexpr char const wrongPassphrase[] = "The passphrase does not open the PKCS#12 bundle.";
constexpr char const tooManyRounds[] =
    "The PKCS#12 bundle needs more than 10,000,000 rounds of key derivation.";
constexpr char const undecryptable[] = "A part of the PKCS#12 bundle cannot be decrypted.";

/// Runs a step that returns a handle, which is null after a failure of the input.
template <typename Handle, typename Step>
Handle unlessOutOfMemory(Handle result, Step const& step)
{
    runUnlessOutOfMemory([&] {
        result.reset(step());
        return result != nullptr;
    });
    return result;
}

PKCS12UPtr bundleFrom(std::string_view der)
{
    return unlessOutOfMemory(makePKCS12(nullptr), [&]() -> PKCS12* {
        if (!fitsInInt(der.size())) {
            return nullptr;
        }
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the same bytes
        auto const* position = reinterpret_cast<unsigned char const*>(der.data());
        return d2i_PKCS12(nullptr, &position, static_cast<long>(der.size()));
    });
}

/// The passphrase as OpenSSL takes it. Bundles without a passphrase exist in two forms: it is empty, or
/// missing.
struct Passphrase
{
    char const* text = nullptr;
    int length = 0;
};

bool macMatches(PKCS12* bundle, Passphrase const& passphrase)
{
    bool matches = false;
    runUnlessOutOfMemory(
        [&] { return matches = PKCS12_verify_mac(bundle, passphrase.text, passphrase.length) == 1; });
    return matches;
}

/// Returns the form of the passphrase that fits; nothing if none does. A bundle without MAC accepts any.
std::optional<Passphrase> fittingPassphrase(PKCS12* bundle, std::string const& passphrase)
{
    if (!fitsInInt(passphrase.size())) {
        return std::nullopt;
    }
    Passphrase const given{passphrase.c_str(), static_cast<int>(passphrase.size())};
    if (PKCS12_mac_present(bundle) == 0 || macMatches(bundle, given)) {
        return given;
    }
    Passphrase const missing;
    if (passphrase.empty() && macMatches(bundle, missing)) {
        return missing;
    }
    return std::nullopt;
}

/// The content of a part of the bundle, or the reason why it cannot be read.
struct Safe
{
    PKCS12_SAFEBAGStackUPtr bags = makePKCS12_SAFEBAGStack(nullptr);
    char const* failure = nullptr;
};

Safe openSafe(PKCS7* part, Passphrase const& passphrase)
{
    Safe safe;
    if (part->d.ptr == nullptr) {
        safe.failure = damaged;
    } else if (PKCS7_type_is_data(part)) {
        safe.bags = unlessOutOfMemory(std::move(safe.bags), [&] { return PKCS12_unpack_p7data(part); });
        safe.failure = safe.bags == nullptr ? damaged : nullptr;
    } else if (PKCS7_type_is_encrypted(part)) {
        bool const hasContent = part->d.encrypted->enc_data->enc_data != nullptr;
        safe.bags = unlessOutOfMemory(std::move(safe.bags), [&] {
            return hasContent ? PKCS12_unpack_p7encdata(part, passphrase.text, passphrase.length) : nullptr;
        });
        safe.failure = safe.bags == nullptr ? undecryptable : nullptr;
    }
    return safe; // other types need a private key
}

/// Goes through the bags of a bundle's parts, and through the bags inside of bags.
class BundleMembers : public Members
{
public:
    BundleMembers(
        PKCS7StackUPtr partsOfBundle, std::string passphraseText, Passphrase const& fitting,
        std::int64_t roundsOfBundleMAC)
        : parts(std::move(partsOfBundle)),
          numRounds(roundsOfBundleMAC),
          ownPassphrase(std::move(passphraseText)),
          passphrase{fitting.text == nullptr ? nullptr : ownPassphrase.c_str(), fitting.length}
    {}
    BundleMembers(BundleMembers const&) = delete;
    BundleMembers& operator=(BundleMembers const&) = delete;
    ~BundleMembers() override { OPENSSL_cleanse(ownPassphrase.data(), ownPassphrase.size()); }

    std::optional<Member> next() override
    {
        while (true) {
            if (!positions.empty()) {
                if (auto member = nextInBags()) {
                    return member;
                }
            } else if (numOpened == sk_PKCS7_num(parts.get())) {
                return std::nullopt;
            } else if (auto member = openNextPart()) {
                return member;
            }
        }
    }

private:
    using Bags = STACK_OF(PKCS12_SAFEBAG);

    /// A place in a list of bags that something else owns.
    struct Position
    {
        Bags const* bags;
        int index;
    };

    std::optional<Member> openNextPart()
    {
        positions.reserve(1);
        PKCS7* const part = sk_PKCS7_value(parts.get(), numOpened);
        std::int64_t const numRoundsWithPart = numRounds + roundsOfPart(part);
        Safe opened;
        if (numRoundsWithPart > mostDerivationRounds) {
            opened.failure = tooManyRounds;
        } else {
            opened = openSafe(part, passphrase);
            numRounds = numRoundsWithPart;
        }
        std::optional<Member> failed;
        if (opened.failure != nullptr) {
            failed = Member{std::nullopt, opened.failure, true};
        }
        safe = std::move(opened.bags);
        positions.push_back({safe.get(), 0});
        ++numOpened;
        return failed;
    }

    std::optional<Member> nextInBags()
    {
        positions.reserve(positions.size() + 1);
        Position& position = positions.back();
        if (position.index >= sk_PKCS12_SAFEBAG_num(position.bags)) {
            positions.pop_back();
            return std::nullopt;
        }
        PKCS12_SAFEBAG* const bag = sk_PKCS12_SAFEBAG_value(position.bags, position.index);
        std::optional<Member> member;
        Bags const* inside = nullptr;
        if (PKCS12_SAFEBAG_get_nid(bag) == NID_safeContentsBag) {
            inside = PKCS12_SAFEBAG_get0_safes(bag);
        } else if (PKCS12_SAFEBAG_get_bag_nid(bag) == NID_x509Certificate) {
            member = memberIn(bag);
        }
        ++position.index;
        if (inside != nullptr) {
            positions.push_back({inside, 0});
        }
        return member;
    }

    static Member memberIn(PKCS12_SAFEBAG* bag)
    {
        auto certificate =
            unlessOutOfMemory(makeX509(nullptr), [&] { return PKCS12_SAFEBAG_get1_cert(bag); });
        if (certificate == nullptr) {
            return Member{std::nullopt, "The bytes are not a certificate in DER encoding.", false};
        }
        return Member{CertificateAccess::adopt(std::move(certificate))};
    }

    PKCS7StackUPtr parts;
    int numOpened = 0;
    /// Those that the MAC and the parts up to now have taken.
    std::int64_t numRounds;
    std::string ownPassphrase;
    Passphrase passphrase;
    PKCS12_SAFEBAGStackUPtr safe = makePKCS12_SAFEBAGStack(nullptr);
    std::vector<Position> positions;
};

} // namespace

std::unique_ptr<Members> membersOfBundle(std::string_view der, std::string const& passphrase)
{
    auto const bundle = bundleFrom(der);
    if (bundle == nullptr) {
        return failureAlone(damaged);
    }
    std::int64_t const rounds = roundsOfMAC(bundle.get());
    if (rounds > mostDerivationRounds) {
        return failureAlone(tooManyRounds);
    }
    auto const fitting = fittingPassphrase(bundle.get(), passphrase);
    if (!fitting) {
        return failureAlone(wrongPassphrase);
    }
    // For old ciphers. Without it, bundles with such ciphers cannot be decrypted.
    runUnlessOutOfMemory(loadLegacyProvider);
    auto parts =
        unlessOutOfMemory(makePKCS7Stack(nullptr), [&] { return PKCS12_unpack_authsafes(bundle.get()); });
    if (parts == nullptr) {
        return failureAlone(damaged);
    }
    return std::make_unique<BundleMembers>(std::move(parts), passphrase, *fitting, rounds);
}

} // namespace foundation::toolkit
