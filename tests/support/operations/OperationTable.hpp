#pragma once

#include "support/operations/Operation.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/KeyInfo.hpp>

#include <string>
#include <vector>

/// @file
/// The table of all public operations. The suites that run over every operation take their cases from here:
/// handle conformance, error queue, lock order, threads, allocation failure, damaged input, fuzzing and
/// benchmarks. A new operation gets one row; `OperationTable.HasRowForEveryExportedFunction` fails without
/// it.

namespace foundation::test {

/// What the encodings work on: the same content as bytes and as text.
struct Encoded
{
    certificates::ByteArray bytes;
    std::string base64;
    std::string hex;
};

Encoded makeEncoded();

/// One object of each class that only stores values.
struct Values
{
    certificates::PublicKeyInfo rsaKey;
    certificates::PublicKeyInfo eccKey;
    certificates::PrivateKeyInfo rsaPrivateKey;
    certificates::PrivateKeyInfo eccPrivateKey;
    certificates::CertificateRevocationResults revocation;
    certificates::CertificateValidationResults validation;
    certificates::PKCS7CertificateValidationResults verification;
};

Values makeValues();

std::vector<Operation<certificates::X509Certificate>> const& certificateOperations();
std::vector<Operation<certificates::X509CertificateChain>> const& chainOperations();
std::vector<Operation<certificates::TrustStore>> const& storeOperations();
std::vector<Operation<certificates::PKCS7Certificate>> const& signedDataOperations();
std::vector<Operation<certificates::PKCS12Certificate>> const& bundleOperations();
std::vector<Operation<certificates::SelfSignedCertBuilder>> const& builderOperations();
std::vector<Operation<Encoded>> const& encodingOperations();
std::vector<Operation<Values>> const& valueOperations();

/// Returns the operations that use no other object.
template <class Object>
std::vector<Operation<Object>> operationsWithoutOthers(std::vector<Operation<Object>> const& table)
{
    std::vector<Operation<Object>> chosen;
    for (auto const& operation : table) {
        if (!operation.usesOthers) {
            chosen.push_back(operation);
        }
    }
    return chosen;
}

/// Returns the operations that use other objects.
template <class Object>
std::vector<Operation<Object>> operationsWithOthers(std::vector<Operation<Object>> const& table)
{
    std::vector<Operation<Object>> chosen;
    for (auto const& operation : table) {
        if (operation.usesOthers) {
            chosen.push_back(operation);
        }
    }
    return chosen;
}

/// A row of any part of the table, bound to its object in a set of objects.
struct BoundOperation
{
    std::string name;
    /// The member of `Objects` that it belongs to; empty for an operation on none of them.
    std::string owner;
    Access access = Access::Reads;
    bool isCostly = false;
    ForeignErrors foreignErrors = ForeignErrors::Stay;
    /// Runs the operation and returns its answer as a text.
    std::function<std::string(Objects&)> answer{};
};

/// The whole table.
std::vector<BoundOperation> const& allOperations();

/// The operations that only read and are fast, and some that combine other members of `Objects`.
std::vector<BoundOperation> const& readOperations();

} // namespace foundation::test
