#include "seeds/Seeds.hpp"

#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Text.hpp"
#include "support/pki/TestCrl.hpp"

#include <functional>

namespace foundation::fuzz {

namespace {

using test::CrlSpec;

using namespace crl_option;

constexpr unsigned leafAlone = 0;
constexpr unsigned leafOfTheChain = wholeChain;
constexpr unsigned caOfTheChain = wholeChain | fuzzesTheCa;

using Mutation = std::function<void(CrlSpec&)>;

test::Bytes seed(unsigned bits, test::Bytes crl)
{
    crl.push_back(static_cast<unsigned char>(bits));
    return crl;
}

test::Bytes crlOf(test::CertificateAndKey const& issuer, Mutation const& mutate = {})
{
    return test::toDer(test::makeCrl(issuer, {}, [&](CrlSpec& spec) {
        spec.thisUpdate = startOfTime();
        spec.nextUpdate = endOfTime();
        if (mutate) {
            mutate(spec);
        }
    }));
}

test::Bytes leafCrl(Mutation const& mutate = {})
{
    return crlOf(fixedPki().ca, mutate);
}

test::RevokedEntry entry(std::string const& serialNumber, int reason)
{
    return {serialNumber, startOfTime(), reason};
}

Mutation revoking(std::vector<test::RevokedEntry> const& entries)
{
    return [=](CrlSpec& spec) { spec.revoked = entries; };
}

Mutation withExtension(std::string const& name, test::Bytes const& content)
{
    return [=](CrlSpec& spec) { spec.extensions.push_back({name, {}, content, true}); };
}

Seeds revocations()
{
    auto const revokesLeaf = revoking({entry("17", 1), entry("3", 4), entry("-3", 0)});
    auto const revokesCa = revoking({{"2", test::TimeSpec::at(-1)}});
    auto const removed = revoking({entry("3", CRL_REASON_REMOVE_FROM_CRL)});
    auto const undated =
        revoking({{"3", test::TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "20200230"), std::nullopt}});
    return {
        {"revoked_leaf", seed(leafAlone, leafCrl(revokesLeaf))},
        {"revoked_leaf_signed_anew", seed(signsAnew | leafOfTheChain, leafCrl(revokesLeaf))},
        {"revoked_ca", seed(caOfTheChain, crlOf(fixedPki().root, revokesCa))},
        {"revoked_ca_signed_anew", seed(signsAnew | caOfTheChain, crlOf(fixedPki().root, revokesCa))},
        {"revoked_and_allowed", seed(signsAnew | allowsRevoked, leafCrl(revokesLeaf))},
        {"removed_again", seed(signsAnew, leafCrl(removed))},
        {"revoked_without_readable_date", seed(signsAnew, leafCrl(undated))},
    };
}

Seeds faults()
{
    auto const crlByOtherKey = leafCrl([](CrlSpec& spec) { spec.signingKey = fixedKey("other"); });
    auto const expired = leafCrl([](CrlSpec& spec) { spec.nextUpdate = startOfTime(); });
    auto const withoutNextUpdate = leafCrl([](CrlSpec& spec) { spec.nextUpdate = std::nullopt; });
    auto const notYet = leafCrl([](CrlSpec& spec) { spec.thisUpdate = endOfTime(); });
    auto const unreadable = leafCrl(
        [](CrlSpec& spec) { spec.nextUpdate = test::TimeSpec::raw(V_ASN1_UTCTIME, "991332000000Z"); });
    return {
        {"signed_by_other_key", seed(leafAlone, crlByOtherKey)},
        {"signed_by_other_key_best_effort",
         seed(validatesAlways | bestEffort | leafOfTheChain, crlByOtherKey)},
        {"expired", seed(signsAnew, expired)},
        {"without_next_update", seed(signsAnew, withoutNextUpdate)},
        {"not_yet_valid", seed(signsAnew, notYet)},
        {"unreadable_next_update", seed(validatesAlways | signsAnew | bestEffort, unreadable)},
        {"another_issuers", seed(signsAnew, crlOf(fixedPki().root))},
        {"no_crl", seed(validatesAlways | leafAlone, fixedPki().leaf.der())},
        {"pem", seed(leafAlone, test::asBytes("-----BEGIN X509 CRL-----\n"))},
    };
}

Seeds extensions()
{
    test::Bytes const distributionPoint = {0x30, 0x03, 0x83, 0x01, 0xFF};
    test::Bytes const one = {0x02, 0x01, 0x01};
    return {
        {"for_some_reasons",
         seed(signsAnew, leafCrl(withExtension("issuingDistributionPoint", distributionPoint)))},
        {"delta", seed(signsAnew, leafCrl(withExtension("deltaCRL", one)))},
        {"unknown_critical", seed(signsAnew, leafCrl(withExtension("1.3.6.1.4.1.99999.1", one)))},
        {"version_1", seed(signsAnew, leafCrl([](CrlSpec& spec) {
                               spec.version = X509_CRL_VERSION_1;
                               spec.extensions.clear();
                           }))},
    };
}

} // namespace

Seeds crlSeeds()
{
    Seeds seeds{{"good", seed(leafAlone, leafCrl())}, {"empty", seed(leafAlone, {})}};
    seeds.merge(revocations());
    seeds.merge(faults());
    seeds.merge(extensions());
    return seeds;
}

} // namespace foundation::fuzz
