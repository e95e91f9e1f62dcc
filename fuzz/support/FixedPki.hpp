#pragma once

#include "support/pki/TestPki.hpp"

#include <string>

/// A PKI that is the same in every process, but for the signatures' randomness: what the seeds' program has
/// signed is good in a fuzz target, today and in ten years.
namespace foundation::fuzz {

/// The P-256 key that belongs to the name; anybody can compute it.
test::KeyHandle fixedKey(std::string const& name);

/// root -> ca -> leaf, valid from 1970 to 9999. The URLs of the CRLs that leaf and ca name end in
/// `leafCrlPath` and `caCrlPath`.
struct FixedPki
{
    test::CertificateAndKey root;
    test::CertificateAndKey ca;
    test::CertificateAndKey leaf;
};

FixedPki const& fixedPki();

constexpr char const leafCrlPath[] = "/leaf.crl";
constexpr char const caCrlPath[] = "/ca.crl";

/// Fixed key, serial number and validity, in a certificate that the test PKI makes.
test::Mutation fixed(std::string const& name, std::string const& serialNumber);

test::TimeSpec startOfTime();
test::TimeSpec endOfTime();

} // namespace foundation::fuzz
