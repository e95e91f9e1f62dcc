#include "PeerName.hpp"

#include "AddressText.hpp"
#include "CertificateAccess.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <algorithm>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

bool isASCII(std::string const& text)
{
    constexpr unsigned char firstOther = 0x80;
    return std::all_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < firstOther;
    });
}

/// Refuses an empty text and one with a NUL character. The subject begins the text of the exception.
void throwIfUnusable(std::string const& text, std::string const& subject)
{
    if (text.empty()) {
        throw InvalidArgument(subject + " is empty.");
    }
    if (text.find('\0') != std::string::npos) {
        throw InvalidArgument(subject + " contains a NUL character.");
    }
}

} // namespace

std::string const& requireHost(std::string const& host)
{
    throwIfUnusable(host, "The host name");
    if (!isASCII(host)) {
        throw InvalidArgument("The host name is not ASCII. Write an international name in its A-labels.");
    }
    if (host.front() == '.') {
        throw InvalidArgument("The host name begins with a dot.");
    }
    return host;
}

std::string const& requireHostForVerification(std::string const& host)
{
    requireHost(host);
    bool isAccepted = false;
    throwIfLacksMemoryFor<X509CertificateException>(
        [&] {
            auto const parameters = makeX509_VERIFY_PARAM(X509_VERIFY_PARAM_new());
            isAccepted = parameters != nullptr &&
                         X509_VERIFY_PARAM_set1_host(parameters.get(), host.data(), host.size()) == 1;
            return isAccepted;
        },
        outOfMemoryText);
    if (!isAccepted) {
        throw InvalidArgument("OpenSSL refuses the host name.");
    }
    return host;
}

foundation::certificates::ByteArray requireAddress(std::string const& address)
{
    throwIfUnusable(address, "The IP address");
    if (!isASCII(address)) {
        throw InvalidArgument("The IP address is not ASCII.");
    }
    auto const bytes = addressFromText(address);
    if (!bytes) {
        throw InvalidArgument("The text is not an IP address.");
    }
    return *bytes;
}

} // namespace foundation::toolkit
