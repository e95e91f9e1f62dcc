#pragma once

#include <optional>
#include <string>
#include <vector>

namespace foundation::certificates {

/// The two parts of a plain HTTP URL, unchanged: nothing is percent-decoded, a port belongs to the host and a
/// query to the path.
struct HttpUrl
{
    std::string host; ///< may be empty
    std::string path; ///< begins with a slash
};

/// Returns the parts of a URL that matches `http://(.*?)/(.*)` in ECMAScript's grammar as a whole; nothing
/// for any other text. The scheme is lower case, a slash follows the host, and the URL has no line break.
std::optional<HttpUrl> parseHttpUrl(std::string const& url);

/// Returns the parts of the first plain HTTP URL; no value if there is no such URL.
std::optional<HttpUrl> firstHttpUrl(std::vector<std::string> const& urls);

} // namespace foundation::certificates
