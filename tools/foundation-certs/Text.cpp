#include "Text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

namespace foundation::tools {

namespace {

struct Character
{
    char32_t code = 0;
    std::size_t size = 1; ///< in bytes
    bool isValid = false;
};

/// Decodes the first character of a text that is not empty. A byte that is not UTF-8 is a character of its
/// own. Overlong forms, surrogates and codes above U+10FFFF are not valid.
Character decodeFirst(std::string_view text)
{
    struct Form
    {
        unsigned mask;
        unsigned lead;
        char32_t least;
    };
    static constexpr std::array<Form, 4> forms = {
        {{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};
    unsigned const lead = static_cast<unsigned char>(text[0]);
    for (std::size_t size = 1; size <= forms.size() && size <= text.size(); ++size) {
        Form const& form = forms[size - 1];
        if ((lead & form.mask) != form.lead) {
            continue;
        }
        char32_t code = lead & ~form.mask;
        for (char const byte : text.substr(1, size - 1)) {
            unsigned const bits = static_cast<unsigned char>(byte);
            if ((bits & 0xc0U) != 0x80U) {
                return {lead};
            }
            code = code << 6U | (bits & 0x3fU);
        }
        bool const isSurrogate = code >= 0xd800 && code <= 0xdfff;
        bool const isValid = code >= form.least && code <= 0x10ffff && !isSurrogate;
        return isValid ? Character{code, size, true} : Character{lead};
    }
    return {lead};
}

bool isControl(char32_t code)
{
    return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

/// Whether the character can show the text beside it in another order, or breaks the line.
bool misleads(char32_t code)
{
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string escaped(Character const& character)
{
    if (character.isValid && character.code == '\n') {
        return "\\n";
    }
    std::array<char, 16> buffer{};
    char const* const format = character.code < 0x100 ? "\\x%02x" : "\\u%04x";
    auto const code = static_cast<unsigned>(character.code);
    static_cast<void>(std::snprintf(buffer.data(), buffer.size(), format, code));
    return buffer.data();
}

/// Returns the text with each character escaped for which the condition holds. It holds for no printable
/// ASCII character, which almost all texts consist of.
template <class Condition>
std::string escapedIf(std::string_view text, Condition const& condition)
{
    bool const isPlain =
        std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    if (isPlain) {
        return std::string(text);
    }
    std::string result;
    while (!text.empty()) {
        auto const character = decodeFirst(text);
        if (condition(character)) {
            result += escaped(character);
        } else {
            result += text.substr(0, character.size);
        }
        text.remove_prefix(character.size);
    }
    return result;
}

} // namespace

std::string printable(std::string_view text)
{
    return escapedIf(text, [](Character const& character) {
        return !character.isValid || isControl(character.code) || misleads(character.code);
    });
}

std::string validUTF8(std::string_view text)
{
    return escapedIf(text, [](Character const& character) { return !character.isValid; });
}

std::string errorLine(std::string_view message)
{
    return "foundation-certs: " + printable(message) + "\n";
}

} // namespace foundation::tools
