#include "certificate/X509Duplicates.hpp"

#include "certificate/Extensions.hpp"

#include <foundation/certificates/Exceptions.hpp>

namespace foundation::certificates {

X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        // Not by way of a load of the library's, which would empty the error queue.
        auto duplicate = x509FromDER(certificate.getAsBytes());
        if (duplicate == nullptr || sk_X509_push(stack.get(), duplicate.get()) == 0) {
            throw X509CertificateException("Error: X509Certificate has no content.");
        }
        static_cast<void>(duplicate.release()); // the stack's from here on; a push that failed took nothing
    }
    return stack;
}

} // namespace foundation::certificates
