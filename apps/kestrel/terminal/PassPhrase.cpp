#include "apps/kestrel/terminal/PassPhrase.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/terminal/Answer.h"

#include <fmt/format.h>

#include <cstdlib>
#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace kestrel {

namespace {

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

/// The terminal does not show what is typed for as long as this lives.
class NoEcho {
public:
    NoEcho() {
        ::tcgetattr(STDIN_FILENO, &mBefore);
        termios hidden = mBefore;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    NoEcho(const NoEcho&) = delete;
    NoEcho& operator=(const NoEcho&) = delete;
    ~NoEcho() {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &mBefore);
        fmt::print(stderr, "\n");
    }

private:
    termios mBefore{};
};

std::string ask(const char* prompt) {
    fmt::print(stderr, "{}: ", prompt);
    std::fflush(stderr);
    const NoEcho hidden;
    return readAnswer();
}

} // namespace

std::string readPassPhrase(const std::filesystem::path& file, bool twice) {
    std::string passPhrase;
    if (file == "-") {
        std::getline(std::cin, passPhrase);
        passPhrase = firstLine(passPhrase);
    } else if (!file.empty()) {
        passPhrase = firstLine(readFile(file));
    } else if (const char* variable = std::getenv(kPassPhraseVariable)) {
        passPhrase = variable;
    } else if (::isatty(STDIN_FILENO) != 0) {
        passPhrase = ask("Pass phrase");
        if (twice && ask("The same again") != passPhrase)
            throw Failure("the two pass phrases differ; nothing was written");
    } else {
        throw UsageError(fmt::format("an exchange file needs a pass phrase: name a file that holds it with "
                                     "--pass-phrase-file, or set {}",
                                     kPassPhraseVariable));
    }
    if (passPhrase.empty()) throw Failure("the pass phrase is empty");
    return passPhrase;
}

} // namespace kestrel
