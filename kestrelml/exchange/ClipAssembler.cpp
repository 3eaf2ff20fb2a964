#include "kestrelml/exchange/ClipAssembler.h"

#include "kestrelml/store/Answer.h"
#include "kestrelml/store/Schema.h"

#include <Poco/Exception.h>

#include <algorithm>
#include <utility>

namespace kestrelml::detail {
namespace {

constexpr const char* kTimesDiffer = "KsNNDatabase::ImportDBContentsFromKSTerr: ";
constexpr const char* kOtherVersion =
    "KsNNDatabase::ImportDBContentsFromKST err: schemaVersion is mismatched, ";
constexpr std::size_t kLongestQuote = 60;

std::string quoted(const Var& value) {
    std::string text = Var::toString(value);
    if (text.size() > kLongestQuote) text = text.substr(0, kLongestQuote) + " ...";
    return text;
}

void require(bool isRight, const char* key, const Var& value, const char* kind) {
    if (isRight) return;
    throw Poco::DataFormatException("\"" + std::string(key) + "\" of a document is " + quoted(value) +
                                    ", not " + kind);
}

// The readers of the schema take a number for a text and a text for a number, which is kind to a service and
// unwise towards a file from elsewhere.

void requireText(const Object& document, const char* key) {
    const Var value = memberOf(document, key);
    require(value.isString(), key, value, "a text");
}

void requireInteger(const Object& document, const char* key) {
    const Var value = memberOf(document, key);
    require(value.isInteger() && !value.isBoolean(), key, value, "a whole number");
}

void requireList(const Object& document, const char* key, bool ofTexts) {
    for (const Var& element : *arrayOf(document, key)) {
        if (ofTexts)
            require(element.isString(), key, element, "a list of texts");
        else
            require(element.isInteger() && !element.isBoolean(), key, element, "a list of whole numbers");
    }
}

void requireKinds(const Object& document) {
    requireInteger(document, field::kSegment);
    for (const char* key : {field::kMediaGuid, field::kTranscript, field::kLanguage, field::kSpeakerID})
        requireText(document, key);
    if (document.has(field::kSpeakerGuid)) requireText(document, field::kSpeakerGuid);
    requireList(document, field::kProjectGuidList, true);
    requireList(document, field::kWordStartsMS, false);
    requireList(document, field::kWordEndsMS, false);
    const int segment = segmentOf(document);
    require(segment >= 0, field::kSegment, segment, "a segment's number");
    if (segment > 0) return;
    for (const char* key : {field::kModel, field::kClipName, field::kAudioTracks, field::kClientApp})
        requireText(document, key);
    if (document.has(field::kSchemaVersion)) requireInteger(document, field::kSchemaVersion);
}

bool isBefore(const KsNNProject& left, const KsNNProject& right) {
    return left.projectGuid < right.projectGuid;
}

} // namespace

KnownProjects::KnownProjects(std::vector<KsNNProject> projects, const KsNNProject& own)
    : mProjects(std::move(projects)) {
    std::stable_sort(mProjects.begin(), mProjects.end(), isBefore);
    if (!contains(own.projectGuid))
        mProjects.insert(std::upper_bound(mProjects.begin(), mProjects.end(), own, isBefore), own);
}

std::vector<KsNNProject> KnownProjects::withGuid(const std::string& guid) const {
    const auto [first, last] =
        std::equal_range(mProjects.begin(), mProjects.end(), KsNNProject{"", guid}, isBefore);
    return {first, last};
}

KsNN_ErrorCode ClipAssembler::add(const Object& document) {
    requireKinds(document);
    KsNNDBEntrySeg seg = readText(document);
    if (!mClip.segments.empty() && mClip.segments.front().mediaGuid != seg.mediaGuid) {
        if (const auto code = finish()) return code;
    }
    if (mSeen.count(seg.mediaGuid) > 0)
        throw Poco::DataFormatException("The clip \"" + seg.mediaGuid +
                                        "\" stands in two places of the file");
    seg.speakerID = speakerLabelOf(document);
    readSpeaker(document, seg);
    const std::vector<std::string> projectGuids = projectGuidsOf(document);
    for (const std::string& guid : projectGuids) {
        if (mProjects.contains(guid)) seg.projectGuidList.push_back(guid);
    }
    if (seg.projectGuidList.empty()) seg.projectGuidList.emplace_back(kImportProjectGuid);
    if (!readTimes(document, seg)) return mOperation.failWith(kTimesDiffer);
    const bool carriesClipFields = seg.segment == 0;
    mClip.segments.push_back(std::move(seg));
    return carriesClipFields ? readClipFields(document, projectGuids) : KsNN_Success;
}

KsNN_ErrorCode ClipAssembler::readClipFields(const Object& document,
                                             const std::vector<std::string>& projectGuids) {
    if (!isVersion2(document)) return mOperation.failWith(kOtherVersion);
    mClip.projects.clear();
    for (const std::string& guid : projectGuids) {
        const std::vector<KsNNProject> known = mProjects.withGuid(guid);
        mClip.projects.insert(mClip.projects.end(), known.begin(), known.end());
    }
    if (mClip.projects.empty()) mClip.projects.push_back({kImportProjectName, kImportProjectGuid});
    readClip(document, mClip);
    mClip.progressComplete = true;
    return KsNN_Success;
}

KsNN_ErrorCode ClipAssembler::finish() {
    if (mClip.segments.empty()) return KsNN_Success;
    mSeen.insert(mClip.segments.front().mediaGuid);
    const KsNN_ErrorCode code = mFinished(mClip);
    mClip = {};
    return code;
}

} // namespace kestrelml::detail
