#include "revocation/HttpUrl.hpp"

#include <string_view>

namespace foundation::certificates {

namespace {

constexpr std::string_view scheme = "http://";

} // namespace

// URLs are untrusted input of any length. A regular expression needs stack for each character, so this code
// matches the pattern by hand.
std::optional<HttpUrl> parseHttpUrl(std::string const& url)
{
    if (url.compare(0, scheme.size(), scheme) != 0) {
        return std::nullopt;
    }
    // ECMAScript's period matches every character except these two.
    if (url.find_first_of("\r\n", scheme.size()) != std::string::npos) {
        return std::nullopt;
    }
    // The first group ends at the first slash. The second one takes the rest, further slashes included.
    auto const slash = url.find('/', scheme.size());
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    return HttpUrl{url.substr(scheme.size(), slash - scheme.size()), url.substr(slash)};
}

std::optional<HttpUrl> firstHttpUrl(std::vector<std::string> const& urls)
{
    for (auto const& url : urls) {
        if (auto parsed = parseHttpUrl(url)) {
            return parsed;
        }
    }
    return std::nullopt;
}

} // namespace foundation::certificates
