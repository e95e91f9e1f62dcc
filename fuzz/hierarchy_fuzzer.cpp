/// Builds a hierarchy of certificates as the bytes of the input choose it: who issued whom, keys, names,
/// dates, extensions, faults, and changes of the encoding. Both libraries must agree with bare OpenSSL about
/// it.

#include "support/Choices.hpp"
#include "support/FixedPki.hpp"
#include "support/Properties.hpp"
#include "support/Text.hpp"
#include "support/differential/ValidationOutcomes.hpp"
#include "support/operations/ExpectedVerdicts.hpp"
#include "support/operations/RandomHierarchies.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/err.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace foundation::fuzz {

namespace {

using certificates::TrustStore;
using certificates::X509Certificate;
using certificates::X509CertificateChain;
using test::Bytes;
using test::CertificateAndKey;
using test::CertificateSpec;
using test::X509Handle;
using toolkit::Certificate;
using toolkit::PathOptions;
using toolkit::PathValidator;
using toolkit::Revocation;

constexpr std::size_t mostMembers = 6;
constexpr std::size_t mostChoices = 255;

/// Keys are made once. Names are few, so that certificates with the same name meet.
test::KeyHandle anyKey(Choices& choices)
{
    static std::vector<test::KeyHandle> const keys{
        fixedKey("first"),
        fixedKey("second"),
        test::ed25519Key("first"),
        test::ed25519Key("second"),
        test::rsaKey(1024, ""),
        test::rsaPssKey(1024, ""),
        test::p384Key()};
    return choices.pick(keys);
}

std::string anyName(Choices& choices)
{
    static std::vector<std::string> const names{"root", "first", "second", "leaf"};
    return choices.pick(names);
}

/// Further changes that the library has to judge as OpenSSL does.
std::vector<test::Mutation> const& furtherFaults()
{
    static std::vector<test::Mutation> const faults{
        [](CertificateSpec& spec) { spec.removeExtension("authorityKeyIdentifier"); },
        [](CertificateSpec& spec) { spec.removeExtension("basicConstraints"); },
        [](CertificateSpec& spec) { spec.removeExtension("keyUsage"); },
        [](CertificateSpec& spec) {
            spec.version = X509_VERSION_1;
            spec.extensions.clear();
        },
        [](CertificateSpec& spec) { spec.version = X509_VERSION_1; },
        [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "serverAuth"); },
        [](CertificateSpec& spec) { spec.setExtension("nameConstraints", "critical,permitted;DNS:leaf"); },
        [](CertificateSpec& spec) { spec.setExtension("nameConstraints", "excluded;DNS:leaf"); },
        [](CertificateSpec& spec) { spec.setExtension("subjectAltName", "DNS:leaf,IP:192.0.2.1"); },
        [](CertificateSpec& spec) { spec.setExtension("certificatePolicies", "1.2.3.4"); },
        [](CertificateSpec& spec) { spec.setExtension("policyConstraints", "requireExplicitPolicy:0"); },
        [](CertificateSpec& spec) {
            spec.setExtension("proxyCertInfo", "critical,language:id-ppl-anyLanguage,pathlen:0");
        },
        [](CertificateSpec& spec) {
            spec.setRawExtension("keyUsage", {3, 2, 6, 0}, true);
        },
        [](CertificateSpec& spec) {
            spec.setRawExtension("subjectAltName", {0x30, 5, 1});
        },
        [](CertificateSpec& spec) { spec.subject.clear(); },
        [](CertificateSpec& spec) { spec.digest = EVP_sha1(); },
        [](CertificateSpec& spec) { spec.serialNumber = "0"; },
        [](CertificateSpec& spec) { spec.publicKeyFault = test::PublicKeyFault::Undecodable; },
    };
    return faults;
}

void addFaults(Choices& choices, CertificateSpec& spec)
{
    for (auto rest = choices.below(3); rest > 0; --rest) {
        choices.pick(choices.yes() ? furtherFaults() : test::certificateFaults())(spec);
    }
    if (choices.below(4) == 1 && !spec.extensions.empty()) {
        auto const index = choices.below(spec.extensions.size());
        spec.extensions.erase(spec.extensions.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

/// Changes one byte of the encoding, and returns the old one if OpenSSL does not read the new one.
X509Handle withChangedByte(Choices& choices, X509Handle const& certificate)
{
    auto der = test::toDer(certificate);
    auto const position = choices.below(256) * 256 + choices.below(256);
    der[position % der.size()] = static_cast<unsigned char>(choices.below(256));
    auto const* start = der.data();
    auto* const parsed = d2i_X509(nullptr, &start, static_cast<long>(der.size()));
    return parsed != nullptr && start == der.data() + der.size() ? test::own(parsed) : certificate;
}

/// A member is a root, an intermediate of an earlier member, or a leaf of it.
std::optional<CertificateAndKey> anyMember(Choices& choices, std::vector<CertificateAndKey> const& earlier)
{
    auto const kind = earlier.empty() ? 0 : choices.below(4);
    auto const name = anyName(choices);
    auto spec = kind == 0   ? test::rootSpec(name)
                : kind == 1 ? test::leafSpec(choices.pick(earlier), name)
                            : test::intermediateSpec(choices.pick(earlier), name);
    spec.key = anyKey(choices);
    spec.serialNumber = std::to_string(1 + earlier.size());
    spec.notBefore = startOfTime();
    spec.notAfter = endOfTime();
    try {
        addFaults(choices, spec);
        auto made = test::make(spec);
        if (choices.below(4) == 1) {
            made.certificate = withChangedByte(choices, made.certificate);
        }
        return made;
    } catch (std::exception const&) {
        return {}; // the faults exclude each other, or the key cannot sign
    }
}

/// All that a validation gets to see.
struct Scene
{
    std::vector<CertificateAndKey> members;
    X509Handle leaf;
    std::vector<X509Handle> chain;
    std::vector<X509Handle> anchors;
    std::vector<test::CrlHandle> crls;
    test::Tolerances tolerances;
    bool allowTrustedIntermediate = false;
    Revocation revocation = Revocation::NotChecked;
};

std::vector<X509Handle> anySelection(Choices& choices, std::vector<CertificateAndKey> const& members)
{
    std::vector<X509Handle> selection;
    for (auto rest = choices.below(mostMembers + 1); rest > 0; --rest) {
        selection.push_back(choices.pick(members).certificate);
    }
    return selection;
}

test::CrlHandle anyCrl(Choices& choices, std::vector<CertificateAndKey> const& members)
{
    auto const issuer = choices.pick(members);
    std::vector<test::RevokedEntry> revoked;
    if (choices.yes()) {
        revoked.push_back({std::to_string(1 + choices.below(mostMembers)), startOfTime()});
    }
    return test::makeCrl(issuer, revoked, [&](test::CrlSpec& spec) {
        spec.thisUpdate = startOfTime();
        spec.nextUpdate = choices.below(4) == 1 ? startOfTime() : endOfTime();
        spec.damagedSignature = choices.below(8) == 1;
    });
}

Scene anyScene(Choices& choices)
{
    // It is trusted, too: an empty store would mean the operating system's roots.
    static auto const unrelated = test::makeRoot("unrelated", fixed("unrelated", "1")).certificate;
    Scene scene;
    scene.tolerances = {choices.yes(), choices.yes(), choices.yes()};
    scene.allowTrustedIntermediate = choices.yes();
    scene.revocation = static_cast<Revocation>(choices.below(3));
    for (auto rest = 1 + choices.below(mostMembers); rest > 0; --rest) {
        if (auto member = anyMember(choices, scene.members)) {
            scene.members.push_back(std::move(*member));
        }
    }
    if (scene.members.empty()) {
        return scene;
    }
    scene.leaf = choices.yes() ? choices.pick(scene.members).certificate : scene.members.back().certificate;
    scene.chain = anySelection(choices, scene.members);
    scene.anchors = anySelection(choices, scene.members);
    scene.anchors.push_back(unrelated);
    if (scene.revocation != Revocation::NotChecked) {
        for (auto rest = choices.below(4); rest > 0; --rest) {
            try {
                scene.crls.push_back(anyCrl(choices, scene.members));
            } catch (std::exception const&) { // NOLINT(bugprone-empty-catch): the key cannot sign
            }
        }
    }
    return scene;
}

void requireSame(char const* what, test::ReferenceVerdict const& own, test::ReferenceVerdict const& reference)
{
    if (own != reference) {
        auto const text = std::string(what) + " says " + test::streamed(own) + ", and OpenSSL says " +
                          test::streamed(reference);
        require(false, text.c_str());
    }
}

/// Whether X509Certificate loads all of them.
bool areLoaded(std::vector<X509Handle> const& certificates)
{
    return std::all_of(certificates.begin(), certificates.end(), [](X509Handle const& certificate) {
        return succeeds([&] { X509Certificate const loaded(test::toDer(certificate)); });
    });
}

void checkLibrary(Scene const& scene)
{
    if (!areLoaded({scene.leaf}) || !areLoaded(scene.chain) || !areLoaded(scene.anchors)) {
        return;
    }
    X509CertificateChain chain;
    for (auto const& member : scene.chain) {
        chain.addCertificate(X509Certificate(test::toDer(member)));
    }
    TrustStore trustStore;
    test::ReferenceValidator validator;
    validator.store = test::own(X509_STORE_new());
    for (auto const& anchor : scene.anchors) {
        trustStore.addCertificate(X509Certificate(test::toDer(anchor)));
        test::require(X509_STORE_add_cert(validator.store.get(), anchor.get()));
    }
    validator.leaf = scene.leaf;
    validator.chain = scene.chain;
    validator.tolerances = scene.tolerances;
    requireSame(
        "validateCertificate",
        test::verdictOf(
            X509Certificate(test::toDer(scene.leaf)), chain, test::optionsWith(scene.tolerances), trustStore),
        validator.validate());
}

std::vector<Certificate> certificatesOf(std::vector<X509Handle> const& handles)
{
    std::vector<Certificate> certificates;
    for (auto const& handle : handles) {
        certificates.push_back(Certificate::fromX509(handle.get()));
    }
    return certificates;
}

void checkToolkit(Scene const& scene)
{
    PathOptions options;
    options.allowSelfSigned = scene.tolerances.selfSigned;
    options.allowExpired = scene.tolerances.expired;
    options.allowTrustedIntermediate = scene.allowTrustedIntermediate;
    options.revocation = scene.revocation;
    options.minimumSecurityLevel = 0;
    test::ReferenceVerifier verifier;
    verifier.leaf = scene.leaf;
    verifier.untrusted = scene.chain;
    verifier.trusted = scene.anchors;
    verifier.crls = scene.crls;
    verifier.tolerances = scene.tolerances;
    verifier.tolerances.revoked = false;
    verifier.flags &= ~static_cast<unsigned long>(X509_V_FLAG_ALLOW_PROXY_CERTS);
    verifier.flags |= scene.allowTrustedIntermediate ? X509_V_FLAG_PARTIAL_CHAIN : 0;
    verifier.flags |= scene.revocation == Revocation::NotChecked ? 0 : X509_V_FLAG_CRL_CHECK;
    verifier.flags |= scene.revocation == Revocation::WholeChain ? X509_V_FLAG_CRL_CHECK_ALL : 0;
    for (auto const& crl : scene.crls) {
        options.crls.push_back(test::toDer(crl));
    }
    requireSame(
        "PathValidator",
        test::verdictOf(
            PathValidator(certificatesOf(scene.anchors)), Certificate::fromX509(scene.leaf.get()),
            certificatesOf(scene.chain), options),
        test::verdictOf(verifier.verify()));
}

void check(Choices choices)
{
    auto const scene = anyScene(choices);
    clearErrorQueue();
    if (scene.leaf != nullptr) {
        checkLibrary(scene);
        checkToolkit(scene);
    }
    clearErrorQueue();
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace foundation::fuzz;
    check(Choices(data, std::min(size, mostChoices)));
    return 0;
}
