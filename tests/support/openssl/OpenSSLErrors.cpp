#include "support/openssl/OpenSSLErrors.hpp"

#include <openssl/bn.h>
#include <openssl/err.h>

namespace foundation::test {

namespace {

std::string textOf(unsigned long code)
{
    char const* const text = ERR_reason_error_string(code);
    return text ? text : "";
}

} // namespace

bool queueIsEmpty()
{
    return ERR_peek_error() == 0;
}

unsigned long queueForeignError()
{
    ERR_raise(ERR_LIB_BN, BN_R_DIV_BY_ZERO);
    return ERR_peek_last_error();
}

unsigned long oldestError()
{
    return ERR_peek_error();
}

std::string oldestReasonText()
{
    return textOf(ERR_peek_error());
}

std::string reasonText(int library, int reason)
{
    return textOf(ERR_PACK(library, 0, reason));
}

std::vector<unsigned long> drainErrorQueue()
{
    std::vector<unsigned long> codes;
    while (auto const code = ERR_get_error()) {
        codes.push_back(code);
    }
    return codes;
}

CleanErrorQueue::CleanErrorQueue()
{
    ERR_clear_error();
}

CleanErrorQueue::~CleanErrorQueue()
{
    ERR_clear_error();
}

ErrorQueueMark::ErrorQueueMark()
{
    ERR_set_mark();
}

ErrorQueueMark::~ErrorQueueMark()
{
    ERR_pop_to_mark();
}

} // namespace foundation::test
