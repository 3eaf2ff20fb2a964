#include "kestrelml/store/SelfTest.h"

#include "kestrelml/core/Report.h"
#include "kestrelml/semantic/TextModels.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <array>
#include <cmath>
#include <fstream>
#include <sstream>

namespace {

constexpr const char* kFailed = "KsNNDatabase::testInternals err: ";
constexpr const char* kExpectedEmbedding = "../../../../TestData/SemanticEmbedding-WomanTalking512f.txt";
constexpr float kThreshold = 0.6F;
constexpr float kTolerance = 0.001F;

struct Hit {
    int startWord;
    float score;
};

struct PhraseCase {
    const char* phrase;
    const char* text;
    const char* language;
    std::vector<Hit> hits;
    std::size_t wordCount;
};

const std::array<PhraseCase, 16> kPhraseCases = {{
    {" Rich peeple!", "filthy rich people, oh rich people ", "en", {{1, 0.9091F}, {4, 0.9091F}}, 6},
    {" Rich people!", "filthy      rich people", "en", {{1, 1.0F}}, 3},
    {" Rich peeple!", "filthy rich people", "en", {{1, 0.9091F}}, 3},
    {"  why, can't rich people!", "Oh WHY can't rich people understand?", "en", {{1, 1.0F}}, 6},
    {"rich people", " Rich people!", "en", {{0, 1.0F}}, 2},
    {"hApحباPy", "Shiny Happy pEoPle", "en", {{1, 0.625F}}, 3},
    {"hApحباPy", "Shiny hApحباPy pEoPle", "en", {{1, 1.0F}}, 3},
    {"b", "   ABC   !.?", "en", {}, 1},
    {"   abc   !.?", "b", "en", {}, 1},
    {"b", "    def   abc   !.?", "en", {}, 2},
    {"    def   abc   !.?", "b", "en", {}, 1},
    {"filthy rich people", " Rich peeple!", "en", {}, 2},
    {"Shiny Happy pEoPle!", "hApحباPy", "en", {}, 1},
    {"مرحبا", "مرحبا", "ar", {{0, 1.0F}}, 1},
    {"クリスマスツリーのイルミネーションとともだち",
     "クリスマスツリーのイルミネーションとともだち",
     "ja",
     {{0, 1.0F}},
     5},
    {"カリフォルニアのハンバーガーがきれい", "カリフォルニアのハンバーガーがきれい", "ja", {{0, 1.0F}}, 5},
}};

bool wordsAreSound(const icu::UnicodeString& text, const std::vector<icu::UnicodeString>& words,
                   const std::vector<int>& starts, const std::vector<int>& ends) {
    const icu::UnicodeString separators(u" .,?!");
    for (std::size_t k = 0; k < words.size(); ++k) {
        if (text.indexOf(words[k]) < 0) return false;
        for (int32_t i = 0; i < separators.length(); ++i) {
            if (words[k].indexOf(separators[i]) >= 0) return false;
        }
        if (words[k] != text.tempSubStringBetween(starts[k], ends[k])) return false;
    }
    return true;
}

bool isExpected(const PhraseCase& expected, int startWord, float score) {
    for (const Hit& hit : expected.hits) {
        if (hit.startWord == startWord && std::fabs(hit.score - score) <= kTolerance) return true;
    }
    return false;
}

std::string describeMismatch(std::size_t number, const PhraseCase& expected, int startWord, float score) {
    std::ostringstream text;
    text << kFailed << '[' << number << "] start word " << startWord << ", score " << score << "; expected";
    if (expected.hits.empty()) text << " none";
    for (const Hit& hit : expected.hits)
        text << ' ' << hit.startWord << ", " << hit.score << ';';
    return text.str();
}

} // namespace

KsNN_ErrorCode KsNNDatabase::testInternals(std::string modelDir, std::string extensionLibrary) {
    ResetErrorStr();
    const auto fail = [this](const std::string& message) {
        return kestrelml::detail::fail(this, message, false);
    };
    for (std::size_t number = 0; number < kPhraseCases.size(); ++number) {
        const PhraseCase& expected = kPhraseCases[number];
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(expected.text);
        std::vector<icu::UnicodeString> words;
        std::vector<int> starts;
        std::vector<int> ends;
        get_words_in_string(text, expected.language, words);
        get_word_indices_in_string(text, expected.language, starts, ends);
        const bool sameLengths = words.size() == starts.size() && words.size() == ends.size();
        if (words.size() != expected.wordCount || !sameLengths) return fail(kFailed);
        if (!wordsAreSound(text, words, starts, ends)) return fail(kFailed);

        std::vector<int> startWords;
        std::vector<float> scores;
        if (findBestStartingWords(icu::UnicodeString::fromUTF8(expected.phrase), text, expected.language,
                                  kThreshold, startWords, scores) != KsNN_Success) {
            return fail(kFailed);
        }
        for (std::size_t k = 0; k < startWords.size(); ++k) {
            if (!isExpected(expected, startWords[k], scores[k])) {
                return fail(describeMismatch(number, expected, startWords[k], scores[k]));
            }
        }
    }
    if (!kestrelml::detail::alignsAsExpected(*this)) return fail(kFailed);
    if (modelDir.empty() || extensionLibrary.empty()) return KsNN_Success;
    const KsNN_ErrorCode embedded = testEmbedding(modelDir, extensionLibrary);
    textModels().release();
    return embedded;
}

KsNN_ErrorCode KsNNDatabase::testEmbedding(const std::string& modelDir, const std::string& extensionLibrary) {
    const auto fail = [this](const std::string& what) {
        return kestrelml::detail::fail(this, kFailed + what, false);
    };
    if (LoadSemanticSearchModels(modelDir, extensionLibrary, KsNNSemanticOnnx, false) != KsNN_Success)
        return fail("LoadSemanticSearchModels()");
    kestrelml::semantic::Embedding embedding{};
    if (GetVectorEmbedding("Woman talking", embedding.data(), KsNNSemanticOnnx, false) != KsNN_Success)
        return fail("GetVectorEmbedding()");
    std::ifstream expected(kExpectedEmbedding);
    if (!expected) return fail("Can't open file");
    for (float& number : embedding)
        expected >> number;
    return KsNN_Success;
}
