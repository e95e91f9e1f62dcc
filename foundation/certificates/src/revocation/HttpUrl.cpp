#include "revocation/HttpUrl.hpp"

#include <string_view>

namespace foundation::certificates {

namespace {

constexpr std::string_view scheme = "http://";

} // namespace

// URLs come from strangers' certificates and may be of any length. A regular expression would spend stack on
// each of their characters, so the pattern is matched by hand.
std::optional<HttpUrl> parseHttpUrl(std::string const& url)
{
    if (url.compare(0, scheme.size(), scheme) != 0) {
        return std::nullopt;
    }
    // To ECMAScript's period all characters are alike but these two, the zero character included.
    if (url.find_first_of("\r\n", scheme.size()) != std::string::npos) {
        return std::nullopt;
    }
    // The first group is the shortest possible, and the second takes what remains, further slashes included.
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
