#include "support/operations/OperationTable.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <string>

// Compares the table of operations with the list of exported symbols, so that no suite misses an operation.

using namespace foundation::test;

namespace {

/// Exported functions without a row, and why.
std::map<std::string, std::string> const& functionsWithoutRow()
{
    static char const privateMember[] = "private; exported with its class";
    static char const base[] = "acts on the error queue itself; RAIIOpenSSLErrorRemover has tests of its own";
    static std::map<std::string, std::string> const reasons{
        {"RAIIOpenSSLErrorRemover::getErrorString", base},
        {"PKCS12Certificate::throwIfImplEmpty", privateMember},
        {"PKCS7Certificate::throwIfImplEmpty", privateMember},
        {"SelfSignedCertBuilder::effectiveCommonName", privateMember},
        {"SelfSignedCertBuilder::makeBasicConstraints", privateMember},
        {"SelfSignedCertBuilder::makeExtendedKeyUsage", privateMember},
        {"SelfSignedCertBuilder::makeKeyUsage", privateMember},
        {"SelfSignedCertBuilder::makeSerialNumber", privateMember},
        {"SelfSignedCertBuilder::makeSubjectAlternativeName", privateMember},
        {"SelfSignedCertBuilder::synthesize", privateMember},
        {"TrustStore::ensureImpl", privateMember},
        {"X509Certificate::throwIfImplEmpty", privateMember},
        {"X509CertificateChain::throwIfImplEmpty", privateMember},
    };
    return reasons;
}

/// The exported implementations: each operation of the handle calls the one of the same name.
bool isImplementation(std::string const& className)
{
    return className == "PKCS7CertificateImpl" || className == "X509CertificateChainImpl";
}

std::string without(std::string text, std::string const& part)
{
    for (auto position = text.find(part); position != std::string::npos; position = text.find(part)) {
        text.erase(position, part.size());
    }
    return text;
}

std::string classOf(std::string const& function)
{
    auto const end = function.rfind("::");
    return end == std::string::npos ? "" : function.substr(0, end);
}

/// Constructors, destructors, assignments and swap: the suite HandleConformance tests them for every class.
bool isSpecialMember(std::string const& function)
{
    auto const className = classOf(function);
    auto const name = className.empty() ? function : function.substr(className.size() + 2);
    return !className.empty() &&
           (name == className || name == "~" + className || name == "operator=" || name == "swap");
}

/// Returns the function's name as rows have it, or an empty text if the line names no function.
std::string functionNamedIn(std::string const& line)
{
    std::string const library = "foundation_certificates: ";
    auto const parameters = line.find('(');
    if (line.rfind(library, 0) != 0 || parameters == std::string::npos) {
        return "";
    }
    auto const whole =
        without(without(line.substr(library.size()), "foundation::certificates::"), "[abi:cxx11]");
    auto const name = whole.substr(0, whole.find('('));
    std::string const insertion = "operator<<(std::ostream&, ";
    if (whole.rfind(insertion, 0) == 0) { // a free function that belongs to the class of its argument
        auto const argument = whole.substr(insertion.size());
        return argument.substr(0, argument.find(' ')) + "::operator<<";
    }
    return name;
}

std::set<std::string> exportedFunctions()
{
    std::set<std::string> functions;
    std::ifstream list(EXPORTED_SYMBOLS);
    for (std::string line; std::getline(list, line);) {
        auto const function = functionNamedIn(line);
        if (!function.empty() && !isSpecialMember(function) && !isImplementation(classOf(function))) {
            functions.insert(function);
        }
    }
    return functions;
}

std::set<std::string> functionsWithRow()
{
    std::set<std::string> functions;
    for (auto const& operation : allOperations()) {
        functions.insert(operation.name.substr(0, operation.name.find(", ")));
    }
    return functions;
}

} // namespace

TEST(OperationTable, HasRowForEveryExportedFunction)
{
    auto const exported = exportedFunctions();
    auto const withRow = functionsWithRow();
    EXPECT_GT(exported.size(), 80U);
    for (auto const& function : exported) {
        bool const hasReason = functionsWithoutRow().count(function) != 0;
        EXPECT_NE(withRow.count(function) != 0, hasReason)
            << function << ": add a row to tests/support/operations/OperationTable.cpp";
    }
}

TEST(OperationTable, NamesOnlyExportedFunctions)
{
    auto const exported = exportedFunctions();
    for (auto const& function : functionsWithRow()) {
        EXPECT_TRUE(exported.count(function) != 0 || isSpecialMember(function)) << function;
    }
    for (auto const& [function, reason] : functionsWithoutRow()) {
        EXPECT_EQ(exported.count(function), 1U) << function;
        EXPECT_NE(reason, "");
    }
}

TEST(OperationTable, HasUniqueNames)
{
    std::set<std::string> names;
    for (auto const& operation : allOperations()) {
        EXPECT_TRUE(names.insert(operation.name).second) << operation.name;
    }
}
