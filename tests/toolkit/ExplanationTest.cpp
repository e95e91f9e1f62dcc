#include "support/Text.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "validation/VerifyErrors.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/toolkit/Explanation.hpp>

#include <openssl/x509_vfy.h>

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

using Status = CertificateChainStatus;

constexpr Status allStatuses[] = {Status::Valid,   Status::Untrusted, Status::SelfSigned,   Status::CRLError,
                                  Status::Revoked, Status::Expired,   Status::BadSignature, Status::Failed};

/// Larger than OpenSSL's largest code, and without a meaning.
constexpr int unknownCode = 1000;

PathResult resultOf(Status status, int errorCode)
{
    PathResult result;
    result.status = status;
    result.errorCode = errorCode;
    return result;
}

std::string wordsOf(Explanation const& explanation)
{
    return explanation.message + " " + explanation.check + " " + explanation.advice;
}

/// Whether the code has words of its own, and not only those of its verdict.
bool hasWords(int code)
{
    auto const status = statusForVerifyError(code);
    return wordsOf(explain(resultOf(status, code))) != wordsOf(explain(resultOf(status, unknownCode)));
}

std::string cells(Explanation const& explanation)
{
    return " | " + explanation.message + " | " + explanation.check + " | " + explanation.advice + " |\n";
}

/// Returns the tables of the page about errors, as they follow from the words of the library.
std::string expectedTables()
{
    std::string text = "| Verdict | What it means | How to check | What to do |\n|---|---|---|---|\n";
    for (auto const status : allStatuses) {
        text += "| `" + std::string(toString(status)) + "`" + cells(explain(resultOf(status, unknownCode)));
    }
    text += "\n| Code | Verdict | What it means | How to check | What to do |\n|--:|---|---|---|---|\n";
    for (int code = 1; code < unknownCode; ++code) {
        if (hasWords(code)) {
            auto const status = statusForVerifyError(code);
            text += "| " + std::to_string(code) + " | `" + std::string(toString(status)) + "`" +
                    cells(explain(resultOf(status, code)));
        }
    }
    return text;
}

/// A chain of three, and what a validation finds wrong with it.
struct Case
{
    std::string name;
    Topology pki;
    int errorCode;
    int depth;
    std::string subject;
    std::string message;
};

Topology chainWith(std::string const& mutated, Mutation const& mutate)
{
    return Topology({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, mutated, mutate);
}

void expire(CertificateSpec& spec)
{
    spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
}

void delay(CertificateSpec& spec)
{
    spec.notBefore = TimeSpec::fromNow(std::chrono::hours(1));
}

void damageSignature(CertificateSpec& spec)
{
    spec.damagedSignature = true;
}

std::vector<Case> cases()
{
    return {
        {"expired leaf", chainWith("leaf", expire), X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=leaf",
         "The certificate has expired."},
        {"expired CA", chainWith("ca", expire), X509_V_ERR_CERT_HAS_EXPIRED, 1, "CN=ca",
         "The certificate has expired."},
        {"early leaf", chainWith("leaf", delay), X509_V_ERR_CERT_NOT_YET_VALID, 0, "CN=leaf",
         "The certificate is not valid yet."},
        {"damaged leaf", chainWith("leaf", damageSignature), X509_V_ERR_CERT_SIGNATURE_FAILURE, 0, "CN=leaf",
         "The signature of the certificate is wrong: it was changed, or another key signed it."},
        {"CA without basic constraints of a CA",
         chainWith("ca", [](CertificateSpec& spec) { spec.setExtension("basicConstraints", "CA:FALSE"); }),
         X509_V_ERR_INVALID_CA, 1, "CN=ca", "A certificate of the chain is used as a CA and is no CA."},
    };
}

void expectPlace(Explanation const& explanation, Case const& expected)
{
    EXPECT_EQ(explanation.errorCode, expected.errorCode);
    EXPECT_EQ(explanation.depth, expected.depth);
    EXPECT_EQ(explanation.subject, expected.subject);
    EXPECT_EQ(explanation.message, expected.message);
    EXPECT_FALSE(explanation.check.empty());
    EXPECT_FALSE(explanation.advice.empty());
}

/// Returns the cells of a table's row, trimmed; none for any other line.
std::vector<std::string> cellsOf(std::string const& line)
{
    std::vector<std::string> cells;
    std::istringstream stream(line);
    std::string cell;
    if (line.empty() || line.front() != '|') {
        return cells;
    }
    std::getline(stream, cell, '|');
    while (std::getline(stream, cell, '|')) {
        auto const first = cell.find_first_not_of(' ');
        auto const last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

/// Returns the rows of the page's tables between two headings, without heads and lines.
std::vector<std::vector<std::string>> rowsOfPage(std::string const& from, std::string const& to)
{
    auto const page = contentOfFile(ERRORS_PAGE);
    auto const start = page.find("\n## " + from + "\n");
    std::istringstream section(page.substr(start, page.find("\n## " + to + "\n") - start));
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(section, line);) {
        auto const cells = cellsOf(line);
        bool const isHead = cells.empty() || cells.front() == "Class" || beginsWith(cells.front(), "Text") ||
                            beginsWith(cells.front(), "---");
        if (!isHead) {
            rows.push_back(cells);
        }
    }
    return rows;
}

/// Returns the texts of a row that documents failures: in its second cell after the class, or in its first.
std::vector<std::string> textsOf(std::vector<std::string> const& cells)
{
    bool const hasClass = cells.size() > 2;
    auto text = cells[hasClass ? 1 : 0];
    if (text == "as for a certificate" || text == "Internal error:…") {
        return {};
    }
    std::vector<std::string> texts;
    std::istringstream stream(text.substr(0, text.find("…")));
    for (std::string part; std::getline(stream, part, ';');) {
        auto const first = part.find_first_not_of(' ');
        texts.push_back(part.substr(first, part.find("\\n") - first));
    }
    return texts;
}

CertificateValidationResults resultsWith(std::string const& text)
{
    return {Status::Expired, text};
}

} // namespace

TEST(Explanation, NamesPlaceOfValidationFailure)
{
    for (auto const& each : cases()) {
        SCOPED_TRACE(each.name);
        TrustStore roots;
        roots.addCertificate(X509Certificate(each.pki["root"].der()));
        X509CertificateChain const chain(each.pki.pemBundle({"leaf", "ca"}));
        auto const results = X509Certificate(each.pki["leaf"].der()).validateCertificate(chain, {}, roots);
        expectPlace(explain(results), each);
    }
}

TEST(Explanation, NamesPlaceOfPathFailure)
{
    for (auto const& each : cases()) {
        SCOPED_TRACE(each.name);
        PathValidator const validator({Certificate::fromDER(each.pki["root"].der())});
        auto const result = validator.validate(
            Certificate::fromDER(each.pki["leaf"].der()), {Certificate::fromDER(each.pki["ca"].der())});
        expectPlace(explain(result), each);
    }
}

TEST(Explanation, ValidChainNeedsNothing)
{
    for (auto const& explanation :
         {explain(CertificateValidationResults(Status::Valid)), explain(resultOf(Status::Valid, 0)),
          explain(CertificateValidationResults(Status::Valid, "Errors present: Error code 7"))}) {
        EXPECT_EQ(explanation.errorCode, 0);
        EXPECT_EQ(explanation.depth, 0);
        EXPECT_EQ(explanation.subject, "");
        EXPECT_EQ(explanation.message, "The certificate is valid.");
        EXPECT_EQ(explanation.check, "There is nothing to check.");
        EXPECT_EQ(explanation.advice, "Nothing has to be done.");
    }
}

TEST(Explanation, SelfSignedResultWithoutTextHasCode18)
{
    auto const explanation = explain(CertificateValidationResults(Status::SelfSigned));
    EXPECT_EQ(explanation.errorCode, 18);
    EXPECT_EQ(explanation.depth, 0);
    EXPECT_EQ(explanation.message, "The certificate signed itself, and it is not trusted.");
    EXPECT_EQ(
        explanation.advice,
        "Add it to the trust store if you know its origin, or use a certificate from a trusted CA.");
}

TEST(Explanation, SelfSignedPathNamesItsRoot)
{
    auto const pki = chainWith("", {});
    auto const result =
        PathValidator(std::vector<Certificate>())
            .validate(
                Certificate::fromDER(pki["leaf"].der()),
                {Certificate::fromDER(pki["ca"].der()), Certificate::fromDER(pki["root"].der())});
    auto const explanation = explain(result);
    EXPECT_EQ(explanation.errorCode, X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN);
    EXPECT_EQ(explanation.depth, 2);
    EXPECT_EQ(explanation.subject, "CN=root");
    EXPECT_EQ(explanation.message, "The chain ends at a root that is not trusted.");
}

TEST(Explanation, ReadsBothFormsOfText)
{
    std::string const report =
        "Errors present: Error code 10  at depth 2Certificate Subject Name=CN=a\\, b\n. "
        "\nMessage:certificate has expired\n";
    for (auto const& text : {report, "Validation Failed. Return code=10." + report}) {
        auto const explanation = explain(resultsWith(text));
        EXPECT_EQ(explanation.errorCode, 10);
        EXPECT_EQ(explanation.depth, 2);
        EXPECT_EQ(explanation.subject, "CN=a\\, b");
        EXPECT_EQ(explanation.message, "The certificate has expired.");
    }
}

TEST(Explanation, UsesVerdictForOtherTexts)
{
    for (std::string const text :
         {"", "some text", "Errors present: Error code ", "Errors present: Error code x",
          "Errors present: Error code 99999999999999999999  at depth 0Certificate Subject Name=\n. "
          "\nMessage:",
          "Errors present: Error code 10  at depth ",
          "Errors present: Error code 10  at depth 0Certificate Subject Name=CN=a",
          "Validation Failed. Return code=", "Validation Failed. Return code=10"}) {
        SCOPED_TRACE(text);
        auto const explanation = explain(resultsWith(text));
        EXPECT_EQ(explanation.errorCode, X509_V_ERR_UNSPECIFIED);
        EXPECT_EQ(explanation.depth, 0);
        EXPECT_EQ(explanation.subject, "");
        EXPECT_EQ(explanation.message, "A certificate of the chain has expired.");
    }
}

TEST(Explanation, HasWordsForEveryVerdictAndCode)
{
    for (auto const status : allStatuses) {
        for (int code = 0; code <= unknownCode; ++code) {
            auto const explanation = explain(resultOf(status, code));
            EXPECT_EQ(explanation.errorCode, code);
            EXPECT_TRUE(endsWith(explanation.message, ".")) << explanation.message;
            EXPECT_TRUE(endsWith(explanation.check, ".")) << explanation.check;
            EXPECT_TRUE(endsWith(explanation.advice, ".")) << explanation.advice;
            EXPECT_EQ(explanation.message == "The certificate is valid.", status == Status::Valid) << code;
        }
    }
}

TEST(Explanation, HasOwnWordsForEveryCodeWithVerdict)
{
    for (int code = 1; code < unknownCode; ++code) {
        if (statusForVerifyError(code) != Status::Failed) {
            EXPECT_TRUE(hasWords(code)) << code;
        }
    }
}

TEST(Explanation, IgnoresDepthOutsideOfChain)
{
    auto result = resultOf(Status::Expired, X509_V_ERR_CERT_HAS_EXPIRED);
    result.chain = {Certificate::fromDER(makeRoot("root").der())};
    for (int const depth : {-1, 1}) {
        result.errorDepth = depth;
        EXPECT_EQ(explain(result).subject, "");
    }
}

TEST(Explanation, KeepsErrorQueue)
{
    auto result = resultOf(Status::Expired, X509_V_ERR_CERT_HAS_EXPIRED);
    result.chain = {Certificate::fromDER(makeRoot("root").der())};
    CleanErrorQueue const queue;
    auto const foreign = queueForeignError();
    EXPECT_EQ(explain(result).subject, "CN=root");
    EXPECT_EQ(explain(resultsWith("some text")).errorCode, X509_V_ERR_UNSPECIFIED);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(Explanation, IsOnThePageAboutErrors)
{
    auto const page = contentOfFile(ERRORS_PAGE);
    EXPECT_TRUE(contains(page, expectedTables())) << "Replace the tables in " ERRORS_PAGE " by:\n\n"
                                                  << expectedTables();
}

TEST(ExplanationOfFailure, HasWordsForEveryDocumentedText)
{
    auto rows = rowsOfPage("Any operation", "Verdicts and what to do");
    EXPECT_GT(rows.size(), 100U);
    auto const rare = rowsOfPage("Only out of memory, or never", "Stricter than a direct use of OpenSSL");
    EXPECT_GT(rare.size(), 3U);
    rows.insert(rows.end(), rare.begin(), rare.end());
    for (auto const& row : rows) {
        for (auto const& text : textsOf(row)) {
            EXPECT_NE(explain(CertificateException(text)).message, text);
        }
    }
}

TEST(ExplanationOfFailure, IsOnThePageAboutErrors)
{
    auto const rows = rowsOfPage("Exceptions and what to do", "Only out of memory, or never");
    EXPECT_GT(rows.size(), 90U);
    for (auto const& row : rows) {
        ASSERT_EQ(row.size(), 4U);
        for (auto const& text : {row[0], row[0] + " and more"}) {
            auto const explanation = explain(CertificateException(text));
            EXPECT_EQ(explanation.message, row[1]) << text;
            EXPECT_EQ(explanation.check, row[2]) << text;
            EXPECT_EQ(explanation.advice, row[3]) << text;
        }
    }
}

TEST(ExplanationOfFailure, UsesLongestBeginning)
{
    EXPECT_EQ(
        explain(TrustStoreException("Failed to read X509_STORE")).message,
        "The trust store could not be read because memory ran out.");
    EXPECT_EQ(
        explain(TrustStoreException("Failed to read /etc/ssl/certs")).message,
        "A file or folder of roots could not be read.");
}

TEST(ExplanationOfFailure, HasNoPlace)
{
    auto const explanation = explain(IncorrectPassphrase("Input passphrase is incorrect."));
    EXPECT_EQ(explanation.errorCode, 0);
    EXPECT_EQ(explanation.depth, 0);
    EXPECT_EQ(explanation.subject, "");
    EXPECT_EQ(explanation.message, "The passphrase does not open the bundle.");
    EXPECT_EQ(
        explanation.check,
        "openssl pkcs12 -in FILE -info -noout asks for the passphrase and says whether it fits.");
    EXPECT_EQ(explanation.advice, "Try another passphrase. A bundle without a MAC never opens.");
}

TEST(ExplanationOfFailure, ShowsOtherTextsThemselves)
{
    auto const explanation = explain(InvalidArgument("Unknown attribute: NOPE"));
    EXPECT_EQ(explanation.message, "Unknown attribute: NOPE");
    EXPECT_EQ(explanation.check, "Look up the text in the documentation of the function that was called.");
    EXPECT_EQ(explanation.advice, "Correct the input that the message names.");
}

TEST(ExplanationOfFailure, NamesShortageOfMemory)
{
    EXPECT_EQ(explain(std::bad_alloc()).message, "The process ran out of memory.");
    EXPECT_EQ(
        explain(std::bad_alloc()).check,
        "Look at the memory that is free, and at the limits of the process.");
    EXPECT_EQ(explain(std::bad_alloc()).advice, "Free memory and try again.");
}
