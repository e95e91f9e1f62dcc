#pragma once

#include "support/Text.hpp"
#include "support/assertions/ProgramRuns.hpp"
#include "support/pki/MixedChain.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace foundation::test {

/// Runs the program foundation-certs.
inline ProgramRun foundationCerts(std::vector<std::string> const& arguments, std::string const& input = {})
{
    return runProgram(FOUNDATION_CERTS_PROGRAM, arguments, input);
}

/// Expects success without output.
inline void expectSilence(ProgramRun const& run)
{
    expectSuccess(run, "");
}

/// Expects an error: one line on standard error with the program's name, no output, and status 2.
inline void expectBadInput(ProgramRun const& run, std::string const& message)
{
    expectFailure(run, 2, "foundation-certs: " + message + "\n");
}

/// A folder of files, and a chain.
class FoundationCerts : public testing::Test, protected MixedChain
{
protected:
    FoundationCerts() : MixedChain("DNS:leaf.example") {}

    template <class Content>
    std::string write(std::string const& name, Content const& content) const
    {
        return folder.write(name, content).string();
    }
    std::string pathOf(std::string const& name) const { return (folder.path() / name).string(); }

    std::string rootFile() const { return write("root.pem", root.pem()); }
    std::string intermediateFile() const { return write("intermediate.pem", intermediate.pem()); }
    std::string leafFile() const { return write("leaf.pem", leaf.pem()); }

    TemporaryFolder const folder;
};

} // namespace foundation::test
