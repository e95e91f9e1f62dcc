#pragma once

#include "support/openssl/Handles.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace foundation::test {

inline Bytes asBytes(std::string const& text)
{
    return {text.begin(), text.end()};
}

inline std::string asText(Bytes const& bytes)
{
    return {bytes.begin(), bytes.end()};
}

inline bool contains(std::string const& text, std::string const& part)
{
    return text.find(part) != std::string::npos;
}

inline bool beginsWith(std::string const& text, std::string const& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

inline bool endsWith(std::string const& text, std::string const& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Returns what `<<` writes for the value.
template <class Value>
std::string streamed(Value const& value)
{
    std::ostringstream out;
    out << value;
    return out.str();
}

/// Returns what the object's `print` writes.
template <class Object>
std::string printed(Object const& object)
{
    std::ostringstream out;
    object.print(out);
    return out.str();
}

/// Returns all bytes of the file, or "" if it cannot be read.
inline std::string contentOfFile(std::filesystem::path const& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace foundation::test
