#include "soak/Tasks.hpp"

#include "soak/MisbehavingServer.hpp"
#include "support/Dice.hpp"
#include "support/Text.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/toolkit/IssuanceOperations.hpp"
#include "support/toolkit/SourceOperations.hpp"
#include "support/toolkit/ToolkitOperations.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace foundation::test {

using namespace certificates;
using namespace toolkit;
using namespace std::chrono_literals;

namespace {

constexpr std::uint16_t httpPort = 80;
constexpr char const passphrase[] = "secret";

bool isForSoak(BoundOperation const& operation)
{
    // It keeps a context for each thread. The handshakes attach stores, too.
    return operation.name != "attachTrustStoreToSSLCTX";
}

TaskGroup queries(Objects& shared)
{
    TaskGroup group{"queries", 6, {}};
    for (auto const& operation : readOperations()) {
        if (isForSoak(operation)) {
            group.tasks.push_back(
                {operation.name, [&shared, operation] { return operation.answer(shared); }});
        }
    }
    return group;
}

std::string renderedOwner(Objects const& all, std::string const& owner)
{
    return owner == "chain"        ? rendered(all.chain)
           : owner == "store"      ? rendered(all.store)
           : owner == "signedData" ? rendered(all.signedData)
                                   : std::string();
}

/// Copies the objects and changes the copy.
TaskGroup changes(Objects const& shared)
{
    TaskGroup group{"changes of copies", 3, {}};
    for (auto const& operation : allOperations()) {
        if (operation.access == Access::Changes && !operation.isCostly) {
            group.tasks.push_back({operation.name, [&shared, operation] {
                                       Objects copy(shared);
                                       auto const answer = operation.answer(copy);
                                       return answer + renderedOwner(copy, operation.owner);
                                   }});
        }
    }
    return group;
}

/// Builds certificates, and reads the system's roots.
TaskGroup costlyOperations(Objects const& shared)
{
    TaskGroup group{"builds and system roots", 1, {}};
    for (auto const& operation : allOperations()) {
        if (operation.isCostly) {
            group.tasks.push_back({operation.name, [&shared, operation] {
                                       Objects copy(shared);
                                       return operation.answer(copy);
                                   }});
        }
    }
    return group;
}

// Loading

struct Input
{
    std::string name;
    Bytes bytes;
    std::function<std::string(Bytes const&)> load;
};

std::vector<Input> inputs()
{
    auto const root = makeRoot("root");
    auto const signer = makeLeaf(root, "signer");
    return {
        {"certificate", root.der(), [](Bytes const& bytes) { return rendered(X509Certificate(bytes)); }},
        {"PEM certificate", asBytes(root.pem()),
         [](Bytes const& bytes) { return rendered(X509Certificate(asText(bytes))); }},
        {"chain", asBytes(signer.pem() + root.pem()),
         [](Bytes const& bytes) { return rendered(X509CertificateChain(asText(bytes))); }},
        {"PKCS7", toDer(makeSignedData("content", signer, {root.certificate})),
         [](Bytes const& bytes) { return rendered(PKCS7Certificate(bytes)); }},
        {"PKCS12", toDer(makePkcs12(signer, passphrase)),
         [](Bytes const& bytes) {
             PKCS12Certificate const bundle(bytes, passphrase);
             return rendered(bundle.getCertificate()) + rendered(bundle.getPrivateKeyInfo());
         }},
    };
}

/// Loads each input whole, cut off, and with a changed byte.
TaskGroup loads()
{
    constexpr int numVariants = 12;
    TaskGroup group{"loads", 4, {}};
    Dice dice(1);
    for (auto const& input : inputs()) {
        for (int variant = 0; variant < numVariants; ++variant) {
            auto bytes = input.bytes;
            if (variant % 3 == 1) {
                bytes.resize(dice.indexIn(bytes.size()));
            } else if (variant % 3 == 2) {
                bytes[dice.indexIn(bytes.size())] ^= static_cast<unsigned char>(1 + dice.below(255));
            }
            group.tasks.push_back(
                {"load " + input.name + " " + std::to_string(variant),
                 [bytes, load = input.load] { return load(bytes); }});
        }
    }
    return group;
}

// Stores that change under their readers

/// A store that all threads add to, until one replaces it.
class GrowingStore
{
public:
    GrowingStore(TrustStore theBeginning, std::vector<CertificateAndKey> theAdditions)
        : beginning(std::move(theBeginning)),
          additions(std::move(theAdditions))
    {
        replace();
    }

    std::shared_ptr<TrustStore> get() const
    {
        std::lock_guard<std::mutex> const lock(mutex);
        return current;
    }
    void replace()
    {
        auto fresh = std::make_shared<TrustStore>(beginning);
        std::lock_guard<std::mutex> const lock(mutex);
        current.swap(fresh);
    }
    /// Whether the store has its first certificates and no more than all.
    bool hasPlausibleSize(std::size_t size) const
    {
        return size >= beginning.size() && size <= beginning.size() + additions.size();
    }
    std::vector<CertificateAndKey> const& all() const { return additions; }

private:
    TrustStore const beginning;
    std::vector<CertificateAndKey> const additions;
    mutable std::mutex mutex;
    std::shared_ptr<TrustStore> current;
};

std::vector<CertificateAndKey> furtherRoots()
{
    std::vector<CertificateAndKey> all;
    for (int number = 0; number < 6; ++number) {
        all.push_back(makeRoot("further root " + std::to_string(number)));
    }
    return all;
}

/// Verifies with bare OpenSSL and the library's live store.
std::string verifyWithLiveStore(TrustStore const& store, X509* leaf, STACK_OF(X509) * intermediates)
{
    auto const live = getOpenSSLStore(store);
    auto const context = own(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), live.get(), leaf, intermediates));
    int const result = X509_verify_cert(context.get());
    ERR_clear_error();
    return std::to_string(result) + " " + std::to_string(X509_STORE_CTX_get_error(context.get()));
}

TaskGroup growingStores(GrowingStore& growing, Objects const& shared)
{
    TaskGroup group{"stores that grow", 4, {}};
    auto const verdict = [&shared](TrustStore const& store) {
        return rendered(shared.certificate.validateCertificate(shared.chain, Options(), store));
    };
    for (auto const& addition : growing.all()) {
        group.tasks.push_back({"add", [&growing, verdict, certificate = load(addition)] {
                                   auto const store = growing.get();
                                   store->addCertificate(certificate);
                                   return verdict(*store);
                               }});
        group.tasks.push_back({"add to live store", [&growing, verdict, addition] {
                                   auto const store = growing.get();
                                   auto const certificate = parseDer(addition.der());
                                   X509_STORE_add_cert(getOpenSSLStore(*store).get(), certificate.get());
                                   ERR_clear_error();
                                   return verdict(*store);
                               }});
    }
    auto const leaf = parseDer(shared.certificate.getAsBytes());
    std::vector<X509Handle> issuers;
    for (auto const& certificate : shared.chain.getCertificates()) {
        issuers.push_back(parseDer(certificate.getAsBytes()));
    }
    auto const further = std::vector<Task>{
        {"replace",
         [&growing] {
             growing.replace();
             return std::string();
         }},
        {"size", [&growing] { return rendered(growing.hasPlausibleSize(growing.get()->size())); }},
        {"certificates",
         [&growing] {
             auto const number = growing.get()->getCertificates().getNumCertificates();
             return rendered(growing.hasPlausibleSize(number));
         }},
        {"copy",
         [&growing, verdict] {
             TrustStore const copy(*growing.get());
             return verdict(copy) + rendered(growing.hasPlausibleSize(copy.size()));
         }},
        {"validate", [&growing, verdict] { return verdict(*growing.get()); }},
        {"verify with live store",
         [&growing, leaf, issuers] {
             return verifyWithLiveStore(*growing.get(), leaf.get(), makeStack(issuers).get());
         }},
        {"verify signature",
         [&growing, &shared] {
             return rendered(shared.signedData.verifySignature(shared.chain, *growing.get(), ByteArray()));
         }},
    };
    group.tasks.insert(group.tasks.end(), further.begin(), further.end());
    return group;
}

// Downloads

constexpr std::pair<Manner, char const*> manners[] = {
    {Manner::Good, "good"},         {Manner::Slow, "slow"},
    {Manner::Late, "late"},         {Manner::NotFound, "not found"},
    {Manner::Empty, "empty"},       {Manner::Truncated, "truncated"},
    {Manner::Garbage, "garbage"},   {Manner::NoHeaders, "no headers"},
    {Manner::Silent, "silent"},     {Manner::Reset, "reset"},
    {Manner::Trailing, "trailing"},
};

/// Two certificates for each page of the server, one of them revoked.
class Downloads
{
public:
    Downloads()
    {
        pages["/ca.crl"] = {Manner::Good, toDer(makeCrl(root))};
        for (auto const& [manner, name] : manners) {
            addLeaves(manner, name, name, [](CrlSpec&) {});
        }
        addLeaves(Manner::Good, "expired", "expired CRL", [](CrlSpec& spec) {
            spec.nextUpdate = TimeSpec::fromNow(-1h);
        });
        addLeaves(
            Manner::Good, "damaged", "damaged CRL", [](CrlSpec& spec) { spec.damagedSignature = true; });
    }

    struct Leaf
    {
        std::string name;
        X509Certificate certificate;
    };

private:
    void addLeaves(
        Manner manner, std::string const& path, std::string const& name,
        std::function<void(CrlSpec&)> const& mutate)
    {
        auto const makeOne = [&](std::string const& kind) {
            return makeLeaf(ca, kind + " " + name, [&](CertificateSpec& spec) {
                auto const address = "127.0.0." + std::to_string(1 + pages.size());
                spec.setDistributionPoints({"http://" + address + pathOf(path)});
            });
        };
        auto const good = makeOne("good");
        auto const revoked = makeOne("revoked");
        pages[pathOf(path)] = {manner, toDer(makeCrl(ca, {revoke(revoked)}, mutate))};
        leaves.push_back({name, load(good)});
        leaves.push_back({name + ", revoked", load(revoked)});
    }

    static std::string pathOf(std::string name)
    {
        for (auto& character : name) {
            character = character == ' ' ? '-' : character;
        }
        return "/" + name + ".crl";
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const ca = makeIntermediate(
        root, "ca", [](CertificateSpec& spec) { spec.setDistributionPoints({"http://127.0.0.1/ca.crl"}); });

public:
    std::map<std::string, MisbehavingServer::Page> pages;
    std::vector<Leaf> leaves;
    X509CertificateChain const chain = chainOf({ca});
    TrustStore const store = storeOf({root});
};

TaskGroup downloads(Downloads const& material)
{
    struct Choice
    {
        char const* name;
        Options options;
    };
    using Check = Options::CheckCRL;
    using Download = Options::DownloadCRL;
    Tolerances revokedAllowed;
    revokedAllowed.revoked = true;
    Choice const choices[] = {
        {"required", optionsWith({}, Check::WholeChain, Download::Required)},
        {"best effort", optionsWith({}, Check::WholeChain, Download::BestEffort)},
        {"leaf only", optionsWith({}, Check::LeafOnly, Download::Required)},
        {"revoked allowed", optionsWith(revokedAllowed, Check::LeafOnly, Download::Required)},
    };
    TaskGroup group{"validations with CRLs", 5, {}};
    for (auto const& leaf : material.leaves) {
        for (auto const& choice : choices) {
            // A validation blocks the readers of its object. One of the two has an object of its own.
            group.tasks.push_back(
                {leaf.name + ", " + choice.name, [&material, &leaf, options = choice.options] {
                     return rendered(
                         leaf.certificate.validateCertificate(material.chain, options, material.store));
                 }});
            group.tasks.push_back(
                {leaf.name + ", " + choice.name + ", copy", [&material, &leaf, options = choice.options] {
                     X509Certificate const copy(leaf.certificate);
                     TrustStore const store(material.store);
                     return rendered(copy.validateCertificate(material.chain, options, store));
                 }});
        }
    }
    return group;
}

// TLS

TaskGroup handshakes()
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    auto const other = makeSelfSignedLeaf("other");
    auto const store = std::make_shared<TrustStore>(storeOf({root}));
    auto const shake = [store](TLSContextHandle const& server, bool isCopied) {
        auto const client = makeTLSClient();
        attachTrustStoreToSSLCTX(isCopied ? TrustStore(*store) : *store, client.get());
        auto const ends = connected(client, server);
        ERR_clear_error();
        return rendered(ends.isComplete) + " " + std::to_string(SSL_get_verify_result(ends.client.get()));
    };
    TaskGroup group{"handshakes", 3, {}};
    std::pair<char const*, TLSContextHandle> const servers[] = {
        {"trusted server", makeTLSServer(leaf.certificate, leaf.key)},
        {"other server", makeTLSServer(other.certificate, other.key)},
    };
    for (auto const& [name, server] : servers) {
        for (bool const isCopied : {false, true}) {
            group.tasks.push_back(
                {std::string(name) + (isCopied ? ", copied store" : ""),
                 [shake, server = server, isCopied] { return shake(server, isCopied); }});
        }
    }
    return group;
}

// The toolkit

template <class Object>
void addReads(TaskGroup& group, std::vector<Operation<Object>> const& table, Object object)
{
    auto const shared = std::make_shared<Object>(std::move(object));
    for (auto const& operation : table) {
        if (operation.access == Access::Reads && !operation.isCostly) {
            group.tasks.push_back(
                {operation.name, [shared, operation] { return operation.answer(*shared, sharedObjects()); }});
        }
    }
}

/// For objects that threads cannot share.
template <class Object>
void addOnOwnObject(
    TaskGroup& group, std::vector<Operation<Object>> const& table, std::function<Object()> const& make)
{
    for (auto const& operation : table) {
        group.tasks.push_back({operation.name, [make, operation] {
                                   auto object = make();
                                   return operation.answer(object, sharedObjects());
                               }});
    }
}

TaskGroup toolkitOperations()
{
    TaskGroup group{"toolkit", 6, {}};
    auto const material = toolkitMaterial();
    addReads(group, toolkitCertificateOperations(), Certificate::fromDER(material.leaf));
    addReads(group, pathValidatorOperations(), PathValidator({Certificate::fromDER(material.root)}));
    addReads(group, certificateRequestOperations(), newRequest());
    addReads(group, endEntityBuilderOperations(), newBuilder());
    addReads(group, privateKeyOperations(), newBundle());
    addReads(group, readerOperations(), NoObject());
    addOnOwnObject<ConnectedClient>(group, tlsPeerOperations(), newConnectedClient);
    addOnOwnObject<ClientContext>(group, tlsContextOperations(), [] { return ClientContext(); });
    return group;
}

} // namespace

struct Workload::Material
{
    Objects shared = makeObjects();
    GrowingStore growing{shared.store, furtherRoots()};
    Downloads download;
    MisbehavingServer server{httpPort, download.pages};
};

Workload::Workload() : material(std::make_unique<Material>())
{
    allGroups = {
        queries(material->shared),
        changes(material->shared),
        costlyOperations(material->shared),
        loads(),
        growingStores(material->growing, material->shared),
        downloads(material->download),
        handshakes(),
        toolkitOperations(),
    };
}

Workload::~Workload() = default;

void Workload::settle()
{
    material->server.waitUntilIdle();
    material->growing.replace();
}

} // namespace foundation::test
