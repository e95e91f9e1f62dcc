#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>

RAIIOpenSSLErrorRemover::RAIIOpenSSLErrorRemover(bool clearQueue)
{
    if (clearQueue) {
        ERR_clear_error();
    } else {
        ERR_set_mark();
    }
}

RAIIOpenSSLErrorRemover::~RAIIOpenSSLErrorRemover()
{
    ERR_pop_to_mark();
}

RAIIOpenSSLErrorRemover&
RAIIOpenSSLErrorRemover::operator=(RAIIOpenSSLErrorRemover const& /*other*/) = default;

std::string RAIIOpenSSLErrorRemover::getErrorString()
{
    char const* const reason = ERR_reason_error_string(ERR_get_error());
    return reason == nullptr ? std::string() : std::string(reason);
}
