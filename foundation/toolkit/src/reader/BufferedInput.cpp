#include "reader/BufferedInput.hpp"

#include <algorithm>

namespace foundation::toolkit {

namespace {

constexpr std::size_t sizeOfPiece = 16384;

} // namespace

std::string_view BufferedInput::peek(std::size_t size)
{
    while (!hasEnded && buffer.size() - position < size) {
        readPiece();
    }
    return std::string_view(buffer).substr(position, size);
}

void BufferedInput::skip(std::size_t size)
{
    while (true) {
        std::size_t const consumed = std::min(size, buffer.size() - position);
        position += consumed;
        size -= consumed;
        if (size == 0 || hasEnded) {
            return;
        }
        readPiece();
    }
}

void BufferedInput::readPiece()
{
    buffer.erase(0, position);
    position = 0;
    std::size_t const before = buffer.size();
    buffer.resize(before + sizeOfPiece);
    std::size_t length = 0;
    try {
        length = source->read(&buffer[before], sizeOfPiece);
    } catch (...) {
        buffer.resize(before);
        throw;
    }
    buffer.resize(before + length);
    hasEnded = length == 0;
}

} // namespace foundation::toolkit
