#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/system/posix/FailingFileAccess.hpp"

#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>

using namespace foundation::certificates;
using namespace foundation::test;
namespace fs = std::filesystem;

namespace {

using Names = std::set<std::string>;

constexpr char const fileVariable[] = "SSL_CERT_FILE";
constexpr char const foldersVariable[] = "SSL_CERT_DIR";

/// Whether the C library treats this process as one with more privileges than its user.
bool isPrivileged = false;

class PrivilegedProcess
{
public:
    PrivilegedProcess() { isPrivileged = true; }
    ~PrivilegedProcess() { isPrivileged = false; }
    PrivilegedProcess(PrivilegedProcess const&) = delete;
    PrivilegedProcess& operator=(PrivilegedProcess const&) = delete;
};

/// Both variables, for a scope.
struct Environment
{
    Environment(std::string const& file, std::string const& folders)
        : certificateFile(fileVariable, file),
          certificateFolders(foldersVariable, folders)
    {}

    ScopedVariable certificateFile;
    ScopedVariable certificateFolders;
};

std::string rootPem(std::string const& name)
{
    return makeRoot(name).pem();
}

/// The common names of the system's roots.
Names systemRoots(bool rethrowOnFailure = true, TrustStore store = TrustStore())
{
    store.addSystemCertificates(TrustStore::Usage::ServerAuthentication, rethrowOnFailure);
    Names names;
    for (X509Certificate const& root : store.getCertificates().getCertificates()) {
        names.insert(root.getSubjectCommonName());
    }
    return names;
}

void expectFailure(std::string const& text)
{
    for (bool const rethrowOnFailure : {false, true}) {
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, systemRoots(rethrowOnFailure));
    }
}

} // namespace

TEST(CertificateEnvironment, NamedFileIsTheOnlyLocation)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", rootPem("a") + rootPem("b")).string();
    folder.write("other.pem", rootPem("other"));
    Environment const environment(file, "");
    EXPECT_EQ(systemRoots(), (Names{"a", "b"}));
    EXPECT_EQ(getSystemCertificatesFile(), file);
    EXPECT_EQ(getSystemCertificatesFolder(), "");
}

TEST(CertificateEnvironment, NamedFoldersAreTheOnlyLocations)
{
    TemporaryFolder const first;
    TemporaryFolder const second;
    first.write("a.pem", rootPem("a"));
    first.write("no hash in its name.txt", rootPem("b"));
    second.write("c.crt", rootPem("c"));
    auto const folders = first.path().string() + ":" + second.path().string();
    Environment const environment("", folders);
    EXPECT_EQ(systemRoots(), (Names{"a", "b", "c"}));
    EXPECT_EQ(getSystemCertificatesFile(), "");
    EXPECT_EQ(getSystemCertificatesFolder(), folders);
}

TEST(CertificateEnvironment, FileAndFoldersAreReadTogether)
{
    TemporaryFolder const folder;
    TemporaryFolder const elsewhere;
    folder.write("a.pem", rootPem("a"));
    auto const file = elsewhere.write("bundle.pem", rootPem("b")).string();
    Environment const environment(file, folder.path().string());
    EXPECT_EQ(systemRoots(), (Names{"a", "b"}));
    EXPECT_EQ(getSystemCertificatesFile(), file);
    EXPECT_EQ(getSystemCertificatesFolder(), folder.path().string());
}

TEST(CertificateEnvironment, EmptyVariableCountsAsUnset)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", rootPem("named")).string();
    unsetenv(fileVariable);
    unsetenv(foldersVariable);
    std::string const usualFile = getSystemCertificatesFile();
    std::string const usualFolder = getSystemCertificatesFolder();
    Environment const environment("", "");
    EXPECT_EQ(getSystemCertificatesFile(), usualFile);
    EXPECT_EQ(getSystemCertificatesFolder(), usualFolder);
}

TEST(CertificateEnvironment, VariablesAreReadByEachCall)
{
    TemporaryFolder const folder;
    auto const first = folder.write("first.pem", rootPem("first")).string();
    auto const second = folder.write("second.pem", rootPem("second")).string();
    TrustStore const made;
    {
        Environment const environment(first, "");
        EXPECT_EQ(systemRoots(true, made), Names{"first"});
    }
    Environment const environment(second, "");
    EXPECT_EQ(systemRoots(true, made), Names{"second"});
}

TEST(CertificateEnvironment, NamedFileThatCannotBeReadIsReported)
{
    TemporaryFolder const folder;
    auto const missing = (folder.path() / "missing.pem").string();
    auto const pipe = (folder.path() / "pipe.pem").string();
    auto const belowFile = folder.write("file.pem", rootPem("a")).string() + "/b.pem";
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    std::vector<std::string> unreadable = {missing, pipe, belowFile, folder.path().string()};
#ifdef __linux__
    unreadable.emplace_back("/proc/self/mem"); // opens, but address 0 cannot be read
#endif
    for (std::string const& file : unreadable) {
        SCOPED_TRACE(file);
        Environment const environment(file, "");
        expectFailure("Failed to read " + file);
        EXPECT_EQ(getSystemCertificatesFile(), file);
    }
}

TEST(CertificateEnvironment, NamedFileWithDeniedAccessIsReported)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", rootPem("a")).string();
    Environment const environment(file, "");
    FailingFileAccess const failing(FileAccess::OpenFile, file, EACCES);
    expectFailure("Failed to read " + file);
}

TEST(CertificateEnvironment, NamedFolderWithDeniedAccessIsReported)
{
    TemporaryFolder const folder;
    TemporaryFolder const readable;
    readable.write("a.pem", rootPem("a"));
    Environment const environment("", readable.path().string() + ":" + folder.path().string());
    FailingFileAccess const failing(FileAccess::OpenFolder, folder.path().string(), EACCES);
    expectFailure("Failed to read " + folder.path().string());
}

TEST(CertificateEnvironment, NamedFolderThatDoesNotExistIsSkipped)
{
    TemporaryFolder const folder;
    folder.write("a.pem", rootPem("a"));
    auto const path = folder.path().string();
    for (std::string const& folders :
         {path + "/missing:" + path, path + ":" + path + "/missing", path + "/a.pem:" + path,
          "::" + path + ":"}) {
        SCOPED_TRACE(folders);
        Environment const environment("", folders);
        EXPECT_EQ(systemRoots(), Names{"a"});
    }
}

TEST(CertificateEnvironment, NamedFoldersOfWhichNoneExistsAreReported)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", rootPem("a")).string();
    auto const first = (folder.path() / "first").string();
    auto const second = (folder.path() / "second").string();
    {
        Environment const environment("", first);
        expectFailure("Failed to open system certificate store: " + first);
    }
    Environment const environment(file, first + ":" + second);
    expectFailure("Failed to open system certificate store: " + first + ", " + second);
    EXPECT_EQ(getSystemCertificatesFolder(), first + ":" + second);
}

TEST(CertificateEnvironment, NullDeviceHoldsNoRoots)
{
    Environment const environment("/dev/null", "");
    EXPECT_EQ(systemRoots(), Names());
}

TEST(CertificateEnvironment, DamagedBlockOfNamedFileIsLoggedAndSkipped)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", "-----BEGIN CERTIFICATE-----\n" + rootPem("a")).string();
    Environment const environment(file, "");
    LogCapture const log;
    EXPECT_EQ(systemRoots(false), Names{"a"});
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Unusable PEM block in " + file + ": CERTIFICATE", systemRoots());
}

TEST(CertificateEnvironment, PrivilegedProcessIgnoresVariables)
{
    TemporaryFolder const folder;
    auto const planted = rootPem("planted");
    auto const file = folder.write("bundle.pem", planted).string();
    unsetenv(fileVariable);
    unsetenv(foldersVariable);
    std::string const usualFile = getSystemCertificatesFile();
    std::string const usualFolder = getSystemCertificatesFolder();

    Environment const environment(file, folder.path().string());
    EXPECT_EQ(getSystemCertificatesFile(), file);
    PrivilegedProcess const privileged;
    EXPECT_EQ(getSystemCertificatesFile(), usualFile);
    EXPECT_EQ(getSystemCertificatesFolder(), usualFolder);
    if (!usualFile.empty() || !usualFolder.empty()) {
        LogCapture const log;
        TrustStore store;
        store.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
        for (std::string const& pem : store.getPEMStrings()) {
            EXPECT_NE(pem, planted);
        }
    }
}

TEST(CertificateEnvironment, AdderWithGivenLocationsIgnoresVariables)
{
    TemporaryFolder const folder;
    auto const given = folder.write("given.pem", rootPem("given")).string();
    auto const named = folder.write("named.pem", rootPem("named")).string();
    Environment const environment(named, folder.path().string());
    posix::SystemCertificateLocations locations;
    locations.files = {given};
    posix::SystemCertificateAdder const adder(locations);
    EXPECT_EQ(
        systemRoots(true, TrustStore(std::make_unique<posix::SystemCertificateAdder>(adder))),
        Names{"given"});
    EXPECT_EQ(adder.file(), given);
    EXPECT_EQ(adder.folder(), "");
}

// The C library's own answer depends on how the process was started.
#ifdef __linux__
extern "C" char* secure_getenv(char const* name) noexcept(noexcept(secure_getenv(name)))
{
    return isPrivileged ? nullptr : std::getenv(name);
}
#else
extern "C" int issetugid()
{
    return isPrivileged ? 1 : 0;
}
#endif
