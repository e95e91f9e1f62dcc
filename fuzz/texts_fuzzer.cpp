/// The toolkit's readers of text: names of servers, reports of failed validations, and private keys. The last
/// byte of the input chooses the reader.

#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Properties.hpp"

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/Issuance.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace foundation::fuzz {

namespace {

using certificates::CertificateChainStatus;
using certificates::CertificateValidationResults;
using toolkit::Certificate;
using toolkit::EndEntityCertificateBuilder;
using toolkit::SecretString;

Certificate const& namedCertificate()
{
    static auto const certificate = Certificate::fromDER(
        test::makeRoot("named", [](test::CertificateSpec& spec) {
            fixed("named", "1")(spec);
            spec.setExtension(
                "subjectAltName", "DNS:www.example,DNS:*.wild.example,IP:192.0.2.1,IP:2001:db8::1");
        }).der());
    return certificate;
}

std::shared_ptr<SSL> newConnection()
{
    static std::shared_ptr<SSL_CTX> const context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    return {SSL_new(context.get()), SSL_free};
}

/// Returns the answer, or nothing if the text is refused.
std::optional<bool> answerOf(bool (Certificate::*query)(std::string const&) const, std::string const& text)
{
    std::optional<bool> answer;
    queueStaleError();
    succeeds([&] { answer = (namedCertificate().*query)(text); });
    requireStaleErrorAlone("after a name was matched");
    return answer;
}

void checkName(std::string const& text)
{
    auto* const certificate = const_cast<X509*>(namedCertificate().getX509());
    auto const host = answerOf(&Certificate::matchesHost, text);
    auto const address = answerOf(&Certificate::matchesAddress, text);
    constexpr unsigned flags = X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;
    if (host) {
        require(
            *host == (X509_check_host(certificate, text.data(), text.size(), flags, nullptr) == 1),
            "a host matches as OpenSSL says");
    }
    if (address) {
        require(
            *address == (X509_check_ip_asc(certificate, text.c_str(), 0) == 1),
            "an address matches as OpenSSL says");
    }
    constexpr std::size_t longestHost = 255;
    auto const connection = newConnection();
    bool const isExpected = succeeds([&] { toolkit::expectPeer(connection.get(), text); });
    require(
        isExpected == (address || (host && text.size() <= longestHost)),
        "exactly a name that can be matched is expected of a server");
    clearErrorQueue();
}

void checkReport(std::string const& text)
{
    for (int number = 0; number <= static_cast<int>(CertificateChainStatus::Failed); ++number) {
        auto const status = static_cast<CertificateChainStatus>(number);
        auto const explanation = mustSucceed("every report is explained", [&] {
            return toolkit::explain(CertificateValidationResults(status, text));
        });
        require(!explanation.message.empty(), "an explanation has a message");
        require(text.find(explanation.subject) != std::string::npos, "the subject comes from the report");
    }
    mustSucceed("every failure is explained", [&] { toolkit::explain(std::runtime_error(text)); });
}

void checkKey(std::string const& text)
{
    std::optional<Certificate> certificate;
    queueStaleError();
    succeeds([&] {
        certificate = EndEntityCertificateBuilder().withSubject({{"CN", "key"}}).signSelf(SecretString(text));
    });
    requireStaleErrorAlone("after a key was read");
    require(
        !certificate || certificate->isIssuedBy(*certificate), "the key signs, and its public part verifies");
    clearErrorQueue();
}

void check(std::string const& text, unsigned option)
{
    switch (option % text_option::count) {
    case text_option::name:
        return checkName(text);
    case text_option::report:
        return checkReport(text);
    default:
        return checkKey(text);
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > 0) {
        foundation::fuzz::check(std::string(data, data + size - 1), data[size - 1]);
    }
    return 0;
}
