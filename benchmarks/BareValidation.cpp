#include "BareValidation.hpp"

namespace foundation::benchmarks {

namespace {

std::shared_ptr<STACK_OF(X509)> sharedStackOf(std::vector<CertificateAndKey> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        X509_up_ref(certificate.certificate.get());
        sk_X509_push(stack.get(), certificate.certificate.get());
    }
    return stack;
}

} // namespace

BareTask
makeBareTask(std::vector<CertificateAndKey> const& chain, std::vector<CertificateAndKey> const& trusted)
{
    return {chain, sharedStackOf({chain.begin() + 1, chain.end()}), bareStore(trusted)};
}

X509UPtr bareVerify(BareTask const& task, BareOptions const& options)
{
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_CTX_init(
        context.get(), task.store.get(), task.chain.front().certificate.get(), task.intermediates.get());
    X509_VERIFY_PARAM* const parameters = X509_STORE_CTX_get0_param(context.get());
    X509_VERIFY_PARAM_set_flags(
        parameters,
        options.flags | X509_V_FLAG_X509_STRICT | X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST);
    X509_VERIFY_PARAM_set_auth_level(parameters, options.securityLevel);
    X509_STORE_CTX_set0_crls(context.get(), options.crls);
    if (X509_verify_cert(context.get()) != 1) {
        return makeX509(nullptr);
    }
    auto const* const built = X509_STORE_CTX_get0_chain(context.get());
    X509* const root = sk_X509_value(built, sk_X509_num(built) - 1);
    X509_up_ref(root);
    return makeX509(root);
}

} // namespace foundation::benchmarks
