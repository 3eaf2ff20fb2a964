// A host's main program in a shared library: runs the steps that its arguments name on one speech engine, and
// prints each step's outcome as a line of JSON. Each test needs its own process, since an interpreter starts
// only once.

#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"
#include "kestrelml/stt/KsNNSpeechToTextREST.h"
#include "tests/stt/Scenario.h"

#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <memory>
#include <thread>

namespace {

using kestrel_test::Arguments;
using kestrel_test::toArray;
using Poco::JSON::Array;
using Poco::JSON::Object;

Array::Ptr toJson(const KsNNDB_STTClipEntry& entry) {
    Array::Ptr segments = new Array;
    for (const KsNNDBEntrySeg& each : entry.segments) {
        Object::Ptr segment = new Object;
        segment->set("segment", each.segment);
        segment->set("transcript", each.transcript);
        segment->set("language", each.language);
        segment->set("speakerID", each.speakerID);
        segment->set("starts", toArray(each.wordStartsMS));
        segment->set("ends", toArray(each.wordEndsMS));
        segments->add(segment);
    }
    return segments;
}

class EngineScenario : public kestrel_test::Scenario {
public:
    EngineScenario(std::string engineKind, std::string modelDir, std::string logDir)
        : mEngineKind(std::move(engineKind)), mModelDir(std::move(modelDir)), mLogDir(std::move(logDir)) {
        replaceEngine();
        mSteps = {
            {"engine", [this](const Arguments&) { return replaceEngine(); }},
            {"shutdown", [](const Arguments&) { return shutdown(); }},
            {"early-load",
             [](const Arguments&) {
                 return KsNNSpeechToTextCYTHON::EarlyLoadLibrary() ? KsNN_Success : KsNN_Error;
             }},
            {"set-model-dir", [this](const Arguments& a) { return mEngine->SetModelDir(a.at(0), false); }},
            {"upload", [this](const Arguments& a) { return upload(a); }},
            {"finalize", [this](const Arguments& a) { return finalize(a); }},
            {"finalize-cancelled", [this](const Arguments& a) { return finalizeCancelled(a); }},
            {"transcribe", [this](const Arguments& a) { return transcribe(a); }},
            {"cancel", [this](const Arguments&) { return mEngine->Cancel(false); }},
            {"progress", [this](const Arguments&) { return progress(); }},
            {"languages", [this](const Arguments&) { return languages(); }},
            {"python", [](const Arguments& a) { return python(a); }},
            {"thread", [this](const Arguments& a) { return onAnotherThread(a); }},
        };
    }

private:
    std::unique_ptr<KsNNSpeechToTextInterface> newEngine() const {
        if (mEngineKind == "embedded")
            return std::make_unique<KsNNSpeechToTextCYTHON>(0, 0, 0, false, mModelDir, mLogDir);
        auto engine = std::make_unique<KsNNSpeechToTextREST>(0, 0, 0, mModelDir);
        engine->SetURI(mEngineKind.c_str());
        return engine;
    }

    KsNN_ErrorCode replaceEngine() {
        mEngine = newEngine();
        return KsNN_Success;
    }

    /// Arguments: file of raw samples, clip, project, optionally the first sample's position.
    KsNN_ErrorCode upload(const Arguments& a) {
        const auto samples = kestrel_test::readSamples<std::int16_t>(a.at(0));
        const std::size_t start = a.size() > 3 ? std::stoul(a[3]) : 0;
        return mEngine->ProcessAudio(samples.data(), start, samples.size(), a.at(1), a.at(2), false);
    }

    /// Arguments: clip, project, language.
    KsNN_ErrorCode finalize(const Arguments& a) {
        KsNNDB_STTClipEntry entry;
        const KsNN_ErrorCode result =
            mEngine->FinalizeTranscript(entry, 16000, a.at(0), a.at(1), "A1", a.at(2), false);
        mOutcome->set("model", entry.model);
        mOutcome->set("segments", toJson(entry));
        return result;
    }

    /// A second engine polls the first, and cancels it when there is progress.
    KsNN_ErrorCode finalizeCancelled(const Arguments& a) {
        const auto other = newEngine();
        std::atomic<bool> stop{false};
        std::thread poller([&] {
            for (float progress = 0.0F; !stop; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
                other->GetProgress(progress, false);
                if (progress > 0.0F) other->Cancel(false);
            }
        });
        const KsNN_ErrorCode result = finalize(a);
        stop = true;
        poller.join();
        return result;
    }

    KsNN_ErrorCode transcribe(const Arguments& a) {
        KsNNTranscript transcript;
        const KsNN_ErrorCode result =
            mEngine->TranscribeAudio(transcript, a.at(0), {true, true, true}, 0.01F);
        std::string text;
        for (const KsNNTranscriptSegment& segment : transcript.segments)
            text += segment.text + "\n";
        mOutcome->set("text", text);
        return result;
    }

    KsNN_ErrorCode progress() {
        float progress = -1.0F;
        const KsNN_ErrorCode result = mEngine->GetProgress(progress, false);
        mOutcome->set("progress", progress);
        return result;
    }

    KsNN_ErrorCode languages() {
        std::vector<KsNNLanguage> languages;
        const KsNN_ErrorCode result = mEngine->GetSupportedLanguages(languages, false);
        Array::Ptr codes = new Array;
        for (const KsNNLanguage& language : languages)
            codes->add(language.code);
        mOutcome->set("languages", codes);
        return result;
    }

    /// Runs Python text in the interpreter, which is found as packages find it. Without one, nothing runs.
    static KsNN_ErrorCode python(const Arguments& a) {
        const auto initialised = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "Py_IsInitialized"));
        const auto run =
            reinterpret_cast<int (*)(const char*, void*)>(dlsym(RTLD_DEFAULT, "PyRun_SimpleStringFlags"));
        const bool ran = initialised && initialised() && run(a.at(0).c_str(), nullptr) == 0;
        return ran ? KsNN_Success : KsNN_Error;
    }

    /// Runs another step on another thread.
    KsNN_ErrorCode onAnotherThread(const Arguments& a) {
        KsNN_ErrorCode result = KsNN_Success;
        const char* raised = nullptr;
        std::thread([&] {
            try {
                result = mSteps.at(a.at(0))({a.begin() + 1, a.end()});
            } catch (const char* message) {
                raised = message;
            }
        }).join();
        if (raised) throw raised;
        return result;
    }

    static KsNN_ErrorCode shutdown() {
        KsNNSpeechToTextCYTHON::Shutdown();
        return KsNN_Success;
    }

    std::string errors() const override { return mEngine->GetErrorStr(); }

    std::string mEngineKind;
    std::string mModelDir;
    std::string mLogDir;
    std::unique_ptr<KsNNSpeechToTextInterface> mEngine;
};

} // namespace

/// Arguments: "embedded" or the address of a speech service, model folder, log folder, steps.
extern "C" __attribute__((visibility("default"))) int runScenario(int count, char** arguments) {
    if (count < 4) return 2;
    EngineScenario scenario(arguments[1], arguments[2], arguments[3]);
    for (int i = 4; i < count; ++i)
        scenario.run(arguments[i]);
    return 0;
}
