#include "truststore/posix/SystemCertificateAdder.hpp"

#include "certificate/Extensions.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/PEMBlocks.hpp"
#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include <dirent.h>

namespace foundation::certificates::posix {

namespace {

namespace fs = std::filesystem;

using ObjectIdentifiers = std::vector<char const*>;

SystemCertificateLocations wellKnownLocations()
{
    return {
        {
            "/etc/ssl/certs/ca-certificates.crt",                // Debian, Ubuntu, Alpine, Arch
            "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL
            "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora, RHEL, older releases
            "/var/lib/ca-certificates/ca-bundle.pem",            // openSUSE
            "/etc/ssl/ca-bundle.pem",                            // openSUSE, older releases
            "/etc/ca-certificates/extracted/tls-ca-bundle.pem",  // Arch
            "/usr/local/share/certs/ca-root-nss.crt",            // FreeBSD, from its package
            "/etc/ssl/cert.pem",                                 // macOS, FreeBSD, Alpine
        },
        {
            "/etc/ssl/certs",                       // Debian, Ubuntu, openSUSE, Alpine, Arch, FreeBSD
            "/etc/pki/tls/certs",                   // Fedora, RHEL
            "/var/lib/ca-certificates/pem",         // openSUSE
            "/etc/ca-certificates/extracted/cadir", // Arch
            "/usr/share/certs/trusted",             // FreeBSD
        }};
}

/// Not a stream of the standard library's: libc++'s take a failure for the end, and the certificates behind
/// it would be missing without a word.
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openFile(fs::path const& file)
{
    return {std::fopen(file.c_str(), "rb"), std::fclose};
}

bool canBeRead(fs::path const& file)
{
    std::error_code failure;
    return fs::is_regular_file(file, failure) && openFile(file) != nullptr;
}

/// Not an iterator of the standard library's: one that finds no memory may end the process.
using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

Folder openFolder(fs::path const& folder)
{
    return {opendir(folder.c_str()), closedir};
}

bool canBeListed(fs::path const& folder)
{
    return openFolder(folder) != nullptr;
}

std::string firstOf(std::vector<std::string> const& locations, bool (*isUsable)(fs::path const&))
{
    auto const found = std::find_if(locations.begin(), locations.end(), isUsable);
    return found == locations.end() ? std::string() : *found;
}

std::string allLocations(SystemCertificateLocations const& locations)
{
    std::string text;
    for (auto const* const places : {&locations.files, &locations.folders}) {
        for (std::string const& place : *places) {
            text += (text.empty() ? "" : ", ") + place;
        }
    }
    return text;
}

/// Each file once, by its own name, however many links lead to it; in an order that does not depend on the
/// file system.
std::set<fs::path> filesIn(fs::path const& folder)
{
    std::set<fs::path> files;
    auto const content = openFolder(folder);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else reads this one
    while (dirent const* const entry = content == nullptr ? nullptr : readdir(content.get())) {
        std::error_code failure;
        fs::path const file = fs::canonical(folder / entry->d_name, failure);
        if (!failure && fs::is_regular_file(file, failure)) {
            files.insert(file);
        }
    }
    return files;
}

std::string contentOf(fs::path const& file)
{
    File const stream = openFile(file);
    std::string content;
    std::array<char, 4096> part{};
    for (std::size_t length = 1; stream != nullptr && length > 0;) {
        length = std::fread(part.data(), 1, part.size(), stream.get());
        content.append(part.data(), length);
    }
    if (stream == nullptr || std::ferror(stream.get()) != 0) {
        throw TrustStoreException("Failed to read " + file.string());
    }
    return content;
}

std::vector<int> nidsOf(ObjectIdentifiers const& oids)
{
    std::vector<int> nids;
    std::transform(oids.begin(), oids.end(), std::back_inserter(nids), OBJ_txt2nid);
    return nids;
}

bool extendedKeyUsageFits(X509 const* certificate, std::vector<int> const& wanted)
{
    constexpr int isAbsent = -1;
    int finding = 0;
    auto const purposes = makeASN1_OBJECTStack(static_cast<STACK_OF(ASN1_OBJECT)*>(
        X509_get_ext_d2i(certificate, NID_ext_key_usage, &finding, nullptr)));
    // A restriction that cannot be read is one that the certificate does not get past.
    return purposes == nullptr ? finding == isAbsent : namesAnyOf(purposes.get(), wanted);
}

bool trustSettingsFit(X509* certificate, std::vector<int> const& wanted)
{
    auto const* const trusted = X509_get0_trust_objects(certificate);
    auto const* const rejected = X509_get0_reject_objects(certificate);
    return (trusted == nullptr || namesAnyOf(trusted, wanted)) && !namesAnyOf(rejected, wanted);
}

/// The certificate alone of a certificate with settings behind it.
ByteArray withoutTrustSettings(ByteArray const& content)
{
    unsigned char const* position = content.data();
    auto const certificate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(content.size())));
    return ByteArray(content.data(), position);
}

/// One file's worth of certificates on their way to the trust store.
class Delivery
{
public:
    Delivery(TrustStoreImpl& target, TrustStore::Usage usage, bool rethrowFailures)
        : store(target),
          wanted(nidsOf(extendedKeyUsagesFor(usage))),
          rethrowOnFailure(rethrowFailures)
    {}

    void deliverFile(fs::path const& file) const
    {
        std::string content;
        deliver(rethrowOnFailure, [&] { content = contentOf(file); });
        for (PEMBlock const& block : splitPEMBlocks(content)) {
            // The scope ends with each block: OpenSSL's queue is short, and damage in many blocks would push
            // the caller's entries out of it.
            RAIIOpenSSLErrorRemover const errors(false);
            deliver(rethrowOnFailure, [&] { deliverBlock(block, file); });
        }
    }

private:
    void deliverBlock(PEMBlock const& block, fs::path const& file) const
    {
        auto const content = decode(block);
        bool delivered = false;
        if (content && (block.label == "CERTIFICATE" || block.label == "X509 CERTIFICATE")) {
            delivered = deliverCertificate(*content);
        } else if (content && block.label == "TRUSTED CERTIFICATE") {
            delivered = deliverTrustedCertificate(*content);
        }
        if (!delivered) {
            throw TrustStoreException(
                "Unusable PEM block in " + file.string() + ": " + std::string(block.label));
        }
    }

    bool deliverCertificate(ByteArray const& content) const
    {
        auto const certificate = x509FromDER(content);
        // What is no certificate is delivered all the same: the trust store says what is wrong with it.
        if (certificate == nullptr || extendedKeyUsageFits(certificate.get(), wanted)) {
            store.addDERCertificate(content);
        }
        return true;
    }

    bool deliverTrustedCertificate(ByteArray const& content) const
    {
        unsigned char const* position = content.data();
        auto const certificate =
            makeX509(d2i_X509_AUX(nullptr, &position, static_cast<long>(content.size())));
        if (certificate == nullptr) {
            return false;
        }
        if (extendedKeyUsageFits(certificate.get(), wanted) && trustSettingsFit(certificate.get(), wanted)) {
            store.addDERCertificate(withoutTrustSettings(content));
        }
        return true;
    }

    TrustStoreImpl& store;
    std::vector<int> const wanted;
    bool const rethrowOnFailure;
};

} // namespace

SystemCertificateAdder::SystemCertificateAdder() : SystemCertificateAdder(wellKnownLocations()) {}

SystemCertificateAdder::SystemCertificateAdder(SystemCertificateLocations locationsInOrder)
    : locations(std::move(locationsInOrder))
{}

ISystemCertificateAdder* SystemCertificateAdder::clone() const
{
    return new SystemCertificateAdder(*this);
}

void SystemCertificateAdder::addCertificatesTo(
    TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure)
{
    Delivery const delivery(store, usage, rethrowOnFailure);
    if (std::string const bundle = file(); !bundle.empty()) {
        delivery.deliverFile(bundle);
        return;
    }
    std::string const chosenFolder = folder();
    if (chosenFolder.empty()) {
        throw TrustStoreException("Failed to open system certificate store: " + allLocations(locations));
    }
    for (fs::path const& member : filesIn(chosenFolder)) {
        delivery.deliverFile(member);
    }
}

std::string SystemCertificateAdder::file() const
{
    return firstOf(locations.files, canBeRead);
}

std::string SystemCertificateAdder::folder() const
{
    return file().empty() ? firstOf(locations.folders, canBeListed) : std::string();
}

} // namespace foundation::certificates::posix
