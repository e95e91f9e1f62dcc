#include "libcrypto/MemoryBIO.hpp"

namespace foundation::certificates {

namespace {

template <typename Bytes>
Bytes contents(BIO* bio)
{
    char* data = nullptr;
    long const length = bio == nullptr ? 0 : BIO_get_mem_data(bio, &data);
    return data == nullptr || length <= 0 ? Bytes() : Bytes(data, data + length);
}

} // namespace

bool writeAll(BIO* bio, ByteArray const& data)
{
    if (!fitsOneWrite(data.size())) {
        return false;
    }
    int const size = static_cast<int>(data.size());
    return BIO_write(bio, data.data(), size) == size;
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
