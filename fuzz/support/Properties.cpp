#include "support/Properties.hpp"

#include <foundation/log/basic_diagnostic_logger.hpp>

#include <openssl/bn.h>
#include <openssl/err.h>

#include <cstdlib>
#include <iostream>

namespace foundation::fuzz {

namespace {

[[noreturn]] void fail(std::string const& text)
{
    std::cerr << "==PROPERTY VIOLATED== " << text << std::endl;
    ERR_print_errors_fp(stderr);
    std::abort();
}

bool isStale(unsigned long error)
{
    return ERR_GET_LIB(error) == ERR_LIB_BN && ERR_GET_REASON(error) == BN_R_DIV_BY_ZERO;
}

} // namespace

void require(bool condition, char const* text)
{
    if (!condition) {
        fail(text);
    }
}

void failOnException(char const* text)
{
    fail(std::string(text) + ": " + log::detail::current_exception_chain_as_string());
}

void queueStaleError()
{
    ERR_clear_error();
    ERR_raise(ERR_LIB_BN, BN_R_DIV_BY_ZERO);
}

void requireNothingQueued(char const* when)
{
    if (isStale(ERR_peek_error())) {
        ERR_get_error();
    }
    if (ERR_peek_error() != 0) {
        fail(std::string("OpenSSL's error queue is not empty ") + when);
    }
}

void requireStaleErrorAlone(char const* when)
{
    if (!isStale(ERR_get_error()) || ERR_peek_error() != 0) {
        fail(std::string("OpenSSL's error queue is not as it was ") + when);
    }
}

void requireOwnReason(std::string const& textOfFailure)
{
    static std::string const stale = ERR_reason_error_string(ERR_PACK(ERR_LIB_BN, 0, BN_R_DIV_BY_ZERO));
    if (textOfFailure.find(stale) != std::string::npos) {
        fail("a failure does not report the error of an earlier operation: " + textOfFailure);
    }
}

void clearErrorQueue()
{
    ERR_clear_error();
}

} // namespace foundation::fuzz
