#include "libcrypto/MemoryBIO.hpp"

#include "libcrypto/IntRange.hpp"

namespace foundation::certificates {

namespace {

template <typename Bytes>
Bytes contents(BIO* bio)
{
    char* data = nullptr;
    long const length = bio == nullptr ? 0 : BIO_get_mem_data(bio, &data);
    return data == nullptr || length <= 0 ? Bytes() : Bytes(data, data + length);
}

bool write(BIO* bio, void const* data, std::size_t size)
{
    return fitsInInt(size) && BIO_write(bio, data, static_cast<int>(size)) == static_cast<int>(size);
}

} // namespace

BIOUPtr makeReaderOf(ByteArray const& data)
{
    if (!fitsInInt(data.size())) {
        return makeBIO(nullptr);
    }
    constexpr int retryAtEnd = -1; // what a memory BIO for writing returns when it has no more bytes
    auto bio = makeBIO(BIO_new_mem_buf(data.data(), static_cast<int>(data.size())));
    if (bio != nullptr) {
        BIO_set_mem_eof_return(bio.get(), retryAtEnd);
    }
    return bio;
}

bool writeAll(BIO* bio, ByteArray const& data)
{
    return write(bio, data.data(), data.size());
}

bool writeAll(BIO* bio, std::string_view text)
{
    return write(bio, text.data(), text.size());
}

std::string contentsAsString(BIO* bio)
{
    return contents<std::string>(bio);
}

ByteArray contentsAsBytes(BIO* bio)
{
    return contents<ByteArray>(bio);
}

} // namespace foundation::certificates
