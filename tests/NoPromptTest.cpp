#include "support/EncryptedPem.hpp"
#include "support/OpenSSLErrors.hpp"
#include "support/PseudoTerminal.hpp"
#include "support/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

std::string encryptedPem()
{
    return toEncryptedPem(makeRoot("root").certificate);
}

/// 0 if the load fails as any load of what cannot be read.
int outcomeOf(std::function<void()> const& load)
{
    try {
        load();
    } catch (X509CertificateException const& refusal) {
        std::string const what = refusal.what();
        std::string const prefix = "Error: Loading a certificate failed. Reason=";
        return what == prefix + reasonText(ERR_LIB_PEM, PEM_R_BAD_PASSWORD_READ) ? 0 : 1;
    }
    return 2;
}

void expectToAskNothing(std::function<void()> const& load)
{
    auto const run = runOnTerminal([&] { return outcomeOf(load); });
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "");
}

} // namespace

TEST(NoPrompt, IsWrittenByALoadFromBytes)
{
    auto const pem = encryptedPem();
    expectToAskNothing([&] { X509Certificate(ByteArray(pem.begin(), pem.end())); });
}

TEST(NoPrompt, IsWrittenByALoadFromAString)
{
    auto const pem = encryptedPem();
    expectToAskNothing([&] { X509Certificate(std::string(pem)); });
}

TEST(NoPrompt, IsWrittenByALoadFromAStream)
{
    std::istringstream stream(encryptedPem());
    expectToAskNothing([&] { X509Certificate{stream}; });
}

// The counter-check: OpenSSL by itself asks, and the terminal of these tests notices.
TEST(NoPrompt, IsFoundOutWhereThereIsOne)
{
    auto const pem = encryptedPem();
    Bytes const bytes(pem.begin(), pem.end());
    auto const run = runOnTerminal(
        [&] {
            X509_free(PEM_read_bio_X509(readerOf(bytes).get(), nullptr, nullptr, nullptr));
            return 0;
        },
        std::chrono::seconds(1));
    EXPECT_FALSE(run.finished);
    EXPECT_NE(run.output, "");
}
