#pragma once

/// @file
/// The certificates in one structure: a certificate itself, PKCS#7 signed data, or a PKCS#12 bundle.

#include <foundation/toolkit/Certificate.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation::toolkit {

/// A certificate, or the reason why it cannot be read.
struct Member
{
    std::optional<Certificate> certificate{};
    std::string failure{};
    /// The failure hides all other certificates of the structure.
    bool isWhole = false;
};

/// The members of a structure, one at a time, so that a structure with very many of them needs no more
/// memory.
class Members
{
public:
    Members() = default;
    Members(Members const&) = delete;
    Members& operator=(Members const&) = delete;
    virtual ~Members() = default;

    /// Returns the next member; nothing at the end. After an exception, the next call repeats the step that
    /// failed.
    /// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
    virtual std::optional<Member> next() = 0;
};

enum class Structure
{
    Certificate,
    SignedData,
    Bundle,
    Other
};

/// Returns the kind of the structure that begins here. Looks only at its first two headers, so the bytes may
/// be incomplete.
Structure structureOf(std::string_view bytes);

/// Returns the certificate in the DER form, or why it cannot be read.
Member memberOf(std::string_view der);

/// Returns the failure as the only member.
std::unique_ptr<Members> failureAlone(std::string failure);

/// Returns the members of the structure at the start of the bytes. Tries to read other bytes as a
/// certificate.
std::unique_ptr<Members> membersOf(std::string bytes, std::string const& passphrase);

} // namespace foundation::toolkit
