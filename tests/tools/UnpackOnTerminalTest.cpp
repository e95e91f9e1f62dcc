#include "tools/FoundationCerts.hpp"

#include "support/pki/TestBundles.hpp"
#include "support/system/PseudoTerminal.hpp"

#include <filesystem>

using namespace foundation::test;

namespace {

class UnpackOnTerminal : public FoundationCerts
{
protected:
    std::vector<std::string> words() const
    {
        return {FOUNDATION_CERTS_PROGRAM, "unpack", bundle, "--key", key};
    }

    std::string const bundle = write("bundle.p12", toDer(makePkcs12(leaf, "secret")));
    std::string const key = pathOf("key.pem");
};

} // namespace

TEST_F(UnpackOnTerminal, AsksForPassphraseWithoutShowingIt)
{
    auto const run = runOnTerminal(words(), {"Passphrase: ", "secret\n"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "Passphrase: \r\n");
    EXPECT_EQ(contentOfFile(key), toPem(leaf.key));
}

TEST_F(UnpackOnTerminal, RefusesWrongPassphrase)
{
    auto const run = runOnTerminal(words(), {"Passphrase: ", "other\n"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(
        run.output,
        "Passphrase: \r\nfoundation-certs: " + bundle + ": The passphrase does not open the bundle.\r\n");
    EXPECT_FALSE(std::filesystem::exists(key));
}
