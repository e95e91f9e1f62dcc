#pragma once

#include "support/Dice.hpp"
#include "support/differential/RandomPki.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/TLSHandshake.hpp"

#include <foundation/certificates/TrustStore.hpp>

#include <openssl/x509_vfy.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// A trust store, and a bare OpenSSL store with the same history.
struct Twins
{
    std::unique_ptr<certificates::TrustStore> store;
    StoreHandle reference;
    /// What the store's adder delivers.
    std::vector<Bytes> delivered;
    /// The owners of the live store outside of the library, and contexts that use it.
    std::vector<StoreHandle> outside;
    std::vector<TLSContextHandle> contexts;

    /// Whether the store holds only certificates and CRLs.
    bool canBeCopied() const;
    void addToReference(Member const& member) const;
    void add(Member const& member, certificates::X509Certificate const& handle) const;
    /// Adds what the adder delivers, and removes what does not fit TLS servers.
    void filterStore() const;
    void filterReference() const;
    /// Returns all entries.
    std::string describe() const;
};

/// Stores with random histories: filled, copied, handed out, changed behind the library's back. Expects of
/// each event that both twins show the same.
class TwinStores
{
public:
    /// The arguments must outlive the object.
    TwinStores(Dice& theDice, RandomPki& thePki);

    /// Starts again with one store.
    void renew();
    /// Lets something happen to one of the stores, or between two of them.
    void happen();

    std::vector<Twins>& all() { return twins; }
    Twins& any() { return dice.pick(twins); }

private:
    Twins newTwins();
    /// Returns the live store, and may keep an owner of it.
    StoreHandle handOut(Twins& chosen);
    /// Returns the same certificate of both twins, if the store has any.
    std::optional<std::pair<X509*, X509*>> anyCertificateOf(Twins& chosen);

    // The events
    void addThroughLibrary(Twins& chosen);
    void addChain(Twins& chosen);
    void addThroughOpenSSL(Twins& chosen);
    void addCrlThroughOpenSSL(Twins& chosen);
    void giveTrust(Twins& chosen);
    void changeCertificate(Twins& chosen);
    void changeEntry(Twins& chosen);
    void addOddEntry(Twins& chosen);
    void changeSettings(Twins& chosen);
    void lookUp(Twins& chosen);
    void filter(Twins& chosen);
    void copy(Twins& chosen);
    void copyToOpenSSL(Twins& chosen);
    void readBack(Twins& chosen);
    void exchange(Twins& left);
    void compareEntries(Twins& chosen);
    void attach(Twins& chosen);
    void release(Twins& chosen);

    Dice& dice;
    RandomPki& pki;
    std::vector<Twins> twins;
};

} // namespace foundation::test
