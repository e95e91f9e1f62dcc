#pragma once

#include <foundation/certificates/Exceptions.hpp>

#include <string>
#include <utility>

/// The properties that fuzz targets check. A violated property prints its text and aborts. libFuzzer reports
/// that and keeps the input.
namespace foundation::fuzz {

/// Aborts unless the condition holds. The text states the property.
void require(bool condition, char const* text);

/// Aborts. Prints the text, and the type and text of the exception that is being handled.
[[noreturn]] void failOnException(char const* text);

/// Leaves a single entry in OpenSSL's error queue. No operation on certificates causes this error.
void queueStaleError();
/// Aborts if the queue holds any entry except that of queueStaleError. That entry may remain, because input
/// without content is refused before OpenSSL is called.
void requireNothingQueued(char const* when);
/// Aborts unless the queue holds exactly the entry of queueStaleError.
void requireStaleErrorAlone(char const* when);
/// Aborts if the text of a failure names the error of queueStaleError.
void requireOwnReason(std::string const& textOfFailure);
void clearErrorQueue();

/// Runs the callable. Returns true if it returned, and false if it threw one of the library's exceptions or
/// one of the further types. Aborts for any other exception.
///
///     if (succeeds([&] { certificate.getModulus(); })) { ... }
///     if (succeeds<std::runtime_error>([&] { builder.build(); })) { ... }
template <typename... FurtherTypes, typename Callable>
bool succeeds(Callable&& callable);

/// Runs a callable that loads something, like succeeds(), with a stale entry in OpenSSL's error queue. Also
/// aborts if a failure reports that entry as its reason or leaves its own entries in the queue. The queue is
/// empty afterwards.
template <typename Callable>
bool loads(Callable&& callable);

/// Runs the callable. Aborts with the text for any exception.
template <typename Callable>
decltype(auto) mustSucceed(char const* text, Callable&& callable)
{
    try {
        return std::forward<Callable>(callable)();
    } catch (...) {
        failOnException(text);
    }
}

namespace detail {

/// Nests one try block per exception type, the first type outermost.
template <typename Further, typename... Rest, typename Callable>
bool succeedsOr(Callable& callable, std::string& failure)
{
    try {
        if constexpr (sizeof...(Rest) == 0) {
            callable();
            return true;
        } else {
            return succeedsOr<Rest...>(callable, failure);
        }
    } catch (Further const& exception) {
        failure = exception.what();
        return false;
    }
}

template <typename... FurtherTypes, typename Callable>
bool succeedsInFamily(Callable& callable, std::string& failure)
{
    try {
        return succeedsOr<
            FurtherTypes..., certificates::CertificateException, certificates::TrustStoreException>(
            callable, failure);
    } catch (...) {
        failOnException("only exceptions of the library are thrown");
    }
}

} // namespace detail

template <typename... FurtherTypes, typename Callable>
bool succeeds(Callable&& callable)
{
    std::string failure;
    return detail::succeedsInFamily<FurtherTypes...>(callable, failure);
}

template <typename Callable>
bool loads(Callable&& callable)
{
    queueStaleError();
    std::string failure;
    bool const loaded = detail::succeedsInFamily(callable, failure);
    if (!loaded) {
        requireOwnReason(failure);
        requireNothingQueued("after a failure to load");
    }
    clearErrorQueue();
    return loaded;
}

} // namespace foundation::fuzz
