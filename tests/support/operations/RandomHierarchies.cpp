#include "support/operations/RandomHierarchies.hpp"

#include "support/pki/TestKeys.hpp"

#include <chrono>
#include <optional>

namespace foundation::test {

using namespace std::chrono_literals;

namespace {

using Options = certificates::CertificateValidationOptions;

/// A handful of keys serves all hierarchies.
KeyHandle anyKey(Dice& dice)
{
    auto const name = std::to_string(dice.below(4));
    switch (dice.below(3)) {
    case 0:
        return rsaKey(1024, name);
    case 1:
        return ed25519Key(name);
    default:
        return p256Key(name);
    }
}

std::string uriOf(std::size_t level)
{
    return "http://127.0.0.1/" + std::to_string(level) + ".crl";
}

CertificateAndKey makeMember(
    Dice& dice, std::size_t level, std::size_t depth, std::optional<CertificateAndKey> const& issuer,
    Mutation const& fault)
{
    auto const name = "level " + std::to_string(level);
    auto spec = !issuer      ? rootSpec(name)
                : level == 0 ? leafSpec(*issuer, name)
                             : intermediateSpec(*issuer, name);
    spec.key = anyKey(dice);
    if (level < depth) {
        spec.setDistributionPoints({uriOf(level)});
    }
    if (fault) {
        fault(spec);
    }
    return make(spec);
}

std::vector<CertificateAndKey> makeMembers(Dice& dice)
{
    auto const depth = static_cast<std::size_t>(dice.below(6));
    auto const faultyLevel =
        dice.oneIn(3) ? depth + 1 : static_cast<std::size_t>(dice.below(static_cast<int>(depth) + 1));
    std::vector<CertificateAndKey> members;
    std::optional<CertificateAndKey> issuer;
    for (auto left = depth + 1; left > 0; --left) {
        auto const level = left - 1;
        auto const& fault = level == faultyLevel ? dice.pick(certificateFaults()) : Mutation();
        issuer = makeMember(dice, level, depth, issuer, fault);
        members.insert(members.begin(), *issuer);
    }
    return members;
}

void deal(Dice& dice, Hierarchy& hierarchy)
{
    auto const& members = hierarchy.members;
    hierarchy.chain.assign(members.begin() + 1, members.end());
    if (dice.oneIn(2) && !hierarchy.chain.empty()) {
        hierarchy.chain.pop_back(); // the root, which belongs to the store
    }
    if (dice.oneIn(8) && !hierarchy.chain.empty()) {
        hierarchy.chain.erase(hierarchy.chain.begin() + dice.below(static_cast<int>(hierarchy.chain.size())));
    }
    if (dice.oneIn(3)) {
        hierarchy.chain.insert(hierarchy.chain.begin(), members.front());
    }
    if (dice.oneIn(6)) {
        dice.shuffle(hierarchy.chain);
    }
    // Never empty: an empty store means the operating system's roots.
    hierarchy.anchors = {makeRoot("somebody else")};
    if (!dice.oneIn(6)) {
        hierarchy.anchors.push_back(members.back());
    }
    if (dice.oneIn(6)) {
        hierarchy.anchors.push_back(dice.pick(members));
    }
}

CrlHandle makeCrlFor(Dice& dice, CertificateAndKey const& subject, CertificateAndKey const& issuer)
{
    std::vector<RevokedEntry> revoked = {{"1", TimeSpec::fromNow(-2h), {}}};
    if (dice.oneIn(4)) {
        revoked.push_back(revoke(subject));
    }
    return makeCrl(issuer, revoked, [&](CrlSpec& spec) {
        switch (dice.below(16)) {
        case 0:
            spec.nextUpdate = TimeSpec::fromNow(-1h);
            break;
        case 1:
            spec.thisUpdate = TimeSpec::fromNow(1h);
            break;
        case 2:
            spec.damagedSignature = true;
            break;
        case 3:
            spec.issuerName = commonName("unrelated");
            break;
        case 4:
            spec.nextUpdate.reset();
            break;
        default:
            break;
        }
    });
}

void dealCrls(Dice& dice, Hierarchy& hierarchy)
{
    auto const& members = hierarchy.members;
    hierarchy.check = static_cast<Options::CheckCRL>(dice.below(3));
    hierarchy.download = static_cast<Options::DownloadCRL>(dice.below(3));
    for (std::size_t level = 0; level + 1 < members.size(); ++level) {
        if (dice.oneIn(6)) {
            hierarchy.trustedCrls.push_back(makeCrlFor(dice, members[level], members[level + 1]));
        }
        if (!dice.oneIn(12)) {
            hierarchy.served[pathOfCrl(level)] = makeCrlFor(dice, members[level], members[level + 1]);
        }
    }
}

} // namespace

std::vector<Mutation> const& certificateFaults()
{
    static std::vector<Mutation> const faults = {
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); },
        [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); },
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); },
        [](CertificateSpec& spec) { spec.damagedSignature = true; },
        [](CertificateSpec& spec) { spec.signingKey = p256Key("unrelated"); },
        [](CertificateSpec& spec) { spec.issuer = commonName("unrelated"); },
        [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "critical,CA:TRUE,pathlen:0"); },
        [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "critical,CA:FALSE"); },
        [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "CA:TRUE"); },
        [](CertificateSpec& spec) { spec.setExtension("keyUsage", "critical,digitalSignature"); },
        [](CertificateSpec& spec) { spec.setExtension("keyUsage", "critical,keyCertSign"); },
        [](CertificateSpec& spec) {
            spec.setRawExtension("1.3.6.1.4.1.99999.7", {5, 0}, true);
        },
        [](CertificateSpec& spec) { spec.removeExtension("subjectKeyIdentifier"); },
    };
    return faults;
}

Hierarchy makeHierarchy(Dice& dice)
{
    Hierarchy hierarchy;
    hierarchy.members = makeMembers(dice);
    deal(dice, hierarchy);
    dealCrls(dice, hierarchy);
    hierarchy.tolerances = {dice.oneIn(3), dice.oneIn(3), dice.oneIn(4)};
    return hierarchy;
}

std::string pathOfCrl(std::size_t level)
{
    return "/" + std::to_string(level) + ".crl";
}

} // namespace foundation::test
