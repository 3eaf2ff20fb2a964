#include "kestrelml/stt/ctc/GreedyDecoder.h"

namespace kestrelml::stt {
namespace {

constexpr int kFrameMs = 20;

} // namespace

std::vector<CondensedToken> condense(const std::vector<std::int32_t>& frameTokens,
                                     const SpecialTokens& special) {
    std::vector<CondensedToken> condensed;
    std::int32_t previous = -1;
    int padsBefore = 0;
    int frame = 0;
    for (const std::int32_t id : frameTokens) {
        if (id != previous)
            condensed.push_back({id, (id == special.wordDelimiter ? frame - padsBefore : frame) * kFrameMs});
        previous = id;
        padsBefore = id == special.pad ? padsBefore + 1 : 0;
        ++frame;
    }
    return condensed;
}

std::string translate(const std::vector<CondensedToken>& condensed, const SpecialTokens& special,
                      const std::map<std::int32_t, std::string>& tokens, std::vector<int>& wordStartsMS,
                      std::vector<int>& wordEndsMS) {
    std::string text;
    bool inWord = false;
    for (const CondensedToken& each : condensed) {
        if (each.id == special.pad || each.id == special.unknown) continue;
        if (each.id != special.wordDelimiter) {
            text += tokens.at(each.id);
            if (!inWord) wordStartsMS.push_back(each.timeMs);
            inWord = true;
        } else if (inWord) {
            text += ' ';
            wordEndsMS.push_back(each.timeMs);
            inWord = false;
        }
    }
    return text;
}

} // namespace kestrelml::stt
