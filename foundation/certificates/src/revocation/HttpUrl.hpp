#pragma once

#include <optional>
#include <string>
#include <vector>

namespace foundation::certificates {

/// The two halves of a plain HTTP URL, exactly as they stand in it: nothing is percent-decoded, a port
/// stays with the host, a query with the path.
struct HttpUrl
{
    std::string host; ///< may be empty
    std::string path; ///< begins with a slash
};

/// The halves of a URL that as a whole matches `http://(.*?)/(.*)` in ECMAScript's grammar, and nothing for
/// any other text. So the scheme is lower case, a slash stands after the host, and no line ends within.
std::optional<HttpUrl> parseHttpUrl(std::string const& url);

/// The first of the URLs that is a plain HTTP URL.
std::optional<HttpUrl> firstHttpUrl(std::vector<std::string> const& urls);

} // namespace foundation::certificates
