#include "Comparison.hpp"
#include "Material.hpp"

#include "support/pki/Revocable.hpp"
#include "support/system/ScriptedServer.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509_vfy.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <memory>
#include <stdexcept>

namespace foundation::benchmarks {

namespace {

constexpr double validationTarget = 1.5;

using Options = CertificateValidationOptions;
using Stack = X509StackUPtr;

/// One task in the form of both sides. The library gets the chain without the leaf, as callers have it.
struct Task
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    std::vector<CertificateAndKey> bareChain;
    std::shared_ptr<X509_STORE> bareStore;
};

std::shared_ptr<Task>
makeTask(std::vector<CertificateAndKey> const& chain, std::vector<CertificateAndKey> const& trusted)
{
    std::vector<CertificateAndKey> const intermediates(chain.begin() + 1, chain.end());
    return std::make_shared<Task>(
        Task{load(chain.front()), chainOf(intermediates), storeOf(trusted), chain, bareStore(trusted)});
}

Stack duplicatesOf(std::vector<CertificateAndKey> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        sk_X509_push(stack.get(), X509_dup(certificate.certificate.get()));
    }
    return stack;
}

/// Returns a duplicate of the root, or null if the chain does not verify.
X509UPtr bareVerify(Task const& task, X509_STORE* store, unsigned long flags)
{
    auto const untrusted = duplicatesOf(task.bareChain);
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_set_flags(
        store, flags | X509_V_FLAG_X509_STRICT | X509_V_FLAG_ALLOW_PROXY_CERTS |
                   X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST);
    X509_STORE_CTX_init(context.get(), store, task.bareChain.front().certificate.get(), untrusted.get());
    if (X509_verify_cert(context.get()) != 1) {
        return makeX509(nullptr);
    }
    auto const* const chain = X509_STORE_CTX_get0_chain(context.get());
    return makeX509(X509_dup(sk_X509_value(chain, sk_X509_num(chain) - 1)));
}

void expectValid(bool valid)
{
    if (!valid) {
        throw std::logic_error("a validation that is to be measured fails");
    }
}

void addValidation(std::string const& operation, std::shared_ptr<Task> const& task)
{
    auto const library = [task] {
        return task->leaf.validateCertificate(task->chain, Options(), task->store);
    };
    auto const bare = [task] { return bareVerify(*task, bareCopy(task->bareStore.get()).get(), 0); };
    expectValid(library().getCertificateChainStatus() == CertificateChainStatus::Valid && bare() != nullptr);
    compare(operation, validationTarget, library, bare);
}

void addPlainValidations()
{
    beginGroup(
        "Validation",
        "Both sides copy the trust store and duplicate the chain's certificates and the root. Each\n"
        "duplicate is a parse, so the cost grows with the number of roots and the length of the chain. The\n"
        "library also writes the PEM texts of the leaf and of the first certificate to compare them, writes\n"
        "each duplicate's encoding in a memory BIO, and reads the numbers of the root's key.");
    for (std::size_t const rootCount : {1U, 10U, 50U, 150U, 500U}) {
        auto const trusted = roots(rootCount);
        for (std::size_t const length : {1U, 3U, 5U}) {
            if (length != 3 && rootCount != 1 && rootCount != 150) {
                continue; // one length shows how the cost grows with the roots
            }
            addValidation(
                "chain of " + std::to_string(length) + ", " + std::to_string(rootCount) +
                    (rootCount == 1 ? " root" : " roots"),
                makeTask(chainBelow(trusted.front(), length), trusted));
        }
    }
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

/// Fetches the CRL, checks its signature and next update, and adds it to the store. Reads subject and issuer
/// from duplicates, as the library does.
X509_CRLUPtr bareFetch(std::string const& path, X509* subject, X509* issuer, X509_STORE* store)
{
    auto const subjectDuplicate = makeX509(X509_dup(subject));
    auto const points = makeDIST_POINTStack(static_cast<STACK_OF(DIST_POINT)*>(
        X509_get_ext_d2i(subjectDuplicate.get(), NID_crl_distribution_points, nullptr, nullptr)));
    auto const issuerDuplicate = makeX509(X509_dup(issuer));
    std::string const body = Socket().get(path);
    auto const* position = reinterpret_cast<unsigned char const*>(body.data());
    auto crl = makeX509_CRL(d2i_X509_CRL(nullptr, &position, static_cast<long>(body.size())));
    bool const fit = X509_CRL_verify(crl.get(), X509_get0_pubkey(issuerDuplicate.get())) == 1 &&
                     X509_cmp_current_time(X509_CRL_get0_nextUpdate(crl.get())) > 0 &&
                     X509_STORE_add_crl(store, crl.get()) == 1;
    return fit ? std::move(crl) : makeX509_CRL(nullptr);
}

X509UPtr bareVerifyWithCRLs(Task const& task)
{
    auto const store = bareCopy(task.bareStore.get());
    auto const certificateAt = [&](std::size_t index) { return task.bareChain[index].certificate.get(); };
    auto const leafCRL = bareFetch("/leaf.crl", certificateAt(0), certificateAt(1), store.get());
    auto const caCRL = bareFetch("/ca.crl", certificateAt(1), certificateAt(2), store.get());
    return bareVerify(task, store.get(), X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
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
    auto trusted = roots(rootCount - 1);
    trusted.push_back(pki.root);
    auto const task = makeTask({pki.leaf, pki.ca, pki.root}, trusted);
    auto const files = std::make_shared<std::map<std::string, test::Bytes>>(
        test::filesOf(pki.leafCrl(entries(entryCount)), pki.caCrl(entries(entryCount))));
    Options const options(
        Options::AllowSelfSignedCertificate::No, Options::AllowExpiredCertificate::No,
        Options::AllowRevokedCertificate::No, Options::CheckCRL::WholeChain, Options::DownloadCRL::Required);
    // The server runs only while the operation is measured, because all servers use the same port.
    auto const serve = [files] { return std::make_shared<test::HttpFileServer>("127.0.0.1", *files); };
    compareWithin(
        serve,
        std::to_string(entryCount) + " entries, " + std::to_string(rootCount) +
            (rootCount == 1 ? " root" : " roots"),
        validationTarget,
        [task, options] { return task->leaf.validateCertificate(task->chain, options, task->store); },
        [task] { return bareVerifyWithCRLs(*task); }, entryCount > 1000 ? Effort{2, 5} : Effort{});
}

void addRevocations()
{
    beginGroup(
        "Validation with CRLs",
        "A chain of leaf, intermediate and root. Two CRLs with the given number of entries each are fetched\n"
        "over HTTP from the same machine. Both sides read the distribution points and the issuers' keys\n"
        "from duplicates. The library's HTTP client also resolves the server's name and the service, and\n"
        "writes the answer to a temporary file.");
    test::Revocable const pki;
    for (std::size_t const entryCount : {10U, 1000U, 100000U}) {
        addRevocation(pki, entryCount, 1);
        addRevocation(pki, entryCount, 150);
    }
}

} // namespace

void addValidationBenchmarks()
{
    addPlainValidations();
    addRevocations();
}

} // namespace foundation::benchmarks
