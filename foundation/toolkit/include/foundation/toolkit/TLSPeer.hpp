#pragma once

/// @file
/// The certificates of a TLS connection's peer, and the settings that make a client check its server. With
/// these two calls, the handshake fails unless the server has a trusted certificate for the host:
///
///     requirePeerCertificate(context, trustStore);
///     expectPeer(connection, "www.example.org");
///
/// Failures that are not listed at a function: X509CertificateException "Internal error: OpenSSL ran out of
/// memory." All functions leave OpenSSL's error queue as it was. OpenSSL does not allow several threads to
/// use one connection at once, and neither do these functions.

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/export.hpp>

#include <optional>
#include <string>
#include <vector>

struct ssl_ctx_st;
struct ssl_st;

namespace foundation::certificates {

class TrustStore;

} // namespace foundation::certificates

namespace foundation::toolkit {

/// Returns the peer's own certificate; nothing before the handshake, and if the peer sent no certificate. The
/// connection may have accepted the certificate without a check: see requirePeerCertificate.
/// @throws InvalidArgument "The pointer to the TLS connection is null."
FOUNDATION_TOOLKIT_EXPORT std::optional<Certificate> peerCertificate(ssl_st const* connection);

/// Returns the certificates that the peer sent besides its own, in the order in which it sent them. They are
/// unverified. Clients and servers get the same: `SSL_get_peer_cert_chain` includes the peer's own
/// certificate on the client only.
/// @throws InvalidArgument "The pointer to the TLS connection is null."
FOUNDATION_TOOLKIT_EXPORT std::vector<Certificate> peerIntermediates(ssl_st const* connection);

/// Returns the chain that the handshake verified, from the peer's own certificate to the root. Returns
/// nothing if the verification failed and the connection continued nevertheless, if the peer sent no
/// certificate, and for a resumed session, because a session does not keep the chain.
/// @throws InvalidArgument "The pointer to the TLS connection is null."
FOUNDATION_TOOLKIT_EXPORT std::vector<Certificate> verifiedChain(ssl_st const* connection);

/// Makes the handshakes of the context's new connections fail unless the peer has a certificate with a chain
/// to a root of the trust store. Call it on a client's context, or on a server's to demand client
/// certificates.
///
/// Replaces the context's store with a copy of the trust store, so that later changes of the trust store have
/// no effect. Removes the context's verify callbacks (`SSL_CTX_set_verify`,
/// `SSL_CTX_set_cert_verify_callback`), which could accept other peers. **An empty trust store trusts
/// nobody.** So does one that was moved from. An exception leaves the context as it was.
///
/// This checks no host name: see expectPeer. A server that resumes sessions also needs
/// `SSL_CTX_set_session_id_context`.
/// @throws InvalidArgument "The pointer to the TLS context is null."
/// @throws TrustStoreException as copyOpenSSLStore does
FOUNDATION_TOOLKIT_EXPORT void
requirePeerCertificate(ssl_ctx_st* context, foundation::certificates::TrustStore const& trustStore);

/// As above, with roots of any key. As with a trust store, only a self-signed certificate ends a chain.
/// @throws InvalidArgument "The pointer to the TLS context is null."
FOUNDATION_TOOLKIT_EXPORT void
requirePeerCertificate(ssl_ctx_st* context, std::vector<Certificate> const& roots);

/// Makes the handshake fail unless the server's certificate is issued for this host name or IP address. Call
/// it on a client's connection before the handshake.
///
/// The name must match a subject alternative name. The common name is never used, and a wildcard matches only
/// as the whole leftmost label. A host name is also sent to the server (server name indication); an address
/// is not. Replaces a name or address that was expected before. The connection then requires a verified
/// certificate (`SSL_VERIFY_PEER`), even without requirePeerCertificate. Do not use the connection after an
/// exception.
/// @throws InvalidArgument "The pointer to the TLS connection is null.", "The TLS handshake has
///     already begun."
/// @throws InvalidArgument "The host name is empty.", "The host name contains a NUL character.", "The host
///     name is not ASCII. Write an international name in its A-labels.", "The host name begins with a dot.",
///     "The host name is longer than 255 characters."
/// @throws InvalidArgument "OpenSSL refuses the host name.": OpenSSL 4 takes only what can be a host name, so
///     it refuses a dot at the end
FOUNDATION_TOOLKIT_EXPORT void expectPeer(ssl_st* connection, std::string const& hostOrAddress);

} // namespace foundation::toolkit
