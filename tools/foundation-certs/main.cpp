// foundation-certs: shows, checks and makes certificates.
#include "Subcommands.hpp"
#include "Text.hpp"

#include <foundation/toolkit/StandardErrorLog.hpp>

#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>

namespace {

using namespace foundation::tools;

ExitStatus run(int argc, char** argv)
{
    Action action;
    auto const parser = makeParser(action);
    try {
        parser->parse(argc, argv);
    } catch (CLI::ParseError const& refusal) {
        if (refusal.get_exit_code() == 0) { // --help or --version
            parser->exit(refusal);
            return ExitStatus::Good;
        }
        std::cerr << errorLine(refusal.what() + std::string(", try --help"));
        return ExitStatus::BadInput;
    }
    foundation::toolkit::silenceLog();
    return action();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        auto const status = run(argc, argv);
        if (!std::cout.flush()) {
            throw std::runtime_error("standard output cannot be written");
        }
        return static_cast<int>(status);
    } catch (std::bad_alloc const&) {
        std::cerr << "foundation-certs: out of memory\n"; // without an allocation
        return static_cast<int>(ExitStatus::BadInput);
    } catch (std::exception const& failure) {
        std::cerr << errorLine(failure.what());
        return static_cast<int>(ExitStatus::BadInput);
    }
}
