#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include "support/Text.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestKeys.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <exception>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

class Inspect : public FoundationCerts
{
protected:
    /// Returns a file with a certificate whose only alternative name is the DNS name.
    std::string fileWithName(std::string const& name) const
    {
        constexpr int dnsNameTag = 0x82;
        auto const content = derElement(sequenceTag, derElement(dnsNameTag, asBytes(name)));
        auto const made = makeLeaf(intermediate, "leaf", [&](CertificateSpec& spec) {
            spec.setRawExtension("subjectAltName", content);
        });
        return write("named.pem", made.pem());
    }
};

/// Replaces the exponent of the certificate's RSA key by 0, and appends bytes to the key.
void removeExponent(X509* certificate, Bytes const& appended)
{
    constexpr std::ptrdiff_t sizeOfExponent = 5; // 2, 3, 1, 0, 1
    constexpr std::size_t sizeOfSequence = 3;    // the position of the low byte
    auto const* const bits = X509_get0_pubkey_bitstr(certificate);
    auto const* const begin = ASN1_STRING_get0_data(bits);
    Bytes key(begin, begin + ASN1_STRING_length(bits) - sizeOfExponent);
    key.insert(key.end(), {2, 1, 0});
    key.at(sizeOfSequence) = static_cast<unsigned char>(key.at(sizeOfSequence) - 2);
    key.insert(key.end(), appended.begin(), appended.end());
    auto* const owned = static_cast<unsigned char*>(OPENSSL_memdup(key.data(), key.size()));
    ASSERT_EQ(
        X509_PUBKEY_set0_param(
            changeable(X509_get_X509_PUBKEY(certificate)), OBJ_nid2obj(NID_rsaEncryption), V_ASN1_NULL,
            nullptr, owned, static_cast<int>(key.size())),
        1);
}

/// ESC ], a line end, a byte that is not UTF-8, and the character that turns the direction of writing.
constexpr char const hostileName[] = "a\x1b]0;b\nc\xff\u202e";

} // namespace

TEST_F(Inspect, PrintsCertificate)
{
    auto const run = foundationCerts({"inspect", leafFile()});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, leafFile() + " #1: CN=leaf\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Issuer:           CN=intermediate\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Key:              prime256v1, 256 bits\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Names:            DNS:leaf.example\n")) << run.output;
    EXPECT_FALSE(contains(run.output, "Refused")) << run.output;
}

TEST_F(Inspect, SaysWhatTheLibraryRefuses)
{
    auto const run = foundationCerts({"inspect", intermediateFile()});

    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(contains(run.output, "  Refused:          ")) << run.output;
}

TEST_F(Inspect, RefusesWhatTheLibraryRefuses)
{
    std::vector<CertificateAndKey> made;
    std::vector<KeyHandle> keys{rsaKey(),  rsaKey(512),  rsaPssKey(), p256Key(), explicitP256Key(),
                                p384Key(), ed25519Key(), ed448Key(),  dsaKey()};
    if (acceptsNamelessCurves()) {
        keys.push_back(namelessCurveKey());
    }
    for (auto const& key : keys) {
        for (auto const* const name : {"first", "second"}) {
            made.push_back(makeSelfSignedLeaf(name, [&](CertificateSpec& spec) { spec.key = key; }));
        }
    }
    for (auto const fault : {PublicKeyFault::Undecodable, PublicKeyFault::UnknownType}) {
        made.push_back(
            makeSelfSignedLeaf("odd", [&](CertificateSpec& spec) { spec.publicKeyFault = fault; }));
    }
    for (auto const& appended : {Bytes{}, Bytes{1}}) {
        made.push_back(makeSelfSignedLeaf("no exponent", [&](CertificateSpec& spec) {
            spec.key = rsaKey();
            spec.beforeSigning = [&](X509* certificate) { removeExponent(certificate, appended); };
        }));
    }
    auto const run = foundationCerts({"inspect", "--json", write("all.pem", toPemBundle(made))});

    auto const records = jsonLines(run.output, "inspect");
    ASSERT_EQ(records.size(), made.size());
    for (std::size_t number = 0; number < made.size(); ++number) {
        std::string reason;
        try {
            X509Certificate const loaded(made[number].der());
        } catch (std::exception const& refusal) {
            reason = refusal.what();
        }
        EXPECT_EQ(records[number].value("refused", ""), reason) << records[number];
    }
}

TEST_F(Inspect, WritesDocumentedJson)
{
    auto const file = write("both.pem", leaf.pem() + intermediate.pem());
    auto const run = foundationCerts({"inspect", "--json", file});

    EXPECT_EQ(run.exitStatus, 1);
    auto const records = jsonLines(run.output, "inspect");
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].at("index"), 1);
    EXPECT_EQ(records[0].at("subject"), "CN=leaf");
    EXPECT_EQ(records[0].at("alternativeNames"), nlohmann::json({"DNS:leaf.example"}));
    EXPECT_FALSE(records[0].contains("refused"));
    EXPECT_EQ(records[1].at("keyKind"), "secp384r1");
    EXPECT_NE(records[1].at("refused"), "");
}

TEST_F(Inspect, EscapesNamesForTerminals)
{
    auto const run = foundationCerts({"inspect", fileWithName(hostileName)});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(contains(run.output, "  Names:            DNS:a\\x1b]0;b\\nc\\xff\\u202e\n")) << run.output;
}

TEST_F(Inspect, EscapesOnlyInvalidBytesInJson)
{
    auto const run = foundationCerts({"inspect", "--json", fileWithName(hostileName)});

    EXPECT_EQ(run.exitStatus, 0);
    auto const records = jsonLines(run.output, "inspect");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].at("alternativeNames"), nlohmann::json({"DNS:a\x1b]0;b\nc\\xff\u202e"}));
}

TEST_F(Inspect, ShowsTimesThatTheClockCannotHold)
{
    constexpr std::int64_t endOf9999 = 253402300799;
    auto const made =
        makeRoot("eternal", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::at(endOf9999); });
    auto const run = foundationCerts({"inspect", write("eternal.pem", made.pem())});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(contains(run.output, " to 9999-12-31T23:59:59Z\n")) << run.output;
}
