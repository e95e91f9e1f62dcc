#include "libcrypto/MemoryBIO.hpp"

#include "libcrypto/IntRange.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace foundation::certificates;

TEST(MemoryBIO, ReturnsWhatWasWritten)
{
    ByteArray const data{0, 1, 0xFF, 0};
    auto const bio = makeMemoryBIO();
    EXPECT_TRUE(writeAll(bio.get(), data));
    EXPECT_EQ(contentsAsBytes(bio.get()), data);
    EXPECT_EQ(contentsAsString(bio.get()), std::string("\0\1\xFF\0", 4));
}

TEST(MemoryBIO, KeepsShortContents)
{
    for (auto const& data : {ByteArray{}, ByteArray{0}, ByteArray{'a'}, ByteArray{0, 'b'}}) {
        auto const bio = makeMemoryBIO();
        EXPECT_TRUE(writeAll(bio.get(), data));
        EXPECT_EQ(contentsAsBytes(bio.get()), data);
        EXPECT_EQ(contentsAsString(bio.get()), std::string(data.begin(), data.end()));
        EXPECT_EQ(contentsAsBytes(makeReaderOf(data).get()), data);
    }
}

TEST(MemoryBIO, TakesTextWithNulCharacters)
{
    std::string const text("a\0b", 3);
    auto const bio = makeMemoryBIO();
    EXPECT_TRUE(writeAll(bio.get(), text));
    EXPECT_EQ(contentsAsString(bio.get()), text);
}

TEST(MemoryBIO, IsEmptyAtFirst)
{
    auto const bio = makeMemoryBIO();
    EXPECT_EQ(contentsAsBytes(bio.get()), ByteArray());
    EXPECT_EQ(contentsAsString(bio.get()), "");
}

TEST(MemoryBIO, NullBIOTakesAndReturnsNothing)
{
    EXPECT_FALSE(writeAll(nullptr, {1, 2, 3}));
    EXPECT_EQ(contentsAsBytes(nullptr), ByteArray());
    EXPECT_EQ(contentsAsString(nullptr), "");
}

TEST(MemoryBIO, ReadOnlyBIOTakesNothing)
{
    auto const readOnly = makeBIO(BIO_new_mem_buf("abc", 3));
    EXPECT_FALSE(writeAll(readOnly.get(), {1, 2, 3}));
    EXPECT_EQ(contentsAsString(readOnly.get()), "abc");
}

TEST(MemoryBIO, ReaderReadsInPlaceAndEndsAsAWrittenBIOEnds)
{
    ByteArray const data{'a', '\n', 'b'};
    auto const reader = makeReaderOf(data);
    char* content = nullptr;
    EXPECT_EQ(BIO_get_mem_data(reader.get(), &content), 3);
    EXPECT_EQ(static_cast<void const*>(content), data.data());

    auto const written = makeMemoryBIO();
    EXPECT_TRUE(writeAll(written.get(), data));
    for (auto* const bio : {reader.get(), written.get()}) {
        char line[8] = {};
        EXPECT_EQ(BIO_gets(bio, line, sizeof line), 2);
        EXPECT_EQ(BIO_read(bio, line, sizeof line), 1);
        EXPECT_EQ(line[0], 'b');
        EXPECT_EQ(BIO_read(bio, line, sizeof line), -1);
        EXPECT_TRUE(BIO_should_retry(bio));
        EXPECT_EQ(BIO_gets(bio, line, sizeof line), 0);
    }
}

// A test with two gigabytes of input takes too long. The limit that writeAll applies is tested instead.
TEST(IntRange, EndsAtLargestInt)
{
    EXPECT_TRUE(fitsInInt(0));
    EXPECT_TRUE(fitsInInt(INT32_MAX));
    EXPECT_FALSE(fitsInInt(std::size_t(INT32_MAX) + 1));
    EXPECT_FALSE(fitsInInt(std::size_t(UINT32_MAX)));
    if constexpr (SIZE_MAX > UINT32_MAX) {
        EXPECT_FALSE(fitsInInt(std::size_t(UINT32_MAX) + 2)); // narrowing would make it 1
    }
    EXPECT_FALSE(fitsInInt(SIZE_MAX));
}
