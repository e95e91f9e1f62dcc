#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include <filesystem>

using namespace foundation::test;

namespace {

class ManyInputs : public FoundationCerts
{
protected:
    /// Writes so many files, in turn with one root and with a leaf and an intermediate. Returns their paths.
    std::vector<std::string> writeFiles(std::size_t count) const
    {
        std::vector<std::string> files;
        auto const rootText = root.pem();
        auto const chainText = leaf.pem() + intermediate.pem();
        for (std::size_t number = 0; number < count; ++number) {
            files.push_back(write(std::to_string(number) + ".pem", number % 2 == 0 ? rootText : chainText));
        }
        return files;
    }

    /// Expects that the records of `inspect` are those of the files, in their order.
    static void expectAll(std::string const& output, std::vector<std::string> const& files)
    {
        auto const records = jsonLines(output, "inspect");
        ASSERT_EQ(records.size(), files.size() / 2 * 3);
        auto record = records.begin();
        for (std::size_t number = 0; number < files.size(); ++number) {
            for (std::size_t index = 1; index <= number % 2 + 1; ++index, ++record) {
                ASSERT_EQ(record->at("source"), files[number]);
                ASSERT_EQ(record->at("index"), index);
            }
        }
    }
};

std::string asList(std::vector<std::string> const& files)
{
    std::string list;
    for (auto const& file : files) {
        list += file + "\n";
    }
    return list;
}

} // namespace

TEST_F(ManyInputs, KeepTheirOrder)
{
    auto const files = writeFiles(400);
    for (auto const* const jobs : {"1", "8"}) {
        auto const run = foundationCerts({"inspect", "--json", "--from", "-", "--jobs", jobs}, asList(files));
        EXPECT_EQ(run.exitStatus, 1); // the library refuses the intermediate
        EXPECT_EQ(run.errors, "");
        expectAll(run.output, files);
    }
}

TEST_F(ManyInputs, LargeFileDoesNotDelayForever)
{
    std::string large;
    for (int number = 0; number < 2000; ++number) {
        large += leaf.pem();
    }
    auto const first = write("large.pem", large);
    auto const second = write("second.pem", large);
    auto const run = foundationCerts({"inspect", "--json", "--jobs", "2", first, second, leafFile()});

    EXPECT_EQ(run.exitStatus, 0);
    auto const records = jsonLines(run.output, "inspect");
    ASSERT_EQ(records.size(), 4001U);
    EXPECT_EQ(records[1999].at("source"), first);
    EXPECT_EQ(records[2000].at("source"), second);
    EXPECT_EQ(records[3999].at("index"), 2000);
    EXPECT_EQ(records[4000].at("source"), leafFile());
}

TEST_F(ManyInputs, UnreadableOneDoesNotStopOthers)
{
    auto const missing = pathOf("missing.pem");
    auto const text = write("text.pem", "no certificate");
    auto const run = foundationCerts({"inspect", missing, leafFile(), text, rootFile()});

    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_TRUE(beginsWith(run.output, leafFile() + " #1: CN=leaf\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "\n" + rootFile() + " #1: CN=root\n")) << run.output;
    EXPECT_TRUE(beginsWith(run.errors, "foundation-certs: " + missing + ": ")) << run.errors;
    EXPECT_TRUE(contains(run.errors, "\nfoundation-certs: " + text + ": ")) << run.errors;
}

TEST_F(ManyInputs, StandardInputHoldsCertificates)
{
    auto const run = foundationCerts({"inspect", "-"}, leaf.pem());

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(beginsWith(run.output, "- #1: CN=leaf\n")) << run.output;
}

#ifndef _WIN32
TEST_F(ManyInputs, GNUParallelSpreadsThemOverHosts)
{
    // In place of ssh: called as `ssh HOST -- COMMAND`, it runs the command on this machine.
    auto const ssh = write("ssh", "#!/bin/sh\nshift 2\nexec sh -c \"$*\"\n");
    std::filesystem::permissions(ssh, std::filesystem::perms::owner_all);
    auto const parallel = [&](std::vector<std::string> const& command, std::string const& input) {
        // Without SHELL, GNU parallel takes its parent process for the shell; it keeps files in HOME.
        std::vector<std::string> words{"SHELL=/bin/sh", "HOME=" + folder.path().string(),
                                       "parallel",      "--will-cite",
                                       "--keep-order",  "--pipe",
                                       "--block",       "1k",
                                       "--ssh",         ssh,
                                       "--sshlogin",    "1/one,1/two"};
        words.insert(words.end(), command.begin(), command.end());
        return runProgram("env", words, input);
    };
    auto const files = writeFiles(100);
    auto const list = asList(files);
    if (parallel({"cat"}, list).exitStatus == 127) {
        GTEST_SKIP() << "GNU parallel is not installed.";
    }

    auto const run =
        parallel({FOUNDATION_CERTS_PROGRAM, "inspect", "--json", "--jobs", "1", "--from", "-"}, list);

    EXPECT_GT(run.exitStatus, 0); // the number of parts with a finding
    SCOPED_TRACE(run.errors);     // GNU parallel may warn of a slow machine
    expectAll(run.output, files);
}
#endif
