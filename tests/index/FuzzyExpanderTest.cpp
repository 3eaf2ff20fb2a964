#include "query/FuzzyExpander.h"

#include "base/ApiError.h"
#include "engine/Analyzer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>

using kestrel::index::codePoints;
using kestrel::index::Fuzziness;

namespace {

/// Optimal string alignment distance, by its definition.
unsigned distance(const std::u32string& a, const std::u32string& b) {
    std::map<std::pair<std::size_t, std::size_t>, unsigned> d;
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            unsigned best = i == 0 && j == 0 ? 0 : UINT32_MAX;
            if (i > 0) best = std::min(best, d[{i - 1, j}] + 1);
            if (j > 0) best = std::min(best, d[{i, j - 1}] + 1);
            if (i > 0 && j > 0) best = std::min(best, d[{i - 1, j - 1}] + (a[i - 1] == b[j - 1] ? 0U : 1U));
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                best = std::min(best, d[{i - 2, j - 2}] + 1);
            d[{i, j}] = best;
        }
    }
    return d[{a.size(), b.size()}];
}

std::string randomWord(std::mt19937& random) {
    static const std::vector<std::string> letters{"a", "b", "c", "é", "ж", "𐌰"};
    std::string word;
    for (std::size_t i = 1 + random() % 8; i > 0; --i)
        word += letters[random() % letters.size()];
    return word;
}

void addWord(kestrel::index::TextData& data, kestrel::index::Ordinal ordinal, const std::string& word) {
    data.add(ordinal, {0, kestrel::index::TextContent{{{word, 1}}, 1}});
}

using Found = std::vector<std::pair<std::string, float>>;

Found expand(const kestrel::index::TextData& data, const std::string& word, unsigned edits,
             std::size_t limit) {
    Found found;
    for (const auto& [term, boost] : kestrel::index::expandFuzzy(data, word, edits, limit))
        found.emplace_back(data.terms().at(term), boost);
    return found;
}

} // namespace

TEST(FuzzyExpander, FindsWhatTheDefinitionFinds) {
    std::mt19937 random(11);
    kestrel::index::TextData data;
    std::vector<std::string> words;
    // Enough words for several rounds of sorting and an unsorted rest.
    for (kestrel::index::Ordinal ordinal = 0; ordinal < 3000; ++ordinal) {
        words.push_back(randomWord(random));
        addWord(data, ordinal, words.back());
    }
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    ASSERT_LT(data.sortedTerms().size(), data.terms().size());

    for (int round = 0; round < 60; ++round) {
        const std::string word = randomWord(random);
        for (const unsigned edits : {0U, 1U, 2U}) {
            Found expected;
            for (const std::string& candidate : words) {
                const unsigned away = distance(codePoints(word), codePoints(candidate));
                const std::size_t shorter = std::min(codePoints(word).size(), codePoints(candidate).size());
                const float boost = 1.0F - static_cast<float>(away) / static_cast<float>(shorter);
                if (away <= edits && boost > 0) expected.emplace_back(candidate, boost);
            }
            std::stable_sort(expected.begin(), expected.end(),
                             [](const auto& a, const auto& b) { return a.second > b.second; });
            ASSERT_EQ(expand(data, word, edits, SIZE_MAX), expected) << word;
            expected.resize(std::min<std::size_t>(expected.size(), 5));
            ASSERT_EQ(expand(data, word, edits, 5), expected) << word;
        }
    }
}

TEST(FuzzyExpander, OverlooksWordsThatAreGone) {
    kestrel::index::TextData data;
    addWord(data, 0, "river");
    addWord(data, 1, "rover");
    data.remove(0, {0, kestrel::index::TextContent{{{"river", 1}}, 1}});
    EXPECT_EQ(expand(data, "river", 2, 50), (Found{{"rover", 0.8F}}));
    EXPECT_TRUE(expand(data, "river", 0, 50).empty());
}

TEST(Fuzziness, DependsOnTheLength) {
    const auto edits = [](const std::string& text) {
        const Fuzziness fuzziness = Fuzziness::parse(text);
        std::string all;
        for (std::size_t length = 1; length <= 8; ++length)
            all += std::to_string(fuzziness.editsFor(length));
        return all;
    };
    EXPECT_EQ(edits("AUTO:4,6"), "00011222");
    EXPECT_EQ(edits("AUTO"), "00111222");
    EXPECT_EQ(edits("1"), "11111111");
    for (const char* wrong : {"", "3", "-1", "AUTO:", "AUTO:4", "AUTO:6,4", "AUTO:a,b", "autumn"})
        EXPECT_THROW(Fuzziness::parse(wrong), kestrel::index::ApiError) << wrong;
}
