/// Loads a certificate from the input as bytes, as text and as a stream.

#include "support/CertificateProperties.hpp"
#include "support/Properties.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::X509Certificate;

/// A certificate, or the text of the failure to load it.
struct Outcome
{
    std::optional<X509Certificate> certificate;
    std::string failure;
};

template <typename Source>
Outcome outcomeOfLoading(Source&& source)
{
    Outcome outcome;
    loads([&] {
        try {
            outcome.certificate.emplace(source);
        } catch (std::exception const& failure) {
            outcome.failure = failure.what();
            throw;
        }
    });
    return outcome;
}

void requireSame(Outcome const& one, Outcome const& other)
{
    require(one.certificate.has_value() == other.certificate.has_value(), "either all forms load or none");
    require(one.failure == other.failure, "all forms fail with the same text");
    require(
        !one.certificate || *one.certificate == *other.certificate, "all forms give the same certificate");
}

void loadInEachForm(ByteArray const& data)
{
    std::string const text(data.begin(), data.end());
    std::istringstream stream(text);
    auto const fromBytes = outcomeOfLoading(data);
    requireSame(fromBytes, outcomeOfLoading(text));
    requireSame(fromBytes, outcomeOfLoading(stream));
    if (fromBytes.certificate) {
        checkCertificate(*fromBytes.certificate);
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    foundation::fuzz::loadInEachForm(foundation::certificates::ByteArray(input, input + size));
    return 0;
}
