#include "libcrypto/InputReading.hpp"

#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/PEMBlocks.hpp"

#include <openssl/asn1.h>
#include <openssl/pem.h>

#include <climits>
#include <istream>
#include <iterator>
#include <utility>

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

std::string_view asText(ByteArray const& data)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the same bytes, as characters
    return {reinterpret_cast<char const*>(data.data()), data.size()};
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
    return asText(data).find(marker) != std::string_view::npos;
}

bool isReadAlikeInPlace(ByteArray const& der)
{
    constexpr unsigned char longForm = 0x80;
    constexpr unsigned char longestLengthField = 5; // OpenSSL refuses the eighth byte too
    if (der.size() < 2 || !fitsInInt(der.size())) {
        return false;
    }
    unsigned char const length = der[1];
    return length < longForm || (length > longForm && length <= longForm + longestLengthField);
}

namespace detail {

BIOUPtr makeInputReader(ByteArray const& data, InputForm form)
{
    if (CHAR_MIN < 0 || form == InputForm::DER) {
        return makeReaderOf(data);
    }
    auto bio = makeMemoryBIO(); // where char is unsigned, OpenSSL must read a changed copy
    return writePEM(bio.get(), asText(data)) ? std::move(bio) : makeBIO(nullptr);
}

void throwIfOtherForm(InputForm form)
{
    bool const isPEM = form == InputForm::PEM;
    if (reasonOfOldestError() != (isPEM ? PEM_R_NO_START_LINE : ASN1_R_WRONG_TAG)) {
        return;
    }
    std::string const encoding = isPEM ? "PEM" : "DER";
    throw InvalidArgument(
        "Input certificate data was autodetected to be " + encoding + "-encoded, but is not in " + encoding +
        " encoding. Please verify the input data.");
}

} // namespace detail

} // namespace foundation::certificates
