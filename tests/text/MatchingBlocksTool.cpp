// Prints the matching blocks of pairs of texts, for comparison with Python's difflib.
//
// Standard input holds texts, two for each pair: the number of UTF-16 units as a 32-bit integer, then the
// units, both in the byte order of the machine. Each pair gives one line of numbers, three for each block.

#include "kestrelml/text/matching/SequenceMatcher.h"

#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace kestrelml::detail;

std::optional<std::u16string> readText() {
    std::uint32_t size = 0;
    if (!std::cin.read(reinterpret_cast<char*>(&size), sizeof size)) return std::nullopt;
    std::u16string text(size, u' ');
    if (!std::cin.read(reinterpret_cast<char*>(text.data()), static_cast<std::streamsize>(2) * size)) {
        throw std::runtime_error("a text ends early");
    }
    return text;
}

} // namespace

/// The argument, if there is one, is the largest number of pairs of units that is searched pair by pair.
int main(int argc, char** argv) {
    while (const auto a = readText()) {
        const std::u16string b = readText().value();
        for (const MatchingBlock& block :
             argc > 1 ? findMatchingBlocks(*a, b, std::stoll(argv[1])) : findMatchingBlocks(*a, b)) {
            std::cout << block.a << ' ' << block.b << ' ' << block.size << ' ';
        }
        std::cout << '\n';
    }
}
