#include <foundation/toolkit/CertificateReader.hpp>

#include "reader/FileWalk.hpp"
#include "reader/SourceReader.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/crypto.h>

#include <utility>

namespace foundation::toolkit {

namespace {

void wipe(std::string& secret)
{
    OPENSSL_cleanse(secret.data(), secret.size());
}

} // namespace

struct CertificateReader::Impl
{
    Impl() = default;
    Impl(Impl const&) = delete;
    Impl& operator=(Impl const&) = delete;
    ~Impl() { wipe(passphrase); }

    /// Returns whether there is a source to read from. A file that cannot be opened becomes the failure.
    bool findSource(std::optional<ReadCertificate>& failure)
    {
        if (current || !files) {
            return current.has_value();
        }
        auto file = files->next();
        if (!file) {
            return false;
        }
        if (file->bytes == nullptr) {
            failure = ReadCertificate{std::move(file->path), 0, std::nullopt, std::move(file->failure)};
            return true;
        }
        current.emplace(std::move(file->path), std::move(file->bytes));
        return true;
    }

    std::string passphrase;
    /// No value for a stream.
    std::optional<FileWalk> files;
    std::optional<SourceReader> current;
};

CertificateReader::CertificateReader(std::filesystem::path const& fileOrFolder)
    : impl(std::make_unique<Impl>())
{
    impl->files.emplace(fileOrFolder);
}

CertificateReader::CertificateReader(std::istream& stream, std::string name) : impl(std::make_unique<Impl>())
{
    impl->current.emplace(std::move(name), std::make_unique<StreamSource>(stream));
}

CertificateReader::CertificateReader(CertificateReader&& other) noexcept = default;

CertificateReader& CertificateReader::operator=(CertificateReader&& other) noexcept = default;

CertificateReader::~CertificateReader() = default;

CertificateReader& CertificateReader::withPassphrase(std::string passphrase)
{
    if (impl != nullptr) {
        wipe(impl->passphrase);
        impl->passphrase = passphrase;
    }
    wipe(passphrase);
    return *this;
}

std::optional<ReadCertificate> CertificateReader::next()
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (impl == nullptr) {
        return std::nullopt;
    }
    std::optional<ReadCertificate> failure;
    while (impl->findSource(failure)) {
        if (failure) {
            return failure;
        }
        if (auto result = impl->current->next(impl->passphrase)) {
            return result;
        }
        impl->current.reset();
    }
    return std::nullopt;
}

} // namespace foundation::toolkit
