#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace kestrel_test {

/// Text made by chance, the same in every run.
class RandomText {
public:
    explicit RandomText(std::uint32_t seed) : mEngine(seed) {}

    /// A number from 0 to `count` - 1.
    std::size_t below(std::size_t count) { return mEngine() % count; }
    bool chance(std::size_t percent) { return below(100) < percent; }

    std::u16string of(std::u16string_view alphabet, std::size_t length) {
        std::u16string text(length, u' ');
        for (char16_t& unit : text)
            unit = alphabet[below(alphabet.size())];
        return text;
    }

    /// `text` with so many of a hundred units lost, doubled or replaced.
    std::u16string noisy(std::u16string_view text, std::size_t percent) {
        std::u16string result;
        for (const char16_t unit : text) {
            if (!chance(percent)) {
                result += unit;
                continue;
            }
            const std::size_t damage = below(3);
            if (damage == 0) continue;
            if (damage == 1) result += unit;
            result += static_cast<char16_t>(u'a' + below(26));
        }
        return result;
    }

private:
    std::mt19937 mEngine;
};

} // namespace kestrel_test
