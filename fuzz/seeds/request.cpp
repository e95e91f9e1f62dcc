#include "seeds/Seeds.hpp"

#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

namespace foundation::fuzz {

namespace {

using test::Bytes;
using test::derElement;
using test::joined;

using RequestHandle = std::shared_ptr<X509_REQ>;

Bytes seed(unsigned options, Bytes request)
{
    request.push_back(static_cast<unsigned char>(options));
    return request;
}

/// Returns an extension request with the alternative names, each a whole DER element.
Bytes extensionsWith(std::vector<Bytes> const& names)
{
    auto const content = derElement(test::sequenceTag, joined(names));
    Bytes const subjectAltName{0x06, 0x03, 0x55, 0x1D, 0x11};
    return derElement(
        test::sequenceTag,
        derElement(test::sequenceTag, joined({subjectAltName, derElement(test::octetStringTag, content)})));
}

RequestHandle requestFor(
    test::Name const& subject, test::KeyHandle const& key, std::vector<Bytes> const& names = {},
    int attribute = NID_ext_req)
{
    RequestHandle request(X509_REQ_new(), X509_REQ_free);
    test::require(X509_REQ_set_subject_name(request.get(), test::makeName(subject).get()));
    test::require(X509_REQ_set_pubkey(request.get(), key.get()));
    if (!names.empty()) {
        auto const extensions = extensionsWith(names);
        test::require(X509_REQ_add1_attr_by_NID(
            request.get(), attribute, V_ASN1_SEQUENCE, extensions.data(),
            static_cast<int>(extensions.size())));
    }
    auto const* const digest = EVP_PKEY_is_a(key.get(), "ED25519") == 1 ? nullptr : EVP_sha256();
    test::require(X509_REQ_sign(request.get(), key.get(), digest));
    return request;
}

Bytes derOf(RequestHandle const& request)
{
    return test::encodedBy(i2d_X509_REQ, request.get());
}

} // namespace

Seeds requestSeeds()
{
    using request_option::signsAnew;
    constexpr unsigned asItIs = 0;
    auto const subject = test::commonName("leaf");
    auto const key = fixedKey("leaf");
    Bytes const dns = derElement(0x82, bytesOf("leaf.example"));
    std::vector<Bytes> const names{
        dns,
        derElement(0x81, bytesOf("leaf@leaf.example")),
        derElement(0x86, bytesOf("https://leaf.example/")),
        derElement(0x87, {192, 0, 2, 1}),
        derElement(0x87, Bytes(16, 1)),
    };
    auto const registeredId = derElement(0x88, {42, 3, 4});
    test::Name const longSubject{
        {"C", "SE", V_ASN1_PRINTABLESTRING},
        {"O", "Example"},
        {"CN", "a"},
        {"CN", std::string("\0b", 2), V_ASN1_BMPSTRING}};
    return {
        {"plain", seed(asItIs, derOf(requestFor(subject, key)))},
        {"plain_anew", seed(signsAnew, derOf(requestFor(subject, key)))},
        {"names", seed(signsAnew, derOf(requestFor(subject, key, names)))},
        {"names_alone", seed(signsAnew, derOf(requestFor({}, key, {dns})))},
        {"names_in_the_old_attribute",
         seed(signsAnew, derOf(requestFor(subject, key, {dns}, NID_ms_ext_req)))},
        {"other_name", seed(signsAnew, derOf(requestFor(subject, key, {registeredId})))},
        {"long_subject", seed(signsAnew, derOf(requestFor(longSubject, key)))},
        {"rsa", seed(asItIs, derOf(requestFor(subject, test::rsaKey())))},
        {"ed25519", seed(asItIs, derOf(requestFor(subject, test::ed25519Key())))},
        {"explicit_curve", seed(asItIs, derOf(requestFor(subject, test::explicitP256Key())))},
        {"certificate", seed(asItIs, fixedPki().leaf.der())},
        {"text", seed(asItIs, test::writtenBy(PEM_write_bio_X509_REQ, requestFor(subject, key).get()))},
        {"empty", seed(asItIs, {})},
    };
}

} // namespace foundation::fuzz
