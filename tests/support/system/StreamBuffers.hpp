#pragma once

#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>

namespace foundation::test {

/// A source that throws a std::runtime_error with the given text when it is read.
class BrokenBuffer : public std::streambuf
{
public:
    explicit BrokenBuffer(std::string failureText) : text(std::move(failureText)) {}

protected:
    int_type underflow() override { throw std::runtime_error(text); }

private:
    std::string text;
};

/// A target that counts its flushes.
class FlushCountingBuffer : public std::stringbuf
{
public:
    int flushes() const { return numFlushes; }

protected:
    int sync() override
    {
        ++numFlushes;
        return 0;
    }

private:
    int numFlushes = 0;
};

} // namespace foundation::test
