#pragma once

#include <cstddef>
#include <iosfwd>
#include <stdexcept>

namespace foundation::toolkit {

/// A source of bytes cannot be opened or read. It becomes a result of the reader and never leaves it.
class ReadFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Bytes that are read once, from the first to the last.
class ByteSource
{
public:
    ByteSource() = default;
    ByteSource(ByteSource const&) = delete;
    ByteSource& operator=(ByteSource const&) = delete;
    virtual ~ByteSource() = default;

    /// Reads at most that many bytes. Returns how many; 0 at the end.
    /// @throws ReadFailure
    virtual std::size_t read(char* target, std::size_t size) = 0;
};

/// The rest of a stream. Reads through the stream's buffer, so that its state flags do not change.
class StreamSource : public ByteSource
{
public:
    /// The stream must outlive the source.
    explicit StreamSource(std::istream& streamToRead) : stream(&streamToRead) {}

    std::size_t read(char* target, std::size_t size) override;

private:
    std::istream* stream;
};

} // namespace foundation::toolkit
