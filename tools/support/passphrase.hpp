#pragma once

// Reads a passphrase from a file, or from the terminal without showing it.

#include <fstream>
#include <stdexcept>
#include <string>

#ifdef _WIN32
#include <conio.h>
#include <cstdio>
#else
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace foundation::tools {

// Returns the file's first line without its line end.
inline std::string passphraseFromFile(std::string const& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string passphrase;
    if (!std::getline(stream, passphrase) && !stream.eof()) {
        throw std::runtime_error(file + ": cannot be read");
    }
    if (!passphrase.empty() && passphrase.back() == '\r') {
        passphrase.pop_back();
    }
    return passphrase;
}

#ifdef _WIN32

inline std::string passphraseFromTerminal(std::string const& prompt)
{
    std::fputs(prompt.c_str(), stderr);
    std::string passphrase;
    for (int character = _getch(); character != '\r' && character != '\n'; character = _getch()) {
        passphrase.push_back(static_cast<char>(character));
    }
    std::fputs("\n", stderr);
    return passphrase;
}

#else

// The terminal of the process, even if input and output are redirected. It does not show typed characters
// until the end of the scope.
class SilentTerminal
{
public:
    SilentTerminal() : descriptor(open("/dev/tty", O_RDWR | O_CLOEXEC))
    {
        if (descriptor < 0 || tcgetattr(descriptor, &before) != 0) {
            throw std::runtime_error("no terminal to ask for the passphrase, use --passphrase-file");
        }
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(descriptor, TCSAFLUSH, &silent);
    }

    ~SilentTerminal()
    {
        tcsetattr(descriptor, TCSAFLUSH, &before);
        close(descriptor);
    }

    SilentTerminal(SilentTerminal const&) = delete;
    SilentTerminal& operator=(SilentTerminal const&) = delete;

    void write(std::string const& text) const
    {
        if (::write(descriptor, text.data(), text.size()) < 0) {
            throw std::runtime_error("cannot write to the terminal");
        }
    }

    std::string readLine() const
    {
        std::string line;
        char character = '\0';
        while (read(descriptor, &character, 1) == 1 && character != '\n') {
            line.push_back(character);
        }
        return line;
    }

private:
    int descriptor;
    termios before{};
};

inline std::string passphraseFromTerminal(std::string const& prompt)
{
    SilentTerminal const terminal;
    terminal.write(prompt);
    std::string passphrase = terminal.readLine();
    terminal.write("\n"); // the terminal did not show the typed one
    return passphrase;
}

#endif

} // namespace foundation::tools
