#include "X509Stack.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <new>

namespace foundation::certificates {

namespace {

/// Parses the encoding by itself: a load of the library's would empty the error queue.
X509UPtr duplicateOf(X509Certificate const& certificate)
{
    ByteArray const der = certificate.getAsBytes();
    unsigned char const* data = der.data();
    return makeX509(d2i_X509(nullptr, &data, static_cast<long>(der.size())));
}

} // namespace

X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        auto duplicate = duplicateOf(certificate);
        if (duplicate == nullptr || sk_X509_push(stack.get(), duplicate.get()) == 0) {
            throw std::bad_alloc();
        }
        static_cast<void>(duplicate.release()); // the stack's from here on; a push that failed took nothing
    }
    return stack;
}

} // namespace foundation::certificates
