#include "Files.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace foundation::tools {

using toolkit::Certificate;
using toolkit::CertificateReader;

namespace {

std::string restOf(std::istream& stream)
{
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace

std::string contentOf(std::string const& file)
{
    if (file == "-") {
        return restOf(std::cin);
    }
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (stream && !std::filesystem::is_directory(file)) {
        return restOf(stream);
    }
    auto const code = errno == 0 ? EISDIR : errno;
    throw std::runtime_error(file + ": " + std::generic_category().message(code));
}

CertificateReader readerOf(std::string const& path)
{
    return path == "-" ? CertificateReader(std::cin, "-") : CertificateReader(std::filesystem::path(path));
}

std::vector<Certificate> certificatesIn(std::string const& file)
{
    std::vector<Certificate> found;
    auto reader = readerOf(file);
    while (auto const entry = reader.next()) {
        if (!entry->certificate) {
            throw std::runtime_error(entry->source + ": " + entry->failure);
        }
        found.push_back(*entry->certificate);
    }
    return found;
}

std::vector<certificates::ByteArray> crlsIn(std::string const& file)
{
    auto const content = contentOf(file);
    std::vector<certificates::ByteArray> crls;
    std::unique_ptr<BIO, decltype(&BIO_free)> const text(
        BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), &BIO_free);
    for (;;) {
        std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> const crl(
            PEM_read_bio_X509_CRL(text.get(), nullptr, nullptr, nullptr), &X509_CRL_free);
        if (crl == nullptr) {
            break;
        }
        certificates::ByteArray der(static_cast<std::size_t>(i2d_X509_CRL(crl.get(), nullptr)));
        auto* position = der.data();
        i2d_X509_CRL(crl.get(), &position);
        crls.push_back(std::move(der));
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) {
        throw std::runtime_error(file + ": holds a damaged CRL");
    }
    ERR_clear_error();
    if (crls.empty()) {
        crls.emplace_back(content.begin(), content.end());
    }
    return crls;
}

} // namespace foundation::tools
