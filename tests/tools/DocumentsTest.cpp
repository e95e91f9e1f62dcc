#include "tools/FoundationCerts.hpp"

#include <algorithm>
#include <sstream>

using namespace foundation::test;

namespace {

std::string document(std::string const& name)
{
    return contentOfFile(std::filesystem::path(FOUNDATION_CERTS_DOCUMENTS) / name);
}

/// Returns what bash completes for the words; the last one is the beginning of a word.
std::string completionsOf(std::string const& words)
{
    auto const script =
        document("foundation-certs.bash") + "\nCOMP_WORDS=(foundation-certs " + words +
        ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_foundation_certs\necho \"${COMPREPLY[@]}\"\n";
    auto const run = runProgram("bash", {"-euo", "pipefail", "-c", script});
    EXPECT_EQ(run.errors, "");
    return run.output;
}

/// Returns the text without the backslashes of roff.
std::string unescaped(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
    return text;
}

} // namespace

TEST(ProgramDocuments, BashCompletesSubcommandsOptionsAndValues)
{
    EXPECT_EQ(completionsOf("val"), "validate\n");
    EXPECT_EQ(completionsOf("inspect --j"), "--jobs --json\n");
    EXPECT_EQ(completionsOf("validate --purpose co"), "code-signing\n");
    EXPECT_EQ(completionsOf("validate --roots sy"), "\n"); // completes to files
}

TEST(ProgramDocuments, NameEverySubcommandAndOption)
{
    auto const page = unescaped(document("foundation-certs.1"));
    auto const zsh = document("_foundation-certs");
    auto const help = foundationCerts({"--help"}).output;
    // CLI11 2.5 and later write the title in capital letters, and long descriptions in several lines.
    char const* const title = contains(help, "SUBCOMMANDS:\n") ? "SUBCOMMANDS:\n" : "Subcommands:\n";
    std::istringstream lines(help.substr(help.find(title)));
    std::string line;
    std::size_t numOptions = 0;
    for (std::getline(lines, line); std::getline(lines, line) && !line.empty();) {
        auto const subcommand = line.substr(2, line.find(' ', 2) - 2);
        if (subcommand.empty()) {
            continue;
        }
        EXPECT_TRUE(contains(page, ".SS " + subcommand + " ")) << subcommand;
        EXPECT_TRUE(contains(zsh, "'" + subcommand + ":")) << subcommand;
        std::istringstream words(foundationCerts({subcommand, "--help"}).output);
        for (std::string word; words >> word;) {
            if (beginsWith(word, "--") && word.size() > 2) {
                ++numOptions;
                EXPECT_TRUE(contains(page, word)) << word;
                EXPECT_TRUE(contains(zsh, word + "[")) << word;
            }
        }
    }
    EXPECT_GT(numOptions, 10U);
}
