#pragma once

/// @file
/// From the best token of every frame to words with their times.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrelml::stt {

struct CondensedToken {
    std::int32_t id;
    int timeMs;
};

struct SpecialTokens {
    std::int32_t pad;
    std::int32_t unknown;
    std::int32_t wordDelimiter;
};

/// Each run of one token becomes one token with the time of its first frame, in frames of 20 ms. The end of a
/// word counts from where the silence (padding) before it began.
std::vector<CondensedToken> condense(const std::vector<std::int32_t>& frameTokens,
                                     const SpecialTokens& special);

/// Appends the words' start and end times. A last word that the audio cuts off has no end.
/// @return The words, each but a cut-off one followed by a space.
std::string translate(const std::vector<CondensedToken>& condensed, const SpecialTokens& special,
                      const std::map<std::int32_t, std::string>& tokens, std::vector<int>& wordStartsMS,
                      std::vector<int>& wordEndsMS);

} // namespace kestrelml::stt
