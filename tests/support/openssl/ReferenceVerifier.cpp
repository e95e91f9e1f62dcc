#include "support/openssl/ReferenceVerifier.hpp"

#include "support/Text.hpp"

namespace foundation::test {

namespace {

/// The verify callback: accepts the failures that the context's tolerances name.
int acceptTolerated(int ok, X509_STORE_CTX* context)
{
    auto const& tolerances = *static_cast<Tolerances const*>(X509_STORE_CTX_get_app_data(context));
    switch (X509_STORE_CTX_get_error(context)) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return tolerances.expired ? 1 : ok;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return tolerances.selfSigned ? 1 : ok;
    case X509_V_ERR_CERT_REVOKED:
        return tolerances.revoked ? 1 : ok;
    default:
        return ok;
    }
}

StoreHandle storeFor(ReferenceVerifier const& verifier)
{
    auto store = own(X509_STORE_new());
    for (auto const& anchor : verifier.trusted) {
        require(X509_STORE_add_cert(store.get(), anchor.get()));
    }
    for (auto const& crl : verifier.crls) {
        require(X509_STORE_add_crl(store.get(), crl.get()));
    }
    return store;
}

ReferenceOutcome outcomeOf(X509_STORE_CTX* context, int result)
{
    ReferenceOutcome outcome;
    outcome.result = result;
    outcome.code = X509_STORE_CTX_get_error(context);
    outcome.depth = X509_STORE_CTX_get_error_depth(context);
    if (auto const* const current = X509_STORE_CTX_get_current_cert(context)) {
        outcome.subject = subjectOf(current);
    }
    auto* const built = X509_STORE_CTX_get0_chain(context);
    for (int index = 0; result == 1 && index < sk_X509_num(built); ++index) {
        outcome.chain.push_back(share(sk_X509_value(built, index)));
    }
    return outcome;
}

} // namespace

std::ostream& operator<<(std::ostream& out, Tolerances const& tolerances)
{
    return out << "self-signed " << tolerances.selfSigned << ", expired " << tolerances.expired
               << ", revoked " << tolerances.revoked;
}

Tolerances everyTolerance()
{
    Tolerances all;
    all.selfSigned = true;
    all.expired = true;
    all.revoked = true;
    return all;
}

std::vector<Tolerances> allTolerances()
{
    std::vector<Tolerances> all;
    for (bool const selfSigned : {false, true}) {
        for (bool const expired : {false, true}) {
            for (bool const revoked : {false, true}) {
                all.push_back({selfSigned, expired, revoked});
            }
        }
    }
    return all;
}

ReferenceOutcome ReferenceVerifier::verify() const
{
    auto const store = storeFor(*this);
    auto const untrustedStack = makeStack(untrusted);
    auto accepted = tolerances;
    auto const context = own(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), store.get(), leaf.get(), untrustedStack.get()));
    X509_STORE_CTX_set_flags(context.get(), flags);
    if (time) {
        X509_STORE_CTX_set_time(context.get(), 0, *time);
    }
    X509_STORE_CTX_set_verify_cb(context.get(), acceptTolerated);
    X509_STORE_CTX_set_app_data(context.get(), &accepted);
    auto const result = X509_verify_cert(context.get());
    return outcomeOf(context.get(), result);
}

std::string subjectOf(X509 const* certificate)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
    return asText(contentOf(bio));
}

} // namespace foundation::test
