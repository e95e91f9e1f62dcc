#include "support/allocation/Shortage.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <SignedFile.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>

using namespace foundation::test;
using namespace foundation::tools;

TEST(SignedFileMemory, ValidSignatureNamesItsSigner)
{
    TemporaryFolder const folder;
    auto const file =
        folder.write("signed.p7", toDer(makeSignedData("content", makeRoot("signer")))).string();
    ASSERT_EQ(readSignedFile(file, std::nullopt, {}).signers.size(), 1U);

    std::size_t numFailures = 0;
    for (std::size_t first = 0; first == 0 || Shortage::hasOccurred(); ++first) {
        Shortage const shortage(Memory::OpenSSL, first);
        try {
            auto const read = readSignedFile(file, std::nullopt, {});
            EXPECT_TRUE(!read.isValid || read.signers.size() == 1) << "allocation " << first;
        } catch (std::exception const&) {
            ++numFailures;
        }
    }
    EXPECT_GT(numFailures, 0U);
}
