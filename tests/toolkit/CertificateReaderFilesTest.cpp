#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/System.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/toolkit/CertificateReader.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace foundation::test;
using namespace foundation::toolkit;

namespace fs = std::filesystem;

namespace {

using Results = std::vector<std::string>;

constexpr char const noSuchFile[] = "The file cannot be opened: No such file or directory";

std::string pemOf(std::string const& name)
{
    return makeRoot(name).pem();
}

class CertificateReaderFiles : public testing::Test
{
protected:
    fs::path const& path() const { return folder.path(); }

    void write(fs::path const& name, std::string const& content) const
    {
        fs::create_directories((path() / name).parent_path());
        folder.write(name.string(), content);
    }

    void link(fs::path const& name, fs::path const& target) const
    {
        fs::create_symlink(target, path() / name);
    }

    /// Returns for each result the path in the folder, the index, and the subject or the failure.
    Results resultsOf(fs::path const& fileOrFolder) const
    {
        CertificateReader reader(fileOrFolder);
        Results results;
        while (auto const read = reader.next()) {
            results.push_back(
                fs::path(read->source).lexically_relative(path()).string() + " " +
                std::to_string(read->index) + " " +
                (read->certificate ? read->certificate->getSubject() : read->failure));
        }
        EXPECT_FALSE(reader.next().has_value());
        return results;
    }

private:
    TemporaryFolder folder;
};

/// For its lifetime the process can open nothing.
class NoDescriptors
{
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &limit);
        rlimit none = limit;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &limit); }
    NoDescriptors(NoDescriptors const&) = delete;
    NoDescriptors& operator=(NoDescriptors const&) = delete;

private:
    rlimit limit{};
};

} // namespace

TEST_F(CertificateReaderFiles, ReadsFileOfAnyName)
{
    write("file", pemOf("a") + pemOf("b"));

    EXPECT_EQ(resultsOf(path() / "file"), (Results{"file 1 CN=a", "file 2 CN=b"}));
}

TEST_F(CertificateReaderFiles, UsesPathAsItWasGivenAsSource)
{
    write("file", pemOf("a"));
    CertificateReader reader(path() / "." / "file");
    auto const read = reader.next();

    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, (path() / "." / "file").string());
}

TEST_F(CertificateReaderFiles, PathThatCannotBeOpenedHasOneResult)
{
    EXPECT_EQ(resultsOf(path() / "missing"), Results{std::string("missing 0 ") + noSuchFile});
    write("file", "");
    EXPECT_EQ(
        resultsOf(path() / "file" / "below"),
        Results{"file/below 0 The file cannot be opened: Not a directory"});
}

TEST_F(CertificateReaderFiles, FileWithoutCertificateHasOneResult)
{
    write("empty", "");
    write("text", "text");

    EXPECT_EQ(
        resultsOf(path()),
        (Results{"empty 0 The source is empty.", "text 0 The source holds no certificate."}));
}

TEST_F(CertificateReaderFiles, ReadsFolderInOrderOfNames)
{
    write("b.pem", pemOf("b"));
    write("a.txt", pemOf("a"));
    write("B", pemOf("B"));
    write(".hidden", pemOf("hidden"));
    write("c/z", pemOf("z"));
    write("c/y", pemOf("y"));
    write("d", pemOf("d"));

    EXPECT_EQ(
        resultsOf(path()), (Results{
                               ".hidden 1 CN=hidden", "B 1 CN=B", "a.txt 1 CN=a", "b.pem 1 CN=b",
                               "c/y 1 CN=y", "c/z 1 CN=z", "d 1 CN=d"}));
}

TEST_F(CertificateReaderFiles, IndexStartsAnewInEachFile)
{
    write("a", pemOf("a") + pemOf("b"));
    write("b", pemOf("c"));

    EXPECT_EQ(resultsOf(path()), (Results{"a 1 CN=a", "a 2 CN=b", "b 1 CN=c"}));
}

TEST_F(CertificateReaderFiles, DamagedFileHidesNoOther)
{
    write("a", "-----BEGIN CERTIFICATE-----\n");
    write("b", pemOf("b"));

    EXPECT_EQ(resultsOf(path()), (Results{"a 1 The block has no END line.", "b 1 CN=b"}));
}

TEST_F(CertificateReaderFiles, EmptyFolderHasOneResult)
{
    fs::create_directories(path() / "empty" / "inside");

    EXPECT_EQ(resultsOf(path() / "empty"), Results{"empty 0 The folder holds no file."});
}

TEST_F(CertificateReaderFiles, LinkWithinFolderIsSkipped)
{
    write("b.pem", pemOf("b"));
    link("a.pem", "b.pem");
    link("c.pem", path() / "b.pem");
    write("inside/d.pem", pemOf("d"));
    link("e.pem", "inside/d.pem");

    EXPECT_EQ(resultsOf(path()), (Results{"b.pem 1 CN=b", "inside/d.pem 1 CN=d"}));
}

TEST_F(CertificateReaderFiles, TargetOutsideOfFolderIsReadOnce)
{
    write("outside.pem", pemOf("outside"));
    fs::create_directories(path() / "folder");
    link("folder/b", path() / "outside.pem");
    link("folder/a", "b");
    link("folder/c", path() / "outside.pem");

    EXPECT_EQ(resultsOf(path() / "folder"), Results{"folder/a 1 CN=outside"});
}

TEST_F(CertificateReaderFiles, NamedLinkIsFollowed)
{
    write("folder/a", pemOf("a"));
    link("toFile", "folder/a");
    link("toFolder", "folder");

    EXPECT_EQ(resultsOf(path() / "toFile"), Results{"toFile 1 CN=a"});
    EXPECT_EQ(resultsOf(path() / "toFolder"), Results{"toFolder/a 1 CN=a"});
}

TEST_F(CertificateReaderFiles, LinkToFolderIsSkipped)
{
    write("outside/a", pemOf("a"));
    write("folder/b", pemOf("b"));
    link("folder/up", "..");
    link("folder/self", ".");
    link("folder/outside", path() / "outside");

    EXPECT_EQ(resultsOf(path() / "folder"), Results{"folder/b 1 CN=b"});
}

TEST_F(CertificateReaderFiles, BrokenLinkIsAFailure)
{
    link("a", "missing");
    link("b", "b");
    write("c", pemOf("c"));

    EXPECT_EQ(
        resultsOf(path()),
        (Results{
            std::string("a 0 ") + noSuchFile,
            "b 0 The file cannot be opened: Too many levels of symbolic links", "c 1 CN=c"}));
}

TEST_F(CertificateReaderFiles, SpecialFilesInFolderAreSkipped)
{
    ASSERT_EQ(mkfifo((path() / "fifo").c_str(), S_IRUSR | S_IWUSR), 0);
    int const endpoint = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (path() / "socket").string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the interface demands
    ASSERT_EQ(bind(endpoint, reinterpret_cast<sockaddr const*>(&address), sizeof(address)), 0);
    link("device", "/dev/zero");
    link("toFifo", "fifo");
    write("z", pemOf("z"));

    EXPECT_EQ(resultsOf(path()), Results{"z 1 CN=z"});
    close(endpoint);
}

TEST_F(CertificateReaderFiles, FolderOfSpecialFilesHoldsNoFile)
{
    ASSERT_EQ(mkfifo((path() / "fifo").c_str(), S_IRUSR | S_IWUSR), 0);

    EXPECT_EQ(resultsOf(path()), Results{". 0 The folder holds no file."});
}

TEST_F(CertificateReaderFiles, NamedFIFOIsRead)
{
    fs::path const fifo = path() / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR), 0);
    std::thread writer([&] { std::ofstream(fifo) << pemOf("a") << pemOf("b"); });

    EXPECT_EQ(resultsOf(fifo), (Results{"fifo 1 CN=a", "fifo 2 CN=b"}));
    writer.join();
}

TEST_F(CertificateReaderFiles, NamedDeviceIsRead)
{
    auto const failureOf = [](char const* device) {
        CertificateReader reader(device);
        auto const read = reader.next();
        EXPECT_FALSE(reader.next());
        return std::to_string(read->index) + " " + read->failure;
    };

    EXPECT_EQ(failureOf("/dev/null"), "0 The source is empty.");
    EXPECT_EQ(failureOf("/dev/zero"), "0 The device has more than 64 MiB.");
}

#ifdef __linux__
TEST_F(CertificateReaderFiles, FileThatCannotBeReadHasOneResult)
{
    // The file is the memory of this process. Its first page cannot be read.
    CertificateReader reader("/proc/self/mem");
    auto const read = reader.next();

    ASSERT_TRUE(read);
    EXPECT_EQ(read->index, 0U);
    EXPECT_EQ(read->failure, "The file cannot be read: Input/output error");
    EXPECT_FALSE(reader.next());
}
#endif

TEST_F(CertificateReaderFiles, FolderThatCannotBeReadHasOneResult)
{
    write("folder/a", pemOf("a"));
    NoDescriptors const shortage;

    EXPECT_EQ(
        resultsOf(path() / "folder"), Results{"folder 0 The folder cannot be read: Too many open files"});
}

TEST_F(CertificateReaderFiles, FileThatCannotBeOpenedHidesNoOther)
{
    write("a", pemOf("a"));
    write("b", pemOf("b"));
    CertificateReader reader(path());
    ASSERT_TRUE(reader.next());
    fs::remove(path() / "b");
    write("c", pemOf("c"));
    auto const read = reader.next();

    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, (path() / "b").string());
    EXPECT_EQ(read->failure, noSuchFile);
}

TEST_F(CertificateReaderFiles, ClosesEveryFile)
{
    write("a", pemOf("a"));
    write("b", pemOf("b"));
    auto const before = openDescriptors();
    {
        CertificateReader abandoned(path());
        abandoned.next();
        resultsOf(path());
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CertificateReaderFiles, PassphraseOpensBundlesOfFolder)
{
    auto const bundle = toDer(makePkcs12(makeRoot("a"), "secret"));
    write("a.p12", std::string(bundle.begin(), bundle.end()));
    CertificateReader reader(path());
    auto const read = reader.withPassphrase("secret").next();

    ASSERT_TRUE(read && read->certificate);
    EXPECT_EQ(read->certificate->getSubject(), "CN=a");
}
