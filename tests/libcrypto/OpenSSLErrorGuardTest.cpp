#include "support/openssl/OpenSSLErrors.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace foundation::test;

namespace {

/// Queues an error with that reason, and returns its code.
unsigned long queueError(int reason)
{
    ERR_raise(ERR_LIB_PEM, reason);
    return ERR_peek_last_error();
}

constexpr int firstReason = 108;  // no start line
constexpr int secondReason = 104; // bad password read
constexpr int thirdReason = 100;  // bad base64 decode

class OpenSSLErrorGuard : public testing::Test
{
    CleanErrorQueue const clean;
};

} // namespace

TEST_F(OpenSSLErrorGuard, MarkingGuardKeepsEarlierErrors)
{
    auto const first = queueError(firstReason);
    auto const second = queueError(secondReason);
    {
        RAIIOpenSSLErrorRemover const guard(false);
        queueError(thirdReason);
    }
    EXPECT_EQ(drainErrorQueue(), (std::vector<unsigned long>{first, second}));
}

TEST_F(OpenSSLErrorGuard, DefaultGuardIsMarkingGuard)
{
    auto const first = queueError(firstReason);
    {
        RAIIOpenSSLErrorRemover const guard;
        queueError(thirdReason);
    }
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{first});
}

TEST_F(OpenSSLErrorGuard, MarkingGuardLeavesEmptyQueueEmpty)
{
    {
        RAIIOpenSSLErrorRemover const guard(false);
        queueError(firstReason);
        queueError(secondReason);
    }
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, MarkingGuardsNest)
{
    auto const first = queueError(firstReason);
    {
        RAIIOpenSSLErrorRemover const outer(false);
        auto const second = queueError(secondReason);
        {
            RAIIOpenSSLErrorRemover const inner(false);
            queueError(thirdReason);
        }
        EXPECT_EQ(ERR_peek_last_error(), second);
    }
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{first});
}

TEST_F(OpenSSLErrorGuard, ClearingGuardStartsWithEmptyQueue)
{
    queueError(firstReason);
    RAIIOpenSSLErrorRemover const guard(true);
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, ClearingGuardLeavesEmptyQueue)
{
    queueError(firstReason);
    {
        RAIIOpenSSLErrorRemover const guard(true);
        queueError(secondReason);
    }
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, ClearingGuardRemovesErrorsDownToMarkOfItsScope)
{
    std::vector<unsigned long> kept;
    {
        RAIIOpenSSLErrorRemover const guard(true);
        kept.push_back(queueError(firstReason));
        ERR_set_mark();
        queueError(secondReason);
    }
    EXPECT_EQ(drainErrorQueue(), kept);
}

TEST_F(OpenSSLErrorGuard, ClearingGuardRemovesMarkOfEnclosingGuard)
{
    queueError(firstReason);
    RAIIOpenSSLErrorRemover const outer(false);
    {
        RAIIOpenSSLErrorRemover const inner(true);
        queueError(secondReason);
    }
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, RemovesErrorsDuringUnwinding)
{
    auto const first = queueError(firstReason);
    try {
        RAIIOpenSSLErrorRemover const guard;
        queueError(secondReason);
        throw 1;
    } catch (int) {
        EXPECT_EQ(ERR_peek_last_error(), first);
    }
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{first});
}

TEST_F(OpenSSLErrorGuard, AssignmentDoesNothing)
{
    auto const first = queueError(firstReason);
    {
        RAIIOpenSSLErrorRemover guard;
        RAIIOpenSSLErrorRemover const other;
        auto const second = queueError(secondReason);
        EXPECT_EQ(&(guard = other), &guard);
        EXPECT_EQ(ERR_peek_last_error(), second);
    }
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{first});
}

TEST_F(OpenSSLErrorGuard, HasNoState)
{
    EXPECT_TRUE(std::is_empty_v<RAIIOpenSSLErrorRemover>);
    EXPECT_FALSE(std::is_copy_constructible_v<RAIIOpenSSLErrorRemover>);
}

TEST_F(OpenSSLErrorGuard, ErrorStringIsEmptyForEmptyQueue)
{
    RAIIOpenSSLErrorRemover guard;
    EXPECT_EQ(guard.getErrorString(), "");
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, ErrorStringTakesOldestReason)
{
    RAIIOpenSSLErrorRemover guard;
    queueError(firstReason);
    auto const second = queueError(secondReason);
    EXPECT_EQ(guard.getErrorString(), reasonText(ERR_LIB_PEM, firstReason));
    EXPECT_EQ(oldestError(), second);
    EXPECT_EQ(guard.getErrorString(), reasonText(ERR_LIB_PEM, secondReason));
    EXPECT_TRUE(queueIsEmpty());
    EXPECT_EQ(guard.getErrorString(), "");
}

TEST_F(OpenSSLErrorGuard, ErrorStringHasNeitherLibraryNorNumber)
{
    RAIIOpenSSLErrorRemover guard;
    queueError(firstReason);
    auto const text = guard.getErrorString();
    EXPECT_NE(text, "");
    EXPECT_EQ(text.find_first_of(":0123456789"), std::string::npos) << text;
}

TEST_F(OpenSSLErrorGuard, ErrorStringIsEmptyForReasonWithoutText)
{
    RAIIOpenSSLErrorRemover guard;
    ERR_raise(ERR_LIB_USER, 4711);
    EXPECT_EQ(guard.getErrorString(), "");
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, ErrorStringOfSystemErrorIsAsOpenSSLHasIt)
{
    RAIIOpenSSLErrorRemover guard;
    ERR_raise(ERR_LIB_SYS, 2);
    EXPECT_EQ(guard.getErrorString(), reasonText(ERR_LIB_SYS, 2));
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(OpenSSLErrorGuard, SeesOnlyErrorsOfItsThread)
{
    auto const first = queueError(firstReason);
    std::thread([] {
        RAIIOpenSSLErrorRemover guard(true);
        EXPECT_EQ(guard.getErrorString(), "");
        queueError(secondReason);
    }).join();
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{first});
}
