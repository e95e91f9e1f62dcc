#include "seeds/Seeds.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

using test::Bytes;
using test::CertificateSpec;
using test::TimeSpec;

namespace {

struct Kind
{
    char const* name;
    test::Mutation mutate;
};

std::vector<Kind> kindsOfKeys()
{
    auto const withKey = [](test::KeyHandle const& key) {
        return [key](CertificateSpec& spec) { spec.key = key; };
    };
    return {
        {"p256", {}},
        {"rsa1024", withKey(test::rsaKey(1024))},
        {"rsa2048", withKey(test::rsaKey(2048))},
        {"rsa1023", withKey(test::rsaKey(1023))},
        {"rsa-pss-key", withKey(test::rsaPssKey(2048))},
        {"ed25519", withKey(test::ed25519Key())},
        {"ed448", withKey(test::ed448Key())},
        {"p384", withKey(test::p384Key())},
        {"explicit-curve", withKey(test::explicitP256Key())},
        {"dsa", withKey(test::dsaKey())},
        {"damaged-key",
         [](CertificateSpec& spec) { spec.publicKeyFault = test::PublicKeyFault::Undecodable; }},
        {"unknown-key",
         [](CertificateSpec& spec) { spec.publicKeyFault = test::PublicKeyFault::UnknownType; }},
        {"pss-signature",
         [](CertificateSpec& spec) {
             spec.key = test::rsaKey(1024);
             spec.pssSignature = true;
         }},
        {"damaged-signature", [](CertificateSpec& spec) { spec.damagedSignature = true; }},
    };
}

std::vector<Kind> kindsOfFields()
{
    auto const withSubject = [](test::Name const& name) {
        return [name](CertificateSpec& spec) { spec.subject = name; };
    };
    auto const withTimes = [](TimeSpec const& from, TimeSpec const& to) {
        return [from, to](CertificateSpec& spec) {
            spec.notBefore = from;
            spec.notAfter = to;
        };
    };
    return {
        {"no-subject", withSubject({})},
        {"many-attributes",
         withSubject(
             {{"C", "DE", V_ASN1_PRINTABLESTRING}, {"OU", "one"}, {"OU", "two"}, {"CN", "a"}, {"CN", "b"}})},
        {"strings", withSubject(
                        {{"O", std::string("\0\xFC\x20\xAC", 4), V_ASN1_BMPSTRING},
                         {"OU", std::string("\0\0\0A", 4), V_ASN1_UNIVERSALSTRING},
                         {"L", "t61", V_ASN1_T61STRING},
                         {"1.2.3.4", "unknown"},
                         {"CN", std::string("n\0l", 3)}})},
        {"escaped", withSubject({{"CN", " #,+\"\\<>;\xC3\xBC "}})},
        {"years-1950-2049", withTimes(TimeSpec::at(-631152000), TimeSpec::at(2524607999))},
        {"years-1949-9999", withTimes(TimeSpec::at(-631152001), TimeSpec::at(253402300799))},
        {"broken-times",
         withTimes(
             TimeSpec::raw(V_ASN1_UTCTIME, "never"), TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "20260101Z"))},
        {"long-serial",
         [](CertificateSpec& spec) { spec.serialNumber = "0x010000000000000000000000000000000000000000"; }},
        {"negative-serial", [](CertificateSpec& spec) { spec.serialNumber = "-0x80"; }},
        {"version1",
         [](CertificateSpec& spec) {
             spec.version = X509_VERSION_1;
             spec.extensions.clear();
         }},
    };
}

std::vector<Kind> kindsOfExtensions()
{
    auto const with = [](char const* name, char const* text) {
        return [=](CertificateSpec& spec) { spec.setExtension(name, text); };
    };
    return {
        {"code-signing",
         [](CertificateSpec& spec) {
             spec.setExtension("keyUsage", "critical,digitalSignature");
             spec.setExtension("extendedKeyUsage", "serverAuth,codeSigning,1.2.3.4.5");
         }},
        {"policies", with("certificatePolicies", "1.2.3.4,2.5.29.32.0")},
        {"names",
         with("subjectAltName", "DNS:a.example,IP:192.0.2.1,email:a@b.example,URI:http://a/,RID:1.2.3")},
        {"constraints", with("nameConstraints", "permitted;DNS:.example,excluded;IP:10.0.0.0/255.0.0.0")},
        {"path-length", with("basicConstraints", "critical,CA:TRUE,pathlen:0")},
        {"unknown-critical", with("1.2.3.4", "critical,DER:0500")},
        {"netscape", with("nsCertType", "sslCA,objCA")},
        {"two-points",
         [](CertificateSpec& spec) {
             spec.setDistributionPoints({"http://127.0.0.1/a.crl", "ldap://b/", "http://[::1]:8080/c"});
         }},
        {"broken-extension",
         [](CertificateSpec& spec) {
             spec.setRawExtension("keyUsage", {0x30, 0x05});
         }},
    };
}

} // namespace

Seeds certificatesOfManyKinds()
{
    Seeds seeds;
    for (auto const& kinds : {kindsOfKeys(), kindsOfFields(), kindsOfExtensions()}) {
        for (auto const& [name, mutate] : kinds) {
            seeds[name] = test::makeRoot("seed", mutate).der();
        }
    }
    auto const root = test::makeRoot("root");
    auto const intermediate = test::makeIntermediate(root, "intermediate");
    seeds["intermediate"] = intermediate.der();
    seeds["leaf"] = test::makeLeaf(intermediate, "leaf").der();
    return seeds;
}

Seeds certificateSeeds()
{
    Seeds seeds = certificatesOfManyKinds();
    auto const pem = test::makeRoot("seed").pem();
    seeds["pem"] = bytesOf(pem);
    seeds["pem-within-text"] = bytesOf("comment\n" + pem + pem);
    seeds["pem-windows-lines"] =
        bytesOf("-----BEGIN CERTIFICATE-----\r\nMAA=\r\n-----END CERTIFICATE-----\r\n");
    seeds["pem-not-at-line-start"] = bytesOf("x" + pem);
    seeds["pem-other-label"] =
        bytesOf("-----BEGIN TRUSTED CERTIFICATE-----\nMAA=\n-----END TRUSTED CERTIFICATE-----\n");
    seeds["pem-encrypted"] = bytesOf(
        "-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\nDEK-Info: DES-EDE3-CBC,0011223344556677\n\n"
        "MAAA\n-----END CERTIFICATE-----\n");
    return seeds;
}

} // namespace foundation::fuzz
