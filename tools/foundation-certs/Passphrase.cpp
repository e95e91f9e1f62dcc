#include "Passphrase.hpp"

#include "Files.hpp"
#include "support/passphrase.hpp"

namespace foundation::tools {

std::string readPassphrase(std::optional<std::string> const& file, std::string const& prompt)
{
    if (!file) {
        return passphraseFromTerminal(prompt);
    }
    auto passphrase = contentOf(*file);
    if (!passphrase.empty() && passphrase.back() == '\n') {
        passphrase.pop_back();
        if (!passphrase.empty() && passphrase.back() == '\r') {
            passphrase.pop_back();
        }
    }
    return passphrase;
}

} // namespace foundation::tools
