#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/system/posix/FailingFileAccess.hpp"

#include "truststore/TrustStoreImpl.hpp"
#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
namespace fs = std::filesystem;

namespace {

using posix::SystemCertificateAdder;
using posix::SystemCertificateLocations;

struct ErrorRow
{
    std::string name;
    int error;
};

std::vector<ErrorRow> errorsOfMissingLocations()
{
    return {{"ENOENT", ENOENT}, {"ENOTDIR", ENOTDIR}, {"EACCES", EACCES}};
}

std::vector<ErrorRow> otherErrors()
{
    return {
        {"EMFILE", EMFILE}, {"ENFILE", ENFILE}, {"ENOMEM", ENOMEM},
        {"EIO", EIO},       {"ELOOP", ELOOP},   {"EPERM", EPERM},
    };
}

/// How many certificates the adder delivers, before any filter.
std::size_t numDelivered(SystemCertificateAdder adder, bool rethrowOnFailure = false)
{
    TrustStoreImpl store;
    adder.addCertificatesTo(store, TrustStore::Usage::ServerAuthentication, rethrowOnFailure);
    return store.size();
}

/// Two bundles and two folders with different numbers of certificates.
struct Locations
{
    TemporaryFolder folder;
    std::string const firstFile =
        folder.write("first.pem", makeRoot("a").pem() + makeRoot("b").pem()).string();
    std::string const secondFile = folder.write("second.pem", makeRoot("c").pem()).string();
    std::string const firstFolder = makeFolder("first", 3);
    std::string const secondFolder = makeFolder("second", 4);

    SystemCertificateAdder files() const
    {
        SystemCertificateLocations locations;
        locations.files = {firstFile, secondFile};
        return SystemCertificateAdder(locations);
    }

    SystemCertificateAdder folders() const
    {
        SystemCertificateLocations locations;
        locations.folders = {firstFolder, secondFolder};
        return SystemCertificateAdder(locations);
    }

private:
    std::string makeFolder(std::string const& name, int numCertificates) const
    {
        fs::create_directory(folder.path() / name);
        for (int number = 0; number < numCertificates; ++number) {
            auto const file = name + "/" + std::to_string(number) + ".pem";
            folder.write(file, makeRoot("root " + std::to_string(number)).pem());
        }
        return (folder.path() / name).string();
    }
};

#ifdef __linux__
// The memory of the process opens like a regular file. Address 0 cannot be read.
constexpr char const unreadableFile[] = "/proc/self/mem";
#endif

} // namespace

#ifdef __linux__
TEST(UnreadableSystemCertificates, BundleThatFailsWhileItIsReadIsReported)
{
    Locations const locations;
    SystemCertificateLocations unreadableFirst;
    unreadableFirst.files = {unreadableFile, locations.firstFile};
    for (bool const rethrowOnFailure : {false, true}) {
        LogCapture const log;
        EXPECT_THROWS_EXACTLY(
            TrustStoreException, std::string("Failed to read ") + unreadableFile,
            numDelivered(SystemCertificateAdder(unreadableFirst), rethrowOnFailure));
        EXPECT_EQ(log.messages(), std::vector<std::string>());
    }
}
#endif

TEST(UnreadableSystemCertificates, BundleThatIsMissingLeadsToNextBundle)
{
    Locations const locations;
    for (ErrorRow const& row : errorsOfMissingLocations()) {
        SCOPED_TRACE(row.name);
        FailingFileAccess const failing(FileAccess::OpenFile, locations.firstFile, row.error);
        EXPECT_EQ(locations.files().file(), locations.secondFile);
        EXPECT_EQ(numDelivered(locations.files()), 1U);
    }
    EXPECT_EQ(numDelivered(locations.files()), 2U);
}

TEST(UnreadableSystemCertificates, FolderThatIsMissingLeadsToNextFolder)
{
    Locations const locations;
    for (ErrorRow const& row : errorsOfMissingLocations()) {
        SCOPED_TRACE(row.name);
        FailingFileAccess const failing(FileAccess::OpenFolder, locations.firstFolder, row.error);
        EXPECT_EQ(locations.folders().folder(), locations.secondFolder);
        EXPECT_EQ(numDelivered(locations.folders()), 4U);
    }
    EXPECT_EQ(numDelivered(locations.folders()), 3U);
}

TEST(UnreadableSystemCertificates, BundleThatCannotBeOpenedIsReported)
{
    Locations const locations;
    for (ErrorRow const& row : otherErrors()) {
        SCOPED_TRACE(row.name);
        LogCapture const log;
        FailingFileAccess const failing(FileAccess::OpenFile, locations.firstFile, row.error);
        for (bool const rethrowOnFailure : {false, true}) {
            EXPECT_THROWS_EXACTLY(
                TrustStoreException, "Failed to read " + locations.firstFile,
                numDelivered(locations.files(), rethrowOnFailure));
        }
        EXPECT_EQ(log.messages(), std::vector<std::string>());
        EXPECT_EQ(locations.files().file(), locations.firstFile);
    }
}

TEST(UnreadableSystemCertificates, FolderThatCannotBeOpenedIsReported)
{
    Locations const locations;
    for (ErrorRow const& row : otherErrors()) {
        SCOPED_TRACE(row.name);
        FailingFileAccess const failing(FileAccess::OpenFolder, locations.firstFolder, row.error);
        for (bool const rethrowOnFailure : {false, true}) {
            EXPECT_THROWS_EXACTLY(
                TrustStoreException, "Failed to read " + locations.firstFolder,
                numDelivered(locations.folders(), rethrowOnFailure));
        }
        EXPECT_EQ(locations.folders().folder(), locations.firstFolder);
    }
}

TEST(UnreadableSystemCertificates, LackOfDescriptorsIsReportedForBundleAndFolder)
{
    Locations const locations;
    NoFreeDescriptor const none;
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to read " + locations.firstFile, numDelivered(locations.files()));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to read " + locations.firstFolder, numDelivered(locations.folders()));
}

TEST(UnreadableSystemCertificates, FolderThatFailsWhileItIsListedIsReported)
{
    Locations const locations;
    FailingFileAccess const failing(FileAccess::ListFolder, "", EIO);
    for (bool const rethrowOnFailure : {false, true}) {
        EXPECT_THROWS_EXACTLY(
            TrustStoreException, "Failed to read " + locations.firstFolder,
            numDelivered(locations.folders(), rethrowOnFailure));
    }
}

TEST(UnreadableSystemCertificates, MemberOfFolderIsLoggedAndSkipped)
{
    Locations const locations;
    auto const member = fs::canonical(locations.firstFolder) / "1.pem";
    std::string const reason = "Failed to read " + member.string();
    for (ErrorRow const& row : std::vector<ErrorRow>{{"EACCES", EACCES}, {"EIO", EIO}, {"ENOENT", ENOENT}}) {
        SCOPED_TRACE(row.name);
        LogCapture const log;
        FailingFileAccess const failing(FileAccess::OpenFile, member.string(), row.error);
        EXPECT_EQ(numDelivered(locations.folders()), 2U);
        EXPECT_EQ(
            log.messages(),
            std::vector<std::string>{
                "Exception caught: foundation::certificates::TrustStoreException: " + reason});
        EXPECT_THROWS_EXACTLY(TrustStoreException, reason, numDelivered(locations.folders(), true));
    }
}

TEST(UnreadableSystemCertificates, MemberWhoseLinkCannotBeFollowedIsLoggedAndSkipped)
{
    Locations const locations;
    constexpr std::size_t tooLong = 300;
    auto const link = fs::path(locations.firstFolder) / "link.pem";
    fs::create_symlink(std::string(tooLong, 'a'), link);
    std::string const reason = "Failed to read " + link.string();
    LogCapture const log;
    EXPECT_EQ(numDelivered(locations.folders()), 3U);
    EXPECT_EQ(
        log.messages(), std::vector<std::string>{
                            "Exception caught: foundation::certificates::TrustStoreException: " + reason});
    EXPECT_THROWS_EXACTLY(TrustStoreException, reason, numDelivered(locations.folders(), true));
}

// The shortage concerns the process and not one member. Skipping would leave out all members in silence.
TEST(UnreadableSystemCertificates, ShortageIsReportedForMemberOfFolder)
{
    Locations const locations;
    auto const member = fs::canonical(locations.firstFolder) / "1.pem";
    for (ErrorRow const& row :
         std::vector<ErrorRow>{{"EMFILE", EMFILE}, {"ENFILE", ENFILE}, {"ENOMEM", ENOMEM}}) {
        SCOPED_TRACE(row.name);
        FailingFileAccess const failing(FileAccess::OpenFile, member.string(), row.error);
        EXPECT_THROWS_EXACTLY(
            TrustStoreException, "Failed to read " + member.string(), numDelivered(locations.folders()));
    }
}

TEST(UnreadableSystemCertificates, FreeFunctionReportsFolderIfNoBundleIsThere)
{
    ScopedVariable const noFile("SSL_CERT_FILE", "");
    ScopedVariable const noFolder("SSL_CERT_DIR", "");
    auto const folders = posix::wellKnownLocations().folders;
    auto const expected = SystemCertificateAdder(SystemCertificateLocations{{}, folders}).folder();
    EXPECT_TRUE(getSystemCertificatesFile().empty() || getSystemCertificatesFolder().empty());
    FailingFileAccess const failing(FileAccess::OpenFile, getSystemCertificatesFile(), ENOENT);
    if (getSystemCertificatesFile().empty()) { // the system has at most one bundle
        EXPECT_EQ(getSystemCertificatesFolder(), expected);
    }
}
