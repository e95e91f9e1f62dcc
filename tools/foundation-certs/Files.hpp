#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/CertificateReader.hpp>

#include <string>
#include <vector>

/// Whole files as input. "-" is standard input. A failure is a std::runtime_error that begins with the name.
namespace foundation::tools {

/// Returns all bytes of the file.
std::string contentOf(std::string const& file);

/// Returns a reader of the file or folder.
toolkit::CertificateReader readerOf(std::string const& path);

/// Returns all certificates of the file or folder, in any format that toolkit::CertificateReader reads. One
/// that cannot be read is a failure.
std::vector<toolkit::Certificate> certificatesIn(std::string const& file);

/// Returns all CRLs of the file in DER encoding. The file holds one CRL in DER, or PEM blocks.
std::vector<certificates::ByteArray> crlsIn(std::string const& file);

} // namespace foundation::tools
