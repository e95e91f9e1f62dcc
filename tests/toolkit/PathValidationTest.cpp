#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/toolkit/Paths.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::system_clock;

Mutation withExtension(std::string const& name, std::string const& text)
{
    return [=](CertificateSpec& spec) { spec.setExtension(name, text); };
}

Mutation withKey(KeyHandle const& key)
{
    return [key](CertificateSpec& spec) { spec.key = key; };
}

void expire(CertificateSpec& spec)
{
    spec.notAfter = TimeSpec::fromNow(-1h);
}

PathOptions forHost(std::string const& host)
{
    return pathOptions([&](PathOptions& options) { options.host = host; });
}

PathOptions forAddress(std::string const& address)
{
    return pathOptions([&](PathOptions& options) { options.address = address; });
}

PathOptions forPurpose(Purpose purpose)
{
    return pathOptions([&](PathOptions& options) { options.purpose = purpose; });
}

PathOptions forTime(Clock::time_point time)
{
    return pathOptions([&](PathOptions& options) { options.time = time; });
}

PathOptions withRevocation(Revocation revocation, std::vector<CrlHandle> const& crls)
{
    return pathOptions([&](PathOptions& options) {
        options.revocation = revocation;
        for (auto const& crl : crls) {
            options.crls.push_back(toDer(crl));
        }
    });
}

PathOptions withSecurityLevel(int level)
{
    return pathOptions([&](PathOptions& options) { options.minimumSecurityLevel = level; });
}

/// A root, an intermediate and a leaf.
class PathValidation : public testing::Test
{
protected:
    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const ca = makeIntermediate(root, "ca");
    CertificateAndKey const leaf = makeLeaf(ca, "leaf", withExtension("subjectAltName", "DNS:leaf.example"));
    PathValidator const validator = validatorOf({root});

    PathResult validateLeaf(PathOptions const& options = {}) const
    {
        return validator.validate(certificateOf(leaf), certificatesOf({ca}), options);
    }

    /// Validates a leaf that the root issued.
    PathResult validateMade(Mutation const& mutateLeaf, PathOptions const& options = {}) const
    {
        return validator.validate(certificateOf(makeLeaf(root, "leaf", mutateLeaf)), {}, options);
    }

    /// Validates a default leaf below a changed intermediate.
    PathResult validateBelow(Mutation const& mutateIntermediate, PathOptions const& options = {}) const
    {
        auto const changed = makeIntermediate(root, "ca", mutateIntermediate);
        return validator.validate(
            certificateOf(makeLeaf(changed, "leaf", withExtension("extendedKeyUsage", "codeSigning"))),
            certificatesOf({changed}), options);
    }
};

} // namespace

// Chains

TEST_F(PathValidation, ReturnsChainThatWasBuilt)
{
    expectValid(validateLeaf(), {leaf, ca, root});
}

TEST_F(PathValidation, IntermediatesMayHaveAnyOrderAndMore)
{
    auto const lower = makeIntermediate(ca, "lower");
    auto const bottom = makeLeaf(lower, "bottom");
    auto const given = certificatesOf({root, makeRoot("other"), lower, leaf, bottom, ca, ca});
    expectValid(validator.validate(certificateOf(bottom), given), {bottom, lower, ca, root});
}

TEST_F(PathValidation, TrustedLeafIsValidIfSelfSigned)
{
    expectValid(validator.validate(certificateOf(root), {}), {root});
}

TEST_F(PathValidation, ChainOfFailureIsWhatWasBuilt)
{
    auto const expired = makeLeaf(ca, "leaf", expire);
    auto const whole = validator.validate(certificateOf(expired), certificatesOf({ca}));
    expectFailure(whole, X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=leaf");
    EXPECT_TRUE(whole.chain == certificatesOf({expired, ca, root}));

    auto const part = validatorOf({makeRoot("other")}).validate(certificateOf(leaf), certificatesOf({ca}));
    expectFailure(part, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca");
    EXPECT_TRUE(part.chain == certificatesOf({leaf, ca}));

    auto const alone = validator.validate(certificateOf(leaf), {});
    expectFailure(alone, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 0, "CN=leaf");
    EXPECT_TRUE(alone.chain == certificatesOf({leaf}));
}

TEST_F(PathValidation, ReportsFlawOfEveryLevel)
{
    struct
    {
        char const* name;
        Mutation mutate;
        int code;
    } const flaws[] = {
        {"expired", expire, X509_V_ERR_CERT_HAS_EXPIRED},
        {"not yet valid", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); },
         X509_V_ERR_CERT_NOT_YET_VALID},
        {"damaged", [](CertificateSpec& spec) { spec.damagedSignature = true; },
         X509_V_ERR_CERT_SIGNATURE_FAILURE},
    };
    for (auto const& flaw : flaws) {
        SCOPED_TRACE(flaw.name);
        expectFailure(validateMade(flaw.mutate), flaw.code, 0, "CN=leaf");
        expectFailure(validateBelow(flaw.mutate), flaw.code, 1, "CN=ca");
        auto const top = makeRoot("top", flaw.mutate);
        expectFailure(
            validatorOf({top}).validate(certificateOf(makeLeaf(top, "leaf")), {}), flaw.code, 1, "CN=top");
    }
}

TEST_F(PathValidation, RefusesProxyCertificates)
{
    auto const issuer = makeLeaf(ca, "issuer");
    auto const proxy = makeLeaf(issuer, "proxy", [](CertificateSpec& spec) {
        spec.subject = {{"CN", "issuer"}, {"CN", "proxy"}};
        spec.removeExtension("basicConstraints");
        spec.setExtension("proxyCertInfo", "critical,language:id-ppl-anyLanguage,pathlen:0");
    });
    expectFailure(
        validator.validate(certificateOf(proxy), certificatesOf({issuer, ca})),
        X509_V_ERR_PROXY_CERTIFICATES_NOT_ALLOWED, 0, "CN=proxy,CN=issuer");
}

// Keys

TEST(PathValidationKeys, ChainWithP384IntermediateIsValid)
{
    auto const root = makeRoot("root", withKey(rsaKey(2048)));
    auto const ca = makeIntermediate(root, "ca", [](CertificateSpec& spec) {
        spec.key = p384Key();
        spec.digest = EVP_sha384();
    });
    auto const leaf = makeLeaf(ca, "leaf");
    expectValid(validatorOf({root}).validate(certificateOf(leaf), certificatesOf({ca})), {leaf, ca, root});
    expectValid(
        PathValidator(storeOf({root})).validate(certificateOf(leaf), certificatesOf({ca})), {leaf, ca, root});
}

TEST(PathValidationKeys, RootMayHaveAnyKey)
{
    for (auto const& key :
         {p384Key(), p521Key(), ed448Key(), ed25519Key(), dsaKey(), rsaPssKey(), secp256k1Key()}) {
        auto const root = makeRoot("root", withKey(key));
        auto const leaf = makeLeaf(root, "leaf");
        SCOPED_TRACE(certificateOf(root).getKeyKind());
        expectValid(validatorOf({root}).validate(certificateOf(leaf), {}), {leaf, root});
    }
}

TEST(PathValidationKeys, TrustStoreMayHoldAnyKey)
{
    auto const root = makeRoot("root", withKey(p384Key()));
    auto const leaf = makeLeaf(root, "leaf");
    TrustStore store;
    addUnchecked(store, root.certificate);
    expectValid(PathValidator(store).validate(certificateOf(leaf), {}), {leaf, root});
}

// Roots

TEST_F(PathValidation, EmptyStoreTrustsNobody)
{
    TemporaryFolder const folder;
    auto const file = folder.path() / "roots.pem";
    std::ofstream(file) << root.pem();
    ScopedVariable const systemRoots("SSL_CERT_FILE", file.string());
    TrustStore moved = storeOf({root});
    TrustStore const target(std::move(moved));
    // NOLINTNEXTLINE(bugprone-use-after-move): a moved-from store is empty
    for (auto const& nobody : {PathValidator(TrustStore()), PathValidator(moved), validatorOf({})}) {
        expectFailure(
            nobody.validate(certificateOf(leaf), certificatesOf({ca})),
            X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca");
        expectFailure(
            nobody.validate(certificateOf(leaf), certificatesOf({ca, root})),
            X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, 2, "CN=root");
        expectFailure(
            nobody.validate(certificateOf(root), {}), X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, 0, "CN=root");
    }
}

TEST_F(PathValidation, RootsAreSnapshot)
{
    auto store = storeOf({makeRoot("other")});
    PathValidator const before(store);
    store.addCertificate(load(root));
    expectFailure(
        before.validate(certificateOf(leaf), certificatesOf({ca})),
        X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca");
    PathValidator const after(store);
    store = TrustStore();
    expectValid(after.validate(certificateOf(leaf), certificatesOf({ca})), {leaf, ca, root});
}

TEST_F(PathValidation, CopiesShareRoots)
{
    PathValidator original = validatorOf({root});
    PathValidator const copy(original);
    PathValidator const moved(std::move(original));
    auto assigned = validatorOf({});
    assigned = copy;
    // NOLINTNEXTLINE(bugprone-use-after-move): a move is a copy
    for (auto const& one : {original, copy, moved, assigned}) {
        expectValid(one.validate(certificateOf(leaf), certificatesOf({ca})), {leaf, ca, root});
    }
}

TEST_F(PathValidation, SameRootTwiceIsOneRoot)
{
    expectValid(
        validatorOf({root, root}).validate(certificateOf(leaf), certificatesOf({ca})), {leaf, ca, root});
}

TEST_F(PathValidation, CrlsInTrustStoreAreIgnored)
{
    auto const store = storeOf({root});
    auto const direct = makeLeaf(root, "leaf");
    addCrl(store, makeCrl(root, {revoke(direct)}));
    PathValidator const fromStore(store);
    expectValid(fromStore.validate(certificateOf(direct), {}), {direct, root});
    expectFailure(
        fromStore.validate(certificateOf(direct), {}, withRevocation(Revocation::Leaf, {})),
        X509_V_ERR_UNABLE_TO_GET_CRL, 0, "CN=leaf");
    expectValid(
        fromStore.validate(certificateOf(direct), {}, withRevocation(Revocation::Leaf, {makeCrl(root)})),
        {direct, root});
}

// Tolerances

TEST_F(PathValidation, SelfSignedPassesIfAllowed)
{
    auto const allowed = pathOptions([](PathOptions& options) { options.allowSelfSigned = true; });
    auto const other = makeRoot("other");
    auto const below = makeLeaf(other, "below");
    auto const alone = makeSelfSignedLeaf("alone");
    expectFailure(
        validator.validate(certificateOf(alone), {}), X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, 0, "CN=alone");
    expectValid(validator.validate(certificateOf(alone), {}, allowed), {alone});
    expectFailure(
        validator.validate(certificateOf(below), certificatesOf({other})),
        X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, 1, "CN=other");
    expectValid(validator.validate(certificateOf(below), certificatesOf({other}), allowed), {below, other});
    // A chain without a top is not self-signed.
    expectFailure(
        validator.validate(certificateOf(below), {}, allowed), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
        0, "CN=below");
}

TEST_F(PathValidation, ExpiredPassesIfAllowed)
{
    auto const allowed = pathOptions([](PathOptions& options) { options.allowExpired = true; });
    EXPECT_TRUE(validateMade(expire, allowed).isValid());
    EXPECT_TRUE(validateBelow(expire, allowed).isValid());
    expectFailure(
        validateMade([](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); }, allowed),
        X509_V_ERR_CERT_NOT_YET_VALID, 0, "CN=leaf");
    expectFailure(
        validateMade(
            [](CertificateSpec& spec) {
                expire(spec);
                spec.damagedSignature = true;
            },
            allowed),
        X509_V_ERR_CERT_SIGNATURE_FAILURE, 0, "CN=leaf");
}

TEST_F(PathValidation, TrustedIntermediateEndsChainIfAllowed)
{
    auto const allowed = pathOptions([](PathOptions& options) { options.allowTrustedIntermediate = true; });
    auto const byIntermediate = validatorOf({ca});
    expectFailure(
        byIntermediate.validate(certificateOf(leaf), {}), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, 1, "CN=ca");
    expectValid(byIntermediate.validate(certificateOf(leaf), {}, allowed), {leaf, ca});
    expectValid(validatorOf({leaf}).validate(certificateOf(leaf), {}, allowed), {leaf});
    expectFailure(
        validator.validate(certificateOf(leaf), {}, allowed), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 0,
        "CN=leaf");
    auto const expired = makeIntermediate(root, "ca", expire);
    expectFailure(
        validatorOf({expired}).validate(certificateOf(makeLeaf(expired, "leaf")), {}, allowed),
        X509_V_ERR_CERT_HAS_EXPIRED, 1, "CN=ca");
}

// Names

TEST_F(PathValidation, HostMustMatch)
{
    expectValid(validateLeaf(forHost("leaf.example")), {leaf, ca, root});
    for (auto const* host : {"leaf", "other.example", "ca"}) {
        auto const result = validateLeaf(forHost(host));
        expectFailure(result, X509_V_ERR_HOSTNAME_MISMATCH, 0, "CN=leaf");
        EXPECT_EQ(result.status, Status::Failed);
        EXPECT_TRUE(result.chain == certificatesOf({leaf, ca, root}));
    }
}

TEST_F(PathValidation, HostMatchesAlternativeNamesOnly)
{
    auto const mutate = [](CertificateSpec& spec) {
        spec.subject = commonName("common.example");
        spec.setExtension("subjectAltName", "DNS:*.wild.example,DNS:part*.example");
    };
    EXPECT_TRUE(validateMade(mutate, forHost("a.wild.example")).isValid());
    for (auto const* host : {"common.example", "partial.example", "a.b.wild.example", "wild.example"}) {
        expectFailure(
            validateMade(mutate, forHost(host)), X509_V_ERR_HOSTNAME_MISMATCH, 0, "CN=common.example");
    }
    auto const nameless = [](CertificateSpec& spec) { spec.subject = commonName("common.example"); };
    expectFailure(
        validateMade(nameless, forHost("common.example")), X509_V_ERR_HOSTNAME_MISMATCH, 0,
        "CN=common.example");
}

TEST_F(PathValidation, AddressMustMatch)
{
    auto const mutate = withExtension("subjectAltName", "IP:192.0.2.1,IP:2001:db8::1,DNS:leaf.example");
    EXPECT_TRUE(validateMade(mutate, forAddress("192.0.2.1")).isValid());
    EXPECT_TRUE(validateMade(mutate, forAddress("2001:DB8:0::1")).isValid());
    expectFailure(
        validateMade(mutate, forAddress("192.0.2.2")), X509_V_ERR_IP_ADDRESS_MISMATCH, 0, "CN=leaf");
    auto both = forAddress("192.0.2.1");
    both.host = "leaf.example";
    EXPECT_TRUE(validateMade(mutate, both).isValid());
    both.host = "other.example";
    expectFailure(validateMade(mutate, both), X509_V_ERR_HOSTNAME_MISMATCH, 0, "CN=leaf");
    both.host = "leaf.example";
    both.address = "192.0.2.2";
    expectFailure(validateMade(mutate, both), X509_V_ERR_IP_ADDRESS_MISMATCH, 0, "CN=leaf");
}

TEST_F(PathValidation, RefusesUnusableNames)
{
    struct
    {
        PathOptions options;
        char const* text;
    } const rows[] = {
        {forHost(""), "The host name is empty."},
        {forHost(std::string("leaf.example\0", 13)), "The host name contains a NUL character."},
        {forHost("bücher.example"),
         "The host name is not ASCII. Write an international name in its A-labels."},
        {forHost(".example"), "The host name begins with a dot."},
        {forAddress(""), "The IP address is empty."},
        {forAddress(std::string("1.2.3.4\0", 8)), "The IP address contains a NUL character."},
        {forAddress("1.2.3.٤"), "The IP address is not ASCII."},
        {forAddress("leaf.example"), "The text is not an IP address."},
    };
    for (auto const& row : rows) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, row.text, validateLeaf(row.options));
    }
}

TEST_F(PathValidation, RefusesNamesThatOpenSSL4Refuses)
{
    for (auto const* const host : {"leaf.example.", "leaf..example", "[192.0.2.7]", "a b"}) {
        SCOPED_TRACE(host);
        if (OPENSSL_VERSION_MAJOR < 4) {
            EXPECT_EQ(validateLeaf(forHost(host)).errorCode, X509_V_ERR_HOSTNAME_MISMATCH);
        } else {
            EXPECT_THROWS_EXACTLY(
                InvalidArgument, "OpenSSL refuses the host name.", validateLeaf(forHost(host)));
        }
    }
}

// Purposes

TEST_F(PathValidation, EachPurposeNeedsItsUsage)
{
    struct
    {
        Purpose purpose;
        char const* usage;
    } const rows[] = {
        {Purpose::TLSServer, "serverAuth"},
        {Purpose::TLSClient, "clientAuth"},
        {Purpose::CodeSigning, "codeSigning"},
        {Purpose::EmailProtection, "emailProtection"},
        {Purpose::TimeStamping, "critical,timeStamping"},
    };
    for (auto const& granted : rows) {
        auto const mutate = withExtension("extendedKeyUsage", granted.usage);
        EXPECT_TRUE(validateMade(mutate, forPurpose(Purpose::Any)).isValid());
        for (auto const& asked : rows) {
            SCOPED_TRACE(std::string(granted.usage) + " for " + asked.usage);
            auto const result = validateMade(mutate, forPurpose(asked.purpose));
            if (asked.purpose == granted.purpose) {
                EXPECT_TRUE(result.isValid());
            } else {
                expectFailure(result, X509_V_ERR_INVALID_PURPOSE, 0, "CN=leaf");
            }
        }
    }
}

TEST_F(PathValidation, LeafWithoutUsagesServesAllButCodeAndTime)
{
    for (auto const purpose :
         {Purpose::Any, Purpose::TLSServer, Purpose::TLSClient, Purpose::EmailProtection}) {
        EXPECT_TRUE(validateLeaf(forPurpose(purpose)).isValid());
    }
    for (auto const purpose : {Purpose::CodeSigning, Purpose::TimeStamping}) {
        expectFailure(validateLeaf(forPurpose(purpose)), X509_V_ERR_INVALID_PURPOSE, 0, "CN=leaf");
    }
}

TEST_F(PathValidation, PurposeFailsAtDepthOfIntermediate)
{
    auto const restricted = withExtension("extendedKeyUsage", "emailProtection");
    expectFailure(
        validateBelow(restricted, forPurpose(Purpose::CodeSigning)), X509_V_ERR_INVALID_PURPOSE, 1, "CN=ca");
    auto const changed = makeIntermediate(root, "ca", restricted);
    expectFailure(
        validator.validate(
            certificateOf(makeLeaf(changed, "leaf")), certificatesOf({changed}),
            forPurpose(Purpose::TLSServer)),
        X509_V_ERR_INVALID_PURPOSE, 1, "CN=ca");
}

TEST_F(PathValidation, PurposeFailsAtDepthOfRoot)
{
    auto const top = makeRoot("top", withExtension("extendedKeyUsage", "serverAuth"));
    auto const signer = makeLeaf(top, "signer", withExtension("extendedKeyUsage", "codeSigning"));
    expectFailure(
        validatorOf({top}).validate(certificateOf(signer), {}, forPurpose(Purpose::CodeSigning)),
        X509_V_ERR_INVALID_PURPOSE, 1, "CN=top");
}

TEST_F(PathValidation, CodeSigningChecksUsagesOfEveryLevel)
{
    auto const options = forPurpose(Purpose::CodeSigning);
    EXPECT_TRUE(validateBelow({}, options).isValid());
    EXPECT_TRUE(validateBelow(withExtension("extendedKeyUsage", "codeSigning"), options).isValid());
    EXPECT_TRUE(
        validateBelow(withExtension("extendedKeyUsage", "serverAuth,codeSigning"), options).isValid());
    for (auto const* usage : {"serverAuth", "anyExtendedKeyUsage", "1.2.3.4"}) {
        expectFailure(
            validateBelow(withExtension("extendedKeyUsage", usage), options), X509_V_ERR_INVALID_PURPOSE, 1,
            "CN=ca");
        expectFailure(
            validateMade(withExtension("extendedKeyUsage", usage), options), X509_V_ERR_INVALID_PURPOSE, 0,
            "CN=leaf");
    }
}

TEST_F(PathValidation, CodeSigningNeedsDigitalSignature)
{
    auto const options = forPurpose(Purpose::CodeSigning);
    auto const withUsage = [](std::string const& usage) {
        return [usage](CertificateSpec& spec) {
            spec.setExtension("extendedKeyUsage", "codeSigning");
            spec.setExtension("keyUsage", usage);
        };
    };
    EXPECT_TRUE(validateMade(withUsage("critical,digitalSignature,keyEncipherment"), options).isValid());
    expectFailure(
        validateMade(withUsage("critical,keyEncipherment"), options), X509_V_ERR_INVALID_PURPOSE, 0,
        "CN=leaf");
    EXPECT_TRUE(validateMade(
                    [](CertificateSpec& spec) {
                        spec.setExtension("extendedKeyUsage", "codeSigning");
                        spec.removeExtension("keyUsage");
                    },
                    options)
                    .isValid());
}

TEST_F(PathValidation, FailedCodeSigningKeepsChain)
{
    EXPECT_TRUE(validateLeaf(forPurpose(Purpose::CodeSigning)).chain == certificatesOf({leaf, ca, root}));
}

TEST_F(PathValidation, OtherErrorsComeBeforeCodeSigning)
{
    expectFailure(
        validateMade(expire, forPurpose(Purpose::CodeSigning)), X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=leaf");
}

// Times

TEST_F(PathValidation, TimeReplacesPresent)
{
    auto const now = Clock::now();
    EXPECT_TRUE(validateMade(expire, forTime(now - 2h)).isValid());
    expectFailure(validateLeaf(forTime(now - 48h)), X509_V_ERR_CERT_NOT_YET_VALID, 2, "CN=root");
    expectFailure(validateLeaf(forTime(now + 24h * 366)), X509_V_ERR_CERT_HAS_EXPIRED, 2, "CN=root");
}

TEST_F(PathValidation, TimeMayBeAtEndOfClock)
{
    // A clock with ticks of a microsecond or more goes beyond the years that certificates can name.
    constexpr std::chrono::seconds endOfYear9999(253402300799);
    constexpr bool isWide = Clock::duration(1) >= 1us;
    constexpr auto earliest = isWide ? Clock::time_point(-62135596800s) : Clock::time_point::min();
    constexpr auto latest = isWide ? Clock::time_point(endOfYear9999) : Clock::time_point::max();
    if (sizeof(std::time_t) > 4) {
        expectFailure(validateLeaf(forTime(earliest)), X509_V_ERR_CERT_NOT_YET_VALID, 2, "CN=root");
        expectFailure(validateLeaf(forTime(latest)), X509_V_ERR_CERT_HAS_EXPIRED, 2, "CN=root");
        return;
    }
    constexpr char const text[] = "The time is outside of this system's range.";
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, validateLeaf(forTime(earliest)));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, validateLeaf(forTime(latest)));
}

TEST_F(PathValidation, TimeIsRoundedDown)
{
    // To OpenSSL 3 a certificate has expired at its last second already.
    constexpr auto end = 1000000000s + (OPENSSL_VERSION_MAJOR < 4 ? 0s : 1s);
    auto const mutate = [](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::at(-100);
        spec.notAfter = TimeSpec::at(1000000000);
    };
    auto const past = makeRoot("past", mutate);
    auto const oldValidator = validatorOf({past});
    auto const at = [&](Clock::duration time) {
        return oldValidator.validate(certificateOf(past), {}, forTime(Clock::time_point(time))).errorCode;
    };
    EXPECT_EQ(at(end - 1ms), X509_V_OK);
    EXPECT_EQ(at(end), X509_V_ERR_CERT_HAS_EXPIRED);
    EXPECT_EQ(at(-100s), X509_V_OK);
    EXPECT_EQ(at(-100s - 1ms), X509_V_ERR_CERT_NOT_YET_VALID);
}

// Revocation

TEST_F(PathValidation, GivenCrlsAreApplied)
{
    auto const good = makeCrl(ca);
    auto const goodOfRoot = makeCrl(root);
    expectValid(validateLeaf(withRevocation(Revocation::Leaf, {good})), {leaf, ca, root});
    expectValid(validateLeaf(withRevocation(Revocation::WholeChain, {goodOfRoot, good})), {leaf, ca, root});

    auto const revokesLeaf = makeCrl(ca, {revoke(leaf)});
    auto const revokesIntermediate = makeCrl(root, {revoke(ca)});
    expectFailure(
        validateLeaf(withRevocation(Revocation::Leaf, {revokesLeaf})), X509_V_ERR_CERT_REVOKED, 0, "CN=leaf");
    expectFailure(
        validateLeaf(withRevocation(Revocation::WholeChain, {good, revokesIntermediate})),
        X509_V_ERR_CERT_REVOKED, 1, "CN=ca");
    EXPECT_TRUE(validateLeaf(withRevocation(Revocation::Leaf, {good, revokesIntermediate})).isValid());
}

TEST_F(PathValidation, CrlsAreNotAppliedUnlessAskedFor)
{
    auto const options = withRevocation(Revocation::NotChecked, {makeCrl(ca, {revoke(leaf)})});
    expectValid(validateLeaf(options), {leaf, ca, root});
}

TEST_F(PathValidation, MissingCrlFails)
{
    expectFailure(
        validateLeaf(withRevocation(Revocation::Leaf, {})), X509_V_ERR_UNABLE_TO_GET_CRL, 0, "CN=leaf");
    expectFailure(
        validateLeaf(withRevocation(Revocation::Leaf, {makeCrl(root)})), X509_V_ERR_UNABLE_TO_GET_CRL, 0,
        "CN=leaf");
    expectFailure(
        validateLeaf(withRevocation(Revocation::WholeChain, {makeCrl(ca)})), X509_V_ERR_UNABLE_TO_GET_CRL, 1,
        "CN=ca");
}

TEST_F(PathValidation, UnusableCrlFails)
{
    struct
    {
        char const* name;
        std::function<void(CrlSpec&)> mutate;
        int code;
    } const rows[] = {
        {"expired", [](CrlSpec& spec) { spec.nextUpdate = TimeSpec::fromNow(-1min); },
         X509_V_ERR_CRL_HAS_EXPIRED},
        {"not yet valid", [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::fromNow(1h); },
         X509_V_ERR_CRL_NOT_YET_VALID},
        {"damaged", [](CrlSpec& spec) { spec.damagedSignature = true; }, X509_V_ERR_CRL_SIGNATURE_FAILURE},
        {"by another key", [](CrlSpec& spec) { spec.signingKey = p256Key("other"); },
         X509_V_ERR_CRL_SIGNATURE_FAILURE},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const crl = makeCrl(ca, {}, row.mutate);
        expectFailure(validateLeaf(withRevocation(Revocation::Leaf, {crl})), row.code, 0, "CN=leaf");
    }
}

TEST_F(PathValidation, CrlIsJudgedAtGivenTime)
{
    auto options = withRevocation(Revocation::Leaf, {makeCrl(ca, {}, [](CrlSpec& spec) {
                                      spec.thisUpdate = TimeSpec::fromNow(-10h);
                                      spec.nextUpdate = TimeSpec::fromNow(-5h);
                                  })});
    expectFailure(validateLeaf(options), X509_V_ERR_CRL_HAS_EXPIRED, 0, "CN=leaf");
    options.time = Clock::now() - 6h;
    expectValid(validateLeaf(options), {leaf, ca, root});
}

TEST_F(PathValidation, RefusesBytesThatAreNoCrl)
{
    constexpr char const text[] = "The bytes are not a CRL in DER encoding.";
    for (auto const revocation : {Revocation::NotChecked, Revocation::Leaf}) {
        for (auto const& bytes : {Bytes(), asBytes("garbage"), leaf.der(), asBytes(toPem(makeCrl(ca)))}) {
            auto options = withRevocation(revocation, {makeCrl(ca)});
            options.crls.push_back(bytes);
            EXPECT_THROWS_EXACTLY(InvalidArgument, text, validateLeaf(options));
        }
    }
}

// Security levels

TEST_F(PathValidation, SecurityLevelRefusesWeakSignature)
{
    auto const signedWithSHA1 = [](CertificateSpec& spec) { spec.digest = EVP_sha1(); };
    EXPECT_TRUE(validateMade(signedWithSHA1, withSecurityLevel(0)).isValid());
    expectFailure(validateMade(signedWithSHA1), X509_V_ERR_CA_MD_TOO_WEAK, 0, "CN=leaf");
}

TEST_F(PathValidation, SecurityLevelRefusesWeakKeys)
{
    auto const weak = withKey(rsaKey(1024));
    EXPECT_TRUE(validateMade(weak, withSecurityLevel(1)).isValid());
    expectFailure(validateMade(weak, withSecurityLevel(2)), X509_V_ERR_EE_KEY_TOO_SMALL, 0, "CN=leaf");
    expectFailure(validateBelow(weak, withSecurityLevel(2)), X509_V_ERR_CA_KEY_TOO_SMALL, 1, "CN=ca");
    EXPECT_TRUE(validateLeaf(withSecurityLevel(3)).isValid());
    expectFailure(validateLeaf(withSecurityLevel(4)), X509_V_ERR_EE_KEY_TOO_SMALL, 0, "CN=leaf");
}

TEST_F(PathValidation, RefusesUnknownOptions)
{
    constexpr char const levelText[] = "The security level is not between 0 and 5.";
    EXPECT_THROWS_EXACTLY(InvalidArgument, levelText, validateLeaf(withSecurityLevel(-1)));
    EXPECT_THROWS_EXACTLY(InvalidArgument, levelText, validateLeaf(withSecurityLevel(6)));
    EXPECT_NO_THROW(validateLeaf(withSecurityLevel(5)));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The purpose is unknown.", validateLeaf(forPurpose(static_cast<Purpose>(6))));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The kind of revocation check is unknown.",
        validateLeaf(withRevocation(static_cast<Revocation>(3), {})));
}

// Results and error queue

TEST(PathResultTest, IsNotValidByDefault)
{
    PathResult const result;
    EXPECT_EQ(result.status, Status::Failed);
    EXPECT_FALSE(result.isValid());
}

TEST_F(PathValidation, KeepsErrorQueue)
{
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    auto const crls = withRevocation(Revocation::Leaf, {makeCrl(ca, {revoke(leaf)})});
    EXPECT_TRUE(validateLeaf().isValid());
    EXPECT_FALSE(validateLeaf(crls).isValid());
    EXPECT_FALSE(validateLeaf(forHost("other.example")).isValid());
    EXPECT_FALSE(validateMade([](CertificateSpec& spec) { spec.damagedSignature = true; }).isValid());
    EXPECT_THROW(
        validateLeaf(pathOptions([](PathOptions& options) { options.crls.push_back(asBytes("garbage")); })),
        InvalidArgument);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}
