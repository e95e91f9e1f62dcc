#include "tools/FoundationCerts.hpp"
#include "tools/MeasuredRun.hpp"

#include "support/pki/TestBundles.hpp"

#include <openssl/pkcs7.h>

#include <filesystem>

using namespace foundation::test;

using VerifyMemory = FoundationCerts;

TEST_F(VerifyMemory, DoesNotGrowWithDetachedContent)
{
    constexpr long size = 256L << 20;
    auto const content = write("content", std::string());
    std::filesystem::resize_file(content, size);
    auto const bio = own(BIO_new_file(content.c_str(), "rb"));
    auto const signedData = own(PKCS7_sign(
        leaf.certificate.get(), leaf.key.get(), nullptr, bio.get(), PKCS7_DETACHED | PKCS7_BINARY));
    auto const signature = write("signature.p7", toDer(signedData));

    auto const measured = measuredRun(
        {"verify", "--content", content, "--chain", intermediateFile(), "--roots", rootFile(), signature});
    EXPECT_EQ(measured.run.exitStatus, 0) << measured.run.output << measured.run.errors;
    EXPECT_GT(measured.peak, 0);
    EXPECT_LT(measured.peak, size / 2);
}
