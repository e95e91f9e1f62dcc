#include "support/allocation/Shortage.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <ManyInputs.hpp>

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <string>

using namespace foundation::test;
using namespace foundation::tools;
using foundation::toolkit::ReadCertificate;

namespace {

/// The shortage of one thread, which begins at its first visit.
thread_local std::optional<Shortage> shortage;

/// Drops what the process writes. At the end it also ends the calling thread's shortage.
class DroppedOutput
{
public:
    DroppedOutput()
    {
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
    }
    ~DroppedOutput()
    {
        shortage.reset();
        testing::internal::GetCapturedStderr();
        testing::internal::GetCapturedStdout();
    }
    DroppedOutput(DroppedOutput const&) = delete;
    DroppedOutput& operator=(DroppedOutput const&) = delete;
};

class ManyInputsMemory : public testing::Test
{
protected:
    /// Visits the certificates of several files with several threads.
    ExitStatus visit(Visitor const& visitor) const
    {
        InputOptions options;
        options.jobs = 3;
        for (int number = 0; number < numFiles; ++number) {
            options.paths.push_back(file);
        }
        DroppedOutput const dropped;
        return visitCertificates(options, visitor);
    }

    static constexpr int numFiles = 50;

private:
    TemporaryFolder const folder;
    std::string const file = folder.write("root.pem", makeRoot("root").pem()).string();
};

} // namespace

TEST_F(ManyInputsMemory, ForeignExceptionEndsAllThreads)
{
    struct Foreign
    {};
    EXPECT_THROW(visit([](ReadCertificate const&, Report&) { throw Foreign(); }), Foreign);
}

TEST_F(ManyInputsMemory, ShortageEndsInputOrAllThreads)
{
    constexpr std::size_t mostGranted = 100;
    int numRunsToTheEnd = 0;
    int numEndedEarly = 0;
    for (std::size_t const numRefused : {std::size_t(1), unlimited}) {
        for (std::size_t numGranted = 0; numGranted < mostGranted; ++numGranted) {
            auto const visitor = [&](ReadCertificate const& found, Report& report) {
                if (!shortage) {
                    shortage.emplace(Memory::Heap, numGranted, numRefused);
                }
                report.output += found.source + "\n";
            };
            try {
                EXPECT_EQ(visit(visitor), ExitStatus::BadInput);
                ++numRunsToTheEnd;
            } catch (std::bad_alloc const&) {
                ++numEndedEarly;
            }
        }
    }
    EXPECT_GT(numRunsToTheEnd, 0);
    EXPECT_GT(numEndedEarly, 0);
}
