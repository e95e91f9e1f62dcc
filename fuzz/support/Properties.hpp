#pragma once

#include <foundation/certificates/Exceptions.hpp>

#include <string>
#include <utility>

/// What fuzz targets demand of the library. A demand that is not met prints its text and aborts, which
/// libFuzzer reports and keeps together with the input.
namespace foundation::fuzz {

/// Aborts with the text unless the condition holds.
void require(bool condition, char const* text);

/// Aborts with the text, and with the type and text of the exception being handled.
[[noreturn]] void failOnException(char const* text);

/// Leaves a single entry in OpenSSL's error queue, which no operation on certificates causes.
void queueStaleError();
/// Aborts if anything but the entry of queueStaleError is in the queue. That one may still be there: input
/// without content is refused before OpenSSL is called at all.
void requireNothingQueued(char const* when);
/// Aborts unless the entry of queueStaleError, and nothing else, is in the queue.
void requireStaleErrorAlone(char const* when);
/// Aborts if the text of a failure comes from the entry of queueStaleError.
void requireOwnReason(std::string const& textOfFailure);
void clearErrorQueue();

/// Runs the callable: true if it came back, false if it failed with one of the library's exceptions or with
/// one of the further types. Aborts for every other exception.
///
///     if (succeeds([&] { certificate.getModulus(); })) { ... }
///     if (succeeds<std::runtime_error>([&] { builder.build(); })) { ... }
template <typename... FurtherTypes, typename Callable>
bool succeeds(Callable&& callable);

/// Runs the callable, which loads something, as succeeds() does, with a stale entry in OpenSSL's error queue.
/// Aborts also if a failure takes that entry for its own reason or leaves entries of its own in the queue.
/// The queue is empty after each outcome.
template <typename Callable>
bool loads(Callable&& callable);

/// Runs the callable, which must come back: aborts with the text for any exception.
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

/// One try block for each exception type, the first type outermost.
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
        failOnException("An exception outside of the library's family");
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
