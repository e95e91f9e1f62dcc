#pragma once

#include "support/Dice.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace foundation::test {

/// A certificate of a RandomPki.
struct Member
{
    CertificateAndKey made;
    /// Null if the library does not load the certificate.
    std::shared_ptr<certificates::X509Certificate> loaded;
    /// The CRL of its issuer; null without one.
    CrlHandle crl;
};

/// Random certificates that know each other: roots and intermediates, several of them with the same name, and
/// leaves. Many have a fault. The certificates name CRLs at http://127.0.0.1.
class RandomPki
{
public:
    /// The dice must outlive the object, and serve the later choices, too.
    explicit RandomPki(Dice& theDice);

    std::vector<Member> const& all() const { return members; }
    Member const& any() const;
    Member const& anyLoaded() const;
    /// Returns the certificates that may have issued it and its issuers, nearest first. The library loads
    /// them.
    std::vector<Member const*> issuersOf(X509Handle const& certificate) const;

    /// Returns a handle for the certificate, perhaps one that shares it with another object.
    certificates::X509Certificate handleOf(Member const& member) const;
    /// Returns the handle, too, from now on.
    void keep(certificates::X509Certificate const& handle);

    /// Returns the CRLs by their paths.
    std::map<std::string, Bytes> served() const;
    /// Returns the CRL that the certificate names; null without one.
    CrlHandle crlFor(X509Handle const& certificate) const;

private:
    void add(CertificateSpec spec, CertificateAndKey const* issuer, int faultOneIn);
    CrlHandle makeCrlOf(CertificateAndKey const& subject, CertificateAndKey const& issuer);
    void makeRoots();
    void makeIntermediates();
    void makeCrossSigned();
    void makeLeaves();
    void makeSelfIssuedLeaves();

    Dice& dice;
    std::vector<Member> members;
    std::size_t numRoots = 0;
    std::size_t numAuthorities = 0;
    std::map<Bytes, std::vector<certificates::X509Certificate>> further;
};

} // namespace foundation::test
