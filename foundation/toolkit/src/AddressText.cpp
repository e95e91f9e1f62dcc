#include "AddressText.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace foundation::toolkit {

namespace {

using foundation::certificates::ByteArray;

constexpr std::size_t sizeOfIPv4 = 4;
constexpr std::size_t sizeOfIPv6 = 16;
constexpr std::size_t numGroups = 8;

using Groups = std::array<unsigned int, numGroups>;

std::string ipv4AsText(unsigned char const* bytes)
{
    std::string text = std::to_string(bytes[0]);
    for (std::size_t index = 1; index < sizeOfIPv4; ++index) {
        text += '.' + std::to_string(bytes[index]);
    }
    return text;
}

std::string groupAsText(unsigned int group)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), digits[group % 16]);
        group /= 16;
    } while (group != 0);
    return text;
}

/// A run of groups that are zero.
struct Run
{
    std::size_t start = 0;
    std::size_t length = 0;
};

Run longestRunOfZeros(Groups const& groups)
{
    Run longest;
    Run current;
    for (std::size_t index = 0; index < groups.size(); ++index) {
        current = groups[index] == 0 ? Run{current.start, current.length + 1} : Run{index + 1, 0};
        if (current.length > longest.length) {
            longest = current;
        }
    }
    return longest;
}

/// Whether the last four bytes are written as an IPv4 address: in compatible and in mapped addresses.
bool endsAsIPv4(Groups const& groups, Run const& zeros)
{
    constexpr std::size_t mappedZeros = 5;
    constexpr std::size_t compatibleZeros = 6;
    constexpr unsigned int mappedMark = 0xffff;
    return zeros.start == 0 && (zeros.length == compatibleZeros ||
                                (zeros.length == mappedZeros && groups[mappedZeros] == mappedMark));
}

std::string ipv6AsText(ByteArray const& bytes)
{
    Groups groups{};
    for (std::size_t index = 0; index < groups.size(); ++index) {
        groups[index] = bytes[2 * index] * 256U + bytes[2 * index + 1];
    }
    Run const zeros = longestRunOfZeros(groups);
    bool const isShortened = zeros.length > 1;
    bool const hasIPv4 = isShortened && endsAsIPv4(groups, zeros);
    std::string text;
    for (std::size_t index = 0; index < groups.size(); ++index) {
        if (hasIPv4 && index == numGroups - 2) {
            return text + ':' + ipv4AsText(bytes.data() + sizeOfIPv6 - sizeOfIPv4);
        }
        if (isShortened && index >= zeros.start && index < zeros.start + zeros.length) {
            text += index == zeros.start ? ":" : "";
            continue;
        }
        text += (index == 0 ? "" : ":") + groupAsText(groups[index]);
    }
    bool const endsInZeros = isShortened && zeros.start + zeros.length == numGroups;
    return endsInZeros ? text + ':' : text;
}

bool isDecimalDigit(char character)
{
    return character >= '0' && character <= '9';
}

std::optional<unsigned int> hexValueOf(char character)
{
    if (isDecimalDigit(character)) {
        return static_cast<unsigned int>(character - '0');
    }
    if (character >= 'a' && character <= 'f') {
        return static_cast<unsigned int>(character - 'a') + 10U;
    }
    if (character >= 'A' && character <= 'F') {
        return static_cast<unsigned int>(character - 'A') + 10U;
    }
    return std::nullopt;
}

/// Returns the text before the separator and removes both. Without a separator, returns and removes all.
std::string_view takeUpTo(char separator, std::string_view& text)
{
    std::size_t const end = text.find(separator);
    std::string_view const taken = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return taken;
}

std::optional<unsigned char> decimalByte(std::string_view text)
{
    constexpr std::size_t mostDigits = 3;
    constexpr unsigned int largest = 255;
    bool const hasLeadingZero = text.size() > 1 && text.front() == '0';
    if (text.empty() || text.size() > mostDigits || hasLeadingZero ||
        !std::all_of(text.begin(), text.end(), isDecimalDigit)) {
        return std::nullopt;
    }
    unsigned int value = 0;
    for (char const digit : text) {
        value = value * 10 + static_cast<unsigned int>(digit - '0');
    }
    return value > largest ? std::nullopt : std::optional(static_cast<unsigned char>(value));
}

std::optional<ByteArray> ipv4FromText(std::string_view text)
{
    if (std::count(text.begin(), text.end(), '.') != static_cast<std::ptrdiff_t>(sizeOfIPv4) - 1) {
        return std::nullopt;
    }
    ByteArray bytes;
    for (std::size_t index = 0; index < sizeOfIPv4; ++index) {
        auto const byte = decimalByte(takeUpTo('.', text));
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(*byte);
    }
    return bytes;
}

/// Appends the two bytes of a group of one to four hexadecimal digits. Returns whether it is one.
bool appendGroup(std::string_view text, ByteArray& bytes)
{
    constexpr std::size_t mostDigits = 4;
    if (text.empty() || text.size() > mostDigits) {
        return false;
    }
    unsigned int value = 0;
    for (char const character : text) {
        auto const digit = hexValueOf(character);
        if (!digit) {
            return false;
        }
        value = value * 16 + *digit;
    }
    bytes.push_back(static_cast<unsigned char>(value / 256));
    bytes.push_back(static_cast<unsigned char>(value % 256));
    return true;
}

/// Returns the bytes of groups that single colons separate; none for no text. The last group may be an IPv4
/// address.
std::optional<ByteArray> groupsFromText(std::string_view text, bool mayEndAsIPv4)
{
    ByteArray bytes;
    if (text.empty()) {
        return bytes;
    }
    if (text.back() == ':') {
        return std::nullopt;
    }
    while (!text.empty()) {
        std::string_view const group = takeUpTo(':', text);
        if (text.empty() && mayEndAsIPv4 && group.find('.') != std::string_view::npos) {
            auto const ipv4 = ipv4FromText(group);
            if (!ipv4) {
                return std::nullopt;
            }
            bytes.insert(bytes.end(), ipv4->begin(), ipv4->end());
        } else if (!appendGroup(group, bytes)) {
            return std::nullopt;
        }
    }
    return bytes;
}

std::optional<ByteArray> ipv6FromText(std::string_view text)
{
    constexpr std::string_view gap = "::";
    std::size_t const position = text.find(gap);
    if (position == std::string_view::npos) {
        auto bytes = groupsFromText(text, true);
        return bytes && bytes->size() == sizeOfIPv6 ? bytes : std::nullopt;
    }
    auto bytes = groupsFromText(text.substr(0, position), false);
    auto const end = groupsFromText(text.substr(position + gap.size()), true);
    // The gap is at least one group.
    if (!bytes || !end || bytes->size() + end->size() > sizeOfIPv6 - 2) {
        return std::nullopt;
    }
    bytes->resize(sizeOfIPv6 - end->size());
    bytes->insert(bytes->end(), end->begin(), end->end());
    return bytes;
}

} // namespace

std::optional<std::string> addressAsText(ByteArray const& bytes)
{
    switch (bytes.size()) {
    case sizeOfIPv4:
        return ipv4AsText(bytes.data());
    case sizeOfIPv6:
        return ipv6AsText(bytes);
    default:
        return std::nullopt;
    }
}

std::optional<ByteArray> addressFromText(std::string_view text)
{
    return text.find(':') == std::string_view::npos ? ipv4FromText(text) : ipv6FromText(text);
}

} // namespace foundation::toolkit
