#include "libcrypto/InputReading.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/asn1.h>
#include <openssl/pem.h>

#include <istream>
#include <iterator>

namespace foundation::certificates {

namespace {

template <typename Bytes>
Bytes contentsOfStream(std::istream& stream, char const* notGoodText, char const* reasonText)
{
    if (!stream.good()) {
        throw InvalidArgument(notGoodText);
    }
    try {
        return Bytes(std::istreambuf_iterator<char>(stream.rdbuf()), std::istreambuf_iterator<char>());
    } catch (std::exception const& failure) {
        throw InvalidArgument(std::string(reasonText) + failure.what());
    }
}

void throwWrongEncoding(std::string const& encoding)
{
    throw InvalidArgument(
        "Input certificate data was autodetected to be " + encoding + "-encoded, but is not in " + encoding +
        " encoding. Please verify the input data.");
}

} // namespace

ByteArray bytesOfString(std::string const& data, char const* reasonText)
{
    try {
        return ByteArray(data.begin(), data.end());
    } catch (std::exception const& failure) {
        throw InvalidArgument(std::string(reasonText) + failure.what());
    }
}

ByteArray bytesOfStream(std::istream& stream, char const* notGoodText, char const* reasonText)
{
    return contentsOfStream<ByteArray>(stream, notGoodText, reasonText);
}

std::string textOfStream(std::istream& stream, char const* notGoodText, char const* reasonText)
{
    return contentsOfStream<std::string>(stream, notGoodText, reasonText);
}

bool containsMarker(ByteArray const& data, std::string_view marker)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes, searched as characters
    std::string_view const text(reinterpret_cast<char const*>(data.data()), data.size());
    return text.find(marker) != std::string_view::npos;
}

void throwIfWrongPEMEncoding()
{
    if (reasonOfOldestError() == PEM_R_NO_START_LINE) {
        throwWrongEncoding("PEM");
    }
}

void throwIfWrongDEREncoding()
{
    if (reasonOfOldestError() == ASN1_R_WRONG_TAG) {
        throwWrongEncoding("DER");
    }
}

int refusePassphrase(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*userData*/)
{
    return -1;
}

} // namespace foundation::certificates
