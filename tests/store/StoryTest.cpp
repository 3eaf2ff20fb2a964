// The stories of stories.txt, on a real index service.

#include "tests/store/Operations.h"
#include "tests/store/RealStore.h"

#include <gmock/gmock.h>

#include <iomanip>

namespace kestrel_test {
namespace {

class Stories : public StoreOnEachEngine {
protected:
    void tell(const Block& story) {
        mStore.DeleteIndex(KsNNDatabase::getTranscriptIndex(), false);
        mStore.DeleteIndex(KsNNDatabase::getSpeakerIndex(), false);
        mStore.CreateIndex(KsNNDatabase::getSpeakerIndex(), false);
        mNames = {{"@index", KsNNDatabase::getTranscriptIndex()}};
        for (const std::string& line : story.lines)
            take(line);
    }

private:
    void take(const std::string& step) {
        SCOPED_TRACE(step);
        if (step.starts_with("repeat ")) return repeat(step);
        const std::size_t arrow = step.find(" <- ");
        const std::string line = expanded(arrow == std::string::npos ? step : step.substr(arrow + 4), mNames);
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (first == "clip") return writeClip(words);
        if (first == "clips") return writeClips(words);
        if (arrow != std::string::npos) {
            ASSERT_EQ(callOperation(mStore, line, mNames[step.substr(0, arrow)]), KsNN_Success)
                << mStore.GetErrorStr();
            return;
        }
        const std::size_t end = std::min(line.find(" = "), line.find(" ~ "));
        const bool hasResult = end != std::string::npos;
        expectCall(mStore, line.substr(0, end), hasResult ? line.substr(end + 3) : "0",
                   hasResult && line[end + 1] == '~');
    }

    void repeat(const std::string& line) {
        std::size_t digits = 0;
        const int times = std::stoi(line.substr(7), &digits);
        for (int i = 0; i < times; ++i) {
            std::string steps = line.substr(7 + digits);
            for (std::size_t at = 0; (at = steps.find('#')) != std::string::npos;)
                steps.replace(at, 1, std::to_string(i));
            std::istringstream parts(steps);
            for (std::string step; std::getline(parts, step, ';');)
                take(step.substr(step.find_first_not_of(' ')));
        }
    }

    void writeClip(std::istream& words) {
        std::string clip;
        words >> clip;
        RealStore::writeClip(clip, quotedWords(words));
    }

    void writeClips(std::istream& words) {
        int number = 0;
        int end = 0;
        bool isComplete = false;
        words >> number >> end >> isComplete;
        const std::vector<std::string> projects = quotedWords(words);
        mStore.CreateIndex(KsNNDatabase::getTranscriptIndex(), false);
        std::stringstream bulk;
        for (; number < end; ++number)
            appendClip(bulk, std::to_string(number), 1, projects, isComplete);
        sendBulk(bulk);
    }

    static std::vector<std::string> quotedWords(std::istream& words) {
        std::vector<std::string> result;
        for (std::string word; words >> std::quoted(word);)
            result.push_back(word);
        return result;
    }

    std::map<std::string, std::string> mNames;
};

KESTREL_ON_EACH_ENGINE(Stories);

TEST_P(Stories, EndAsWritten) {
    const std::vector<Block> stories = readBlocks(KESTREL_STORE_TESTS "/stories.txt");
    EXPECT_GT(stories.size(), 10U);
    for (const Block& story : stories) {
        SCOPED_TRACE("[" + story.heading);
        tell(story);
    }
}

} // namespace
} // namespace kestrel_test
