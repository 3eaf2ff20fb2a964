// The time of each store operation as the store grows.
//
//   kestrel_store_growth_bench [CLIPS...]      default: 100 1000 10000
//
// Every clip has 100 segments, a project of its own and one that all clips share. With the last default that
// is a million segments and ten thousand projects. Prints milliseconds, the median of several calls.

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Schema.h"
#include "tests/support/IndexService.h"

#include <Poco/Exception.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iostream>
#include <random>
#include <stdexcept>

namespace {

namespace detail = kestrelml::detail;
using Clock = std::chrono::steady_clock;

constexpr int kSegments = 100;
constexpr int kCalls = 5;
constexpr int kClipsOfARequest = 50;

void require(KsNN_ErrorCode code, const KsNNBase& store) {
    if (code != KsNN_Success) throw std::runtime_error(store.GetErrorStr());
}

std::string clipName(int number) {
    return "clip " + std::to_string(number);
}

std::string projectName(int number) {
    return "project " + std::to_string(number);
}

/// Sentences of ten words out of a thousand, the frequent ones far more often.
class Prose {
public:
    std::string sentence() {
        std::string text;
        for (int i = 0; i < 10; ++i)
            text += (i == 0 ? "" : " ") + word();
        return text;
    }

private:
    std::string word() {
        auto rank = static_cast<unsigned>(1000.0 * std::pow(mUniform(mRandom), 3));
        std::string letters;
        for (unsigned rest = rank + 27; rest > 0; rest /= 26)
            letters += static_cast<char>('a' + rest % 26);
        return letters + "en";
    }

    std::mt19937 mRandom{7};
    std::uniform_real_distribution<double> mUniform{0.0, 1.0};
};

void appendClip(int number, Prose& prose, std::ostream& bulk) {
    KsNNDB_STTClipEntry entry;
    entry.clipName = clipName(number);
    entry.progressComplete = true;
    entry.projects = {{"Shared", "shared"}, {projectName(number), projectName(number)}};
    for (int i = 0; i < kSegments; ++i) {
        KsNNDBEntrySeg seg;
        seg.segment = i;
        seg.mediaGuid = clipName(number);
        seg.transcript = prose.sentence();
        seg.language = "en";
        seg.speakerID = "S" + std::to_string(i % 3);
        seg.projectGuidList = {"shared", projectName(number)};
        for (int w = 0; w < 10; ++w) {
            seg.wordStartsMS.push_back(5000 * i + 500 * w);
            seg.wordEndsMS.push_back(5000 * i + 500 * w + 400);
        }
        detail::appendBulkCreate(entry, seg, bulk);
    }
}

void grow(KsNNDatabase& store, int from, int to) {
    static Prose prose;
    for (int begin = from; begin < to; begin += kClipsOfARequest) {
        std::stringstream bulk;
        for (int number = begin; number < std::min(begin + kClipsOfARequest, to); ++number)
            appendClip(number, prose, bulk);
        Poco::JSON::Object::Ptr answer;
        unsigned status = 0;
        require(RESTCall("PUT", detail::bulkPath(KsNNDatabase::getTranscriptIndex()), 600, bulk, answer,
                         status, &store, true, true, false),
                store);
        if (status != 200 || answer->getValue<bool>("errors"))
            throw std::runtime_error("bulk request failed");
    }
}

struct Measured {
    const char* name;
    /// Gets the number of the call.
    std::function<KsNN_ErrorCode(KsNNDatabase&, int)> run;
};

const std::vector<Measured>& operations() {
    static const std::vector<Measured> all = {
        {"GetSegmentCount",
         [](auto& store, int call) {
             int count = 0;
             return store.GetSegmentCount(clipName(call), "shared", count, false, 2);
         }},
        {"GetProgressComplete",
         [](auto& store, int call) {
             bool complete = false;
             return store.GetProgressComplete(clipName(call), "shared", complete, false, 2);
         }},
        {"GetDBContents",
         [](auto& store, int call) {
             KsNNDB_STTClipEntry entry;
             return store.GetDBContents(clipName(call), "shared", entry, false, 2);
         }},
        {"Search, 10 segments",
         [](auto& store, int) {
             std::vector<KsNNSearchResults> results;
             return store.Search("bben ccen", "shared", 0.6F, results, 10, false);
         }},
        {"Search, 1,000 segments",
         [](auto& store, int) {
             std::vector<KsNNSearchResults> results;
             return store.Search("bben ccen", "shared", 0.6F, results, 1000, false);
         }},
        {"GetAllEntries",
         [](auto& store, int) {
             std::vector<KsNNProject> projects;
             return store.GetAllEntries(projects, false);
         }},
        {"GetAllMediaGuids, pages of 1,000",
         [](auto& store, int) {
             std::vector<std::string> clips;
             return store.GetAllMediaGuids("ALL", clips, false, 1000);
         }},
        {"FindClips",
         [](auto& store, int) {
             std::vector<KsNNClipSummary> clips;
             return store.FindClips({}, clips, false);
         }},
        {"FindClips, with contents",
         [](auto& store, int) {
             KsNNClipQuery query;
             query.withContents = true;
             std::vector<KsNNClipSummary> clips;
             return store.FindClips(query, clips, false);
         }},
        {"GetAllInprogressEntries",
         [](auto& store, int) {
             std::vector<KsNNSearchResults> rows;
             return store.GetAllInprogressEntries(rows, false);
         }},
        {"FindAllLockedMediaGuids",
         [](auto& store, int) {
             std::vector<std::string> clips;
             return store.FindAllLockedMediaGuids(clips, false);
         }},
        {"SpeakerCreateNew",
         [](auto& store, int call) {
             KsNNSpeakerKV speaker;
             speaker.speakerName = "speaker " + std::to_string(call);
             speaker.projectGuid = speaker.projectName = "shared";
             return store.SpeakerCreateNew(speaker, false);
         }},
        {"GetAllSpeakersInProject",
         [](auto& store, int) {
             std::vector<KsNNSpeakerKV> speakers;
             return store.GetAllSpeakersInProject("shared", speakers, false);
         }},
        {"SpeakerSetSegName",
         [](auto& store, int call) {
             std::vector<KsNNSpeakerKV> speakers;
             require(store.GetAllSpeakersInProject("shared", speakers, false), store);
             return store.SpeakerSetSegName(clipName(call), "shared", speakers.at(0), 7, false);
         }},
        {"SpeakerGetList",
         [](auto& store, int) {
             std::vector<KsNNSpeakerKV> speakers;
             return store.SpeakerGetList("shared", speakers, false);
         }},
        {"ShareSpeakers",
         [](auto& store, int call) {
             return store.ShareSpeakers(clipName(call), "joined", "Joined", false);
         }},
        {"LockEntry",
         [](auto& store, int call) { return store.LockEntry("new " + std::to_string(call), false); }},
        {"WriteToDB of segment 0",
         [](auto& store, int call) {
             KsNNDBEntrySeg seg;
             seg.segment = 0;
             seg.mediaGuid = "new " + std::to_string(call);
             seg.projectGuid = "new";
             return store.WriteToDB({}, seg, false);
         }},
        {"SetProgressComplete",
         [](auto& store, int call) {
             return store.SetProgressComplete("new " + std::to_string(call), false, 2, "");
         }},
        {"AppendProjectToEntry",
         [](auto& store, int call) {
             return store.AppendProjectToEntry("new " + std::to_string(call), "second", "Second", -1, false);
         }},
        {"UnlockEntry",
         [](auto& store, int call) { return store.UnlockEntry("new " + std::to_string(call), false); }},
        {"RemoveProjectFromEntry",
         [](auto& store, int call) {
             return store.RemoveProjectFromEntry("new " + std::to_string(call), "second", false);
         }},
        {"DeleteEntry",
         [](auto& store, int call) {
             return store.DeleteEntry("new " + std::to_string(call), "new", false, 100, nullptr);
         }},
        {"HardDeleteEntries",
         [](auto& store, int call) { return store.HardDeleteEntries({clipName(call)}, false); }},
    };
    return all;
}

double medianMilliseconds(KsNNDatabase& store, const Measured& measured) {
    std::vector<double> times;
    for (int call = 0; call < kCalls; ++call) {
        const auto begin = Clock::now();
        require(measured.run(store, call), store);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    std::nth_element(times.begin(), times.begin() + kCalls / 2, times.end());
    return times[kCalls / 2];
}

void run(const std::vector<int>& sizes) {
    const kestrel_test::IndexService service;
    service.giveCredentialsToLibrary();
    KsNNDatabase store(service.uri().c_str(), "growth", nullptr, nullptr, false);
    std::vector<std::vector<double>> columns;
    for (const int clips : sizes) {
        KsNNDatabase::setTranscriptIndex("growth_" + std::to_string(clips));
        require(store.CreateIndex(KsNNDatabase::getTranscriptIndex(), false), store);
        const auto begin = Clock::now();
        grow(store, 0, clips);
        std::cerr << clips << " clips loaded in "
                  << std::chrono::duration<double>(Clock::now() - begin).count() << " s\n";
        columns.emplace_back();
        for (const Measured& measured : operations())
            columns.back().push_back(medianMilliseconds(store, measured));
        require(store.DeleteIndex(KsNNDatabase::getTranscriptIndex(), false), store);
    }

    std::printf("%-34s", "clips of 100 segments");
    for (const int clips : sizes)
        std::printf("%12d", clips);
    for (std::size_t row = 0; row < operations().size(); ++row) {
        std::printf("\n%-34s", operations()[row].name);
        for (const std::vector<double>& column : columns)
            std::printf("%9.1f ms", column[row]);
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::vector<int> sizes;
        for (int i = 1; i < argc; ++i)
            sizes.push_back(std::stoi(argv[i]));
        run(sizes.empty() ? std::vector{100, 1000, 10000} : sizes);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
