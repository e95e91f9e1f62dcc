#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Properties.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/pki/TestKeys.hpp"

#include <foundation/toolkit/Issuance.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// Loads a certificate request and issues a certificate for it. Bare OpenSSL reads the same request. The input
// is the request, followed by a byte of options.

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::InvalidArgument;
using test::Bytes;
using toolkit::Certificate;
using toolkit::CertificateRequest;
using toolkit::EndEntityCertificateBuilder;
using toolkit::SecretString;

using RequestHandle = std::shared_ptr<X509_REQ>;

/// Returns the request that all bytes hold; null for any other bytes.
RequestHandle parsed(Bytes const& der)
{
    unsigned char const* position = der.data();
    RequestHandle request(d2i_X509_REQ(nullptr, &position, static_cast<long>(der.size())), X509_REQ_free);
    clearErrorQueue();
    return position == der.data() + der.size() ? request : nullptr;
}

/// Returns the request with a fixed key and a new signature. Otherwise almost no changed input had a valid
/// one.
Bytes signedAnew(Bytes der)
{
    auto const request = parsed(der);
    auto const key = fixedKey("leaf");
    if (request != nullptr && X509_REQ_set_pubkey(request.get(), key.get()) == 1 &&
        X509_REQ_sign(request.get(), key.get(), EVP_sha256()) > 0) {
        der = test::encodedBy(i2d_X509_REQ, request.get());
    }
    clearErrorQueue();
    return der;
}

/// Runs the callable with a stale entry in OpenSSL's error queue. Nothing may be added to it. A damaged key
/// can cause more errors than the queue has places, and then the stale entry is lost. Returns false after
/// InvalidArgument. Aborts for any other exception.
template <typename Callable>
bool isAccepted(Callable&& callable)
{
    queueStaleError();
    bool accepted = false;
    try {
        callable();
        accepted = true;
    } catch (InvalidArgument const&) {
        accepted = false;
    } catch (...) {
        failOnException("a request is refused with InvalidArgument");
    }
    requireNothingQueued("after an operation on a request");
    clearErrorQueue();
    return accepted;
}

bool verifies(RequestHandle const& request)
{
    EVP_PKEY* const key = X509_REQ_get0_pubkey(request.get());
    bool const valid = key != nullptr && X509_REQ_verify(request.get(), key) == 1;
    clearErrorQueue();
    return valid;
}

void checkQueries(CertificateRequest const& request, RequestHandle const& reference)
{
    require(
        request.isSignatureValid() == verifies(reference), "the signature is valid if OpenSSL verifies it");
    auto const pem = request.getAsPEM();
    std::optional<CertificateRequest> reloaded;
    require(
        isAccepted([&] { reloaded.emplace(CertificateRequest::fromPEM(pem)); }), "written text loads again");
    require(reloaded->getAsPEM() == pem, "a request that was loaded again is the same");
    require(reloaded->getSubject() == request.getSubject(), "the subject stays the same");
    require(
        reloaded->getAlternativeNames() == request.getAlternativeNames(),
        "the alternative names stay the same");
}

struct Authority
{
    Certificate certificate = Certificate::fromDER(fixedPki().ca.der());
    SecretString key{test::toPem(fixedPki().ca.key)};
};

Authority const& authority()
{
    static Authority const ca;
    return ca;
}

/// Whether the chain passes the strict checks. A key that OpenSSL accepts in requests may be too weak
/// otherwise.
bool passesStrictChecks(Certificate const& certificate)
{
    static toolkit::PathValidator const validator(
        std::vector<Certificate>{Certificate::fromDER(fixedPki().root.der())});
    return validator.validate(certificate, {authority().certificate}).isValid();
}

void checkIssuing(CertificateRequest const& request, RequestHandle const& reference)
{
    EndEntityCertificateBuilder builder;
    if (!isAccepted([&] { builder.fromRequest(request); })) {
        return;
    }
    require(verifies(reference), "only a request with a valid signature is accepted");
    std::optional<Certificate> certificate;
    if (!isAccepted([&] {
            certificate.emplace(builder.signBy(authority().certificate, authority().key, request));
        })) {
        return;
    }
    require(!certificate->isCA(), "the certificate is no CA");
    require(certificate->getSubject() == request.getSubject(), "the subject is that of the request");
    require(
        certificate->getAlternativeNames() == request.getAlternativeNames(),
        "the alternative names are those of the request");
    require(passesStrictChecks(*certificate), "the certificate passes the strict checks");
}

void check(Bytes const& der)
{
    auto const reference = parsed(der);
    std::optional<CertificateRequest> request;
    if (isAccepted([&] { request.emplace(CertificateRequest::fromDER(der)); })) {
        require(reference != nullptr, "a request loads only if OpenSSL reads all its bytes");
        checkQueries(*request, reference);
        checkIssuing(*request, reference);
    }
    std::string const text(der.begin(), der.end());
    isAccepted([&] { CertificateRequest::fromPEM(text); });
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace foundation::fuzz;
    if (size > 0) {
        bool const signsAnew = (data[size - 1] & request_option::signsAnew) != 0;
        foundation::test::Bytes const der(data, data + size - 1);
        check(signsAnew ? signedAnew(der) : der);
    }
    return 0;
}
