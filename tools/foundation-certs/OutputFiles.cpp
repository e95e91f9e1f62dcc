#include "OutputFiles.hpp"

#include "support/new_file.hpp"

#include <list>

namespace foundation::tools {

void writeFiles(std::vector<OutputFile> const& files, bool force)
{
    std::list<NewFile> written;
    for (auto const& file : files) {
        if (!file.path.empty()) {
            written.emplace_back(
                file.path, file.isSecret ? 0600 : 0644, force ? IfFileExists::Replace : IfFileExists::Fail);
            written.back().write(file.text);
        }
    }
    for (auto& file : written) {
        file.keep();
    }
}

} // namespace foundation::tools
