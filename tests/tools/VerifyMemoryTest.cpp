#include "tools/FoundationCerts.hpp"

#include "support/pki/TestBundles.hpp"

#include <openssl/pkcs7.h>

#include <sys/resource.h>

#include <filesystem>
#include <fstream>

using namespace foundation::test;

namespace {

/// Returns the most memory, in bytes, that a child process of this one has needed so far.
long peakOfChildren()
{
    constexpr long bytesPerUnit = 1024;
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss * bytesPerUnit;
}

using VerifyMemory = FoundationCerts;

} // namespace

TEST_F(VerifyMemory, DoesNotGrowWithDetachedContent)
{
    constexpr long size = 256L << 20;
    auto const content = write("content", std::string());
    std::filesystem::resize_file(content, size);
    auto const bio = own(BIO_new_file(content.c_str(), "rb"));
    auto const signedData = own(PKCS7_sign(
        leaf.certificate.get(), leaf.key.get(), nullptr, bio.get(), PKCS7_DETACHED | PKCS7_BINARY));
    auto const signature = write("signature.p7", toDer(signedData));

    auto const peak = peakOfChildren();
    auto const run = foundationCerts(
        {"verify", "--content", content, "--chain", intermediateFile(), "--roots", rootFile(), signature});
    EXPECT_EQ(run.exitStatus, 0) << run.output << run.errors;
    EXPECT_LT(peakOfChildren() - peak, size / 2);
}
