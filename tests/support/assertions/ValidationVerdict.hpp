#pragma once

#include "support/Text.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/operations/ExpectedVerdicts.hpp"
#include "support/operations/Loading.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// Expects the reference verifier's verdict, failure and root.
void expectSame(certificates::CertificateValidationResults const& results, ReferenceOutcome const& reference);

} // namespace foundation::test
