#include "truststore/posix/SystemCertificateAdder.hpp"

#include "certificate/Extensions.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/PEMBlocks.hpp"
#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/TrustStoreImpl.hpp"
#include "truststore/posix/InputFiles.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

namespace foundation::certificates::posix {

namespace {

namespace fs = std::filesystem;

bool doesNotExist(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

/// Whether the next location is used instead.
bool isMissing(int error)
{
    return doesNotExist(error) || error == EACCES;
}

/// Whether the link or its target is missing.
bool isDangling(std::error_code const& failure)
{
    return failure == std::errc::no_such_file_or_directory || failure == std::errc::not_a_directory ||
           failure == std::errc::too_many_symbolic_link_levels;
}

/// Whether the process lacks a resource. Such an error says nothing about the file.
bool isShortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

/// Returns the first file that is not missing.
std::optional<InputFile> openFirst(std::vector<std::string> const& files)
{
    for (std::string const& path : files) {
        InputFile file(path);
        if (!isMissing(file.error()) && (file.error() != 0 || file.isRegular())) {
            return file;
        }
    }
    return std::nullopt;
}

/// Returns the first folder that is not missing.
std::optional<InputFolder> openFirstFolder(std::vector<std::string> const& folders)
{
    for (std::string const& path : folders) {
        InputFolder folder(path);
        if (!isMissing(folder.error())) {
            return folder;
        }
    }
    return std::nullopt;
}

template <class Input>
std::string pathOf(std::optional<Input> const& input)
{
    return input ? input->path() : std::string();
}

[[noreturn]] void failToRead(std::string const& path)
{
    throw TrustStoreException("Failed to read " + path);
}

template <class Input>
void throwIfFailed(Input const& input)
{
    if (input.error() != 0) {
        failToRead(input.path());
    }
}

/// Returns the file's content.
/// @throws TrustStoreException "Failed to read " and the path, if opening or reading has failed
std::string contentOf(InputFile file)
{
    throwIfFailed(file);
    std::string content = file.read();
    throwIfFailed(file);
    return content;
}

/// Returns the names in the folder.
/// @throws TrustStoreException "Failed to read " and the path, if opening or listing has failed
std::vector<std::string> namesIn(InputFolder folder)
{
    throwIfFailed(folder);
    auto names = folder.list();
    throwIfFailed(folder);
    return names;
}

[[noreturn]] void failToOpen(std::vector<std::string> const& places)
{
    std::string text;
    for (std::string const& place : places) {
        text += (text.empty() ? "" : ", ") + place;
    }
    throw TrustStoreException("Failed to open system certificate store: " + text);
}

/// Whether the certificate may serve one of the purposes. False if it has a restriction that cannot be read.
/// @throws X509CertificateException as extendedKeyUsagesOf does
bool extendedKeyUsageFits(X509 const* certificate, std::vector<int> const& wanted)
{
    auto const purposes = extendedKeyUsagesOf(certificate);
    if (purposes == nullptr) {
        constexpr int fromTheStart = -1;
        return X509_get_ext_by_NID(certificate, NID_ext_key_usage, fromTheStart) < 0;
    }
    return namesAnyOf(purposes.get(), wanted);
}

bool trustSettingsFit(X509* certificate, std::vector<int> const& wanted)
{
    auto const* const trusted = X509_get0_trust_objects(certificate);
    auto const* const rejected = X509_get0_reject_objects(certificate);
    return (trusted == nullptr || namesAnyOf(trusted, wanted)) && !namesAnyOf(rejected, wanted);
}

/// Returns the certificate without the settings that follow it.
ByteArray withoutTrustSettings(ByteArray const& content)
{
    unsigned char const* position = content.data();
    auto const certificate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(content.size())));
    return ByteArray(content.data(), position);
}

/// Delivers the certificates of files and folders to a trust store.
class Delivery
{
public:
    Delivery(TrustStoreImpl& target, TrustStore::Usage usage, bool rethrowFailures)
        : store(target),
          wanted(extendedKeyUsageNIDs(usage)),
          rethrowOnFailure(rethrowFailures)
    {}

    /// Delivers from the first location that is not missing.
    void deliverFirst(SystemCertificateLocations const& locations) const
    {
        if (auto bundle = openFirst(locations.files)) {
            deliverBundle(*std::move(bundle));
        } else if (auto folder = openFirstFolder(locations.folders)) {
            deliverFolder(*std::move(folder));
        } else {
            auto places = locations.files;
            places.insert(places.end(), locations.folders.begin(), locations.folders.end());
            failToOpen(places);
        }
    }

    /// Delivers from all named locations.
    void deliverAll(NamedCertificateLocations const& locations) const
    {
        if (!locations.file.empty()) {
            deliverNamedFile(locations.file);
        }
        if (!locations.folders.empty()) {
            deliverNamedFolders(splitFolders(locations.folders));
        }
    }

private:
    void deliverNamedFile(std::string const& path) const
    {
        InputFile file(path);
        // A device is allowed because of /dev/null. A pipe could be read only once.
        if (file.error() == 0 && !file.isRegular() && !file.isCharacterDevice()) {
            failToRead(path);
        }
        deliverBundle(std::move(file));
    }

    void deliverNamedFolders(std::vector<std::string> const& paths) const
    {
        bool isAnyThere = false;
        for (std::string const& path : paths) {
            InputFolder folder(path);
            if (!doesNotExist(folder.error())) {
                isAnyThere = true;
                deliverFolder(std::move(folder));
            }
        }
        if (!isAnyThere) {
            failToOpen(paths);
        }
    }

    /// Delivers the certificates of a bundle. A failure to read it is not logged but always thrown.
    void deliverBundle(InputFile file) const
    {
        std::string const path = file.path();
        deliverContent(contentOf(std::move(file)), path);
    }

    /// Delivers the certificates of all regular files in the folder. A failure to list it is not logged but
    /// always thrown.
    void deliverFolder(InputFolder folder) const
    {
        fs::path const path = folder.path();
        auto const names = namesIn(std::move(folder));
        for (fs::path const& member : membersOf(path, names)) {
            deliverMember(member);
        }
    }

    /// Returns the regular files among the names, with all links resolved: each file once, in an order that
    /// does not depend on the file system. Leaves out dangling links.
    std::set<fs::path> membersOf(fs::path const& folder, std::vector<std::string> const& names) const
    {
        std::set<fs::path> members;
        for (std::string const& name : names) {
            std::error_code failure;
            fs::path const member = fs::canonical(folder / name, failure);
            if (!failure && fs::is_regular_file(member, failure)) {
                members.insert(member);
            } else if (failure && !isDangling(failure)) {
                refuseMember(folder / name, failure.value());
            }
        }
        return members;
    }

    void deliverMember(fs::path const& member) const
    {
        InputFile file(member.string());
        std::string const content = file.error() == 0 ? file.read() : std::string();
        if (file.error() != 0) {
            refuseMember(member, file.error());
            return;
        }
        deliverContent(content, member);
    }

    /// Treats the file like a damaged certificate. Throws in any case if the process lacks a resource:
    /// skipping would silently leave out every file.
    void refuseMember(fs::path const& member, int error) const
    {
        if (isShortage(error)) {
            failToRead(member.string());
        }
        deliver(rethrowOnFailure, [&] { failToRead(member.string()); });
    }

    void deliverContent(std::string const& content, fs::path const& file) const
    {
        for (PEMBlock const& block : splitPEMBlocks(content)) {
            // One error scope for each block: OpenSSL's error queue is short, and the errors of many damaged
            // blocks would push the caller's entries out of it.
            RAIIOpenSSLErrorRemover const errors(false);
            deliver(rethrowOnFailure, [&] { deliverBlock(block, file); });
        }
    }

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
        if (certificate == nullptr) {
            // The trust store's exception says what is wrong.
            store.addDERCertificate(content);
        } else if (extendedKeyUsageFits(certificate.get(), wanted)) {
            store.addX509(certificate.get());
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

SystemCertificateAdder::SystemCertificateAdder() = default;

SystemCertificateAdder::SystemCertificateAdder(SystemCertificateLocations locationsInOrder)
    : fixedLocations(std::move(locationsInOrder))
{}

ISystemCertificateAdder* SystemCertificateAdder::clone() const
{
    return new SystemCertificateAdder(*this);
}

void SystemCertificateAdder::addCertificatesTo(
    TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure)
{
    Delivery const delivery(store, usage, rethrowOnFailure);
    if (auto const named = namedLocations()) {
        delivery.deliverAll(*named);
    } else {
        delivery.deliverFirst(locations());
    }
}

std::string SystemCertificateAdder::file() const
{
    auto const named = namedLocations();
    return named ? named->file : pathOf(openFirst(locations().files));
}

std::string SystemCertificateAdder::folder() const
{
    if (auto const named = namedLocations()) {
        return named->folders;
    }
    auto const [files, folders] = locations();
    return openFirst(files) ? std::string() : pathOf(openFirstFolder(folders));
}

SystemCertificateLocations SystemCertificateAdder::locations() const
{
    return fixedLocations ? *fixedLocations : wellKnownLocations();
}

std::optional<NamedCertificateLocations> SystemCertificateAdder::namedLocations() const
{
    return fixedLocations ? std::nullopt : locationsFromEnvironment();
}

} // namespace foundation::certificates::posix
