#include "reader/ByteSource.hpp"

#include <istream>
#include <new>
#include <streambuf>
#include <string>

namespace foundation::toolkit {

std::size_t StreamSource::read(char* target, std::size_t size)
{
    if (!stream->good()) {
        throw ReadFailure("The stream cannot be read.");
    }
    try {
        return static_cast<std::size_t>(stream->rdbuf()->sgetn(target, static_cast<std::streamsize>(size)));
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& failure) {
        throw ReadFailure(std::string("The stream cannot be read: ") + failure.what());
    }
}

} // namespace foundation::toolkit
