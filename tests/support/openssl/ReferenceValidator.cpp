#include "support/openssl/ReferenceValidator.hpp"

#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/ExpectedVerdicts.hpp"
#include "support/pki/TestPki.hpp"

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace foundation::test {

namespace {

constexpr int statusValid = 0;
constexpr int statusFailed = 7;
constexpr int smallestRSAKey = 1024;
constexpr unsigned long baseFlags = X509_V_FLAG_X509_STRICT | X509_V_FLAG_ALLOW_PROXY_CERTS |
                                    X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;

/// An outcome that is an exception of the library.
class Refusal : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The verify callback. Without tolerances, which a context for the path of a CRL does not have, it forgives
/// nothing.
int forgive(int ok, X509_STORE_CTX* context)
{
    auto const* const tolerances = static_cast<Tolerances const*>(X509_STORE_CTX_get_ex_data(context, 0));
    int const code = X509_STORE_CTX_get_error(context);
    if (code == X509_V_OK) {
        return 1;
    }
    if (tolerances == nullptr) {
        return ok;
    }
    switch (code) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return tolerances->expired ? 1 : ok;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return tolerances->selfSigned ? 1 : ok;
    case X509_V_ERR_CERT_REVOKED:
        return tolerances->revoked ? 1 : ok;
    default:
        return ok;
    }
}

bool isEmpty(StoreHandle const& store)
{
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store.get())) == 0;
}

/// Returns the duplicate of a loaded certificate. Loading has parsed the extensions.
X509Handle loadedDuplicateOf(X509Handle const& certificate)
{
    ErrorQueueMark const mark;
    auto duplicate = duplicateOf(certificate);
    X509_check_purpose(duplicate.get(), -1, 0);
    return duplicate;
}

bool isSelfIssued(X509Handle const& certificate)
{
    auto const textOf = [](X509_NAME const* name) {
        auto const bio = own(BIO_new(BIO_s_mem()));
        X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253);
        return contentOf(bio);
    };
    return textOf(X509_get_subject_name(certificate.get())) ==
           textOf(X509_get_issuer_name(certificate.get()));
}

/// Throws if the library hands out no certificate with such a key.
void refuseKey(X509Handle const& certificate)
{
    ErrorQueueMark const mark;
    auto* const key = X509_get0_pubkey(certificate.get());
    if (key == nullptr) {
        throw Refusal("Failed to sanity check EVP_PKEY. Argument is nullptr");
    }
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_get_bits(key) < smallestRSAKey) {
        throw Refusal("RSA key size does not meet minimum cryptographic requirements");
    }
}

bool isUsable(CrlHandle const& crl, X509Handle const& issuer)
{
    ErrorQueueMark const mark;
    auto const key = own(X509_get_pubkey(issuer.get()));
    auto const* const nextUpdate = X509_CRL_get0_nextUpdate(crl.get());
    return X509_CRL_verify(crl.get(), key.get()) == 1 && nextUpdate != nullptr &&
           X509_cmp_current_time(nextUpdate) > 0;
}

unsigned long flagsOf(CrlScope scope)
{
    switch (scope) {
    case CrlScope::None:
        return 0;
    case CrlScope::Leaf:
        return X509_V_FLAG_CRL_CHECK;
    case CrlScope::WholeChain:
        return X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    }
    return 0;
}

/// Another store may change the verdict.
bool deservesFallback(ReferenceVerdict const& verdict)
{
    return verdict.status == 1 || verdict.status == 2 || verdict.status == 6 || verdict.status == 7;
}

/// One validation against one store.
class Run
{
public:
    Run(ReferenceValidator const& theInput, StoreHandle const& trusted) : input(theInput)
    {
        store = duplicateOf(isEmpty(trusted) ? input.systemRoots : trusted);
        list = input.chain;
        if (list.empty() || toDer(list.front()) != toDer(input.leaf)) {
            ERR_clear_error(); // the library loads the leaf once more
            list.insert(list.begin(), input.leaf);
        }
        for (auto const& member : list) {
            untrusted.push_back(duplicateOf(member));
        }
        leaf = loadedDuplicateOf(input.leaf);
    }

    ReferenceVerdict verdict()
    {
        bool const ready = input.crlDownload != CrlDownload::None && collectCrls();
        auto const flags =
            !input.tolerances.revoked && ready ? baseFlags | flagsOf(input.crlScope) : baseFlags;
        auto const stack = makeStack(untrusted);
        auto tolerances = input.tolerances;
        auto const context = own(X509_STORE_CTX_new());
        require(X509_STORE_set_flags(store.get(), flags));
        X509_STORE_set_verify_cb(store.get(), forgive);
        require(X509_STORE_CTX_init(context.get(), store.get(), leaf.get(), stack.get()));
        require(X509_STORE_CTX_set_ex_data(context.get(), 0, &tolerances));
        return X509_verify_cert(context.get()) == 0 ? refused(context.get()) : accepted(context.get());
    }

private:
    static ReferenceVerdict accepted(X509_STORE_CTX* context)
    {
        auto* const built = X509_STORE_CTX_get0_chain(context);
        auto const root = share(sk_X509_value(built, sk_X509_num(built) - 1));
        refuseKey(root);
        ReferenceVerdict verdict;
        verdict.root = toDer(root);
        return verdict;
    }

    static ReferenceVerdict refused(X509_STORE_CTX* context)
    {
        int const code = X509_STORE_CTX_get_error(context);
        auto const* const current = X509_STORE_CTX_get_current_cert(context);
        ReferenceVerdict verdict;
        verdict.status = static_cast<int>(expectedStatus(code));
        verdict.text = expectedText(
            code, X509_STORE_CTX_get_error_depth(context), current == nullptr ? "" : subjectOf(current));
        return verdict;
    }

    /// Whether every level that is asked for has its CRL. The CRLs of the levels before a failure stay in the
    /// store.
    bool collectCrls()
    {
        if (!isSelfIssued(list.back())) {
            auto const found = input.findRoot();
            if (found.root) {
                list.push_back(parseDer(*found.root));
            } else if (input.crlDownload == CrlDownload::Required) {
                throw Refusal("required CRL");
            }
        }
        bool ready = false;
        for (std::size_t level = 0; level + 1 < list.size(); ++level) {
            auto const crl = input.download(list[level]);
            ready = crl != nullptr && isUsable(crl, list[level + 1]);
            if (!ready && input.crlDownload == CrlDownload::Required) {
                throw Refusal("required CRL");
            }
            if (!ready) {
                return false;
            }
            require(X509_STORE_add_crl(store.get(), crl.get()));
            if (input.crlScope == CrlScope::Leaf) {
                return true;
            }
        }
        return ready;
    }

    ReferenceValidator const& input;
    StoreHandle store;
    X509Handle leaf;
    std::vector<X509Handle> list;
    std::vector<X509Handle> untrusted;
};

/// Runs, and turns an exception into an outcome.
ReferenceVerdict outcomeOf(std::function<ReferenceVerdict()> const& run)
{
    try {
        return run();
    } catch (Refusal const& refusal) {
        ReferenceVerdict verdict;
        verdict.failure = refusal.what();
        return verdict;
    }
}

bool verifySignatures(
    Pkcs7Handle const& signedData, X509StackHandle const& untrusted, X509_STORE* store, int flags)
{
    return PKCS7_verify(signedData.get(), untrusted.get(), store, nullptr, nullptr, flags) == 1;
}

/// Returns the reason of the oldest entry, and removes the entry.
std::string takeReason()
{
    char const* const reason = ERR_reason_error_string(ERR_get_error());
    return reason == nullptr ? "" : reason;
}

bool expectedInStore(X509* certificate)
{
    auto const ends = X509_cmp_current_time(X509_get0_notAfter(certificate));
    auto const judged = own(X509_dup(certificate));
    return ends > 0 &&
           X509_check_purpose(judged.get(), X509_PURPOSE_SSL_SERVER, X509_check_ca(judged.get())) > 0;
}

} // namespace

bool ReferenceVerdict::operator==(ReferenceVerdict const& other) const
{
    return std::tie(status, text, root, failure) ==
           std::tie(other.status, other.text, other.root, other.failure);
}

std::ostream& operator<<(std::ostream& out, ReferenceVerdict const& verdict)
{
    if (verdict.failure) {
        return out << "exception \"" << *verdict.failure << '"';
    }
    out << "status " << verdict.status << " \"" << verdict.text << '"';
    if (verdict.root) {
        auto const root = parseDer(*verdict.root);
        auto const serial = own(ASN1_INTEGER_to_BN(X509_get0_serialNumber(root.get()), nullptr));
        out << " root " << subjectOf(root.get()) << " with serial number " << BN_get_word(serial.get());
    }
    return out;
}

bool ReferenceVerification::operator==(ReferenceVerification const& other) const
{
    return std::tie(signature, status, text) == std::tie(other.signature, other.status, other.text);
}

std::ostream& operator<<(std::ostream& out, ReferenceVerification const& verification)
{
    return out << "signature " << verification.signature << ", status " << verification.status << " \""
               << verification.text << '"';
}

X509Handle duplicateOf(X509Handle const& certificate)
{
    return own(X509_dup(certificate.get()));
}

StoreHandle makeStore()
{
    auto store = own(X509_STORE_new());
    X509_STORE_get0_objects(store.get());
    return store;
}

StoreHandle duplicateOf(StoreHandle const& store)
{
    ErrorQueueMark const mark;
    auto copy = makeStore();
    auto* const entries = X509_STORE_get0_objects(store.get());
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        auto* const entry = sk_X509_OBJECT_value(entries, index);
        switch (X509_OBJECT_get_type(entry)) {
        case X509_LU_X509:
            require(X509_STORE_add_cert(copy.get(), own(X509_dup(X509_OBJECT_get0_X509(entry))).get()));
            break;
        case X509_LU_CRL:
            require(X509_STORE_add_crl(copy.get(), X509_OBJECT_get0_X509_CRL(entry)));
            break;
        default:
            throw Refusal("Unsupported object type found in TrustStore");
        }
    }
    return copy;
}

void removeUnsuitableForServers(StoreHandle const& store)
{
    ErrorQueueMark const mark;
    auto* const entries = X509_STORE_get0_objects(store.get());
    for (int index = sk_X509_OBJECT_num(entries); index-- > 0;) {
        auto* const entry = sk_X509_OBJECT_value(entries, index);
        if (X509_OBJECT_get_type(entry) != X509_LU_X509 || !expectedInStore(X509_OBJECT_get0_X509(entry))) {
            X509_OBJECT_free(sk_X509_OBJECT_delete(entries, index));
        }
    }
}

ReferenceVerdict ReferenceValidator::validate() const
{
    return outcomeOf([&] {
        auto const first = Run(*this, store).verdict();
        return fallback != nullptr && deservesFallback(first) ? Run(*this, fallback).verdict() : first;
    });
}

ReferenceVerdict ReferenceValidator::findRoot() const
{
    auto lookup = *this;
    lookup.tolerances = everyTolerance();
    lookup.crlScope = CrlScope::None;
    lookup.crlDownload = CrlDownload::None;
    lookup.fallback = nullptr;
    auto verdict = lookup.validate();
    if (!verdict.failure && !verdict.root) {
        verdict = ReferenceVerdict();
        verdict.failure = "Error: Root CA X509Certificate has no content.";
    }
    return verdict;
}

ReferenceVerification ReferenceValidator::verify(Pkcs7Handle const& signedData) const
{
    auto const working = duplicateOf(isEmpty(store) ? systemRoots : store);
    auto const trusted = duplicateOf(working);
    std::vector<X509Handle> duplicates;
    for (auto const& intermediate : chain) {
        duplicates.push_back(duplicateOf(intermediate));
        require(X509_STORE_add_cert(trusted.get(), duplicates.back().get()));
    }
    auto const untrusted = duplicates.empty() ? nullptr : makeStack(duplicates);
    if (verifySignatures(signedData, untrusted, trusted.get(), PKCS7_NO_DUAL_CONTENT)) {
        return {true, statusValid, ""};
    }
    auto const reason = takeReason();
    if (reason != reasonText(ERR_LIB_PKCS7, PKCS7_R_CERTIFICATE_VERIFY_ERROR)) {
        return {false, statusFailed, reason};
    }
    if (!verifySignatures(signedData, untrusted, nullptr, PKCS7_NOVERIFY)) {
        return {false, statusFailed, takeReason()};
    }
    std::shared_ptr<STACK_OF(X509)> const signers(
        PKCS7_get0_signers(signedData.get(), nullptr, PKCS7_NO_DUAL_CONTENT),
        [](STACK_OF(X509) * borrowing) { sk_X509_free(borrowing); });
    if (sk_X509_num(signers.get()) < 1) {
        return {false, statusFailed, reason};
    }
    ReferenceValidator ofSigner;
    ofSigner.leaf = share(sk_X509_value(signers.get(), 0));
    ofSigner.chain = chain;
    ofSigner.store = working;
    ofSigner.systemRoots = systemRoots;
    auto const verdict = ofSigner.validate();
    if (verdict.failure) {
        throw std::runtime_error(*verdict.failure);
    }
    return {true, verdict.status, verdict.status == statusValid ? reason : verdict.text};
}

} // namespace foundation::test
