// A host of the CTC engine: runs the steps that its arguments name, and prints each step's outcome as a line
// of JSON.

#include "kestrelml/stt/KsNNSpeechToTextWav2Vec2ONNX.h"
#include "tests/stt/Scenario.h"

#include <memory>

namespace {

using Engine = KsNNSpeechToTextWav2Vec2ONNX;
using kestrel_test::Arguments;
using kestrel_test::toArray;

class CtcScenario : public kestrel_test::Scenario {
public:
    CtcScenario() {
        mSteps = {
            {"engine", [this](const Arguments& a) { return create(a); }},
            {"copy", [this](const Arguments&) { return copy(); }},
            {"languages", [this](const Arguments&) { return languages(); }},
            {"language", [this](const Arguments& a) { return mEngine->setLanguage(a.at(0)); }},
            {"feed", [this](const Arguments& a) { return feed<short>(a); }},
            {"feed-float", [this](const Arguments& a) { return feed<float>(a); }},
            {"finalize", [this](const Arguments& a) { return finalize(a); }},
            {"self-test", [this](const Arguments&) { return mEngine->debugInternals(); }},
        };
    }

private:
    /// Arguments: samples of chunk and overlap, chunks in a batch.
    KsNN_ErrorCode create(const Arguments& a) {
        mEngine = std::make_unique<Engine>(std::stoull(a.at(0)), std::stoull(a.at(1)), std::stoull(a.at(2)));
        return KsNN_Success;
    }

    /// The rest of the scenario runs on a copy.
    KsNN_ErrorCode copy() {
        mEngine = std::make_unique<Engine>(Engine(*mEngine));
        return KsNN_Success;
    }

    KsNN_ErrorCode languages() {
        std::vector<std::string> names{"before"};
        mEngine->getLanguageList(names);
        mOutcome->set("languages", toArray(names));
        mOutcome->set("language", mEngine->getLanguage());
        return KsNN_Success;
    }

    /// Arguments: file of raw samples; optionally how many to feed at once; optionally "debug".
    template <typename Sample>
    KsNN_ErrorCode feed(const Arguments& a) {
        const std::vector<Sample> samples = kestrel_test::readSamples<Sample>(a.at(0));
        const std::size_t piece = a.size() > 1 ? std::stoul(a[1]) : samples.size();
        for (std::size_t begin = 0; begin < samples.size(); begin += piece) {
            const std::size_t count = std::min(piece, samples.size() - begin);
            const KsNN_ErrorCode code = mEngine->ProcessAudio(&samples[begin], count, false, a.size() > 2);
            if (code != KsNN_Success) return code;
        }
        return KsNN_Success;
    }

    /// Arguments: zero samples to add; optionally "debug".
    KsNN_ErrorCode finalize(const Arguments& a) {
        std::string text = "left over";
        std::vector<int> starts{-1};
        std::vector<int> ends{-1};
        const KsNN_ErrorCode code =
            mEngine->FinalizeTranscript(text, starts, ends, std::stoul(a.at(0)), a.size() > 1);
        mOutcome->set("text", text);
        mOutcome->set("starts", toArray(starts));
        mOutcome->set("ends", toArray(ends));
        return code;
    }

    std::unique_ptr<Engine> mEngine;
};

} // namespace

/// Each line of the standard input is a step: its name and arguments, separated by "|".
int main() {
    CtcScenario scenario;
    for (std::string step; std::getline(std::cin, step);)
        scenario.run(step);
    return 0;
}
