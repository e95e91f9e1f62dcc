// write_documents FOLDER: writes the manual page and the completions of foundation-certs.
#include "Documents.hpp"
#include "Subcommands.hpp"

#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

void write(std::string const& file, std::string const& content)
{
    std::ofstream stream(file, std::ios::binary);
    if (!(stream << content).flush()) {
        throw std::runtime_error(file + ": cannot be written");
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        using namespace foundation::tools;
        std::string const folder = argc == 2 ? argv[1] : ".";
        Action action;
        auto const program = makeParser(action);
        write(folder + "/foundation-certs.1", manualPage(*program));
        write(folder + "/foundation-certs.bash", bashCompletions(*program));
        write(folder + "/_foundation-certs", zshCompletions(*program));
        return 0;
    } catch (std::exception const& failure) {
        std::cerr << "write_documents: " << failure.what() << '\n';
        return 1;
    }
}
