#include <foundation/toolkit/TLSPeer.hpp>

#include "AddressText.hpp"
#include "CertificateAccess.hpp"
#include "PeerName.hpp"
#include "RootStore.hpp"

#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstddef>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

ssl_st const* requireConnection(ssl_st const* connection)
{
    return throwIfNull<InvalidArgument>(connection, "The pointer to the TLS connection is null.");
}

ssl_ctx_st* requireContext(ssl_ctx_st* context)
{
    return throwIfNull<InvalidArgument>(context, "The pointer to the TLS context is null.");
}

/// Returns copies of the certificates in a stack, which may be null. OpenSSL keeps in a certificate that its
/// extensions could not be read. In a copy, a shortage of memory has no effect on later calls.
std::vector<Certificate> certificatesOf(STACK_OF(X509) const* stack)
{
    std::vector<Certificate> certificates;
    certificates.reserve(static_cast<std::size_t>(std::max(0, sk_X509_num(stack))));
    for (int index = 0; index < sk_X509_num(stack); ++index) {
        certificates.push_back(Certificate::fromX509(sk_X509_value(stack, index)));
    }
    return certificates;
}

/// Replaces everything that decides whether a peer is accepted.
void requirePeerIn(ssl_ctx_st* context, X509_STOREUPtr store)
{
    SSL_CTX_set_cert_store(context, store.release());
    SSL_CTX_set_cert_verify_callback(context, nullptr, nullptr);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

/// Makes the verification compare the certificate with the address, and with no name.
void expectAddress(X509_VERIFY_PARAM* parameters, ByteArray const& address)
{
    throwIfNotOne<X509CertificateException>(
        X509_VERIFY_PARAM_set1_ip(parameters, address.data(), address.size()), outOfMemoryText);
    throwIfNotOne<X509CertificateException>(
        X509_VERIFY_PARAM_set1_host(parameters, nullptr, 0), outOfMemoryText);
}

/// Makes the verification compare the certificate with the name, and with no address. An address that no
/// server has takes effect until the name does. Without it, a failure in between would leave nothing to
/// compare with.
void expectHost(X509_VERIFY_PARAM* parameters, std::string const& host)
{
    expectAddress(parameters, ByteArray{0, 0, 0, 0});
    throwIfNotOne<X509CertificateException>(
        X509_VERIFY_PARAM_set1_host(parameters, host.data(), host.size()), outOfMemoryText);
    throwIfNotOne<X509CertificateException>(
        X509_VERIFY_PARAM_set1_ip(parameters, nullptr, 0), outOfMemoryText);
}

std::string const& requireShortHost(std::string const& host)
{
    if (requireHost(host).size() > TLSEXT_MAXLEN_host_name) {
        throw InvalidArgument("The host name is longer than 255 characters.");
    }
    return requireHostForVerification(host);
}

} // namespace

std::optional<Certificate> peerCertificate(ssl_st const* connection)
{
    RAIIOpenSSLErrorRemover const errors(false);
    X509 const* const certificate = SSL_get0_peer_certificate(requireConnection(connection));
    return certificate == nullptr ? std::nullopt : std::optional(Certificate::fromX509(certificate));
}

std::vector<Certificate> peerIntermediates(ssl_st const* connection)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const leaf = peerCertificate(connection);
    std::vector<Certificate> intermediates;
    for (auto const& certificate : certificatesOf(SSL_get_peer_cert_chain(connection))) {
        if (!leaf || certificate != *leaf) {
            intermediates.push_back(certificate);
        }
    }
    return intermediates;
}

std::vector<Certificate> verifiedChain(ssl_st const* connection)
{
    RAIIOpenSSLErrorRemover const errors(false);
    // After a failed verification OpenSSL keeps the part of the chain that it has built.
    if (SSL_get_verify_result(requireConnection(connection)) != X509_V_OK) {
        return {};
    }
    return certificatesOf(SSL_get0_verified_chain(connection));
}

void requirePeerCertificate(ssl_ctx_st* context, TrustStore const& trustStore)
{
    RAIIOpenSSLErrorRemover const errors(false);
    requirePeerIn(requireContext(context), makeRootStore(trustStore));
}

void requirePeerCertificate(ssl_ctx_st* context, std::vector<Certificate> const& roots)
{
    RAIIOpenSSLErrorRemover const errors(false);
    requirePeerIn(requireContext(context), makeRootStore(roots));
}

void expectPeer(ssl_st* connection, std::string const& hostOrAddress)
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (SSL_in_before(requireConnection(connection)) != 1) {
        throw InvalidArgument("The TLS handshake has already begun.");
    }
    auto const address = addressFromText(hostOrAddress);
    char const* const sentName = address ? nullptr : requireShortHost(hostOrAddress).c_str();

    SSL_set_verify(connection, SSL_get_verify_mode(connection) | SSL_VERIFY_PEER, nullptr);
    X509_VERIFY_PARAM* const parameters = SSL_get0_param(connection);
    X509_VERIFY_PARAM_set_hostflags(
        parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    if (address) {
        expectAddress(parameters, *address);
    } else {
        expectHost(parameters, hostOrAddress);
    }
    throwIfNotOne<X509CertificateException>(SSL_set_tlsext_host_name(connection, sentName), outOfMemoryText);
}

} // namespace foundation::toolkit
