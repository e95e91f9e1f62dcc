#include "libcrypto/MemoryBIO.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace foundation::certificates;

TEST(MemoryBIO, GivesBackWhatWasWritten)
{
    ByteArray const data{0, 1, 0xFF, 0};
    auto const bio = makeMemoryBIO();
    EXPECT_TRUE(writeAll(bio.get(), data));
    EXPECT_EQ(contentsAsBytes(bio.get()), data);
    EXPECT_EQ(contentsAsString(bio.get()), std::string("\0\1\xFF\0", 4));
}

TEST(MemoryBIO, IsEmptyAtFirst)
{
    auto const bio = makeMemoryBIO();
    EXPECT_EQ(contentsAsBytes(bio.get()), ByteArray());
    EXPECT_EQ(contentsAsString(bio.get()), "");
}

TEST(MemoryBIO, WithoutABIOTakesNothingAndGivesNothing)
{
    EXPECT_FALSE(writeAll(nullptr, {1, 2, 3}));
    EXPECT_EQ(contentsAsBytes(nullptr), ByteArray());
    EXPECT_EQ(contentsAsString(nullptr), "");
}

TEST(MemoryBIO, OfWhichOneRefusesToBeWrittenTakesNothing)
{
    auto const readOnly = makeBIO(BIO_new_mem_buf("abc", 3));
    EXPECT_FALSE(writeAll(readOnly.get(), {1, 2, 3}));
    EXPECT_EQ(contentsAsString(readOnly.get()), "abc");
}

// Two gigabytes of input are too dear for a test; the bound on which writeAll decides is not.
TEST(MemoryBIO, IsWrittenAtOnceOnlyWhatAnIntCanCount)
{
    EXPECT_TRUE(fitsOneWrite(0));
    EXPECT_TRUE(fitsOneWrite(INT32_MAX));
    EXPECT_FALSE(fitsOneWrite(std::size_t(INT32_MAX) + 1));
    EXPECT_FALSE(fitsOneWrite(std::size_t(UINT32_MAX)));
    if constexpr (SIZE_MAX > UINT32_MAX) {
        EXPECT_FALSE(fitsOneWrite(std::size_t(UINT32_MAX) + 2)); // would be 1 after narrowing
    }
    EXPECT_FALSE(fitsOneWrite(SIZE_MAX));
}
