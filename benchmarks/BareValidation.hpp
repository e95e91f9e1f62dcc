#pragma once

/// @file
/// A validation as a program writes it that uses OpenSSL alone: one store and one stack of intermediates for
/// all validations, and a context for each.

#include "Material.hpp"

#include <openssl/x509_vfy.h>

#include <memory>
#include <vector>

namespace foundation::benchmarks {

/// What all validations share. It shares the parsed certificates with the caller.
struct BareTask
{
    /// The leaf, then the intermediates.
    std::vector<CertificateAndKey> chain;
    std::shared_ptr<STACK_OF(X509)> intermediates;
    std::shared_ptr<X509_STORE> store;
};

BareTask
makeBareTask(std::vector<CertificateAndKey> const& chain, std::vector<CertificateAndKey> const& trusted);

struct BareOptions
{
    /// Flags beside those that every validation has.
    unsigned long flags = X509_V_FLAG_ALLOW_PROXY_CERTS;
    int securityLevel = 0;
    STACK_OF(X509_CRL) * crls = nullptr;
};

/// Returns a reference to the root, or null if the chain does not verify.
X509UPtr bareVerify(BareTask const& task, BareOptions const& options = {});

} // namespace foundation::benchmarks
