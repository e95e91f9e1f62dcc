#include "reader/Files.hpp"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

namespace foundation::toolkit {

namespace {

class FileSource : public ByteSource
{
public:
    explicit FileSource(std::filesystem::path const& path) : file(path, std::ios::binary) {}

    bool isOpen() const { return file.is_open(); }

    std::size_t read(char* target, std::size_t size) override
    {
        file.read(target, static_cast<std::streamsize>(size));
        if (file.bad()) {
            throw ReadFailure("The file cannot be read.");
        }
        return static_cast<std::size_t>(file.gcount());
    }

private:
    std::ifstream file;
};

} // namespace

std::unique_ptr<ByteSource> openFile(std::filesystem::path const& file, FileChoice choice)
{
    std::error_code error;
    auto const status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) {
        throw ReadFailure("The file cannot be opened: " + error.message());
    }
    if (choice == FileChoice::RegularFile && !std::filesystem::is_regular_file(status)) {
        return nullptr;
    }
    auto source = std::make_unique<FileSource>(file);
    if (!source->isOpen()) {
        throw ReadFailure("The file cannot be opened: " + std::generic_category().message(errno));
    }
    return source;
}

std::vector<std::filesystem::path> namesIn(std::filesystem::path const& folder)
{
    std::vector<std::filesystem::path> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        names.push_back(entry->path().filename());
        entry.increment(error);
    }
    if (error) {
        throw ReadFailure("The folder cannot be read: " + error.message());
    }
    std::sort(names.begin(), names.end(), [](auto const& left, auto const& right) {
        return left.native() < right.native();
    });
    return names;
}

} // namespace foundation::toolkit
