// validate_in_parallel ROOTS FILE...: validates many chains with all processors and one set of roots.
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;
using foundation::toolkit::explain;
using foundation::toolkit::PathValidator;
using foundation::toolkit::toString;

namespace {

constexpr char const usageText[] = R"(Usage: validate_in_parallel ROOTS FILE...
Validates the chains in the files against the trusted certificates in the file ROOTS.
Each file holds the certificate first, then its intermediates.

Exit status: 0 if all chains are valid, 1 if one is not or cannot be read, 2 for any
other failure.
)";

enum ExitStatus
{
    allValid = 0,
    someNotValid = 1,
    badInput = 2
};

std::vector<Certificate> certificatesIn(std::string const& file)
{
    std::vector<Certificate> certificates;
    CertificateReader reader{std::filesystem::path(file)};
    while (auto const found = reader.next()) {
        if (!found->certificate) {
            throw std::runtime_error(found->failure);
        }
        certificates.push_back(*found->certificate);
    }
    return certificates;
}

struct Verdict
{
    bool isValid = false;
    std::string text; // cppcheck-suppress unusedStructMember ; main prints it
};

Verdict verdictOn(std::string const& file, PathValidator const& validator)
{
    try {
        auto const sent = certificatesIn(file);
        auto const result = validator.validate(sent.front(), {sent.begin() + 1, sent.end()});
        return {result.isValid(), std::string(toString(result.status)) + ": " + explain(result).message};
    } catch (std::exception const& failure) {
        return {false, failure.what()};
    }
}

// All threads use the same validator, which needs no lock.
std::vector<Verdict> verdictsOn(std::vector<std::string> const& files, PathValidator const& validator)
{
    std::vector<Verdict> verdicts(files.size());
    std::atomic<std::size_t> next{0};
    auto const work = [&] {
        for (auto index = next++; index < files.size(); index = next++) {
            verdicts[index] = verdictOn(files[index], validator);
        }
    };
    std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
    for (auto& thread : threads) {
        thread = std::thread(work);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    return verdicts;
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return allValid;
    }
    if (arguments.size() < 2) {
        throw std::runtime_error("roots and a file are needed, try --help");
    }
    std::vector<std::string> const files(arguments.begin() + 1, arguments.end());
    auto const verdicts = verdictsOn(files, PathValidator(certificatesIn(arguments.front())));
    auto status = allValid;
    for (std::size_t index = 0; index < files.size(); ++index) {
        std::cout << files[index] << ": " << verdicts[index].text << '\n';
        status = verdicts[index].isValid ? status : someNotValid;
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "validate_in_parallel: " << failure.what() << '\n';
        return badInput;
    }
}
