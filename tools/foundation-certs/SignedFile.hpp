#pragma once

#include <foundation/toolkit/Certificate.hpp>

#include <optional>
#include <string>
#include <vector>

namespace foundation::tools {

/// What a file with PKCS#7 signed data says. Nothing here tells whether its signers are trusted.
struct SignedFile
{
    /// Whether there are signatures, and all of them are valid.
    bool isValid = false;
    /// OpenSSL's reason, if a signature is not valid.
    std::string reason;
    /// The signers' certificates, if the signatures are valid.
    std::vector<toolkit::Certificate> signers;
    /// The embedded certificates.
    std::vector<toolkit::Certificate> certificates;
};

/// Reads the signed data, in PEM or DER, and checks its signatures.
///
/// Detached content is read piece by piece, so it can have any size. The signed data itself is read as a
/// whole, because OpenSSL decodes it as a whole: embedded content needs memory of its size.
/// @param file the signed data
/// @param content the file with the detached content; none if the content is embedded
/// @param others may be the signers' certificates too
/// @throws CertificateException if the file holds no signed data
/// @throws std::runtime_error if a file cannot be read
SignedFile readSignedFile(
    std::string const& file, std::optional<std::string> const& content,
    std::vector<toolkit::Certificate> const& others);

} // namespace foundation::tools
