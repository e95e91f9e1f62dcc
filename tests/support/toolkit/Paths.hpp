#pragma once

#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// The way from test certificates to the toolkit's values, and what tests expect of its results.
namespace foundation::test {

inline toolkit::Certificate certificateOf(CertificateAndKey const& made)
{
    return toolkit::Certificate::fromDER(made.der());
}

inline std::vector<toolkit::Certificate> certificatesOf(std::vector<CertificateAndKey> const& made)
{
    std::vector<toolkit::Certificate> certificates;
    for (auto const& one : made) {
        certificates.push_back(certificateOf(one));
    }
    return certificates;
}

inline toolkit::PathValidator validatorOf(std::vector<CertificateAndKey> const& roots)
{
    return toolkit::PathValidator(certificatesOf(roots));
}

/// Returns options with one change.
inline toolkit::PathOptions pathOptions(std::function<void(toolkit::PathOptions&)> const& change)
{
    toolkit::PathOptions options;
    change(options);
    return options;
}

/// Expects that the result is valid and has that chain.
inline void expectValid(toolkit::PathResult const& result, std::vector<CertificateAndKey> const& chain)
{
    EXPECT_EQ(result.status, Status::Valid);
    EXPECT_TRUE(result.isValid());
    EXPECT_EQ(result.errorCode, 0);
    EXPECT_EQ(result.errorDepth, 0);
    EXPECT_EQ(result.text, "");
    EXPECT_TRUE(result.chain == certificatesOf(chain));
}

/// Expects the failure with all its texts. The subject is that of the certificate that failed.
inline void expectFailure(toolkit::PathResult const& result, int code, int depth, std::string const& subject)
{
    EXPECT_EQ(result.status, expectedStatus(code));
    EXPECT_FALSE(result.isValid());
    EXPECT_EQ(result.errorCode, code);
    EXPECT_EQ(result.errorDepth, depth);
    EXPECT_EQ(result.text, expectedText(code, depth, subject));
}

} // namespace foundation::test
