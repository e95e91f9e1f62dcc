#pragma once

#include "support/pki/Der.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

/// The layout of inputs that end with parameters. The fuzz targets read it and the seeds are written in it.
namespace foundation::fuzz {

/// The bits of the last byte of an input for the CRL target.
namespace crl_option {
constexpr unsigned wholeChain = 0x01;
/// The input is the CRL that the root issues. Without this bit, and without `wholeChain`, it is that of the
/// CA.
constexpr unsigned fuzzesTheCa = 0x02;
/// The input gets a good signature. A mutation alone would never pass the signature check.
constexpr unsigned signsAnew = 0x04;
constexpr unsigned bestEffort = 0x08;
constexpr unsigned allowsRevoked = 0x10;
/// Validates with a CRL that is refused, too. A validation takes ten times as long as a refusal.
constexpr unsigned validatesAlways = 0x20;
} // namespace crl_option

/// The bits of the last byte of an input for the PKCS#7 target.
namespace pkcs7_option {
constexpr unsigned trustsUnrelatedRoot = 0x01;
constexpr unsigned knowsCa = 0x02;
constexpr unsigned thorough = 0x04;
} // namespace pkcs7_option

/// The bits of the last byte of an input for the PKCS#12 target.
namespace pkcs12_option {
/// The bundle gets a MAC for its passphrase. A mutation alone would never pass the MAC.
constexpr unsigned newMac = 0x01;
constexpr unsigned thorough = 0x02;
} // namespace pkcs12_option

/// The bits of the last byte of an input for the request target.
namespace request_option {
/// The request gets a good signature. A mutation alone would never have one.
constexpr unsigned signsAnew = 0x01;
} // namespace request_option

/// The last byte of an input for the target of texts: which reader gets the rest.
namespace text_option {
constexpr unsigned name = 0;
constexpr unsigned report = 1;
constexpr unsigned key = 2;
constexpr unsigned count = 3;
} // namespace text_option

/// A container and a text, such as a passphrase. In the input they are followed by the text's length and the
/// options, one byte each.
struct ContainerInput
{
    test::Bytes container;
    test::Bytes text;
    unsigned options = 0;
};

/// Returns nothing if the input is too short. Longer texts than the given length are cut off at the front.
inline std::optional<ContainerInput>
splitInput(std::uint8_t const* data, std::size_t size, std::size_t longestText)
{
    if (size < 2) {
        return std::nullopt;
    }
    auto const* const parameters = data + size - 2;
    auto const* const text = parameters - std::min({std::size_t{parameters[0]}, longestText, size - 2});
    return ContainerInput{test::Bytes(data, text), test::Bytes(text, parameters), parameters[1]};
}

inline test::Bytes joinInput(ContainerInput const& input)
{
    test::Bytes const parameters{
        static_cast<unsigned char>(input.text.size()), static_cast<unsigned char>(input.options)};
    return test::joined({input.container, input.text, parameters});
}

} // namespace foundation::fuzz
