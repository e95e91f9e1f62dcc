#pragma once

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/export.hpp>

#include <cstddef>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

namespace foundation::toolkit {

/// One result of a CertificateReader: a certificate, or the reason why it cannot be read.
struct ReadCertificate
{
    /// The file's path, or the name that was given for the stream.
    std::string source;
    /// The position among the certificates of the source, from 1. Damaged ones count. 0 if the failure
    /// concerns the source as a whole.
    std::size_t index = 0;
    /// The certificate. A key that the library does not support is no failure.
    std::optional<Certificate> certificate;
    /// Why there is no certificate; empty if there is one.
    std::string failure;
};

/// Reads every certificate of a file, a folder or a stream, one at a time, in bounded memory:
///
///     CertificateReader reader("/etc/ssl/certs");
///     while (auto const found = reader.next()) {
///         std::cout << found->source << ": "
///                   << (found->certificate ? found->certificate->getSubject() : found->failure) << '\n';
///     }
///
/// **Formats.** The content decides, not the file's name:
/// - PEM blocks with certificates, PKCS#7 or PKCS#12, among any other text and blocks. A BEGIN line ends a
///   block that has no END line yet.
/// - Certificates in DER, one after the other.
/// - The certificates in PKCS#7 signed data, in DER or BER.
/// - The certificates in a PKCS#12 bundle, with the passphrase. Private keys are not read.
///
/// **Failures.** What cannot be read becomes a result with a failure, and reading continues with what
/// follows: a damaged certificate never hides the others. A source without any certificate gives one result
/// with index 0. So does a path that cannot be opened.
///
/// **Folders.** Files are read in the order of their names, with those of the folders inside. Each file is
/// read once: a link to a file inside the folder is skipped, and so is a second link to one outside. Links to
/// folders, and devices, sockets and FIFOs, are skipped. A device, socket or FIFO that is named itself is
/// read.
///
/// **Limits.** A PEM block, or a structure in DER, that is larger than 16 MiB is a failure. From a character
/// device, such as `/dev/zero`, at most 64 MiB are read. A PKCS#12 bundle sets how often its passphrase is
/// hashed: one that needs more than 10,000,000 rounds, which take several seconds, is a failure.
///
/// A reader is for one thread at a time. A reader that was moved from has no results.
class FOUNDATION_TOOLKIT_EXPORT CertificateReader
{
public:
    /// Prepares to read a file, or all files of a folder. Opens nothing yet.
    explicit CertificateReader(std::filesystem::path const& fileOrFolder);
    /// Prepares to read the rest of a stream, which must outlive the reader. Reads through the stream's
    /// buffer and leaves its state flags unchanged. The name becomes the source of the results.
    CertificateReader(std::istream& stream, std::string name);

    /// Takes the content of the other reader.
    CertificateReader(CertificateReader&& other) noexcept;
    /// Takes the content of the other reader.
    CertificateReader& operator=(CertificateReader&& other) noexcept;
    /// Overwrites the passphrase with zeros.
    ~CertificateReader();

    /// Sets the passphrase for PKCS#12 bundles, from the next result on, and returns the reader. Without one,
    /// only bundles with an empty passphrase can be read. A passphrase that does not fit is a failure of that
    /// source.
    CertificateReader& withPassphrase(std::string passphrase);

    /// Returns the next result; nothing at the end. Leaves OpenSSL's error queue as it was, but for bundles
    /// with OpenSSL 4.0: its own code for passphrases (PBES2) removes earlier entries.
    /// @throws X509CertificateException "Internal error: OpenSSL ran out of memory.", "Internal error: Unable
    ///     to read the certificate's extensions." if OpenSSL runs out of memory. The next call repeats the
    ///     step that failed.
    std::optional<ReadCertificate> next();

private:
    struct Impl;

    std::unique_ptr<Impl> impl;
};

} // namespace foundation::toolkit
