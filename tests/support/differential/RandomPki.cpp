#include "support/differential/RandomPki.hpp"

#include "support/operations/Loading.hpp"
#include "support/pki/TestKeys.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <algorithm>
#include <utility>

namespace foundation::test {

using namespace certificates;
using namespace std::chrono_literals;

namespace {

KeyHandle anyKey(Dice& dice)
{
    auto const name = std::to_string(dice.below(6));
    return dice.oneIn(3) ? p256Key(name) : ed25519Key(name);
}

/// Other spellings of a name that OpenSSL treats as equal.
Name spelled(Dice& dice, std::string name)
{
    if (dice.oneIn(5)) {
        std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
            return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
        });
    }
    if (dice.oneIn(8)) {
        name = "  " + name + " ";
    }
    auto spelling = commonName(name);
    if (dice.oneIn(5)) {
        spelling.front().type = V_ASN1_PRINTABLESTRING;
    }
    return spelling;
}

void repeatExtensions(CertificateSpec& spec)
{
    spec.extensions.push_back({"keyUsage", "critical,keyCertSign,cRLSign"});
}

std::vector<Mutation> const& faults()
{
    static std::vector<Mutation> const all = {
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); },
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-48h); },
        [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); },
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(24h * 700); },
        [](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); },
        [](CertificateSpec& spec) { spec.damagedSignature = true; },
        [](CertificateSpec& spec) { spec.signingKey = p256Key("unrelated"); },
        [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "critical,CA:TRUE,pathlen:0"); },
        [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "critical,CA:FALSE"); },
        [](CertificateSpec& spec) { spec.setExtension("keyUsage", "critical,digitalSignature"); },
        [](CertificateSpec& spec) { spec.setExtension("nameConstraints", "critical,permitted;DNS:good"); },
        [](CertificateSpec& spec) { spec.setExtension("nameConstraints", "critical,excluded;DNS:good"); },
        [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "codeSigning"); },
        [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "serverAuth"); },
        [](CertificateSpec& spec) {
            spec.setRawExtension("1.3.6.1.4.1.99999.7", {5, 0}, true);
        },
        [](CertificateSpec& spec) {
            spec.setRawExtension("keyUsage", {0x30, 0x05, 0x01}, true);
        },
        [](CertificateSpec& spec) { spec.removeExtension("subjectKeyIdentifier"); },
        [](CertificateSpec& spec) {
            spec.version = X509_VERSION_1;
            spec.extensions.clear();
        },
        [](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::Undecodable; },
        repeatExtensions,
    };
    return all;
}

/// The path of the CRL for the certificate with this number.
std::string pathOf(std::size_t number)
{
    return "/" + std::to_string(number) + ".crl";
}

} // namespace

RandomPki::RandomPki(Dice& theDice) : dice(theDice)
{
    makeRoots();
    makeIntermediates();
    makeCrossSigned();
    makeLeaves();
    makeSelfIssuedLeaves();
}

Member const& RandomPki::any() const
{
    return dice.pick(members);
}

Member const& RandomPki::anyLoaded() const
{
    for (;;) {
        auto const& member = any();
        if (member.loaded != nullptr) {
            return member;
        }
    }
}

std::vector<Member const*> RandomPki::issuersOf(X509Handle const& certificate) const
{
    constexpr std::size_t maxDepth = 5;
    std::vector<Member const*> issuers;
    for (auto current = certificate; issuers.size() < maxDepth; current = issuers.back()->made.certificate) {
        auto const* const wanted = X509_get_issuer_name(current.get());
        auto const found = std::find_if(members.begin(), members.end(), [&](Member const& other) {
            return other.loaded != nullptr && other.made.certificate != current &&
                   X509_NAME_cmp(X509_get_subject_name(other.made.certificate.get()), wanted) == 0;
        });
        if (found == members.end()) {
            break;
        }
        issuers.push_back(&*found);
    }
    return issuers;
}

X509Certificate RandomPki::handleOf(Member const& member) const
{
    auto const found = further.find(member.made.der());
    return found == further.end() || dice.oneIn(2) ? *member.loaded : dice.pick(found->second);
}

void RandomPki::keep(X509Certificate const& handle)
{
    auto& handles = further[handle.getAsBytes()];
    if (handles.size() < 6) {
        handles.push_back(handle);
    }
}

std::map<std::string, Bytes> RandomPki::served() const
{
    std::map<std::string, Bytes> files;
    for (std::size_t number = 0; number < members.size(); ++number) {
        if (members[number].crl != nullptr) {
            files[pathOf(number)] = toDer(members[number].crl);
        }
    }
    return files;
}

CrlHandle RandomPki::crlFor(X509Handle const& certificate) const
{
    auto const der = toDer(certificate);
    for (auto const& member : members) {
        if (member.made.der() == der) {
            return member.crl;
        }
    }
    return nullptr;
}

void RandomPki::add(CertificateSpec spec, CertificateAndKey const* issuer, int faultOneIn)
{
    if (issuer != nullptr) {
        spec.setDistributionPoints({"http://127.0.0.1" + pathOf(members.size())});
    }
    if (dice.oneIn(faultOneIn)) {
        dice.pick(faults())(spec);
    }
    Member member;
    member.made = make(spec);
    try {
        member.loaded = std::make_shared<X509Certificate>(load(member.made));
    } catch (CertificateException const&) {
        // The library does not accept the key. An OpenSSL store does.
    }
    if (issuer != nullptr && !dice.oneIn(16)) {
        member.crl = makeCrlOf(member.made, *issuer);
    }
    members.push_back(std::move(member));
}

CrlHandle RandomPki::makeCrlOf(CertificateAndKey const& subject, CertificateAndKey const& issuer)
{
    std::vector<RevokedEntry> revoked = {{"1", TimeSpec::fromNow(-2h), {}}};
    if (dice.oneIn(4)) {
        revoked.push_back(revoke(subject));
    }
    return makeCrl(issuer, revoked, [&](CrlSpec& spec) {
        if (dice.oneIn(16)) {
            spec.nextUpdate = TimeSpec::fromNow(-1h);
        } else if (dice.oneIn(16)) {
            spec.damagedSignature = true;
        }
    });
}

void RandomPki::makeRoots()
{
    for (auto const* name : {"alpha", "beta", "gamma"}) {
        for (int left = 1 + dice.below(4); left > 0; --left) {
            auto spec = rootSpec(name);
            spec.subject = spelled(dice, name);
            spec.key = dice.oneIn(3) ? anyKey(dice) : ed25519Key(name);
            add(spec, nullptr, 3);
        }
    }
    if (dice.oneIn(3)) {
        auto weak = rootSpec("alpha");
        weak.key = rsaKey(512);
        add(weak, nullptr, 100);
    }
    numRoots = members.size();
}

void RandomPki::makeIntermediates()
{
    for (int left = 6; left > 0; --left) {
        auto const issuer = members[dice.indexIn(members.size())].made;
        auto const name = "middle " + std::to_string(dice.below(4));
        auto spec = intermediateSpec(issuer, name);
        spec.subject = spelled(dice, name);
        spec.key = dice.oneIn(3) ? anyKey(dice) : ed25519Key(name);
        add(spec, &issuer, 3);
    }
    numAuthorities = members.size();
}

/// Makes intermediates with the names and keys of roots.
void RandomPki::makeCrossSigned()
{
    for (int left = 3; left > 0; --left) {
        auto const issuer = members[dice.indexIn(members.size())].made;
        auto const root = members[dice.indexIn(numRoots)].made;
        auto spec = intermediateSpec(issuer, "");
        spec.key = root.key;
        spec.subject = spelled(dice, "alpha");
        spec.beforeSigning = [root](X509* certificate) {
            require(X509_set_subject_name(certificate, X509_get_subject_name(root.certificate.get())));
        };
        add(spec, &issuer, 5);
    }
    numAuthorities = members.size();
}

void RandomPki::makeLeaves()
{
    for (int left = 6; left > 0; --left) {
        auto const issuer = members[dice.indexIn(numAuthorities)].made;
        auto spec = leafSpec(issuer, "leaf " + std::to_string(left));
        spec.key = anyKey(dice);
        spec.setExtension("subjectAltName", dice.oneIn(2) ? "DNS:good" : "DNS:bad");
        if (dice.oneIn(4)) {
            spec.setExtension("extendedKeyUsage", "emailProtection");
        }
        add(spec, &issuer, 3);
    }
}

/// Makes leaves that are named as their issuer, and signed with the issuer's key, another key, or their own.
void RandomPki::makeSelfIssuedLeaves()
{
    auto selfSigned = rootSpec("self-signed leaf");
    selfSigned.setExtension("basicConstraints", "critical,CA:FALSE");
    selfSigned.setExtension("keyUsage", "critical,digitalSignature");
    add(selfSigned, nullptr, 3);
    for (int left = 2; left > 0; --left) {
        auto const issuer = members[dice.indexIn(numRoots)].made;
        auto spec = leafSpec(issuer, "self-issued leaf");
        spec.key = dice.oneIn(2) ? issuer.key : anyKey(dice);
        spec.beforeSigning = [issuer](X509* certificate) {
            require(X509_set_subject_name(certificate, X509_get_subject_name(issuer.certificate.get())));
        };
        add(spec, &issuer, 4);
    }
}

} // namespace foundation::test
