#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <openssl/opensslv.h>

#include <sstream>
#include <string>
#include <vector>

using namespace foundation::test;

namespace {

struct Row
{
    std::string expression;
    std::string shown;
};

std::string const rootLine = "subject \"CN=root\", issuer \"CN=root\", serial 1a2b, "
                             "valid from 2023-11-14 22:13:20 to 2052-05-22 14:13:20 UTC, key prime256v1";
std::string const leafLine =
    "subject \"CN=l\\C3\\A4rm,O=a\\0Ab\\, c\", issuer \"CN=root\", serial 07, "
    "valid from 2023-11-14 22:13:20 to 2052-05-22 14:13:20 UTC, key RSA with 2048 bits";
std::string const otherLine = "subject \"CN=other\", issuer \"CN=root\", serial fe, "
                              "valid from 2023-11-14 22:13:20 to 2052-05-22 14:13:20 UTC, key secp384r1";

std::vector<Row> const rows = {
    {"root", "X509Certificate " + rootLine},
    {"leaf", "X509Certificate " + leafLine},
    {"other", "Certificate " + otherLine},
    {"empty", "X509Certificate without content"},
    {"source", "X509Certificate without content"},
    {"target", "X509Certificate " + rootLine},
    {"chain", "X509CertificateChain of 2 certificates = {X509Certificate " + leafLine + ", X509Certificate " +
                  rootLine + "}"},
    {"emptyChain", "X509CertificateChain of 0 certificates"},
    {"store", "TrustStore with 1 certificate = {" + rootLine + "}"},
    {"emptyStore", "TrustStore with 0 certificates"},
    {"storeWithCRL", "TrustStore with 1 certificate and 1 CRL = {" + rootLine + "}"},
    {"validator", OPENSSL_VERSION_MAJOR < 4 ? "PathValidator with 1 certificate = {" + rootLine + "}"
                                            : "PathValidator cannot be read"},
    {"valid", "CertificateValidationResults Valid = {errorText = \"\", rootCertificate = X509Certificate " +
                  rootLine + "}"},
    {"revoked", "CertificateValidationResults Revoked = {errorText = \"certificate revoked\", "
                "revocationResults = CertificateRevocationResults Revoked = {revocationDate = "
                "\"Jan  1 00:00:00 2026 GMT\", revokedSerialNumber = \"7\"}}"},
    {"refused", "PKCS7CertificateValidationResults signature not valid, chain Untrusted = "
                "{errorText = \"no root\"}"},
    {"path", "PathResult Valid = {text = \"\", chain[0] = Certificate " + leafLine +
                 ", chain[1] = Certificate " + rootLine + "}"},
    {"untrusted", "PathResult Untrusted, error 20 at depth 1 = {text = \"\"}"},
    {"*(foundation::toolkit::PathValidator*)misleading", "PathValidator cannot be read"},
    {"*(foundation::certificates::TrustStore*)misleading", "TrustStore cannot be read"},
    {"*(foundation::certificates::X509CertificateChain*)misleading", "X509CertificateChain cannot be read"},
    {"*(foundation::certificates::X509Certificate*)misleading", "X509Certificate cannot be read"},
};

std::vector<std::string> const loadPrinters = {"-batch", "-nx", "-ex", "set width 0", "-x", GDB_PRINTERS};

/// Appends commands that print the values of the caller of stopHere.
std::vector<std::string> withPrintCommands(std::vector<std::string> arguments)
{
    arguments.insert(arguments.end(), {"-ex", "up"});
    for (auto const& row : rows) {
        arguments.insert(arguments.end(), {"-ex", "print " + row.expression});
    }
    return arguments;
}

std::vector<std::string> operator+(std::vector<std::string> left, std::vector<std::string> const& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

void expectRows(ProgramRun const& run)
{
    std::istringstream output(run.output);
    std::size_t count = 0;
    for (std::string line; std::getline(output, line);) {
        auto const number = "$" + std::to_string(count + 1) + " = ";
        if (line.compare(0, number.size(), number) == 0 && count < rows.size()) {
            EXPECT_EQ(line.substr(number.size()), rows[count].shown) << rows[count].expression;
            ++count;
        }
    }
    EXPECT_EQ(count, rows.size()) << run.output << run.errors;
}

} // namespace

TEST(GdbPrinters, ShowValuesOfLiveProcess)
{
    expectRows(runProgram(
        "gdb",
        withPrintCommands(loadPrinters + std::vector<std::string>{"-ex", "break stopHere", "-ex", "run"}) +
            std::vector<std::string>{PRINTED_VALUES_PROGRAM}));
}

TEST(GdbPrinters, ShowSameValuesOfCoreFile)
{
    TemporaryFolder const folder;
    auto const core = (folder.path() / "core").string();
    runProgram(
        "gdb", {"-batch", "-nx", "-ex", "break stopHere", "-ex", "run", "-ex", "generate-core-file " + core,
                PRINTED_VALUES_PROGRAM});
    expectRows(runProgram(
        "gdb", withPrintCommands(loadPrinters + std::vector<std::string>{"-ex", "core-file " + core}) +
                   std::vector<std::string>{PRINTED_VALUES_PROGRAM}));
}
