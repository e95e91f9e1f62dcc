#include "BareValidation.hpp"
#include "Comparison.hpp"
#include "Material.hpp"

#include "support/pki/Revocable.hpp"
#include "support/system/ScriptedServer.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace foundation::benchmarks {

namespace {

constexpr double privateTarget = 1.5;
constexpr double handedOutTarget = 3.5;
constexpr double revocationTarget = 1.5;
constexpr std::size_t typicalCount = 150;
constexpr std::size_t typicalLength = 3;

using Options = CertificateValidationOptions;

/// One task in the form of both sides. The library gets the chain without the leaf, as callers have it.
struct Task
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    /// OpenSSL's view of the store, if it was handed out.
    std::shared_ptr<X509_STORE> handedOut;
    BareTask bare;
};

Task makeTask(std::vector<CertificateAndKey> const& chain, std::vector<CertificateAndKey> const& trusted)
{
    std::vector<CertificateAndKey> const intermediates(chain.begin() + 1, chain.end());
    return {
        load(chain.front()), chainOf(intermediates), storeOf(trusted), nullptr, makeBareTask(chain, trusted)};
}

CertificateValidationResults validate(Task const& task)
{
    return task.leaf.validateCertificate(task.chain, Options(), task.store);
}

void expectValid(bool valid)
{
    if (!valid) {
        throw std::logic_error("a validation that is to be measured fails");
    }
}

Task checked(Task task)
{
    expectValid(validate(task).getCertificateChainStatus() == CertificateChainStatus::Valid);
    expectValid(bareVerify(task.bare) != nullptr);
    return task;
}

enum class Store
{
    Private,
    HandedOut
};

/// Returns a task whose store has never been handed out, or has been and still is.
Lazy<Task> makeCheckedTask(std::size_t rootCount, std::size_t length, Store store)
{
    return Lazy<Task>([=] {
        auto const trusted = roots(rootCount);
        Task task = makeTask(chainBelow(trusted.front(), length), trusted);
        if (store == Store::HandedOut) {
            task.handedOut = getOpenSSLStore(task.store);
        }
        return checked(std::move(task));
    });
}

Comparison&
addValidation(std::size_t rootCount, std::size_t length, Store store, std::optional<double> target)
{
    auto const task = makeCheckedTask(rootCount, length, store);
    return compare(
        "chain of " + std::to_string(length) + ", " + rootsText(rootCount) +
            (store == Store::Private ? "" : ", handed out"),
        target, [task] { return validate(*task); }, [task] { return bareVerify(task->bare); });
}

/// A program that validates only once: it adds the roots of a chain to a new store first.
void addFirstValidation()
{
    auto const task = makeCheckedTask(typicalCount, typicalLength, Store::Private);
    Lazy<X509CertificateChain> const trusted([] { return chainOf(roots(typicalCount)); });
    Lazy<std::vector<CertificateAndKey>> const bareTrusted([] { return roots(typicalCount); });
    auto const& first = compare(
        "chain of 3, 150 roots, with the store's build", std::nullopt,
        [task, trusted] {
            TrustStore store;
            store.addCertificates(*trusted);
            task->leaf.validateCertificate(task->chain, Options(), store);
            return store;
        },
        [task, bareTrusted] {
            BareTask const once{task->bare.chain, task->bare.intermediates, bareStore(*bareTrusted)};
            bareVerify(once);
            return once.store;
        });
    noteMemory("store of 150 roots of a chain, after a validation", Quantity::Kept, first);
}

void noteMemoryOfValidation(Comparison const& validation)
{
    constexpr std::int64_t largestCount = 200;
    std::string const name = "validation, " + validation.operation;
    noteMemory(name + ": allocations", Quantity::Count, validation, largestCount);
    noteMemory(name + ": bytes allocated", Quantity::Bytes, validation);
    noteMemory(name + ": peak", Quantity::Peak, validation);
    noteMemory(name + ": kept by the result", Quantity::Kept, validation);
}

void addPlainValidations()
{
    beginGroup(
        "Validation",
        "OpenSSL's side is what a program writes that uses OpenSSL alone: one `X509_STORE` and one stack of\n"
        "intermediates for all validations, a new `X509_STORE_CTX` with the same flags for each, and a\n"
        "reference to the root as the result. The checks of the signatures take most of its time.\n"
        "\n"
        "The library reads a private store that shares the trust store's certificates, so the time does not\n"
        "depend on the number of roots. What remains is the lock of each object, the stack of intermediates\n"
        "for each call, and the result: the handle of the root and the text of the verdict.\n"
        "\n"
        "A store that was handed out (`getOpenSSLStore`, TLS) may be changed by others at any time. Each\n"
        "validation then looks whether somebody did, and this takes longer with more roots.");
    for (std::size_t const count : rootCounts()) {
        auto const& hidden = addValidation(count, typicalLength, Store::Private, privateTarget);
        auto const& handedOut = addValidation(
            count, typicalLength, Store::HandedOut,
            count <= typicalCount ? std::optional<double>(handedOutTarget) : std::nullopt);
        plotPoints().push_back({count, &hidden, &handedOut, nullptr});
        if (count == typicalCount) {
            noteMemoryOfValidation(hidden);
            noteMemoryOfValidation(handedOut);
        }
    }
    addValidation(typicalCount, 1, Store::Private, privateTarget);
    addValidation(typicalCount, 5, Store::Private, privateTarget);
    addFirstValidation();
}

class Socket
{
public:
    Socket() : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(80);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("no server on port 80");
        }
    }
    ~Socket() { close(descriptor); }
    Socket(Socket const&) = delete;
    Socket& operator=(Socket const&) = delete;

    std::string get(std::string const& path) const
    {
        std::string const request = "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
        if (write(descriptor, request.data(), request.size()) < 0) {
            return {};
        }
        std::string answer;
        std::array<char, 65536> buffer{};
        for (;;) {
            auto const count = read(descriptor, buffer.data(), buffer.size());
            if (count <= 0) {
                return answer.substr(answer.find("\r\n\r\n") + 4);
            }
            answer.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

private:
    int descriptor;
};

/// Fetches the CRL that the subject's certificate names, and checks its signature and next update. Returns
/// null if it does not fit.
X509_CRLUPtr bareFetch(std::string const& path, X509* subject, X509* issuer)
{
    auto const points = makeDIST_POINTStack(static_cast<STACK_OF(DIST_POINT)*>(
        X509_get_ext_d2i(subject, NID_crl_distribution_points, nullptr, nullptr)));
    std::string const body = Socket().get(path);
    auto const* position = reinterpret_cast<unsigned char const*>(body.data());
    auto crl = makeX509_CRL(d2i_X509_CRL(nullptr, &position, static_cast<long>(body.size())));
    bool const fit = X509_CRL_verify(crl.get(), X509_get0_pubkey(issuer)) == 1 &&
                     X509_cmp_current_time(X509_CRL_get0_nextUpdate(crl.get())) > 0;
    return fit ? std::move(crl) : makeX509_CRL(nullptr);
}

X509UPtr bareVerifyWithCRLs(Task const& task)
{
    auto const certificateAt = [&](std::size_t index) { return task.bare.chain[index].certificate.get(); };
    auto const leafCRL = bareFetch("/leaf.crl", certificateAt(0), certificateAt(1));
    auto const caCRL = bareFetch("/ca.crl", certificateAt(1), certificateAt(2));
    std::unique_ptr<STACK_OF(X509_CRL), void (*)(STACK_OF(X509_CRL)*)> const crls(
        sk_X509_CRL_new_null(), [](STACK_OF(X509_CRL) * stack) { sk_X509_CRL_free(stack); });
    sk_X509_CRL_push(crls.get(), leafCRL.get());
    sk_X509_CRL_push(crls.get(), caCRL.get());
    BareOptions options;
    options.flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    options.crls = crls.get();
    return bareVerify(task.bare, options);
}

std::vector<test::RevokedEntry> entries(std::size_t count)
{
    std::vector<test::RevokedEntry> made;
    for (std::size_t index = 0; index < count; ++index) {
        made.push_back({"7000000000000000000000" + std::to_string(1000000 + index)});
    }
    return made;
}

void addRevocation(test::Revocable const& pki, std::size_t entryCount, std::size_t rootCount)
{
    Lazy<Task> const task([pki, rootCount] {
        auto trusted = roots(rootCount - 1);
        trusted.push_back(pki.root);
        return makeTask({pki.leaf, pki.ca, pki.root}, trusted);
    });
    Lazy<std::map<std::string, test::Bytes>> const files([pki, entryCount] {
        return test::filesOf(pki.leafCrl(entries(entryCount)), pki.caCrl(entries(entryCount)));
    });
    Options const options(
        Options::AllowSelfSignedCertificate::No, Options::AllowExpiredCertificate::No,
        Options::AllowRevokedCertificate::No, Options::CheckCRL::WholeChain, Options::DownloadCRL::Required);
    // The server runs only while the operation is measured, because all servers use the same port.
    auto const serve = [files] { return std::make_shared<test::HttpFileServer>("127.0.0.1", *files); };
    constexpr std::size_t mediumCount = 1000;
    compareWithin(
        serve, std::to_string(entryCount) + " entries, " + rootsText(rootCount), revocationTarget,
        [task, options] { return task->leaf.validateCertificate(task->chain, options, task->store); },
        [task] {
            auto root = bareVerifyWithCRLs(*task);
            expectValid(root != nullptr);
            return root;
        },
        entryCount > mediumCount ? Effort{2, 5} : Effort{});
}

void addRevocations()
{
    beginGroup(
        "Validation with CRLs",
        "A chain of leaf, intermediate and root. Two CRLs with the given number of entries each are fetched\n"
        "over HTTP from the same machine. OpenSSL's side shares its store and gives the CRLs to the\n"
        "verification (`X509_STORE_CTX_set0_crls`). The library's HTTP client also resolves the server's\n"
        "name and the service, and writes the answer to a temporary file.");
    test::Revocable const pki;
    for (std::size_t const entryCount : {10U, 1000U, 100000U}) {
        addRevocation(pki, entryCount, 1);
        addRevocation(pki, entryCount, typicalCount);
    }
}

} // namespace

void addValidationBenchmarks()
{
    addPlainValidations();
    addRevocations();
}

} // namespace foundation::benchmarks
