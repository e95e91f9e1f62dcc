#pragma once

#include "reader/ByteSource.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace foundation::toolkit {

/// Bytes of a source that can be looked at before they are consumed. Holds only what was looked at, and one
/// piece that was read ahead.
class BufferedInput
{
public:
    explicit BufferedInput(std::unique_ptr<ByteSource> bytes) : source(std::move(bytes)) {}

    /// Returns the next bytes without consuming them: as many as asked for, and fewer only at the end. The
    /// view is valid until the next call of peek.
    /// @throws ReadFailure
    std::string_view peek(std::size_t size);

    /// Consumes that many bytes, or all that there are.
    /// @throws ReadFailure
    void skip(std::size_t size);

private:
    void readPiece();

    std::unique_ptr<ByteSource> source;
    std::string buffer;
    std::size_t position = 0;
    bool hasEnded = false;
};

} // namespace foundation::toolkit
