#include "support/assertions/ValidationVerdict.hpp"

namespace foundation::test {

void expectSame(certificates::CertificateValidationResults const& results, ReferenceOutcome const& reference)
{
    auto const valid = reference.result == 1;
    EXPECT_EQ(results.getCertificateChainStatus(), valid ? Status::Valid : expectedStatus(reference.code));
    EXPECT_EQ(
        results.getValidationErrorString(),
        valid ? "" : expectedText(reference.code, reference.depth, reference.subject));
    ASSERT_EQ(results.getRootCertificate().has_value(), valid);
    if (valid) {
        EXPECT_EQ(results.getRootCertificate()->getAsBytes(), toDer(reference.chain.back()));
    }
}

} // namespace foundation::test
