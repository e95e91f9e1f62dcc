#pragma once

#include "support/pki/TestPki.hpp"

#include <string>

/// A PKI with the same keys, names and times in every process. What the seeds' program signs is valid in a
/// fuzz target, also years later.
namespace foundation::fuzz {

/// Returns the P-256 key that is computed from the name.
test::KeyHandle fixedKey(std::string const& name);

/// root -> ca -> leaf, valid from 1970 to 9999. The CRL URLs of leaf and ca end in `leafCrlPath` and
/// `caCrlPath`.
struct FixedPki
{
    test::CertificateAndKey root;
    test::CertificateAndKey ca;
    test::CertificateAndKey leaf;
};

FixedPki const& fixedPki();

constexpr char const leafCrlPath[] = "/leaf.crl";
constexpr char const caCrlPath[] = "/ca.crl";

/// Returns a mutation that sets a fixed key, serial number and validity.
test::Mutation fixed(std::string const& name, std::string const& serialNumber);

test::TimeSpec startOfTime();
test::TimeSpec endOfTime();

} // namespace foundation::fuzz
